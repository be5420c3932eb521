#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "engine/texture/texture.h"
#include "platform/debug/debug_output.h"
#include "tests/support/bake_fixture.h"
#include "tests/support/random_map.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_settings.h"
#include "tool/maps/mesh_builder.h"
#include "tool/run/app_state.h"

// TextureSize 256 makes one texel 32 world units: sample (row, col) stands at x = 32 col,
// z = -32 row, and a map of 8 cells is 8 x 8 texels.
class BakePass : public BakeFixture {
protected:
    void SetUp() override {
        BakeFixture::SetUp();
        ShadowSettings.TextureSize = 256;
        ShadowSettings.MapCellsX = ShadowSettings.MapCellsY = 8;
        ShadowSettings.Light = {0.0f, 1.0f, 0.0f};
    }
    // Ground from (x0, z = 0) to (x1, z1) at height y.
    static std::unique_ptr<CMesh> Ground(float x0, float x1, float z1, float y = 0.0f) {
        MeshBuilder builder;
        builder.AddQuad({x0, y, 0}, {x1, y, 0}, {x1, y, z1}, {x0, y, z1}, {0, 1, 0});
        return std::unique_ptr<CMesh>(builder.Build(nullptr, "ground"));
    }
    static void SixtyDegrees() {
        ShadowSettings.Ambient = 0;
        ShadowSettings.Light = {float(std::sin(M_PI / 3)), float(std::cos(M_PI / 3)), 0.0f};
    }
};

TEST_F(BakePass, FlatMapUnderOverheadLightIsFullyLitAndTheRestAmbient) {
    std::unique_ptr<CMesh> ground(FlatGround(nullptr, 256.0f));
    ShadowSettings.Light = {0.0f, 5.0f, 0.0f};  // any length: the pass normalises it
    std::string file = Bake(ground.get());
    ASSERT_EQ(file.size(), 256u * 256u);  // a single bake writes the whole square
    EXPECT_EQ(FileByte(file, 0, 0), 0);   // v 255, level 128 + 255 capped at 255
    EXPECT_EQ(FileByte(file, 7, 7), 0);
    EXPECT_EQ(FileByte(file, 8, 0), 127);  // outside the map: sum 0, level Ambient
    EXPECT_EQ(FileByte(file, 0, 8), 127);
    EXPECT_EQ(FileByte(file, 255, 255), 127);
    EXPECT_EQ(stats.samples, 64u);
    EXPECT_EQ(stats.groundHits, 64u);
    EXPECT_EQ(stats.litSamples, 64u);

    // A zero light can't be normalised: the whole map stays at the ambient, with a warning.
    ShadowSettings.Light = {0.0f, 0.0f, 0.0f};
    DebugCapture capture;
    EXPECT_EQ(FileByte(Bake(ground.get()), 2, 2), 127);
    EXPECT_NE(capture.Text().find("WARNING: "), std::string::npos);
}

TEST_F(BakePass, SecondBakeReusesTheTextureAndStartsFromZero) {
    std::unique_ptr<CMesh> ground(FlatGround(nullptr, 256.0f));
    SixtyDegrees();
    std::string first = Bake(ground.get());
    EXPECT_EQ(FileByte(first, 3, 3), 192);  // s 0.5, sample 127, quadratic level 63
    CTexture* texture = ShadowTexture;
    EXPECT_EQ(Bake(ground.get()), first);  // leftover sums would have doubled the light
    EXPECT_EQ(ShadowTexture, texture);
    EXPECT_EQ(texture->flags, 0xA4u);
    EXPECT_EQ(texture->format, uint32_t(TextureFormat8888));
    ShadowSettings.TextureSize = 128;  // another size makes a new texture
    Bake(ground.get());
    EXPECT_EQ(ShadowTexture->width, 128);
}

TEST_F(BakePass, FileRowsRunDownZAndColumnsAlongXAndMissesAddNothing) {
    // Ground from x = 40 and down to z = -40 only: samples at x 0 and 32 miss, at z -64 miss.
    std::unique_ptr<CMesh> ground = Ground(40, 256, -40);
    ShadowSettings.Ambient = 0;
    std::string file = Bake(ground.get());
    // A sample over no ground does not reuse the hit of the sample before it.
    EXPECT_EQ(FileByte(file, 0, 0), 255);
    EXPECT_EQ(FileByte(file, 0, 1), 255);
    EXPECT_EQ(FileByte(file, 0, 2), 0);
    EXPECT_EQ(FileByte(file, 1, 2), 0);
    EXPECT_EQ(FileByte(file, 2, 2), 255);
    EXPECT_EQ(stats.groundHits, 2u * 6u);
}

TEST_F(BakePass, RoofCastsItsShadowAwayFromTheLight) {
    std::unique_ptr<CMesh> root(new CMesh(nullptr));
    FlatGround(root.get(), 256.0f);
    MeshBuilder builder;
    builder.AddBox({64, 50, -256}, {128, 60, 0});
    builder.Build(root.get(), "roof");
    ShadowSettings.Ambient = 0;
    ShadowSettings.Light = {1.0f, 1.0f, 0.0f};
    std::string file = Bake(root.get());
    // From x = 32 the ray to the light passes x 82 at the roof's height: blocked. From x = 0
    // it passes under the roof's near edge.
    EXPECT_EQ(FileByte(file, 4, 0), 128);  // s 0.7071, sample 180, level 127
    EXPECT_EQ(FileByte(file, 4, 1), 255);
    EXPECT_EQ(FileByte(file, 4, 2), 128);  // the roof's own top
    EXPECT_EQ(FileByte(file, 4, 5), 128);
}

TEST_F(BakePass, OversampledTexelAveragesItsSamples) {
    // Oversample 2: samples every 16 units; texel column 0 holds x 0 (no ground) and x 16.
    std::unique_ptr<CMesh> ground = Ground(10, 256, -256);
    ShadowSettings.Ambient = 0;
    ShadowSettings.Oversample = 2;
    std::string file = Bake(ground.get());
    EXPECT_EQ(FileByte(file, 0, 0), 192);  // sum 510: 510 / 2 / 2 = 127, level 63
    EXPECT_EQ(FileByte(file, 0, 1), 0);
    EXPECT_EQ(stats.samples, 16u * 16u);
}

TEST_F(BakePass, HeightFileHoldsTheGroundAtEachCellCorner) {
    std::unique_ptr<CMesh> ground = Ground(0, 70, -70, 5);
    ShadowSettings.MapCellsX = 4;
    ShadowSettings.MapCellsY = 2;
    ShadowSettings.WriteHeightData = 1;
    EXPECT_EQ(Bake(ground.get()).size(), 256u * 256u);
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
}

namespace {
std::vector<int> ProgressSeen;
void RecordProgress(int percent) {
    ProgressSeen.push_back(percent);
}
bool QuitAtOnce() {
    return true;
}
}  // namespace

TEST_F(BakePass, ProgressEveryThirtyTwoRowsStopsShortOfAHundred) {
    std::unique_ptr<CMesh> ground(FlatGround(nullptr, 8192.0f));
    ShadowSettings.TextureSize = 2048;
    ShadowSettings.MapCellsX = 1;
    ShadowSettings.MapCellsY = 256;  // 2048 rows of 8 samples
    ProgressSeen.clear();
    ProgressHooks hooks = {RecordProgress, nullptr, QuitAtOnce};
    SetProgressHooks(&hooks);
    DebugCapture capture;
    std::string file = Bake(ground.get());
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
}

TEST_F(BakePass, OversizedMapIsCutAndAnUnwritableOutputLeavesNothing) {
    std::unique_ptr<CMesh> ground(FlatGround(nullptr, 256.0f));
    ShadowSettings.MapCellsX = 100000;
    ShadowSettings.MapCellsY = -5;
    EXPECT_EQ(Bake(ground.get()).size(), 256u * 256u);
    EXPECT_EQ(stats.samples, 0u);

    EXPECT_TRUE(Bake(ground.get(), "missing-directory/texture.dat").empty());
    EXPECT_FALSE(stats.filesWritten);
}

TEST_F(BakePass, SameBytesForAnyNumberOfThreads) {
    ShadowSettings.TextureSize = 1024;  // 32 x 32 texels over the map at oversample 2
    ShadowSettings.Oversample = 2;
    for (uint32_t seed : {3u, 11u, 29u}) {
        ShadowSettings.Light = {0.6f, 0.4f, -0.3f};
        std::unique_ptr<CMesh> map(BuildRandomMap(seed, 8));
        std::string reference;
        for (int threads : {1, 2, 3, 4}) {
            core.threads = threads;
            std::string file = Bake(map.get());
            ASSERT_EQ(file.size(), 1024u * 1024u);
            if (threads == 1) reference = file;
            EXPECT_TRUE(file == reference) << "seed " << seed << ", " << threads << " threads";
        }
    }
}

TEST_F(BakePass, TwoBakesAtOnceOnTwoThreadsWriteWhatEachWritesAlone) {
    std::unique_ptr<CMesh> maps[2] = {std::unique_ptr<CMesh>(BuildRandomMap(5, 8)),
                                      std::unique_ptr<CMesh>(BuildRandomMap(6, 8))};
    BakeJob jobs[2];
    for (int i = 0; i < 2; ++i) {
        jobs[i].settings = ShadowSettings;
        jobs[i].settings.TextureSize = 1024;
        jobs[i].settings.Light = {i ? -0.5f : 0.7f, 0.4f, 0.2f};
        jobs[i].mesh = maps[i].get();
        jobs[i].core.threads = 2;
        // The texture list is the engine's: made here, so the bakes only reuse theirs.
        jobs[i].texture = CreateTexture(1024, 1024, TextureFormat8888);
    }
    std::string alone[2];
    for (int i = 0; i < 2; ++i) {
        jobs[i].shadowMapPath = dir->File("alone" + std::to_string(i));
        ASSERT_EQ(BakeShadowMap(jobs[i]).texture, jobs[i].texture);
        alone[i] = ReadWholeFile(jobs[i].shadowMapPath);
    }
    for (int i = 0; i < 2; ++i) jobs[i].shadowMapPath = dir->File("together" + std::to_string(i));
    std::thread other([&] { BakeShadowMap(jobs[1]); });
    BakeShadowMap(jobs[0]);
    other.join();
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(ReadWholeFile(jobs[i].shadowMapPath) == alone[i]) << "bake " << i;
        FreeTexture(jobs[i].texture);
    }
    EXPECT_NE(alone[0], alone[1]);
}
