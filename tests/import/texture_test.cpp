// Colour maps: found beside the model, converted to TGA files in the map folder and named in the
// map's texture block; one file for one image, and clear failures for what can't be read.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "engine/texture/pixel_format.h"
#include "tests/import/import_support.h"

namespace fs = std::filesystem;

namespace {

// An OBJ of one textured triangle a material, side by side, with its material file.
void WriteScene(const std::string& mtl, std::initializer_list<const char*> materials) {
    WriteWholeFile("scene.mtl", mtl);
    std::string obj = "mtllib scene.mtl\nvt 0 0\nvt 1 0\nvt 1 1\n";
    int x = 0;
    for (const char* material : materials) {
        obj += "v " + std::to_string(x) + " 0 0\nv " + std::to_string(x) + " 0 -10\nv " +
               std::to_string(x + 10) + " 0 -10\nusemtl " + material + "\nf -3/1 -2/2 -1/3\n";
        x += 20;
    }
    WriteWholeFile("scene.obj", obj);
}

// The colour of texel (x, y).
std::vector<int> Texel(const CTexture* texture, int x, int y) {
    uint8_t r, g, b, a;
    GetTexturePixel(x, y, texture->width, texture->pixels, texture->format, r, g, b, a);
    return {r, g, b};
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
    WriteScene(
        "newmtl one\nmap_Kd a/wall.png\n"
        "newmtl same\nmap_Kd a\\wall.png\n"  // the same file, written as Windows does
        "newmtl other\nmap_Kd b/Wall.png\n",
        {"one", "same", "other"});
    ImportResult result = Import(Request({"scene.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 0) << result.messages;
    // Names differ without regard to case.
    EXPECT_TRUE(fs::exists("map/wall.tga") && fs::exists("map/Wall_2.tga"));
    EXPECT_EQ(std::distance(fs::directory_iterator("map"), fs::directory_iterator()), 3);

    LoadedMap map("map");
    std::set<std::string> named;
    const CTexture* wall = nullptr;
    for (const CTexture* texture : map.FaceTextures()) {
        ASSERT_NE(texture, nullptr);
        named.insert(texture->name);
        if (std::string(texture->name) == "wall.tga") wall = texture;
    }
    EXPECT_EQ(named, (std::set<std::string>{"wall.tga", "Wall_2.tga"}));
    ASSERT_NE(wall, nullptr);
    ASSERT_EQ(wall->width, 3);
    ASSERT_EQ(wall->height, 2);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(Texel(wall, i % 3, i / 3),
                  std::vector<int>(rgb.begin() + i * 3, rgb.begin() + i * 3 + 3))
            << i;
}

TEST(Texture, ImagesThatCantBeReadAreNamedAndLeaveTheirFacesUntextured) {
    TempDir dir;
    WriteWholeFile("photo.jpg", std::string("\xFF\xD8\xFF\xE0", 4) + std::string(100, 'j'));
    ASSERT_TRUE(WriteColourPng("good.png", 1, 1, {9, 9, 9}));
    std::string png = ReadWholeFile("good.png");
    WriteWholeFile("cut.png", png.substr(0, png.size() - 20));
    WriteScene(
        "newmtl photo\nmap_Kd photo.jpg\nnewmtl cut\nmap_Kd cut.png\n"
        "newmtl good\nmap_Kd good.png\n",
        {"photo", "cut", "good"});
    ImportResult result = Import(Request({"scene.obj"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 2) << result.messages;
    EXPECT_THAT(result.messages,
                HasSubstr("photo.jpg: JPEG images are not read; convert it to PNG or TGA"));
    EXPECT_THAT(result.messages, HasSubstr("cut.png: "));
    std::vector<const CTexture*> textures = LoadedMap("map").FaceTextures();
    EXPECT_EQ(textures.size() - std::count(textures.begin(), textures.end(), nullptr), 1u);
    EXPECT_TRUE(fs::exists("map/good.tga"));
}

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
    const CTexture* texture = map.FaceTextures()[0];
    ASSERT_NE(texture, nullptr);
    EXPECT_STREQ(texture->name, "tile_texture0.tga");  // named after the model
    EXPECT_TRUE(fs::exists(std::string("map/") + texture->name)) << texture->name;
    ASSERT_EQ(texture->width, 2);
    EXPECT_EQ(Texel(texture, 1, 1), (std::vector<int>{7, 7, 7}));
    EXPECT_EQ(Texel(texture, 0, 0), (std::vector<int>{200, 0, 0}));
}

}  // namespace
