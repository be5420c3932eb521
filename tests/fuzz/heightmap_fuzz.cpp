// Fuzz target: any bytes as a height map image (PNG or PGM) or, when the first byte is odd, as a
// raw grid whose size and sample type come from the next three bytes, are read or refused with a
// message, without a crash; a grid read has as many heights as samples.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "tool/import/heightmap_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    ImportLog log;
    HeightGrid grid;
    bool read;
    if (size >= 4 && (data[0] & 1)) {
        HeightMapOptions options;
        options.rawWidth = data[1];
        options.rawHeight = data[2];
        options.rawFormat = RawSampleFormat(data[3] % 4);
        std::vector<uint8_t> bytes(data + 4, data + size);
        read = ReadRawGrid("fuzz.raw", bytes, options, grid, log);
    } else {
        std::vector<uint8_t> bytes(data, data + size);
        read = ReadHeightImage("fuzz.pgm", bytes, grid, log);
    }
    if (read != (log.Errors() == 0)) std::abort();
    if (read && grid.values.size() != uint64_t(grid.width) * grid.height) std::abort();
    return 0;
}
