// What the import makes of geometry: height maps, where a model lands, the chunk tree, and
// winding that the ground rays can see from above.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/import/import_support.h"

namespace {

std::vector<uint16_t> Hills(uint32_t width, uint32_t height) {
    std::vector<uint16_t> samples(size_t(width) * height);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = uint16_t(100 + 50 * std::sin(i % width * 0.1) * std::cos(i / width * 0.07));
    return samples;
}

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
    struct Case {
        std::string file;
        RawSampleFormat format;
        uint32_t width;
        std::vector<float> heights;
    };
    for (const Case& c : std::vector<Case>{
             {"deep.png", RawSampleFormat::Auto, 5, std::vector<float>(deep.begin(), deep.end())},
             {"byte.png", RawSampleFormat::Auto, 5, std::vector<float>(bytes.begin(), bytes.end())},
             {"grid.r16", RawSampleFormat::Int16, 3, {-2, 5, 300, 7, 0, -1}},
             {"grid.r16", RawSampleFormat::Auto, 3, {65534, 5, 300, 7, 0, 65535}},  // uint16
             {"grid.f32", RawSampleFormat::Auto, 3, {0.25f, -1.5f, 2, 3, 4, 1e3f}}}) {
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
        size_t height = c.heights.size() / c.width;
        EXPECT_EQ(map.Triangles(), (c.width - 1) * (height - 1) * 2);
        std::map<std::pair<float, float>, float> heights;
        for (const CMesh* mesh : map.Meshes())
            for (int32_t i = 0; i < mesh->vertexCount; ++i) {
                const MeshVertex& v = mesh->vertices[i];
                heights[{v.position.x, -v.position.z}] = v.position.y;
                EXPECT_GT(v.normal.y, 0.0f);  // every face is seen from above
            }
        ASSERT_EQ(heights.size(), c.heights.size());
        for (uint32_t i = 0; i < c.heights.size(); ++i)
            EXPECT_EQ((heights[{float(i % c.width), float(i / c.width)}]), c.heights[i] * 0.125f) << i;
    }
}

TEST(ChunkTree, FacesGoToTheChunkOfTheirCentroid) {
    TempDir dir;
    ASSERT_TRUE(WritePng("hills.png", 129, 97, PNG_FORMAT_LINEAR_Y, Hills(129, 97).data()));
    ImportRequest request = Request({"hills.png"});
    request.chunkSize = 40.0;
    request.heightMap.heightScale = 0.1;
    ImportResult result = Import(request);
    ASSERT_TRUE(result.written) << result.messages;
    LoadedMap map("map");
    // 128 x 96 units in 40-unit chunks: 4 columns, 3 rows.
    EXPECT_EQ(std::make_pair(map.size.cellsX, map.size.cellsY), std::make_pair(4, 3));
    EXPECT_EQ(map.Triangles(), 128u * 96u * 2u);
    std::set<std::string> names;
    for (const CMesh* mesh : map.Meshes()) {
        int column = -1, row = -1;
        ASSERT_EQ(std::sscanf(mesh->name, "chunk_%d_%d", &column, &row), 2) << mesh->name;
        names.insert(mesh->name);
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
            double cx = 0, cz = 0;
            for (uint32_t v : mesh->faces[0][f].vertex) {
                cx += mesh->vertices[v].position.x / 3.0;
                cz += mesh->vertices[v].position.z / 3.0;
            }
            EXPECT_EQ(int(std::floor(cx / 40.0)), column) << mesh->name;
            EXPECT_EQ(int(std::floor(-cz / 40.0)), row) << mesh->name;
        }
    }
    EXPECT_EQ(names.size(), 4u * 3u);
}

// 260 x 260 samples in a single chunk: 67600 vertices, past the renderer's 16-bit indices.
TEST(ChunkTree, AChunkTooLargeForSixteenBitIndicesIsCutIntoParts) {
    TempDir dir;
    std::vector<uint16_t> hills = Hills(260, 260);
    ASSERT_TRUE(WritePng("big.png", 260, 260, PNG_FORMAT_GRAY,
                         std::vector<uint8_t>(hills.begin(), hills.end()).data()));
    ImportRequest request = Request({"big.png"});
    request.chunkSize = 8192.0;
    ASSERT_TRUE(Import(request).written);
    LoadedMap map("map");
    EXPECT_GE(map.Meshes().size(), 2u);
    EXPECT_EQ(map.Triangles(), 259u * 259u * 2u);
    for (const CMesh* mesh : map.Meshes()) {
        EXPECT_LE(mesh->vertexCount, 65535) << mesh->name;
        EXPECT_EQ(std::string(mesh->name).rfind("chunk_0_0_", 0), 0u) << mesh->name;
    }
    // The parts hang below one node for the chunk.
    ASSERT_NE(map.root.firstChild, nullptr);
    EXPECT_EQ(map.root.firstChild->nextSibling, nullptr);
    EXPECT_STREQ(map.root.firstChild->name, "chunk_0_0");
}

// A right-handed z-up source (x east, y north, z up), as GIS and CAD files are: a block 10 east,
// 20 north and 30 high, with a small marker on its roof at its north-east corner.
TEST(Placement, ZUpSourcesStandUpWithNorthAtTheMapsFarEdge) {
    TempDir dir;
    std::string obj;
    auto vertex = [&](float x, float y, float z) {
        obj += "v " + std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(z) + "\n";
    };
    for (int i = 0; i < 8; ++i) vertex(i & 1 ? 10 : 0, i & 2 ? 20 : 0, i & 4 ? 30 : 0);
    obj += "f 1 3 4 2\nf 5 6 8 7\nf 1 2 6 5\nf 3 7 8 4\nf 1 5 7 3\nf 2 4 8 6\n";
    vertex(9, 19, 30);
    vertex(10, 19, 30);
    vertex(10, 20, 31);
    WriteWholeFile("block.obj", obj + "f 9 10 11\n");
    ImportRequest request = Request({"block.obj"});
    request.placement.up = UpAxis::Z;
    ImportResult result = Import(request);
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_THAT(result.messages, Not(HasSubstr("turned")));
    EXPECT_THAT(result.messages, HasSubstr("no normals in the source; smooth normals made"));
    LoadedMap map("map");
    EXPECT_EQ(map.Bounds(), (std::vector<float>{0, 0, -20, 10, 31, 0}));
    // The marker's top is at the map's far east edge (x high, z near 0); the roof faces the sky.
    EXPECT_NEAR(map.GroundAt(9.9f, -0.2f), 30.8f, 1e-3f);
    EXPECT_FLOAT_EQ(map.GroundAt(5.0f, -10.0f), 30.0f);
    // Read as y-up, the same file lies on its side: 20 high.
    ASSERT_TRUE(Import(Request({"block.obj"}, "lying")).written);
    EXPECT_EQ(LoadedMap("lying").Bounds()[4], 20.0f);
}

// --fit scales the larger side to the cells, the margin surrounds it, the ground plane covers the
// map under the model in chunk pieces at its lowest point.
TEST(Placement, FitMarginAndGround) {
    TempDir dir;
    ObjWriter obj;
    obj.Box({-3, 1, -2}, {2, 3, 0.5f});  // 5 wide, 2.5 deep, off the origin
    obj.Save("small.obj");
    ImportRequest request = Request({"small.obj"});
    request.placement.fitCells = 10;
    request.placement.marginCells = 2;
    request.placement.ground = true;
    request.chunkSize = 256.0;
    ImportResult result = Import(request);
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_DOUBLE_EQ(result.summary.placement.scale, 64.0);
    LoadedMap map("map");
    // 160 units deep: 5 cells, and 2 on either side.
    EXPECT_EQ(std::make_pair(map.size.cellsX, map.size.cellsY), std::make_pair(14, 9));
    // 448 x 288 units of ground in 256-unit pieces: 2 x 2 pieces of two triangles, and the box.
    EXPECT_EQ(map.Triangles(), 8u + 12u);
    EXPECT_EQ(map.Bounds(), (std::vector<float>{0, 64, -288, 448, 192, 0}));
    for (float x : {1.0f, 60.0f, 447.0f}) EXPECT_FLOAT_EQ(map.GroundAt(x, -250.0f), 64.0f) << x;
    EXPECT_FLOAT_EQ(map.GroundAt(100.0f, -100.0f), 192.0f);
    // --scale gives the same model at 64 units a source unit.
    ImportRequest scaled = Request({"small.obj"}, "scaled");
    scaled.placement.scale = 64.0;
    ASSERT_TRUE(Import(scaled).written);
    EXPECT_EQ(LoadedMap("scaled").Bounds(), (std::vector<float>{0, 64, -160, 320, 192, 0}));
}

TEST(Placement, MapsThatDontFitAreRefusedAndHighModelsAreLowered) {
    TempDir dir;
    ObjWriter obj, high;
    obj.Box({0, 0, -10}, {10, 1, 0});
    obj.Save("slab.obj");
    ImportRequest big = Request({"slab.obj"});
    big.placement.scale = 820.0;  // 8200 units: 257 cells
    ImportResult refused = Import(big);
    EXPECT_FALSE(refused.written);
    EXPECT_THAT(refused.messages, HasSubstr("a map has at most 256 x 256 cells"));
    big.placement.scale = 819.2;  // exactly 256 cells
    EXPECT_TRUE(Import(big).written);
    high.Box({0, 20000, -10}, {10, 20010, 0});
    high.Save("high.obj");
    ImportResult lowered = Import(Request({"high.obj"}, "high"));
    ASSERT_TRUE(lowered.written) << lowered.messages;
    EXPECT_THAT(lowered.messages, HasSubstr("heights moved to start at y = 0"));
    EXPECT_EQ(lowered.summary.placement.min.y, 0.0);
    EXPECT_EQ(lowered.summary.placement.max.y, 10.0);
}

// Faces wound the wrong way are holes from above: the ground rays pass through them. The import
// turns what the source lets it tell is wrong, and leaves what the author meant.
TEST(Winding, FacesAreTurnedWhereTheSourceShowsThemWrong) {
    const Vector up[3] = {{0, 1, 0}, {0, 1, 0}, {0, 1, 0}};
    struct Case {
        std::string name;
        std::function<void(ObjWriter&)> build;
        std::vector<std::string> messages;  // none: nothing turned
        std::vector<std::pair<float, float>> probes;
        float height;
    };
    const std::vector<Case> cases = {
        {"inside-out", [](ObjWriter& o) { o.Box({0, 0, -40}, {40, 20, 0}, true); },
         {"warning: inside-out.obj: ", "12 faces of closed parts that were inside out were turned"},
         {{20, -20}}, 20},
        {"right", [](ObjWriter& o) { o.Box({0, 0, -40}, {40, 20, 0}); }, {}, {{20, -20}}, 20},
        // Wound downward, but the normals say up: the normals win.
        {"against-normals",
         [&](ObjWriter& o) {
             o.Face({0, 0, 0}, {0, 0, -64}, {64, 0, -64}, up);
             o.Face({0, 0, 0}, {64, 0, -64}, {64, 0, 0}, up);
         },
         {"2 faces were wound against their normals and were turned"}, {{10, -30}}, 0},
        // Open, facing down, no normals; one face of the second part against its neighbour.
        {"down",
         [](ObjWriter& o) {
             o.Face({0, 5, 0}, {0, 5, -64}, {64, 5, -64});
             o.Face({0, 5, 0}, {64, 5, -64}, {64, 5, 0});
             o.Face({100, 5, 0}, {164, 5, -64}, {164, 5, 0});
             o.Face({100, 5, 0}, {164, 5, -64}, {100, 5, -64});
             o.Face({100, 5, -64}, {164, 5, -64}, {164, 5, -128});
         },
         {"1 faces were wound against their neighbours",
          "2 faces of open parts that faced down were turned"},
         {{10, -30}, {150, -40}, {110, -50}, {150, -100}}, 5},
        // A room modelled from inside, its normals pointing in too: from above, the ray passes the
        // ceiling's back and finds the floor.
        {"room", [](ObjWriter& o) { o.Box({0, 0, -40}, {40, 20, 0}, true, true); },
         {"1 closed parts face inward, as their normals say; left as they are"}, {{20, -20}}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempDir dir;
        ObjWriter obj;
        c.build(obj);
        obj.Save(c.name + ".obj");
        ImportResult result = Import(Request({c.name + ".obj"}));
        ASSERT_TRUE(result.written) << result.messages;
        if (c.messages.empty()) {
            EXPECT_THAT(result.messages, Not(HasSubstr("turned")));
        }
        for (const std::string& m : c.messages) EXPECT_THAT(result.messages, HasSubstr(m));
        LoadedMap map("map");
        for (auto [x, z] : c.probes) EXPECT_FLOAT_EQ(map.GroundAt(x, z), c.height) << x << ", " << z;
    }
}

}  // namespace
