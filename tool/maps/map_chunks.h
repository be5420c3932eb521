// The chunks of a map's user data: a run of (id, length, data) records whose first is the map
// size and whose end is marked by an id of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

enum : uint32_t {
    MapChunkSize = 0xA0000002,  // i32 cells in x, i32 cells in y
    MapChunkEnd = 0xA0000000,
};

struct MapSize {
    int32_t cellsX, cellsY;
};

// Walks the chunks within the block's bounds. On success the size of the last size chunk before
// the end mark is in size. On failure the reason goes to error (a static text) and false comes
// back: a block that does not begin with a size chunk, a chunk that runs past the block, a size
// chunk of 0 or fewer cells along either side, no end mark.
bool ReadMapChunks(const uint8_t* data, size_t bytes, MapSize& size, const char*& error);

// The user data of a map file: its size chunk and the end mark. Both sides must be above 0.
std::vector<uint8_t> MakeMapChunks(int32_t cellsX, int32_t cellsY);
