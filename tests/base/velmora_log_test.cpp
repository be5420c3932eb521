#include "base/velmora_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"

namespace {

using Pieces = std::vector<std::string>;
namespace fs = std::filesystem;

TEST(VelmoraLog, MessagesOfOneRunAppendUncutByLineEndsAndNeverThroughALink) {
    TempDir dir;
    WriteWholeFile("velmora.log", "last run\n");
    VelmoraLogBeginRun();
    VelmoraLogBeginRun();  // a run without messages leaves the last run's file
    EXPECT_EQ(ReadWholeFile("velmora.log"), "last run\n");
    DebugCapture capture;
    VelmoraLog("LoadMesh", "first %d", 1);
    VelmoraLog("ReadTga", "%s", "100% done\n");
    VelmoraLog("Tag", "%s", std::string(1000, 'x').c_str());
    EXPECT_EQ(ReadWholeFile("velmora.log"),
              "LOG: (LoadMesh) first 1LOG: (ReadTga) 100% done\nLOG: (Tag) " + std::string(399, 'x'));
    ASSERT_EQ(capture.Pieces().size(), 15u);
    EXPECT_EQ(Pieces(capture.Pieces().begin(), capture.Pieces().begin() + 10),
              (Pieces{"LOG: (", "LoadMesh", ") ", "first 1", "\n", "LOG: (", "ReadTga", ") ", "100% done\n",
                      "\n"}));
    EXPECT_EQ(capture.Pieces()[13], std::string(399, 'x'));

    // A message that cannot open the file costs only its copy there; the next makes the file afresh.
    fs::remove("velmora.log");
    fs::create_directory("velmora.log");
    capture.Clear();
    VelmoraLog("B", "lost %s", "copy");
    EXPECT_EQ(capture.Pieces(), (Pieces{"LOG: (", "B", ") ", "lost copy", "\n"}));
    fs::remove("velmora.log");
    WriteWholeFile("velmora.log", "stale\n");
    VelmoraLog("C", "fresh\n");
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (C) fresh\n");

    // A link planted at the log's name is never written through: the first message of a run
    // replaces it, one that meets it later is lost to the file alone.
    WriteWholeFile("victim", "precious");
    for (bool newRun : {true, false}) {
        fs::remove("velmora.log");
        fs::create_symlink(dir.File("victim"), "velmora.log");
        if (newRun) VelmoraLogBeginRun();
        VelmoraLog("A", "first\n");
        EXPECT_EQ(fs::is_symlink("velmora.log"), !newRun);
    }
    VelmoraLogBeginRun();
    VelmoraLog("D", "next\n");
    EXPECT_EQ(ReadWholeFile("victim"), "precious");
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (D) next\n");
}

TEST(VelmoraLogDeathTest, FatalShowsTheBoxAndAbortsWithoutLogging) {
    TempDir dir;
    VelmoraLogBeginRun();
    EXPECT_DEATH(VelmoraFatal("ReadVbf", "bad %s at %d", "face", 12), "ReadVbf: bad face at 12");
    EXPECT_FALSE(fs::exists("velmora.log"));
}

}  // namespace
