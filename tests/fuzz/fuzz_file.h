// Fuzz targets whose reader takes a path: the input goes to a file of this process's own, named
// by what follows the process id, and removed again with the object.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

struct FuzzFile {
    FuzzFile(const char* name, const uint8_t* data, size_t size)
        : path("/tmp/tenebrix-fuzz-" + std::to_string(getpid()) + "-" + name) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(data), std::streamsize(size));
    }
    ~FuzzFile() { std::remove(path.c_str()); }
    const std::string path;
};
