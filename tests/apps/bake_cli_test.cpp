// tenebrix-bake run as a child process on maps made by tenebrix-mkmap: what a good run writes.
#include <gtest/gtest.h>
#include <png.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/apps/cli_run.h"
#include "tests/support/temp_dir.h"

extern char** environ;

namespace fs = std::filesystem;

namespace {

// Decodes the preview and compares every pixel with the light levels of the top left width x
// height texels of the shadow map file, side texels square (a byte holds 255 - level).
void ExpectPreviewOf(const std::string& pngPath, const std::string& shadowMap, int side,
                     uint32_t width, uint32_t height) {
    SCOPED_TRACE(pngPath);
    std::string png = ReadWholeFile(pngPath);
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&image, png.data(), png.size()));
    ASSERT_EQ(image.width, width);
    ASSERT_EQ(image.height, height);
    image.format = PNG_FORMAT_GRAY;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr));
    std::string texels = ReadWholeFile(shadowMap);
    ASSERT_EQ(texels.size(), size_t(side) * size_t(side));
    int wrong = 0;
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            wrong += pixels[y * width + x] != 255 - uint8_t(texels[y * side + x]);
    EXPECT_EQ(wrong, 0);
}

class BakeCli : public ::testing::Test {
protected:
    TempDir dir;
};

TEST_F(BakeCli, MapAsDirectoryOrFileWritesTheShadowMapBesideIt) {
    ASSERT_TRUE(MakeMap("m", 12));
    ToolRun run = RunBake({"m", "--texture-size", "256"});
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(Contains(run.output, "shadow map " + dir.File("m/texture.dat"))) << run.output;
    EXPECT_TRUE(Contains(run.output, "1 map baked")) << run.output;
    std::string first = ReadWholeFile("m/texture.dat");
    EXPECT_EQ(first.size(), 256u * 256u);
    EXPECT_NE(first.find_first_not_of(first[0]), std::string::npos);  // not all one level

    // The file itself, by a relative and by an absolute path, with its own output name: the
    // same settings give the same bytes.
    ToolRun named = RunBake({"m/test.vbf", "--texture-size", "256", "--out", "again.dat"});
    ASSERT_EQ(named.status, 0) << named.output;
    EXPECT_EQ(ReadWholeFile("m/again.dat"), first);
    EXPECT_FALSE(fs::exists("again.dat"));  // relative to the map, not to where the user stands
    ToolRun absolute = RunBake({dir.File("m/test.vbf"), "--texture-size=256", "--out=abs.dat"});
    ASSERT_EQ(absolute.status, 0) << absolute.output;
    EXPECT_EQ(ReadWholeFile("m/abs.dat"), first);
}

TEST_F(BakeCli, PreviewsShowTheMapsPartOfTheShadowMap) {
    ASSERT_TRUE(MakeMap("m", 12));
    // A preview in a folder that does not exist yet, and one beside the shadow map.
    ToolRun run = RunBake({"m", "--texture-size", "256", "--out", "shade.dat", "--png",
                           "previews/m.png", "--png-beside"});
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(Contains(run.output, "preview " + dir.File("previews/m.png"))) << run.output;
    ExpectPreviewOf("previews/m.png", "m/shade.dat", 256, 12, 12);  // 12 cells * 256 / 256
    ExpectPreviewOf("m/shade.dat.png", "m/shade.dat", 256, 12, 12);

    // A map smaller than one texel still gets a pixel.
    ASSERT_TRUE(MakeMap("tiny", 2));
    ASSERT_EQ(RunBake({"tiny", "--texture-size", "64", "--png", "tiny.png"}).status, 0);
    ExpectPreviewOf("tiny.png", "tiny/texture.dat", 64, 1, 1);

    // A preview that can't be written fails the run, though the shadow map is there.
    fs::create_directory("taken.png");
    ToolRun blocked = RunBake({"m", "--texture-size", "64", "--png", "taken.png"});
    EXPECT_EQ(blocked.status, 1) << blocked.output;
    EXPECT_TRUE(Contains(blocked.output, "the preview " + dir.File("taken.png"))) << blocked.output;
    EXPECT_EQ(FileSize("m/texture.dat"), 64 * 64);
}

TEST_F(BakeCli, DotInAFoldersNameDoesNotHideTheMapsType) {
    fs::create_directory("maps.v2");
    ASSERT_TRUE(MakeMap("maps.v2/m", 4));
    ToolRun folder = RunBake({"maps.v2/m", "--texture-size", "64"});
    ASSERT_EQ(folder.status, 0) << folder.output;
    EXPECT_EQ(FileSize("maps.v2/m/texture.dat"), 64 * 64);
    ToolRun file =
        RunBake({dir.File("maps.v2/m/test.vbf"), "--texture-size", "64", "--out", "b.dat"});
    ASSERT_EQ(file.status, 0) << file.output;
    EXPECT_EQ(ReadWholeFile("maps.v2/m/b.dat"), ReadWholeFile("maps.v2/m/texture.dat"));
}

TEST_F(BakeCli, ScriptByPathOrByNameInTheLitFolder) {
    ASSERT_TRUE(MakeMap("m", 8));
    fs::create_directories("conf/lit");
    WriteWholeFile("conf/resource.cfg", "LIT lit\n");
    WriteWholeFile("conf/lit/dusk.ssf", "LIGHT -1 0.3 0.2\nAMBIENT 40\nSCRIPT dusk.lit\n");
    WriteWholeFile("conf/lit/dusk.lit", "dusk light\n");
    ASSERT_EQ(RunBake({"m", "--texture-size", "256", "--out", "plain.dat"}).status, 0);

    // A path, relative to where the user stands. Without a config there is no LIT folder, so no
    // light description goes beside the map.
    ToolRun byPath = RunBake({"m", "--texture-size", "256", "--script", "conf/lit/dusk.ssf"});
    ASSERT_EQ(byPath.status, 0) << byPath.output;
    std::string dusk = ReadWholeFile("m/texture.dat");
    EXPECT_EQ(dusk.size(), 256u * 256u);
    EXPECT_NE(dusk, ReadWholeFile("m/plain.dat"));
    EXPECT_FALSE(fs::exists("m/test.lit"));

    // A name in the config's LIT folder, with and without its extension: the same bake, and the
    // script's light description copied beside the map.
    for (const char* name : {"dusk", "dusk.ssf"}) {
        SCOPED_TRACE(name);
        fs::remove("m/texture.dat");
        fs::remove("m/test.lit");
        ToolRun byName = RunBake(
            {"m", "--texture-size", "256", "--config", "conf/resource.cfg", "--script", name});
        ASSERT_EQ(byName.status, 0) << byName.output;
        EXPECT_EQ(ReadWholeFile("m/texture.dat"), dusk);
        EXPECT_EQ(ReadWholeFile("m/test.lit"), "dusk light\n");
    }
}

TEST_F(BakeCli, HeightDataAndAnimatedFramesGoToTheirOwnFiles) {
    ASSERT_TRUE(MakeMap("m", 8));
    WriteWholeFile("frames.ssf", "HEIGHTDATA\nANIMATED 2\n");
    ToolRun run = RunBake({"m", "--texture-size", "256", "--script", "frames.ssf", "--out",
                           "shade.dat", "--png-beside"});
    ASSERT_EQ(run.status, 0) << run.output;
    // A frame keeps only the map's part, 8 cells * 256 / 256 texels a side; the height file
    // holds a float per cell. The report and the previews name the shadow maps only.
    for (const std::string name : {"m/shade0", "m/shade1"}) {
        EXPECT_EQ(FileSize(name + ".dah"), 8 * 8 * 4);
        EXPECT_TRUE(Contains(run.output, "shadow map " + dir.File(name + ".dat") + "\n"))
            << run.output;
        ExpectPreviewOf(name + ".dat.png", name + ".dat", 8, 8, 8);
        EXPECT_FALSE(fs::exists(name + ".dah.png"));
    }
    EXPECT_FALSE(fs::exists("m/shade.dat"));
    EXPECT_TRUE(Contains(run.output, "1 map baked")) << run.output;  // frames are one map
}

TEST_F(BakeCli, BatchRunsTheLastJobFirstWithItsOwnNames) {
    ASSERT_TRUE(MakeMap("one", 8, 1));
    ASSERT_TRUE(MakeMap("two", 8, 2));
    WriteWholeFile("plain.ssf", "AMBIENT 100\n");
    // A job may spread over lines.
    WriteWholeFile("jobs.bat",
                   "one/test.vbf first.dat plain.ssf\ntwo/test.vbf\nsecond.dat "
                   "plain.ssf\n");
    ToolRun run = RunBake({"--batch", "jobs.bat", "--texture-size", "64", "--png-beside"});
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(FileSize("one/first.dat"), 64 * 64);
    EXPECT_EQ(FileSize("two/second.dat"), 64 * 64);
    EXPECT_TRUE(fs::exists("one/first.dat.png"));
    EXPECT_FALSE(fs::exists("one/texture.dat"));
    size_t two = run.output.find("MAP: two/test.vbf"), one = run.output.find("MAP: one/test.vbf");
    ASSERT_NE(one, std::string::npos) << run.output;
    EXPECT_LT(two, one);
    EXPECT_TRUE(Contains(run.output, "2 maps baked")) << run.output;
}

TEST_F(BakeCli, QuietStatsVersionAndHelp) {
    ASSERT_TRUE(MakeMap("m", 8));
    ToolRun quiet = RunBake({"m", "--texture-size", "64", "--quiet"});
    ASSERT_EQ(quiet.status, 0) << quiet.output;
    EXPECT_EQ(quiet.output, "");
    EXPECT_EQ(FileSize("m/texture.dat"), 64 * 64);

    // 8 cells at 256 texels: 8 x 8 samples, one ray down and one to the light for each hit.
    ToolRun stats = RunBake({"m", "--texture-size", "256", "--stats"});
    ASSERT_EQ(stats.status, 0) << stats.output;
    for (const char* part : {"m/test.vbf: 64 samples, ", "(64 down, ", " rays/s\n", "table "})
        EXPECT_TRUE(Contains(stats.output, part)) << stats.output;

    ToolRun version = RunBake({"--version"});
    EXPECT_EQ(version.status, 0);
    EXPECT_EQ(version.output.rfind("tenebrix-bake ", 0), 0u) << version.output;
    ToolRun help = RunBake({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.output.rfind("Usage: tenebrix-bake MAP", 0), 0u) << help.output;
}

TEST_F(BakeCli, BakesTheBundledSampleMap) {
    fs::copy(TENEBRIX_SAMPLE_DIR, "sample", fs::copy_options::recursive);
    fs::remove("sample/texture.dat");
    fs::remove("sample/test.lit");
    const std::vector<std::string> args = {
        "sample", "--config", "sample/resource.cfg", "--script", "noon", "--texture-size", "2048"};
    ToolRun run = RunBake(args);
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(FileSize("sample/texture.dat"), 2048 * 2048);
    EXPECT_EQ(ReadWholeFile("sample/test.lit"), ReadWholeFile("sample/lit/noon.lit"));
    EXPECT_TRUE(PartialFiles(dir.Path()).empty());

    // Two bakes of one output side by side, both started before either is waited for: both
    // succeed, and the last one's whole file stands.
    const std::string single = ReadWholeFile("sample/texture.dat");
    std::vector<std::string> quiet = {TENEBRIX_BAKE};
    quiet.insert(quiet.end(), args.begin(), args.end());
    quiet.push_back("--quiet");  // a failure still says why, on the test's own output
    std::vector<char*> argv;
    for (std::string& arg : quiet) argv.push_back(arg.data());
    argv.push_back(nullptr);
    for (int round = 0; round < 8; ++round) {
        pid_t bakes[2] = {};
        for (pid_t& bake : bakes)
            ASSERT_EQ(posix_spawn(&bake, TENEBRIX_BAKE, nullptr, nullptr, argv.data(), environ), 0);
        for (pid_t bake : bakes) {
            int status = -1;
            waitpid(bake, &status, 0);
            EXPECT_EQ(DecodeWaitStatus(status), 0) << "round " << round;
        }
        ASSERT_EQ(ReadWholeFile("sample/texture.dat"), single) << "round " << round;
    }
    EXPECT_TRUE(PartialFiles(dir.Path()).empty());
}

}  // namespace
