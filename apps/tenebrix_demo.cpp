// Bakes the map built in code into OUTDIR/texture.dat and OUTDIR/texture.png, and prints where
// they are, the time taken and the rate.
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/diagnostics.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "tool/app_state.h"
#include "tool/bake_pass.h"
#include "tool/demo_map.h"
#include "tool/png_preview.h"
#include "tool/shadow_settings.h"

int main(int argc, char** argv) {
    const char* outDir = argc > 1 ? argv[1] : "demo";
    CorvaneInit();
    mkdir(outDir, 0777);
    if (chdir(outDir) != 0) {
        std::fprintf(stderr, "tenebrix-demo: cannot enter output directory %s\n", outDir);
        return 1;
    }
    char where[PATH_MAX];
    if (!getcwd(where, sizeof where)) std::strcpy(where, outDir);

    CMesh* map = BuildDemoMap();
    ShadowSettings.MapCellsX = ShadowSettings.MapCellsY = DemoMapCells;
    ShadowSettings.Light = {0.55f, 0.45f, 0.35f};  // a late afternoon sun
    ShadowSettings.Ambient = 96;

    char outputName[260] = "texture.dat";
    BakeStatistics stats;
    BakeShadowMap(map, outputName, &stats);
    if (!stats.filesWritten) {
        std::fprintf(stderr, "tenebrix-demo: could not write %s/texture.dat\n", where);
        return 1;
    }

    // The map covers the top-left corner of the square; the preview shows just that part.
    const int32_t size = ShadowSettings.TextureSize;
    const int32_t mapTexels = DemoMapCells * size / 256;
    std::vector<uint8_t> bytes(size_t(size) * size);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = ShadowTexture->pixels[i * 4 + 3];
    bool png = WriteShadowPreviewPng("texture.png", bytes.data(), mapTexels, mapTexels, size);

    double seconds = stats.tableSeconds + stats.sampleSeconds + stats.quantiseSeconds +
                     stats.writeSeconds;
    double rays = double(stats.groundRays + stats.lightRays);
    std::printf("Baked the demo map (%d x %d cells, %llu samples)\n", DemoMapCells, DemoMapCells,
                (unsigned long long)stats.samples);
    std::printf("Shadow map: %s/texture.dat (%d x %d bytes)\n", where, size, size);
    if (png) std::printf("Preview:    %s/texture.png (%d x %d, the map's part)\n", where,
                         mapTexels, mapTexels);
    std::printf("Time: %.3f s (table %.3f s, samples %.3f s); %.0f rays/s\n", seconds,
                stats.tableSeconds, stats.sampleSeconds, rays / stats.sampleSeconds);

    delete map;
    FreeTexture(ShadowTexture);
    ShadowTexture = nullptr;
    CorvaneClose();
    return png ? 0 : 1;
}
