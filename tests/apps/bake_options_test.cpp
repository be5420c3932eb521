#include "apps/bake/bake_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

struct Parsed {
    BakeCommand command;
    BakeOptions options;
    std::string error;
};

Parsed Parse(std::vector<std::string> args) {
    args.insert(args.begin(), "tenebrix-bake");
    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    Parsed parsed;
    parsed.command = ParseBakeOptions(int(argv.size()), argv.data(), parsed.options, parsed.error);
    return parsed;
}

TEST(BakeOptions, ValuesTakeTheNextWordOrTheTextBehindEquals) {
    Parsed bare = Parse({"maps/harbour"});
    ASSERT_EQ(bare.command, BakeCommand::Run) << bare.error;
    EXPECT_EQ(bare.options.out, "texture.dat");
    EXPECT_EQ(bare.options.textureSize, 0);  // the settings' own default stands

    struct Case {
        const char* option;
        std::string BakeOptions::*field;
    };
    for (const Case& c :
         {Case{"--script", &BakeOptions::script}, Case{"--out", &BakeOptions::out},
          Case{"--config", &BakeOptions::config}, Case{"--png", &BakeOptions::png}}) {
        SCOPED_TRACE(c.option);
        Parsed apart = Parse({"m", c.option, "a b/x.y"});
        ASSERT_EQ(apart.command, BakeCommand::Run) << apart.error;
        EXPECT_EQ(apart.options.*c.field, "a b/x.y");
        // Only the first "=" separates; the value may hold more.
        Parsed joined = Parse({std::string(c.option) + "=k=v.ssf", "m"});
        EXPECT_EQ(joined.options.*c.field, "k=v.ssf");
        EXPECT_EQ(joined.options.map, "m");
    }
    EXPECT_EQ(Parse({"--batch=jobs.bat"}).options.batch, "jobs.bat");
    // A word with "=" that is no option is a map name like any other.
    EXPECT_EQ(Parse({"size=2/map"}).options.map, "size=2/map");

    EXPECT_EQ(Parse({"m", "--texture-size", "8192"}).options.textureSize, 8192);
    EXPECT_EQ(Parse({"m", "--texture-size=64"}).options.textureSize, 64);
    EXPECT_EQ(Parse({"m", "--threads", "1024"}).options.threads, 1024);
    EXPECT_EQ(Parse({"m", "--threads=1"}).options.threads, 1);

    Parsed p = Parse({"--stats", "m", "--png-beside", "-q"});
    EXPECT_TRUE(p.options.stats && p.options.pngBeside && p.options.quiet);
    // --png-beside goes with a batch, where --png can't.
    EXPECT_EQ(Parse({"--batch", "b.bat", "--png-beside"}).command, BakeCommand::Run);
}

TEST(BakeOptions, HelpAndVersionNeedNoMap) {
    EXPECT_EQ(Parse({"-h"}).command, BakeCommand::Help);
    EXPECT_EQ(Parse({"m", "--stats", "--help"}).command, BakeCommand::Help);
    EXPECT_EQ(Parse({"--version"}).command, BakeCommand::Version);
    EXPECT_EQ(Parse({"m", "--version"}).command, BakeCommand::Version);
}

TEST(BakeOptions, UsageErrorsSayWhatIsWrong) {
    struct Case {
        std::vector<std::string> args;
        const char* error;
    };
    const char* sizeError = "--texture-size must be a power of two from 64 to 8192";
    const char* threadError = "--threads must be a number from 1 to 1024";
    const Case cases[] = {
        {{"--stats"}, "no map given"},
        {{"m", "-x"}, "unknown option -x"},
        {{"m", "--bogus=1"}, "unknown option --bogus"},
        {{"m", "--texture-size", "100"}, sizeError},
        {{"m", "--texture-size", "16384"}, sizeError},
        {{"m", "--texture-size", "32"}, sizeError},
        {{"m", "--texture-size", "+64"}, sizeError},
        {{"m", "--texture-size", "64k"}, sizeError},
        {{"m", "--texture-size", "4294967360"}, sizeError},  // 2^32 + 64 must not wrap to 64
        {{"m", "--texture-size="}, sizeError},
        {{"m", "--texture-size"}, sizeError},
        {{"m", "--threads", "1025"}, threadError},
        {{"m", "--threads=-1"}, threadError},
        {{"m", "--script="}, "--script needs a file"},
        {{"m", "--out="}, "--out needs a name"},
        {{"--batch"}, "--batch needs a file"},
        {{"--batch", "b.bat", "m"}, "a map or --batch, not both"},
        {{"--batch", "b.bat", "--png", "x.png"},
         "--png takes one map; use --png-beside with --batch"},
        {{"--batch", "b.bat", "--out", "x.dat"},
         "--out takes one map; a batch names each job's output"},
        {{"m", "n"}, "one map at a time (a second map: n); use --batch for more"},
        {{"m", "--png-beside=x.png"}, "--png-beside takes no value"},
        {{"--help=all"}, "--help takes no value"},
    };
    for (const Case& c : cases) {
        std::string line;
        for (const std::string& arg : c.args) line += " " + arg;
        SCOPED_TRACE("arguments:" + line);
        Parsed p = Parse(c.args);
        EXPECT_EQ(p.command, BakeCommand::UsageError);
        EXPECT_EQ(p.error, c.error);
    }
}

}  // namespace
