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

TEST(BakeOptions, DefaultsWithOnlyAMap) {
    Parsed p = Parse({"maps/harbour"});
    ASSERT_EQ(p.command, BakeCommand::Run) << p.error;
    EXPECT_EQ(p.options.map, "maps/harbour");
    EXPECT_EQ(p.options.out, "texture.dat");
    EXPECT_EQ(p.options.script, "");
    EXPECT_EQ(p.options.batch, "");
    EXPECT_EQ(p.options.config, "");
    EXPECT_EQ(p.options.png, "");
    EXPECT_EQ(p.options.textureSize, 0);  // the settings' own default stands
    EXPECT_EQ(p.options.threads, 0);
    EXPECT_FALSE(p.options.pngBeside);
    EXPECT_FALSE(p.options.stats);
    EXPECT_FALSE(p.options.quiet);
}

TEST(BakeOptions, TextOptionsTakeTheNextWordOrTheTextBehindEquals) {
    struct Case {
        const char* option;
        std::string BakeOptions::*field;
    };
    const Case cases[] = {{"--script", &BakeOptions::script},
                          {"--out", &BakeOptions::out},
                          {"--config", &BakeOptions::config},
                          {"--png", &BakeOptions::png}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.option);
        Parsed apart = Parse({"m", c.option, "a b/x.y"});
        ASSERT_EQ(apart.command, BakeCommand::Run) << apart.error;
        EXPECT_EQ(apart.options.*c.field, "a b/x.y");
        EXPECT_EQ(apart.options.map, "m");

        // Only the first "=" separates; the value may hold more.
        Parsed joined = Parse({std::string(c.option) + "=k=v.ssf", "m"});
        ASSERT_EQ(joined.command, BakeCommand::Run) << joined.error;
        EXPECT_EQ(joined.options.*c.field, "k=v.ssf");
        EXPECT_EQ(joined.options.map, "m");
    }
    Parsed batch = Parse({"--batch", "jobs.bat"});
    ASSERT_EQ(batch.command, BakeCommand::Run) << batch.error;
    EXPECT_EQ(batch.options.batch, "jobs.bat");
    EXPECT_EQ(Parse({"--batch=jobs.bat"}).options.batch, "jobs.bat");

    // A word with "=" that is no option is a map name like any other.
    EXPECT_EQ(Parse({"size=2/map"}).options.map, "size=2/map");
}

TEST(BakeOptions, NumbersInBothForms) {
    for (int size : {64, 128, 2048, 8192}) {
        Parsed apart = Parse({"m", "--texture-size", std::to_string(size)});
        ASSERT_EQ(apart.command, BakeCommand::Run) << apart.error;
        EXPECT_EQ(apart.options.textureSize, size);
        EXPECT_EQ(Parse({"m", "--texture-size=" + std::to_string(size)}).options.textureSize, size);
    }
    for (int threads : {1, 3, 1024}) {
        Parsed apart = Parse({"m", "--threads", std::to_string(threads)});
        ASSERT_EQ(apart.command, BakeCommand::Run) << apart.error;
        EXPECT_EQ(apart.options.threads, threads);
        EXPECT_EQ(Parse({"m", "--threads=" + std::to_string(threads)}).options.threads, threads);
    }
}

TEST(BakeOptions, SwitchesAndShortForms) {
    Parsed p = Parse({"--stats", "m", "--png-beside", "--quiet"});
    ASSERT_EQ(p.command, BakeCommand::Run) << p.error;
    EXPECT_TRUE(p.options.stats);
    EXPECT_TRUE(p.options.pngBeside);
    EXPECT_TRUE(p.options.quiet);
    EXPECT_TRUE(Parse({"m", "-q"}).options.quiet);

    // --png-beside goes with a batch, where --png can't.
    Parsed batch = Parse({"--batch", "b.bat", "--png-beside"});
    EXPECT_EQ(batch.command, BakeCommand::Run) << batch.error;
}

TEST(BakeOptions, HelpAndVersionNeedNoMap) {
    EXPECT_EQ(Parse({"--help"}).command, BakeCommand::Help);
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
        {{}, "no map given"},
        {{"--stats"}, "no map given"},
        {{"m", "--bogus"}, "unknown option --bogus"},
        {{"m", "-x"}, "unknown option -x"},
        {{"m", "--bogus=1"}, "unknown option --bogus"},
        {{"m", "--texture-size", "100"}, sizeError},
        {{"m", "--texture-size", "16384"}, sizeError},
        {{"m", "--texture-size", "32"}, sizeError},
        {{"m", "--texture-size", "0"}, sizeError},
        {{"m", "--texture-size", "-64"}, sizeError},
        {{"m", "--texture-size", "+64"}, sizeError},
        {{"m", "--texture-size", "64k"}, sizeError},
        {{"m", "--texture-size", "4294967360"}, sizeError},  // 2^32 + 64 must not wrap to 64
        {{"m", "--texture-size="}, sizeError},
        {{"m", "--texture-size"}, sizeError},
        {{"m", "--threads", "0"}, threadError},
        {{"m", "--threads", "1025"}, threadError},
        {{"m", "--threads", "two"}, threadError},
        {{"m", "--threads=-1"}, threadError},
        {{"m", "--script"}, "--script needs a file"},
        {{"m", "--script="}, "--script needs a file"},
        {{"m", "--out="}, "--out needs a name"},
        {{"m", "--config"}, "--config needs a file"},
        {{"m", "--png"}, "--png needs a file"},
        {{"--batch"}, "--batch needs a file"},
        {{"m", "--batch", "b.bat"}, "a map or --batch, not both"},
        {{"--batch", "b.bat", "m"}, "a map or --batch, not both"},
        {{"--batch", "b.bat", "--png", "x.png"},
         "--png takes one map; use --png-beside with --batch"},
        {{"--batch", "b.bat", "--out", "x.dat"},
         "--out takes one map; a batch names each job's output"},
        {{"m", "n"}, "one map at a time (a second map: n); use --batch for more"},
        {{"m", "--quiet=yes"}, "--quiet takes no value"},
        {{"m", "--stats=1"}, "--stats takes no value"},
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
