#include "base/velmora_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

using Pieces = std::vector<std::string>;

TEST(VelmoraLog, MessagesOfOneRunAppendWithoutAddedLineEnds) {
    TempDir dir;
    WriteWholeFile("velmora.log", "last run\n");
    VelmoraLogBeginRun();
    DebugCapture capture;

    VelmoraLog("LoadMesh", "first %d", 1);
    VelmoraLog("LoadMesh", "%s", "100% done\n");
    VelmoraLog("ReadTga", "third");

    EXPECT_EQ(ReadWholeFile("velmora.log"),
              "LOG: (LoadMesh) first 1LOG: (LoadMesh) 100% done\nLOG: (ReadTga) third");
    EXPECT_EQ(capture.Pieces(),
              (Pieces{"LOG: (", "LoadMesh", ") ", "first 1", "\n", "LOG: (", "LoadMesh", ") ",
                      "100% done\n", "\n", "LOG: (", "ReadTga", ") ", "third", "\n"}));
}

TEST(VelmoraLog, NewRunEmptiesTheFileOnlyAtItsFirstMessage) {
    TempDir dir;
    VelmoraLogBeginRun();
    VelmoraLog("A", "one\n");

    // A run without messages leaves the last run's file.
    VelmoraLogBeginRun();
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (A) one\n");

    VelmoraLogBeginRun();
    VelmoraLog("B", "two\n");
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (B) two\n");
}

TEST(VelmoraLog, FailedOpenCostsOnlyTheFileCopy) {
    TempDir dir;
    VelmoraLogBeginRun();
    VelmoraLog("A", "before\n");
    std::filesystem::remove("velmora.log");
    std::filesystem::create_directory("velmora.log");

    DebugCapture capture;
    VelmoraLog("B", "lost %s", "copy");
    EXPECT_EQ(capture.Pieces(), (Pieces{"LOG: (", "B", ") ", "lost copy", "\n"}));

    // The next message opens anew with "w", so it empties what stands in the file.
    std::filesystem::remove("velmora.log");
    WriteWholeFile("velmora.log", "stale\n");
    VelmoraLog("C", "fresh\n");
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (C) fresh\n");
    VelmoraLog("D", "next\n");
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (C) fresh\nLOG: (D) next\n");
}

TEST(VelmoraLog, OverlongMessageIsCut) {
    TempDir dir;
    VelmoraLogBeginRun();
    DebugCapture capture;
    VelmoraLog("Tag", "%s", std::string(1000, 'x').c_str());
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (Tag) " + std::string(399, 'x'));
    ASSERT_EQ(capture.Pieces().size(), 5u);
    EXPECT_EQ(capture.Pieces()[3], std::string(399, 'x'));
}

TEST(VelmoraLogDeathTest, FatalShowsTheBoxAndAbortsWithoutLogging) {
    TempDir dir;
    VelmoraLogBeginRun();
    EXPECT_DEATH(VelmoraFatal("ReadVbf", "bad %s at %d", "face", 12), "ReadVbf: bad face at 12");
    EXPECT_FALSE(std::filesystem::exists("velmora.log"));
}

}  // namespace
