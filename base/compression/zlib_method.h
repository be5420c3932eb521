// Compression method 2: a zlib stream (RFC 1950) behind a 4-byte little-endian uncompressed size.
#pragma once

#include <cstdint>

enum : uint32_t { ZlibPrefixSize = 4 };

// Stores size in the first four bytes of target and compresses behind them with zlib's level
// (-1 default, 0 none to 9 best). Gives the bytes stored, prefix included, or 0, with a warning,
// where zlib fails: too little capacity, or a level it does not know.
uint32_t ZlibCompress(const uint8_t* source, uint8_t* target, uint32_t size, uint32_t capacity,
                      int32_t level);

// Expands the stream behind the prefix of storedSize bytes into target, which holds size bytes:
// size is what the entry claims as its uncompressed size, and the prefix is not read. True, with
// *sizeOut set to size, when the stream is whole and gives exactly size bytes. Otherwise a
// warning says what zlib found, *sizeOut is 0, the result is false, and target may hold part of
// the output.
bool ZlibExpand(const uint8_t* source, uint8_t* target, uint32_t* sizeOut, uint32_t storedSize,
                uint32_t size);
