#include "tool/bake/shadow_script.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
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
        ShadowSettings = {{0.25f, -0.5f, 2}, 0x112233, 0x445566, 77, 4, 1024, 64, 128,
                          "kept.lit",        9,        1};
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
// the two fields that every read resets, and warn as it says. Keys ignore case; a key consumes
// exactly its values; a value that does not convert leaves its field whole and is read again as
// the next word. A SCRIPT word names only a plain file in the LIT folder (the run copies it beside
// the map, so a name that climbs or is cut would copy some other file), and is consumed either way.
TEST_F(ShadowScript, ScriptChangesOnlyWhatItNamesAndWarnsOfWhatItCannotTake) {
    auto lit = [](const std::string& shown, const char* fault) {
        return "SCRIPT " + shown + " " + fault + "; the light description stays kept.lit\n";
    };
    auto litFile = [](const std::string& name) {
        return [name](ShadowSettingsRecord& s) { std::strcpy(s.LitFile, name.c_str()); };
    };
    const Change ambient5 = [](auto&s) { s.Ambient = 5; }, light123 = [](auto&s) {
        s.Light = {1, 2, 3};
    };
    const std::string c259(259, 'c'), c260(260, 'c');
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
        {"TEXTURE_SIZE 512", None, 1, 0, ""},  // no key sets TextureSize or MapCells
        {"MAPSIZE 512 256", None, 1, 0, ""},
        {"OVERSAMPLE 3 OVERSAMPLE 0 OVERSAMPLE 17 OVERSAMPLE -16 OVERSAMPLE 32", None, 5, 0, ""},
        {"OVERSAMPLE 2", [](auto& s) { s.Oversample = 2; }, 1, 0, ""},
        {"OVERSAMPLE 16 OVERSAMPLE 1", [](auto& s) { s.Oversample = 1; }, 2, 0, ""},
        {"OVERSAMPLE 8", [](auto& s) { s.Oversample = 8; }, 1, 0, ""},
        {"TEXTURE_SIZE 512 AMBIENT 64", [](auto& s) { s.Ambient = 64; }, 2, 0, ""},
        {"MAPSIZE 512 256\nAMBIENT 65", [](auto& s) { s.Ambient = 65; }, 2, 0, ""},
        {"FAST AMBIENT 66", [](auto& s) { s.Ambient = 66; }, 2, 0, ""},
        {"FULLSCREEN AMBIENT 67", [](auto& s) { s.Ambient = 67; }, 2, 0, ""},
        {"SCRIPT AMBIENT 68", [](auto& s) { std::strcpy(s.LitFile, "AMBIENT"); }, 1, 1, ""},
        // Colours are packed unmasked: out of range components spill into their neighbours.
        {"SHADOW_COLOUR 16 32 48\nLIGHT_COLOUR 255 0 1",
         [](auto& s) { s.ShadowColour = 0x102030, s.LightColour = 0xFF0001; }, 2, 0, ""},
        {"SHADOW_COLOUR 1 0 256\nLIGHT_COLOUR -1 0 0",
         [](auto& s) { s.ShadowColour = 0x010100, s.LightColour = 0xFFFF0000; }, 2, 0, ""},
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
        {"SCRIPT noon.lit/ AMBIENT 5", ambient5, 2, 0, lit("noon.lit/", "holds a path separator")},
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
    EXPECT_FALSE(ParseShadowScript(dir.Path().c_str()));
    EXPECT_EQ(Fields(ShadowSettings), Fields(expected));
}

}  // namespace
