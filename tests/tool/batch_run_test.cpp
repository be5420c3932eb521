#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/tool/bake_run_fixture.h"

// Batch lists: OpenBatchFile, TakeNextJob, and whole runs through BakeMap as the front end calls
// it. Maps are 4 by 4 cells under an overhead light, so a texel inside is 0 and one outside is
// 255 - Ambient.
class BatchRun : public BakeRunFixture {
protected:
    void SetUp() override {
        BakeRunFixture::SetUp();
        for (const char* map : {"a/test.vbf", "b/test.vbf", "c/test.vbf"})
            WriteMap(map, MakeMapChunks(4, 4));
        WriteWholeFile(dir.File("ten.ssf"), "AMBIENT 10 LIGHT 0 1 0");
        WriteWholeFile(dir.File("twenty.ssf"), "AMBIENT 20 LIGHT 0 1 0");
    }
    BakeRunResult RunBatch(const std::string& text) {
        WriteWholeFile(dir.File("jobs.bat"), text);
        OpenBatchFile("jobs.bat");
        return Run("");
    }
    std::string Log() const {
        std::string log;
        for (int i = 0; i < MessageLogCount(); ++i) log += std::string(MessageLogLine(i)) + "\n";
        return log;
    }
};

TEST_F(BatchRun, JobsAreLoggedAndTakenLastFirstEachReadingItsScriptFromTheStart) {
    WriteWholeFile(dir.File("jobs.bat"), "m1 o1 ten.ssf m2 o2 missing.ssf");
    EXPECT_EQ(OpenBatchFile("jobs.bat"), 2);
    ASSERT_EQ(_chdir("a"), 0);  // where the last map's bake left the run
    char map[260], output[260];
    EXPECT_FALSE(TakeNextJob(map, sizeof map, output, sizeof output).last);
    EXPECT_TRUE(TakeNextJob(map, sizeof map, output, sizeof output).last);
    EXPECT_EQ(ShadowSettings.Ambient, 10);
    const std::string stars(44, '*');
    EXPECT_EQ(Log(), stars + "\nMAP: m2\nSAVE AS: o2\nSCRIPT: missing.ssf\n" +
                         "***** FAILED TO OPEN SCRIPT missing.ssf *****\n" + stars +
                         "\nMAP: m1\nSAVE AS: o1\nSCRIPT: ten.ssf\n");
}

TEST_F(BatchRun, UnreadableBatchShowsABoxAndRunsNoJob) {
    DebugCapture capture;
    EXPECT_EQ(OpenBatchFile("missing.bat"), 0);
    EXPECT_EQ(capture.Boxes(), std::vector<std::string>{"ERROR: FAILED TO OPEN BATCH FILE"});
    BakeRunResult result = Run("a/test.vbf");  // the path is not baked in batch mode
    EXPECT_EQ(result.baked + result.failed, 0);
    EXPECT_EQ(Listing("a"), std::vector<std::string>{"test.vbf"});
}

// A name that would be cut, or an output name that reaches out of its map's folder, refuses its
// job in its turn, naming the list, the line and the word; the script of a refused job is not read.
TEST_F(BatchRun, JobsWithNamesThatCannotBeTakenAsTheyStandAreRefused) {
    const std::string longest(259, 'm'), overlong(260, 'm');
    const std::tuple<std::string, std::string, std::string> rows[] = {
        // map, output name, refusal (empty: the job runs)
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
    for (const auto& [mapName, outputName, refusal] : rows) {
        ShadowSettings.Ambient = 0;
        WriteWholeFile(dir.File("jobs.bat"), "\n" + mapName + "\n " + outputName + "\n\nten.ssf");
        ASSERT_EQ(OpenBatchFile("jobs.bat"), 1);
        char map[260], output[260];
        TakenJob job = TakeNextJob(map, sizeof map, output, sizeof output);
        EXPECT_TRUE(job.last);
        EXPECT_NE(job.refusal.find(refusal), std::string::npos)
            << outputName << ": " << job.refusal;
        EXPECT_EQ(job.refusal.empty(), refusal.empty()) << outputName;
        EXPECT_EQ(ShadowSettings.Ambient, refusal.empty() ? 10 : 0) << outputName;
        if (refusal.empty()) {
            EXPECT_EQ(std::string(map) + " " + output, mapName + " " + outputName);
        }
    }
    // Buffers smaller than the run's refuse rather than cut.
    WriteWholeFile(dir.File("jobs.bat"), "mm/a.vbf out.dat ten.ssf m/a.vbf out.dat ten.ssf");
    OpenBatchFile("jobs.bat");
    char map[8], output[260];
    EXPECT_EQ(TakeNextJob(map, sizeof map, output, sizeof output).refusal, "");
    EXPECT_STREQ(map, "m/a.vbf");
    EXPECT_EQ(TakeNextJob(map, sizeof map, output, sizeof output).refusal,
              "the job's names are too long for the run");
}

// Each job bakes with its own name and script beside its map; a job whose script is missing bakes
// with the settings before it. Bad maps, data the engine reports as fatal (a header kind it doesn't
// know, a texture that is no TGA) and escaping names end only their own job, and refused maps
// leave the map size alone.
TEST_F(BatchRun, EachJobBakesWithItsOwnNameAndScriptAndBadJobsEndOnlyThemselves) {
    WriteMap("nosize/test.vbf", {});
    WriteMap("v1.0/test.vbf", MakeMapChunks(4, 4));
    WriteWholeFile(dir.File("negative.ssf"), "ANIMATED -1");
    std::filesystem::create_directory(dir.File("kind2"));
    WriteWholeFile(dir.File("kind2/test.vbf"), std::string("\2\0\0\0\0\0\0\0", 8));
    CTexture* bitmap = CreateTexture(2, 2, 0x8888);
    bitmap->SetName("wall.bmp");
    WriteMap("bmp/test.vbf", MakeMapChunks(4, 4), [&](CMesh* root) {
        CMesh* ground = FlatGround(root, 256.0f);
        for (uint32_t f = 0; f < ground->faceCount[0]; ++f) ground->faces[0][f].texture = bitmap;
    });
    FreeTexture(bitmap);
    BakeRunResult result = RunBatch(
        "a/test.vbf one.dat ten.ssf\nnosize/test.vbf x.dat ten.ssf\nv1.0/test.vbf x.dat ten.ssf\n"
        "gone/test.vbf x.dat ten.ssf\nb/test.vbf two.dat missing.ssf\n"
        "kind2/test.vbf x.dat twenty.ssf\nbmp/test.vbf x.dat ten.ssf\n"
        "b/test.vbf ../../escaped.dat ten.ssf\nc/test.vbf frames.dat negative.ssf\n"
        "c/test.vbf three.dat twenty.ssf\n");
    EXPECT_EQ(result.baked, 3);
    EXPECT_EQ(result.failed, 7);
    EXPECT_EQ(ranMapPath, "a/test.vbf");  // the buffer holds the last job's map
    EXPECT_EQ(BatchMode, 1);              // a batch ends the program, so it stays set
    for (const char* map : {"nosize/test.vbf", "gone/test.vbf", "c/test.vbf"})
        EXPECT_TRUE(Refused(map)) << map;
    EXPECT_TRUE(Logged("***** MAP REFUSED kind2/test.vbf: VELMORALoadVBF: invalid header *****"));
    EXPECT_TRUE(Logged("***** MAP REFUSED bmp/test.vbf: VELMORALoadTexture: ",
                       "wall.bmp is an Invalid File Format *****"));
    EXPECT_TRUE(
        Logged("***** MAP REFUSED b/test.vbf: jobs.bat line 8: the output name "
               "../../escaped.dat climbs out of the map's folder *****"));
    EXPECT_EQ(RecordedErrors,
              std::vector<std::string>{"Load File - Invalid file extension on v1.0/test.vbf\n"});
    EXPECT_EQ(Byte(Read("c/three.dat"), 5, 5), 235);
    EXPECT_EQ(Byte(Read("b/two.dat"), 5, 5), 235);  // the script of the job before
    EXPECT_EQ(Byte(Read("a/one.dat"), 0, 0), 0);
    EXPECT_EQ(Byte(Read("a/one.dat"), 5, 5), 245);
    for (const char* folder : {"nosize", "v1.0", "kind2", "bmp"})
        EXPECT_EQ(Listing(folder), std::vector<std::string>{"test.vbf"}) << folder;
    EXPECT_EQ(Listing("b"), (std::vector<std::string>{"test.vbf", "two.dat"}));
    EXPECT_EQ(Listing("c"), (std::vector<std::string>{"test.vbf", "three.dat"}));
    EXPECT_FALSE(
        std::filesystem::exists(std::filesystem::path(dir.Path()).parent_path() / "escaped.dat"));
    EXPECT_EQ(ShadowSettings.MapCellsX, 4);
}

TEST_F(BatchRun, CancelStopsThePassAndTheJobsBehindIt) {
    ProgressHooks hooks = {[](int) { RequestCancel(); }, nullptr, nullptr};
    SetProgressHooks(&hooks);
    BakeRunResult result = RunBatch("a/test.vbf one.dat ten.ssf b/test.vbf two.dat ten.ssf");
    EXPECT_EQ(result.baked, 0);
    EXPECT_EQ(result.failed, 1);
    EXPECT_TRUE(Logged("MAP: b/test.vbf"));
    EXPECT_FALSE(Logged("MAP: a/test.vbf"));
    EXPECT_EQ(Listing("b"), std::vector<std::string>{"test.vbf"});
    ASSERT_NE(JobList, nullptr);  // left for the fixture to free
    EXPECT_STREQ(JobList->Map, "a/test.vbf");
}
