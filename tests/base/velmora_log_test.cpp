#include "base/velmora_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

using Pieces = std::vector<std::string>;

TEST(VelmoraLog, MessagesOfOneRunAppendWithoutAddedLineEndsAndAreCut) {
    TempDir dir;
    WriteWholeFile("velmora.log", "last run\n");
    VelmoraLogBeginRun();
    DebugCapture capture;
    VelmoraLog("LoadMesh", "first %d", 1);
    VelmoraLog("ReadTga", "%s", "100% done\n");
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (LoadMesh) first 1LOG: (ReadTga) 100% done\n");
    EXPECT_EQ(capture.Pieces(), (Pieces{"LOG: (", "LoadMesh", ") ", "first 1", "\n", "LOG: (",
                                        "ReadTga", ") ", "100% done\n", "\n"}));

    VelmoraLogBeginRun();  // a run without messages leaves the last run's file
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (LoadMesh) first 1LOG: (ReadTga) 100% done\n");
    capture.Clear();
    VelmoraLog("Tag", "%s", std::string(1000, 'x').c_str());
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (Tag) " + std::string(399, 'x'));
    ASSERT_EQ(capture.Pieces().size(), 5u);
    EXPECT_EQ(capture.Pieces()[3], std::string(399, 'x'));
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

    // The next message makes the file afresh, so what stands in it goes.
    std::filesystem::remove("velmora.log");
    WriteWholeFile("velmora.log", "stale\n");
    VelmoraLog("C", "fresh\n");
    VelmoraLog("D", "next\n");
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (C) fresh\nLOG: (D) next\n");
}

// A link planted at the log's name, before the run or during it, is never written through: the
// first message replaces it, one that meets it later is lost to the file alone.
TEST(VelmoraLog, NeverWritesThroughALink) {
    TempDir dir;
    WriteWholeFile("victim", "precious");
    std::filesystem::create_symlink(dir.File("victim"), "velmora.log");
    VelmoraLogBeginRun();
    VelmoraLog("A", "first\n");
    EXPECT_FALSE(std::filesystem::is_symlink("velmora.log"));
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (A) first\n");

    std::filesystem::remove("velmora.log");
    std::filesystem::create_symlink(dir.File("victim"), "velmora.log");
    DebugCapture capture;
    VelmoraLog("B", "dropped\n");
    EXPECT_EQ(capture.Pieces(), (Pieces{"LOG: (", "B", ") ", "dropped\n", "\n"}));
    VelmoraLog("C", "fresh\n");
    EXPECT_EQ(ReadWholeFile("victim"), "precious");
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (C) fresh\n");
}

TEST(VelmoraLogDeathTest, FatalShowsTheBoxAndAbortsWithoutLogging) {
    TempDir dir;
    VelmoraLogBeginRun();
    EXPECT_DEATH(VelmoraFatal("ReadVbf", "bad %s at %d", "face", 12), "ReadVbf: bad face at 12");
    EXPECT_FALSE(std::filesystem::exists("velmora.log"));
}

}  // namespace
