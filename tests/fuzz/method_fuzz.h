// The body of a compression method's fuzz target: any bytes as an entry expand or are refused,
// with every read inside the entry and every write inside the claimed size; and any bytes come
// back unchanged through compress and expand.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

using ExpandFunction = bool (*)(const uint8_t*, uint8_t*, uint32_t*, uint32_t, uint32_t);
using CompressFunction = uint32_t (*)(const uint8_t*, uint8_t*, uint32_t, uint32_t, int32_t);

// The claim is the entry's first word, so a decoder that checks it gets past the check; a claim
// above 1 MB is cut to its low 20 bits. packedOk judges the compressor's output length.
inline int FuzzMethod(const uint8_t* data, size_t size, ExpandFunction expand,
                      CompressFunction compress, int32_t level, bool (*packedOk)(uint32_t, uint32_t)) {
    if (size > UINT32_MAX / 4) return 0;
    const uint32_t stored = uint32_t(size);
    uint32_t claimed = 0;
    if (stored >= 4) {
        claimed = uint32_t(data[0]) | uint32_t(data[1]) << 8 | uint32_t(data[2]) << 16 |
                  uint32_t(data[3]) << 24;
        if (claimed > (1u << 20)) claimed &= (1u << 20) - 1;
    }
    std::unique_ptr<uint8_t[]> output(claimed ? new uint8_t[claimed] : nullptr);
    uint32_t sizeOut = 0;
    const bool expanded = expand(data, output.get(), &sizeOut, stored, claimed);
    if (sizeOut != (expanded ? claimed : 0)) std::abort();

    const uint32_t capacity = stored * 2 + 5000;
    std::unique_ptr<uint8_t[]> packed(new uint8_t[capacity]);
    const uint32_t length = compress(data, packed.get(), stored, capacity, level);
    if (!packedOk(length, stored)) std::abort();
    std::unique_ptr<uint8_t[]> back(stored ? new uint8_t[stored] : nullptr);
    if (!expand(packed.get(), back.get(), &sizeOut, length, stored)) std::abort();
    if (stored && std::memcmp(back.get(), data, stored) != 0) std::abort();
    return 0;
}
