#include "base/velmora_log.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

TEST(VelmoraLog, MessagesOfOneRunAppendUncutByLineEndsAndNeverThroughALink) {
    TempDir dir;
    WriteWholeFile("velmora.log", "last run\n");
    VelmoraLogBeginRun();  // a run without messages leaves the last run's file
    EXPECT_EQ(ReadWholeFile("velmora.log"), "last run\n");
    VelmoraLog("LoadMesh", "first %d", 1);
    VelmoraLog("ReadTga", "%s", "100% done\n");
    VelmoraLog("Tag", "%s", std::string(1000, 'x').c_str());
    EXPECT_EQ(ReadWholeFile("velmora.log"),
              "LOG: (LoadMesh) first 1LOG: (ReadTga) 100% done\nLOG: (Tag) " + std::string(399, 'x'));
    // A link planted at the log's name is never written through: the first message of a run
    // replaces it, one that meets it later is lost to the file alone.
    WriteWholeFile("victim", "precious");
    for (bool newRun : {false, true}) {
        fs::remove("velmora.log");
        fs::create_symlink(dir.File("victim"), "velmora.log");
        if (newRun) VelmoraLogBeginRun();
        VelmoraLog("A", "next\n");
        EXPECT_EQ(fs::is_symlink("velmora.log"), !newRun);
    }
    EXPECT_EQ(ReadWholeFile("victim"), "precious");
    EXPECT_EQ(ReadWholeFile("velmora.log"), "LOG: (A) next\n");
}

}  // namespace
