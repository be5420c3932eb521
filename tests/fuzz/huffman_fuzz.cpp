// Fuzz target: any bytes as a Huffman entry expand or are refused, with every read inside the
// entry and every write inside the claimed size; and any bytes come back unchanged through
// compress and expand.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/compression/huffman.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > UINT32_MAX / 4) return 0;
    const uint32_t stored = uint32_t(size);

    // The claim is mostly the entry's own size field, so the decoder gets past that check; a
    // field above 1 MB is cut to its low 20 bits, which then mostly disagrees.
    uint32_t claimed = 0;
    if (stored >= 4) {
        claimed = uint32_t(data[0]) | uint32_t(data[1]) << 8 | uint32_t(data[2]) << 16 |
                  uint32_t(data[3]) << 24;
        if (claimed > (1u << 20)) claimed &= (1u << 20) - 1;
    }
    std::unique_ptr<uint8_t[]> output(claimed ? new uint8_t[claimed] : nullptr);
    uint32_t sizeOut = 0;
    const bool expanded = HuffmanExpand(data, output.get(), &sizeOut, stored, claimed);
    if (sizeOut != (expanded ? claimed : 0)) std::abort();

    const uint32_t capacity = stored * 2 + 5000;
    std::unique_ptr<uint8_t[]> packed(new uint8_t[capacity]);
    const uint32_t length = HuffmanCompress(data, packed.get(), stored, capacity, 0);
    if (length < HuffmanHeaderSize || length > stored + HuffmanHeaderSize + 4) std::abort();
    std::unique_ptr<uint8_t[]> back(stored ? new uint8_t[stored] : nullptr);
    if (!HuffmanExpand(packed.get(), back.get(), &sizeOut, length, stored)) std::abort();
    if (stored && std::memcmp(back.get(), data, stored) != 0) std::abort();
    return 0;
}
