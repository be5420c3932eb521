// Calls a compression method's pair of functions the way a resource library does, for the
// methods' tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

using Bytes = std::vector<uint8_t>;

// Compresses with the capacity a library gives (twice the size plus 5000).
template <typename CompressFunction>
Bytes CompressWith(CompressFunction compress, const Bytes& input, int32_t level) {
    Bytes stored(input.size() * 2 + 5000);
    const uint32_t length = compress(input.data(), stored.data(), uint32_t(input.size()),
                                     uint32_t(stored.size()), level);
    stored.resize(length);
    return stored;
}

// Expands into a block of exactly the claimed size; the size given back is 0 when refused.
template <typename ExpandFunction>
bool ExpandWith(ExpandFunction expand, const Bytes& stored, uint32_t size, Bytes* output) {
    output->assign(size, 0xEE);
    uint32_t sizeOut = 12345;
    const bool good = expand(stored.data(), output->data(), &sizeOut, uint32_t(stored.size()), size);
    EXPECT_EQ(sizeOut, good ? size : 0u);
    return good;
}
