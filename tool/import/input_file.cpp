#include "tool/import/input_file.h"

#include <zlib.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace fs = std::filesystem;

bool ReadInputFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error) {
    std::error_code status;
    if (fs::is_directory(path, status)) {
        error = "is a directory, not a file";
        return false;
    }
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) {
        error = std::strerror(errno);
        return false;
    }
    bytes.clear();
    uint8_t block[65536];
    size_t got = 0;
    bool tooLarge = false;
    while ((got = std::fread(block, 1, sizeof block, file)) > 0) {
        if (bytes.size() + got > MaxInputBytes) {
            tooLarge = true;
            break;
        }
        bytes.insert(bytes.end(), block, block + got);
    }
    bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) error = "a read failed";
    if (tooLarge) error = "larger than the 2 GiB an input may have";
    if (!failed && !tooLarge && bytes.empty()) error = "the file is empty";
    return error.empty();
}

bool InflateGzip(const std::vector<uint8_t>& packed, std::vector<uint8_t>& bytes,
                 std::string& error) {
    z_stream stream = {};
    if (inflateInit2(&stream, 16 + MAX_WBITS) != Z_OK) {
        error = "zlib could not start";
        return false;
    }
    bytes.clear();
    stream.next_in = const_cast<Bytef*>(packed.data());
    stream.avail_in = uInt(packed.size());  // inputs stay under 2 GiB
    uint8_t block[65536];
    int status = Z_OK;
    while (status == Z_OK) {
        stream.next_out = block;
        stream.avail_out = sizeof block;
        status = inflate(&stream, Z_NO_FLUSH);
        size_t made = sizeof block - stream.avail_out;
        if (bytes.size() + made > MaxInputBytes) {
            error = "inflates to more than the 2 GiB an input may have";
            break;
        }
        bytes.insert(bytes.end(), block, block + made);
        // Z_BUF_ERROR with input left and no output made: nothing more can come.
        if (status == Z_BUF_ERROR || (status == Z_OK && made == 0 && stream.avail_in == 0)) break;
    }
    inflateEnd(&stream);
    if (!error.empty()) return false;
    if (status != Z_STREAM_END) {
        error = status == Z_DATA_ERROR ? "damaged gzip data" : "the gzip data ends early";
        return false;
    }
    if (bytes.empty()) {
        error = "the packed file is empty";
        return false;
    }
    return true;
}

std::string LowerExtension(const std::string& path) {
    std::string ext = fs::path(path).extension().string();
    if (!ext.empty() && ext[0] == '.') ext.erase(0, 1);
    for (char& c : ext) c = char(std::tolower((unsigned char)c));
    return ext;
}

std::string BaseName(const std::string& path) {
    return fs::path(path).filename().string();
}
