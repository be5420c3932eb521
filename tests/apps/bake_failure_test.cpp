// The tools' failures as a pipeline sees them: the exit status, a line that names the file, and
// never a torn or partial file where a good one stood.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "apps/common/tool_session.h"
#include "engine/mesh/mesh.h"
#include "platform/crt/replacing_file.h"
#include "tests/apps/cli_run.h"
#include "tool/maps/map_chunks.h"
#include "tool/maps/map_generator.h"

namespace fs = std::filesystem;

namespace {

// Help and version exit 0; a usage error of any kind (a missing value, a value out of range, no
// number, an unknown option, options that don't go together) exits 2, its one line naming the
// option and what it takes.
TEST(ToolUsage, HelpVersionAndUsageErrors) {
    TempDir dir;
    ASSERT_TRUE(MakeMap("m", 4));
    WriteWholeFile("anim.ssf", "ANIMATED 2\n");
    const std::string bake = TENEBRIX_BAKE, mkmap = TENEBRIX_MKMAP, import = TENEBRIX_IMPORT;
    const std::string size = "--texture-size: 100 is no power of two\n";
    const std::string threads = " is out of range; give a whole number from 1 to 1024\n";
    std::vector<std::tuple<std::string, std::string, int, std::string>> cases = {
        {bake, "--help", 0, "Usage: tenebrix-bake [OPTIONS] [MAP]\n"},
        {bake, "m --version", 0, "tenebrix-bake 0.1.0\n"},
        {bake, "", 2, "no map given\nTry 'tenebrix-bake --help'.\n"},
        {bake, "m -x", 2, "unknown option -x\n"},
        {bake, "m --bogus=1", 2, "unknown option --bogus\n"},
        {bake, "m --texture-size", 2, "--texture-size needs a value\n"},
        {bake, "m --texture-size=100", 2, size},
        {bake, "m --texture-size 16384", 2, "--texture-size: 16384 is out of range; give a whole number from 64 to 8192\n"},
        {bake, "m --texture-size=18446744073709551680", 2, "--texture-size: 18446744073709551680 is out of range"},
        {bake, "m --threads 1025", 2, "--threads: 1025" + threads},
        {bake, "m --threads=-1", 2, "--threads: -1" + threads},
        {bake, "m --threads -", 2, "--threads: - is not a number; give a whole number from 1 to 1024\n"},
        {bake, "nosuch --reference -q", 1, "error: "},  // --reference alone is no usage error
        {bake, "m --crossing " + std::string(41, 'a'), 2, "--crossing: " + std::string(40, 'a') + "... is none of"},
        {bake, "m --threads 64k", 2, "--threads: 64k is not a number; give a whole number from 1 to 1024\n"},
        {bake, "m --script=", 2, "--script needs a value\n"},
        {bake, "--batch b m", 2, "a map or --batch, not both\n"},
        {bake, "--batch b --png x.png", 2, "--png takes one map; use --png-beside with --batch\n"},
        {bake, "--batch b --out x.dat", 2, "--out takes one map; a batch names each job's output\n"},
        {bake, "--batch b --view-png v.png", 2, "--view-png draws one map; it takes no --batch\n"},
        {bake, "m --script anim.ssf --view-png v.png", 2, "--view-png draws one shadow map; the script asks for an animated bake (ANIMATED 2)\n"},
        {bake, "m n", 2, "unexpected argument n\n"},
        {bake, "m --png-beside=x.png", 2, "--png-beside takes no value\n"},
        {bake, "m --png-scale 2", 2, "--png-scale sizes a preview; give --png or --png-beside\n"},
        {bake, "m --crossing open", 2, "--crossing: open is none of half-open, closed\n"},
        {bake, "m --verify 0", 2, "--verify: 0 is out of range; give a whole number from 1 to 100000\n"},
        {bake, "m --verify 3 --reference", 2, "--verify checks the fast core; it takes neither"},
        {mkmap, "n --cells 257", 2, "--cells: 257 is out of range; give a whole number from 1 to 256\n"},
        {mkmap, "n --cells 8x", 2, "--cells: 8x is not a number; give a whole number from 1 to 256\n"},
        {mkmap, "--cells 4", 2, "no output directory\nTry 'tenebrix-mkmap --help'.\n"},
        {mkmap, "n --wide", 2, "unknown option --wide\n"},
        {import, "x.obj -h --bogus", 0, "Usage: tenebrix-import [OPTIONS] [INPUT...]\n"},
        {import, "a.obj", 2, "no map folder given: -o MAPDIR\n"},
        {import, "a.obj -o", 2, "--output needs a value\n"},
        {import, "a.obj -o out --up x", 2, "--up: x is none of y, z\n"},
        {import, "a.obj -o out --scale 0", 2, "--scale: 0 is out of range; give a number above 0\n"},
        {import, "a.obj -o out --scale nan", 2, "--scale: nan is not a number; give one above 0\n"},
        {import, "a.obj -o out --scale 2 --fit 4", 2, "--scale or --fit, not both\n"},
        {import, "a.obj -o out --fit 200 --margin 30", 2, "--fit and twice --margin come to more than 256 cells\n"},
        {import, "a.obj -o out --chunk 0.5", 2, "--chunk: 0.5 is out of range; give a number from 1 to 8192\n"},
        {import, "a.raw -o out --raw-size 0x5", 2, "--raw-size: give WIDTHxHEIGHT in samples"},
        {import, "a.raw -o out --raw-format int8", 2, "--raw-format: int8 is none of int16, uint16, float32\n"},
        {import, "a.raw -o out --raw-size 1048577x1", 2, "--raw-size: give WIDTHxHEIGHT in samples"},
        {import, "a.png -o out --pixel-size 0", 2, "--pixel-size: give metres above 0, or WIDTHxDEPTH"},
        {import, "a.png -o out --pixel-size 10x", 2, "--pixel-size: give metres above 0, or WIDTHxDEPTH"},
        {import, "a.png -o out --pixel-size 10 --height-scale 2", 2, "--height-scale or --pixel-size, not both\n"},
        {import, "a.png -o out --height-unit 0.1", 2, "--height-unit needs --pixel-size"},
    };
    for (const auto& [tool, args, status, text] : cases) {
        std::string name = fs::path(tool).filename().string(), start = status ? name + ": " + text : text;
        if (tool.empty()) continue;  // no importer in this build
        ToolRun run = RunTool(tool, Words(args));
        EXPECT_EQ(run.status, status) << name << " " << args;
        EXPECT_EQ(run.output.substr(0, start.size()), start) << name << " " << args;
        if (status == 2) {
            EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 2) << args;
        }
    }
    EXPECT_FALSE(fs::exists("m/texture.dat"));
    EXPECT_FALSE(fs::exists("n") || fs::exists("out"));
}

// Each failure leaves the map's earlier shadow map as it was and no temporary file anywhere.
class BakeFailures : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(MakeMap("m", 8));
        ASSERT_EQ(RunBake("m --texture-size 64").status, 0);
        good = ReadWholeFile("m/texture.dat");
        ASSERT_EQ(good.size(), 64u * 64u);
    }
    void ExpectUntouched() {
        EXPECT_EQ(ReadWholeFile("m/texture.dat"), good);
        EXPECT_TRUE(PartialFiles(dir.Path()).empty());
    }
    TempDir dir;
    std::string good;
};

// Exit 1 with the line that says why; a quiet run prints that line alone. A bad job fails a
// batch, but the other jobs are baked.
TEST_F(BakeFailures, MissingOrDamagedMapsScriptsOutputsAndBatches) {
    fs::create_directories("empty");
    WriteWholeFile("m/notes.txt", "x");
    std::string bytes = ReadWholeFile("m/test.vbf");
    for (auto [folder, size] : {std::pair{"half", bytes.size() / 2}, {"ten", size_t(10)}}) {
        fs::create_directories(folder);
        WriteWholeFile(std::string(folder) + "/test.vbf", bytes.substr(0, size));
    }
    std::vector<uint8_t> chunks = MakeMapChunks(4, 4);
    chunks.resize(chunks.size() - 8);  // the end mark goes
    for (auto [folder, data] : {std::pair{"bare", std::vector<uint8_t>()}, {"unended", chunks}}) {
        fs::create_directories(folder);
        CMesh* map = GenerateMap(MapRecipe{.cells = 4}, nullptr);
        EXPECT_TRUE(map->SaveVBF((std::string(folder) + "/test.vbf").c_str(),
                                 data.empty() ? nullptr : data.data(), uint32_t(data.size())));
        delete map;
    }
    fs::create_directories("kind");  // a header of an unknown kind is fatal to the reader
    WriteWholeFile("kind/test.vbf", std::string("\x02\0\0\0\0\0\0\0", 8));
    WriteWholeFile("words.ssf", "the sun stands low over the harbour\n");
    fs::create_directories("conf/lit");
    WriteWholeFile("conf/resource.cfg", "LIT lit\n");
    fs::create_directory("m/taken.dat");
    std::string overlong = "texture.data";  // 264 characters, once cut to 259 and written so
    while (overlong.size() < 264) overlong = "./" + overlong;
    WriteWholeFile("empty.bat", "  \n\n");
    WriteWholeFile("short.bat", "m/test.vbf texture.dat\n");  // two words make no job
    ASSERT_TRUE(MakeMap("n", 4));
    WriteWholeFile("plain.ssf", "AMBIENT 100 stray words\n");
    WriteWholeFile("jobs.bat", "n/test.vbf good.dat plain.ssf\ngone/test.vbf bad.dat plain.ssf\n");
    WriteWholeFile("noscript.bat", "n/test.vbf other.dat nosuch\x1b]0;x\x07.ssf\n");
    WriteWholeFile("bin.cfg", "LIT\x1b[2Jlit\n");
    ASSERT_TRUE(MakeMap("locked", 4));
    fs::permissions("locked", fs::perms(0555));

    const std::string d = dir.Path() + "/", refused = "***** MAP REFUSED " + d;
    std::vector<std::pair<std::string, std::string>> cases = {
        {"nowhere", "error: " + d + "nowhere: no such file or directory"},
        {"nowhere --quiet", "error: " + d + "nowhere: no such file or directory"},
        {"empty", "error: " + d + "empty: the directory holds no test.vbf"},
        {"m/notes.txt", "error: " + d + "m/notes.txt: not a map (a map file ends in .vbf or .vaf)"},
        {"m --config nowhere.cfg", "error: nowhere.cfg: no such config file"},
        {"half", refused + "half/test.vbf: the map file is damaged at byte "},
        {"ten", refused + "ten/test.vbf: the map file is damaged at byte 8: user data of 24 bytes, 2 are left *****"},
        {"bare/test.vbf", refused + "bare/test.vbf: the map has no user data, so no map size *****"},
        {"unended", refused + "unended/test.vbf: the user data ends without the end chunk 0xA0000000"},
        {"kind", refused + "kind/test.vbf: the map file is damaged at byte 4: its header kind is 2, where a map file "
                           "has 0 or 1 *****"},
        {"m --config bin.cfg", "error: " + d + "bin.cfg: not a resource list: it holds the byte 0x1B at offset 3"},
        {"m --script words.ssf",
         "error: " + d + "words.ssf: no key of a shadow script in it (7 other words)"},
        {"m --script missing.ssf",
         "error: script missing.ssf not found; looked for:\n  " + d + "missing.ssf\n"},
        {"m --config conf/resource.cfg --script dawn", "error: script dawn not found; looked for:\n  " + d +
                                                           "conf/dawn\n  " + d + "conf/lit/dawn\n  " + d +
                                                           "conf/lit/dawn.ssf\n"},
        {"m --out no/such/f.dat",
         refused + "m/test.vbf: no/such/f.dat could not be written in the map's folder"},
        {"m -q --out x/y.dat",
         refused + "m/test.vbf: x/y.dat could not be written in the map's folder *****"},
        {"m --out taken.dat", refused + "m/test.vbf: taken.dat could not be written"},
        {"m --out " + overlong, "error: --out " + overlong + ": the name is longer than 259 characters"},
        {"--batch empty.bat", "error: " + d + "empty.bat: no job in the batch"},
        {"--batch none.bat", "error: " + d + "none.bat: no job in the batch"},
        {"--batch short.bat", "error: " + d + "short.bat: no job in the batch"},
        {"--batch jobs.bat", "***** MAP REFUSED gone/test.vbf"},
        {"--batch jobs.bat", "warning: " + d + "jobs.bat line 1: the script \"plain.ssf\": 2 words are no keys"},
        {"--batch noscript.bat", "***** " + d + "noscript.bat line 1: the script \"nosuch\\x1B]0;x\\x07.ssf\" can't be read; the "
                                                "job bakes with the settings as they stand, and the batch fails *****"},
    };
    if (access("locked", W_OK) != 0)  // the superuser writes anyway
        cases.push_back({"locked", refused + "locked/test.vbf: texture.dat could not be written"});
    for (const auto& [args, line] : cases) {
        ToolRun run = RunBake(args + " --texture-size 64");
        EXPECT_EQ(run.status, 1) << args;
        EXPECT_EQ(run.output.find('\x1b'), std::string::npos) << args;  // no file's bytes raw
        if (Contains(args, "-q"))
            EXPECT_EQ(run.output, "tenebrix-bake: " + line + "\n");
        else
            EXPECT_TRUE(Contains(run.output, "tenebrix-bake: " + line)) << args << ":\n" << run.output;
        ExpectUntouched();
    }
    fs::permissions("locked", fs::perms(0755));
    for (const char* folder : {"half", "ten", "bare", "unended", "kind", "locked"})
        EXPECT_FALSE(fs::exists(std::string(folder) + "/texture.dat")) << folder;
    EXPECT_FALSE(fs::exists("m/texture"));
    EXPECT_EQ(ReadWholeFile("n/good.dat").size(), 64u * 64u);
}

// An interrupt stops the pass between rows: exit 130, the old shadow map in place, no partial
// file. The pass is long enough that only a missed interrupt lets it finish.
TEST_F(BakeFailures, InterruptLeavesTheOldShadowMap) {
    ASSERT_TRUE(MakeMap("big", 64));
    ASSERT_EQ(RunBake("big --texture-size 64").status, 0);
    std::string old = ReadWholeFile("big/texture.dat"), log = dir.File("interrupted.txt");
    WriteWholeFile("fine.ssf", "OVERSAMPLE 4\n");
    pid_t pid = SpawnTool(TENEBRIX_BAKE, Words("big --texture-size 2048 --script fine.ssf"), log);
    ASSERT_GT(pid, 0);
    // The first progress line says the handlers are in and the pass is under way.
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!Contains(ReadWholeFile(log), "  0%") && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    kill(pid, SIGINT);
    int status = 0;
    for (int waited = 0; waitpid(pid, &status, WNOHANG) == 0; ++waited) {
        if (waited == 3000) kill(pid, SIGKILL);  // 30 s: the interrupt was missed
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::string output = ReadWholeFile(log);
    EXPECT_EQ(DecodeWaitStatus(status), 130) << output;
    EXPECT_TRUE(Contains(output, "tenebrix-bake: interrupted; no partial file was left\n")) << output;
    EXPECT_EQ(ReadWholeFile("big/texture.dat"), old);
    EXPECT_TRUE(PartialFiles(dir.Path()).empty());
}

// A second interrupt ends the program at once, but still says so and removes what it was writing.
TEST(ToolSessionDeathTest, ASecondInterruptEndsAtOnceWithoutPartialFiles) {
    TempDir dir;
    auto twice = [] {
        ToolSessionOptions options;
        options.program = "t";
        options.cancelOnInterrupt = true;
        ToolSession session(options);
        ReplacingFile file("out.dat");
        raise(SIGINT);
        raise(SIGINT);
    };
    EXPECT_EXIT(twice(), ::testing::ExitedWithCode(130), "\nt: interrupted; stopped at once, no partial file was left\n");
    EXPECT_TRUE(PartialFiles(dir.Path()).empty());
}

}  // namespace
