// Reading an input whole, with the checks every reader needs first: the file exists, can be read,
// isn't empty and isn't absurdly large; and gzip'd inputs ("bunny.ply.gz") inflated in memory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The largest input or inflated input taken: 2 GiB.
constexpr uint64_t MaxInputBytes = uint64_t(2) << 30;

// The file's bytes; on failure false with the reason in error ("the file is empty", ...).
bool ReadInputFile(const std::string& path, std::vector<uint8_t>& bytes, std::string& error);

// Inflates a gzip stream; false with the reason in error for damaged or truncated data.
bool InflateGzip(const std::vector<uint8_t>& packed, std::vector<uint8_t>& bytes,
                 std::string& error);

// The file name's extension in lower case without the dot ("obj"); for "x.ply.gz", "gz".
std::string LowerExtension(const std::string& path);
// The file name without its folder.
std::string BaseName(const std::string& path);
