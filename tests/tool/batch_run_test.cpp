#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/tool/bake_run_fixture.h"

// Batches through the whole run: OpenBatchFile, then BakeMap as the front end calls it. Maps are
// 4 by 4 cells under an overhead light, so a texel inside is 0 and one outside is 255 - Ambient.
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

    std::vector<std::string> LoggedMaps() const {
        std::vector<std::string> maps;
        for (int i = 0; i < MessageLogCount(); ++i) {
            std::string line = MessageLogLine(i);
            if (line.compare(0, 5, "MAP: ") == 0) maps.push_back(line.substr(5));
        }
        return maps;
    }
};

TEST_F(BatchRun, JobsRunLastFirstEachWithItsNameAndScript) {
    BakeRunResult result =
        RunBatch("a/test.vbf one.dat ten.ssf\nb/test.vbf two.dat\n twenty.ssf\n");
    EXPECT_EQ(result.baked, 2);
    EXPECT_EQ(result.failed, 0);
    EXPECT_EQ(LoggedMaps(), (std::vector<std::string>{"b/test.vbf", "a/test.vbf"}));
    // Each job's file under its own name, beside its map, baked with its own script; the second
    // map was found from the start directory although the first left the run in b.
    std::string one = Read("a/one.dat"), two = Read("b/two.dat");
    EXPECT_EQ(Byte(one, 0, 0), 0);
    EXPECT_EQ(Byte(one, 5, 5), 245);
    EXPECT_EQ(Byte(two, 5, 5), 235);
    EXPECT_EQ(Listing("a"), (std::vector<std::string>{"one.dat", "test.vbf"}));
    EXPECT_EQ(Listing("b"), (std::vector<std::string>{"test.vbf", "two.dat"}));
    EXPECT_FALSE(Exists("texture.dat"));
    EXPECT_EQ(ranMapPath, "a/test.vbf");  // the buffer holds the last job's map
    EXPECT_EQ(BatchMode, 1);              // a batch ends the program, so it stays set

    // A job whose script is missing bakes with the settings before it.
    result = RunBatch("a/test.vbf three.dat missing.ssf b/test.vbf four.dat ten.ssf");
    EXPECT_EQ(result.baked, 2);
    EXPECT_TRUE(Logged("***** FAILED TO OPEN SCRIPT missing.ssf *****"));
    EXPECT_EQ(Byte(Read("a/three.dat"), 5, 5), 245);
}

TEST_F(BatchRun, EmptyOrUnreadableBatchEndsAtOnce) {
    for (const char* text : {" \n\t\n", "a/test.vbf one.dat"}) {  // two words are no job
        BakeRunResult result = RunBatch(text);
        EXPECT_EQ(result.baked + result.failed, 0) << text;
    }
    EXPECT_EQ(MessageLogCount(), 0);
    DebugCapture capture;  // takes the box
    OpenBatchFile("missing.bat");
    BakeRunResult result = Run("a/test.vbf");  // the path is not baked in batch mode
    EXPECT_EQ(result.baked + result.failed, 0);
    EXPECT_EQ(Listing("a"), std::vector<std::string>{"test.vbf"});
    EXPECT_EQ(capture.Boxes().size(), 1u);
}

TEST_F(BatchRun, BadMapsDoNotStopTheOthers) {
    WriteMap("nosize/test.vbf", {});
    WriteMap("v1.0/test.vbf", MakeMapChunks(4, 4));
    WriteWholeFile(dir.File("negative.ssf"), "ANIMATED -1");
    BakeRunResult result = RunBatch(
        "a/test.vbf one.dat ten.ssf\n"
        "nosize/test.vbf x.dat ten.ssf\n"
        "v1.0/test.vbf x.dat ten.ssf\n"
        "gone/test.vbf x.dat ten.ssf\n"
        "b/test.vbf two.dat twenty.ssf\n"
        "c/test.vbf frames.dat negative.ssf\n");
    EXPECT_EQ(result.baked, 2);
    EXPECT_EQ(result.failed, 4);
    EXPECT_EQ(LoggedMaps(),
              (std::vector<std::string>{"c/test.vbf", "b/test.vbf", "gone/test.vbf",
                                        "v1.0/test.vbf", "nosize/test.vbf", "a/test.vbf"}));
    for (const char* map : {"nosize/test.vbf", "gone/test.vbf", "c/test.vbf"})
        EXPECT_TRUE(RefusalLogged(map)) << map;
    EXPECT_EQ(RecordedErrors,
              std::vector<std::string>{"Load File - Invalid file extension on v1.0/test.vbf\n"});
    EXPECT_EQ(Byte(Read("a/one.dat"), 5, 5), 245);
    EXPECT_EQ(Byte(Read("b/two.dat"), 5, 5), 235);
    for (const char* folder : {"nosize", "v1.0", "c"})
        EXPECT_EQ(Listing(folder), std::vector<std::string>{"test.vbf"}) << folder;
    EXPECT_EQ(ShadowSettings.MapCellsX, 4);  // the refused maps left the size alone
}

// Data that the engine reports as fatal (a header kind it doesn't know, a texture that is no TGA)
// ends only its own job; so does an output name that would land outside the map's folder.
TEST_F(BatchRun, FatalDataAndEscapingNamesEndOnlyTheirJob) {
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
        "a/test.vbf one.dat ten.ssf\n"
        "kind2/test.vbf x.dat ten.ssf\n"
        "bmp/test.vbf x.dat ten.ssf\n"
        "b/test.vbf ../../escaped.dat ten.ssf\n"
        "c/test.vbf three.dat twenty.ssf\n");
    EXPECT_EQ(result.baked, 2);
    EXPECT_EQ(result.failed, 3);
    EXPECT_EQ(LoggedMaps(), (std::vector<std::string>{"c/test.vbf", "b/test.vbf", "bmp/test.vbf",
                                                      "kind2/test.vbf", "a/test.vbf"}));
    EXPECT_TRUE(Logged("***** MAP REFUSED kind2/test.vbf: VELMORALoadVBF: invalid header *****"));
    bool textureRefused = false;
    for (int i = 0; i < MessageLogCount(); ++i) {
        std::string line = MessageLogLine(i);
        textureRefused |=
            line.rfind("***** MAP REFUSED bmp/test.vbf: VELMORALoadTexture: ", 0) == 0 &&
            line.find("wall.bmp is an Invalid File Format") != std::string::npos;
    }
    EXPECT_TRUE(textureRefused);
    EXPECT_TRUE(
        Logged("***** MAP REFUSED b/test.vbf: jobs.bat line 4: the output name "
               "../../escaped.dat climbs out of the map's folder *****"));
    EXPECT_FALSE(
        std::filesystem::exists(std::filesystem::path(dir.Path()).parent_path() / "escaped.dat"));
    EXPECT_EQ(Byte(Read("a/one.dat"), 5, 5), 245);
    EXPECT_EQ(Byte(Read("c/three.dat"), 5, 5), 235);
    for (const char* folder : {"kind2", "bmp", "b"})
        EXPECT_EQ(Listing(folder), std::vector<std::string>{"test.vbf"}) << folder;
}

namespace {
void CancelOnProgress(int) {
    RequestCancel();
}
}  // namespace

TEST_F(BatchRun, CancelStopsThePassAndTheJobsBehindIt) {
    ProgressHooks hooks = {CancelOnProgress, nullptr, nullptr};
    SetProgressHooks(&hooks);
    BakeRunResult result = RunBatch("a/test.vbf one.dat ten.ssf b/test.vbf two.dat ten.ssf");
    EXPECT_EQ(result.baked, 0);
    EXPECT_EQ(result.failed, 1);
    EXPECT_EQ(LoggedMaps(), std::vector<std::string>{"b/test.vbf"});
    EXPECT_EQ(Listing("b"), std::vector<std::string>{"test.vbf"});
    EXPECT_FALSE(Exists("a/one.dat"));
    ASSERT_NE(JobList, nullptr);  // left for the fixture to free
    EXPECT_STREQ(JobList->Map, "a/test.vbf");
}
