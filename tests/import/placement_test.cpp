// Where a model lands in the map: its axes, its scale, its corner at the map's origin, the map's
// size from its extent, and the ground plane.
#include <gtest/gtest.h>

#include <string>

#include "tests/import/import_support.h"
#include "tool/raycast.h"

namespace {

struct Box {
    Vector lo, hi;
};

// The box around every vertex of a map folder.
Box BoundsOf(const LoadedMap& map) {
    Box box = {{1e30f, 1e30f, 1e30f}, {-1e30f, -1e30f, -1e30f}};
    for (const CMesh* mesh : map.Meshes())
        for (int32_t i = 0; i < mesh->vertexCount; ++i) {
            const Vector& p = mesh->vertices[i].position;
            box.lo = {std::min(box.lo.x, p.x), std::min(box.lo.y, p.y), std::min(box.lo.z, p.z)};
            box.hi = {std::max(box.hi.x, p.x), std::max(box.hi.y, p.y), std::max(box.hi.z, p.z)};
        }
    return box;
}

// A right-handed z-up source (x east, y north, z up), as GIS and CAD files are: a block 10 east,
// 20 north and 30 high, with a small marker on its roof at its north-east corner.
void WriteZUpBlock(const std::string& path) {
    std::string obj;
    auto vertex = [&](float x, float y, float z) {
        obj += "v " + std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(z) + "\n";
    };
    // Counter-clockwise seen from outside, as right-handed tools wind.
    for (int i = 0; i < 8; ++i) vertex(i & 1 ? 10 : 0, i & 2 ? 20 : 0, i & 4 ? 30 : 0);
    obj += "f 1 3 4 2\nf 5 6 8 7\nf 1 2 6 5\nf 3 7 8 4\nf 1 5 7 3\nf 2 4 8 6\n";
    vertex(9, 19, 30);
    vertex(10, 19, 30);
    vertex(10, 20, 31);
    obj += "f 9 10 11\n";
    WriteWholeFile(path, obj);
}

TEST(Placement, ZUpSourcesStandUpWithNorthAtTheMapsFarEdge) {
    TempDir dir;
    WriteZUpBlock("block.obj");
    ImportRequest request = Request({"block.obj"});
    request.placement.up = UpAxis::Z;
    ImportResult result = Import(request);
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.messages.find("turned"), std::string::npos) << result.messages;
    LoadedMap map("map");
    Box box = BoundsOf(map);
    EXPECT_FLOAT_EQ(box.hi.x - box.lo.x, 10.0f);
    EXPECT_FLOAT_EQ(box.hi.y - box.lo.y, 31.0f);  // up
    EXPECT_FLOAT_EQ(box.hi.z - box.lo.z, 20.0f);  // north-south
    // The marker's top, at the source's north-east corner, is at the map's far east edge: x high,
    // z near 0 (the top row of the shadow map).
    bool found = false;
    for (const CMesh* mesh : map.Meshes())
        for (int32_t i = 0; i < mesh->vertexCount; ++i)
            if (mesh->vertices[i].position.y == 31.0f) {
                found = true;
                EXPECT_FLOAT_EQ(mesh->vertices[i].position.x, 10.0f);
                EXPECT_FLOAT_EQ(mesh->vertices[i].position.z, 0.0f);
            }
    EXPECT_TRUE(found);
    // The roof faces the sky.
    RayTableBegin();
    RayTableAddTree(&map.root);
    EXPECT_FALSE(RayCastDown(5.0f, 10000.0f, -10.0f, 5.0f, -20000.0f, -10.0f));
    EXPECT_FLOAT_EQ(RayGround.Position.y, 30.0f);
    RayTableFree();

    // Read as y-up, the same file lies on its side: 20 high.
    ImportResult lying = Import(Request({"block.obj"}, "lying"));
    ASSERT_TRUE(lying.written);
    LoadedMap side("lying");
    Box other = BoundsOf(side);
    EXPECT_FLOAT_EQ(other.hi.y - other.lo.y, 20.0f);
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
    Box box = BoundsOf(map);
    EXPECT_FLOAT_EQ(box.lo.x, 64.0f);
    EXPECT_FLOAT_EQ(box.hi.x, 384.0f);
    EXPECT_FLOAT_EQ(box.hi.z, -64.0f);
    EXPECT_FLOAT_EQ(box.lo.z, -224.0f);
    EXPECT_FLOAT_EQ(box.lo.y, 64.0f);  // heights keep their meaning, scaled
    EXPECT_FLOAT_EQ(box.hi.y, 192.0f);

    // --scale gives the same model at 64 units a source unit.
    ImportRequest scaled = Request({"small.obj"}, "scaled");
    scaled.placement.scale = 64.0;
    ASSERT_TRUE(Import(scaled).written);
    LoadedMap same("scaled");
    EXPECT_FLOAT_EQ(BoundsOf(same).hi.x, 320.0f);
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
    EXPECT_NE(refused.messages.find("a map has at most 256 x 256 cells"), std::string::npos)
        << refused.messages;
    big.placement.scale = 819.2;  // exactly 256 cells
    EXPECT_TRUE(Import(big).written);

    ObjWriter high;
    high.Box({0, 20000, -10}, {10, 20010, 0});
    high.Save("high.obj");
    ImportResult lowered = Import(Request({"high.obj"}, "high"));
    ASSERT_TRUE(lowered.written) << lowered.messages;
    EXPECT_NE(lowered.messages.find("heights moved to start at y = 0"), std::string::npos);
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
    ImportResult result = Import(request);
    ASSERT_TRUE(result.written) << result.messages;
    LoadedMap map("map");
    EXPECT_EQ(map.size.cellsX, 8);
    // 256 units of ground in 128-unit pieces: 2 x 2 pieces of two triangles, and the box.
    EXPECT_EQ(map.Triangles(), 8u + 12u);
    EXPECT_EQ(map.Meshes().size(), 4u);
    RayTableBegin();
    RayTableAddTree(&map.root);
    for (float x : {1.0f, 60.0f, 250.0f}) {
        EXPECT_FALSE(RayCastDown(x, 10000.0f, -250.0f, x, -20000.0f, -250.0f)) << x;
        EXPECT_FLOAT_EQ(RayGround.Position.y, 3.0f) << x;  // at the model's lowest point
    }
    RayTableFree();
}

}  // namespace
