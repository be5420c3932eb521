// tenebrix-mkmap run as a child process: the files it writes and its command line.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/apps/cli_run.h"
#include "tests/support/temp_dir.h"

namespace fs = std::filesystem;

namespace {

ToolRun RunMkmap(const std::vector<std::string>& args) {
    return RunTool(TENEBRIX_MKMAP, args);
}

// Every file below folder, by its path relative to it, with its bytes.
std::vector<std::pair<std::string, std::string>> FilesBelow(const std::string& folder) {
    std::vector<std::pair<std::string, std::string>> files;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_regular_file())
            files.emplace_back(fs::relative(entry.path(), folder).string(),
                               ReadWholeFile(entry.path().string()));
    std::sort(files.begin(), files.end());
    return files;
}

TEST(MkmapCli, WritesTheMapAndItsTexturesAndTheSeedAloneDecidesTheBytes) {
    TempDir dir;
    ToolRun run = RunMkmap({"out/a", "--cells", "6", "--seed", "7"});
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(run.output.rfind("out/a/test.vbf: 6 x 6 cells, ", 0), 0u) << run.output;
    for (const char* name : {"grass", "rock", "wall", "roof", "wood"})
        EXPECT_GT(FileSize(std::string("out/a/textures/") + name + ".tga"), 18) << name;

    ASSERT_EQ(RunMkmap({"again", "--cells", "6", "--seed", "7"}).status, 0);
    ASSERT_EQ(RunMkmap({"other", "--cells", "6", "--seed", "8"}).status, 0);
    auto first = FilesBelow("out/a");
    EXPECT_EQ(first.size(), 6u);
    EXPECT_EQ(FilesBelow("again"), first);
    EXPECT_NE(ReadWholeFile("other/test.vbf"), ReadWholeFile("again/test.vbf"));

    ToolRun bare = RunMkmap({"b", "--cells", "4", "--no-textures", "--one-mesh"});
    ASSERT_EQ(bare.status, 0) << bare.output;
    EXPECT_GT(FileSize("b/test.vbf"), 0);
    EXPECT_TRUE(fs::is_empty("b/textures"));
}

TEST(MkmapCli, HelpAndBadArguments) {
    TempDir dir;
    ToolRun help = RunMkmap({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.output.rfind("Usage: tenebrix-mkmap OUTDIR", 0), 0u) << help.output;

    const std::vector<std::vector<std::string>> numbers = {
        {"m", "--cells", "0"}, {"m", "--cells", "257"}, {"m", "--cells", "8x"}, {"m", "--cells"},
        {"m", "--seed", "-1"}, {"m", "--chunks", "65"}, {"m", "--hills", "1e3"}};
    for (const auto& args : numbers) {
        SCOPED_TRACE(args[1] + " " + (args.size() > 2 ? args[2] : "(none)"));
        ToolRun run = RunMkmap(args);
        EXPECT_EQ(run.status, 2);
        EXPECT_TRUE(Contains(run.output, args[1] + " needs a number from ")) << run.output;
    }
    ToolRun none = RunMkmap({"--cells", "4"});
    EXPECT_EQ(none.status, 2);
    EXPECT_TRUE(Contains(none.output, "no output directory")) << none.output;
    ToolRun unknown = RunMkmap({"m", "--wide"});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(Contains(unknown.output, "Try 'tenebrix-mkmap --help'."));
    EXPECT_FALSE(fs::exists("m"));
}

}  // namespace
