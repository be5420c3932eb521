// Colour maps: found beside the model, converted to TGA files in the map folder and named in the
// map's texture block; one file for one image, and clear failures for what can't be read.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "engine/texture/pixel_format.h"
#include "tests/import/import_support.h"

namespace fs = std::filesystem;

namespace {

// A textured quad of the map, its material named.
std::string Quad(const std::string& material, float x) {
    return "usemtl " + material + "\n" + "v " + std::to_string(x) + " 0 0\nv " +
           std::to_string(x + 10) + " 0 0\nv " + std::to_string(x + 10) + " 0 -10\nv " +
           std::to_string(x) + " 0 -10\n";
}

TEST(Texture, PngColourMapsBecomeTgaFilesNamedInTheMap) {
    TempDir dir;
    fs::create_directories("a");
    fs::create_directories("b");
    // 3 x 2 pixels, every one different; and another image under the same name elsewhere.
    std::vector<uint8_t> rgb = {255, 0,  0,  0,  255, 0,  0,  0,  255,
                                10,  20, 30, 40, 50,  60, 70, 80, 90};
    ASSERT_TRUE(WriteColourPng("a/wall.png", 3, 2, rgb));
    ASSERT_TRUE(WriteColourPng("b/Wall.png", 1, 1, {1, 2, 3}));
    WriteWholeFile("scene.mtl",
                   "newmtl one\nmap_Kd a/wall.png\n"
                   "newmtl same\nmap_Kd a\\wall.png\n"  // the same file, written as Windows does
                   "newmtl other\nmap_Kd b/Wall.png\n");
    std::string obj = "mtllib scene.mtl\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\n";
    int base = 0;
    for (const char* material : {"one", "same", "other"}) {
        obj += Quad(material, float(base * 5));
        obj += "f " + std::to_string(base + 1) + "/1 " + std::to_string(base + 4) + "/4 " +
               std::to_string(base + 3) + "/3\n";
        base += 4;
    }
    WriteWholeFile("scene.obj", obj);
    ImportResult result = Import(Request({"scene.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 0) << result.messages;
    EXPECT_TRUE(fs::exists("map/wall.tga"));
    EXPECT_TRUE(fs::exists("map/Wall_2.tga"));  // names differ without regard to case
    EXPECT_EQ(std::distance(fs::directory_iterator("map"), fs::directory_iterator()), 3);

    LoadedMap map("map");
    ASSERT_TRUE(map.loaded);
    std::set<std::string> named;
    const CTexture* wall = nullptr;
    for (const CMesh* mesh : map.Meshes())
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f) {
            const CTexture* texture = mesh->faces[0][f].texture;
            ASSERT_NE(texture, nullptr);
            named.insert(texture->name);
            if (std::string(texture->name) == "wall.tga") wall = texture;
        }
    EXPECT_EQ(named, (std::set<std::string>{"wall.tga", "Wall_2.tga"}));
    ASSERT_NE(wall, nullptr);
    ASSERT_EQ(wall->width, 3);
    ASSERT_EQ(wall->height, 2);
    for (int i = 0; i < 6; ++i) {
        uint8_t r, g, b, a;
        GetTexturePixel(i % 3, i / 3, 3, wall->pixels, wall->format, r, g, b, a);
        EXPECT_EQ(r, rgb[size_t(i) * 3]) << i;
        EXPECT_EQ(g, rgb[size_t(i) * 3 + 1]) << i;
        EXPECT_EQ(b, rgb[size_t(i) * 3 + 2]) << i;
    }
}

TEST(Texture, ImagesThatCantBeReadAreNamedAndLeaveTheirFacesUntextured) {
    TempDir dir;
    WriteWholeFile("photo.jpg", std::string("\xFF\xD8\xFF\xE0", 4) + std::string(100, 'j'));
    ASSERT_TRUE(WriteColourPng("good.png", 1, 1, {9, 9, 9}));
    std::string png = ReadWholeFile("good.png");
    WriteWholeFile("cut.png", png.substr(0, png.size() - 20));
    WriteWholeFile("scene.mtl",
                   "newmtl photo\nmap_Kd photo.jpg\nnewmtl cut\nmap_Kd cut.png\n"
                   "newmtl good\nmap_Kd good.png\n");
    std::string obj = "mtllib scene.mtl\n";
    int base = 0;
    for (const char* material : {"photo", "cut", "good"}) {
        obj += Quad(material, float(base * 5));
        obj += "f " + std::to_string(base + 1) + " " + std::to_string(base + 4) + " " +
               std::to_string(base + 3) + "\n";
        base += 4;
    }
    WriteWholeFile("scene.obj", obj);
    ImportResult result = Import(Request({"scene.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 2) << result.messages;
    EXPECT_NE(result.messages.find("photo.jpg: JPEG images are not read; convert it to PNG or TGA"),
              std::string::npos)
        << result.messages;
    EXPECT_NE(result.messages.find("cut.png: "), std::string::npos) << result.messages;
    LoadedMap map("map");
    size_t textured = 0;
    for (const CMesh* mesh : map.Meshes())
        for (uint32_t f = 0; f < mesh->faceCount[0]; ++f)
            textured += mesh->faces[0][f].texture != nullptr;
    EXPECT_EQ(textured, 1u);
    EXPECT_TRUE(fs::exists("map/good.tga"));
}

}  // namespace

namespace {

// A glTF file with its geometry and its PNG colour map inside, as data URIs: the colour map comes
// from the model itself, not from a file beside it.
TEST(Texture, AnEmbeddedPngColourMapIsWrittenBesideTheMap) {
    TempDir dir;
    ASSERT_TRUE(WriteColourPng("checker.png", 2, 2, {200, 0, 0, 0, 200, 0, 0, 0, 200, 7, 7, 7}));
    std::string image = ReadWholeFile("checker.png");
    std::remove("checker.png");
    WriteTriangleGltf("tile.gltf", "", image);
    ImportResult result = Import(Request({"tile.gltf"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 0) << result.messages;
    LoadedMap map("map");
    ASSERT_EQ(map.Triangles(), 1u);
    const CTexture* texture = map.Meshes()[0]->faces[0][0].texture;
    ASSERT_NE(texture, nullptr);
    EXPECT_STREQ(texture->name, "tile_texture0.tga");  // named after the model
    ASSERT_TRUE(fs::exists(std::string("map/") + texture->name)) << texture->name;
    ASSERT_EQ(texture->width, 2);
    uint8_t r, g, b, a;
    GetTexturePixel(1, 1, 2, texture->pixels, texture->format, r, g, b, a);
    EXPECT_EQ(r, 7);
    GetTexturePixel(0, 0, 2, texture->pixels, texture->format, r, g, b, a);
    EXPECT_EQ(r, 200);
    EXPECT_EQ(g, 0);
}

}  // namespace
