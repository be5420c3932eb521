#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/tool/bake_run_fixture.h"
#include "tool/mesh_builder.h"

namespace fs = std::filesystem;

class BakeRun : public BakeRunFixture {};

TEST(MapType, LetterIsTheThirdCharacterFromTheFirstDot) {
    EXPECT_EQ(MapTypeLetter("maps/test.vbf"), 'b');
    EXPECT_EQ(MapTypeLetter("MAPS/TEST.VBF"), 'B');
    EXPECT_EQ(MapTypeLetter("maps/test.vaf"), 'a');
    EXPECT_EQ(MapTypeLetter("test.vaf.vbf"), 'a');
    // The first dot of the whole path, not of the file name.
    EXPECT_EQ(MapTypeLetter("old.maps/test.vbf"), 'a');
    EXPECT_EQ(MapTypeLetter("v1.0/test.vbf"), '/');
    EXPECT_EQ(MapTypeLetter("x.vb/test.vaf"), 'b');
    // Nothing behind the dot, or no dot at all, gives no letter and no read past the text.
    EXPECT_EQ(MapTypeLetter("maps/test"), 0);
    EXPECT_EQ(MapTypeLetter("maps/test."), 0);
    EXPECT_EQ(MapTypeLetter("maps/test.b"), 0);
    EXPECT_EQ(MapTypeLetter(""), 0);
}

TEST_F(BakeRun, LetterNotTheFileChoosesTheLoader) {
    WriteMap("upper/TEST.VBF", Chunks(8, 8));
    EXPECT_EQ(Run("upper/TEST.VBF").baked, 1);
    EXPECT_EQ(Read("upper/texture.dat").size(), 256u * 256u);

    // A binary map under a text map's name, in a folder whose dot makes the letter b.
    WriteMap("x.vb/test.vaf", Chunks(8, 8));
    BakeRunResult result = Run("x.vb/test.vaf");
    EXPECT_EQ(result.baked, 1);
    EXPECT_EQ(result.failed, 0);
    EXPECT_TRUE(Exists("x.vb/texture.dat"));

    // The same bytes under ".vaf" in a plain folder go to the text reader and are refused.
    WriteMap("plain/test.vaf", Chunks(8, 8));
    result = Run("plain/test.vaf");
    EXPECT_EQ(result.baked, 0);
    EXPECT_EQ(result.failed, 1);
    EXPECT_TRUE(RefusalLogged("plain/test.vaf"));
    EXPECT_FALSE(Exists("plain/texture.dat"));
    WriteMap("PLAIN/TEST.VAF", Chunks(8, 8));
    EXPECT_EQ(Run("PLAIN/TEST.VAF").failed, 1);
    EXPECT_TRUE(RefusalLogged("PLAIN/TEST.VAF"));
    EXPECT_TRUE(RecordedErrors.empty());  // both letters of a text map are known
}

TEST_F(BakeRun, UnknownLetterRaisesTheErrorAndTheRunEndsCleanly) {
    WriteMap("v1.0/test.vbf", Chunks(8, 8));  // a good map the dot in its folder spoils
    WriteMap("maps/test", Chunks(8, 8));
    for (const char* path : {"v1.0/test.vbf", "maps/test"}) {
        RecordedErrors.clear();
        BakeRunResult result = Run(path);
        EXPECT_EQ(result.baked, 0) << path;
        EXPECT_EQ(result.failed, 1) << path;
        ASSERT_EQ(RecordedErrors.size(), 1u) << path;
        EXPECT_EQ(RecordedErrors[0].code, uint32_t(CorvaneCodeError));
        EXPECT_EQ(RecordedErrors[0].text,
                  std::string("Load File - Invalid file extension on ") + path + "\n");
    }
    EXPECT_FALSE(Exists("v1.0/texture.dat"));
    EXPECT_FALSE(Exists("maps/texture.dat"));
    EXPECT_FALSE(Exists("texture.dat"));
}

TEST_F(BakeRun, MapSizeComesFromTheFilesChunks) {
    // Ground over the whole square; only the cells that the file names are sampled.
    auto wide = [](CMesh* root) { FlatGround(root, 8192.0f); };
    WriteMap("small/test.vbf", Chunks(4, 2), wide);
    DebugCapture capture;
    EXPECT_EQ(Run("small/test.vbf").baked, 1);
    EXPECT_EQ(ShadowSettings.MapCellsX, 4);
    EXPECT_EQ(ShadowSettings.MapCellsY, 2);
    EXPECT_NE(capture.Text().find("Map size is (4, 2)"), std::string::npos);
    std::string file = Read("small/texture.dat");
    EXPECT_EQ(Byte(file, 1, 3), 0);    // lit, inside the map
    EXPECT_EQ(Byte(file, 1, 4), 127);  // beyond 4 cells in x: never sampled, Ambient 128
    EXPECT_EQ(Byte(file, 2, 0), 127);  // beyond 2 cells in y

    // Other chunks and a second size chunk before the end mark; rubbish behind it.
    std::vector<uint8_t> chunks = {
        0x02, 0x00, 0x00, 0xA0, 8, 0, 0, 0,    1,    0,    0,    0,    1,    0, 0, 0,    0x44, 0x33,
        0x22, 0x11, 3,    0,    0, 0, 9, 9,    9,    0x02, 0x00, 0x00, 0xA0, 8, 0, 0,    0,    6,
        0,    0,    0,    5,    0, 0, 0, 0x00, 0x00, 0x00, 0xA0, 0,    0,    0, 0, 0xFF, 0xFF};
    WriteMap("chunks/test.vbf", chunks, wide);
    EXPECT_EQ(Run("chunks/test.vbf").baked, 1);
    EXPECT_EQ(ShadowSettings.MapCellsX, 6);
    EXPECT_EQ(ShadowSettings.MapCellsY, 5);
    file = Read("chunks/texture.dat");
    EXPECT_EQ(Byte(file, 4, 5), 0);
    EXPECT_EQ(Byte(file, 4, 6), 127);
    EXPECT_EQ(Byte(file, 5, 5), 127);
}

TEST_F(BakeRun, BlockThatIsNoMapIsRefusedAndTheSizeStays) {
    struct Case {
        const char* what;
        std::vector<uint8_t> userData;
    };
    std::vector<Case> cases = {
        {"none", {}},
        {"end mark first", {0x00, 0x00, 0x00, 0xA0, 0, 0, 0, 0}},
        {"other chunk first", {0x07, 0, 0, 0, 0, 0, 0, 0, 0x02, 0,    0,    0xA0, 8, 0, 0, 0,
                               4,    0, 0, 0, 4, 0, 0, 0, 0x00, 0x00, 0x00, 0xA0, 0, 0, 0, 0}},
        {"chunk past the end", {0x02, 0, 0,    0xA0, 8, 0, 0,  0, 4, 0, 0, 0, 4, 0,
                                0,    0, 0x07, 0,    0, 0, 64, 0, 0, 0, 1, 2, 3, 4}},
        {"no end mark", {0x02, 0, 0, 0xA0, 8, 0, 0, 0, 4, 0, 0, 0, 4, 0, 0, 0}},
        {"short size chunk",
         {0x02, 0, 0, 0xA0, 4, 0, 0, 0, 4, 0, 0, 0, 0x00, 0x00, 0x00, 0xA0, 0, 0, 0, 0}},
        {"size values cut", {0x02, 0, 0, 0xA0, 8, 0, 0, 0, 4, 0, 0}},
    };
    ShadowSettings.MapCellsX = 8;
    ShadowSettings.MapCellsY = 7;
    for (const Case& c : cases) {
        fs::remove_all(dir.File("bad"));
        WriteMap("bad/test.vbf", c.userData);
        MessageLogClear();
        BakeRunResult result = Run("bad/test.vbf");
        EXPECT_EQ(result.baked, 0) << c.what;
        EXPECT_EQ(result.failed, 1) << c.what;
        EXPECT_TRUE(RefusalLogged("bad/test.vbf")) << c.what;
        EXPECT_FALSE(Exists("bad/texture.dat")) << c.what;
        EXPECT_EQ(ShadowSettings.MapCellsX, 8) << c.what;
        EXPECT_EQ(ShadowSettings.MapCellsY, 7) << c.what;
    }
    // A map that isn't there, or is cut short, is refused the same way.
    MessageLogClear();
    EXPECT_EQ(Run("gone/test.vbf").failed, 1);
    EXPECT_TRUE(RefusalLogged("gone/test.vbf"));
    WriteWholeFile(dir.File("bad/junk.vbf"), std::string("\1\0\0", 3));  // a header cut short
    EXPECT_EQ(Run("bad/junk.vbf").failed, 1);
    EXPECT_TRUE(RefusalLogged("bad/junk.vbf"));
    EXPECT_TRUE(RecordedErrors.empty());
}

TEST_F(BakeRun, OutputLandsBesideTheMapAndTheRunReturnsToTheStart) {
    if (dir.Path().find('.') != std::string::npos) GTEST_SKIP() << "a dot in the temporary path";
    fs::create_directories(dir.File("start"));
    fs::create_directories(dir.File("elsewhere"));
    std::snprintf(StartDirectory, sizeof StartDirectory, "%s", dir.File("start").c_str());
    ASSERT_EQ(_chdir(StartDirectory), 0);
    WriteMap("maps/one/test.vbf", Chunks(8, 8));
    WriteMap("start/maps/two/test.vbf", Chunks(8, 8));
    SetMapBakedCallback(RecordBaked);

    EXPECT_EQ(Run(dir.File("maps/one/test.vbf")).baked, 1);
    EXPECT_EQ(Read("maps/one/texture.dat").size(), 256u * 256u);
    EXPECT_FALSE(Exists("start/texture.dat"));

    // A relative map is found from the start directory, and so is its output; a name set by a
    // front end is just as relative.
    SetBakeOutputName("shadow.bin");
    EXPECT_EQ(Run("maps/two/test.vbf").baked, 1);
    EXPECT_TRUE(Exists("start/maps/two/shadow.bin"));
    EXPECT_FALSE(Exists("start/maps/two/texture.dat"));
    EXPECT_FALSE(Exists("start/shadow.bin"));

    ASSERT_EQ(BakedIn.size(), 2u);
    EXPECT_TRUE(fs::equivalent(BakedIn[0], dir.File("maps/one")));
    EXPECT_TRUE(fs::equivalent(BakedIn[1], dir.File("start/maps/two")));
    EXPECT_EQ(BakedNames[0], "texture.dat");
    EXPECT_EQ(BakedNames[1], "shadow.bin");
}

TEST_F(BakeRun, LightDescriptionIsCopiedFromTheStartDirectory) {
    if (dir.Path().find('.') != std::string::npos) GTEST_SKIP() << "a dot in the temporary path";
    WriteWholeFile(dir.File("resource.cfg"), "LIT lights\nTEXTURE_DATA textures\n");
    fs::create_directories(dir.File("lights"));
    WriteWholeFile(dir.File("lights/noon.lit"), "the light at noon");
    Resources = new ResourceManager(dir.File("resource.cfg").c_str());
    WriteMap("maps/test.vbf", Chunks(8, 8));
    std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "noon.lit");

    // The run ends in the map's folder, so a relative map's target is taken from the start.
    Run("maps/test.vbf");
    EXPECT_EQ(Read("maps/test.lit"), "the light at noon");
    EXPECT_FALSE(Exists("maps/maps"));

    WriteWholeFile(dir.File("lights/dusk.lit"), "dusk");
    std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "dusk.lit");
    Run(dir.File("maps/test.vbf"));
    EXPECT_EQ(Read("maps/test.lit"), "dusk");

    // The old description goes first, so one that can't be copied leaves none.
    for (const char* lit : {"", "missing.lit"}) {
        WriteWholeFile(dir.File("maps/test.lit"), "older");
        std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "%s", lit);
        EXPECT_EQ(Run("maps/test.vbf").baked, 1);
        EXPECT_FALSE(Exists("maps/test.lit")) << "LitFile '" << lit << "'";
    }
}

TEST_F(BakeRun, NoLightDescriptionWithoutALitFolder) {
    // Where a path made without the LIT folder would point.
    WriteWholeFile(dir.File("noon.lit"), "noon");
    fs::create_directories(dir.File("(null)"));
    WriteWholeFile(dir.File("(null)/noon.lit"), "noon");
    std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "noon.lit");
    WriteMap("maps/test.vbf", Chunks(8, 8));

    EXPECT_EQ(Run("maps/test.vbf").baked, 1);
    EXPECT_FALSE(Exists("maps/test.lit"));

    WriteWholeFile(dir.File("resource.cfg"), "TEXTURE_DATA textures\n");
    Resources = new ResourceManager(dir.File("resource.cfg").c_str());
    EXPECT_EQ(Run("maps/test.vbf").baked, 1);
    EXPECT_FALSE(Exists("maps/test.lit"));
}

TEST_F(BakeRun, FlatMapBytesUnderOverheadAndSlantingLight) {
    WriteMap("flat/test.vbf", Chunks(8, 8));
    ShadowSettings.Light = {0.0f, 5.0f, 0.0f};
    // Without a display the viewer can't be shown: the run ends as after a batch.
    BakeRunResult result = Run("flat/test.vbf", 1);
    EXPECT_EQ(result.baked, 1);
    EXPECT_EQ(result.failed, 0);
    std::string file = Read("flat/texture.dat");
    ASSERT_EQ(file.size(), 256u * 256u);
    EXPECT_EQ(Byte(file, 0, 0), 0);  // N.L 1: v 255, level 128 + 255 capped at 255
    EXPECT_EQ(Byte(file, 7, 7), 0);
    EXPECT_EQ(Byte(file, 8, 0), 127);  // outside the map: Ambient 128
    EXPECT_EQ(Byte(file, 0, 8), 127);
    EXPECT_EQ(Byte(file, 255, 255), 127);

    // The same process again, the light 60 degrees from the vertical and no ambient.
    ShadowSettings.Ambient = 0;
    ShadowSettings.Light = {float(std::sin(M_PI / 3)), float(std::cos(M_PI / 3)), 0.0f};
    EXPECT_EQ(Run("flat/test.vbf").baked, 1);
    file = Read("flat/texture.dat");
    EXPECT_EQ(Byte(file, 0, 0), 192);  // s 0.5, sample 127, level 63
    EXPECT_EQ(Byte(file, 3, 5), 192);
    EXPECT_EQ(Byte(file, 3, 8), 255);  // outside: level 0
}

TEST_F(BakeRun, RoofOnPostsShadowsTheGroundAwayFromTheLight) {
    // Roof from x 64 to 128 and z -60 to -196 at y 50 to 60, on four thin posts that stand
    // between the sample rows; the light comes from +x at 45 degrees.
    WriteMap("roof/test.vbf", Chunks(8, 8), [](CMesh* root) {
        FlatGround(root, 256.0f);
        MeshBuilder builder;
        builder.AddBox({64, 50, -196}, {128, 60, -60});
        for (float x : {64.0f, 124.0f})
            for (float z : {-80.0f, -180.0f}) builder.AddBox({x, 0, z}, {x + 4, 50, z + 4});
        builder.Build(root, "shelter");
    });
    ShadowSettings.Ambient = 0;
    ShadowSettings.Light = {1.0f, 1.0f, 0.0f};
    EXPECT_EQ(Run("roof/test.vbf").baked, 1);
    std::string file = Read("roof/texture.dat");
    ASSERT_EQ(file.size(), 256u * 256u);
    // Lit ground: s 0.7071, sample 180, level 127. In shadow: level 0.
    for (int row = 2; row <= 6; ++row) {
        EXPECT_EQ(Byte(file, row, 0), 128) << row;  // its ray passes in front of the roof
        EXPECT_EQ(Byte(file, row, 1), 255) << row;  // x 32: the roof is in the way
        EXPECT_EQ(Byte(file, row, 2), 128) << row;  // the roof's top, as level as the ground
        EXPECT_EQ(Byte(file, row, 3), 128) << row;
        EXPECT_EQ(Byte(file, row, 5), 128) << row;  // beyond the roof, towards the light
    }
    // Rows beside the roof are not shadowed.
    for (int row : {0, 1, 7}) EXPECT_EQ(Byte(file, row, 1), 128) << row;
}

TEST_F(BakeRun, ReportsNameTheShadowMapAndAnUnwritableOneFails) {
    WriteMap("maps/test.vbf", Chunks(8, 8));
    SetMapBakedCallback(RecordBaked);
    ShadowSettings.WriteHeightData = 1;
    EXPECT_EQ(Run("maps/test.vbf").baked, 1);
    EXPECT_EQ(Read("maps/texture.dah").size(), 8u * 8u * 4u);
    // The pass makes the height file's name in its buffer; the run still names the shadow map.
    EXPECT_EQ(BakedNames, std::vector<std::string>{"texture.dat"});

    fs::remove(dir.File("maps/texture.dat"));
    fs::create_directories(dir.File("maps/texture.dat"));  // in the way of the file
    ShadowSettings.WriteHeightData = 0;
    MessageLogClear();
    BakeRunResult result = Run("maps/test.vbf");
    EXPECT_EQ(result.baked, 0);
    EXPECT_EQ(result.failed, 1);
    EXPECT_TRUE(RefusalLogged("maps/test.vbf"));
    EXPECT_EQ(BakedNames.size(), 1u);  // no callback for a map that wasn't written
}
