#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/crt/paths.h"
#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"
#include "tool/app_state.h"
#include "tool/batch_file.h"
#include "tool/message_log.h"
#include "tool/shadow_settings.h"

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

    // Works the list off as the bake run does, returning the maps in the order they run.
    std::vector<std::string> RunJobs() {
        std::vector<std::string> maps;
        bool last = JobList == nullptr;
        while (!last) {
            char map[260], output[260];
            last = TakeNextJob(map, sizeof map, output, sizeof output);
            maps.push_back(std::string(map) + ">" + output);
        }
        return maps;
    }

    TempDir dir;
};

TEST_F(BatchFileTest, LastJobOfTheFileRunsFirst) {
    WriteWholeFile(dir.File("jobs.bat"), "a/test.vbf one.dat s1.ssf\nb/test.vbf two.dat s2.ssf\n");
    EXPECT_EQ(OpenBatchFile("jobs.bat"), 2);
    EXPECT_EQ(BatchMode, 1);
    std::vector<std::string> expected = {"b/test.vbf>two.dat", "a/test.vbf>one.dat"};
    EXPECT_EQ(RunJobs(), expected);
    EXPECT_EQ(JobList, nullptr);
}

TEST_F(BatchFileTest, WordsMakeJobsInThreesWhateverTheLines) {
    WriteWholeFile(dir.File("six.bat"), "m1 o1 s1 m2 o2 s2");
    EXPECT_EQ(OpenBatchFile("six.bat"), 2);
    FreeJobList();
    WriteWholeFile(dir.File("five.bat"), "m1\no1\n\ns1   m2 o2");
    EXPECT_EQ(OpenBatchFile("five.bat"), 1);  // the trailing two words are dropped
    std::vector<std::string> expected = {"m1>o1"};
    EXPECT_EQ(RunJobs(), expected);
}

TEST_F(BatchFileTest, EachJobIsLoggedAndReadsItsScript) {
    WriteWholeFile(dir.File("good.ssf"), "AMBIENT 40");
    WriteWholeFile(dir.File("jobs.bat"), "m1 o1 good.ssf m2 o2 missing.ssf");
    OpenBatchFile("jobs.bat");
    RunJobs();
    // The job with the missing script ran first and left the message; the settings of the next
    // job came from its own script.
    ASSERT_EQ(MessageLogCount(), 9);
    EXPECT_STREQ(MessageLogLine(0), "********************************************");
    EXPECT_STREQ(MessageLogLine(1), "MAP: m2");
    EXPECT_STREQ(MessageLogLine(2), "SAVE AS: o2");
    EXPECT_STREQ(MessageLogLine(3), "SCRIPT: missing.ssf");
    EXPECT_STREQ(MessageLogLine(4), "***** FAILED TO OPEN SCRIPT missing.ssf *****");
    EXPECT_STREQ(MessageLogLine(6), "MAP: m1");  // behind its own row of asterisks
    EXPECT_EQ(ShadowSettings.Ambient, 40);
}

TEST_F(BatchFileTest, JobsReadPathsFromTheStartDirectory) {
    WriteWholeFile(dir.File("s.ssf"), "AMBIENT 7");
    WriteWholeFile(dir.File("jobs.bat"), "m o s.ssf");
    OpenBatchFile("jobs.bat");
    std::filesystem::create_directory(dir.File("elsewhere"));
    ASSERT_EQ(_chdir("elsewhere"), 0);  // where the last map's bake left the run
    RunJobs();
    EXPECT_EQ(ShadowSettings.Ambient, 7);
}

TEST_F(BatchFileTest, UnreadableOrEmptyBatchLeavesNoJobs) {
    DebugCapture capture;
    EXPECT_EQ(OpenBatchFile("missing.bat"), 0);
    EXPECT_EQ(JobList, nullptr);
    EXPECT_EQ(BatchMode, 1);
    ASSERT_EQ(capture.Boxes().size(), 1u);
    EXPECT_EQ(capture.Boxes()[0], "ERROR: FAILED TO OPEN BATCH FILE");
    WriteWholeFile(dir.File("empty.bat"), " \n\t ");
    EXPECT_EQ(OpenBatchFile("empty.bat"), 0);
}

TEST_F(BatchFileTest, OverlongWordsAreCutNotOverrun) {
    std::string longMap(1000, 'm');
    WriteWholeFile(dir.File("long.bat"), longMap + " out.dat script.ssf");
    EXPECT_EQ(OpenBatchFile("long.bat"), 1);
    EXPECT_EQ(std::string(JobList->Map).size(), 399u);
    EXPECT_STREQ(JobList->SaveAs, "out.dat");
    char map[16], output[4];  // the run's buffers may be smaller still
    EXPECT_TRUE(TakeNextJob(map, sizeof map, output, sizeof output));
    EXPECT_EQ(std::string(map), std::string(15, 'm'));
    EXPECT_STREQ(output, "out");
}
