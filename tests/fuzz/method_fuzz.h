// The body of a compression method's fuzz target: any bytes as an entry expand or are refused,
// with every read inside the entry and every write inside the claimed size; and any bytes come
// back unchanged through compress and expand.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

// The claim is the entry's first word, so a decoder that checks it gets past the check; above
// 1 MB it is cut to its low 20 bits. Blocks of exact size let the sanitizer see a write past them.
template <typename Expand, typename Compress, typename SizeOk>
int FuzzMethod(const uint8_t* data, size_t size, Expand expand, Compress compress, int32_t level,
               SizeOk packedOk) {
    if (size > UINT32_MAX / 4) return 0;
    const uint32_t stored = uint32_t(size);
    uint32_t claimed = 0, sizeOut = 0;
    if (stored >= 4) std::memcpy(&claimed, data, 4);
    if (claimed > (1u << 20)) claimed &= (1u << 20) - 1;
    std::vector<uint8_t> output(claimed), packed(stored * 2 + 5000), back(stored);
    const bool expanded = expand(data, output.data(), &sizeOut, stored, claimed);
    if (sizeOut != (expanded ? claimed : 0)) std::abort();
    const uint32_t length = compress(data, packed.data(), stored, uint32_t(packed.size()), level);
    if (!packedOk(length, stored) || !expand(packed.data(), back.data(), &sizeOut, length, stored) ||
        (stored && std::memcmp(back.data(), data, stored) != 0))
        std::abort();
    return 0;
}
