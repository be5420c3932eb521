// Fuzz targets whose reader takes a path: the input goes to a file of this process's own.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>

inline std::string WriteFuzzInput(const char* kind, const uint8_t* data, size_t size) {
    std::string path = "/tmp/tenebrix-fuzz-" + std::string(kind) + "-" + std::to_string(getpid());
    if (FILE* file = std::fopen(path.c_str(), "wb")) {
        std::fwrite(data, 1, size, file);
        std::fclose(file);
    }
    return path;
}
