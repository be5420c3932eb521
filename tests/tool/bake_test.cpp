#include <gtest/gtest.h>

#include <bit>
#include <cmath>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "engine/texture/texture.h"
#include "platform/debug/debug_output.h"
#include "tests/support/bake_fixture.h"
#include "tests/support/random_map.h"
#include "tests/support/report_capture.h"
#include "tests/support/temp_dir.h"
#include "tool/bake/bake_pass.h"
#include "tool/bake/message_log.h"
#include "tool/bake/progress.h"
#include "tool/bake/shadow_quantise.h"
#include "tool/bake/shadow_script.h"
#include "tool/bake/shadow_settings.h"
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
    // Maps: flat; flat with vertex normals leaning 60 degrees, so that N.L comes from them and not
    // from the faces; ground from x 40 down to z -40 only; flat under a roof; ground from x 10.
    std::unique_ptr<CMesh> maps[5];
    for (int i : {0, 1, 3}) maps[i].reset(FlatGround(nullptr, 256));
    maps[2].reset(Ground(nullptr, 40, 256, -40));
    maps[4].reset(Ground(nullptr, 10, 256, -256));
    for (int32_t i = 0; i < maps[1]->vertexCount; ++i)
        maps[1]->vertices[i].normal = {float(std::sin(M_PI / 3)), float(std::cos(M_PI / 3)), 0};
    MeshBuilder builder;
    builder.AddBox({64, 50, -256}, {128, 60, 0});
    builder.Build(maps[3].get(), "roof");
    struct Row {
        int map;
        Vector light;
        int ambient, oversample;
        std::tuple<uint64_t, uint64_t, uint64_t> counts;  // samples, ground hits, lit samples
        std::vector<std::tuple<int, int, int>> bytes;     // row, column, byte
    } rows[] = {
        {0, {0, 5, 0}, 128, 1, {64, 64, 64}, {{0, 0, 0}, {7, 7, 0}, {8, 0, 127}, {0, 8, 127}}},
        {1, {0, 1, 0}, 0, 1, {64, 64, 64}, {{3, 3, 192}}},
        // A sample over no ground adds nothing and does not reuse the hit before it.
        {2, {0, 1, 0}, 0, 1, {64, 12, 12}, {{0, 0, 255}, {0, 2, 0}, {1, 2, 0}, {2, 2, 255}}},
        // From x = 32 the ray to the light passes x 82 at the roof's height: blocked. From x = 0
        // it passes under the roof's near edge.
        {3, {1, 1, 0}, 0, 1, {64, 64, 56}, {{4, 0, 128}, {4, 1, 255}, {4, 2, 128}, {4, 5, 128}}},
        // Texel column 0 holds samples at x 0 (no ground) and x 16: sum 510, 510 / 2 / 2 = 127.
        {4, {0, 1, 0}, 0, 2, {256, 240, 240}, {{0, 0, 192}, {0, 1, 0}}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.map);
        ShadowSettings.Light = r.light;
        ShadowSettings.Ambient = r.ambient;
        ShadowSettings.Oversample = r.oversample;
        std::string file = Bake(maps[r.map].get());
        ASSERT_EQ(file.size(), 256u * 256u);  // a single bake writes the whole square
        for (auto [row, column, byte] : r.bytes)
            EXPECT_EQ(FileByte(file, row, column), byte) << row << ", " << column;
        EXPECT_EQ(std::make_tuple(stats.samples, stats.groundHits, stats.litSamples), r.counts);
    }
    // Each bake reuses the texture, its sums cleared; another size makes a new one.
    EXPECT_EQ(ShadowTexture->flags, 0xA4u);
    // A zero light can't be normalised: the whole map stays at the ambient, with a warning.
    ShadowSettings.Light = {0, 0, 0};
    ShadowSettings.Ambient = 128;
    ShadowSettings.TextureSize = 128;
    DebugCapture capture;
    EXPECT_EQ(FileByte(Bake(maps[0].get()), 2, 2), 127);
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

// Three bakes of random maps at 1, 2 and 4 threads, alone and then all three at once on their own
// threads: the same bytes, since a bake reads nothing of the process's state.
TEST_F(BakePass, SameBytesAloneOrBesideOtherBakes) {
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
        jobs[i].core.threads = 1 << i;
        jobs[i].texture = CreateTexture(1024, 1024, TextureFormat8888);  // reused, not made
        jobs[i].shadowMapPath = dir->File("alone" + std::to_string(i));
        ASSERT_EQ(BakeShadowMap(jobs[i]).texture, jobs[i].texture);
        alone[i] = ReadWholeFile(jobs[i].shadowMapPath);
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

    // Light scaled by level >> 8 plus shadow, capped, red unmasked; alpha -(level + 1).
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

auto Fields(const ShadowSettingsRecord& s) {
    auto bits = [](float f) { return std::bit_cast<uint32_t>(f); };  // a NaN equals itself
    return std::make_tuple(bits(s.Light.x), bits(s.Light.y), bits(s.Light.z), s.ShadowColour, s.LightColour,
                           s.Ambient, s.Oversample, s.TextureSize, s.MapCellsX, s.MapCellsY,
                           std::string(s.LitFile), s.FrameCount, s.WriteHeightData);
}

class ShadowScript : public BakeFixture {
protected:
    void SetUp() override {
        BakeFixture::SetUp();
        MessageLogClear();
    }
    // Values unlike the defaults; returns what any read leaves of them (two fields reset).
    static ShadowSettingsRecord Seed() {
        ShadowSettings = {{0.25f, -0.5f, 2}, 0x112233, 0x445566, 77, 4, 1024, 64, 128,
                          "kept.lit",        9,        1};
        ShadowSettingsRecord afterRead = ShadowSettings;
        afterRead.FrameCount = afterRead.WriteHeightData = 0;
        return afterRead;
    }
    bool Parse(const std::string& contents, ShadowScriptReport* report = nullptr) {
        WriteWholeFile(dir->File("script.ssf"), contents);
        return ParseShadowScript(dir->File("script.ssf").c_str(), report);
    }
};

using Change = std::function<void(ShadowSettingsRecord&)>;
const Change None = [](ShadowSettingsRecord&) {};

// Each script changes exactly what its row says over the seeded settings, and warns as it says. A
// key takes exactly its values; one that does not convert is read again as the next word. A SCRIPT
// word names only a plain file in the LIT folder: the run copies it beside the map.
TEST_F(ShadowScript, ScriptChangesOnlyWhatItNamesAndWarnsOfWhatItCannotTake) {
    auto lit = [](const std::string& shown, const char* fault) {
        return "SCRIPT " + shown + " " + fault + "; the light description stays kept.lit\n";
    };
    auto litFile = [](const std::string& name) {
        return [name](ShadowSettingsRecord& s) { std::strcpy(s.LitFile, name.c_str()); };
    };
    const Change ambient5 = [](auto& s) { s.Ambient = 5; };
    const Change light123 = [](auto& s) { s.Light = {1, 2, 3}; };
    const std::string c259(259, 'c'), c260(260, 'c');
    auto keeps = [](const char* n) {
        return "OVERSAMPLE " + std::string(n) + " is not 1, 2, 4, 8 or 16; the bake keeps 4\n";
    };
    auto noLight = [](const char* light) {
        return "LIGHT " + std::string(light) +
               " is no direction; the bake finds no light, so the whole map gets the ambient level\n";
    };
    auto overlong = [](char c) {
        return "the word " + std::string(40, c) + "... is longer than 199 characters; skipped\n";
    };
    const std::tuple<std::string, Change, int, int, std::string> rows[] = {
        // script, change, keys, other words, warnings (each without "Script <path>: ")
        {"light 1 2 3\nAmBiEnT 5\nscript Other.LIT\nLIGHT_COLOUR 1 2 3\n",
         [](auto& s) {
             s.Light = {1, 2, 3}, s.Ambient = 5, s.LightColour = 0x010203;
             std::strcpy(s.LitFile, "Other.LIT");
         },
         4, 0, ""},
        {"AMBIENT 10 a remark of plain words AMBIENT 20 ANIMATED 3 HEIGHTDATA",
         [](auto& s) { s.Ambient = 20, s.FrameCount = 3, s.WriteHeightData = 1; }, 4, 5, ""},
        {"", None, 0, 0, ""},
        {" \n\t\r\n  \v\f ", None, 0, 0, ""},
        {"TEXTURE_SIZE 512 9", None, 1, 1, ""},  // no key sets TextureSize or MapCells
        {"MAPSIZE 512 256 9", None, 1, 1, ""},
        // Values the bake takes or leaves as written, each with one warning of what it makes of them.
        {"OVERSAMPLE 3 OVERSAMPLE 0 OVERSAMPLE 17 OVERSAMPLE -16", None, 4, 0,
         keeps("3") + keeps("0") + keeps("17") + keeps("-16")},
        {"AMBIENT -5000", [](auto& s) { s.Ambient = -5000; }, 1, 0,
         "AMBIENT -5000 is below 0; light levels wrap around below 0, so unlit texels bake as "
         "with AMBIENT 120\n"},
        {"AMBIENT 256 AMBIENT 255 AMBIENT 0", [](auto& s) { s.Ambient = 0; }, 3, 0,
         "AMBIENT 256 is above 255; every texel bakes at the level 255\n"},
        {"LIGHT nan nan nan", [](auto& s) { s.Light = {NAN, NAN, NAN}; }, 1, 0, noLight("nan nan nan")},
        {"LIGHT inf 1 0", [](auto& s) { s.Light = {INFINITY, 1, 0}; }, 1, 0, noLight("inf 1 0")},
        {"OVERSAMPLE 2", [](auto& s) { s.Oversample = 2; }, 1, 0, ""},
        {"OVERSAMPLE 16 OVERSAMPLE 1", [](auto& s) { s.Oversample = 1; }, 2, 0, ""},
        {"OVERSAMPLE 8", [](auto& s) { s.Oversample = 8; }, 1, 0, ""},
        {"OVERSAMPLE 8 OVERSAMPLE 4", None, 2, 0, ""},
        {"TEXTURE_SIZE 512 AMBIENT 64", [](auto& s) { s.Ambient = 64; }, 2, 0, ""},
        {"MAPSIZE 512 256\nAMBIENT 65", [](auto& s) { s.Ambient = 65; }, 2, 0, ""},
        {"FAST AMBIENT 66", [](auto& s) { s.Ambient = 66; }, 2, 0, ""},
        {"FULLSCREEN AMBIENT 67", [](auto& s) { s.Ambient = 67; }, 2, 0, ""},
        {"SCRIPT AMBIENT 68", [](auto& s) { std::strcpy(s.LitFile, "AMBIENT"); }, 1, 1, ""},
        // Colours are packed unmasked: out of range components spill into their neighbours.
        {"SHADOW_COLOUR 16 32 48\nLIGHT_COLOUR 255 0 1",
         [](auto& s) { s.ShadowColour = 0x102030, s.LightColour = 0xFF0001; }, 2, 0, ""},
        {"SHADOW_COLOUR 1 0 256\nLIGHT_COLOUR -1 0 0",
         [](auto& s) { s.ShadowColour = 0x010100, s.LightColour = 0xFFFF0000; }, 2, 0,
         "SHADOW_COLOUR 1 0 256 has a component outside 0 to 255; the colour is packed unmasked as "
         "0x10100\nLIGHT_COLOUR -1 0 0 has a component outside 0 to 255; the colour is packed "
         "unmasked as 0xFFFF0000\n"},
        // The end of the file ends words and values; values cut off leave the field alone.
        {"LIGHT 1 2\n3", light123, 1, 0, ""},
        {"SCRIPT last.lit", [](auto& s) { std::strcpy(s.LitFile, "last.lit"); }, 1, 0, ""},
        {"AMBIENT 1\nHEIGHTDATA", [](auto& s) { s.Ambient = 1, s.WriteHeightData = 1; }, 2, 0, ""},
        {"LIGHT 5 6", None, 1, 0, ""},
        {"AMBIENT", None, 1, 0, ""},
        {"SCRIPT  \n", None, 1, 0, ""},
        {"LIGHT 1 2 abc", None, 1, 1, ""},
        {"AMBIENT x", None, 1, 1, ""},
        {"LIGHT 1 2 ambient 7", [](auto& s) { s.Ambient = 7; }, 2, 0, ""},
        {"SHADOW_COLOUR 1 HEIGHTDATA 3\nAMBIENT x OVERSAMPLE 8",
         [](auto& s) { s.WriteHeightData = 1, s.Oversample = 8; }, 4, 2, ""},
        {"a remark LIGHT 1 2 3 FAST words AMBIENT x", light123, 3, 4, ""},
        // fscanf eats a sign or a point before it finds no number; the whole word must still come
        // back, so "-AMBIENT" is one unknown word and never the key behind the sign.
        {"LIGHT 1 2 -AMBIENT 99 ANIMATED .AMBIENT 98", None, 2, 4, ""},
        {"AMBIENT - OVERSAMPLE . LIGHT + + +", None, 3, 5, ""},  // and lone ones end no loop
        // A NUL byte ends the text early: what the buffer holds is not the word.
        {std::string("AMBIENT\0x 9", 11), None, 0, 2, ""},
        {std::string("HEIGHTDATA\0", 11), None, 0, 1, ""},
        // A key at the tail of an overlong word is part of that word, not a word of its own; a word
        // of exactly the buffer's length leaves the next word alone.
        {std::string(193, 'x') + "AMBIENT 64\n" + std::string(199, 'y') + "HEIGHTDATA", None, 0, 3,
         overlong('x') + overlong('y')},
        {std::string(199, 'z') + " AMBIENT 65", [](auto& s) { s.Ambient = 65; }, 1, 1, ""},
        {"SCRIPT ..\\up.lit AMBIENT 5", ambient5, 2, 0,
         lit("..\\up.lit", "holds a path separator")},
        {"SCRIPT ../../etc/passwd AMBIENT 5", ambient5, 2, 0,
         lit("../../etc/passwd", "holds a path separator")},
        {"SCRIPT .. AMBIENT 5", ambient5, 2, 0, lit("..", "names no file")},
        {"SCRIPT . AMBIENT 5", ambient5, 2, 0, lit(".", "names no file")},
        {std::string("SCRIPT \0 AMBIENT 5", 18), ambient5, 2, 0, lit("", "holds a NUL byte")},
        {std::string("SCRIPT noon.lit\0/../x AMBIENT 5", 31), ambient5, 2, 0,
         lit("noon.lit", "holds a NUL byte")},
        {"SCRIPT " + c260 + " AMBIENT 5", ambient5, 2, 0,
         lit(c260.substr(0, 40) + "...", "is longer than 259 characters")},
        {"SCRIPT " + c259, litFile(c259), 1, 0, ""},
        {"SCRIPT ...", litFile("..."), 1, 0, ""},
    };
    for (const auto& [script, change, keys, otherWords, warnings] : rows) {
        SCOPED_TRACE("script '" + script + "'");
        ShadowSettingsRecord expected = Seed();
        change(expected);
        ShadowScriptReport report = {-1, -1};
        ReportCapture reports;
        EXPECT_TRUE(Parse(script, &report));
        EXPECT_EQ(Fields(ShadowSettings), Fields(expected));
        EXPECT_EQ(std::make_pair(report.keys, report.otherWords), std::make_pair(keys, otherWords));
        std::string seen;
        for (const std::string& text : reports.Take())
            seen += text.substr(text.find(": ", text.find(".ssf")) + 2);
        EXPECT_EQ(seen, warnings);
    }
    EXPECT_EQ(MessageLogCount(), 0);
}

TEST_F(ShadowScript, FailedOpenLogsAndResetsOnlyTwoFields) {
    ShadowSettingsRecord expected = Seed();
    EXPECT_FALSE(ParseShadowScript("no/such/dir/missing.ssf"));
    EXPECT_EQ(Fields(ShadowSettings), Fields(expected));
    ASSERT_EQ(MessageLogCount(), 1);
    EXPECT_STREQ(MessageLogLine(0), "***** FAILED TO OPEN SCRIPT no/such/dir/missing.ssf *****");
    expected = Seed();  // a directory opens on Linux, but it is no script
    EXPECT_FALSE(ParseShadowScript(dir->Path().c_str()));
    EXPECT_EQ(Fields(ShadowSettings), Fields(expected));
}

}  // namespace
