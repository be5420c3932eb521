#include "apps/import/import_options.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

ImportCommand Parse(std::vector<std::string> args, ImportOptions& options, std::string& error) {
    args.insert(args.begin(), "tenebrix-import");
    std::vector<const char*> argv;
    for (const std::string& arg : args) argv.push_back(arg.c_str());
    return ParseImportOptions(int(argv.size()), argv.data(), options, error);
}

TEST(ImportOptions, ReadsEveryOptionInBothSpellings) {
    ImportOptions options;
    std::string error;
    ASSERT_EQ(Parse({"a.obj", "b.glb", "-o", "out", "--up", "z", "--fit=16", "--margin", "2",
                     "--ground", "--chunk", "128", "--height-scale", "0.25", "--raw-size",
                     "403x344", "--raw-format=int16", "--no-textures", "--quiet"},
                    options, error),
              ImportCommand::Run)
        << error;
    const ImportRequest& r = options.request;
    EXPECT_EQ(r.inputs, (std::vector<std::string>{"a.obj", "b.glb"}));
    EXPECT_EQ(r.mapFolder, "out");
    EXPECT_EQ(r.placement.up, UpAxis::Z);
    EXPECT_EQ(r.placement.fitCells, 16);
    EXPECT_EQ(r.placement.marginCells, 2);
    EXPECT_TRUE(r.placement.ground);
    EXPECT_EQ(r.chunkSize, 128.0);
    EXPECT_EQ(r.heightMap.heightScale, 0.25);
    EXPECT_EQ(r.heightMap.rawWidth, 403u);
    EXPECT_EQ(r.heightMap.rawHeight, 344u);
    EXPECT_EQ(r.heightMap.rawFormat, RawSampleFormat::Int16);
    EXPECT_FALSE(r.textures);
    EXPECT_TRUE(options.quiet);

    ImportOptions scaled;
    ASSERT_EQ(Parse({"a.obj", "--output=out", "--scale", "2.5"}, scaled, error),
              ImportCommand::Run);
    EXPECT_EQ(scaled.request.placement.scale, 2.5);
    EXPECT_EQ(scaled.request.mapFolder, "out");

    EXPECT_EQ(Parse({"x.obj", "-h", "--bogus"}, options, error), ImportCommand::Help);
    EXPECT_EQ(Parse({"--version"}, options, error), ImportCommand::Version);
}

TEST(ImportOptions, UsageErrorsSayWhatIsWrong) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"-o", "out"}, "no input"},
        {{"a.obj"}, "no map folder"},
        {{"a.obj", "-o"}, "-o needs a map folder"},
        {{"a.obj", "-o", "out", "--up", "x"}, "--up must be y or z"},
        {{"a.obj", "-o", "out", "--scale", "0"}, "--scale must be"},
        {{"a.obj", "-o", "out", "--scale", "nan"}, "--scale must be"},
        {{"a.obj", "-o", "out", "--scale", "2", "--fit", "4"}, "--scale or --fit"},
        {{"a.obj", "-o", "out", "--fit", "257"}, "--fit must be"},
        {{"a.obj", "-o", "out", "--fit", "200", "--margin", "30"}, "more than 256 cells"},
        {{"a.obj", "-o", "out", "--chunk", "0.5"}, "--chunk must be"},
        {{"a.raw", "-o", "out", "--raw-size", "403"}, "--raw-size must be"},
        {{"a.raw", "-o", "out", "--raw-size", "0x5"}, "--raw-size must be"},
        {{"a.raw", "-o", "out", "--raw-format", "int8"}, "--raw-format must be"},
        {{"a.obj", "-o", "out", "--ground=yes"}, "--ground takes no value"},
        {{"a.obj", "-o", "out", "--frobnicate"}, "unknown option --frobnicate"},
    };
    for (const auto& [args, expected] : cases) {
        ImportOptions options;
        std::string error;
        EXPECT_EQ(Parse(args, options, error), ImportCommand::UsageError) << expected;
        EXPECT_NE(error.find(expected), std::string::npos) << error;
    }
}

}  // namespace
