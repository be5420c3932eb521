// What the import makes of geometry: height maps, the chunk tree, where a model lands, and
// winding that the ground rays can see from above.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "tests/import/import_support.h"
#include "tool/import/mesh_weld.h"

namespace {

// The samples become heights exactly, one unit a sample, the top row along z = 0.
TEST(HeightMap, SamplesBecomeHeightsWithTheTopRowAtTheFarEdge) {
    TempDir dir;
    std::vector<uint16_t> deep(20);
    std::vector<uint8_t> bytes(20);
    for (uint32_t i = 0; i < 20; ++i) bytes[i] = uint8_t(deep[i] = uint16_t(1000 * (i % 7) + i));
    ASSERT_TRUE(WritePng("deep.png", 5, 4, PNG_FORMAT_LINEAR_Y, deep.data()));
    ASSERT_TRUE(WritePng("byte.png", 5, 4, PNG_FORMAT_GRAY, bytes.data()));
    const int16_t i16[6] = {-2, 5, 300, 7, 0, -1};
    WriteWholeFile("grid.r16", std::string(reinterpret_cast<const char*>(i16), sizeof i16));
    const float f32[6] = {0.25f, -1.5f, 2.0f, 3.0f, 4.0f, 1e3f};
    WriteWholeFile("grid.f32", std::string(reinterpret_cast<const char*>(f32), sizeof f32));
    std::string pgm8 = "P5\n# from a GIS\n5 4\n255\n", pgm16 = "P5 5 4 65535\r", plain = "P2 5 4 255\n";
    for (uint32_t i = 0; i < 20; ++i) {
        pgm8 += char(bytes[i]);
        pgm16 += {char(deep[i] >> 8), char(deep[i] & 255)};
        plain += std::to_string(bytes[i]) + (i % 5 == 4 ? "\n" : " ");
    }
    WriteWholeFile("byte.pgm", pgm8);
    WriteWholeFile("deep.pgm", pgm16);
    WriteWholeFile("plain.pgm", plain);
    const std::vector<std::tuple<std::string, RawSampleFormat, uint32_t, std::vector<float>>> cases = {
        {"deep.png", RawSampleFormat::Auto, 5, std::vector<float>(deep.begin(), deep.end())},
        {"byte.png", RawSampleFormat::Auto, 5, std::vector<float>(bytes.begin(), bytes.end())},
        {"grid.r16", RawSampleFormat::Int16, 3, {-2, 5, 300, 7, 0, -1}},
        {"grid.r16", RawSampleFormat::Auto, 3, {65534, 5, 300, 7, 0, 65535}},  // uint16
        {"grid.f32", RawSampleFormat::Auto, 3, {0.25f, -1.5f, 2, 3, 4, 1e3f}},
        {"byte.pgm", RawSampleFormat::Auto, 5, std::vector<float>(bytes.begin(), bytes.end())},
        {"deep.pgm", RawSampleFormat::Auto, 5, std::vector<float>(deep.begin(), deep.end())},
        {"plain.pgm", RawSampleFormat::Auto, 5, std::vector<float>(bytes.begin(), bytes.end())}};
    for (const auto& [file, format, width, expected] : cases) {
        ImportResult result =
            Import({.inputs = {file},
                    .mapFolder = "out",
                    .placement = {},
                    .heightMap = {.heightScale = 0.125, .rawWidth = 3, .rawHeight = 2, .rawFormat = format}});
        ASSERT_TRUE(result.written && result.errors == 0) << result.messages;
        LoadedMap map("out");
        EXPECT_EQ(map.faceTextures.size(), (width - 1) * (expected.size() / width - 1) * 2) << file;
        std::map<std::pair<float, float>, float> heights;
        for (const CMesh* mesh : map.meshes)
            for (int32_t i = 0; i < mesh->vertexCount; ++i) {
                const MeshVertex& v = mesh->vertices[i];
                heights[{v.position.x, -v.position.z}] = v.position.y;
                EXPECT_GT(v.normal.y, 0.0f) << file;  // every face is seen from above
            }
        ASSERT_EQ(heights.size(), expected.size()) << file;
        for (uint32_t i = 0; i < expected.size(); ++i)
            EXPECT_EQ((heights[{float(i % width), float(i / width)}]), expected[i] * 0.125f) << file << i;
    }
}

// True scale: 10 m between samples along a row, 20 m down a column, heights in decimetres,
// doubled; fitted to one cell, the 40 m side is 32 units, so a metre is 0.8 units.
TEST(HeightMap, PixelSizeAndHeightUnitKeepTrueProportionsThroughTheFit) {
    TempDir dir;
    const uint16_t values[9] = {0, 100, 200, 300, 400, 500, 600, 700, 1000};
    ASSERT_TRUE(WritePng("dem.png", 3, 3, PNG_FORMAT_LINEAR_Y, values));
    ImportResult result = Import(
        {.inputs = {"dem.png"},
         .mapFolder = "out",
         .placement = {.fitCells = 1},
         .heightMap = {.pixelWidth = 10, .pixelDepth = 20, .heightUnit = 0.1, .exaggerate = 2}});
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_THAT(result.messages, HasSubstr("true scale: one world unit is 1.25 m, a cell 40 m; "
                                           "heights exaggerated 2 times"));
    LoadedMap map("out");
    std::map<std::pair<float, float>, float> heights;
    for (const CMesh* mesh : map.meshes)
        for (int32_t i = 0; i < mesh->vertexCount; ++i)
            heights[{mesh->vertices[i].position.x, mesh->vertices[i].position.z}] =
                mesh->vertices[i].position.y;
    ASSERT_EQ(heights.size(), 9u);
    for (int i = 0; i < 9; ++i)
        EXPECT_FLOAT_EQ((heights[{8.0f * (i % 3), -16.0f * (i / 3)}]), values[i] * 0.16f) << i;
}

// 259 x 259 units in 256-unit chunks: 2 x 2 chunks, the first of 257 x 257 vertices, past the
// renderer's 16-bit indices, so cut into parts below one node.
TEST(ChunkTree, FacesGoToTheChunkOfTheirCentroidInMeshesOfSixteenBitIndices) {
    TempDir dir;
    std::vector<uint8_t> hills(260 * 260);
    for (size_t i = 0; i < hills.size(); ++i)
        hills[i] = uint8_t(100 + 50 * std::sin(i % 260 * 0.1) * std::cos(i / 260 * 0.07));
    ASSERT_TRUE(WritePng("hills.png", 260, 260, PNG_FORMAT_GRAY, hills.data()));
    ImportResult result = Import(Request("hills.png", "map"));
    ASSERT_TRUE(result.written) << result.messages;
    LoadedMap map("map");
    EXPECT_EQ(std::make_pair(map.size.cellsX, map.size.cellsY), std::make_pair(9, 9));
    EXPECT_EQ(map.faceTextures.size(), 259u * 259u * 2u);
    std::map<std::string, int> parts;
    for (const CMesh* mesh : map.meshes) {
        int column = -1, row = -1;
        ASSERT_EQ(std::sscanf(mesh->name, "chunk_%d_%d", &column, &row), 2) << mesh->name;
        ++parts["chunk_" + std::to_string(column) + "_" + std::to_string(row)];
        EXPECT_LE(mesh->vertexCount, 65535) << mesh->name;
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
            double x = 0, z = 0;
            for (uint32_t v : mesh->faces[0][f].vertex) {
                x += mesh->vertices[v].position.x / 3.0;
                z -= mesh->vertices[v].position.z / 3.0;
            }
            ASSERT_EQ(std::make_pair(int(x / 256), int(z / 256)), std::make_pair(column, row)) << mesh->name;
        }
    }
    EXPECT_EQ(parts.size(), 4u);
    EXPECT_GE(parts["chunk_0_0"], 2);
    std::map<std::string, int> nodes;
    for (const CEntity* node = map.root.firstChild; node; node = node->nextSibling) ++nodes[node->name];
    EXPECT_EQ(nodes, (std::map<std::string, int>{
                         {"chunk_0_0", 1}, {"chunk_0_1", 1}, {"chunk_1_0", 1}, {"chunk_1_1", 1}}));
}

// A right-handed z-up source (x east, y north, z up), as GIS and CAD files are: a block 10 east,
// 20 north and 30 high, with a small marker on its roof at its north-east corner. Read as y-up,
// the same file lies on its side, 20 high.
TEST(Placement, ZUpSourcesStandUpWithNorthAtTheMapsFarEdge) {
    TempDir dir;
    std::string obj;
    for (int i = 0; i < 8; ++i)
        obj += std::string("v ") + (i & 1 ? "10 " : "0 ") + (i & 2 ? "20 " : "0 ") + (i & 4 ? "30\n" : "0\n");
    obj += "v 9 19 30\nv 10 19 30\nv 10 20 31\n";
    WriteWholeFile("block.obj",
                   obj + "f 1 3 4 2\nf 5 6 8 7\nf 1 2 6 5\nf 3 7 8 4\nf 1 5 7 3\nf 2 4 8 6\nf 9 10 11\n");
    ImportResult result = Import(
        {.inputs = {"block.obj"}, .mapFolder = "map", .placement = {.up = UpAxis::Z}, .heightMap = {}});
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_THAT(result.messages, Not(HasSubstr("turned")));
    EXPECT_THAT(result.messages, HasSubstr("no normals in the source; smooth normals made"));
    LoadedMap map("map");
    EXPECT_EQ(map.Bounds(), (std::vector<float>{0, 0, -20, 10, 31, 0}));
    // The marker's top is at the map's far east edge (x high, z near 0); the roof faces the sky.
    EXPECT_NEAR(map.GroundAt(9.9f, -0.2f), 30.8f, 1e-3f);
    EXPECT_FLOAT_EQ(map.GroundAt(5.0f, -10.0f), 30.0f);
    ASSERT_TRUE(Import(Request("block.obj", "lying")).written);
    EXPECT_EQ(LoadedMap("lying").Bounds()[4], 20.0f);
}

// --fit scales the larger side to the cells, the margin surrounds it, the ground plane covers the
// map under the model in chunk pieces at its lowest point; --scale 64 places the model the same.
TEST(Placement, FitMarginAndGround) {
    TempDir dir;
    ObjWriter obj;
    obj.Box({-3, 1, -2}, {2, 3, 0.5f});  // 5 wide, 2.5 deep, off the origin
    obj.Save("small.obj");
    ImportResult result = Import({.inputs = {"small.obj"},
                                  .mapFolder = "map",
                                  .placement = {.fitCells = 10, .marginCells = 2, .ground = true},
                                  .heightMap = {}});
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_DOUBLE_EQ(result.summary.placement.scale, 64.0);
    LoadedMap map("map");
    EXPECT_EQ(std::make_pair(map.size.cellsX, map.size.cellsY), std::make_pair(14, 9));
    // 448 x 288 units of ground in 256-unit pieces: 2 x 2 pieces of two triangles, and the box.
    EXPECT_EQ(map.faceTextures.size(), 8u + 12u);
    EXPECT_EQ(map.Bounds(), (std::vector<float>{0, 64, -288, 448, 192, 0}));
    for (float x : {1.0f, 60.0f, 447.0f}) EXPECT_FLOAT_EQ(map.GroundAt(x, -250.0f), 64.0f) << x;
    EXPECT_FLOAT_EQ(map.GroundAt(100.0f, -100.0f), 192.0f);
    ASSERT_TRUE(
        Import({.inputs = {"small.obj"}, .mapFolder = "scaled", .placement = {.scale = 64}, .heightMap = {}})
            .written);
    EXPECT_EQ(LoadedMap("scaled").Bounds(), (std::vector<float>{0, 64, -160, 320, 192, 0}));
}

TEST(Placement, MapsThatDontFitAreRefusedAndHighModelsAreLowered) {
    TempDir dir;
    ObjWriter obj, high;
    obj.Box({0, 0, -10}, {10, 1, 0});
    obj.Save("slab.obj");
    ImportRequest big = {
        .inputs = {"slab.obj"}, .mapFolder = "map", .placement = {.scale = 820}, .heightMap = {}};
    ImportResult refused = Import(big);  // 8200 units: 257 cells
    EXPECT_FALSE(refused.written);
    EXPECT_THAT(refused.messages, HasSubstr("a map has at most 256 x 256 cells"));
    big.placement.scale = 819.2;  // exactly 256 cells
    EXPECT_TRUE(Import(big).written);
    high.Box({0, 20000, -10}, {10, 20010, 0});
    high.Save("high.obj");
    ImportResult lowered = Import(Request("high.obj", "high"));
    ASSERT_TRUE(lowered.written) << lowered.messages;
    EXPECT_THAT(lowered.messages, HasSubstr("heights moved to start at y = 0"));
    EXPECT_EQ(std::make_pair(lowered.summary.placement.min.y, lowered.summary.placement.max.y),
              std::make_pair(0.0, 10.0));
}

// A sphere of rings x segments quads about (cx, cy, cz), every face seen from outside, with the
// rings nearest the top left out (an open part, facing up and down nearly alike); faces listed in
// bad are wound the other way.
void OpenSphere(ObjWriter& obj, Vector centre, float radius, int rings, int segments, int topGap,
                const std::vector<int>& bad = {}) {
    auto at = [&](int ring, int segment) {
        double polar = M_PI * ring / rings, around = 2 * M_PI * segment / segments;
        return Vector{float(centre.x + radius * std::sin(polar) * std::cos(around)),
                      float(centre.y - radius * std::cos(polar)),
                      float(centre.z + radius * std::sin(polar) * std::sin(around))};
    };
    int face = 0;
    for (int ring = 0; ring < rings - topGap; ++ring)
        for (int segment = 0; segment < segments; ++segment) {
            Vector q[4] = {at(ring, segment), at(ring + 1, segment), at(ring + 1, segment + 1),
                           at(ring, segment + 1)};
            for (int half = 0; half < 2; ++half) {
                Vector a = q[0], b = q[1 + half], c = q[2 + half];
                DVec3 n = VisibleNormal({a.x, a.y, a.z}, {b.x, b.y, b.z}, {c.x, c.y, c.z});
                DVec3 out = {a.x - centre.x + c.x - centre.x, a.y - centre.y + c.y - centre.y,
                             a.z - centre.z + c.z - centre.z};
                bool flip = (Dot(n, out) < 0) != std::count(bad.begin(), bad.end(), face++);
                if (flip) std::swap(b, c);
                if (Dot(n, n) > 0) obj.Face(a, b, c);
            }
        }
}

// Faces wound the wrong way are holes from above: the ground rays pass through them. The import
// turns what the source lets it tell is wrong, and leaves what the author meant.
TEST(Winding, FacesAreTurnedWhereTheSourceShowsThemWrong) {
    const Vector up[3] = {{0, 1, 0}, {0, 1, 0}, {0, 1, 0}};
    ObjWriter insideOut, right, normals, down, room, scan, scanFewBad;
    insideOut.Box({0, 0, -40}, {40, 20, 0}, true);
    right.Box({0, 0, -40}, {40, 20, 0});
    // Wound downward, but the normals say up: the normals win.
    normals.Face({0, 0, 0}, {0, 0, -64}, {64, 0, -64}, up);
    normals.Face({0, 0, 0}, {64, 0, -64}, {64, 0, 0}, up);
    // Open, facing down, no normals; one face of the second part against its neighbour.
    down.Face({0, 5, 0}, {0, 5, -64}, {64, 5, -64});
    down.Face({0, 5, 0}, {64, 5, -64}, {64, 5, 0});
    down.Face({100, 5, 0}, {164, 5, -64}, {164, 5, 0});
    down.Face({100, 5, 0}, {164, 5, -64}, {100, 5, -64});
    down.Face({100, 5, -64}, {164, 5, -64}, {164, 5, -128});
    // A room modelled from inside, its normals pointing in too: from above, the ray passes the
    // ceiling's back and finds the floor.
    room.Box({0, 0, -40}, {40, 20, 0}, true, true);
    // A scan with a hole in its top faces down a little more than up: its winding is right.
    OpenSphere(scan, {50, 50, -50}, 40, 48, 96, 2);
    OpenSphere(scanFewBad, {50, 50, -50}, 40, 48, 96, 2, {500, 2001, 4000});
    const float onSphere = 50 + 40 * std::sqrt(1 - 0.25f * 0.25f);  // 10 units off the axis, placed at x 40, z -40
    const std::vector<std::tuple<const ObjWriter*, std::vector<std::string>, std::vector<float>, float>>
        cases = {
            {&insideOut,
             {"warning: o.obj: ", "turned: 1 closed part (12 faces) enclosing a negative volume"},
             {20, -20},
             20},
            {&right, {}, {20, -20}, 20},
            {&normals, {"turned: 2 faces wound against the source's normals\n"}, {10, -30}, 0},
            {&down,
             {"turned: 1 face wound against the neighbouring faces; 1 open part (2 faces) facing "
              "down all over\n"},
             {10, -30, 150, -40, 110, -50, 150, -100},
             5},
            {&room, {"kept: 1 closed part facing inward, as the normals say"}, {20, -20}, 0},
            {&scan, {"1 open part faces down more than up, but not clearly"}, {50, -40}, onSphere},
            {&scanFewBad, {"turned: 3 faces wound against the neighbouring faces\n"}, {50, -40}, onSphere},
        };
    for (const auto& [obj, messages, probes, height] : cases) {
        TempDir dir;
        obj->Save("o.obj");
        ImportResult result = Import(Request("o.obj", "map"));
        ASSERT_TRUE(result.written) << result.messages;
        if (messages.empty()) {
            EXPECT_THAT(result.messages, Not(HasSubstr("turned")));
        }
        for (const std::string& m : messages) EXPECT_THAT(result.messages, HasSubstr(m));
        LoadedMap map("map");
        for (size_t i = 0; i < probes.size(); i += 2)
            EXPECT_NEAR(map.GroundAt(probes[i], probes[i + 1]), height, 0.5) << result.messages;
    }
}

}  // namespace
