#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/tool/bake_run_fixture.h"

// Animated bakes through the whole run. A map of 8 by 4 cells at TextureSize 256 gives frame
// files of 8 by 4 bytes.
class AnimatedRun : public BakeRunFixture {
protected:
    void SetUp() override {
        BakeRunFixture::SetUp();
        WriteMap("anim/test.vbf", MakeMapChunks(8, 4));
    }
};

TEST_F(AnimatedRun, EachFrameGetsNumberedFilesOfTheMapsPart) {
    ShadowSettings.FrameCount = 2;
    ShadowSettings.WriteHeightData = 1;
    SetMapBakedCallback(RecordBaked);
    DebugCapture capture;
    BakeRunResult result = Run("anim/test.vbf");
    EXPECT_EQ(result.baked, 1);  // one map, however many frames
    EXPECT_EQ(result.failed, 0);
    EXPECT_EQ(BakedNames, (std::vector<std::string>{"texture0.dat", "texture1.dat"}));
    EXPECT_EQ(Listing("anim"), (std::vector<std::string>{"test.vbf", "texture0.dah", "texture0.dat",
                                                         "texture1.dah", "texture1.dat"}));
    for (const char* name : {"anim/texture0.dat", "anim/texture1.dat"})
        EXPECT_EQ(Read(name), std::string(32, '\0')) << name;  // all lit, rows cut to 8 texels
    std::string heights = Read("anim/texture1.dah");
    ASSERT_EQ(heights.size(), 8u * 4u * 4u);
    float first;
    std::memcpy(&first, heights.data(), 4);
    EXPECT_EQ(first, 0.0f);  // the flat ground at the origin
    std::vector<std::string> frames;
    for (const std::string& piece : capture.Pieces())
        if (piece.compare(0, 7, "FRAME: ") == 0) frames.push_back(piece);
    EXPECT_EQ(frames, (std::vector<std::string>{"FRAME: 0\n", "FRAME: 1\n"}));
}

TEST_F(AnimatedRun, FrameNamesLoseTheLastFourCharactersOfAnyName) {
    WriteWholeFile(dir.File("two.ssf"), "ANIMATED 2 LIGHT 0 1 0");
    WriteWholeFile(dir.File("jobs.bat"),
                   "anim/test.vbf frames.bin two.ssf anim/test.vbf ab two.ssf");
    OpenBatchFile("jobs.bat");
    EXPECT_EQ(Run("").baked, 2);
    // A name shorter than four characters loses all it has, and no more.
    EXPECT_EQ(Listing("anim"), (std::vector<std::string>{"0.dat", "1.dat", "frames0.dat",
                                                         "frames1.dat", "test.vbf"}));
}
