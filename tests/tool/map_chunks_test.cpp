#include "tool/maps/map_chunks.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/report_capture.h"

namespace {

// Chunks written byte by byte, little-endian, so a reader that takes the host's order or reads
// through a cast would not pass on every host.
struct Block {
    Block& U32(uint32_t value) {
        for (int k = 0; k < 4; ++k) bytes.push_back(uint8_t(value >> (8 * k)));
        return *this;
    }
    Block& Raw(std::vector<uint8_t> more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
        return *this;
    }
    Block& Chunk(uint32_t id, std::vector<uint8_t> data) {
        return U32(id).U32(uint32_t(data.size())).Raw(data);
    }
    Block& Size(int32_t x, int32_t y) {
        return U32(MapChunkSize).U32(8).U32(uint32_t(x)).U32(uint32_t(y));
    }
    Block& End() { return U32(MapChunkEnd).U32(0); }
    std::vector<uint8_t> bytes;
};

TEST(MapChunks, SizeComesFromTheLastSizeChunkBeforeTheEndMarkAndDamageIsRefused) {
    // The unknown chunk's data holds what looks like an end mark and a size chunk; only its
    // length field says where the next chunk starts.
    Block decoy;
    decoy.End().U32(MapChunkSize).U32(8).U32(1).U32(1).Raw({9, 9, 9});
    const char* noSize = "the user data does not begin with the map size chunk 0xA0000002";
    const char* noEnd = "the user data ends without the end chunk 0xA0000000";
    const char* noCells = "the map size chunk gives 0 or fewer cells along a side";
    struct Row {
        const char* what;
        std::vector<uint8_t> bytes;
        int32_t x, y;                 // 0: refused
        const char* error = nullptr;  // null: any message
    } rows[] = {
        {"plain", Block().Size(64, 32).End().bytes, 64, 32},
        {"made", MakeMapChunks(200, 3), 200, 3},
        {"behind the end", Block().Size(8, 4).End().Size(100, 100).U32(0xFFFFFFFF).Raw({1}).bytes,
         8, 4},
        {"decoy", Block().Size(10, 20).Chunk(0xA0000001, decoy.bytes).Chunk(7, {}).End().bytes, 10,
         20},
        {"later size", Block().Size(10, 20).Chunk(0x55, {1, 2, 3}).Size(30, 40).End().bytes, 30,
         40},
        // A size chunk longer than its two values is skipped by its whole length.
        {"long size", Block().U32(MapChunkSize).U32(12).U32(5).U32(6).U32(MapChunkEnd).End().bytes,
         5, 6},
        {"large", Block().Size(1, 1000).End().bytes, 1, 1000},  // above 256 is the pass's business
        {"empty", {}, 0, 0},
        {"three bytes", {0x02, 0x00, 0x00}, 0, 0},
        {"end mark first", Block().End().Size(8, 8).End().bytes, 0, 0, noSize},
        {"other chunk first", Block().Chunk(0x10, {}).Size(8, 8).End().bytes, 0, 0, noSize},
        {"size id alone", Block().U32(MapChunkSize).bytes, 0, 0},
        {"size header alone", Block().U32(MapChunkSize).U32(8).bytes, 0, 0},
        {"size values cut", Block().U32(MapChunkSize).U32(8).U32(8).Raw({8, 0}).bytes, 0, 0},
        {"size chunk of 4", Block().U32(MapChunkSize).U32(4).U32(8).End().bytes, 0, 0},
        {"size chunk of 0", Block().U32(MapChunkSize).U32(0).End().bytes, 0, 0},
        {"no cells across", Block().Size(0, 8).End().bytes, 0, 0, noCells},
        {"no cells down", Block().Size(8, -8).End().bytes, 0, 0, noCells},
        {"most negative", Block().Size(8, INT32_MIN).End().bytes, 0, 0, noCells},
        {"empty size before a good one", Block().Size(0, 0).Size(8, 8).End().bytes, 0, 0},
        {"no end mark", Block().Size(8, 8).bytes, 0, 0, noEnd},
        {"no end mark after other", Block().Size(8, 8).Chunk(0x33, {1, 2}).bytes, 0, 0, noEnd},
        {"stray bytes at the end", Block().Size(8, 8).Raw({0, 0, 0}).bytes, 0, 0},
        {"other header cut", Block().Size(8, 8).U32(0x33).Raw({1, 0}).bytes, 0, 0},
        {"other chunk past the end", Block().Size(8, 8).U32(0x33).U32(9).Raw({1, 2, 3}).bytes, 0,
         0},
        // A length that would wrap a cursor sum around to the start of the block.
        {"huge length", Block().Size(8, 8).U32(0x33).U32(0xFFFFFFF8).End().bytes, 0, 0},
        {"huge size length", Block().U32(MapChunkSize).U32(0xFFFFFFFF).U32(1).U32(1).End().bytes, 0,
         0},
    };
    for (const Row& r : rows) {
        // A heap block of exactly the data's size, so that the address sanitizer sees any read
        // past its end.
        std::unique_ptr<uint8_t[]> exact(new uint8_t[r.bytes.size() + !r.bytes.size()]);
        std::copy(r.bytes.begin(), r.bytes.end(), exact.get());
        MapSize size = {-7, -7};
        const char* error = nullptr;
        ASSERT_EQ(ReadMapChunks(exact.get(), r.bytes.size(), size, error), r.x != 0) << r.what;
        if (r.x) {
            EXPECT_EQ(size.cellsX, r.x) << r.what;
            EXPECT_EQ(size.cellsY, r.y) << r.what;
        } else {
            ASSERT_NE(error, nullptr) << r.what;
            EXPECT_NE(*error, '\0') << r.what;
            EXPECT_STREQ(r.error ? r.error : error, error) << r.what;
        }
    }
    EXPECT_EQ(MakeMapChunks(200, 3), Block().Size(200, 3).End().bytes);
    // No writer makes a map without cells: a call that asks for one is the program's own fault.
    ReportCapture reports;
    MakeMapChunks(0, 8);
    MakeMapChunks(8, 0);
    EXPECT_EQ(reports.Take().size(), 2u);
}

}  // namespace
