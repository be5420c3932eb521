#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <string>
#include <vector>

#include "base/compression/huffman.h"
#include "base/compression/zlib_method.h"
#include "tests/support/compression_calls.h"
#include "tests/support/report_capture.h"
#include "tests/support/source_files.h"

namespace {

uint32_t Load32(const Bytes& bytes, size_t at) {
    const uint8_t* p = bytes.data() + at;
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

uint16_t TreeValue(const Bytes& stored, uint32_t index) {
    return uint16_t(stored[8 + 2 * index] | stored[9 + 2 * index] << 8);
}

Bytes Huffman(const Bytes& input) { return CompressWith(HuffmanCompress, input, 9); }

// Skewed, so Huffman codes of many lengths occur.
Bytes Random(uint32_t size, uint32_t seed, uint32_t values) {
    std::mt19937 generator(seed);
    std::geometric_distribution<uint32_t> pick(1.0 / values);
    Bytes bytes(size);
    for (uint8_t& b : bytes) b = uint8_t(pick(generator) % values);
    return bytes;
}

TEST(Compression, RandomAndRealDataComeBackByteForByte) {
    std::vector<std::pair<std::string, Bytes>> inputs;
    for (uint32_t size : {0u, 1u, 2u, 3u, 255u, 4096u, 65537u, 1u << 20})
        for (uint32_t values : {2u, 17u, 256u})
            inputs.push_back(
                {std::to_string(size) + "/" + std::to_string(values), Random(size, size + values, values)});
    std::mt19937 generator(7);  // uniform bytes: every value, Huffman codes of 7 to 9 bits
    inputs.push_back({"uniform", Bytes(100000)});
    for (uint8_t& b : inputs.back().second) b = uint8_t(generator());
    for (const char* sample : {"README.md", "data/sample/textures/grass.tga", "data/sample/test.vbf"}) {
        inputs.push_back({sample, ReadSourceFile(sample)});
        ASSERT_GT(inputs.back().second.size(), 1000u) << sample;
    }
    Bytes output;
    for (const auto& [what, input] : inputs) {
        SCOPED_TRACE(what);
        const uint32_t size = uint32_t(input.size());
        const Bytes huffman = Huffman(input);
        EXPECT_LE(huffman.size(), size + 2060);
        EXPECT_EQ(Load32(huffman, 0), size);
        ASSERT_TRUE(ExpandWith(HuffmanExpand, huffman, size, &output));
        EXPECT_TRUE(output == input);
        // A zlib entry is the size, little-endian, and a plain zlib stream.
        for (int32_t level : {-1, 0, 1, 9}) {
            const Bytes zlib = CompressWith(ZlibCompress, input, level);
            ASSERT_GT(zlib.size(), ZlibPrefixSize);
            EXPECT_EQ(Load32(zlib, 0), size);
            Bytes plain(size + 1);
            uLongf plainLength = plain.size();
            ASSERT_EQ(uncompress(plain.data(), &plainLength, zlib.data() + 4, zlib.size() - 4), Z_OK);
            EXPECT_EQ(plainLength, size);
            ASSERT_TRUE(ExpandWith(ZlibExpand, zlib, size, &output));
            EXPECT_TRUE(output == input);
        }
    }
    EXPECT_LT(Huffman(inputs[inputs.size() - 3].second).size(), inputs[inputs.size() - 3].second.size());
    // A weight of ten million takes part in the merges like any other.
    Bytes large(10000005, 'a');
    for (uint32_t i = 0; i < 5; ++i) large[i * 1000003] = uint8_t('b' + i);
    ASSERT_TRUE(ExpandWith(HuffmanExpand, Huffman(large), 10000005, &output));
    EXPECT_TRUE(output == large);
}

TEST(Compression, HuffmanTreeAndBitsAreLaidOutExactly) {
    // One value is stored as the root, with an empty tree and no stream.
    for (uint32_t size : {1u, 100000u}) {
        const Bytes stored = Huffman(Bytes(size, 'q'));
        ASSERT_EQ(stored.size(), 2060u);
        EXPECT_EQ(Load32(stored, 4), uint32_t('q'));
        for (uint32_t i = 0; i < HuffmanTreeValues; ++i) ASSERT_EQ(TreeValue(stored, i), 0);
    }
    EXPECT_EQ(Huffman({}).size(), 2056u);

    // Two values: root 256, the rarer (or, at equal counts, the lower) value takes bit 0.
    Bytes stored = Huffman({'b', 'a', 'b', 'b'});
    ASSERT_EQ(stored.size(), 2060u);
    EXPECT_EQ(Load32(stored, 4), 256u);
    EXPECT_EQ(TreeValue(stored, 512) + TreeValue(stored, 513) * 256, 'a' + 'b' * 256);
    EXPECT_EQ(Load32(stored, 2056), 0b1101u);
    for (uint32_t i = 0; i < 512; ++i) ASSERT_EQ(TreeValue(stored, i), 0) << i;
    stored = Huffman({'y', 'x', 'y', 'x'});
    EXPECT_EQ(TreeValue(stored, 512), 'x');
    EXPECT_EQ(Load32(stored, 2056), 0b0101u);

    // "aaabbc": c and b merge first (c, the smallest, on bit 0) into 256; then a and 256 tie at
    // 3 and a's earlier place puts it on bit 0 of the root 257. Codes from the root: a 0,
    // b 11, c 10, written from each word's lowest bit.
    stored = Huffman({'a', 'a', 'a', 'b', 'b', 'c'});
    ASSERT_EQ(stored.size(), 2060u);
    EXPECT_EQ(Load32(stored, 4), 257u);
    EXPECT_EQ(std::vector<uint16_t>({TreeValue(stored, 512), TreeValue(stored, 513), TreeValue(stored, 514),
                                     TreeValue(stored, 515)}),
              std::vector<uint16_t>({'c', 'b', 'a', 256}));
    EXPECT_EQ(Load32(stored, 2056), 0b011111000u);

    // 32 one-bit codes fill exactly one word: no second word is written or needed.
    Bytes exact(32, 'm');
    exact[5] = exact[9] = 'n';
    EXPECT_EQ(Huffman(exact).size(), 2060u);
    Bytes output;
    EXPECT_TRUE(ExpandWith(HuffmanExpand, Huffman(exact), 32, &output) && output == exact);
    exact.push_back('m');
    EXPECT_EQ(Huffman(exact).size(), 2064u);
}

TEST(Compression, TooLittleRoomOrAnUnknownLevelIsRefused) {
    const Bytes input = Random(1000, 4, 256), same(10, 'z');
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
    Bytes stored(5000);
    for (const auto& row : rows) {
        ReportCapture warnings;
        EXPECT_EQ(row.compress(row.input.data(), stored.data(), uint32_t(row.input.size()), row.capacity,
                               row.level),
                  row.length);
        EXPECT_EQ(warnings.warnings, row.length ? 0 : 1);
    }
}

TEST(Compression, DamagedOrMisclaimedEntriesAreRefusedWithAWarning) {
    const Bytes huffman = Huffman(Random(5000, 5, 40)),
                zlib = CompressWith(ZlibCompress, Random(20000, 9, 7), 9);
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
    const std::string z = std::to_string(zlib.size());
    const struct {
        bool huffman;
        Bytes stored;
        uint32_t size;
        std::string said;  // the warning's start
    } rows[] = {
        {true, huffman, 4999, "Huffman entry holds 5000 bytes where 4999 were expected"},
        {true, huffman, 5001, "Huffman entry holds 5000 bytes where 5001 were expected"},
        {true, cut(huffman, 2055), 5000, "Huffman entry of 2055 bytes is shorter than its header"},
        {true, cut(huffman, 2056), 5000, "Huffman entry's bit stream ends after 0 of 5000 bytes"},
        {true, cut(huffman, huffman.size() - 4), 5000, "Huffman entry's bit stream ends after"},
        {true, badRoot, 5000, "Huffman entry's root 512 is no node"},
        {true, badTree, 5000, "Huffman entry's tree holds 512, which is no node"},
        {true, loop, 5000, "Huffman entry's bit stream ends after 0 of 5000 bytes"},
        {false, zlib, 19999, "Zlib entry of " + z + " bytes does not expand to 19999 bytes"},
        {false, zlib, 20001, "Zlib entry expands to 20000 bytes where 20001 were expected"},
        {false, zlib, 0, "Zlib entry of " + z + " bytes does not expand to 0 bytes"},
        {false, cut(zlib, 3), 20000, "Zlib entry of 3 bytes is shorter than its prefix"},
        {false, cut(zlib, 4), 20000, "Zlib entry of 4 bytes does not expand to 20000 bytes"},
        {false, cut(zlib, 6), 20000, "Zlib entry of 6 bytes does not expand to 20000 bytes"},
        {false, cut(zlib, zlib.size() - 1), 20000,
         "Zlib entry of " + std::to_string(zlib.size() - 1) + " bytes does not expand"},
    };
    Bytes output;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.said);
        ReportCapture warnings;
        EXPECT_FALSE(ExpandWith(row.huffman ? HuffmanExpand : ZlibExpand, row.stored, row.size, &output));
        EXPECT_EQ(warnings.warnings, 1);
        EXPECT_EQ(warnings.lastWarning.substr(0, row.said.size()), row.said);
    }
    // The zlib checksum catches flipped bits in the stream.
    std::mt19937 generator(3);
    ReportCapture warnings;
    for (int trial = 0; trial < 100; ++trial) {
        Bytes bad = zlib;
        bad[4 + generator() % uint32_t(bad.size() - 4)] ^= uint8_t(1u << (generator() % 8));
        EXPECT_FALSE(ExpandWith(ZlibExpand, bad, 20000, &output));
    }
    // The zlib entry's own size counts, not its prefix; an empty entry is a stream too.
    Bytes prefixed = zlib;
    prefixed[0] ^= 0x55;
    prefixed[3] = 0x7F;
    EXPECT_TRUE(ExpandWith(ZlibExpand, prefixed, 20000, &output));
    EXPECT_TRUE(ExpandWith(ZlibExpand, CompressWith(ZlibCompress, {}, 6), 0, &output));
}

}  // namespace
