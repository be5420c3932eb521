#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "tests/support/report_capture.h"
#include "tool/maps/map_chunks.h"

namespace {

// Chunks written byte by byte, little-endian, so a reader that takes the host's order or reads
// through a cast would not pass on every host.
class Block {
public:
    Block& U32(uint32_t value) {
        for (int k = 0; k < 4; ++k) bytes.push_back(uint8_t(value >> (8 * k)));
        return *this;
    }
    Block& Chunk(uint32_t id, std::vector<uint8_t> data) {
        U32(id).U32(uint32_t(data.size()));
        bytes.insert(bytes.end(), data.begin(), data.end());
        return *this;
    }
    Block& Size(int32_t x, int32_t y) {
        return U32(MapChunkSize).U32(8).U32(uint32_t(x)).U32(uint32_t(y));
    }
    Block& End() { return U32(MapChunkEnd).U32(0); }
    Block& Raw(std::vector<uint8_t> more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
        return *this;
    }
    std::vector<uint8_t> bytes;
};

struct Walk {
    bool good;
    MapSize size;
    const char* error;
};

// The block goes into a heap block of exactly its size, so that a read past its end is caught by
// the address sanitizer rather than landing in a vector's spare room.
Walk Read(const std::vector<uint8_t>& bytes) {
    std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size() ? bytes.size() : 1]);
    std::copy(bytes.begin(), bytes.end(), exact.get());
    Walk walk = {false, {-7, -7}, nullptr};
    walk.good = ReadMapChunks(exact.get(), bytes.size(), walk.size, walk.error);
    return walk;
}

}  // namespace

TEST(MapChunks, SizeComesFromTheLastSizeChunkBeforeTheEndMark) {
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
        int32_t x, y;
    };
    // The unknown chunk's data holds what looks like an end mark and a size chunk; only its
    // length field says where the next chunk starts.
    Block decoy;
    decoy.End().U32(MapChunkSize).U32(8).U32(1).U32(1).Raw({9, 9, 9});
    const Case cases[] = {
        {"plain", Block().Size(64, 32).End().bytes, 64, 32},
        {"made", MakeMapChunks(200, 3), 200, 3},
        // Anything behind the end mark is never looked at.
        {"behind the end",
         Block().Size(8, 4).End().Size(100, 100).U32(0x12345678).U32(0xFFFFFFFF).Raw({1}).bytes, 8,
         4},
        {"decoy", Block().Size(10, 20).Chunk(0xA0000001, decoy.bytes).Chunk(7, {}).End().bytes, 10,
         20},
        {"later size", Block().Size(10, 20).Chunk(0x55, {1, 2, 3}).Size(30, 40).End().bytes, 30,
         40},
        // A size chunk longer than its two values is skipped by its whole length.
        {"long size", Block().U32(MapChunkSize).U32(12).U32(5).U32(6).U32(MapChunkEnd).End().bytes,
         5, 6},
        // Above the pass's 256 is the pass's business.
        {"large", Block().Size(1, 1000).End().bytes, 1, 1000},
    };
    for (const Case& c : cases) {
        Walk walk = Read(c.bytes);
        ASSERT_TRUE(walk.good) << c.what;
        EXPECT_EQ(walk.size.cellsX, c.x) << c.what;
        EXPECT_EQ(walk.size.cellsY, c.y) << c.what;
    }
    EXPECT_EQ(MakeMapChunks(200, 3), Block().Size(200, 3).End().bytes);
}

TEST(MapChunks, BlocksThatAreNoMapAreRefusedWithoutReadingPastTheirEnd) {
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
    };
    std::vector<Case> cases = {
        {"empty", {}},
        {"three bytes", {0x02, 0x00, 0x00}},
        {"end mark first", Block().End().Size(8, 8).End().bytes},
        {"other chunk first", Block().Chunk(0x10, {}).Size(8, 8).End().bytes},
        {"size id alone", Block().U32(MapChunkSize).bytes},
        {"size header alone", Block().U32(MapChunkSize).U32(8).bytes},
        {"size values cut", Block().U32(MapChunkSize).U32(8).U32(8).Raw({8, 0}).bytes},
        {"size chunk of 4", Block().U32(MapChunkSize).U32(4).U32(8).End().bytes},
        {"size chunk of 0", Block().U32(MapChunkSize).U32(0).End().bytes},
        {"no cells across", Block().Size(0, 8).End().bytes},
        {"no cells down", Block().Size(8, 0).End().bytes},
        {"negative", Block().Size(-1, 1000).End().bytes},
        {"most negative", Block().Size(8, INT32_MIN).End().bytes},
        {"empty size before a good one", Block().Size(0, 0).Size(8, 8).End().bytes},
        {"no end mark", Block().Size(8, 8).bytes},
        {"no end mark after other", Block().Size(8, 8).Chunk(0x33, {1, 2}).bytes},
        {"stray bytes at the end", Block().Size(8, 8).Raw({0, 0, 0}).bytes},
        {"other header cut", Block().Size(8, 8).U32(0x33).Raw({1, 0}).bytes},
        {"other chunk past the end", Block().Size(8, 8).U32(0x33).U32(9).Raw({1, 2, 3}).bytes},
        // A length that would wrap a cursor sum around to the start of the block.
        {"huge length", Block().Size(8, 8).U32(0x33).U32(0xFFFFFFF8).End().bytes},
        {"huge size length", Block().U32(MapChunkSize).U32(0xFFFFFFFF).U32(1).U32(1).End().bytes},
    };
    for (const Case& c : cases) {
        Walk walk = Read(c.bytes);
        EXPECT_FALSE(walk.good) << c.what;
        ASSERT_NE(walk.error, nullptr) << c.what;
        EXPECT_NE(walk.error[0], '\0') << c.what;
    }
    EXPECT_STREQ(Read(Block().End().bytes).error,
                 "the user data does not begin with the map size chunk 0xA0000002");
    EXPECT_STREQ(Read(Block().Size(8, 8).bytes).error,
                 "the user data ends without the end chunk 0xA0000000");
    EXPECT_STREQ(Read(Block().Size(8, -8).End().bytes).error,
                 "the map size chunk gives 0 or fewer cells along a side");
    // No writer makes such a map: a call that asks for one is the program's own fault.
    ReportCapture reports;
    MakeMapChunks(0, 8);
    MakeMapChunks(8, 0);
    EXPECT_EQ(reports.Take().size(), 2u);
    MakeMapChunks(1, 1);
    EXPECT_TRUE(reports.Take().empty());
}
