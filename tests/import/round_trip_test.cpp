// Maps and colour maps that come back whole: images beside or inside a model, a generated map
// exported as a modelling tool would, and a real file imported and baked as a user would.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "engine/texture/pixel_format.h"
#include "tests/apps/cli_run.h"
#include "tests/import/import_support.h"
#include "tool/maps/map_generator.h"

namespace fs = std::filesystem;

namespace {

std::vector<int> Texel(const CTexture* texture, int x, int y) {
    uint8_t r, g, b, a;
    GetTexturePixel(x, y, texture->width, texture->pixels, texture->format, r, g, b, a);
    return {r, g, b};
}

// One triangle a material. Each image becomes one TGA file in the map folder, names told apart
// without regard to case; one that can't be read leaves its face untextured, an error.
TEST(Texture, PngColourMapsBecomeTgaFilesNamedInTheMap) {
    TempDir dir;
    fs::create_directories("a");
    fs::create_directories("b");
    const uint8_t rgb[18] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30, 40, 50, 60, 70, 80, 90};
    ASSERT_TRUE(WritePng("a/wall.png", 3, 2, PNG_FORMAT_RGB, rgb));
    ASSERT_TRUE(WritePng("b/Wall.png", 1, 1, PNG_FORMAT_RGB, "\1\2\3"));
    std::string png = ReadWholeFile("b/Wall.png"), mtl;
    WriteWholeFile("cut.png", png.substr(0, png.size() - 20));
    WriteWholeFile("photo.jpg", std::string("\xFF\xD8\xFF\xE0", 4) + std::string(100, 'j'));
    ObjWriter obj;
    obj.text = "mtllib scene.mtl\n";
    const float uv[6] = {0, 1, 0, 0, 1, 0};
    float x = 0;
    // a\wall.png is the same file, written as Windows does.
    for (const char* image : {"a/wall.png", "a\\wall.png", "b/Wall.png", "photo.jpg", "cut.png"}) {
        mtl += "newmtl m" + std::to_string(int(x)) + "\nmap_Kd " + image + "\n";
        obj.text += "usemtl m" + std::to_string(int(x)) + "\n";
        obj.Face({x, 0, 0}, {x + 10, 0, -10}, {x, 0, -10}, nullptr, uv);
        x += 20;
    }
    WriteWholeFile("scene.mtl", mtl);
    obj.Save("scene.obj");
    ImportResult result = Import(Request("scene.obj", "map"));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 2) << result.messages;
    EXPECT_THAT(result.messages, HasSubstr("photo.jpg: JPEG images are not read; convert it to PNG or TGA"));
    EXPECT_THAT(result.messages, HasSubstr("cut.png: "));
    std::set<std::string> files;
    for (const auto& entry : fs::directory_iterator("map")) files.insert(entry.path().filename());
    EXPECT_EQ(files, (std::set<std::string>{"test.vbf", "wall.tga", "Wall_2.tga"}));
    LoadedMap map("map");
    std::multiset<std::string> named;
    const CTexture* wall = nullptr;
    for (const CTexture* texture : map.faceTextures) {
        named.insert(texture ? texture->name : "");
        if (texture && texture->name == std::string("wall.tga")) wall = texture;
    }
    EXPECT_EQ(named, (std::multiset<std::string>{"", "", "wall.tga", "wall.tga", "Wall_2.tga"}));
    ASSERT_NE(wall, nullptr);
    ASSERT_EQ(std::make_pair(wall->width, wall->height), std::make_pair(3, 2));
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(Texel(wall, i % 3, i / 3), std::vector<int>(rgb + i * 3, rgb + i * 3 + 3)) << i;
}

// A glTF file with its PNG colour map inside: written beside the map, named after the model.
TEST(Texture, AnEmbeddedPngColourMapIsWrittenBesideTheMap) {
    TempDir dir;
    const uint8_t rgb[12] = {200, 0, 0, 0, 200, 0, 0, 0, 200, 7, 7, 7};
    ASSERT_TRUE(WritePng("checker.png", 2, 2, PNG_FORMAT_RGB, rgb));
    std::string image = ReadWholeFile("checker.png");
    fs::remove("checker.png");
    WriteTriangleGltf("tile", "", image);
    ImportResult result = Import(Request("tile.gltf", "map"));
    ASSERT_TRUE(result.written && result.errors == 0) << result.messages;
    LoadedMap map("map");
    ASSERT_EQ(map.faceTextures.size(), 1u);
    const CTexture* texture = map.faceTextures[0];
    ASSERT_NE(texture, nullptr);
    EXPECT_STREQ(texture->name, "tile_texture0.tga");
    EXPECT_TRUE(fs::exists(std::string("map/") + texture->name));
    ASSERT_EQ(texture->width, 2);
    EXPECT_EQ(Texel(texture, 1, 1), (std::vector<int>{7, 7, 7}));
    EXPECT_EQ(Texel(texture, 0, 0), (std::vector<int>{200, 0, 0}));
}

// A face as compared: each corner's position, normal and u, v, in winding order from the lowest
// corner; and its colour map's name.
using Triangle = std::pair<std::array<std::array<float, 8>, 3>, std::string>;

// Every face with an area, sorted; shifted by dx, dz.
std::vector<Triangle> Triangles(const std::vector<const CMesh*>& meshes, float dx = 0, float dz = 0) {
    std::vector<Triangle> all;
    for (const CMesh* mesh : meshes)
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
            const MeshFace& face = mesh->faces[0][f];
            Triangle t = {{}, face.texture ? face.texture->name : ""};
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
            std::rotate(t.first.begin(), std::min_element(t.first.begin(), t.first.end()), t.first.end());
            all.push_back(t);
        }
    std::sort(all.begin(), all.end());
    return all;
}

// Positions, normals, texture coordinates and colour maps of every face, through a right-handed OBJ.
TEST(RoundTrip, AGeneratedMapExportedAsObjImportsAsTheSameTriangles) {
    TempDir dir;
    MapTextures textures = CreateMapTextures();
    std::string mtl = "newmtl plain\n";
    for (CTexture* texture : {textures.grass, textures.rock, textures.wall, textures.roof, textures.wood}) {
        ASSERT_TRUE(texture->SaveAsTGA(dir.File(texture->name).c_str()));
        mtl += std::string("newmtl ") + texture->name + "\nmap_Kd " + texture->name + "\n";
    }
    WriteWholeFile("generated.mtl", mtl);
    CMesh* generated = GenerateMap({.cells = 8,
                                    .chunks = 2,
                                    .quadsPerCell = 2,
                                    .buildings = 4,
                                    .arches = 1,
                                    .bridges = 1,
                                    .roofsOnPosts = 1,
                                    .seed = 3},
                                   &textures);
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
    ImportResult result = Import(Request("generated.obj", "map"));
    ASSERT_TRUE(result.written && result.errors == 0) << result.messages;
    EXPECT_THAT(result.messages, Not(HasSubstr("turned")));
    LoadedMap map("map");
    EXPECT_EQ(map.size.cellsX, int32_t(std::ceil((box[1] - box[0]) / 32 - 1e-6)));
    EXPECT_EQ(map.size.cellsY, int32_t(std::ceil((box[3] - box[2]) / 32 - 1e-6)));
    std::vector<Triangle> imported = Triangles(map.meshes);
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
                      << a.first[0][2] << ") " << a.second << " came back as (" << b.first[0][0] << ", "
                      << b.first[0][1] << ", " << b.first[0][2] << ") " << b.second;
    }
}

// A building from the real data, 4 cells wide with 4 empty cells around it, on the ground: a sun in
// the east (+x) casts its shadow towards -x.
TEST(RealData, ABuildingOnTheGroundShadowsTheSideAwayFromTheLight) {
    std::string glb = RealData("kenney-city-kit-cc0/building-small-a.glb");
    if (glb.empty()) GTEST_SKIP() << "no real data";
    TempDir dir;
    ToolRun run = RunTool(TENEBRIX_IMPORT, Words(glb + " -o map --fit 4 --margin 4 --ground --no-textures"));
    ASSERT_EQ(run.status, 0) << run.output;
    {
        LoadedMap map("map");
        EXPECT_EQ(std::make_pair(map.size.cellsX, map.size.cellsY), std::make_pair(12, 12));
        EXPECT_GT(map.meshes.size(), 1u);
        for (const CMesh* mesh : map.meshes) EXPECT_EQ(std::string(mesh->name).rfind("chunk_", 0), 0u);
    }
    WriteWholeFile("east.ssf", "LIGHT 1.0 0.8 0.0\nAMBIENT 64\nOVERSAMPLE 1\n");
    run = RunTool(TENEBRIX_BAKE, Words("map --script east.ssf --texture-size 1024 -q"));
    ASSERT_EQ(run.status, 0) << run.output;
    std::string shadow = ReadWholeFile("map/texture.dat");
    ASSERT_EQ(shadow.size(), 1024u * 1024u);
    // The mean shadow byte (higher is darker) of rows across the building's middle, 4 texels a
    // cell: three cells west of it and three east.
    auto mean = [&](int c0, int c1) {
        double sum = 0.0;
        for (int r = 21; r < 27; ++r)
            for (int c = c0; c < c1; ++c) sum += uint8_t(shadow[size_t(r) * 1024 + c]);
        return sum / ((c1 - c0) * 6);
    };
    EXPECT_GT(mean(4, 16), mean(33, 44) + 40.0) << "west " << mean(4, 16) << ", east " << mean(33, 44);
}

}  // namespace
