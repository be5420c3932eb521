// Height maps: greyscale PNG and PGM files (8 or 16 bits) and raw grids of little-endian 16-bit integers
// or 32-bit floats, each a grid of heights turned into a terrain mesh in the map's axes: column
// along +x, row along -z (row 0, the top of the image, at the map's far edge z = 0), height on +y,
// one unit between samples before the placement scales it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tool/import/import_scene.h"

// Larger grids are refused: a 4097 x 4097 grid is already 33 million triangles.
constexpr uint32_t HeightMaxSide = 4097;

enum class RawSampleFormat { Auto, Int16, UInt16, Float32 };

struct HeightMapOptions {
    double heightScale = 1.0;              // source units of height for one unit of sample value
    // True scale: metres between samples along a row and down a column (0: not given), and
    // metres in one unit of sample value; these replace heightScale.
    double pixelWidth = 0.0, pixelDepth = 0.0;
    double heightUnit = 1.0;
    double exaggerate = 1.0;               // multiplies every height
    uint32_t rawWidth = 0, rawHeight = 0;  // a raw grid's size; 0: not given
    RawSampleFormat rawFormat = RawSampleFormat::Auto;  // Auto: by bytes a sample (2: uint16)
};

struct HeightGrid {
    uint32_t width = 0, height = 0;
    std::vector<double> values;  // row by row from the top
    std::string what;            // "16-bit PNG", "int16 raw grid", ... for messages
};

// Sample spacing along a row is one unit; down a column and in height, in those units.
struct GridSpacing {
    double rowStep = 1.0;
    double heightStep = 1.0;  // for one unit of sample value
};
GridSpacing HeightGridSpacing(const HeightMapOptions& options);

// Inputs that are height maps, by their extension: png, pgm, raw, r16, r32, f32.
bool IsHeightMapPath(const std::string& path);
bool IsRawGridPath(const std::string& path);

// A PNG or PGM image, told apart by its first bytes.
bool ReadHeightImage(const std::string& path, const std::vector<uint8_t>& bytes, HeightGrid& grid,
                     ImportLog& log);
bool ReadRawGrid(const std::string& path, const std::vector<uint8_t>& bytes,
                 const HeightMapOptions& options, HeightGrid& grid, ImportLog& log);

// The grid as one terrain mesh in the map's axes, wound so that its top is the visible side.
void AddHeightGrid(const std::string& path, const HeightGrid& grid, const GridSpacing& spacing,
                   ImportScene& scene);
