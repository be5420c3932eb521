// Colour maps: found beside the model or inside it, converted to TGA files in the map folder and
// named in the map; one file for one image, and clear failures for what can't be read.
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "engine/texture/pixel_format.h"
#include "tests/import/import_support.h"

namespace fs = std::filesystem;

namespace {

std::vector<int> Texel(const CTexture* texture, int x, int y) {
    uint8_t r, g, b, a;
    GetTexturePixel(x, y, texture->width, texture->pixels, texture->format, r, g, b, a);
    return {r, g, b};
}

// One triangle a material. Names differ without regard to case; an image that can't be read
// leaves its face untextured and counts as an error.
TEST(Texture, PngColourMapsBecomeTgaFilesNamedInTheMap) {
    TempDir dir;
    fs::create_directories("a");
    fs::create_directories("b");
    const uint8_t rgb[18] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 10, 20, 30, 40, 50, 60, 70, 80, 90};
    ASSERT_TRUE(WritePng("a/wall.png", 3, 2, PNG_FORMAT_RGB, rgb));
    ASSERT_TRUE(WritePng("b/Wall.png", 1, 1, PNG_FORMAT_RGB, "\1\2\3"));
    std::string png = ReadWholeFile("b/Wall.png");
    WriteWholeFile("cut.png", png.substr(0, png.size() - 20));
    WriteWholeFile("photo.jpg", std::string("\xFF\xD8\xFF\xE0", 4) + std::string(100, 'j'));
    std::string mtl;
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
    ImportResult result = Import(Request({"scene.obj"}));
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
    for (const CTexture* texture : map.FaceTextures()) {
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
    ImportResult result = Import(Request({"tile.gltf"}));
    ASSERT_TRUE(result.written) << result.messages;
    EXPECT_EQ(result.errors, 0) << result.messages;
    LoadedMap map("map");
    ASSERT_EQ(map.FaceTextures().size(), 1u);
    const CTexture* texture = map.FaceTextures()[0];
    ASSERT_NE(texture, nullptr);
    EXPECT_STREQ(texture->name, "tile_texture0.tga");
    EXPECT_TRUE(fs::exists(std::string("map/") + texture->name));
    ASSERT_EQ(texture->width, 2);
    EXPECT_EQ(Texel(texture, 1, 1), (std::vector<int>{7, 7, 7}));
    EXPECT_EQ(Texel(texture, 0, 0), (std::vector<int>{200, 0, 0}));
}

}  // namespace
