#include "tool/bake/shadow_script.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "tests/support/report_capture.h"
#include "tests/support/temp_dir.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_settings.h"

namespace {

void ExpectSameSettings(const ShadowSettingsRecord& expected) {
    const ShadowSettingsRecord& actual = ShadowSettings;
    EXPECT_EQ(expected.Light.x, actual.Light.x);
    EXPECT_EQ(expected.Light.y, actual.Light.y);
    EXPECT_EQ(expected.Light.z, actual.Light.z);
    EXPECT_EQ(expected.ShadowColour, actual.ShadowColour);
    EXPECT_EQ(expected.LightColour, actual.LightColour);
    EXPECT_EQ(expected.Ambient, actual.Ambient);
    EXPECT_EQ(expected.Oversample, actual.Oversample);
    EXPECT_EQ(expected.TextureSize, actual.TextureSize);
    EXPECT_EQ(expected.MapCellsX, actual.MapCellsX);
    EXPECT_EQ(expected.MapCellsY, actual.MapCellsY);
    EXPECT_STREQ(expected.LitFile, actual.LitFile);
    EXPECT_EQ(expected.FrameCount, actual.FrameCount);
    EXPECT_EQ(expected.WriteHeightData, actual.WriteHeightData);
}

class ShadowScriptTest : public ::testing::Test {
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
        ShadowSettings.Light = {0.25f, -0.5f, 2.0f};
        ShadowSettings.ShadowColour = 0x00112233;
        ShadowSettings.LightColour = 0x00445566;
        ShadowSettings.Ambient = 77;
        ShadowSettings.Oversample = 4;
        ShadowSettings.TextureSize = 1024;
        ShadowSettings.MapCellsX = 64;
        ShadowSettings.MapCellsY = 128;
        std::strcpy(ShadowSettings.LitFile, "kept.lit");
        ShadowSettings.FrameCount = 9;
        ShadowSettings.WriteHeightData = 1;
        ShadowSettingsRecord afterRead = ShadowSettings;
        afterRead.FrameCount = 0;
        afterRead.WriteHeightData = 0;
        return afterRead;
    }

    bool Parse(const std::string& contents) {
        std::string path = dir.File("script.ssf");
        WriteWholeFile(path, contents);
        return ParseShadowScript(path.c_str());
    }

    // Each script, read over seeded settings, changes no field but the two that every read resets.
    void ExpectNoChangeFrom(std::initializer_list<std::string> scripts) {
        for (const std::string& script : scripts) {
            SCOPED_TRACE("script '" + script + "'");
            ShadowSettingsRecord expected = Seed();
            EXPECT_TRUE(Parse(script));
            ExpectSameSettings(expected);
        }
    }

    TempDir dir;
};

TEST_F(ShadowScriptTest, ScriptOverwritesOnlyWhatItNames) {
    ShadowSettingsRecord expected = Seed();
    // Keys ignore case; the light is stored as given, not normalised.
    EXPECT_TRUE(Parse("light 1 2 3\nAmBiEnT 5\nscript Other.LIT\nLIGHT_COLOUR 1 2 3\n"));
    expected.Light = {1.0f, 2.0f, 3.0f};
    expected.Ambient = 5;
    expected.LightColour = 0x00010203;
    std::strcpy(expected.LitFile, "Other.LIT");
    ExpectSameSettings(expected);

    // The last occurrence counts; unknown words are skipped one by one.
    EXPECT_TRUE(Parse("AMBIENT 10 a remark of plain words AMBIENT 20 ANIMATED 3 HEIGHTDATA"));
    EXPECT_EQ(20, ShadowSettings.Ambient);
    EXPECT_EQ(3, ShadowSettings.FrameCount);
    EXPECT_EQ(1, ShadowSettings.WriteHeightData);

    // Empty and white space only files count as read; no key sets TextureSize or MapCells.
    ExpectNoChangeFrom({"", " \n\t\r\n  \v\f ", "TEXTURE_SIZE 512", "MAPSIZE 512 256"});
    EXPECT_EQ(0, MessageLogCount());
}

TEST_F(ShadowScriptTest, OversampleTakesOnlyPowersOfTwoUpTo16) {
    ShadowSettings.Oversample = 4;
    for (const char* bad : {"3", "0", "17", "-16", "32"}) {
        EXPECT_TRUE(Parse(std::string("OVERSAMPLE ") + bad));
        EXPECT_EQ(4, ShadowSettings.Oversample) << bad;
    }
    for (int good : {1, 2, 8, 16}) {
        EXPECT_TRUE(Parse("OVERSAMPLE " + std::to_string(good)));
        EXPECT_EQ(good, ShadowSettings.Oversample);
    }
}

TEST_F(ShadowScriptTest, KeysConsumeExactlyTheirValues) {
    const std::pair<const char*, int> cases[] = {
        {"TEXTURE_SIZE 512 AMBIENT 64", 64},
        {"MAPSIZE 512 256\nAMBIENT 65", 65},
        // FAST and FULLSCREEN take no value, so the next word is a key again.
        {"FAST AMBIENT 66", 66},
        {"FULLSCREEN AMBIENT 67", 67},
        // SCRIPT takes any one word, a key included.
        {"SCRIPT AMBIENT 68", 67}};
    for (const auto& [script, ambient] : cases) {
        EXPECT_TRUE(Parse(script));
        EXPECT_EQ(ambient, ShadowSettings.Ambient) << script;
    }
    EXPECT_STREQ("AMBIENT", ShadowSettings.LitFile);
}

TEST_F(ShadowScriptTest, ColoursArePackedUnmasked) {
    EXPECT_TRUE(Parse("SHADOW_COLOUR 16 32 48\nLIGHT_COLOUR 255 0 1"));
    EXPECT_EQ(0x00102030u, ShadowSettings.ShadowColour);
    EXPECT_EQ(0x00FF0001u, ShadowSettings.LightColour);
    // Out of range components spill into their neighbours and above bit 23.
    EXPECT_TRUE(Parse("SHADOW_COLOUR 1 0 256\nLIGHT_COLOUR -1 0 0"));
    EXPECT_EQ(0x00010100u, ShadowSettings.ShadowColour);
    EXPECT_EQ(0xFFFF0000u, ShadowSettings.LightColour);
}

TEST_F(ShadowScriptTest, FailedOpenLogsAndResetsOnlyTwoFields) {
    ShadowSettingsRecord expected = Seed();
    EXPECT_FALSE(ParseShadowScript("no/such/dir/missing.ssf"));
    ExpectSameSettings(expected);
    ASSERT_EQ(1, MessageLogCount());
    EXPECT_STREQ("***** FAILED TO OPEN SCRIPT no/such/dir/missing.ssf *****", MessageLogLine(0));

    // A directory opens on Linux but every read fails; the error must end the loop too.
    expected = Seed();
    ParseShadowScript(dir.Path().c_str());
    ExpectSameSettings(expected);
}

TEST_F(ShadowScriptTest, EndOfFileEndsWordsAndValues) {
    EXPECT_TRUE(Parse("LIGHT 1 2\n3"));
    EXPECT_EQ(3.0f, ShadowSettings.Light.z);
    EXPECT_TRUE(Parse("SCRIPT last.lit"));
    EXPECT_STREQ("last.lit", ShadowSettings.LitFile);
    EXPECT_TRUE(Parse("AMBIENT 1\nHEIGHTDATA"));
    EXPECT_EQ(1, ShadowSettings.WriteHeightData);
    // Values cut off by the end of the file leave the field alone.
    ExpectNoChangeFrom({"LIGHT 5 6", "SHADOW_COLOUR 1 2\n", "AMBIENT", "SCRIPT  \n", "ANIMATED"});
}

TEST_F(ShadowScriptTest, UnconvertedValueIsReadAsTheNextWord) {
    // A value that fails leaves its field whole, and the word is read again as a word.
    ExpectNoChangeFrom({"LIGHT 1 2 abc", "AMBIENT x", "SHADOW_COLOUR 1 2 z"});
    ShadowSettingsRecord seeded = Seed();
    EXPECT_TRUE(Parse("LIGHT 1 2 ambient 7"));
    EXPECT_EQ(seeded.Light.x, ShadowSettings.Light.x);
    EXPECT_EQ(7, ShadowSettings.Ambient);
    EXPECT_TRUE(Parse("SHADOW_COLOUR 1 HEIGHTDATA 3\nAMBIENT x OVERSAMPLE 8"));
    EXPECT_EQ(seeded.ShadowColour, ShadowSettings.ShadowColour);
    EXPECT_EQ(1, ShadowSettings.WriteHeightData);
    EXPECT_EQ(8, ShadowSettings.Oversample);

    // fscanf eats a sign or a point before it finds no number; the whole word must still come
    // back, so "-AMBIENT" is one unknown word and never the key behind the sign.
    EXPECT_TRUE(Parse("LIGHT 1 2 -AMBIENT 99 ANIMATED .AMBIENT 98"));
    EXPECT_EQ(7, ShadowSettings.Ambient);
    EXPECT_EQ(0, ShadowSettings.FrameCount);
    // Lone signs and points at the end must not hold the reader in a loop.
    EXPECT_TRUE(Parse("AMBIENT - OVERSAMPLE . LIGHT + + +"));
    EXPECT_TRUE(Parse("AMBIENT -"));
    EXPECT_EQ(7, ShadowSettings.Ambient);
}

TEST_F(ShadowScriptTest, OverlongWordsAreSkippedWholeWithAWarning) {
    ReportCapture reports;
    const std::string prefix = "Script " + dir.File("script.ssf") + ": the word ";
    // A key at the tail of an overlong word is part of that word, not a word of its own.
    EXPECT_TRUE(
        Parse(std::string(193, 'x') + "AMBIENT 64\n" + std::string(199, 'y') + "HEIGHTDATA"));
    EXPECT_EQ(128, ShadowSettings.Ambient);
    EXPECT_EQ(0, ShadowSettings.WriteHeightData);
    EXPECT_EQ(2, reports.warnings);
    EXPECT_EQ(prefix + std::string(40, 'y') + "... is longer than 199 characters; skipped\n",
              reports.lastWarning);
    // A word of exactly the buffer's length leaves the next word alone.
    EXPECT_TRUE(Parse(std::string(199, 'z') + " AMBIENT 65"));
    EXPECT_EQ(65, ShadowSettings.Ambient);
    EXPECT_EQ(2, reports.warnings);
    // A NUL byte ends the text early: what the buffer holds is not the word.
    ExpectNoChangeFrom({std::string("AMBIENT\0x 9", 11), std::string("HEIGHTDATA\0", 11)});
}

TEST_F(ShadowScriptTest, ScriptNamesOnlyAPlainFileInTheLitFolder) {
    // The run copies LIT/<name> beside the map: a name that climbs or is cut would copy some other
    // file. The name is consumed either way, so the reader stays in step.
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
        EXPECT_TRUE(Parse("SCRIPT " + name + " AMBIENT 5"));
        expected.Ambient = 5;
        ExpectSameSettings(expected);
        ASSERT_EQ(1, reports.warnings);
        // A long name shows by its start, and a NUL ends what can be shown.
        const std::string shown =
            name.size() >= 260 ? name.substr(0, 40) + "..." : name.substr(0, name.find('\0'));
        EXPECT_EQ(0u, reports.lastWarning.find("Script " + dir.File("script.ssf") + ": SCRIPT " +
                                               shown + " "));
        EXPECT_NE(std::string::npos,
                  reports.lastWarning.find("; the light description stays kept.lit\n"));
    }
    for (const std::string& name : {std::string("noon.lit"), std::string("..lit"),
                                    std::string("..."), std::string(259, 'c')}) {
        ReportCapture reports;
        EXPECT_TRUE(Parse("SCRIPT " + name));
        EXPECT_EQ(name, ShadowSettings.LitFile);
        EXPECT_EQ(0, reports.warnings) << name;
    }
}

TEST_F(ShadowScriptTest, GarbageNeverCrashesOrStalls) {
    std::mt19937 random(1234);
    for (int round = 0; round < 40; ++round) {
        std::string bytes(1 + random() % 3000, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random() % 256);
        if (round % 4 == 0) bytes.replace(0, 2, "\0\0", 2);
        EXPECT_TRUE(Parse(bytes + "\nOVERSAMPLE 2\nAMBIENT 33\n"));
        EXPECT_EQ(33, ShadowSettings.Ambient) << round;
        EXPECT_EQ(2, ShadowSettings.Oversample) << round;
        ShadowSettings = DefaultShadowSettings();
    }
}

TEST_F(ShadowScriptTest, ReportCountsKeysAndOtherWords) {
    std::string path = dir.File("mixed.ssf");
    WriteWholeFile(path, "a remark LIGHT 1 2 3 FAST words AMBIENT x");
    ShadowScriptReport report = {-1, -1};
    ASSERT_TRUE(ParseShadowScript(path.c_str(), &report));
    EXPECT_EQ(report.keys, 3);        // LIGHT, FAST, AMBIENT (whose value failed)
    EXPECT_EQ(report.otherWords, 4);  // a, remark, words, and the x that AMBIENT left
    WriteWholeFile(path, "");
    ASSERT_TRUE(ParseShadowScript(path.c_str(), &report));
    EXPECT_EQ(report.keys + report.otherWords, 0);
}

}  // namespace
