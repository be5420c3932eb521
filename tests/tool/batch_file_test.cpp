#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/crt/paths.h"
#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"
#include "tool/run/app_state.h"
#include "tool/run/batch_file.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_settings.h"

class BatchFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        ShadowSettings = DefaultShadowSettings();
        MessageLogClear();
        _getcwd(StartDirectory, sizeof StartDirectory);
    }
    void TearDown() override {
        FreeJobList();
        BatchMode = 0;
        MessageLogClear();
        ShadowSettings = DefaultShadowSettings();
        StartDirectory[0] = '\0';
    }

    TempDir dir;
};

TEST_F(BatchFileTest, EachJobIsLoggedAndReadsItsScriptFromTheStartDirectory) {
    WriteWholeFile(dir.File("good.ssf"), "AMBIENT 40");
    WriteWholeFile(dir.File("jobs.bat"), "m1 o1 good.ssf m2 o2 missing.ssf");
    EXPECT_EQ(OpenBatchFile("jobs.bat"), 2);
    std::filesystem::create_directory(dir.File("elsewhere"));
    ASSERT_EQ(_chdir("elsewhere"), 0);  // where the last map's bake left the run
    char map[260], output[260];
    EXPECT_FALSE(TakeNextJob(map, sizeof map, output, sizeof output));
    EXPECT_TRUE(TakeNextJob(map, sizeof map, output, sizeof output));
    EXPECT_EQ(ShadowSettings.Ambient, 40);
    std::string log, stars(44, '*');
    for (int i = 0; i < MessageLogCount(); ++i) log += std::string(MessageLogLine(i)) + "\n";
    EXPECT_EQ(log, stars + "\nMAP: m2\nSAVE AS: o2\nSCRIPT: missing.ssf\n" +
                       "***** FAILED TO OPEN SCRIPT missing.ssf *****\n" + stars +
                       "\nMAP: m1\nSAVE AS: o1\nSCRIPT: good.ssf\n");
}

TEST_F(BatchFileTest, UnreadableOrEmptyBatchLeavesNoJobs) {
    DebugCapture capture;
    EXPECT_EQ(OpenBatchFile("missing.bat"), 0);
    EXPECT_EQ(JobList, nullptr);
    EXPECT_EQ(BatchMode, 1);
    EXPECT_EQ(capture.Boxes(), std::vector<std::string>{"ERROR: FAILED TO OPEN BATCH FILE"});
    WriteWholeFile(dir.File("empty.bat"), " \n\t ");
    EXPECT_EQ(OpenBatchFile("empty.bat"), 0);
}

TEST_F(BatchFileTest, OverlongWordsAreCutNotOverrun) {
    WriteWholeFile(dir.File("long.bat"), std::string(1000, 'm') + " out.dat script.ssf");
    EXPECT_EQ(OpenBatchFile("long.bat"), 1);
    EXPECT_EQ(std::string(JobList->Map), std::string(399, 'm'));
    EXPECT_STREQ(JobList->SaveAs, "out.dat");
    char map[16], output[4];  // the run's buffers may be smaller still
    EXPECT_TRUE(TakeNextJob(map, sizeof map, output, sizeof output));
    EXPECT_EQ(std::string(map), std::string(15, 'm'));
    EXPECT_STREQ(output, "out");
}
