// Height maps: the grid's samples become heights exactly, its top row lies along z = 0 and its
// columns along x, and damaged grids are refused by name.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "tests/import/import_support.h"

namespace {

// Heights of a loaded map by (column, row) at one unit a sample; every vertex must sit on it.
std::map<std::pair<int, int>, float> HeightsOf(const LoadedMap& map) {
    std::map<std::pair<int, int>, float> heights;
    for (const CMesh* mesh : map.Meshes())
        for (int32_t i = 0; i < mesh->vertexCount; ++i) {
            const Vector& p = mesh->vertices[i].position;
            EXPECT_EQ(p.x, std::floor(p.x));
            EXPECT_EQ(p.z, std::floor(p.z));
            heights[{int(p.x), int(-p.z)}] = p.y;
        }
    return heights;
}

std::string RawBytes(const std::vector<float>& values) {
    std::string bytes(values.size() * 4, '\0');
    for (size_t i = 0; i < values.size(); ++i) {
        uint32_t bits;
        std::memcpy(&bits, &values[i], 4);
        for (int k = 0; k < 4; ++k) bytes[i * 4 + k] = char(bits >> (8 * k));
    }
    return bytes;
}

TEST(HeightMap, PngSamplesBecomeHeightsWithTheTopRowAtTheFarEdge) {
    TempDir dir;
    const uint32_t width = 5, height = 4;
    std::vector<uint16_t> samples(width * height);
    for (uint32_t i = 0; i < samples.size(); ++i) samples[i] = uint16_t(1000 * (i % 7) + i);
    ASSERT_TRUE(WriteGreyPng("deep.png", width, height, 16, samples));
    std::vector<uint16_t> bytes(samples);
    for (uint16_t& b : bytes) b %= 256;
    ASSERT_TRUE(WriteGreyPng("byte.png", width, height, 8, bytes));

    for (const auto& [file, expected] : {std::make_pair(std::string("deep.png"), samples),
                                         std::make_pair(std::string("byte.png"), bytes)}) {
        ImportRequest request = Request({file}, file + ".map");
        request.heightMap.heightScale = 0.5;
        ImportResult result = Import(request);
        ASSERT_TRUE(result.written) << result.messages;
        EXPECT_EQ(result.errors, 0) << result.messages;
        LoadedMap map(file + ".map");
        ASSERT_TRUE(map.loaded);
        EXPECT_EQ(map.Triangles(), size_t(width - 1) * (height - 1) * 2);
        EXPECT_EQ(map.size.cellsX, 1);
        std::map<std::pair<int, int>, float> heights = HeightsOf(map);
        ASSERT_EQ(heights.size(), size_t(width) * height) << file;
        for (uint32_t row = 0; row < height; ++row)
            for (uint32_t column = 0; column < width; ++column)
                EXPECT_EQ((heights[{int(column), int(row)}]),
                          float(expected[row * width + column] * 0.5))
                    << file << " " << column << ", " << row;
        // Every face of a height map is seen from above, and the normals lean with the slope.
        for (const CMesh* mesh : map.Meshes())
            for (int32_t i = 0; i < mesh->vertexCount; ++i)
                EXPECT_GT(mesh->vertices[i].normal.y, 0.0f);
    }
}

TEST(HeightMap, RawGridsReadInEachSampleFormat) {
    TempDir dir;
    // 3 x 2 samples: int16 -2, 5, 300 / 7, 0, -1.
    const int16_t signedValues[6] = {-2, 5, 300, 7, 0, -1};
    std::string i16;
    for (int16_t v : signedValues)
        i16 += std::string{char(uint16_t(v) & 0xFF), char(uint16_t(v) >> 8)};
    WriteWholeFile("grid.r16", i16);
    WriteWholeFile("grid.f32", RawBytes({0.25f, -1.5f, 2.0f, 3.0f, 4.0f, 1e3f}));

    struct Case {
        std::string file;
        RawSampleFormat format;
        std::vector<float> heights;
    };
    for (const Case& c : std::vector<Case>{
             {"grid.r16", RawSampleFormat::Int16, {-2, 5, 300, 7, 0, -1}},
             {"grid.r16", RawSampleFormat::Auto, {65534, 5, 300, 7, 0, 65535}},  // uint16
             {"grid.f32", RawSampleFormat::Auto, {0.25f, -1.5f, 2, 3, 4, 1e3f}}}) {
        ImportRequest request = Request({c.file}, "out");
        request.heightMap.rawWidth = 3;
        request.heightMap.rawHeight = 2;
        request.heightMap.rawFormat = c.format;
        request.heightMap.heightScale = 0.125;  // 65535 stays under the ground rays' start
        ImportResult result = Import(request);
        ASSERT_TRUE(result.written) << result.messages;
        LoadedMap map("out");
        std::map<std::pair<int, int>, float> heights = HeightsOf(map);
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ((heights[{i % 3, i / 3}]), float(c.heights[size_t(i)] * 0.125))
                << c.file << " " << i;
    }
}

TEST(HeightMap, DamagedOrUnsuitableGridsAreRefusedByName) {
    TempDir dir;
    WriteWholeFile("nan.f32", RawBytes({1, 2, 3, std::nanf(""), 5, 6}));
    ASSERT_TRUE(WriteColourPng("colour.png", 2, 2, std::vector<uint8_t>(12, 90)));
    ASSERT_TRUE(WriteGreyPng("line.png", 7, 1, 8, std::vector<uint16_t>(7, 1)));
    struct Case {
        std::string file, expected;
    };
    for (const Case& c : std::vector<Case>{
             {"nan.f32", "nan.f32: the sample at column 0, row 1 is nan"},
             {"colour.png", "colour.png: cannot be read as a height map: not a greyscale image"},
             {"line.png", "line.png: a height map needs at least 2 x 2 samples"}}) {
        ImportRequest request = Request({c.file}, "out");
        request.heightMap.rawWidth = 3;
        request.heightMap.rawHeight = 2;
        ImportResult result = Import(request);
        EXPECT_FALSE(result.written) << c.file;
        EXPECT_NE(result.messages.find(c.expected), std::string::npos) << result.messages;
    }
}

}  // namespace
