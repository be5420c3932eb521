#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "engine/texture/texture.h"
#include "platform/debug/debug_output.h"
#include "tests/support/bake_fixture.h"
#include "tests/support/random_map.h"
#include "tool/app_state.h"
#include "tool/mesh_builder.h"
#include "tool/progress.h"
#include "tool/shadow_settings.h"

// TextureSize 256 makes one texel 32 world units: sample (row, col) stands at x = 32 col,
// z = -32 row, and a map of 8 cells is 8 x 8 texels.
class BakePass : public BakeFixture {
protected:
    void SetUp() override {
        BakeFixture::SetUp();
        ShadowSettings.TextureSize = 256;
        ShadowSettings.MapCellsX = ShadowSettings.MapCellsY = 8;
    }
};

TEST_F(BakePass, FlatMapUnderOverheadLightIsFullyLitAndTheRestAmbient) {
    CMesh* ground = FlatGround(nullptr, 256.0f);
    ShadowSettings.Light = {0.0f, 5.0f, 0.0f};  // any length: the pass normalises it
    std::string file = Bake(ground);
    ASSERT_EQ(file.size(), 256u * 256u);  // a single bake writes the whole square
    EXPECT_EQ(FileByte(file, 0, 0), 0);   // v 255, level 128 + 255 capped at 255
    EXPECT_EQ(FileByte(file, 7, 7), 0);
    EXPECT_EQ(FileByte(file, 8, 0), 127);  // outside the map: sum 0, level Ambient
    EXPECT_EQ(FileByte(file, 0, 8), 127);
    EXPECT_EQ(FileByte(file, 255, 255), 127);
    EXPECT_FLOAT_EQ(ShadowSettings.Light.y, 1.0f);  // stays normalised
    EXPECT_EQ(stats.samples, 64u);
    EXPECT_EQ(stats.groundHits, 64u);
    EXPECT_EQ(stats.litSamples, 64u);
    delete ground;
}

TEST_F(BakePass, LightAtSixtyDegreesIsDarkenedByTheQuadraticResponse) {
    CMesh* ground = FlatGround(nullptr, 256.0f);
    ShadowSettings.Ambient = 0;
    ShadowSettings.Light = {float(std::sin(M_PI / 3)), float(std::cos(M_PI / 3)), 0.0f};
    std::string file = Bake(ground);
    EXPECT_EQ(FileByte(file, 3, 3), 192);  // s 0.5, sample 127, level 63
    delete ground;
}

TEST_F(BakePass, FileRowsRunDownZAndColumnsAlongX) {
    // Ground from x = 40 and down to z = -40 only: samples at x 0 and 32 miss, at z -64 miss.
    MeshBuilder builder;
    builder.AddQuad({40, 0, 0}, {256, 0, 0}, {256, 0, -40}, {40, 0, -40}, {0, 1, 0});
    CMesh* ground = builder.Build(nullptr, "strip");
    ShadowSettings.Ambient = 0;
    ShadowSettings.Light = {0.0f, 1.0f, 0.0f};
    std::string file = Bake(ground);
    // A sample over no ground adds nothing; it does not reuse the hit of the sample before it.
    EXPECT_EQ(FileByte(file, 0, 0), 255);
    EXPECT_EQ(FileByte(file, 0, 1), 255);
    EXPECT_EQ(FileByte(file, 0, 2), 0);
    EXPECT_EQ(FileByte(file, 1, 2), 0);
    EXPECT_EQ(FileByte(file, 2, 2), 255);
    EXPECT_EQ(stats.groundHits, 2u * 6u);
    delete ground;
}

TEST_F(BakePass, RoofCastsItsShadowAwayFromTheLight) {
    CMesh* root = new CMesh(nullptr);
    FlatGround(root, 256.0f);
    MeshBuilder builder;
    builder.AddBox({64, 50, -256}, {128, 60, 0});
    builder.Build(root, "roof");
    ShadowSettings.Ambient = 0;
    ShadowSettings.Light = {1.0f, 1.0f, 0.0f};
    std::string file = Bake(root);
    // From x = 32 the ray to the light passes x 82 at the roof's height: blocked. From x = 0
    // it passes under the roof's near edge.
    EXPECT_EQ(FileByte(file, 4, 0), 128);  // s 0.7071, sample 180, level 127
    EXPECT_EQ(FileByte(file, 4, 1), 255);
    EXPECT_EQ(FileByte(file, 4, 2), 128);  // the roof's own top
    EXPECT_EQ(FileByte(file, 4, 5), 128);
    delete root;
}

TEST_F(BakePass, OversampledTexelAveragesItsSamples) {
    // Oversample 2: samples every 16 units; texel column 0 holds x 0 (no ground) and x 16.
    MeshBuilder builder;
    builder.AddQuad({10, 0, 0}, {256, 0, 0}, {256, 0, -256}, {10, 0, -256}, {0, 1, 0});
    CMesh* ground = builder.Build(nullptr, "ground");
    ShadowSettings.Ambient = 0;
    ShadowSettings.Oversample = 2;
    ShadowSettings.Light = {0.0f, 1.0f, 0.0f};
    std::string file = Bake(ground);
    EXPECT_EQ(FileByte(file, 0, 0), 192);  // sum 510: 510 / 2 / 2 = 127, level 63
    EXPECT_EQ(FileByte(file, 0, 1), 0);
    EXPECT_EQ(stats.samples, 16u * 16u);
    delete ground;
}

TEST_F(BakePass, ZeroLightLeavesTheWholeMapAtAmbientWithAWarning) {
    CMesh* ground = FlatGround(nullptr, 256.0f);
    ShadowSettings.Light = {0.0f, 0.0f, 0.0f};
    DebugCapture capture;
    std::string file = Bake(ground);
    EXPECT_EQ(FileByte(file, 2, 2), 127);
    EXPECT_EQ(ShadowSettings.Light.y, 0.0f);
    EXPECT_NE(capture.Text().find("WARNING: "), std::string::npos);
    delete ground;
}

TEST_F(BakePass, SecondBakeReusesTheTextureAndStartsFromZero) {
    CMesh* ground = FlatGround(nullptr, 256.0f);
    ShadowSettings.Ambient = 0;
    ShadowSettings.Light = {float(std::sin(M_PI / 3)), float(std::cos(M_PI / 3)), 0.0f};
    std::string first = Bake(ground);
    CTexture* texture = ShadowTexture;
    std::string second = Bake(ground);
    EXPECT_EQ(ShadowTexture, texture);
    EXPECT_EQ(first, second);  // leftover sums would have doubled the light
    EXPECT_EQ(texture->flags, 0xA4u);
    EXPECT_EQ(texture->format, uint32_t(TextureFormat8888));

    ShadowSettings.TextureSize = 128;  // another size makes a new texture
    Bake(ground);
    EXPECT_EQ(ShadowTexture->width, 128);
    delete ground;
}

TEST_F(BakePass, AnimatedBakeWritesOnlyTheMapsPart) {
    CMesh* ground = FlatGround(nullptr, 4096.0f);
    ShadowSettings.MapCellsX = 128;
    ShadowSettings.MapCellsY = 64;
    std::string single = Bake(ground);
    EXPECT_EQ(single.size(), 256u * 256u);
    ShadowSettings.FrameCount = 1;
    std::string frame = Bake(ground, "texture0.dat");
    EXPECT_EQ(frame.size(), 128u * 64u);
    EXPECT_EQ(uint8_t(frame[0]), FileByte(single, 0, 0));
    delete ground;
}

TEST_F(BakePass, HeightFileHoldsTheGroundAtEachCellCorner) {
    MeshBuilder builder;
    builder.AddQuad({0, 5, 0}, {70, 5, 0}, {70, 5, -70}, {0, 5, -70}, {0, 1, 0});
    CMesh* ground = builder.Build(nullptr, "ground");
    ShadowSettings.MapCellsX = 4;
    ShadowSettings.MapCellsY = 2;
    ShadowSettings.WriteHeightData = 1;
    char name[260] = "texture.dat";
    BakeShadowMap(ground, name, &stats);
    EXPECT_STREQ(name, "texture.dah");  // made in the name buffer itself
    EXPECT_EQ(ReadWholeFile(dir->File("texture.dat")).size(), 256u * 256u);
    std::string heights = ReadWholeFile(dir->File("texture.dah"));
    ASSERT_EQ(heights.size(), 4u * 2u * 4u);
    auto height = [&](int row, int column) {
        float value;
        std::memcpy(&value, heights.data() + (row * 4 + column) * 4, 4);
        return value;
    };
    EXPECT_EQ(height(0, 0), 5.0f);       // the world origin
    EXPECT_EQ(height(1, 2), 5.0f);       // x 64, z -32
    EXPECT_EQ(height(0, 3), -10000.0f);  // x 96: no ground there
    EXPECT_TRUE(stats.filesWritten);
    delete ground;
}

namespace {
std::vector<int> ProgressSeen;
void RecordProgress(int percent) { ProgressSeen.push_back(percent); }
bool QuitAtOnce() { return true; }
}  // namespace

TEST_F(BakePass, ProgressEveryThirtyTwoRowsStopsShortOfAHundred) {
    CMesh* ground = FlatGround(nullptr, 8192.0f);
    ShadowSettings.TextureSize = 2048;
    ShadowSettings.MapCellsX = 1;
    ShadowSettings.MapCellsY = 256;  // 2048 rows of 8 samples
    ProgressSeen.clear();
    ProgressHooks hooks = {RecordProgress, nullptr, QuitAtOnce};
    SetProgressHooks(&hooks);
    DebugCapture capture;
    std::string file = Bake(ground);
    ASSERT_EQ(ProgressSeen.size(), 64u);
    EXPECT_EQ(ProgressSeen.front(), 0);
    EXPECT_EQ(ProgressSeen.back(), 98);
    std::string text = capture.Text();
    EXPECT_NE(text.find("2016 of 2048\n"), std::string::npos);
    EXPECT_EQ(text.find("2048 of 2048"), std::string::npos);
    EXPECT_NE(text.find("TIME TO BUILD "), std::string::npos);
    // A quit request is remembered, not obeyed: the pass ran to its end.
    EXPECT_EQ(QuitRequested, 1);
    EXPECT_EQ(FileByte(file, 2047, 7), FileByte(file, 0, 0));
    EXPECT_NE(FileByte(file, 2047, 7), 127);  // lit, not just the ambient
    delete ground;
}

TEST_F(BakePass, UnwritableOutputIsSkippedAndNothingIsLeftBehind) {
    CMesh* ground = FlatGround(nullptr, 256.0f);
    std::string file = Bake(ground, "missing-directory/texture.dat");
    EXPECT_TRUE(file.empty());
    EXPECT_FALSE(stats.filesWritten);
    delete ground;
}

TEST_F(BakePass, MapLargerThanTheTextureIsCutToIt) {
    CMesh* ground = FlatGround(nullptr, 256.0f);
    ShadowSettings.MapCellsX = 100000;
    ShadowSettings.MapCellsY = -5;
    std::string file = Bake(ground);
    EXPECT_EQ(file.size(), 256u * 256u);
    EXPECT_EQ(stats.samples, 0u);
    delete ground;
}

TEST_F(BakePass, SameBytesForAnyNumberOfThreads) {
    for (uint32_t seed : {3u, 11u, 29u}) {
        CMesh* map = BuildRandomMap(seed, 8);
        ShadowSettings.TextureSize = 1024;  // 32 x 32 texels over the map at oversample 2
        ShadowSettings.Oversample = 2;
        ShadowSettings.Light = {0.6f, 0.4f, -0.3f};
        std::string reference;
        for (int threads : {1, 2, 3, 4}) {
            SetBakeThreads(threads);
            std::string file = Bake(map);
            ASSERT_EQ(file.size(), 1024u * 1024u);
            if (threads == 1) reference = file;
            EXPECT_TRUE(file == reference) << "seed " << seed << ", " << threads << " threads";
        }
        SetBakeThreads(0);
        delete map;
    }
}
