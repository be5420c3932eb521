#include "tool/shadow_script.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "tests/support/temp_dir.h"
#include "tool/message_log.h"
#include "tool/shadow_settings.h"

namespace {

void ExpectSameSettings(const ShadowSettingsRecord& expected, const ShadowSettingsRecord& actual) {
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
    static void SeedSettings() {
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
    }

    bool Parse(const std::string& contents) {
        std::string path = dir.File("script.ssf");
        WriteWholeFile(path, contents);
        return ParseShadowScript(path.c_str());
    }

    // What any read leaves of the record: the two reset fields cleared, the rest as it was.
    static ShadowSettingsRecord AfterReset(ShadowSettingsRecord settings) {
        settings.FrameCount = 0;
        settings.WriteHeightData = 0;
        return settings;
    }

    TempDir dir;
};

TEST_F(ShadowScriptTest, ScriptOverwritesOnlyWhatItNames) {
    SeedSettings();
    ShadowSettingsRecord expected = AfterReset(ShadowSettings);
    EXPECT_TRUE(Parse("LIGHT 0 1 0\n"));
    expected.Light = {0.0f, 1.0f, 0.0f};
    ExpectSameSettings(expected, ShadowSettings);

    // Keys ignore case; the light is stored as given, not normalised.
    EXPECT_TRUE(Parse("light 1 2 3\nAmBiEnT 5\nscript Other.LIT\n"));
    expected.Light = {1.0f, 2.0f, 3.0f};
    expected.Ambient = 5;
    std::strcpy(expected.LitFile, "Other.LIT");
    ExpectSameSettings(expected, ShadowSettings);

    // The last occurrence counts; unknown words are skipped one by one.
    EXPECT_TRUE(Parse("AMBIENT 10 a remark of plain words AMBIENT 20 ANIMATED 3 HEIGHTDATA"));
    EXPECT_EQ(20, ShadowSettings.Ambient);
    EXPECT_EQ(3, ShadowSettings.FrameCount);
    EXPECT_EQ(1, ShadowSettings.WriteHeightData);
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
    SeedSettings();
    ShadowSettingsRecord seeded = ShadowSettings;
    EXPECT_TRUE(Parse("TEXTURE_SIZE 512 AMBIENT 64"));
    EXPECT_EQ(1024, ShadowSettings.TextureSize);
    EXPECT_EQ(64, ShadowSettings.Ambient);

    EXPECT_TRUE(Parse("MAPSIZE 512 256\nAMBIENT 65"));
    EXPECT_EQ(seeded.MapCellsX, ShadowSettings.MapCellsX);
    EXPECT_EQ(seeded.MapCellsY, ShadowSettings.MapCellsY);
    EXPECT_EQ(65, ShadowSettings.Ambient);

    // FAST and FULLSCREEN take no value, so the next word is a key again.
    EXPECT_TRUE(Parse("FAST AMBIENT 66"));
    EXPECT_EQ(66, ShadowSettings.Ambient);
    EXPECT_TRUE(Parse("FULLSCREEN SCRIPT next.lit"));
    EXPECT_STREQ("next.lit", ShadowSettings.LitFile);

    // SCRIPT takes any one word, a key included.
    EXPECT_TRUE(Parse("SCRIPT AMBIENT 67"));
    EXPECT_STREQ("AMBIENT", ShadowSettings.LitFile);
    EXPECT_EQ(66, ShadowSettings.Ambient);
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

TEST_F(ShadowScriptTest, EachReadResetsOnlyFramesAndHeightData) {
    EXPECT_TRUE(Parse("ANIMATED 10\nHEIGHTDATA\nAMBIENT 50\nOVERSAMPLE 8\nSCRIPT first.lit\n"));
    EXPECT_EQ(10, ShadowSettings.FrameCount);
    EXPECT_EQ(1, ShadowSettings.WriteHeightData);
    ShadowSettingsRecord expected = AfterReset(ShadowSettings);

    EXPECT_TRUE(Parse("LIGHT_COLOUR 1 2 3\n"));
    expected.LightColour = 0x00010203;
    ExpectSameSettings(expected, ShadowSettings);

    // Empty and white space only files count as read and change nothing else.
    SeedSettings();
    expected = AfterReset(ShadowSettings);
    EXPECT_TRUE(Parse(""));
    ExpectSameSettings(expected, ShadowSettings);
    SeedSettings();
    EXPECT_TRUE(Parse(" \n\t\r\n  \v\f "));
    ExpectSameSettings(expected, ShadowSettings);
    EXPECT_EQ(0, MessageLogCount());
}

TEST_F(ShadowScriptTest, FailedOpenLogsAndResetsOnlyTwoFields) {
    SeedSettings();
    ShadowSettingsRecord expected = AfterReset(ShadowSettings);
    EXPECT_FALSE(ParseShadowScript("no/such/dir/missing.ssf"));
    ExpectSameSettings(expected, ShadowSettings);
    ASSERT_EQ(1, MessageLogCount());
    EXPECT_STREQ("***** FAILED TO OPEN SCRIPT no/such/dir/missing.ssf *****", MessageLogLine(0));
}

TEST_F(ShadowScriptTest, EndOfFileEndsWordsAndValues) {
    EXPECT_TRUE(Parse("AMBIENT 64"));
    EXPECT_EQ(64, ShadowSettings.Ambient);
    EXPECT_TRUE(Parse("LIGHT 1 2\n3"));
    EXPECT_EQ(3.0f, ShadowSettings.Light.z);
    EXPECT_TRUE(Parse("SCRIPT last.lit"));
    EXPECT_STREQ("last.lit", ShadowSettings.LitFile);
    EXPECT_TRUE(Parse("AMBIENT 1\nHEIGHTDATA"));
    EXPECT_EQ(1, ShadowSettings.WriteHeightData);

    // Values cut off by the end of the file leave the field alone.
    SeedSettings();
    ShadowSettingsRecord expected = AfterReset(ShadowSettings);
    EXPECT_TRUE(Parse("LIGHT 5 6"));
    EXPECT_TRUE(Parse("SHADOW_COLOUR 1 2\n"));
    EXPECT_TRUE(Parse("AMBIENT"));
    EXPECT_TRUE(Parse("SCRIPT  \n"));
    EXPECT_TRUE(Parse("ANIMATED"));
    ExpectSameSettings(expected, ShadowSettings);
}

TEST_F(ShadowScriptTest, UnconvertedValueIsReadAsTheNextWord) {
    SeedSettings();
    ShadowSettingsRecord seeded = ShadowSettings;
    EXPECT_TRUE(Parse("LIGHT 1 2 abc"));
    EXPECT_EQ(seeded.Light.x, ShadowSettings.Light.x);
    EXPECT_EQ(seeded.Light.z, ShadowSettings.Light.z);

    EXPECT_TRUE(Parse("LIGHT 1 2 ambient 7"));
    EXPECT_EQ(seeded.Light.x, ShadowSettings.Light.x);
    EXPECT_EQ(seeded.Light.y, ShadowSettings.Light.y);
    EXPECT_EQ(7, ShadowSettings.Ambient);

    EXPECT_TRUE(Parse("SHADOW_COLOUR 1 HEIGHTDATA 3\nAMBIENT x OVERSAMPLE 8"));
    EXPECT_EQ(seeded.ShadowColour, ShadowSettings.ShadowColour);
    EXPECT_EQ(1, ShadowSettings.WriteHeightData);
    EXPECT_EQ(7, ShadowSettings.Ambient);
    EXPECT_EQ(8, ShadowSettings.Oversample);

    // fscanf eats a sign or a point before it finds no number; the whole word must still come
    // back, so "-AMBIENT" is one unknown word and never the key behind the sign.
    EXPECT_TRUE(Parse("LIGHT 1 2 -AMBIENT 99 ANIMATED .AMBIENT 98"));
    EXPECT_EQ(7, ShadowSettings.Ambient);
    EXPECT_EQ(0, ShadowSettings.FrameCount);
    EXPECT_EQ(seeded.Light.x, ShadowSettings.Light.x);

    // Lone signs and points at the end must not hold the reader in a loop.
    EXPECT_TRUE(Parse("AMBIENT - OVERSAMPLE . LIGHT + + +"));
    EXPECT_TRUE(Parse("AMBIENT -"));
    EXPECT_EQ(7, ShadowSettings.Ambient);
}

TEST_F(ShadowScriptTest, OverlongWordsAreCutAndSkippedWhole) {
    // A key at the tail of an overlong word is part of that word, not a word of its own.
    EXPECT_TRUE(
        Parse(std::string(199, 'x') + "AMBIENT 64\n" + std::string(199, 'y') + "HEIGHTDATA"));
    EXPECT_EQ(128, ShadowSettings.Ambient);
    EXPECT_EQ(0, ShadowSettings.WriteHeightData);

    // A word of exactly the buffer's length leaves the next word alone.
    EXPECT_TRUE(Parse(std::string(199, 'z') + " AMBIENT 65"));
    EXPECT_EQ(65, ShadowSettings.Ambient);

    std::string longName = std::string(259, 'a') + std::string(34, 'b') + "AMBIENT";
    EXPECT_TRUE(Parse("SCRIPT " + longName + " 66 HEIGHTDATA"));
    EXPECT_EQ(std::string(259, 'a'), ShadowSettings.LitFile);
    EXPECT_EQ(65, ShadowSettings.Ambient);
    EXPECT_EQ(1, ShadowSettings.WriteHeightData);

    EXPECT_TRUE(Parse("SCRIPT " + std::string(259, 'c') + " AMBIENT 67"));
    EXPECT_EQ(std::string(259, 'c'), ShadowSettings.LitFile);
    EXPECT_EQ(67, ShadowSettings.Ambient);
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

    // A directory opens on Linux but every read fails; the error must end the loop too.
    SeedSettings();
    ShadowSettingsRecord expected = AfterReset(ShadowSettings);
    ParseShadowScript(dir.Path().c_str());
    ExpectSameSettings(expected, ShadowSettings);
}

}  // namespace

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
