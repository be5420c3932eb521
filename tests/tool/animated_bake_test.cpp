// Animated bakes through the bake run: one file a frame, each baked from that frame's shape.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/temp_dir.h"
#include "tests/tool/animated_map.h"
#include "tool/bake/contact_sheet.h"
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
    void TearDown() override { ShadowSettings = DefaultShadowSettings(), StartDirectory[0] = 0; }

    // Bakes map (in a folder of its own) with frames frames; the files written beside it.
    std::vector<std::string> Bake(const std::string& map, int32_t frames) {
        ShadowSettings.FrameCount = frames;
        char path[260];
        std::snprintf(path, sizeof path, "%s", dir.File(map).c_str());
        EXPECT_EQ(BakeMap(path, 0).baked, 1) << map;
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(fs::path(dir.File(map)).parent_path()))
            if (entry.path().extension() != ".vbf") names.push_back(entry.path().filename());
        std::sort(names.begin(), names.end());
        return names;
    }
    std::string Read(const std::string& path) const { return ReadWholeFile(dir.File(path)); }

    TempDir dir;
};

// Each frame's shadow map and height file are those of a still map with the block where that
// frame puts it, frames stored whole or packed, a packed frame with no data of its own halfway
// between its neighbours. Normals come from the frame's faces; a frame past the last wraps.
TEST_F(AnimatedBake, EachFrameIsBakedFromItsOwnShape) {
    ShadowSettings.WriteHeightData = 1;
    for (int shift : {0, 32, 64}) {
        fs::create_directory("s" + std::to_string(shift));
        ASSERT_TRUE(SaveMap("s" + std::to_string(shift) + "/a.vbf", 8, 8, 64.0f + shift));
        Bake("s" + std::to_string(shift) + "/a.vbf", 1);
    }
    ASSERT_NE(Read("s0/texture0.dat"), Read("s64/texture0.dat"));
    const std::pair<BlockShifts, bool> rows[] = {
        {{0.0f, 64.0f}, false}, {{0.0f, 64.0f}, true}, {{0.0f, std::nullopt, 64.0f}, true}};
    for (const auto& [shifts, packed] : rows) {
        fs::remove_all("m"), fs::create_directory("m");
        ASSERT_TRUE(SaveMap("m/a.vbf", 8, 8, 64, shifts, packed));
        Bake("m/a.vbf", int32_t(shifts.size() + 1));
        for (size_t f = 0; f <= shifts.size(); ++f)
            for (const char* kind : {".dat", ".dah"})
                EXPECT_EQ(Read("m/texture" + std::to_string(f) + kind),
                          Read("s" + std::to_string(int(shifts[f % shifts.size()].value_or(32))) +
                               "/texture0" + kind))
                    << "frame " << f << kind << (packed ? " packed" : "");
    }
}

// Frames have numbered files and no unnumbered one, each the map's part of the square.
TEST_F(AnimatedBake, FramesGoToNumberedFilesOfTheMapsSize) {
    ASSERT_TRUE(SaveMap("a.vbf", 64, 32));
    ShadowSettings.TextureSize = 2048, ShadowSettings.WriteHeightData = 1;
    const std::vector<std::string> files = {"texture0.dah", "texture0.dat", "texture1.dah",
                                            "texture1.dat", "texture2.dah", "texture2.dat"};
    ASSERT_EQ(Bake("a.vbf", 3), files);
    for (const std::string& name : files)
        EXPECT_EQ(Read(name).size(), name.back() == 'h' ? 64u * 32u * 4u : 512u * 256u) << name;
}

// A clone sharing its source's vertices takes a packed frame into an array of its own.
TEST(VertexFrames, ALentArrayIsNeverWrittenOver) {
    CMesh root(nullptr);
    CMesh* block = FlatGround(&root, 8.0f);
    AnimateBlock(block, {0.0f, 64.0f}, true);
    CMesh* clone = block->Clone(&root, MeshCloneShareVertices);
    clone->SetAnimationFrame(1.0f, 0);
    ApplyVertexFrames(&root);
    EXPECT_EQ(std::make_pair(block->vertices[1].position.x, clone->vertices[1].position.x),
              std::make_pair(8.0f, 72.0f));
}

// Pictures shrink to fit the sheet's side, never below a pixel; labels don't, and a sheet whose
// labels alone would pass the largest picture is none. Every digit's dots show, "10" in order,
// and a shrunk picture's pixel averages the bytes it covers.
TEST(ContactSheet, PicturesShrinkToFitAndLabelsShowEveryDigit) {
    const int32_t rows[][5] = {// frames, picture side; then the picture's and the sheet's sides
                               {13, 512, 488, 1972, 2048},
                               {10000, 512, 1, 4904, 2404},
                               {1000000, 512, 1, 0, 0}};
    for (const auto& row : rows) {
        const ContactSheetLayout layout = LayOutContactSheet(row[0], row[1], row[1]);
        EXPECT_EQ(std::make_tuple(layout.pictureHeight, layout.width, layout.height),
                  std::make_tuple(row[2], row[3], row[4]));
    }
    const ContactSheetLayout layout = LayOutContactSheet(11, 1014, 1014);
    ContactSheet sheet(layout);
    std::vector<uint8_t> bytes(1014 * 1014);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = uint8_t((i + i / 1014) % 2 * 255);
    sheet.Place(10, bytes.data(), 1014, 1014, 1014);
    int dots = 0;
    for (int32_t y = 0; y < layout.height; ++y)
        for (int32_t x = 0; x < layout.width; ++x) dots += sheet.Pixel(x, y) == SheetLabelColour;
    // 0 to 9 have 12 8 11 11 9 11 12 7 13 12 dots; "10" 20 more; each dot 3 by 3 pixels.
    EXPECT_EQ(dots, 126 * 9);
    const SheetPlace label = layout.Label(10), picture = layout.Picture(10);
    std::string top;  // "1" starts .#., "0" ###, four dots along
    for (int32_t x : {0, 3, 6, 12, 15, 18})
        top += sheet.Pixel(label.x + x, label.y) == SheetLabelColour ? '#' : '.';
    EXPECT_EQ(top, ".#.###");
    EXPECT_EQ(std::make_pair(layout.pictureWidth, sheet.Pixel(picture.x + 9, picture.y + 9)),
              std::make_pair(507, 0x808080u));
}

}  // namespace
