// Real files from the shared data, imported and baked as a user would: the map's size chunk, its
// tree of chunk meshes, and shadows that fall where the light says.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/apps/cli_run.h"
#include "tests/import/import_support.h"

namespace {

void ExpectChunkTree(const LoadedMap& map) {
    std::vector<const CMesh*> meshes = map.Meshes();
    EXPECT_GT(meshes.size(), 1u);
    for (const CMesh* mesh : meshes) {
        EXPECT_LT(mesh->vertexCount, 65536) << mesh->name;
        ASSERT_NE(mesh->name, nullptr);
        EXPECT_EQ(std::string(mesh->name).rfind("chunk_", 0), 0u) << mesh->name;
    }
}

// The mean shadow byte (255 - level: higher is darker) of columns [c0, c1) and rows [r0, r1).
double MeanShadow(const std::string& shadowMap, int size, int c0, int c1, int r0, int r1) {
    double sum = 0.0;
    for (int r = r0; r < r1; ++r)
        for (int c = c0; c < c1; ++c) sum += uint8_t(shadowMap.at(size_t(r) * size + c));
    return sum / ((c1 - c0) * (r1 - r0));
}

TEST(RealData, KenneyBuildingOnGroundShadowsTheSideAwayFromTheLight) {
    std::string glb = RealData("kenney-city-kit-cc0/building-small-a.glb");
    if (glb.empty()) GTEST_SKIP() << "no real data";
    TempDir dir;
    // One unit square tile made 4 cells wide, 4 empty cells around it: x and z from 128 to 256.
    ToolRun import = RunTool(TENEBRIX_IMPORT, {glb, "-o", "map", "--fit", "4", "--margin", "4",
                                               "--ground", "--no-textures"});
    ASSERT_EQ(import.status, 0) << import.output;
    {
        LoadedMap map("map");
        ASSERT_TRUE(map.loaded);
        EXPECT_EQ(map.size.cellsX, 12);
        EXPECT_EQ(map.size.cellsY, 12);
        ExpectChunkTree(map);
    }
    // A sun in the east (+x): shadows fall towards -x.
    WriteWholeFile("east.ssf", "LIGHT 1.0 0.8 0.0\nAMBIENT 64\nOVERSAMPLE 1\n");
    const int size = 1024;  // 4 texels a cell
    ToolRun bake = RunTool(TENEBRIX_BAKE, {"map", "--script", "east.ssf", "--texture-size",
                                           std::to_string(size), "--quiet"});
    ASSERT_EQ(bake.status, 0) << bake.output;
    std::string shadow = ReadWholeFile("map/texture.dat");
    ASSERT_EQ(shadow.size(), size_t(size) * size);
    // Rows across the middle of the building (z -168 .. -216); three cells west of it and three
    // cells east of it.
    double west = MeanShadow(shadow, size, 4 * 1, 4 * 4, 4 * 5 + 1, 4 * 7 - 1);
    double east = MeanShadow(shadow, size, 4 * 8 + 1, 4 * 11, 4 * 5 + 1, 4 * 7 - 1);
    EXPECT_GT(west, east + 40.0) << "west " << west << ", east " << east;
}

// Spot has no normals and is closed: the import makes smooth ones and keeps its outside visible,
// so a ray down through the cow's back finds the back, not the inside of its belly.
TEST(RealData, SpotIsSeenFromAboveByTheGroundRays) {
    std::string obj = RealData("spot-keenan-crane/spot_triangulated.obj");
    if (obj.empty()) GTEST_SKIP() << "no real data";
    TempDir dir;
    ImportRequest request = Request({obj});
    request.placement.fitCells = 16;
    ImportResult result = Import(request);
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 0) << result.messages;
    EXPECT_EQ(result.summary.triangles, 5856u);
    EXPECT_THAT(result.messages, HasSubstr("no normals in the source; smooth normals made"));
    EXPECT_THAT(result.messages, Not(HasSubstr("turned")));

    LoadedMap map("map");
    ASSERT_TRUE(map.loaded);
    ExpectChunkTree(map);
    // Down through the middle of the cow's body.
    const Placement& p = result.summary.placement;
    Vector hit, normal;
    ASSERT_TRUE(
        map.Ground(float((p.min.x + p.max.x) / 2), float((p.min.z + p.max.z) / 2), hit, &normal));
    EXPECT_GT(hit.y, float(p.min.y + 0.6 * (p.max.y - p.min.y))) << hit.y;
    EXPECT_GT(normal.y, 0.5f);
}

}  // namespace
