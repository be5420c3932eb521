// tenebrix-bake and tenebrix-mkmap run as child processes: what a good run writes.
#include <gtest/gtest.h>
#include <zlib.h>
#include <png.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/apps/cli_run.h"

namespace fs = std::filesystem;

namespace {

// The preview's pixels against the light levels (255 - byte) of the shadow map's top left corner,
// width texels of it, each drawn as scale by scale pixels.
void ExpectPreviewOf(const std::string& png, const std::string& shadowMap, int side, uint32_t width,
                     uint32_t scale) {
    width *= scale;
    std::string bytes = ReadWholeFile(png), texels = ReadWholeFile(shadowMap);
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_memory(&image, bytes.data(), bytes.size())) << png;
    ASSERT_EQ(std::make_pair(image.width, image.height), std::make_pair(width, width)) << png;
    image.format = PNG_FORMAT_GRAY;
    std::vector<uint8_t> pixels(PNG_IMAGE_SIZE(image));
    ASSERT_TRUE(png_image_finish_read(&image, nullptr, pixels.data(), 0, nullptr));
    ASSERT_EQ(texels.size(), size_t(side) * size_t(side));
    int wrong = 0;
    for (uint32_t i = 0; i < width * width; ++i)
        wrong += pixels[i] != 255 - uint8_t(texels[i / width / scale * side + i % width / scale]);
    EXPECT_EQ(wrong, 0) << png;
}

class BakeCli : public ::testing::Test {
protected:
    TempDir dir;
};

// The committed sample shadow map is the morning script's bake at the default size. Two bakes of
// one output at once, at different thread counts, both succeed and leave that whole file.
TEST_F(BakeCli, TheSampleMapBakesToItsCommittedShadowMap) {
    fs::copy(TENEBRIX_SAMPLE_DIR, "sample", fs::copy_options::recursive);
    fs::remove("sample/texture.dat");  // the kept bake: this run must write its own
    fs::remove("sample/test.lit");
    std::vector<std::string> args = Words("sample --config sample/resource.cfg --script morning -q");
    ToolRun run = RunTool(TENEBRIX_BAKE, args);
    ASSERT_EQ(run.status, 0) << run.output;
    const std::string expected = ReadWholeFile("sample/texture.dat");
    ASSERT_EQ(expected.size(), 2048u * 2048u);
    // The kept bake beside the sample, which tenebrix-view shows without baking, is this bake.
    EXPECT_EQ(crc32(0, reinterpret_cast<const Bytef*>(expected.data()), uInt(expected.size())),
              0x2dd1eda3u);
    EXPECT_TRUE(expected == ReadWholeFile(TENEBRIX_SAMPLE_DIR "/texture.dat"));
    EXPECT_EQ(ReadWholeFile("sample/test.lit"), ReadWholeFile("sample/lit/morning.lit"));
    std::vector<std::string> single = args;
    single.insert(single.end(), {"--threads", "1"});
    for (int round = 0; round < 4; ++round) {
        for (pid_t bake : {SpawnTool(TENEBRIX_BAKE, args, dir.File("a.txt")),
                           SpawnTool(TENEBRIX_BAKE, single, dir.File("b.txt"))}) {
            int status = -1;
            ASSERT_EQ(waitpid(bake, &status, 0), bake);
            EXPECT_EQ(DecodeWaitStatus(status), 0) << ReadWholeFile("a.txt") << ReadWholeFile("b.txt");
        }
        ASSERT_EQ(ReadWholeFile("sample/texture.dat"), expected) << "round " << round;
    }
    EXPECT_TRUE(PartialFiles(dir.Path()).empty());
}

// A folder, a relative file and an absolute file name the same map; --out is relative to the
// map, not to where the user stands; a dot in a folder's name hides nothing.
TEST_F(BakeCli, MapByFolderOrFileWritesTheSameBytesBesideIt) {
    fs::create_directory("maps.v2");
    ASSERT_TRUE(MakeMap("maps.v2/m", 12));
    ToolRun run = RunBake("maps.v2/m --texture-size 256");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_TRUE(Contains(run.output, "shadow map " + dir.File("maps.v2/m/texture.dat") + "\n"));
    EXPECT_TRUE(Contains(run.output, "1 map baked")) << run.output;
    EXPECT_FALSE(Contains(run.output, "resource.cfg")) << run.output;  // no script, no word of it
    std::string first = ReadWholeFile("maps.v2/m/texture.dat");
    ASSERT_EQ(first.size(), 256u * 256u);
    EXPECT_NE(first.find_first_not_of(first[0]), std::string::npos);
    for (const std::string& map : {std::string("maps.v2/m/test.vbf"), dir.File("maps.v2/m/test.vbf")}) {
        fs::remove("maps.v2/m/b.dat");
        ASSERT_EQ(RunBake(map + " --texture-size=256 --out=b.dat").status, 0);
        EXPECT_EQ(ReadWholeFile("maps.v2/m/b.dat"), first) << map;
    }
    EXPECT_FALSE(fs::exists("b.dat"));
}

// A preview shows the map's part, at least a pixel; so does each frame's, beside a height file of a
// float a cell, and --png puts the frames on a contact sheet. A preview that can't be written fails the run, though the shadow map is there.
TEST_F(BakeCli, PreviewsAndFramesShowTheMapsPart) {
    ASSERT_TRUE(MakeMap("m", 8));
    ASSERT_TRUE(MakeMap("tiny", 2));
    WriteWholeFile("frames.ssf", "HEIGHTDATA\nANIMATED 2\n");
    ToolRun run =
        RunBake("m --texture-size 256 --script frames.ssf --out shade.dat --png new/m.png --png-beside");
    ASSERT_EQ(run.status, 0) << run.output;
    for (const std::string name : {"m/shade0", "m/shade1"}) {
        EXPECT_EQ(ReadWholeFile(name + ".dah").size(), 8u * 8u * 4u);
        EXPECT_TRUE(Contains(run.output, "shadow map " + dir.File(name + ".dat") + "\n")) << run.output;
        ExpectPreviewOf(name + ".dat.png", name + ".dat", 8, 8, 64);  // 512 on the long side
        EXPECT_FALSE(fs::exists(name + ".dah.png"));
    }
    EXPECT_TRUE(Contains(run.output, "contact sheet " + dir.File("new/m.png"))) << run.output;
    EXPECT_FALSE(fs::exists("m/shade.dat"));
    EXPECT_TRUE(Contains(run.output, "1 map baked")) << run.output;
    ASSERT_EQ(RunBake("tiny --texture-size 64 --png tiny.png --png-scale 3").status, 0);
    ExpectPreviewOf("tiny.png", "tiny/texture.dat", 64, 1, 3);
    fs::create_directory("taken.png");
    ToolRun blocked = RunBake("m --texture-size 64 --png taken.png");
    EXPECT_EQ(blocked.status, 1) << blocked.output;
    EXPECT_TRUE(Contains(blocked.output, "the preview " + dir.File("taken.png"))) << blocked.output;
    EXPECT_EQ(ReadWholeFile("m/texture.dat").size(), 64u * 64u);
}

// A script by its path (from where the user stands), or by name in the config's LIT folder with
// or without ".ssf": the same bake, and the light description it names, from beside the script or
// from the LIT folder, goes beside the map.
TEST_F(BakeCli, ScriptByPathOrByNameInTheLitFolder) {
    ASSERT_TRUE(MakeMap("m", 8));
    fs::create_directories("conf/lit");
    WriteWholeFile("conf/resource.cfg", "LIT lit\n");
    WriteWholeFile("conf/lit/k=dusk.ssf", "LIGHT -1 0.3 0.2\nAMBIENT 40\nSCRIPT dusk.lit\n");
    WriteWholeFile("conf/lit/dusk.lit", "dusk light\n");
    ASSERT_EQ(RunBake("m --texture-size 256 --out plain.dat").status, 0);
    ASSERT_EQ(RunBake("m --texture-size 256 --script=conf/lit/k=dusk.ssf").status, 0);
    std::string dusk = ReadWholeFile("m/texture.dat");
    EXPECT_NE(dusk, ReadWholeFile("m/plain.dat"));
    EXPECT_EQ(ReadWholeFile("m/test.lit"), "dusk light\n");
    fs::remove("m/test.lit");
    for (const char* name : {"k=dusk", "k=dusk.ssf"}) {
        fs::remove("m/texture.dat");
        ToolRun run =
            RunBake(std::string("m --texture-size 256 --config conf/resource.cfg --script ") + name);
        ASSERT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(ReadWholeFile("m/texture.dat"), dusk) << name;
        EXPECT_EQ(ReadWholeFile("m/test.lit"), "dusk light\n") << name;
        fs::remove("m/test.lit");
    }
}

// 8 cells at 256 texels: 8 x 8 samples, a ray down for each. Words that are no keys only warn.
TEST_F(BakeCli, QuietStatsAndScriptWarnings) {
    ASSERT_TRUE(MakeMap("m", 8));
    ToolRun quiet = RunBake("m --texture-size 64 -q");
    EXPECT_EQ(std::make_pair(quiet.status, quiet.output), std::make_pair(0, std::string()));
    EXPECT_EQ(ReadWholeFile("m/texture.dat").size(), 64u * 64u);
    WriteWholeFile("mixed.ssf", "AMBIENT 90 sunset\n");
    ToolRun stats = RunBake("m --texture-size 256 --stats --script mixed.ssf");
    ASSERT_EQ(stats.status, 0) << stats.output;
    for (const char* part : {"m/test.vbf: 64 samples, ", "(64 down, ", " rays/s\n", "table ",
                             "warning: ", "1 words are no keys"})
        EXPECT_TRUE(Contains(stats.output, part)) << part << " in " << stats.output;
}

TEST(MkmapCli, TheSeedAloneDecidesTheBytes) {
    TempDir dir;
    ToolRun run = RunTool(TENEBRIX_MKMAP, Words("out/a --cells 6 --seed 7"));
    EXPECT_EQ(run.output.rfind("out/a/test.vbf: 6 x 6 cells, ", 0), 0u) << run.output;
    ASSERT_TRUE(MakeMap("again", 6, 7) && MakeMap("other", 6, 8));
    for (const char* name : {"test.vbf", "textures/grass.tga", "textures/rock.tga", "textures/wall.tga",
                             "textures/roof.tga", "textures/wood.tga"})
        EXPECT_EQ(ReadWholeFile(std::string("again/") + name), ReadWholeFile(std::string("out/a/") + name))
            << name;
    EXPECT_NE(ReadWholeFile("other/test.vbf"), ReadWholeFile("again/test.vbf"));
}

}  // namespace
