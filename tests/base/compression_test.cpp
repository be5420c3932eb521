// The methods' own tests; real files go through both in the resource library's round trip.
#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <string>
#include <vector>

#include "base/compression/huffman.h"
#include "base/compression/zlib_method.h"
#include "tests/support/compression_calls.h"
#include "tests/support/report_capture.h"

namespace {

uint32_t Load32(const Bytes& bytes, size_t at) {
    return uint32_t(bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | bytes[at + 3] << 24);
}

// The Huffman tree's values from index on.
std::vector<int> Tree(const Bytes& stored, uint32_t index, uint32_t count) {
    std::vector<int> values;
    for (uint32_t i = index; i < index + count; ++i)
        values.push_back(stored[8 + 2 * i] | stored[9 + 2 * i] << 8);
    return values;
}

Bytes Huffman(const Bytes& input) { return CompressWith(HuffmanCompress, input, 9); }

TEST(Compression, RandomDataComesBackByteForByte) {
    Bytes output;
    for (uint32_t size : {0u, 1u, 2u, 3u, 255u, 4096u, 65537u, 1u << 20}) {
        for (uint32_t values : {2u, 17u, 256u}) {
            SCOPED_TRACE(std::to_string(size) + "/" + std::to_string(values));
            // Skewed, so Huffman codes of many lengths occur.
            std::mt19937 generator(size + values);
            std::geometric_distribution<uint32_t> pick(1.0 / values);
            Bytes input(size);
            for (uint8_t& b : input) b = uint8_t(pick(generator) % values);
            const Bytes huffman = Huffman(input);
            EXPECT_LE(huffman.size(), size + 2060);
            EXPECT_EQ(Load32(huffman, 0), size);
            ASSERT_TRUE(ExpandWith(HuffmanExpand, huffman, size, &output));
            EXPECT_TRUE(output == input);
            // A zlib entry is the size, little-endian, and a plain zlib stream.
            for (int32_t level : {-1, 0, 9}) {
                const Bytes zlib = CompressWith(ZlibCompress, input, level);
                ASSERT_GT(zlib.size(), ZlibPrefixSize);
                EXPECT_EQ(Load32(zlib, 0), size);
                uLongf plainLength = size + 1;
                Bytes plain(plainLength);
                ASSERT_EQ(uncompress(plain.data(), &plainLength, zlib.data() + 4, zlib.size() - 4), Z_OK);
                EXPECT_EQ(plainLength, size);
                ASSERT_TRUE(ExpandWith(ZlibExpand, zlib, size, &output));
                EXPECT_TRUE(output == input);
            }
        }
    }
    // A weight of ten million takes part in the merges like any other.
    Bytes large(10000005, 'a');
    for (uint32_t i = 0; i < 5; ++i) large[i * 1000003] = uint8_t('b' + i);
    ASSERT_TRUE(ExpandWith(HuffmanExpand, Huffman(large), 10000005, &output));
    EXPECT_TRUE(output == large);
}

TEST(Compression, HuffmanTreeAndBitsAreLaidOutExactly) {
    // One value is stored as the root, with an empty tree and no stream; nothing has no root.
    EXPECT_EQ(Huffman({}).size(), 2056u);
    Bytes stored = Huffman(Bytes(100000, 'q'));
    EXPECT_EQ(stored.size(), 2060u);
    EXPECT_EQ(Load32(stored, 4), uint32_t('q'));
    EXPECT_EQ(Tree(stored, 0, 1024), std::vector<int>(1024, 0));
    // Two values: root 256, the rarer (or, at equal counts, the lower) value takes bit 0.
    stored = Huffman({'b', 'a', 'b', 'b'});
    EXPECT_EQ(Load32(stored, 4), 256u);
    EXPECT_EQ(Tree(stored, 0, 512), std::vector<int>(512, 0));
    EXPECT_EQ(Tree(stored, 512, 2), (std::vector<int>{'a', 'b'}));
    EXPECT_EQ(Load32(stored, 2056), 0b1101u);
    // "aaabbc": c and b merge first (c, the smallest, on bit 0) into 256; then a and 256 tie at
    // 3 and a's earlier place puts it on bit 0 of the root 257. Codes from the root: a 0,
    // b 11, c 10, written from each word's lowest bit.
    stored = Huffman({'a', 'a', 'a', 'b', 'b', 'c'});
    ASSERT_EQ(stored.size(), 2060u);
    EXPECT_EQ(Load32(stored, 4), 257u);
    EXPECT_EQ(Tree(stored, 512, 4), (std::vector<int>{'c', 'b', 'a', 256}));
    EXPECT_EQ(Load32(stored, 2056), 0b011111000u);
    // 32 one-bit codes fill exactly one word: no second word is written or needed.
    Bytes exact(32, 'm'), output;
    exact[5] = exact[9] = 'n';
    EXPECT_EQ(Huffman(exact).size(), 2060u);
    EXPECT_TRUE(ExpandWith(HuffmanExpand, Huffman(exact), 32, &output) && output == exact);
    exact.push_back('m');
    EXPECT_EQ(Huffman(exact).size(), 2064u);
}

TEST(Compression, TooLittleRoomOrAnUnknownLevelIsRefused) {
    Bytes input(1000), same(10, 'z'), stored(5000);
    for (size_t i = 0; i < input.size(); ++i) input[i] = uint8_t(i * 7919 % 251);
    const struct {
        uint32_t (*compress)(const uint8_t*, uint8_t*, uint32_t, uint32_t, int32_t);
        const Bytes& input;
        uint32_t capacity;
        int32_t level;
        uint32_t length;
    } rows[] = {{HuffmanCompress, input, 2100, 0, 0}, {HuffmanCompress, input, 100, 0, 0},
                {HuffmanCompress, same, 2059, 0, 0},  {HuffmanCompress, same, 2060, 0, 2060},
                {ZlibCompress, input, 3, 6, 0},       {ZlibCompress, input, 100, 6, 0},
                {ZlibCompress, input, 5000, 10, 0}};
    for (const auto& row : rows) {
        ReportCapture warnings;
        const uint32_t size = uint32_t(row.input.size());
        EXPECT_EQ(row.compress(row.input.data(), stored.data(), size, row.capacity, row.level), row.length);
        EXPECT_EQ(warnings.warnings, row.length ? 0 : 1);
    }
}

TEST(Compression, DamagedOrMisclaimedEntriesAreRefusedWithAWarning) {
    Bytes input(20000);
    for (size_t i = 0; i < input.size(); ++i) input[i] = uint8_t(i * i % 37 % 11);
    const Bytes huffman = Huffman(Bytes(input.begin(), input.begin() + 5000));
    const Bytes zlib = CompressWith(ZlibCompress, input, 9);
    const uint32_t root = Load32(huffman, 4);
    Bytes badRoot = huffman, badTree = huffman, loop = huffman;
    badRoot[4] = 0x00, badRoot[5] = 0x02;  // 512
    badTree[8 + 2 * 600 + 1] = 0x02;
    // A node that leads to itself eats the stream and stops at its end.
    loop[8 + 4 * root] = loop[10 + 4 * root] = uint8_t(root);
    loop[9 + 4 * root] = loop[11 + 4 * root] = uint8_t(root >> 8);
    const auto cut = [](const Bytes& bytes, size_t size) {
        return Bytes(bytes.begin(), bytes.begin() + long(size));
    };
    const std::string z = "Zlib entry of " + std::to_string(zlib.size()) + " bytes does not expand to ";
    const struct {
        bool huffman;
        Bytes stored;
        uint32_t size;
        std::string said;  // the warning's start
    } rows[] = {
        {true, huffman, 4999, "Huffman entry holds 5000 bytes where 4999 were expected"},
        {true, cut(huffman, 2055), 5000, "Huffman entry of 2055 bytes is shorter than its header"},
        {true, cut(huffman, 2056), 5000, "Huffman entry's bit stream ends after 0 of 5000 bytes"},
        {true, cut(huffman, huffman.size() - 4), 5000, "Huffman entry's bit stream ends after"},
        {true, badRoot, 5000, "Huffman entry's root 512 is no node"},
        {true, badTree, 5000, "Huffman entry's tree holds 512, which is no node"},
        {true, loop, 5000, "Huffman entry's bit stream ends after 0 of 5000 bytes"},
        {false, zlib, 19999, z + "19999 bytes"},
        {false, zlib, 20001, "Zlib entry expands to 20000 bytes where 20001 were expected"},
        {false, zlib, 0, z + "0 bytes"},
        {false, cut(zlib, 3), 20000, "Zlib entry of 3 bytes is shorter than its prefix"},
        {false, cut(zlib, 4), 20000, "Zlib entry of 4 bytes does not expand to 20000 bytes"},
        {false, cut(zlib, zlib.size() - 1), 20000,
         "Zlib entry of " + std::to_string(zlib.size() - 1) + " bytes"},
    };
    Bytes output;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.said);
        ReportCapture warnings;
        EXPECT_FALSE(ExpandWith(row.huffman ? HuffmanExpand : ZlibExpand, row.stored, row.size, &output));
        EXPECT_EQ(warnings.warnings, 1);
        EXPECT_EQ(warnings.lastWarning.substr(0, row.said.size()), row.said);
    }
    // The zlib entry's own size counts, not its prefix.
    Bytes prefixed = zlib;
    prefixed[0] ^= 0x55;
    EXPECT_TRUE(ExpandWith(ZlibExpand, prefixed, 20000, &output));
    EXPECT_TRUE(ExpandWith(ZlibExpand, CompressWith(ZlibCompress, {}, 6), 0, &output));
}

}  // namespace
