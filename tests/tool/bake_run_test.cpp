#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/tool/bake_run_fixture.h"

namespace fs = std::filesystem;

TEST(MapType, LetterIsTheThirdCharacterFromTheFirstDot) {
    const std::pair<const char*, char> rows[] = {
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
    for (const auto& [path, letter] : rows) EXPECT_EQ(MapTypeLetter(path), letter) << path;
}

class BakeRun : public BakeRunFixture {};

// A single map is typed by its file's extension, whatever dots its folders hold; a file that is
// no map of 8 by 8 cells is refused, and the map size of the settings stays.
TEST_F(BakeRun, MapsAreTypedByTheirExtensionAndRefusedUnlessTheirChunksGiveASize) {
    const std::vector<uint8_t> good = MakeMapChunks(8, 8), none, gone;
    const std::vector<uint8_t> cut = {0x02, 0, 0, 0xA0, 8, 0, 0, 0, 4, 0, 0, 0, 4, 0, 0, 0};
    struct Row {
        const char* path;
        const std::vector<uint8_t>* chunks;  // null: a header cut short; &gone: no file
        bool baked;
        const char* error;  // raised by an unknown type
    } rows[] = {
        {"upper/TEST.VBF", &good, true, nullptr},
        {"v1.0/test.vbf", &good, true, nullptr},
        {"x.vb/test.vaf", &good, false, nullptr},  // binary bytes under a text map's name
        {"maps/test", &good, false, "Load File - Invalid file extension on maps/test\n"},
        {"none/test.vbf", &none, false, nullptr},
        {"cut/test.vbf", &cut, false, nullptr},  // no end chunk
        {"junk/test.vbf", nullptr, false, nullptr},
        {"gone/test.vbf", &gone, false, nullptr},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.path);
        fs::create_directories(fs::path(dir.File(r.path)).parent_path());
        if (!r.chunks) WriteWholeFile(dir.File(r.path), std::string("\1\0\0", 3));
        if (r.chunks && r.chunks != &gone) WriteMap(r.path, *r.chunks);
        RecordedErrors.clear();
        ShadowSettings.MapCellsY = 7;
        BakeRunResult result = Run(r.path);
        EXPECT_EQ(result.baked, r.baked ? 1 : 0);
        EXPECT_EQ(result.failed, r.baked ? 0 : 1);
        EXPECT_EQ(Read(fs::path(r.path).parent_path() / "texture.dat").size(),
                  r.baked ? 65536u : 0);
        EXPECT_EQ(RecordedErrors,
                  r.error ? std::vector<std::string>{r.error} : std::vector<std::string>{});
        EXPECT_EQ(Refused(r.path), !r.baked && !r.error);
        EXPECT_EQ(ShadowSettings.MapCellsY, r.baked ? 8 : 7);
    }
    EXPECT_FALSE(Exists("texture.dat"));
}

TEST_F(BakeRun, MapSizeComesFromTheFilesChunks) {
    WriteMap("small/test.vbf", MakeMapChunks(4, 2), [](CMesh* root) { FlatGround(root, 8192); });
    DebugCapture capture;
    EXPECT_EQ(Run("small/test.vbf").baked, 1);
    EXPECT_NE(capture.Text().find("Map size is (4, 2)"), std::string::npos);
    std::string file = Read("small/texture.dat");
    EXPECT_EQ(Byte(file, 1, 3), 0);    // lit, inside the map
    EXPECT_EQ(Byte(file, 1, 4), 127);  // beyond 4 cells in x: never sampled, Ambient 128
    EXPECT_EQ(Byte(file, 2, 0), 127);  // beyond 2 cells in y
}

TEST_F(BakeRun, LightDescriptionIsCopiedFromTheLitFolderOrNone) {
    if (dir.Path().find('.') != std::string::npos) GTEST_SKIP() << "a dot in the temporary path";
    WriteMap("maps/test.vbf", MakeMapChunks(8, 8));
    WriteWholeFile(dir.File("resource.cfg"), "LIT lights\nTEXTURE_DATA textures\n");
    fs::create_directories(dir.File("lights"));
    WriteWholeFile(dir.File("lights/noon.lit"), "the light at noon");
    WriteWholeFile(dir.File("noon.lit"), "not in the LIT folder");
    Resources = new ResourceManager(dir.File("resource.cfg").c_str());
    // The run ends in the map's folder, so a relative map's target is taken from the start.
    std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "noon.lit");
    Run("maps/test.vbf");
    EXPECT_EQ(Read("maps/test.lit"), "the light at noon");
    EXPECT_FALSE(Exists("maps/maps"));
    // The old description goes first, so one that can't be copied leaves none.
    for (const char* lit : {"", "missing.lit", "../lights/noon.lit"}) {
        WriteWholeFile(dir.File("maps/test.lit"), "older");
        std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "%s", lit);
        EXPECT_EQ(Run("maps/test.vbf").baked, 1);
        EXPECT_FALSE(Exists("maps/test.lit")) << "LitFile '" << lit << "'";
    }
}

TEST_F(BakeRun, UnwritableShadowMapFailsWithoutACallback) {
    WriteMap("maps/test.vbf", MakeMapChunks(8, 8));
    fs::create_directories(dir.File("maps/texture.dat"));  // in the way of the file
    BakeRunResult result = Run("maps/test.vbf");
    EXPECT_EQ(result.baked, 0);
    EXPECT_EQ(result.failed, 1);
    EXPECT_TRUE(Refused("maps/test.vbf"));
    EXPECT_TRUE(BakedNames.empty());
}

// An animated bake writes numbered files of the map's part (8 by 4 texels here), one callback and
// one debug line per frame, and counts as one map. A frame's name loses the last four characters
// of the output name, however short.
TEST_F(BakeRun, EachFrameGetsNumberedFilesOfTheMapsPart) {
    WriteMap("anim/test.vbf", MakeMapChunks(8, 4));
    WriteWholeFile(dir.File("two.ssf"), "ANIMATED 2 LIGHT 0 1 0 HEIGHTDATA");
    WriteWholeFile(dir.File("jobs.bat"),
                   "anim/test.vbf frames.bin two.ssf anim/test.vbf ab two.ssf");
    OpenBatchFile("jobs.bat");
    DebugCapture capture;
    EXPECT_EQ(Run("").baked, 2);
    EXPECT_EQ(BakedNames,
              (std::vector<std::string>{"0.dat", "1.dat", "frames0.dat", "frames1.dat"}));
    EXPECT_EQ(Listing("anim"),
              (std::vector<std::string>{"0.dah", "0.dat", "1.dah", "1.dat", "frames0.dah",
                                        "frames0.dat", "frames1.dah", "frames1.dat", "test.vbf"}));
    EXPECT_EQ(Read("anim/frames1.dat"), std::string(32, '\0'));  // all lit, rows cut to 8 texels
    std::string heights = Read("anim/frames1.dah");
    ASSERT_EQ(heights.size(), 8u * 4u * 4u);
    EXPECT_EQ(heights.substr(0, 4), std::string(4, '\0'));  // the flat ground at the origin
    int frames = 0;
    for (const std::string& piece : capture.Pieces())
        frames += piece == "FRAME: " + std::to_string(frames % 2) + "\n";
    EXPECT_EQ(frames, 4);
}
