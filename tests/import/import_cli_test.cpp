// tenebrix-import as a build pipeline runs it: exit status, messages, and what is left on disk.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/apps/cli_run.h"
#include "tests/import/import_support.h"

namespace fs = std::filesystem;

namespace {

ToolRun RunImport(const std::vector<std::string>& args) {
    return RunTool(TENEBRIX_IMPORT, args);
}

TEST(ImportCli, HelpAndUsageErrors) {
    TempDir dir;
    ToolRun help = RunImport({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.output, HasSubstr("Usage: tenebrix-import INPUT... -o MAPDIR"));
    ToolRun bare = RunImport({});
    EXPECT_EQ(bare.status, 2);
    EXPECT_THAT(bare.output,
                HasSubstr("tenebrix-import: no input given\nTry 'tenebrix-import --help'.\n"));
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
    ASSERT_TRUE(WriteGreyPng("whole.png", 64, 64, 16, std::vector<uint16_t>(4096, 7)));
    std::string png = ReadWholeFile("whole.png");
    WriteWholeFile("cut.png", png.substr(0, png.size() / 2));
    WriteWholeFile("short.raw", std::string(99, '\0'));
    WriteWholeFile("cut.ply.gz", std::string("\x1f\x8b\x08\0\0\0\0\0\0\x03", 10));
    WriteTriangleGltf("huge.gltf", R"(, "name": "blown", "scale": [1e39, 1, 1])", "");

    std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"empty.obj"}, "empty.obj: the file is empty"},
        {{"absent.obj"}, "absent.obj: No such file or directory"},
        {{"nan.obj"}, "nan.obj: vertex 1 of mesh"},
        {{"nan.obj"}, "NaN"},
        {{"lines.obj"}, "lines.obj: no triangles in the file"},
        {{"badindex.obj"}, "badindex.obj: cannot be read: "},
        {{"level.bsp"}, "level.bsp: unsupported format"},
        {{"city.json"}, "city.json: unsupported format (no reader for .json files)"},
        {{"cut.png"}, "cut.png: cannot be read as a height map: "},
        {{"short.raw", "--raw-size", "10x10"}, "short.raw: 99 bytes, but a 10 x 10 grid has"},
        {{"short.raw"}, "short.raw: a raw grid needs its size: --raw-size"},
        {{"cut.ply.gz"}, "cut.ply.gz: the gzip data ends early"},
        {{"huge.gltf"}, "huge.gltf: node \"blown\" has a transform with NaN or infinite numbers"},
    };
    std::string glb = RealData("kenney-city-kit-cc0/building-small-a.glb");
    if (!glb.empty()) {
        std::string bytes = ReadWholeFile(glb);
        WriteWholeFile("cut.glb", bytes.substr(0, bytes.size() / 2));
        cases.push_back({{"cut.glb"}, "cut.glb: cannot be read: "});
    }
    std::string bsp = RealData("librequake-maps/lqdm2_a6.bsp");
    if (!bsp.empty()) cases.push_back({{bsp}, "lqdm2_a6.bsp: unsupported format"});

    for (auto [args, expected] : cases) {
        SCOPED_TRACE(args[0]);
        args.insert(args.end(), {"-o", "map"});
        ToolRun run = RunImport(args);
        EXPECT_EQ(run.status, 1) << run.output;
        EXPECT_THAT(run.output, HasSubstr("error: "));
        EXPECT_THAT(run.output, HasSubstr(expected));
        EXPECT_FALSE(fs::exists("map/test.vbf"));
        EXPECT_TRUE(PartialFiles(dir.Path()).empty());
    }
}

// A colour map that can't be found fails the run, but the map is written with those faces
// untextured, so the geometry isn't lost; --no-textures asks for exactly that and succeeds.
TEST(ImportCli, AMissingTextureFailsTheRunButKeepsTheGeometry) {
    TempDir dir;
    ObjWriter obj;
    obj.text = "mtllib box.mtl\nusemtl painted\n";
    obj.Box({0, 0, -10}, {10, 5, 0});
    obj.Save("box.obj");
    WriteWholeFile("box.mtl", "newmtl painted\nKd 1 1 1\nmap_Kd paint/missing.png\n");

    ToolRun run = RunImport({"box.obj", "-o", "map"});
    EXPECT_EQ(run.status, 1) << run.output;
    EXPECT_THAT(run.output, HasSubstr("box.obj: colour map paint/missing.png: not found beside "
                                      "the model; its faces keep no texture"));
    EXPECT_EQ(LoadedMap("map").FaceTextures(), std::vector<const CTexture*>(12, nullptr));
    EXPECT_EQ(RunImport({"box.obj", "-o", "plain", "--no-textures"}).status, 0);

    std::string glb = RealData("kenney-city-kit-cc0/building-small-a.glb");
    if (glb.empty()) GTEST_SKIP() << "no real data";
    ToolRun real = RunImport({glb, "-o", "kenney"});
    EXPECT_EQ(real.status, 1);
    EXPECT_THAT(real.output, HasSubstr("colour map Textures/colormap.png: not found"));
    EXPECT_TRUE(fs::exists("kenney/test.vbf"));
}

TEST(ImportCli, PrintsASummaryOfWhatItWrote) {
    TempDir dir;
    ObjWriter obj;
    obj.Box({0, 0, -60}, {32, 16, 0});
    obj.Box({100, 0, -20}, {110, 50, -10});
    obj.Save("two.obj");
    ToolRun run = RunImport({"two.obj", "-o", "map", "--chunk", "64"});
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_THAT(run.output, HasSubstr("tenebrix-import: map/test.vbf: 2 meshes, 24 triangles, "
                                      "extent 110 x 50 x 60 (x 0 .. 110, y 0 .. 50, z -60 .. 0), "
                                      "4 x 2 cells\n"));
    ToolRun quiet = RunImport({"two.obj", "-o", "map", "--quiet"});
    EXPECT_EQ(quiet.status, 0);
    EXPECT_EQ(quiet.output, "");
}

}  // namespace
