// tenebrix-bake's failures as a pipeline sees them: the exit status, a line that names the file,
// and never a torn or partial file where a good one stood.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "engine/mesh/mesh.h"
#include "tests/apps/cli_run.h"
#include "tests/support/temp_dir.h"
#include "tool/maps/map_chunks.h"
#include "tool/maps/map_generator.h"

extern char** environ;

namespace fs = std::filesystem;

namespace {

// A small generated map saved in folder with the given user data (null: none).
void SaveGeneratedMap(const std::string& folder, const std::vector<uint8_t>* userData) {
    fs::create_directories(folder);
    MapRecipe recipe;
    recipe.cells = 4;
    CMesh* map = GenerateMap(recipe, nullptr);
    ASSERT_TRUE(map->SaveVBF((folder + "/test.vbf").c_str(), userData ? userData->data() : nullptr,
                             userData ? uint32_t(userData->size()) : 0));
    delete map;
}

TEST(BakeUsageErrors, ExitTwoWithAPointerToTheHelp) {
    TempDir dir;
    ASSERT_TRUE(MakeMap("m", 4));
    for (const std::vector<std::string>& args : std::vector<std::vector<std::string>>{
             {}, {"m", "--texture-size", "100"}, {"--batch", "jobs.bat", "--png", "x.png"}}) {
        ToolRun run = RunBake(args);
        EXPECT_EQ(run.status, 2) << run.output;
        EXPECT_EQ(run.output.rfind("tenebrix-bake: ", 0), 0u) << run.output;
        EXPECT_TRUE(Contains(run.output, "\nTry 'tenebrix-bake --help'.\n")) << run.output;
    }
    EXPECT_FALSE(fs::exists("m/texture.dat"));
}

// Each failure leaves the map's earlier shadow map as it was and no temporary file anywhere.
class BakeFailures : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(MakeMap("m", 8));
        ASSERT_EQ(RunBake({"m", "--texture-size", "64"}).status, 0);
        good = ReadWholeFile("m/texture.dat");
        ASSERT_EQ(good.size(), 64u * 64u);
    }

    // Runs the bake and expects exit 1 with every part of message in one line of its output.
    void ExpectFailure(const std::vector<std::string>& args,
                       const std::vector<std::string>& message) {
        ToolRun run = RunBake(args);
        EXPECT_EQ(run.status, 1) << run.output;
        bool found = false;
        for (size_t start = 0; start < run.output.size() && !found;) {
            size_t end = std::min(run.output.find('\n', start), run.output.size());
            std::string line = run.output.substr(start, end - start);
            found = true;
            for (const std::string& part : message) found = found && Contains(line, part);
            start = end + 1;
        }
        EXPECT_TRUE(found) << "wanted a line with \"" << message.front() << "\" in:\n"
                           << run.output;
        EXPECT_EQ(ReadWholeFile("m/texture.dat"), good);
        EXPECT_TRUE(PartialFiles(dir.Path()).empty());
    }

    TempDir dir;
    std::string good;
};

TEST_F(BakeFailures, MapsThatAreNotThereOrAreDamaged) {
    ExpectFailure({"nowhere"}, {"error: ", dir.File("nowhere"), "no such file or directory"});
    fs::create_directory("empty");
    ExpectFailure({"empty"}, {"error: ", dir.File("empty"), "the directory holds no test.vbf"});
    WriteWholeFile("m/notes.txt", "x");
    ExpectFailure({"m/notes.txt"}, {dir.File("m/notes.txt"), "not a map"});
    ExpectFailure({"m", "--config", "nowhere.cfg"}, {"nowhere.cfg: no such config file"});

    fs::create_directories("cut");
    std::string bytes = ReadWholeFile("m/test.vbf");
    WriteWholeFile("cut/test.vbf", bytes.substr(0, bytes.size() / 2));
    ExpectFailure({"cut", "--texture-size", "64"},
                  {"MAP REFUSED", "cut/test.vbf", "could not be read"});
    WriteWholeFile("cut/test.vbf", bytes.substr(0, 10));
    ExpectFailure({"cut", "--texture-size", "64"}, {"MAP REFUSED", "cut/test.vbf"});
    ASSERT_NO_FATAL_FAILURE(SaveGeneratedMap("bare", nullptr));
    ExpectFailure({"bare/test.vbf"}, {"MAP REFUSED", "bare/test.vbf", "no user data"});
    std::vector<uint8_t> chunks = MakeMapChunks(4, 4);
    chunks.resize(chunks.size() - 8);  // the end mark goes
    ASSERT_NO_FATAL_FAILURE(SaveGeneratedMap("unended", &chunks));
    ExpectFailure({"unended"}, {"MAP REFUSED", "unended/test.vbf"});
    // A header of an unknown kind is fatal to the reader: a clean exit naming the map, no core.
    fs::create_directories("kind");
    WriteWholeFile("kind/test.vbf", std::string("\x02\0\0\0\0\0\0\0", 8));
    ExpectFailure({"kind"}, {"invalid header", "kind/test.vbf"});
    for (const char* folder : {"cut", "bare", "unended", "kind"})
        EXPECT_FALSE(fs::exists(std::string(folder) + "/texture.dat")) << folder;
}

TEST_F(BakeFailures, ScriptsThatAreNotScripts) {
    WriteWholeFile("words.ssf", "the sun stands low over the harbour\n");
    ExpectFailure({"m", "--script", "words.ssf"},
                  {dir.File("words.ssf"), "no key of a shadow script in it (7 other words)"});
    ExpectFailure({"m", "--script", "missing.ssf"}, {"script", "missing.ssf", "not found"});
    // Through a config, the LIT folder's candidates are listed too.
    fs::create_directories("conf/lit");
    WriteWholeFile("conf/resource.cfg", "LIT lit\n");
    ExpectFailure({"m", "--config", "conf/resource.cfg", "--script", "dawn"},
                  {dir.File("conf/lit/dawn.ssf")});

    // Words that are no keys beside keys only warn.
    WriteWholeFile("mixed.ssf", "AMBIENT 90 sunset\n");
    ToolRun mixed = RunBake({"m", "--texture-size", "64", "--script", "mixed.ssf"});
    EXPECT_EQ(mixed.status, 0) << mixed.output;
    EXPECT_TRUE(Contains(mixed.output, "warning: ")) << mixed.output;
    EXPECT_TRUE(Contains(mixed.output, "1 words are no keys")) << mixed.output;
}

TEST_F(BakeFailures, OutputsThatCannotBeWritten) {
    ExpectFailure({"m", "--texture-size", "64", "--out", "no/such/folder.dat"},
                  {"MAP REFUSED", "m/test.vbf", "no/such/folder.dat could not be written"});
    std::string overlong = "texture.data";  // 264 characters, once cut to 259 and written so
    while (overlong.size() < 264) overlong = "./" + overlong;
    ExpectFailure({"m", "--out", overlong}, {"--out ./././", "longer than 259 characters"});
    EXPECT_FALSE(fs::exists("m/texture"));
    fs::create_directory("m/taken.dat");
    ExpectFailure({"m", "--texture-size", "64", "--out", "taken.dat"},
                  {"MAP REFUSED", "taken.dat could not be written"});
}

TEST_F(BakeFailures, MapFolderWithoutWritePermission) {
    fs::permissions("m", fs::perms(0555));
    bool locked = access("m", W_OK) != 0;
    if (locked)
        ExpectFailure({"m", "--texture-size", "64"},
                      {"MAP REFUSED", "m/test.vbf", "texture.dat could not be written"});
    fs::permissions("m", fs::perms(0755));
    if (!locked) GTEST_SKIP() << "permissions do not stop this user's writes (superuser)";
}

TEST_F(BakeFailures, BatchesWithoutJobsOrWithABadJob) {
    WriteWholeFile("empty.bat", "  \n\n");
    ExpectFailure({"--batch", "empty.bat"}, {dir.File("empty.bat"), "no job in the batch"});
    ExpectFailure({"--batch", "none.bat"}, {dir.File("none.bat"), "no job in the batch"});
    WriteWholeFile("short.bat", "m/test.vbf texture.dat\n");  // two words make no job
    ExpectFailure({"--batch", "short.bat"}, {"no job in the batch"});

    // The bad jobs run first; the good one is baked all the same, and the run fails.
    ASSERT_TRUE(MakeMap("n", 4));
    WriteWholeFile("plain.ssf", "AMBIENT 100\n");
    fs::create_directories("kind");
    WriteWholeFile("kind/test.vbf", std::string("\x02\0\0\0\0\0\0\0", 8));  // fatal to the reader
    WriteWholeFile("jobs.bat",
                   "n/test.vbf good.dat plain.ssf\ngone/test.vbf bad.dat plain.ssf\n"
                   "kind/test.vbf bad.dat plain.ssf\nn/test.vbf ../../out.dat plain.ssf\n"
                   "n/test.xyz odd.dat plain.ssf\n");
    ToolRun run = RunBake({"--batch", "jobs.bat", "--texture-size", "64"});
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_TRUE(Contains(run.output, "MAP REFUSED gone/test.vbf")) << run.output;
    EXPECT_TRUE(Contains(run.output, "MAP REFUSED kind/test.vbf: VELMORALoadVBF: invalid header"))
        << run.output;
    EXPECT_TRUE(Contains(run.output, "jobs.bat line 4: the output name ../../out.dat climbs out"))
        << run.output;
    EXPECT_TRUE(Contains(run.output, "Invalid file extension on n/test.xyz")) << run.output;
    EXPECT_EQ(FileSize("n/good.dat"), 64 * 64);
    EXPECT_LT(run.output.find("gone/test.vbf"), run.output.rfind("MAP: n/test.vbf"));
    EXPECT_TRUE(PartialFiles(dir.Path()).empty());
}

TEST_F(BakeFailures, QuietRunsStillSayWhatFailed) {
    ToolRun run = RunBake({"nowhere", "--quiet"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.output,
              "tenebrix-bake: error: " + dir.File("nowhere") + ": no such file or directory\n");
    ToolRun refused = RunBake({"m", "--quiet", "--texture-size", "64", "--out", "x/y.dat"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.output.rfind("tenebrix-bake: ***** MAP REFUSED", 0), 0u) << refused.output;
}

// An interrupt stops the pass between rows: exit 130, the old shadow map in place, no partial
// file. The pass is long enough that only a missed interrupt lets it finish.
TEST_F(BakeFailures, InterruptLeavesTheOldShadowMap) {
    ASSERT_TRUE(MakeMap("big", 64));
    ASSERT_EQ(RunBake({"big", "--texture-size", "64"}).status, 0);
    std::string old = ReadWholeFile("big/texture.dat");
    WriteWholeFile("fine.ssf", "OVERSAMPLE 4\n");

    std::string log = dir.File("interrupted.txt");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 2, 1);
    std::vector<std::string> args = {TENEBRIX_BAKE, "big",      "--texture-size",
                                     "2048",        "--script", "fine.ssf"};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    int spawned = posix_spawn(&pid, TENEBRIX_BAKE, &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ASSERT_EQ(spawned, 0);

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
    EXPECT_TRUE(Contains(output, "tenebrix-bake: interrupted; no partial file was left\n"))
        << output;
    EXPECT_EQ(ReadWholeFile("big/texture.dat"), old);
    EXPECT_TRUE(PartialFiles(dir.Path()).empty());
}

}  // namespace
