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

std::string RawBytes(const std::vector<float>& values) {
    std::string bytes(values.size() * 4, '\0');
    for (size_t i = 0; i < values.size(); ++i) {
        uint32_t bits;
        std::memcpy(&bits, &values[i], 4);
        for (int k = 0; k < 4; ++k) bytes[i * 4 + k] = char(bits >> (8 * k));
    }
    return bytes;
}

TEST(HeightMap, SamplesBecomeHeightsWithTheTopRowAtTheFarEdge) {
    TempDir dir;
    std::vector<float> deep(20), bytes(20);
    std::vector<uint16_t> deepSamples(20), byteSamples(20);
    for (uint32_t i = 0; i < 20; ++i) {
        deepSamples[i] = uint16_t(1000 * (i % 7) + i);
        byteSamples[i] = deepSamples[i] % 256;
        deep[i] = deepSamples[i];
        bytes[i] = byteSamples[i];
    }
    ASSERT_TRUE(WriteGreyPng("deep.png", 5, 4, 16, deepSamples));
    ASSERT_TRUE(WriteGreyPng("byte.png", 5, 4, 8, byteSamples));
    const int16_t signedValues[6] = {-2, 5, 300, 7, 0, -1};
    std::string i16;
    for (int16_t v : signedValues)
        i16 += std::string{char(uint16_t(v) & 0xFF), char(uint16_t(v) >> 8)};
    WriteWholeFile("grid.r16", i16);
    WriteWholeFile("grid.f32", RawBytes({0.25f, -1.5f, 2.0f, 3.0f, 4.0f, 1e3f}));

    struct Case {
        std::string file;
        RawSampleFormat format;
        uint32_t width, height;
        std::vector<float> heights;
    };
    for (const Case& c : std::vector<Case>{
             {"deep.png", RawSampleFormat::Auto, 5, 4, deep},
             {"byte.png", RawSampleFormat::Auto, 5, 4, bytes},
             {"grid.r16", RawSampleFormat::Int16, 3, 2, {-2, 5, 300, 7, 0, -1}},
             {"grid.r16", RawSampleFormat::Auto, 3, 2, {65534, 5, 300, 7, 0, 65535}},  // uint16
             {"grid.f32", RawSampleFormat::Auto, 3, 2, {0.25f, -1.5f, 2, 3, 4, 1e3f}}}) {
        SCOPED_TRACE(c.file);
        ImportRequest request = Request({c.file}, "out");
        request.heightMap.rawWidth = 3;
        request.heightMap.rawHeight = 2;
        request.heightMap.rawFormat = c.format;
        request.heightMap.heightScale = 0.125;  // 65535 stays under the ground rays' start
        ImportResult result = Import(request);
        ASSERT_TRUE(result.written) << result.messages;
        EXPECT_EQ(result.errors, 0) << result.messages;
        LoadedMap map("out");
        ASSERT_TRUE(map.loaded);
        EXPECT_EQ(map.Triangles(), size_t(c.width - 1) * (c.height - 1) * 2);
        // One unit a sample: every vertex sits on a sample's place.
        std::map<std::pair<int, int>, float> heights;
        for (const CMesh* mesh : map.Meshes())
            for (int32_t i = 0; i < mesh->vertexCount; ++i) {
                const MeshVertex& v = mesh->vertices[i];
                EXPECT_EQ(v.position.x, std::floor(v.position.x));
                EXPECT_EQ(v.position.z, std::floor(v.position.z));
                heights[{int(v.position.x), int(-v.position.z)}] = v.position.y;
                // Every face of a height map is seen from above, so every normal leans up.
                EXPECT_GT(v.normal.y, 0.0f);
            }
        ASSERT_EQ(heights.size(), c.heights.size());
        for (uint32_t i = 0; i < c.heights.size(); ++i)
            EXPECT_EQ((heights[{int(i % c.width), int(i / c.width)}]), float(c.heights[i] * 0.125))
                << i;
    }
}

TEST(HeightMap, DamagedOrUnsuitableGridsAreRefusedByName) {
    TempDir dir;
    WriteWholeFile("nan.f32", RawBytes({1, 2, 3, std::nanf(""), 5, 6}));
    ASSERT_TRUE(WriteColourPng("colour.png", 2, 2, std::vector<uint8_t>(12, 90)));
    ASSERT_TRUE(WriteGreyPng("line.png", 7, 1, 8, std::vector<uint16_t>(7, 1)));
    for (const auto& [file, expected] : std::vector<std::pair<std::string, std::string>>{
             {"nan.f32", "nan.f32: the sample at column 0, row 1 is nan"},
             {"colour.png", "colour.png: cannot be read as a height map: not a greyscale image"},
             {"line.png", "line.png: a height map needs at least 2 x 2 samples"}}) {
        ImportRequest request = Request({file}, "out");
        request.heightMap.rawWidth = 3;
        request.heightMap.rawHeight = 2;
        ImportResult result = Import(request);
        EXPECT_FALSE(result.written) << file;
        EXPECT_THAT(result.messages, HasSubstr(expected));
    }
}

}  // namespace
