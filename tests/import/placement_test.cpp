// Where a model lands in the map: its axes, its scale, its corner at the map's origin, the map's
// size from its extent, and the ground plane.
#include <gtest/gtest.h>

#include <string>

#include "tests/import/import_support.h"

namespace {

struct Box {
    Vector lo, hi;
};

// The box around every vertex of a map folder.
Box BoundsOf(const std::string& folder) {
    LoadedMap map(folder);
    EXPECT_TRUE(map.loaded) << folder;
    Box box = {{1e30f, 1e30f, 1e30f}, {-1e30f, -1e30f, -1e30f}};
    for (const CMesh* mesh : map.Meshes())
        for (int32_t i = 0; i < mesh->vertexCount; ++i) {
            const Vector& p = mesh->vertices[i].position;
            box.lo = {std::min(box.lo.x, p.x), std::min(box.lo.y, p.y), std::min(box.lo.z, p.z)};
            box.hi = {std::max(box.hi.x, p.x), std::max(box.hi.y, p.y), std::max(box.hi.z, p.z)};
        }
    return box;
}

TEST(Placement, ZUpSourcesStandUpWithNorthAtTheMapsFarEdge) {
    TempDir dir;
    // A right-handed z-up source (x east, y north, z up), as GIS and CAD files are: a block 10
    // east, 20 north and 30 high, wound counter-clockwise from outside, with a small marker on
    // its roof at its north-east corner.
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
    Box box = BoundsOf("map");
    EXPECT_FLOAT_EQ(box.hi.x - box.lo.x, 10.0f);
    EXPECT_FLOAT_EQ(box.hi.y - box.lo.y, 31.0f);  // up
    EXPECT_FLOAT_EQ(box.hi.z - box.lo.z, 20.0f);  // north-south
    // The marker's top, at the source's north-east corner, is at the map's far east edge: x high,
    // z near 0 (the top row of the shadow map). The roof faces the sky.
    LoadedMap map("map");
    EXPECT_NEAR(map.GroundAt(9.9f, -0.2f), 30.8f, 1e-3f);
    EXPECT_FLOAT_EQ(map.GroundAt(5.0f, -10.0f), 30.0f);

    // Read as y-up, the same file lies on its side: 20 high.
    ASSERT_TRUE(Import(Request({"block.obj"}, "lying")).written);
    Box lying = BoundsOf("lying");
    EXPECT_FLOAT_EQ(lying.hi.y - lying.lo.y, 20.0f);
}

TEST(Placement, FitScalesTheLargerSideToTheCellsAndTheMarginSurroundsIt) {
    TempDir dir;
    ObjWriter obj;
    obj.Box({-3, 1, -2}, {2, 3, 0.5f});  // 5 wide, 2.5 deep, off the origin
    obj.Save("small.obj");
    ImportRequest request = Request({"small.obj"});
    request.placement.fitCells = 10;
    request.placement.marginCells = 2;
    ImportResult result = Import(request);
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_DOUBLE_EQ(result.summary.placement.scale, 64.0);
    LoadedMap map("map");
    EXPECT_EQ(map.size.cellsX, 14);
    EXPECT_EQ(map.size.cellsY, 9);  // 160 units deep: 5 cells, and 2 on either side
    // Heights keep their meaning, scaled.
    Box box = BoundsOf("map");
    EXPECT_EQ((std::vector<float>{box.lo.x, box.hi.x, box.lo.z, box.hi.z, box.lo.y, box.hi.y}),
              (std::vector<float>{64, 384, -224, -64, 64, 192}));

    // --scale gives the same model at 64 units a source unit.
    ImportRequest scaled = Request({"small.obj"}, "scaled");
    scaled.placement.scale = 64.0;
    ASSERT_TRUE(Import(scaled).written);
    EXPECT_FLOAT_EQ(BoundsOf("scaled").hi.x, 320.0f);
}

TEST(Placement, MapsThatDontFitAreRefusedAndHighModelsAreLowered) {
    TempDir dir;
    ObjWriter obj;
    obj.Box({0, 0, -10}, {10, 1, 0});
    obj.Save("slab.obj");
    ImportRequest big = Request({"slab.obj"});
    big.placement.scale = 820.0;  // 8200 units: 257 cells
    ImportResult refused = Import(big);
    EXPECT_FALSE(refused.written);
    EXPECT_THAT(refused.messages, HasSubstr("a map has at most 256 x 256 cells"));
    big.placement.scale = 819.2;  // exactly 256 cells
    EXPECT_TRUE(Import(big).written);

    ObjWriter high;
    high.Box({0, 20000, -10}, {10, 20010, 0});
    high.Save("high.obj");
    ImportResult lowered = Import(Request({"high.obj"}, "high"));
    ASSERT_TRUE(lowered.written) << lowered.messages;
    EXPECT_THAT(lowered.messages, HasSubstr("heights moved to start at y = 0"));
    EXPECT_EQ(lowered.summary.placement.min.y, 0.0);
    EXPECT_EQ(lowered.summary.placement.max.y, 10.0);
}

TEST(Placement, TheGroundPlaneCoversTheMapUnderTheModelInChunkPieces) {
    TempDir dir;
    ObjWriter obj;
    obj.Box({0, 3, -40}, {40, 20, 0});
    obj.Save("box.obj");
    ImportRequest request = Request({"box.obj"});
    request.placement.marginCells = 3;  // 40 units: 2 cells, 8 with the margin
    request.placement.ground = true;
    request.chunkSize = 128.0;
    ASSERT_TRUE(Import(request).written);
    LoadedMap map("map");
    EXPECT_EQ(map.size.cellsX, 8);
    // 256 units of ground in 128-unit pieces: 2 x 2 pieces of two triangles, and the box.
    EXPECT_EQ(map.Triangles(), 8u + 12u);
    EXPECT_EQ(map.Meshes().size(), 4u);
    for (float x : {1.0f, 60.0f, 250.0f})
        EXPECT_FLOAT_EQ(map.GroundAt(x, -250.0f), 3.0f) << x;  // at the model's lowest point
}

}  // namespace
