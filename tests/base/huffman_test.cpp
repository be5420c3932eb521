#include "base/compression/huffman.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

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

Bytes Compress(const Bytes& input) {
    return CompressWith(HuffmanCompress, input, 9);
}

bool Expand(const Bytes& stored, uint32_t size, Bytes* output) {
    return ExpandWith(HuffmanExpand, stored, size, output);
}

void ExpectRoundTrip(const Bytes& input, const std::string& what) {
    SCOPED_TRACE(what);
    const Bytes stored = Compress(input);
    ASSERT_GE(stored.size(), HuffmanHeaderSize);
    EXPECT_LE(stored.size(), input.size() + 2060);
    EXPECT_EQ(Load32(stored, 0), input.size());
    Bytes output;
    ASSERT_TRUE(Expand(stored, uint32_t(input.size()), &output));
    EXPECT_TRUE(output == input);
}

// Skewed, so codes of many lengths occur.
Bytes Random(uint32_t size, uint32_t seed, uint32_t values) {
    std::mt19937 generator(seed);
    std::geometric_distribution<uint32_t> pick(1.0 / values);
    Bytes bytes(size);
    for (uint8_t& b : bytes) b = uint8_t(pick(generator) % values);
    return bytes;
}

TEST(Huffman, RandomAndRealDataComeBackByteForByte) {
    for (uint32_t seed : {1u, 2u}) {
        for (uint32_t size : {0u, 1u, 2u, 3u, 255u, 4096u, 65537u, 1u << 20}) {
            for (uint32_t values : {2u, 17u, 256u}) {
                ExpectRoundTrip(Random(size, seed, values), std::to_string(seed) + "/" +
                                                                std::to_string(size) + "/" +
                                                                std::to_string(values));
            }
        }
    }
    std::mt19937 generator(7);  // uniform bytes: every value, codes of 7 to 9 bits
    Bytes uniform(100000);
    for (uint8_t& b : uniform) b = uint8_t(generator());
    ExpectRoundTrip(uniform, "uniform");
    for (const char* sample :
         {"README.md", "data/sample/textures/grass.tga", "data/sample/test.vbf"}) {
        const Bytes input = ReadSourceFile(sample);
        ASSERT_GT(input.size(), 1000u) << sample;
        ExpectRoundTrip(input, sample);
    }
    const Bytes text = ReadSourceFile("README.md");
    EXPECT_LT(Compress(text).size(), text.size());

    // A weight of ten million takes part in the merges like any other.
    Bytes large(10000005, 'a');
    for (uint32_t i = 0; i < 5; ++i) large[i * 1000003] = uint8_t('b' + i);
    ExpectRoundTrip(large, "ten million");
}

TEST(Huffman, TreeAndBitsAreLaidOutExactly) {
    // One value is stored as the root, with an empty tree and no stream.
    for (uint32_t size : {1u, 100000u}) {
        const Bytes stored = Compress(Bytes(size, 'q'));
        ASSERT_EQ(stored.size(), 2060u);
        EXPECT_EQ(Load32(stored, 4), uint32_t('q'));
        for (uint32_t i = 0; i < HuffmanTreeValues; ++i) ASSERT_EQ(TreeValue(stored, i), 0);
        ExpectRoundTrip(Bytes(size, 'q'), "one value");
    }
    EXPECT_EQ(Compress({}).size(), 2056u);

    // Two values: root 256, the rarer (or, at equal counts, the lower) value takes bit 0.
    Bytes stored = Compress({'b', 'a', 'b', 'b'});
    ASSERT_EQ(stored.size(), 2060u);
    EXPECT_EQ(Load32(stored, 4), 256u);
    EXPECT_EQ(TreeValue(stored, 512), 'a');
    EXPECT_EQ(TreeValue(stored, 513), 'b');
    EXPECT_EQ(Load32(stored, 2056), 0b1101u);
    for (uint32_t i = 0; i < 512; ++i) ASSERT_EQ(TreeValue(stored, i), 0) << i;
    stored = Compress({'y', 'x', 'y', 'x'});
    EXPECT_EQ(TreeValue(stored, 512), 'x');
    EXPECT_EQ(Load32(stored, 2056), 0b0101u);

    // "aaabbc": c and b merge first (c, the smallest, on bit 0) into 256; then a and 256 tie at
    // 3 and a's earlier place puts it on bit 0 of the root 257. Codes from the root: a 0,
    // b 11, c 10, written from each word's lowest bit.
    stored = Compress({'a', 'a', 'a', 'b', 'b', 'c'});
    ASSERT_EQ(stored.size(), 2060u);
    EXPECT_EQ(Load32(stored, 4), 257u);
    EXPECT_EQ(TreeValue(stored, 512), 'c');
    EXPECT_EQ(TreeValue(stored, 513), 'b');
    EXPECT_EQ(TreeValue(stored, 514), 'a');
    EXPECT_EQ(TreeValue(stored, 515), 256);
    EXPECT_EQ(Load32(stored, 2056), 0b011111000u);

    // 32 one-bit codes fill exactly one word: no second word is written or needed.
    Bytes exact(32, 'm');
    exact[5] = exact[9] = 'n';
    EXPECT_EQ(Compress(exact).size(), 2060u);
    ExpectRoundTrip(exact, "one word");
    exact.push_back('m');
    EXPECT_EQ(Compress(exact).size(), 2064u);
}

TEST(Huffman, TooLittleRoomIsRefused) {
    ReportCapture warnings;
    const Bytes input = Random(1000, 4, 256);
    Bytes stored(2100);
    EXPECT_EQ(HuffmanCompress(input.data(), stored.data(), 1000, 2100, 0), 0u);
    EXPECT_EQ(HuffmanCompress(input.data(), stored.data(), 1000, 100, 0), 0u);
    const Bytes same(10, 'z');
    EXPECT_EQ(HuffmanCompress(same.data(), stored.data(), 10, 2059, 0), 0u);
    EXPECT_EQ(HuffmanCompress(same.data(), stored.data(), 10, 2060, 0), 2060u);
    EXPECT_EQ(warnings.warnings, 3);
}

TEST(Huffman, DamagedEntriesAreRefusedWithAWarning) {
    const Bytes input = Random(5000, 5, 40);
    const Bytes stored = Compress(input);
    const uint32_t root = Load32(stored, 4);
    Bytes output;
    ReportCapture warnings;

    // A claimed size that is not the stored one, either way; shorter than the header; a stream
    // cut anywhere; a root or a tree value beyond the node table.
    EXPECT_FALSE(Expand(stored, 4999, &output));
    EXPECT_FALSE(Expand(stored, 5001, &output));
    EXPECT_FALSE(Expand(Bytes(stored.begin(), stored.begin() + 2055), 5000, &output));
    EXPECT_FALSE(Expand(Bytes(stored.begin(), stored.end() - 4), 5000, &output));
    EXPECT_FALSE(Expand(Bytes(stored.begin(), stored.begin() + 2056), 5000, &output));
    Bytes bad = stored;
    bad[4] = 0x00, bad[5] = 0x02;  // 512
    EXPECT_FALSE(Expand(bad, 5000, &output));
    bad = stored;
    bad[8 + 2 * 600 + 1] = 0x02;
    EXPECT_FALSE(Expand(bad, 5000, &output));
    EXPECT_EQ(warnings.warnings, 7);
    EXPECT_EQ(warnings.lastWarning, "Huffman entry's tree holds 512, which is no node");

    // A node that leads to itself eats the stream and stops at its end.
    bad = stored;
    bad[8 + 4 * root] = bad[10 + 4 * root] = uint8_t(root);
    bad[9 + 4 * root] = bad[11 + 4 * root] = uint8_t(root >> 8);
    EXPECT_FALSE(Expand(bad, 5000, &output));
    EXPECT_EQ(warnings.lastWarning, "Huffman entry's bit stream ends after 0 of 5000 bytes");

    // Flipped bits give wrong output or a refusal, and never a write past the output (the
    // sanitizer build watches).
    std::mt19937 generator(11);
    for (int trial = 0; trial < 200; ++trial) {
        bad = stored;
        for (int flip = 0; flip < 4; ++flip)
            bad[4 + generator() % uint32_t(bad.size() - 4)] ^= uint8_t(1u << (generator() % 8));
        Expand(bad, 5000, &output);
    }
}

}  // namespace
