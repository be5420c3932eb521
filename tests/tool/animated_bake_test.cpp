// Animated bakes through the bake run: one file a frame, each baked from that frame's shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/crt/paths.h"
#include "tests/support/temp_dir.h"
#include "tests/tool/animated_map.h"
#include "tool/bake/contact_sheet.h"
#include "tool/bake/shadow_settings.h"
#include "tool/bake/vertex_frames.h"
#include "tool/run/app_state.h"
#include "tool/run/bake_run.h"

namespace fs = std::filesystem;

namespace {

class AnimatedBake : public ::testing::Test {
protected:
    void SetUp() override {
        ShadowSettings = DefaultShadowSettings();
        ShadowSettings.TextureSize = 1024;
        ShadowSettings.Light = {1, 1, 0.25f};
        std::snprintf(StartDirectory, sizeof StartDirectory, "%s", dir.Path().c_str());
    }
    void TearDown() override {
        ShadowSettings = DefaultShadowSettings();
        SetBakeOutputName(nullptr);
        StartDirectory[0] = '\0';
    }

    void WriteMap(const std::string& folder, int32_t cellsX, int32_t cellsY,
                  const std::function<void(CMesh*)>& geometry = nullptr) {
        fs::create_directories(dir.File(folder));
        ASSERT_TRUE(SaveMap(dir.File(folder + "/test.vbf"), cellsX, cellsY, geometry));
    }
    // Bakes folder's map with frames frames; the files beside it, the map's own left out.
    std::vector<std::string> Bake(const std::string& folder, int32_t frames,
                                  const char* output = "texture.dat") {
        ShadowSettings.FrameCount = frames;
        EXPECT_TRUE(SetBakeOutputName(output));
        char path[_MAX_PATH];
        std::snprintf(path, sizeof path, "%s", dir.File(folder + "/test.vbf").c_str());
        BakeRunResult result = BakeMap(path, 0);
        EXPECT_EQ(result.baked, 1) << folder;
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir.File(folder)))
            if (entry.path().filename() != "test.vbf") names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    std::string Read(const std::string& path) const { return ReadWholeFile(dir.File(path)); }

    TempDir dir;
};

// Each frame's shadow map and height file are those of a still map with the block where that
// frame puts it, whether the frames are stored whole or packed, a packed frame with no data of its
// own halfway between its neighbours. Normals come from the frame's own faces, and a frame past
// the animation's last is its first again.
TEST_F(AnimatedBake, EachFrameIsBakedFromItsOwnShape) {
    ShadowSettings.WriteHeightData = 1;
    const std::pair<BlockShifts, bool> rows[] = {
        {{0.0f, 64.0f}, false}, {{0.0f, 64.0f}, true}, {{0.0f, std::nullopt, 64.0f}, true}};
    for (float shift : {0.0f, 32.0f, 64.0f}) {
        std::string still = "still" + std::to_string(int(shift));
        WriteMap(still, 8, 8, [&](CMesh* root) { Block(root, 64 + shift); });
        Bake(still, 1);
    }
    ASSERT_NE(Read("still0/texture0.dat"), Read("still64/texture0.dat"));
    for (const auto& [shifts, packed] : rows) {
        WriteMap("moving", 8, 8,
                 [&](CMesh* root) { AnimateBlock(Block(root, 64), shifts, packed); });
        Bake("moving", int32_t(shifts.size() + 1));  // the last frame wraps round to the first
        for (size_t f = 0; f <= shifts.size(); ++f) {
            const auto shift = shifts[f % shifts.size()].value_or(32.0f);
            const std::string still = "still" + std::to_string(int(shift));
            for (const char* kind : {".dat", ".dah"})
                EXPECT_EQ(Read("moving/texture" + std::to_string(f) + kind),
                          Read(still + "/texture0" + kind))
                    << "frame " << f << kind << (packed ? " packed" : " unpacked");
        }
        fs::remove_all(dir.File("moving"));
    }
}

// Frames are numbered behind the output name less its last four characters, or the whole of a
// shorter name; each shadow map covers only the map, and a height file holds a float a cell.
TEST_F(AnimatedBake, FramesGoToNumberedFilesOfTheMapsSize) {
    struct Row {
        int32_t frames, heightData, cellsX, cellsY, textureSize;
        const char *output, *base;
        size_t mapBytes, heightBytes;
    };
    const Row rows[] = {{3, 0, 8, 8, 256, "texture.dat", "texture", 64, 0},
                        {2, 1, 64, 32, 2048, "texture.dat", "texture", 512 * 256, 64 * 32 * 4},
                        {1, 1, 256, 256, 256, "t.dat", "t", 256 * 256, 262144},
                        {2, 0, 8, 8, 256, "abc", "abc", 64, 0},
                        {1, 0, 8, 8, 256, "abcd", "", 64, 0}};
    int i = 0;
    for (const Row& row : rows) {
        const std::string folder = "m" + std::to_string(i++);
        WriteMap(folder, row.cellsX, row.cellsY);
        ShadowSettings.TextureSize = row.textureSize;
        ShadowSettings.WriteHeightData = uint8_t(row.heightData);
        std::vector<std::string> files;
        for (int f = 0; f < row.frames; ++f)
            for (const char* kind : {".dah", ".dat"})
                if (row.heightData || kind[3] == 't')
                    files.push_back(row.base + std::to_string(f) + kind);
        ASSERT_EQ(Bake(folder, row.frames, row.output), files) << row.output;
        for (const std::string& name : files)
            EXPECT_EQ(Read(folder + "/" + name).size(),
                      name.back() == 'h' ? row.heightBytes : row.mapBytes)
                << name;
    }
}

// A clone that shares its source's vertices takes a packed frame into an array of its own, which
// it frees; the source keeps its shape.
TEST(VertexFrames, ALentArrayIsNeverWrittenOver) {
    CMesh root(nullptr);
    CMesh* block = Block(&root, 64);
    AnimateBlock(block, {0.0f, 64.0f}, true);
    const float x = block->vertices[0].position.x;
    CMesh* clone = block->Clone(&root, MeshCloneShareVertices);
    clone->SetAnimationFrame(1.0f, 0);
    ApplyVertexFrames(&root);
    EXPECT_EQ(std::make_pair(block->vertices[0].position.x, clone->vertices[0].position.x),
              std::make_pair(x, x + 64));
    EXPECT_FALSE(clone->ownership & MeshLentVertices);
}

// A sheet shrinks its pictures to fit SheetSide, never below a pixel or its labels' width, and
// gives up where the labels alone would pass the largest picture.
TEST(ContactSheetLayout, PicturesShrinkToFitButLabelsDoNot) {
    const std::array<int32_t, 5> rows[] = {
        // frames, picture side; then the picture's side and the sheet's width and height
        {13, 512, 488, 1972, 2048},
        {10000, 512, 1, 4904, 2404},
        {1000000, 512, 1, 0, 0},
        {0, 512, 0, 0, 0}};
    for (const auto& [frames, side, picture, width, height] : rows) {
        const ContactSheetLayout layout = LayOutContactSheet(frames, side, side);
        EXPECT_EQ(
            std::make_tuple(layout.pictureWidth, layout.pictureHeight, layout.width, layout.height),
            std::make_tuple(picture, picture, width, height))
            << frames;
    }
}

// Eleven frames: every digit's dots, "10" left to right, and a picture shrunk to half its bytes
// whose pixels each average a box of two light and two dark bytes.
TEST(ContactSheet, LabelsAndShrunkPictures) {
    const ContactSheetLayout layout = LayOutContactSheet(11, 1014, 1014);
    ASSERT_EQ(layout.pictureWidth, 507);
    ContactSheet sheet(layout);
    std::vector<uint8_t> bytes(1014 * 1014);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t((i + i / 1014) % 2 * 255);
    sheet.Place(10, bytes.data(), 1014, 1014, 1014);
    int dots = 0;
    for (int32_t y = 0; y < layout.height; ++y)
        for (int32_t x = 0; x < layout.width; ++x) dots += sheet.Pixel(x, y) == SheetLabelColour;
    // Dots of 0 to 9: 12 8 11 11 9 11 12 7 13 12, then 8 and 12 of "10"; 3 by 3 pixels each.
    EXPECT_EQ(dots, 126 * 9);
    const SheetPlace label = layout.Label(10), picture = layout.Picture(10);
    // The top rows: "1" is .#., "0" is ###, four dots along.
    const int32_t top[] = {0, 3, 6, 12, 15, 18};
    std::vector<bool> lit;
    for (int32_t x : top) lit.push_back(sheet.Pixel(label.x + x, label.y) == SheetLabelColour);
    EXPECT_EQ(lit, (std::vector<bool>{false, true, false, true, true, true}));
    EXPECT_EQ(sheet.Pixel(picture.x + 100, picture.y + 100), 0x808080u);
}

}  // namespace
