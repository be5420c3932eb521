// Fuzz targets whose reader takes a path: the input goes to a file of this process's own.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <string>

inline std::string WriteFuzzInput(const char* kind, const uint8_t* data, size_t size) {
    const std::string path = "/tmp/tenebrix-fuzz-" + std::string(kind) + "-" + std::to_string(getpid());
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data), std::streamsize(size));
    return path;
}
