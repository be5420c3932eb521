// Fuzz target: the Huffman method's expander and a compress-expand round trip.
#include "base/compression/huffman.h"
#include "tests/fuzz/method_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const auto sizeOk = [](uint32_t length, uint32_t stored) {
        return length >= HuffmanHeaderSize && length <= stored + HuffmanHeaderSize + 4;
    };
    return FuzzMethod(data, size, HuffmanExpand, HuffmanCompress, 0, sizeOk);
}
