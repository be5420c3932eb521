#include "tool/bake/bake_pass.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <thread>
#include <tuple>
#include <vector>

#include "engine/texture/texture.h"
#include "platform/debug/debug_output.h"
#include "tests/support/bake_fixture.h"
#include "tests/support/random_map.h"
#include "tests/support/report_capture.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_quantise.h"
#include "tool/maps/mesh_builder.h"
#include "tool/run/app_state.h"

namespace {

// Ground from (x0, z = 0) to (x1, z1) at height y, under root (null: none).
CMesh* Ground(CMesh* root, float x0, float x1, float z1, float y = 0.0f) {
    MeshBuilder builder;
    builder.AddQuad({x0, y, 0}, {x1, y, 0}, {x1, y, z1}, {x0, y, z1}, {0, 1, 0});
    return builder.Build(root, "ground");
}

// TextureSize 256 makes one texel 32 world units: sample (row, col) stands at x = 32 col,
// z = -32 row, and a map of 8 cells is 8 x 8 texels.
class BakePass : public BakeFixture {
protected:
    void SetUp() override {
        BakeFixture::SetUp();
        ShadowSettings.TextureSize = 256;
        ShadowSettings.MapCellsX = ShadowSettings.MapCellsY = 8;
        ShadowSettings.Light = {0, 1, 0};
    }
};

// A byte is 255 - level; level = Ambient + 255 (N.L)^2 of the mean sample, capped at 255.
TEST_F(BakePass, SmallMapsGiveTheirKnownBytes) {
    std::unique_ptr<CMesh> flat(FlatGround(nullptr, 256)), part(Ground(nullptr, 40, 256, -40));
    std::unique_ptr<CMesh> roofed(FlatGround(nullptr, 256)), from10(Ground(nullptr, 10, 256, -256));
    MeshBuilder builder;
    builder.AddBox({64, 50, -256}, {128, 60, 0});
    builder.Build(roofed.get(), "roof");
    // Flat ground whose vertex normals lean 60 degrees: N.L comes from them, not from the faces.
    std::unique_ptr<CMesh> tilted(FlatGround(nullptr, 256));
    for (int32_t i = 0; i < tilted->vertexCount; ++i)
        tilted->vertices[i].normal = {float(std::sin(M_PI / 3)), float(std::cos(M_PI / 3)), 0};
    struct Row {
        const char* what;
        CMesh* map;
        Vector light;
        int ambient, oversample;
        uint64_t samples, hits, lit;
        std::vector<std::tuple<int, int, int>> bytes;  // row, column, byte
    } rows[] = {
        {"flat, any length of light",
         flat.get(),
         {0, 5, 0},
         128,
         1,
         64,
         64,
         64,
         {{0, 0, 0}, {7, 7, 0}, {8, 0, 127}, {0, 8, 127}, {255, 255, 127}}},
        {"tilted normals", tilted.get(), {0, 1, 0}, 0, 1, 64, 64, 64, {{3, 3, 192}}},
        // A sample over no ground adds nothing and does not reuse the hit before it.
        {"part ground",
         part.get(),
         {0, 1, 0},
         0,
         1,
         64,
         12,
         12,
         {{0, 0, 255}, {0, 1, 255}, {0, 2, 0}, {1, 2, 0}, {2, 2, 255}}},
        // From x = 32 the ray to the light passes x 82 at the roof's height: blocked. From x = 0
        // it passes under the roof's near edge.
        {"roof",
         roofed.get(),
         {1, 1, 0},
         0,
         1,
         64,
         64,
         56,
         {{4, 0, 128}, {4, 1, 255}, {4, 2, 128}, {4, 5, 128}}},
        // Texel column 0 holds samples at x 0 (no ground) and x 16: sum 510, 510 / 2 / 2 = 127.
        {"oversampled", from10.get(), {0, 1, 0}, 0, 2, 256, 240, 240, {{0, 0, 192}, {0, 1, 0}}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.what);
        ShadowSettings.Light = r.light;
        ShadowSettings.Ambient = r.ambient;
        ShadowSettings.Oversample = r.oversample;
        std::string file = Bake(r.map);
        ASSERT_EQ(file.size(), 256u * 256u);  // a single bake writes the whole square
        for (auto [row, column, byte] : r.bytes)
            EXPECT_EQ(FileByte(file, row, column), byte) << row << ", " << column;
        EXPECT_EQ(std::make_tuple(stats.samples, stats.groundHits, stats.litSamples),
                  std::make_tuple(r.samples, r.hits, r.lit));
    }
    // Each bake reuses the texture, its sums cleared; another size makes a new one.
    EXPECT_EQ(ShadowTexture->flags, 0xA4u);
    EXPECT_EQ(ShadowTexture->format, uint32_t(TextureFormat8888));
    // A zero light can't be normalised: the whole map stays at the ambient, with a warning.
    ShadowSettings.Light = {0, 0, 0};
    ShadowSettings.Ambient = 128;
    ShadowSettings.TextureSize = 128;
    DebugCapture capture;
    EXPECT_EQ(FileByte(Bake(flat.get()), 2, 2), 127);
    EXPECT_EQ(ShadowTexture->width, 128);
    EXPECT_NE(capture.Text().find("WARNING: "), std::string::npos);
}

TEST_F(BakePass, HeightFileHoldsTheGroundAtEachCellCorner) {
    std::unique_ptr<CMesh> ground(Ground(nullptr, 0, 70, -70, 5));
    ShadowSettings.MapCellsX = 4;
    ShadowSettings.MapCellsY = 2;
    ShadowSettings.WriteHeightData = 1;
    EXPECT_EQ(Bake(ground.get()).size(), 256u * 256u);
    std::string heights = ReadWholeFile(dir->File("texture.dah"));
    ASSERT_EQ(heights.size(), 4u * 2u * 4u);
    std::vector<float> h(8);
    std::memcpy(h.data(), heights.data(), 32);
    // Row 0 at z 0, row 1 at z -32; columns at x 0, 32, 64 and 96 (no ground there).
    EXPECT_EQ(h, (std::vector<float>{5, 5, 5, -10000, 5, 5, 5, -10000}));
    EXPECT_TRUE(stats.filesWritten);
    EXPECT_TRUE(Bake(ground.get(), "missing-directory/texture.dat").empty());
    EXPECT_FALSE(stats.filesWritten);
}

// Map sizes outside the texture are cut to it with a warning for each side; settings the texture
// can't take refuse the bake.
TEST_F(BakePass, OversizedMapsAreCutAndBadSettingsRefused) {
    std::unique_ptr<CMesh> ground(FlatGround(nullptr, 256));
    const std::tuple<int, int, int, int, int> rows[] = {
        // cells across and down, oversample, texture size, warnings (-1: refused)
        {100000, -5, 1, 256, 2}, {256, 0, 1, 256, 0}, {0, 256, 16, 16, 0}, {8, 8, 8, 1, 0},
        {8, 8, 3, 256, -1},      {8, 8, 0, 256, -1},  {8, 8, 1, 0, -1},    {8, 8, 1, 8193, -1}};
    for (auto [x, y, oversample, size, warnings] : rows) {
        ShadowSettings.MapCellsX = x, ShadowSettings.MapCellsY = y;
        ShadowSettings.Oversample = oversample, ShadowSettings.TextureSize = size;
        ReportCapture reports;
        std::string file =
            Bake(ground.get(), (std::to_string(x + oversample + size) + ".dat").c_str());
        EXPECT_EQ(file.size(), warnings < 0 ? 0u : size_t(size) * size) << x << " " << oversample;
        EXPECT_EQ(ShadowTexture != nullptr, warnings >= 0);
        EXPECT_EQ(reports.warnings, std::max(warnings, 0) + (warnings < 0)) << x << " " << size;
    }
}

TEST_F(BakePass, ProgressEveryThirtyTwoRowsStopsShortOfAHundredAndAQuitWaits) {
    std::unique_ptr<CMesh> ground(FlatGround(nullptr, 8192.0f));
    ShadowSettings.TextureSize = 2048;
    ShadowSettings.MapCellsX = 1;
    ShadowSettings.MapCellsY = 256;  // 2048 rows of 8 samples
    static std::vector<int> seen;
    seen.clear();
    ProgressHooks hooks = {[](int percent) { seen.push_back(percent); }, nullptr,
                           [] { return true; }};
    SetProgressHooks(&hooks);
    DebugCapture capture;
    std::string file = Bake(ground.get());
    ASSERT_EQ(seen.size(), 64u);
    EXPECT_EQ(seen.front(), 0);
    EXPECT_EQ(seen.back(), 98);
    EXPECT_NE(capture.Text().find("2016 of 2048\n"), std::string::npos);
    EXPECT_EQ(capture.Text().find("2048 of 2048"), std::string::npos);
    EXPECT_EQ(QuitRequested, 1);  // remembered, not obeyed: the pass ran to its end
    EXPECT_EQ(FileByte(file, 2047, 7), 0);
}

// Three bakes of random maps, each the same bytes at 1 to 4 threads, and again when all three run
// at once on their own threads: a bake reads nothing of the process's state.
TEST_F(BakePass, SameBytesForAnyNumberOfThreadsAndBesideOtherBakes) {
    std::unique_ptr<CMesh> maps[3];
    BakeJob jobs[3];
    std::string alone[3];
    for (int i = 0; i < 3; ++i) {
        maps[i].reset(BuildRandomMap(uint32_t(3 + 8 * i), 8));
        jobs[i].settings = ShadowSettings;
        jobs[i].settings.TextureSize = 1024;  // 32 x 32 texels over the map at oversample 2
        jobs[i].settings.Oversample = 2;
        jobs[i].settings.Light = {0.6f - 0.5f * i, 0.4f, -0.3f};
        jobs[i].mesh = maps[i].get();
        jobs[i].texture = CreateTexture(1024, 1024, TextureFormat8888);  // reused, not made
        jobs[i].shadowMapPath = dir->File("alone");
        for (int threads : {1, 2, 3, 4}) {
            jobs[i].core.threads = threads;
            ASSERT_EQ(BakeShadowMap(jobs[i]).texture, jobs[i].texture);
            if (threads == 1) alone[i] = ReadWholeFile(jobs[i].shadowMapPath);
            EXPECT_TRUE(ReadWholeFile(jobs[i].shadowMapPath) == alone[i]) << i << ", " << threads;
        }
        jobs[i].shadowMapPath = dir->File("together" + std::to_string(i));
    }
    ASSERT_EQ(alone[0].size(), 1024u * 1024u);
    std::thread first([&] { BakeShadowMap(jobs[1]); }), second([&] { BakeShadowMap(jobs[2]); });
    BakeShadowMap(jobs[0]);
    first.join();
    second.join();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(ReadWholeFile(jobs[i].shadowMapPath) == alone[i]) << "bake " << i;
        FreeTexture(jobs[i].texture);
    }
    EXPECT_NE(alone[0], alone[1]);
}

TEST(ShadowQuantise, LevelsAndTexelsOfKnownSums) {
    const std::pair<uint32_t, int32_t> sunTerms[] = {{0, 0},    {8, 0},     {16, 1},    {64, 16},
                                                     {128, 64}, {200, 156}, {254, 253}, {255, 255}};
    for (auto [v, term] : sunTerms) EXPECT_EQ(SunTerm(v), term) << v;
    ShadowSettingsRecord s = DefaultShadowSettings();  // Ambient 128, Oversample 1
    EXPECT_EQ(LightLevel(0, s), 128);
    EXPECT_EQ(LightLevel(255, s), 255);  // capped
    s.Oversample = 2, s.Ambient = 0;
    EXPECT_EQ(LightLevel(255, s), 15);   // 255 / 2 / 2 = 63, squared: 15
    s.Oversample = 1, s.Ambient = -300;  // no lower bound
    EXPECT_EQ(LightLevel(0, s), -300);

    // Light scaled by level >> 8 plus shadow, capped; red unmasked; alpha the low byte of
    // -(level + 1).
    const std::tuple<uint32_t, uint32_t, int32_t, uint32_t> texels[] = {
        // light colour, shadow colour, level, texel
        {0xFFFFFF, 0, 255, 0x00FEFEFE},
        {0xFFFFFF, 0, 128, 0x7F7F7F7F},
        {0xFFFFFF, 0x0A141E, 255, 0x00FFFFFF},
        {0, 0x102030, 0, 0xFF102030},
        {300u << 16, 0, 255, 0x00FF0000},
        {0, 0, 63, 0xC0000000},
        {0, 0, -1, 0x00000000},
        {0, 0, -2, 0x01000000},
    };
    for (auto [light, shadow, level, texel] : texels) {
        s.LightColour = light, s.ShadowColour = shadow;
        EXPECT_EQ(ShadowTexel(level, s), texel)
            << std::hex << light << " " << shadow << " " << level;
    }
}

}  // namespace
