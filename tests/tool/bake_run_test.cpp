#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/tool/bake_run_fixture.h"

namespace fs = std::filesystem;

class BakeRun : public BakeRunFixture {};

TEST(MapType, LetterIsTheThirdCharacterFromTheFirstDot) {
    const std::pair<const char*, char> cases[] = {
        {"maps/test.vbf", 'b'},
        {"MAPS/TEST.VBF", 'B'},
        {"test.vaf.vbf", 'a'},
        // The first dot of the whole path, not of the file name.
        {"old.maps/test.vbf", 'a'},
        {"v1.0/test.vbf", '/'},
        {"x.vb/test.vaf", 'b'},
        // Nothing behind the dot, or no dot at all: no letter and no read past the text.
        {"maps/test", 0},
        {"maps/test.", 0},
        {"maps/test.b", 0},
        {"", 0}};
    for (const auto& [path, letter] : cases) EXPECT_EQ(MapTypeLetter(path), letter) << path;
}

// A single map is typed by its file's extension, whatever dots its folders hold; the letter
// behind the first dot types a batch list's maps only.
TEST_F(BakeRun, TheExtensionChoosesTheLoader) {
    struct Case {
        const char* path;
        bool baked;
        const char* error;  // raised by an unknown letter
    };
    const Case cases[] = {
        {"upper/TEST.VBF", true, nullptr},
        {"v1.0/test.vbf", true, nullptr},
        {"x.vb/test.vaf", false, nullptr},  // binary bytes under a text map's name
        {"PLAIN/TEST.VAF", false, nullptr},
        {"maps/test", false, "Load File - Invalid file extension on maps/test\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        std::string folder = fs::path(c.path).parent_path().string();
        WriteMap(c.path, MakeMapChunks(8, 8));
        RecordedErrors.clear();
        BakeRunResult result = Run(c.path);
        EXPECT_EQ(result.baked, c.baked ? 1 : 0);
        EXPECT_EQ(result.failed, c.baked ? 0 : 1);
        EXPECT_EQ(Read(folder + "/texture.dat").size(), c.baked ? 256u * 256u : 0u);
        if (c.error) {
            EXPECT_EQ(RecordedErrors, std::vector<std::string>{c.error});
        } else {
            EXPECT_TRUE(RecordedErrors.empty());
            EXPECT_EQ(RefusalLogged(c.path), !c.baked);
        }
    }
    EXPECT_FALSE(Exists("texture.dat"));
}

TEST_F(BakeRun, MapSizeComesFromTheFilesChunks) {
    // Ground over the whole square; only the cells that the file names are sampled.
    WriteMap("small/test.vbf", MakeMapChunks(4, 2), [](CMesh* root) { FlatGround(root, 8192); });
    DebugCapture capture;
    EXPECT_EQ(Run("small/test.vbf").baked, 1);
    EXPECT_EQ(ShadowSettings.MapCellsX, 4);
    EXPECT_EQ(ShadowSettings.MapCellsY, 2);
    EXPECT_NE(capture.Text().find("Map size is (4, 2)"), std::string::npos);
    std::string file = Read("small/texture.dat");
    EXPECT_EQ(Byte(file, 1, 3), 0);    // lit, inside the map
    EXPECT_EQ(Byte(file, 1, 4), 127);  // beyond 4 cells in x: never sampled, Ambient 128
    EXPECT_EQ(Byte(file, 2, 0), 127);  // beyond 2 cells in y
}

TEST_F(BakeRun, MapThatIsNoMapIsRefusedAndTheSizeStays) {
    ShadowSettings.MapCellsX = 8;
    ShadowSettings.MapCellsY = 7;
    WriteMap("none/test.vbf", {});
    WriteMap("cut/test.vbf", {0x02, 0, 0, 0xA0, 8, 0, 0, 0, 4, 0, 0, 0, 4, 0, 0, 0});  // no end
    WriteWholeFile(dir.File("junk/test.vbf"), std::string("\1\0\0", 3));  // a header cut short
    for (const char* path : {"none/test.vbf", "cut/test.vbf", "gone/test.vbf", "junk/test.vbf"}) {
        BakeRunResult result = Run(path);
        EXPECT_EQ(result.baked, 0) << path;
        EXPECT_EQ(result.failed, 1) << path;
        EXPECT_TRUE(RefusalLogged(path)) << path;
        EXPECT_FALSE(Exists(fs::path(path).parent_path() / "texture.dat")) << path;
    }
    EXPECT_EQ(ShadowSettings.MapCellsX, 8);
    EXPECT_EQ(ShadowSettings.MapCellsY, 7);
    EXPECT_TRUE(RecordedErrors.empty());
}

TEST_F(BakeRun, OutputLandsBesideTheMapAndTheRunReturnsToTheStart) {
    if (dir.Path().find('.') != std::string::npos) GTEST_SKIP() << "a dot in the temporary path";
    fs::create_directories(dir.File("start"));
    std::snprintf(StartDirectory, sizeof StartDirectory, "%s", dir.File("start").c_str());
    ASSERT_EQ(_chdir(StartDirectory), 0);
    WriteMap("maps/one/test.vbf", MakeMapChunks(8, 8));
    WriteMap("start/maps/two/test.vbf", MakeMapChunks(8, 8));
    SetMapBakedCallback(RecordBaked);

    EXPECT_EQ(Run(dir.File("maps/one/test.vbf")).baked, 1);
    EXPECT_EQ(Listing("maps/one"), (std::vector<std::string>{"test.vbf", "texture.dat"}));
    // A relative map is found from the start directory, and so is its output; a name set by a
    // front end is just as relative.
    SetBakeOutputName("shadow.bin");
    EXPECT_EQ(Run("maps/two/test.vbf").baked, 1);
    EXPECT_EQ(Listing("start/maps/two"), (std::vector<std::string>{"shadow.bin", "test.vbf"}));
    EXPECT_EQ(Listing("start"), std::vector<std::string>{"maps"});

    ASSERT_EQ(BakedIn.size(), 2u);
    EXPECT_TRUE(fs::equivalent(BakedIn[0], dir.File("maps/one")));
    EXPECT_TRUE(fs::equivalent(BakedIn[1], dir.File("start/maps/two")));
    for (const fs::path& stood : StoodIn) EXPECT_TRUE(fs::equivalent(stood, StartDirectory));
    EXPECT_EQ(BakedNames, (std::vector<std::string>{"texture.dat", "shadow.bin"}));
}

TEST_F(BakeRun, LightDescriptionIsCopiedFromTheLitFolder) {
    if (dir.Path().find('.') != std::string::npos) GTEST_SKIP() << "a dot in the temporary path";
    WriteMap("maps/test.vbf", MakeMapChunks(8, 8));
    // Where a path made without the LIT folder would point.
    WriteWholeFile(dir.File("noon.lit"), "noon");
    fs::create_directories(dir.File("(null)"));
    WriteWholeFile(dir.File("(null)/noon.lit"), "noon");
    std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "noon.lit");
    for (const char* config : {"", "TEXTURE_DATA textures\n"}) {
        if (*config) {
            WriteWholeFile(dir.File("resource.cfg"), config);
            Resources = new ResourceManager(dir.File("resource.cfg").c_str());
        }
        EXPECT_EQ(Run("maps/test.vbf").baked, 1);
        EXPECT_FALSE(Exists("maps/test.lit")) << "no LIT folder, config '" << config << "'";
    }
    delete Resources;

    WriteWholeFile(dir.File("resource.cfg"), "LIT lights\nTEXTURE_DATA textures\n");
    fs::create_directories(dir.File("lights"));
    WriteWholeFile(dir.File("lights/noon.lit"), "the light at noon");
    Resources = new ResourceManager(dir.File("resource.cfg").c_str());
    // The run ends in the map's folder, so a relative map's target is taken from the start.
    Run("maps/test.vbf");
    EXPECT_EQ(Read("maps/test.lit"), "the light at noon");
    EXPECT_FALSE(Exists("maps/maps"));
    WriteWholeFile(dir.File("lights/dusk.lit"), "dusk");
    std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "dusk.lit");
    Run(dir.File("maps/test.vbf"));
    EXPECT_EQ(Read("maps/test.lit"), "dusk");

    // The old description goes first, so one that can't be copied leaves none.
    for (const char* lit : {"", "missing.lit", "../lights/noon.lit"}) {
        WriteWholeFile(dir.File("maps/test.lit"), "older");
        std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "%s", lit);
        EXPECT_EQ(Run("maps/test.vbf").baked, 1);
        EXPECT_FALSE(Exists("maps/test.lit")) << "LitFile '" << lit << "'";
    }
}

TEST_F(BakeRun, CallbackNamesTheShadowMapAndAnUnwritableOneFails) {
    WriteMap("maps/test.vbf", MakeMapChunks(8, 8));
    SetMapBakedCallback(RecordBaked);
    ShadowSettings.WriteHeightData = 1;
    EXPECT_EQ(Run("maps/test.vbf").baked, 1);
    EXPECT_EQ(Read("maps/texture.dah").size(), 8u * 8u * 4u);
    // The run names the shadow map, not the height file beside it.
    EXPECT_EQ(BakedNames, std::vector<std::string>{"texture.dat"});

    fs::remove(dir.File("maps/texture.dat"));
    fs::create_directories(dir.File("maps/texture.dat"));  // in the way of the file
    ShadowSettings.WriteHeightData = 0;
    BakeRunResult result = Run("maps/test.vbf");
    EXPECT_EQ(result.baked, 0);
    EXPECT_EQ(result.failed, 1);
    EXPECT_TRUE(RefusalLogged("maps/test.vbf"));
    EXPECT_EQ(BakedNames.size(), 1u);  // no callback for a map that wasn't written
}
