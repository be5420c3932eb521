// tenebrix-mkmap: makes maps of any size and seed with the project's map generator, as test.vbf
// with its size chunk and the textures as TGA files, for tests, benchmarks and the sample map.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include "base/diagnostics.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "tool/maps/map_chunks.h"
#include "tool/maps/map_generator.h"

namespace fs = std::filesystem;

static const char* Usage =
    "Usage: tenebrix-mkmap OUTDIR [options]\n"
    "\n"
    "Writes OUTDIR/test.vbf and its textures in OUTDIR/textures.\n"
    "\n"
    "Options:\n"
    "  --cells N       side of the map in 32-unit cells, 1 to 256 (default 64)\n"
    "  --chunks N      the ground in N x N meshes (default 4)\n"
    "  --quads N       terrain quads per cell (default 1)\n"
    "  --hills H       terrain amplitude in world units (default 24; 0 is flat)\n"
    "  --buildings N   (default 20)   --arches N (default 2)   --bridges N (default 1)\n"
    "  --posts N       roofs on posts (default 2)\n"
    "  --seed N        (default 1)\n"
    "  --one-mesh      everything in a single mesh\n"
    "  --no-textures   untextured faces, no TGA files\n";

static bool Number(const char* text, int lo, int hi, int& value) {
    char* end = nullptr;
    long n = std::strtol(text, &end, 10);
    if (!*text || *end || n < lo || n > hi) return false;
    value = int(n);
    return true;
}

int main(int argc, char** argv) {
    MapRecipe recipe;
    std::string outDir;
    bool textured = true;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        auto value = [&](int lo, int hi, int& into) {
            if (i + 1 >= argc || !Number(argv[++i], lo, hi, into)) {
                std::fprintf(stderr, "tenebrix-mkmap: %s needs a number from %d to %d\n",
                             arg.c_str(), lo, hi);
                std::exit(2);
            }
        };
        int n = 0;
        if (arg == "--help") {
            std::fputs(Usage, stdout);
            return 0;
        } else if (arg == "--cells") {
            value(1, 256, recipe.cells);
        } else if (arg == "--chunks") {
            value(1, 64, recipe.chunks);
        } else if (arg == "--quads") {
            value(1, 64, recipe.quadsPerCell);
        } else if (arg == "--hills") {
            value(0, 1000, n), recipe.hills = float(n);
        } else if (arg == "--buildings") {
            value(0, 100000, recipe.buildings);
        } else if (arg == "--arches") {
            value(0, 10000, recipe.arches);
        } else if (arg == "--bridges") {
            value(0, 10000, recipe.bridges);
        } else if (arg == "--posts") {
            value(0, 10000, recipe.roofsOnPosts);
        } else if (arg == "--seed") {
            value(0, 2000000000, n), recipe.seed = uint32_t(n);
        } else if (arg == "--one-mesh") {
            recipe.oneMesh = true;
        } else if (arg == "--no-textures") {
            textured = false;
        } else if (arg[0] == '-' || !outDir.empty()) {
            std::fprintf(stderr, "tenebrix-mkmap: unexpected %s\nTry 'tenebrix-mkmap --help'.\n",
                         arg.c_str());
            return 2;
        } else {
            outDir = arg;
        }
    }
    if (outDir.empty()) {
        std::fprintf(stderr, "tenebrix-mkmap: no output directory\nTry 'tenebrix-mkmap --help'.\n");
        return 2;
    }

    CorvaneInit();
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
    FreeAllTextures();
    CorvaneClose();
    if (!written) {
        std::fprintf(stderr, "tenebrix-mkmap: cannot write %s\n", path.c_str());
        return 1;
    }
    std::printf("%s: %d x %d cells, %u triangles\n", path.c_str(), recipe.cells, recipe.cells,
                triangles);
    return 0;
}
