#include "tool/bake/shadow_script.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <tuple>

#include "tests/support/report_capture.h"
#include "tests/support/temp_dir.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_settings.h"

namespace {

auto Fields(const ShadowSettingsRecord& s) {
    return std::make_tuple(s.Light.x, s.Light.y, s.Light.z, s.ShadowColour, s.LightColour,
                           s.Ambient, s.Oversample, s.TextureSize, s.MapCellsX, s.MapCellsY,
                           std::string(s.LitFile), s.FrameCount, s.WriteHeightData);
}

class ShadowScript : public ::testing::Test {
protected:
    void SetUp() override {
        ShadowSettings = DefaultShadowSettings();
        MessageLogClear();
    }
    void TearDown() override {
        ShadowSettings = DefaultShadowSettings();
        MessageLogClear();
    }
    // Values unlike the defaults, so that a field a script must leave alone shows if it moved.
    // Returns what any read leaves of them: the two reset fields cleared, the rest as it was.
    static ShadowSettingsRecord Seed() {
        ShadowSettings = {{0.25f, -0.5f, 2.0f}, 0x112233, 0x445566, 77, 4, 1024, 64, 128,
                          "kept.lit",           9,        1};
        ShadowSettingsRecord afterRead = ShadowSettings;
        afterRead.FrameCount = afterRead.WriteHeightData = 0;
        return afterRead;
    }
    bool Parse(const std::string& contents, ShadowScriptReport* report = nullptr) {
        WriteWholeFile(dir.File("script.ssf"), contents);
        return ParseShadowScript(dir.File("script.ssf").c_str(), report);
    }
    TempDir dir;
};

using Change = std::function<void(ShadowSettingsRecord&)>;
const Change None = [](ShadowSettingsRecord&) {};

// Each script is read over the seeded settings and must change exactly what its row says, besides
// the two fields that every read resets. Keys ignore case; a key consumes exactly its values; a
// value that does not convert leaves its field whole and is read again as the next word.
TEST_F(ShadowScript, ScriptChangesOnlyWhatItNames) {
    const std::tuple<std::string, Change, int, int> rows[] = {
        // script, change, keys, other words
        {"light 1 2 3\nAmBiEnT 5\nscript Other.LIT\nLIGHT_COLOUR 1 2 3\n",
         [](auto& s) {
             s.Light = {1, 2, 3}, s.Ambient = 5, s.LightColour = 0x010203;
             std::strcpy(s.LitFile, "Other.LIT");
         },
         4, 0},
        {"AMBIENT 10 a remark of plain words AMBIENT 20 ANIMATED 3 HEIGHTDATA",
         [](auto& s) { s.Ambient = 20, s.FrameCount = 3, s.WriteHeightData = 1; }, 4, 5},
        {"", None, 0, 0},
        {" \n\t\r\n  \v\f ", None, 0, 0},
        {"TEXTURE_SIZE 512", None, 1, 0},  // no key sets TextureSize or MapCells
        {"MAPSIZE 512 256", None, 1, 0},
        {"OVERSAMPLE 3 OVERSAMPLE 0 OVERSAMPLE 17 OVERSAMPLE -16 OVERSAMPLE 32", None, 5, 0},
        {"OVERSAMPLE 2", [](auto& s) { s.Oversample = 2; }, 1, 0},
        {"OVERSAMPLE 16 OVERSAMPLE 1", [](auto& s) { s.Oversample = 1; }, 2, 0},
        {"OVERSAMPLE 8", [](auto& s) { s.Oversample = 8; }, 1, 0},
        {"TEXTURE_SIZE 512 AMBIENT 64", [](auto& s) { s.Ambient = 64; }, 2, 0},
        {"MAPSIZE 512 256\nAMBIENT 65", [](auto& s) { s.Ambient = 65; }, 2, 0},
        {"FAST AMBIENT 66", [](auto& s) { s.Ambient = 66; }, 2, 0},
        {"FULLSCREEN AMBIENT 67", [](auto& s) { s.Ambient = 67; }, 2, 0},
        {"SCRIPT AMBIENT 68", [](auto& s) { std::strcpy(s.LitFile, "AMBIENT"); }, 1, 1},
        // Colours are packed unmasked: out of range components spill into their neighbours.
        {"SHADOW_COLOUR 16 32 48\nLIGHT_COLOUR 255 0 1",
         [](auto& s) { s.ShadowColour = 0x102030, s.LightColour = 0xFF0001; }, 2, 0},
        {"SHADOW_COLOUR 1 0 256\nLIGHT_COLOUR -1 0 0",
         [](auto& s) { s.ShadowColour = 0x010100, s.LightColour = 0xFFFF0000; }, 2, 0},
        // The end of the file ends words and values; values cut off leave the field alone.
        {"LIGHT 1 2\n3",
         [](auto& s) {
             s.Light = {1, 2, 3};
         },
         1, 0},
        {"SCRIPT last.lit", [](auto& s) { std::strcpy(s.LitFile, "last.lit"); }, 1, 0},
        {"AMBIENT 1\nHEIGHTDATA", [](auto& s) { s.Ambient = 1, s.WriteHeightData = 1; }, 2, 0},
        {"LIGHT 5 6", None, 1, 0},
        {"SHADOW_COLOUR 1 2\n", None, 1, 0},
        {"AMBIENT", None, 1, 0},
        {"SCRIPT  \n", None, 1, 0},
        {"ANIMATED", None, 1, 0},
        {"LIGHT 1 2 abc", None, 1, 1},
        {"AMBIENT x", None, 1, 1},
        {"SHADOW_COLOUR 1 2 z", None, 1, 1},
        {"LIGHT 1 2 ambient 7", [](auto& s) { s.Ambient = 7; }, 2, 0},
        {"SHADOW_COLOUR 1 HEIGHTDATA 3\nAMBIENT x OVERSAMPLE 8",
         [](auto& s) { s.WriteHeightData = 1, s.Oversample = 8; }, 4, 2},
        {"a remark LIGHT 1 2 3 FAST words AMBIENT x",
         [](auto& s) {
             s.Light = {1, 2, 3};
         },
         3, 4},
        // fscanf eats a sign or a point before it finds no number; the whole word must still come
        // back, so "-AMBIENT" is one unknown word and never the key behind the sign.
        {"LIGHT 1 2 -AMBIENT 99 ANIMATED .AMBIENT 98", None, 2, 4},
        {"AMBIENT - OVERSAMPLE . LIGHT + + +", None, 3, 5},  // and lone ones end no loop
        {"AMBIENT -", None, 1, 1},
        // A NUL byte ends the text early: what the buffer holds is not the word.
        {std::string("AMBIENT\0x 9", 11), None, 0, 2},
        {std::string("HEIGHTDATA\0", 11), None, 0, 1},
    };
    for (const auto& [script, change, keys, otherWords] : rows) {
        SCOPED_TRACE("script '" + script + "'");
        ShadowSettingsRecord expected = Seed();
        change(expected);
        ShadowScriptReport report = {-1, -1};
        EXPECT_TRUE(Parse(script, &report));
        EXPECT_EQ(Fields(ShadowSettings), Fields(expected));
        EXPECT_EQ(report.keys, keys);
        EXPECT_EQ(report.otherWords, otherWords);
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
    EXPECT_FALSE(ParseShadowScript(dir.Path().c_str()));
    EXPECT_EQ(Fields(ShadowSettings), Fields(expected));
}

TEST_F(ShadowScript, OverlongWordsAreSkippedWholeWithAWarning) {
    ReportCapture reports;
    const std::string prefix = "Script " + dir.File("script.ssf") + ": the word ";
    // A key at the tail of an overlong word is part of that word, not a word of its own.
    EXPECT_TRUE(
        Parse(std::string(193, 'x') + "AMBIENT 64\n" + std::string(199, 'y') + "HEIGHTDATA"));
    EXPECT_EQ(ShadowSettings.Ambient, 128);
    EXPECT_EQ(ShadowSettings.WriteHeightData, 0);
    EXPECT_EQ(reports.warnings, 2);
    EXPECT_EQ(reports.lastWarning,
              prefix + std::string(40, 'y') + "... is longer than 199 characters; skipped\n");
    // A word of exactly the buffer's length leaves the next word alone.
    EXPECT_TRUE(Parse(std::string(199, 'z') + " AMBIENT 65"));
    EXPECT_EQ(ShadowSettings.Ambient, 65);
    EXPECT_EQ(reports.warnings, 2);
}

// The run copies LIT/<name> beside the map: a name that climbs or is cut would copy some other
// file. The name is consumed either way, so the reader stays in step.
TEST_F(ShadowScript, ScriptNamesOnlyAPlainFileInTheLitFolder) {
    const std::string refused[] = {"../../../../etc/passwd",
                                   "/etc/passwd",
                                   "lights/noon.lit",
                                   "..\\up.lit",
                                   "noon.lit/",
                                   "..",
                                   ".",
                                   std::string("\0", 1),
                                   std::string("noon.lit\0/../x", 14),
                                   std::string(260, 'c')};
    for (const std::string& name : refused) {
        SCOPED_TRACE(name);
        ReportCapture reports;
        ShadowSettingsRecord expected = Seed();
        expected.Ambient = 5;
        EXPECT_TRUE(Parse("SCRIPT " + name + " AMBIENT 5"));
        EXPECT_EQ(Fields(ShadowSettings), Fields(expected));
        ASSERT_EQ(reports.warnings, 1);
        // A long name shows by its start, and a NUL ends what can be shown.
        const std::string shown =
            name.size() >= 260 ? name.substr(0, 40) + "..." : name.substr(0, name.find('\0'));
        EXPECT_EQ(reports.lastWarning.find("Script " + dir.File("script.ssf") + ": SCRIPT " +
                                           shown + " "),
                  0u);
        EXPECT_NE(reports.lastWarning.find("; the light description stays kept.lit\n"),
                  std::string::npos);
    }
    for (const std::string& name : {std::string("noon.lit"), std::string("..lit"),
                                    std::string("..."), std::string(259, 'c')}) {
        ReportCapture reports;
        EXPECT_TRUE(Parse("SCRIPT " + name));
        EXPECT_EQ(ShadowSettings.LitFile, name);
        EXPECT_EQ(reports.warnings, 0) << name;
    }
}

TEST_F(ShadowScript, GarbageNeverCrashesOrStalls) {
    std::mt19937 random(1234);
    for (int round = 0; round < 40; ++round) {
        std::string bytes(1 + random() % 3000, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random() % 256);
        if (round % 4 == 0) bytes.replace(0, 2, "\0\0", 2);
        ShadowSettings = DefaultShadowSettings();
        EXPECT_TRUE(Parse(bytes + "\nOVERSAMPLE 2\nAMBIENT 33\n"));
        EXPECT_EQ(ShadowSettings.Ambient, 33) << round;
        EXPECT_EQ(ShadowSettings.Oversample, 2) << round;
    }
}

}  // namespace
