// Maps that come back whole: a generated map exported as a modelling tool would, and real files
// from the shared data imported and baked as a user would.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "tests/apps/cli_run.h"
#include "tests/import/import_support.h"
#include "tool/maps/map_generator.h"

namespace {

// A face as compared: each corner's position, normal and u, v, in winding order from the lowest
// corner; and its colour map's name.
using Triangle = std::pair<std::array<std::array<float, 8>, 3>, std::string>;

// Every face with an area, sorted; shifted by dx, dz.
std::vector<Triangle> Triangles(const std::vector<const CMesh*>& meshes, float dx = 0, float dz = 0) {
    std::vector<Triangle> all;
    for (const CMesh* mesh : meshes)
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
            const MeshFace& face = mesh->faces[0][f];
            Triangle t;
            for (int k = 0; k < 3; ++k) {
                const MeshVertex& v = mesh->vertices[face.vertex[k]];
                t.first[k] = {v.position.x + dx, v.position.y, v.position.z + dz, v.normal.x,
                              v.normal.y,        v.normal.z,   face.uv[2 * k],    face.uv[2 * k + 1]};
            }
            const auto &a = t.first[0], &b = t.first[1], &c = t.first[2];
            double u[3], w[3];
            for (int k = 0; k < 3; ++k) u[k] = double(c[k]) - b[k], w[k] = double(a[k]) - b[k];
            if (u[1] * w[2] == u[2] * w[1] && u[2] * w[0] == u[0] * w[2] && u[0] * w[1] == u[1] * w[0])
                continue;  // no area: the importer drops it
            t.second = face.texture ? face.texture->name : "";
            std::rotate(t.first.begin(), std::min_element(t.first.begin(), t.first.end()), t.first.end());
            all.push_back(t);
        }
    std::sort(all.begin(), all.end());
    return all;
}

TEST(RoundTrip, AGeneratedMapExportedAsObjImportsAsTheSameTriangles) {
    TempDir dir;
    MapRecipe recipe = {.cells = 8, .chunks = 2, .quadsPerCell = 2, .buildings = 4, .arches = 1,
                        .bridges = 1, .roofsOnPosts = 1, .seed = 3};
    MapTextures textures = CreateMapTextures();
    std::string mtl;
    for (CTexture* texture : {textures.grass, textures.rock, textures.wall, textures.roof, textures.wood}) {
        ASSERT_TRUE(texture->SaveAsTGA(dir.File(texture->name).c_str()));
        mtl += std::string("newmtl ") + texture->name + "\nmap_Kd " + texture->name + "\n";
    }
    WriteWholeFile("generated.mtl", mtl + "newmtl plain\nKd 1 1 1\n");
    CMesh* generated = GenerateMap(recipe, &textures);
    std::vector<const CMesh*> meshes;
    MeshesBelow(generated, meshes);
    ObjWriter obj;
    obj.text = "mtllib generated.mtl\n";
    float box[4] = {HUGE_VALF, -HUGE_VALF, HUGE_VALF, -HUGE_VALF};  // x, then z: low, high
    for (const CMesh* mesh : meshes)
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
            const MeshFace& face = mesh->faces[0][f];
            Vector p[3], n[3];
            for (int k = 0; k < 3; ++k) {
                p[k] = mesh->vertices[face.vertex[k]].position;
                n[k] = mesh->vertices[face.vertex[k]].normal;
                box[0] = std::min(box[0], p[k].x), box[1] = std::max(box[1], p[k].x);
                box[2] = std::min(box[2], p[k].z), box[3] = std::max(box[3], p[k].z);
            }
            obj.text += std::string("usemtl ") + (face.texture ? face.texture->name : "plain") + "\n";
            obj.Face(p[0], p[1], p[2], n, face.uv);
        }
    obj.Save("generated.obj");
    // The importer moves the model's box to x = 0 and z = 0; so does the expectation.
    std::vector<Triangle> expected = Triangles(meshes, -box[0], -box[3]);
    delete generated;
    FreeAllTextures();
    ASSERT_GT(expected.size(), 500u);

    ImportResult result = Import(Request({"generated.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 0) << result.messages;
    EXPECT_THAT(result.messages, Not(HasSubstr("turned")));
    LoadedMap map("map");
    EXPECT_EQ(map.size.cellsX, int32_t(std::ceil((box[1] - box[0]) / 32 - 1e-6)));
    EXPECT_EQ(map.size.cellsY, int32_t(std::ceil((box[3] - box[2]) / 32 - 1e-6)));
    std::vector<Triangle> imported = Triangles(map.Meshes());
    ASSERT_EQ(imported.size(), expected.size());
    for (size_t i = 0, wrong = 0; i < expected.size() && wrong < 5; ++i) {
        const Triangle &a = expected[i], &b = imported[i];
        bool same = a.second == b.second;  // to within the rounding of a decimal round trip
        for (int k = 0; k < 3; ++k)
            for (int j = 0; j < 8; ++j)
                same = same && std::fabs(a.first[k][j] - b.first[k][j]) <= (j < 3 ? 1e-4f : 1e-5f);
        if (same) continue;
        ++wrong;
        ADD_FAILURE() << "triangle " << i << ": (" << a.first[0][0] << ", " << a.first[0][1] << ", "
                      << a.first[0][2] << ") " << a.second << " came back as (" << b.first[0][0]
                      << ", " << b.first[0][1] << ", " << b.first[0][2] << ") " << b.second;
    }
}

// The mean shadow byte (higher is darker) of texel columns [c0, c1) and rows [r0, r1).
double MeanShadow(const std::string& shadowMap, int size, int c0, int c1, int r0, int r1) {
    double sum = 0.0;
    for (int r = r0; r < r1; ++r)
        for (int c = c0; c < c1; ++c) sum += uint8_t(shadowMap.at(size_t(r) * size + c));
    return sum / ((c1 - c0) * (r1 - r0));
}

TEST(RealData, ABuildingOnTheGroundShadowsTheSideAwayFromTheLight) {
    std::string glb = RealData("kenney-city-kit-cc0/building-small-a.glb");
    if (glb.empty()) GTEST_SKIP() << "no real data";
    TempDir dir;
    // One unit square tile made 4 cells wide, 4 empty cells around it: x and z from 128 to 256.
    ToolRun import = RunTool(TENEBRIX_IMPORT, {glb, "-o", "map", "--fit", "4", "--margin", "4",
                                               "--ground", "--no-textures"});
    ASSERT_EQ(import.status, 0) << import.output;
    {
        LoadedMap map("map");
        EXPECT_EQ(std::make_pair(map.size.cellsX, map.size.cellsY), std::make_pair(12, 12));
        EXPECT_GT(map.Meshes().size(), 1u);
        for (const CMesh* mesh : map.Meshes()) EXPECT_EQ(std::string(mesh->name).rfind("chunk_", 0), 0u);
    }
    // A sun in the east (+x) casts shadows towards -x. 1024 texels: 4 a cell.
    WriteWholeFile("east.ssf", "LIGHT 1.0 0.8 0.0\nAMBIENT 64\nOVERSAMPLE 1\n");
    ToolRun bake = RunTool(TENEBRIX_BAKE, {"map", "--script", "east.ssf", "--texture-size", "1024", "-q"});
    ASSERT_EQ(bake.status, 0) << bake.output;
    std::string shadow = ReadWholeFile("map/texture.dat");
    ASSERT_EQ(shadow.size(), 1024u * 1024u);
    // Rows across the middle of the building; three cells west of it and three cells east of it.
    double west = MeanShadow(shadow, 1024, 4, 16, 21, 27), east = MeanShadow(shadow, 1024, 33, 44, 21, 27);
    EXPECT_GT(west, east + 40.0) << "west " << west << ", east " << east;
}

}  // namespace
