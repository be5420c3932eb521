#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/crt/paths.h"
#include "platform/debug/debug_output.h"
#include "tests/support/temp_dir.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_settings.h"
#include "tool/run/app_state.h"
#include "tool/run/batch_file.h"

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
    EXPECT_FALSE(TakeNextJob(map, sizeof map, output, sizeof output).last);
    EXPECT_TRUE(TakeNextJob(map, sizeof map, output, sizeof output).last);
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

// A name that would be cut, or an output name that reaches out of its map's folder, refuses its
// job in its turn, naming the list, the line and the word; the script of a refused job is not read.
TEST_F(BatchFileTest, JobsWithNamesThatCannotBeTakenAsTheyStandAreRefused) {
    const std::string longest(259, 'm'), overlong(260, 'm');
    struct Case {
        std::string map, output, refusal;  // refusal: empty for a job that runs
    } cases[] = {
        {longest, "sub/./out.dat", ""},
        {"m", "a/../out.dat", ""},
        {overlong, "out.dat", "jobs.bat line 2: the map mmmm"},
        {overlong, "out.dat", "mmm... is longer than 259 characters"},
        {"m", overlong, "jobs.bat line 2: the output name mmmm"},
        {"m", "../../escaped.dat", "jobs.bat line 2: the output name ../../escaped.dat climbs out"},
        {"m", "a/../../x.dat", "climbs out of the map's folder"},
        {"m", "./../x.dat", "climbs out of the map's folder"},
        {"m", "sub\\..\\..\\x.dat", "climbs out of the map's folder"},
        {"m", "/tmp/x.dat", "jobs.bat line 2: the output name /tmp/x.dat is absolute"},
        {"m", "C:x.dat", "is absolute"},
        {"m", "sub/..", "names no file in the map's folder"},
    };
    WriteWholeFile(dir.File("ambient.ssf"), "AMBIENT 40");
    for (const Case& c : cases) {
        ShadowSettings.Ambient = 0;
        WriteWholeFile(dir.File("jobs.bat"), "\n" + c.map + "\n " + c.output + "\n\nambient.ssf");
        ASSERT_EQ(OpenBatchFile("jobs.bat"), 1);
        char map[260], output[260];
        TakenJob job = TakeNextJob(map, sizeof map, output, sizeof output);
        EXPECT_TRUE(job.last);
        EXPECT_NE(job.refusal.find(c.refusal), std::string::npos)
            << c.output << ": " << job.refusal;
        EXPECT_EQ(job.refusal.empty(), c.refusal.empty()) << c.output;
        EXPECT_EQ(ShadowSettings.Ambient, c.refusal.empty() ? 40 : 0) << c.output;
        if (c.refusal.empty()) {
            EXPECT_EQ(std::string(map) + " " + output, c.map + " " + c.output);
        }
    }
    // Buffers smaller than the run's refuse rather than cut.
    WriteWholeFile(dir.File("jobs.bat"),
                   "mm/a.vbf out.dat ambient.ssf m/a.vbf out.dat ambient.ssf");
    OpenBatchFile("jobs.bat");
    char map[8], output[260];
    EXPECT_EQ(TakeNextJob(map, sizeof map, output, sizeof output).refusal, "");
    EXPECT_STREQ(map, "m/a.vbf");
    EXPECT_EQ(TakeNextJob(map, sizeof map, output, sizeof output).refusal,
              "the job's names are too long for the run");
}
