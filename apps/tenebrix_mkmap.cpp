// tenebrix-mkmap: makes maps of any size and seed with the project's map generator, as test.vbf
// with its size chunk and the textures as TGA files, for tests, benchmarks and the sample map.
#include <cstdio>
#include <filesystem>
#include <string>

#include "apps/common/command_line.h"
#include "apps/common/tool_session.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "tool/maps/map_chunks.h"
#include "tool/maps/map_generator.h"

namespace fs = std::filesystem;

namespace {

CommandLineOutcome ParseMkmapOptions(int argc, char** argv, MapRecipe& recipe,
                                     std::string& outDir, bool& textured) {
    CommandLine line("tenebrix-mkmap",
                     "Writes OUTDIR/test.vbf, a map made by the project's generator, and its "
                     "textures in OUTDIR/textures.",
                     "Exit status: 0 when the map was written, 1 when a file could not be "
                     "written, 2 for a usage error.");
    CLI::App& app = line.app;
    app.add_option("OUTDIR", outDir, "the map folder, made if missing")->type_name("");
    auto whole = [&](const char* name, int& value, int lo, int hi, const char* description) {
        line.Whole(name, value, lo, hi, description)->capture_default_str();
    };
    whole("--cells", recipe.cells, 1, 256, "side of the map in 32-unit cells");
    whole("--chunks", recipe.chunks, 1, 64, "the ground in N x N meshes");
    whole("--quads", recipe.quadsPerCell, 1, 64, "terrain quads per cell");
    int hills = int(recipe.hills), seed = int(recipe.seed);
    whole("--hills", hills, 0, 1000, "terrain amplitude in world units; 0 is flat");
    whole("--buildings", recipe.buildings, 0, 100000, "buildings");
    whole("--arches", recipe.arches, 0, 10000, "arches");
    whole("--bridges", recipe.bridges, 0, 10000, "bridges");
    whole("--posts", recipe.roofsOnPosts, 0, 10000, "roofs on posts");
    whole("--seed", seed, 0, 2000000000, "the generator's seed");
    app.add_flag("--one-mesh", recipe.oneMesh, "everything in a single mesh");
    bool noTextures = false;
    app.add_flag("--no-textures", noTextures, "untextured faces, no TGA files");
    return line.Parse(argc, argv, [&]() -> std::string {
        recipe.hills = float(hills);
        recipe.seed = uint32_t(seed);
        textured = !noTextures;
        return outDir.empty() ? "no output directory" : "";
    });
}

}  // namespace

int main(int argc, char** argv) {
    MapRecipe recipe;
    std::string outDir;
    bool textured = true;
    CommandLineOutcome parsed = ParseMkmapOptions(argc, argv, recipe, outDir, textured);
    if (!parsed.run) return PrintOutcome(parsed);

    ToolSessionOptions session;
    session.program = "tenebrix-mkmap";
    ToolSession running(session);
    std::error_code error;
    fs::create_directories(fs::path(outDir) / "textures", error);
    if (error) {
        std::fprintf(stderr, "tenebrix-mkmap: cannot make %s: %s\n", outDir.c_str(),
                     error.message().c_str());
        return 1;
    }
    MapTextures textures = {};
    if (textured) {
        textures = CreateMapTextures();
        for (CTexture* texture :
             {textures.grass, textures.rock, textures.wall, textures.roof, textures.wood}) {
            std::string path = (fs::path(outDir) / "textures" / texture->name).string();
            if (!texture->SaveAsTGA(path.c_str())) {
                std::fprintf(stderr, "tenebrix-mkmap: cannot write %s\n", path.c_str());
                return 1;
            }
        }
    }
    CMesh* map = GenerateMap(recipe, textured ? &textures : nullptr);
    std::vector<uint8_t> chunks = MakeMapChunks(recipe.cells, recipe.cells);
    std::string path = (fs::path(outDir) / "test.vbf").string();
    bool written = map->SaveVBF(path.c_str(), chunks.data(), uint32_t(chunks.size()));
    uint32_t triangles = CountTriangles(map);
    delete map;
    if (!written) {
        std::fprintf(stderr, "tenebrix-mkmap: cannot write %s\n", path.c_str());
        return 1;
    }
    std::printf("%s: %d x %d cells, %u triangles\n", path.c_str(), recipe.cells, recipe.cells,
                triangles);
    return 0;
}
