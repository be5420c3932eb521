#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "platform/debug/debug_output.h"
#include "tests/tool/bake_run_fixture.h"

namespace fs = std::filesystem;

TEST(MapType, LetterIsTheThirdCharacterFromTheFirstDot) {
    // The first dot of the whole path counts; nothing behind it, or no dot, gives no letter.
    const std::pair<const char*, char> rows[] = {{"maps/test.vbf", 'b'}, {"MAPS/TEST.VBF", 'B'},
                                                 {"test.vaf.vbf", 'a'},  {"old.maps/test.vbf", 'a'},
                                                 {"v1.0/test.vbf", '/'}, {"x.vb/test.vaf", 'b'},
                                                 {"maps/test", 0},       {"maps/test.", 0},
                                                 {"maps/test.b", 0},     {"", 0}};
    for (const auto& [path, letter] : rows) EXPECT_EQ(MapTypeLetter(path), letter) << path;
}

class BakeRun : public BakeRunFixture {};

// A single map is typed by its file's extension, whatever dots its folders hold, and sized by its
// file's chunks; a file that is no map is refused, and the map size of the settings stays.
TEST_F(BakeRun, MapsAreTypedByTheirExtensionAndSizedByTheirChunks) {
    const std::vector<uint8_t> good = MakeMapChunks(8, 8), small = MakeMapChunks(4, 2), none, gone;
    const std::vector<uint8_t> cut = {0x02, 0, 0, 0xA0, 8, 0, 0, 0, 4, 0, 0, 0, 4, 0, 0, 0};
    const std::tuple<const char*, const std::vector<uint8_t>*, int, int, const char*> rows[] = {
        // map, chunks (null: a header cut short; &gone: no file), cells baked (0: refused), error
        {"upper/TEST.VBF", &good, 8, 8, nullptr},
        {"v1.0/test.vbf", &good, 8, 8, nullptr},
        {"small/test.vbf", &small, 4, 2, nullptr},
        {"x.vb/test.vaf", &good, 0, 0, nullptr},  // binary bytes under a text map's name
        {"maps/test", &good, 0, 0, "Load File - Invalid file extension on maps/test\n"},
        {"none/test.vbf", &none, 0, 0, nullptr},
        {"cut/test.vbf", &cut, 0, 0, nullptr},  // no end chunk
        {"junk/test.vbf", nullptr, 0, 0, nullptr},
        {"gone/test.vbf", &gone, 0, 0, nullptr},
    };
    for (const auto& [path, chunks, x, y, error] : rows) {
        SCOPED_TRACE(path);
        if (!chunks) {
            fs::create_directories(dir.File("junk"));
            WriteWholeFile(dir.File(path), std::string("\1\0\0", 3));
        } else if (chunks != &gone) {
            WriteMap(path, *chunks);
        }
        RecordedErrors.clear();
        ShadowSettings.MapCellsX = 5, ShadowSettings.MapCellsY = 7;
        BakeRunResult result = Run(path);
        EXPECT_EQ(std::make_pair(result.baked, result.failed),
                  std::make_pair(x ? 1 : 0, x ? 0 : 1));
        EXPECT_EQ(RecordedErrors,
                  error ? std::vector<std::string>{error} : std::vector<std::string>{});
        EXPECT_EQ(Refused(path), !x && !error);
        EXPECT_EQ(std::make_pair(ShadowSettings.MapCellsX, ShadowSettings.MapCellsY),
                  x ? std::make_pair(x, y) : std::make_pair(5, 7));
        std::string file = Read(fs::path(path).parent_path() / "texture.dat");
        EXPECT_EQ(file.size(), x ? 65536u : 0);
        if (x) {  // lit inside the map; never sampled beyond it, so Ambient 128
            EXPECT_EQ(std::make_tuple(Byte(file, y - 1, x - 1), Byte(file, y, 0), Byte(file, 0, x)),
                      std::make_tuple(0, 127, 127));
        }
    }
    EXPECT_FALSE(Exists("texture.dat"));
}

TEST_F(BakeRun, LightDescriptionIsCopiedFromTheLitFolderOrNone) {
    if (dir.Path().find('.') != std::string::npos) GTEST_SKIP() << "a dot in the temporary path";
    WriteMap("maps/test.vbf", MakeMapChunks(8, 8));
    WriteWholeFile(dir.File("resource.cfg"), "LIT lights\n");
    fs::create_directories(dir.File("lights"));
    WriteWholeFile(dir.File("lights/noon.lit"), "the light at noon");
    WriteWholeFile(dir.File("noon.lit"), "not in the LIT folder");
    Resources = new ResourceManager(dir.File("resource.cfg").c_str());
    // The old description goes first, so one that can't be copied leaves none.
    for (const char* lit : {"noon.lit", "", "missing.lit", "../lights/noon.lit"}) {
        WriteWholeFile(dir.File("maps/test.lit"), "older");
        std::snprintf(ShadowSettings.LitFile, sizeof ShadowSettings.LitFile, "%s", lit);
        EXPECT_EQ(Run("maps/test.vbf").baked, 1);
        EXPECT_EQ(Read("maps/test.lit"), lit == std::string("noon.lit") ? "the light at noon" : "")
            << "LitFile '" << lit << "'";
    }
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
    EXPECT_EQ(Read("anim/frames1.dah"), std::string(8 * 4 * 4, '\0'));  // the flat ground at 0
    int frames = 0;
    for (const std::string& piece : capture.Pieces())
        frames += piece == "FRAME: " + std::to_string(frames % 2) + "\n";
    EXPECT_EQ(frames, 4);
}
