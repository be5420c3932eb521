// Batch runs as the front ends drive them. Maps are 4 by 4 cells of flat ground at TextureSize 256
// under an overhead light, so a texel inside is 0 and one outside is 255 - Ambient.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "base/diagnostics.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "platform/crt/paths.h"
#include "tests/support/bake_fixture.h"
#include "tests/support/temp_dir.h"
#include "tool/bake/message_log.h"
#include "tool/bake/shadow_settings.h"
#include "tool/maps/map_chunks.h"
#include "tool/run/app_state.h"
#include "tool/run/bake_run.h"
#include "tool/run/batch_file.h"

namespace fs = std::filesystem;

namespace {

TEST(MapType, LetterIsTheThirdCharacterFromTheFirstDot) {
    // The first dot of the whole path counts; nothing behind it, or no dot, gives no letter.
    const std::pair<const char*, char> rows[] = {{"maps/test.vbf", 'b'}, {"MAPS/TEST.VBF", 'B'},
                                                 {"test.vaf.vbf", 'a'},  {"old.maps/test.vbf", 'a'},
                                                 {"v1.0/test.vbf", '/'}, {"x.vb/test.vaf", 'b'},
                                                 {"maps/test", 0},       {"maps/test.", 0},
                                                 {"maps/test.b", 0},     {"", 0}};
    for (const auto& [path, letter] : rows) EXPECT_EQ(MapTypeLetter(path), letter) << path;
}

// Errors are recorded and the handler returns, so a run that raises one goes on as the tool's
// own handlers let it.
std::vector<std::string> RecordedErrors;

class BakeRun : public ::testing::Test {
protected:
    void SetUp() override {
        ShadowSettings = DefaultShadowSettings();
        ShadowSettings.TextureSize = 256;
        ShadowSettings.Light = {0, 1, 0};
        MessageLogClear();
        RecordedErrors.clear();
        previousHandler = CorvaneSetErrorHandler([](uint32_t code, const char* text) {
            EXPECT_EQ(code, uint32_t(CorvaneCodeError));
            RecordedErrors.push_back(text ? text : "");
        });
        std::snprintf(StartDirectory, sizeof StartDirectory, "%s", dir.Path().c_str());
        for (const char* map : {"a/test.vbf", "b/test.vbf", "c/test.vbf"})
            WriteMap(map, MakeMapChunks(4, 4));
        WriteWholeFile(dir.File("ten.ssf"), "AMBIENT 10 LIGHT 0 1 0");
        WriteWholeFile(dir.File("twenty.ssf"), "AMBIENT 20 LIGHT 0 1 0");
    }
    void TearDown() override {
        CorvaneSetErrorHandler(previousHandler);
        FreeJobList();
        BatchMode = 0;
        MessageLogClear();
        ShadowSettings = DefaultShadowSettings();
        StartDirectory[0] = '\0';
        _chdir(dir.Path().c_str());  // the temporary directory then takes the test back
    }

    // A map file holding what geometry adds under the root (flat ground over 8 cells by default)
    // and the given user data, none if empty.
    void WriteMap(const std::string& path, const std::vector<uint8_t>& userData,
                  const std::function<void(CMesh*)>& geometry = nullptr) {
        fs::create_directories(fs::path(dir.File(path)).parent_path());
        CMesh root(nullptr);
        geometry ? geometry(&root) : void(FlatGround(&root, 256.0f));
        ASSERT_TRUE(root.SaveVBF(dir.File(path).c_str(),
                                 userData.empty() ? nullptr : userData.data(),
                                 uint32_t(userData.size())));
    }
    // Runs the batch through BakeMap on a 260-byte buffer. Whatever became of the maps, the run
    // ends in the start directory with its scene and maps gone.
    BakeRunResult RunBatch(const std::string& text) {
        WriteWholeFile(dir.File("jobs.bat"), text);
        OpenBatchFile("jobs.bat");
        char buffer[_MAX_PATH] = "";
        BakeRunResult result = BakeMap(buffer, 0);
        ranMapPath = buffer;
        EXPECT_TRUE(fs::equivalent(fs::current_path(), StartDirectory));
        EXPECT_TRUE(!Scene && !SceneRoot && !MapMesh && !ViewerMesh && !ShadowTexture);
        return result;
    }
    std::string Read(const std::string& path) const { return ReadWholeFile(dir.File(path)); }
    std::vector<std::string> Listing(const std::string& folder) const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(dir.File(folder)))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    static int Byte(const std::string& file, int row, int column) {
        return uint8_t(file.at(size_t(row) * 256 + size_t(column)));
    }
    // Whether a line of the message log starts with start and ends with end.
    static bool Logged(const std::string& start, const std::string& end = "") {
        for (int i = 0; i < MessageLogCount(); ++i) {
            std::string line = MessageLogLine(i);
            if (line.size() >= start.size() + end.size() && line.rfind(start, 0) == 0 &&
                line.compare(line.size() - end.size(), end.size(), end) == 0)
                return true;
        }
        return false;
    }

    std::string ranMapPath;  // the map path buffer as BakeMap left it
    TempDir dir;
    CorvaneErrorHandler previousHandler = nullptr;
};

// A name that would be cut, or an output name that reaches out of its map's folder, refuses its
// job in its turn, naming the list, the line and the word; the script of a refused job is not read.
TEST_F(BakeRun, JobsWithNamesThatCannotBeTakenAsTheyStandAreRefused) {
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
        EXPECT_TRUE(job.refusal.find(refusal) != std::string::npos &&
                    job.refusal.empty() == refusal.empty())
            << outputName << ": " << job.refusal;
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

// Each job bakes with its own name and script; one whose script is missing or holds no key, with
// the settings before it, and it fails the batch. A bad map, texture or frame count ends only its
// own job, with its reason in words, and leaves the map size alone.
// A frame's name keeps the whole of an output name too short to lose four characters.
TEST_F(BakeRun, EachJobBakesWithItsOwnNameAndScriptAndBadJobsEndOnlyThemselves) {
    WriteMap("nosize/test.vbf", {});
    WriteWholeFile(dir.File("negative.ssf"), "ANIMATED -1");
    WriteWholeFile(dir.File("frames.ssf"), "ANIMATED 2 AMBIENT 20");
    WriteWholeFile(dir.File("junk.ssf"), "\x7F" "ELF binary words");
    CTexture* bitmap = CreateTexture(2, 2, 0x8888);
    bitmap->SetName("wall.bmp");
    WriteMap("bmp/test.vbf", MakeMapChunks(4, 4), [&](CMesh* root) {
        CMesh* ground = FlatGround(root, 256.0f);
        for (uint32_t f = 0; f < ground->faceCount[0]; ++f) ground->faces[0][f].texture = bitmap;
    });
    FreeTexture(bitmap);
    BakeRunResult result = RunBatch(
        "a/test.vbf one.dat ten.ssf\nnosize/test.vbf x.dat ten.ssf\ngone/test.vbf x.dat ten.ssf\n"
        "b/test.vbf two.dat missing.ssf\nb/test.vbf three.dat junk.ssf\n"
        "bmp/test.vbf x.dat twenty.ssf\nc/test.vbf x.dat negative.ssf\nc/test.vbf ab frames.ssf\n");
    EXPECT_EQ(std::make_pair(result.baked, result.failed), std::make_pair(4, 6));
    EXPECT_EQ(ranMapPath, "a/test.vbf");  // the buffer holds the last job's map
    EXPECT_EQ(BatchMode, 1);              // a batch ends the program, so it stays set
    EXPECT_TRUE(Logged("***** MAP REFUSED nosize/test.vbf: ", " *****"));
    EXPECT_TRUE(Logged("***** MAP REFUSED c/test.vbf: the script ",
                       "negative.ssf asks for ANIMATED -1: no frame *****"));
    EXPECT_TRUE(Logged("***** MAP REFUSED gone/test.vbf: the map file can't be opened (No such"));
    EXPECT_TRUE(Logged("***** MAP REFUSED bmp/test.vbf: Texture ", "wall.bmp is an Invalid File Format *****"));
    const std::string bakesAnyway = "; the job bakes with the settings as they stand, and the batch fails *****";
    EXPECT_TRUE(Logged("***** jobs.bat line 4: the script \"missing.ssf\" can't be read" + bakesAnyway));
    EXPECT_TRUE(Logged("***** jobs.bat line 5: the script \"junk.ssf\" holds no key of a shadow script" +
                       bakesAnyway));
    EXPECT_TRUE(RecordedErrors.empty());
    EXPECT_EQ(std::make_tuple(Byte(Read("a/one.dat"), 0, 0), Byte(Read("a/one.dat"), 5, 5),
                              Byte(Read("b/two.dat"), 5, 5), Byte(Read("b/three.dat"), 5, 5)),
              std::make_tuple(0, 245, 235, 235));  // the script of the job before
    EXPECT_EQ(Read("c/ab1.dat"), std::string(16, '\0'));  // the map's 4 by 4 texels, all lit
    EXPECT_EQ(Listing("c"), (std::vector<std::string>{"ab0.dat", "ab1.dat", "test.vbf"}));
    for (const char* folder : {"nosize", "bmp"})
        EXPECT_EQ(Listing(folder), std::vector<std::string>{"test.vbf"}) << folder;
    EXPECT_EQ(ShadowSettings.MapCellsX, 4);
}

}  // namespace
