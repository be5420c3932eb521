// tenebrix-mkmap: makes maps of any size and seed with the project's map generator, as test.vbf
// with its size chunk and the textures as TGA files, for tests, benchmarks and the sample maps.
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/common/command_line.h"
#include "apps/common/tool_session.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "platform/crt/replacing_file.h"
#include "tool/maps/animated_map.h"
#include "tool/maps/map_chunks.h"
#include "tool/maps/map_generator.h"

namespace fs = std::filesystem;

namespace {

struct MkmapRequest {
    MapRecipe recipe;
    std::string outDir;
    bool textured = true;
    bool animated = false;  // the animated sample in place of a recipe's map
};

CommandLineOutcome ParseMkmapOptions(int argc, char** argv, MkmapRequest& request) {
    MapRecipe& recipe = request.recipe;
    CommandLine line("tenebrix-mkmap",
                     "Writes OUTDIR/test.vbf, a map made by the project's generator, and its "
                     "textures in OUTDIR/textures.",
                     "Exit status: 0 when the map was written, 1 when a file could not be "
                     "written, 2 for a usage error.");
    CLI::App& app = line.app;
    app.add_option("OUTDIR", request.outDir, "the map folder, made if missing")->type_name("");
    std::vector<CLI::Option*> shaping;  // what the animated sample's fixed recipe can't take
    auto whole = [&](const char* name, int& value, int lo, int hi, const char* description) {
        shaping.push_back(line.Whole(name, value, lo, hi, description)->capture_default_str());
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
    shaping.push_back(app.add_flag("--one-mesh", recipe.oneMesh, "everything in a single mesh"));
    bool noTextures = false;
    app.add_flag("--no-textures", noTextures, "untextured faces, no TGA files");
    app.add_flag("--animated", request.animated,
                 "the animated sample: a windmill whose sails turn over " +
                     std::to_string(AnimatedMapFrames) + " frames on a map of " +
                     std::to_string(AnimatedMapCells) + " x " + std::to_string(AnimatedMapCells) +
                     " cells, with its resource.cfg and the shadow script lit/animated.ssf that "
                     "bakes every frame");
    return line.Parse(argc, argv, [&]() -> std::string {
        recipe.hills = float(hills);
        recipe.seed = uint32_t(seed);
        request.textured = !noTextures;
        if (request.outDir.empty()) return "no output directory";
        for (const CLI::Option* option : shaping)
            if (request.animated && option->count())
                return "--animated makes the sample as it is; it takes no " + option->get_name();
        return "";
    });
}

bool WriteTextures(const MapTextures& textures, const fs::path& folder) {
    for (CTexture* texture :
         {textures.grass, textures.rock, textures.wall, textures.roof, textures.wood}) {
        std::string path = (folder / texture->name).string();
        if (!texture->SaveAsTGA(path.c_str())) {
            std::fprintf(stderr, "tenebrix-mkmap: cannot write %s\n", path.c_str());
            return false;
        }
    }
    return true;
}

// The animated sample's resource.cfg and shadow script, which make its folder a bake of its own.
bool WriteAnimatedFiles(const fs::path& folder) {
    for (const MapTextFile& file : AnimatedMapFiles()) {
        std::string path = (folder / file.name).string();
        if (!WriteFileAtomically(path.c_str(), file.text.data(), file.text.size())) {
            std::fprintf(stderr, "tenebrix-mkmap: cannot write %s\n", path.c_str());
            return false;
        }
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    MkmapRequest request;
    CommandLineOutcome parsed = ParseMkmapOptions(argc, argv, request);
    if (!parsed.run) return PrintOutcome(parsed);

    ToolSessionOptions session;
    session.program = "tenebrix-mkmap";
    ToolSession running(session);
    const fs::path folder = request.outDir;
    std::error_code error;
    fs::create_directories(folder / "textures", error);
    if (!error && request.animated) fs::create_directories(folder / "lit", error);
    if (error) {
        std::fprintf(stderr, "tenebrix-mkmap: cannot make %s: %s\n", request.outDir.c_str(),
                     error.message().c_str());
        return 1;
    }
    MapTextures textures = {};
    if (request.textured) {
        textures = CreateMapTextures();
        if (!WriteTextures(textures, folder / "textures")) return 1;
    }
    const MapTextures* faces = request.textured ? &textures : nullptr;
    CMesh* map = request.animated ? GenerateAnimatedMap(faces) : GenerateMap(request.recipe, faces);
    const int cells = request.animated ? AnimatedMapCells : request.recipe.cells;
    std::vector<uint8_t> chunks = MakeMapChunks(cells, cells);
    std::string path = (folder / "test.vbf").string();
    bool written = map->SaveVBF(path.c_str(), chunks.data(), uint32_t(chunks.size()));
    uint32_t triangles = CountTriangles(map);
    delete map;
    if (!written) {
        std::fprintf(stderr, "tenebrix-mkmap: cannot write %s\n", path.c_str());
        return 1;
    }
    if (request.animated && !WriteAnimatedFiles(folder)) return 1;
    std::printf("%s: %d x %d cells, %u triangles\n", path.c_str(), cells, cells, triangles);
    return 0;
}
