#include "tool/maps/map_chunks.h"

#include "base/diagnostics.h"

static uint32_t ReadU32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

bool ReadMapChunks(const uint8_t* data, size_t bytes, MapSize& size, const char*& error) {
    size_t at = 0;
    bool first = true;
    for (;;) {
        if (bytes - at < 4) {
            error = "the user data ends without the end chunk 0xA0000000";
            return false;
        }
        uint32_t id = ReadU32(data + at);
        if (first && id != MapChunkSize) {
            error = "the user data does not begin with the map size chunk 0xA0000002";
            return false;
        }
        first = false;
        if (id == MapChunkEnd) return true;
        if (bytes - at < 8) {
            error = "a chunk header runs past the end of the user data";
            return false;
        }
        uint32_t length = ReadU32(data + at + 4);
        at += 8;
        if (length > bytes - at) {
            error = "a chunk runs past the end of the user data";
            return false;
        }
        if (id == MapChunkSize) {
            if (length < 8) {
                error = "the map size chunk is shorter than its two values";
                return false;
            }
            size.cellsX = int32_t(ReadU32(data + at));
            size.cellsY = int32_t(ReadU32(data + at + 4));
            // A map without cells would bake an empty shadow map and pass for a success.
            if (size.cellsX <= 0 || size.cellsY <= 0) {
                error = "the map size chunk gives 0 or fewer cells along a side";
                return false;
            }
        }
        at += length;
    }
}

static void PutU32(std::vector<uint8_t>& out, uint32_t value) {
    for (int k = 0; k < 4; ++k) out.push_back(uint8_t(value >> (8 * k)));
}

std::vector<uint8_t> MakeMapChunks(int32_t cellsX, int32_t cellsY) {
    ASSERT(cellsX > 0 && cellsY > 0);  // the reader refuses such a map; its writer is at fault
    std::vector<uint8_t> bytes;
    PutU32(bytes, MapChunkSize);
    PutU32(bytes, 8);
    PutU32(bytes, uint32_t(cellsX));
    PutU32(bytes, uint32_t(cellsY));
    PutU32(bytes, MapChunkEnd);
    PutU32(bytes, 0);
    return bytes;
}
