// tenebrix-import as a build pipeline runs it: exit status, messages, and what is left on disk.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "apps/import/import_options.h"
#include "tests/apps/cli_run.h"
#include "tests/import/import_support.h"

namespace fs = std::filesystem;

namespace {

ToolRun RunImport(const std::string& args) {
    return RunTool(TENEBRIX_IMPORT, Words(args));
}

// The options no other test here runs.
TEST(ImportCli, OptionsReachTheRequest) {
    const char* argv[] = {"tenebrix-import", "a",    "--output=o",        "--up", "z", "--scale=2.5",
                          "--height-unit",  "0.25", "--raw-format=int16", "--raw-size", "3x2",
                          "--no-textures", "--pixel-size", "74.5x92.6", "--exaggerate=3",
                          "--fps=2.5", "--frames", "7", "--animation", "walk"};
    ImportOptions o;
    CommandLineOutcome outcome = ParseImportOptions(int(std::size(argv)), argv, o);
    ASSERT_TRUE(outcome.run) << outcome.text;
    const ImportRequest& r = o.request;
    EXPECT_EQ(std::make_tuple(r.inputs.size(), r.mapFolder, r.placement.up, r.placement.scale,
                              r.heightMap.heightUnit, r.heightMap.rawFormat, r.textures),
              std::make_tuple(1u, "o", UpAxis::Z, 2.5, 0.25, RawSampleFormat::Int16, false));
    EXPECT_EQ(std::make_pair(r.heightMap.rawWidth, r.heightMap.rawHeight), std::make_pair(3u, 2u));
    EXPECT_EQ(std::make_tuple(r.heightMap.pixelWidth, r.heightMap.pixelDepth, r.heightMap.heightUnit,
                              r.heightMap.exaggerate),
              std::make_tuple(74.5, 92.6, 0.25, 3.0));
    EXPECT_EQ(std::make_tuple(r.animation.fps, r.animation.maxFrames, r.animation.pick, r.animation.given),
              std::make_tuple(2.5, 7u, "walk", true));
}

// Each broken input fails the run with a message naming the file and the fault, and leaves no map
// and no temporary file behind; none of them may crash the program.
TEST(ImportCli, BrokenInputsFailWithAClearMessage) {
    TempDir dir;
    WriteWholeFile("empty.obj", "");
    WriteWholeFile("nan.obj", "v 0 0 0\nv 1 0 nan\nv 0 1 0\nf 1 2 3\n");
    WriteWholeFile("lines.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nl 1 2 3\n");
    WriteWholeFile("badindex.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 9\n");
    WriteWholeFile("level.bsp", std::string("\x1d\0\0\0", 4) + std::string(200, 'x'));
    WriteWholeFile("city.json", "{\"type\": \"CityJSON\", \"version\": \"2.0\"}\n");
    ASSERT_TRUE(WritePng("whole.png", 64, 64, PNG_FORMAT_LINEAR_Y, std::vector<uint16_t>(4096, 7).data()));
    std::string png = ReadWholeFile("whole.png");
    WriteWholeFile("cut.png", png.substr(0, png.size() / 2));
    ASSERT_TRUE(WritePng("colour.png", 2, 2, PNG_FORMAT_RGB, std::string(12, 'Z').data()));
    ASSERT_TRUE(WritePng("line.png", 7, 1, PNG_FORMAT_GRAY, "1234567"));
    WriteWholeFile("short.raw", std::string(99, '\0'));
    WriteWholeFile("cut.pgm", "P5 4 4 65535\n" + std::string(31, '\0'));
    WriteWholeFile("high.pgm", "P2 2 2 9 1 2 3 10");
    WriteWholeFile("nomax.pgm", "P5 2 2 0\n");
    WriteWholeFile("glued.pgm", "P5 2 2 255x1234");
    const float grid[6] = {1, 2, 3, std::nanf(""), 5, 6};
    WriteWholeFile("nan.f32", std::string(reinterpret_cast<const char*>(grid), sizeof grid));
    WriteWholeFile("cut.ply.gz", std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10));
    WriteTriangleGltf("huge", R"(, "name": "blown", "scale": [1e39, 1, 1])", "");
    std::vector<std::pair<std::string, std::string>> cases = {
        {"empty.obj", "empty.obj: the file is empty"},
        {"absent.obj", "absent.obj: No such file or directory"},
        {"nan.obj", "nan.obj: vertex 1 of mesh"},
        {"nan.obj", "NaN"},
        {"lines.obj", "lines.obj: no triangles in the file"},
        {"badindex.obj", "badindex.obj: cannot be read: "},
        {"level.bsp", "level.bsp: the entities lump (offset 2021161080, 2021161080 bytes) runs past the end"},
        {"city.json", "city.json: \"vertices\" is missing or not an array"},
        {"cut.png", "cut.png: cannot be read as a height map: "},
        {"colour.png", "colour.png: cannot be read as a height map: not a greyscale image"},
        {"line.png", "line.png: a height map needs at least 2 x 2 samples"},
        {"short.raw --raw-size 10x10", "short.raw: 99 bytes, but a 10 x 10 grid has"},
        {"short.raw", "short.raw: a raw grid needs its size: --raw-size"},
        {"cut.pgm", "cut.pgm: cannot be read as a height map: the samples end early: 31 bytes for 16 samples of 2"},
        {"high.pgm", "high.pgm: cannot be read as a height map: the sample at column 1, row 1 is 10, above the header's largest value 9"},
        {"nomax.pgm", "nomax.pgm: cannot be read as a height map: the header's largest value is missing or not from 1 to 65535"},
        {"glued.pgm", "glued.pgm: cannot be read as a height map: the header doesn't end in a single space or line end"},
        {"nan.f32 --raw-size 3x2", "nan.f32: the sample at column 0, row 1 is nan"},
        {"cut.ply.gz", "cut.ply.gz: the gzip data ends early"},
        {"huge.gltf", "huge.gltf: node \"blown\" has a transform with NaN or infinite numbers"},
    };
    if (std::string glb = RealData("kenney-city-kit-cc0/building-small-a.glb"); !glb.empty()) {
        std::string bytes = ReadWholeFile(glb);
        WriteWholeFile("cut.glb", bytes.substr(0, bytes.size() / 2));
        cases.push_back({"cut.glb", "cut.glb: cannot be read: "});
    }
    for (const auto& [args, expected] : cases) {
        ToolRun run = RunImport(args + " -o map");
        EXPECT_EQ(run.status, 1) << args << ":\n" << run.output;
        EXPECT_THAT(run.output, HasSubstr("error: "));
        EXPECT_THAT(run.output, HasSubstr(expected));
        EXPECT_FALSE(fs::exists("map/test.vbf")) << args;
        EXPECT_TRUE(PartialFiles(dir.Path()).empty()) << args;
    }
}

// The summary says what was written; faces without area are dropped and counted. A colour map
// that can't be found is a warning, and its faces get a plain stand-in; --no-textures leaves
// colour maps out without a word.
TEST(ImportCli, PrintsASummaryAndKeepsTheGeometryOfAMissingTexture) {
    TempDir dir;
    ObjWriter obj;
    obj.text = "mtllib two.mtl\nusemtl painted\n";
    obj.Box({0, 0, -60}, {32, 16, 0});
    obj.Box({100, 0, -20}, {110, 50, -10});
    obj.Face({1, 1, -1}, {2, 2, -2}, {3, 3, -3});  // on a line
    obj.Face({5, 0, -5}, {5, 0, -5}, {6, 0, -5});  // two corners the same
    obj.Save("two.obj");
    WriteWholeFile("two.mtl", "newmtl painted\nKd 1 1 1\nmap_Kd paint/missing.png\n");
    ToolRun run = RunImport("two.obj -o map --chunk 64");
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, HasSubstr("2 degenerate faces (no area) dropped"));
    EXPECT_THAT(run.output, HasSubstr("warning: two.obj: colour map paint/missing.png: not "
                                      "found beside the model; its faces get a plain grey stand-in "
                                      "(--no-textures leaves colour maps out)"));
    EXPECT_THAT(run.output,
                HasSubstr("tenebrix-import: map/test.vbf: 2 meshes, 24 triangles, extent 110 x 50 x "
                          "60 (x 0 .. 110, y 0 .. 50, z -60 .. 0), 4 x 2 cells\n"));
    std::vector<const CTexture*> textures = LoadedMap("map").faceTextures;
    ASSERT_EQ(textures.size(), 24u);
    EXPECT_TRUE(textures[0] && std::count(textures.begin(), textures.end(), textures[0]) == 24);
    EXPECT_TRUE(fs::exists("map/missing.tga"));
    ToolRun quiet = RunImport("two.obj -o plain --no-textures -q");
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.output, "");
}

}  // namespace
