// The compression methods of resource library entries, indexed by an entry's method number.
// Method 0 stores the bytes raw and has no functions; its slots are null and never called.
//
// A compressor gives the bytes stored, or 0 where it could not compress into the capacity: a
// caller stores the raw bytes then, as it does when the result exceeds the input's size. A
// capacity of twice the size plus 5000 bytes is always enough for both methods.
// An expander bounds its reads by the stored size and its writes by the size, and gives false,
// with a warning, for data that does not expand to exactly size bytes.
#pragma once

#include <cstdint>

#include "base/compression/huffman.h"
#include "base/compression/zlib_method.h"

enum : uint32_t {
    CompressionRaw = 0,
    CompressionHuffman = 1,
    CompressionZlib = 2,
    CompressionMethodCount = 3,
};

// (source, target, source size, target capacity, level)
using CompressFunction = uint32_t (*)(const uint8_t*, uint8_t*, uint32_t, uint32_t, int32_t);
// (source, target, size out, stored size, size)
using ExpandFunction = bool (*)(const uint8_t*, uint8_t*, uint32_t*, uint32_t, uint32_t);

inline constexpr CompressFunction CompressMethods[CompressionMethodCount] = {
    nullptr, HuffmanCompress, ZlibCompress};
inline constexpr ExpandFunction ExpandMethods[CompressionMethodCount] = {nullptr, HuffmanExpand,
                                                                         ZlibExpand};
