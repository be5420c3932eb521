#include "base/compression/zlib_method.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/compression_calls.h"
#include "tests/support/report_capture.h"
#include "tests/support/source_files.h"

namespace {

Bytes Compress(const Bytes& input, int32_t level) {
    return CompressWith(ZlibCompress, input, level);
}

bool Expand(const Bytes& stored, uint32_t size, Bytes* output) {
    return ExpandWith(ZlibExpand, stored, size, output);
}

Bytes Random(uint32_t size, uint32_t seed, uint32_t values) {
    std::mt19937 generator(seed);
    Bytes bytes(size);
    for (uint8_t& b : bytes) b = uint8_t(generator() % values);
    return bytes;
}

TEST(ZlibMethod, RandomAndRealDataComeBackAtEveryLevel) {
    std::vector<std::pair<std::string, Bytes>> inputs;
    for (uint32_t size : {0u, 1u, 2u, 1000u, 65536u, 1u << 20}) {
        for (uint32_t values : {3u, 256u})
            inputs.push_back({std::to_string(size) + "/" + std::to_string(values),
                              Random(size, size + values, values)});
    }
    for (const char* sample :
         {"README.md", "data/sample/textures/grass.tga", "data/sample/test.vbf"}) {
        inputs.push_back({sample, ReadSourceFile(sample)});
        ASSERT_GT(inputs.back().second.size(), 1000u) << sample;
    }
    for (const auto& [what, input] : inputs) {
        for (int32_t level : {-1, 0, 1, 9}) {
            SCOPED_TRACE(what + " level " + std::to_string(level));
            const Bytes stored = Compress(input, level);
            ASSERT_GT(stored.size(), ZlibPrefixSize);
            // The prefix is the size, little-endian; behind it a plain zlib stream.
            EXPECT_EQ(uint32_t(stored[0] | stored[1] << 8 | stored[2] << 16 | stored[3] << 24),
                      input.size());
            Bytes plain(input.size() + 1);
            uLongf plainLength = plain.size();
            ASSERT_EQ(uncompress(plain.data(), &plainLength, stored.data() + 4, stored.size() - 4),
                      Z_OK);
            EXPECT_EQ(plainLength, input.size());
            Bytes output;
            ASSERT_TRUE(Expand(stored, uint32_t(input.size()), &output));
            EXPECT_TRUE(output == input);
        }
    }
}

TEST(ZlibMethod, DamagedOrMisclaimedEntriesAreRefusedWithAWarning) {
    const Bytes stored = Compress(Random(20000, 9, 7), 9);
    Bytes output;
    ReportCapture warnings;
    EXPECT_FALSE(Expand(stored, 19999, &output));  // the stream gives more than claimed
    EXPECT_FALSE(Expand(stored, 20001, &output));  // fewer
    EXPECT_FALSE(Expand(stored, 0, &output));
    for (size_t cut : {size_t(3), size_t(4), size_t(6), stored.size() / 2, stored.size() - 1}) {
        EXPECT_FALSE(Expand(Bytes(stored.begin(), stored.begin() + long(cut)), 20000, &output))
            << cut;
    }
    EXPECT_EQ(warnings.warnings, 8);
    const std::string said =
        "Zlib entry of " + std::to_string(stored.size() - 1) + " bytes does not expand to 20000";
    EXPECT_EQ(warnings.lastWarning.rfind(said, 0), 0u) << warnings.lastWarning;

    // The checksum catches flipped bits in the stream.
    std::mt19937 generator(3);
    for (int trial = 0; trial < 100; ++trial) {
        Bytes bad = stored;
        const uint32_t at = 4 + generator() % uint32_t(bad.size() - 4);
        bad[at] ^= uint8_t(1u << (generator() % 8));
        EXPECT_FALSE(Expand(bad, 20000, &output)) << at;
    }

    // The entry's own size counts, not the prefix; an empty entry is a stream too.
    Bytes prefixed = stored;
    prefixed[0] ^= 0x55;
    prefixed[3] = 0x7F;
    EXPECT_TRUE(Expand(prefixed, 20000, &output));
    const Bytes empty = Compress({}, 6);
    EXPECT_TRUE(Expand(empty, 0, &output));
    EXPECT_FALSE(Expand(empty, 1, &output));
}

TEST(ZlibMethod, CompressRefusesTooLittleRoomOrAnUnknownLevel) {
    ReportCapture warnings;
    const Bytes input = Random(5000, 1, 256);
    Bytes stored(20000);
    EXPECT_EQ(ZlibCompress(input.data(), stored.data(), 5000, 3, 6), 0u);
    EXPECT_EQ(ZlibCompress(input.data(), stored.data(), 5000, 1000, 6), 0u);
    EXPECT_EQ(ZlibCompress(input.data(), stored.data(), 5000, 20000, 10), 0u);
    EXPECT_EQ(warnings.warnings, 3);
    EXPECT_GT(ZlibCompress(input.data(), stored.data(), 5000, 20000, 6), 5000u);
}

}  // namespace
