#include "tool/bake/bake_pass.h"

#include <algorithm>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/diagnostics.h"
#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"
#include "platform/crt/clock.h"
#include "platform/debug/debug_output.h"
#include "tool/bake/progress.h"
#include "tool/bake/rebuild_normals.h"
#include "tool/bake/sample_grid.h"
#include "tool/bake/shadow_map_file.h"
#include "tool/bake/shadow_quantise.h"
#include "tool/raycast/fast_raycast.h"

namespace {

constexpr double WorldSpan = 8192.0;  // the shadow map covers 8192 x 8192 world units
constexpr int32_t MaxMapCells = 256;  // 256 cells of 32 units fill the span
constexpr float NoGroundHeight = -10000.0f;

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

__attribute__((format(printf, 1, 2))) void DebugOutput(const char* format, ...) {
    char text[64];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    OutputDebugStringA(text);
}

// The texture has no room beyond 256 cells; a map that claims more is cut to the texture.
void WarnOutsideTexture(int32_t cells, const char* axis) {
    if (cells < 0 || cells > MaxMapCells)
        CorvaneWarning("Map size %d in %s is outside 0 to 256; baking the part that fits\n", cells,
                       axis);
}

bool ValidSettings(const ShadowSettingsRecord& s) {
    bool oversampleOk = s.Oversample == 1 || s.Oversample == 2 || s.Oversample == 4 ||
                        s.Oversample == 8 || s.Oversample == 16;
    bool sizeOk = s.TextureSize >= 1 && s.TextureSize <= 8192;
    if (!oversampleOk || !sizeOk)
        CorvaneWarning("Bake refused: Oversample %d or TextureSize %d out of range\n", s.Oversample,
                       s.TextureSize);
    return oversampleOk && sizeOk;
}

CTexture* PrepareShadowTexture(CTexture* texture, int32_t size) {
    if (texture && texture->width != size) {
        FreeTexture(texture);
        texture = nullptr;
    }
    if (!texture) {
        texture = CreateTexture(size, size, TextureFormat8888);
        texture->flags = TextureFlagMultiply | 0x20 | TextureFlagAlpha;
    }
    std::memset(texture->pixels, 0, size_t(size) * size_t(size) * 4);
    return texture;
}

struct ProgressState {
    int lastPercent;
};

void ReportProgress(int row, int rows, void* context) {
    int& lastPercent = static_cast<ProgressState*>(context)->lastPercent;
    int percent = int(int64_t(row) * 100 / rows);
    if (percent != lastPercent) {
        lastPercent = percent;
        SetProgress(percent);
        RequestViewerRedraw();
        DrainMessages();
    }
    DebugOutput("%d of %d\n", row, rows);
}

}  // namespace

BakeLayout LayOutBake(const ShadowSettingsRecord& settings) {
    BakeLayout layout;
    layout.textureSize = settings.TextureSize;
    layout.oversample = settings.Oversample;
    layout.cellsX = std::clamp(settings.MapCellsX, 0, MaxMapCells);
    layout.cellsY = std::clamp(settings.MapCellsY, 0, MaxMapCells);
    int64_t perCell = int64_t(layout.oversample) * layout.textureSize;
    layout.columns = int(layout.cellsX * perCell / MaxMapCells);
    layout.rows = int(layout.cellsY * perCell / MaxMapCells);
    layout.step = WorldSpan / (double(layout.textureSize) * layout.oversample);
    return layout;
}

BakeResult BakeShadowMap(const BakeJob& job) {
    BakeResult result;
    BakeStatistics& stats = result.statistics;
    uint32_t startTicks = GetTickCount();
    ShadowSettingsRecord settings = job.settings;
    if (VectorNormalize(settings.Light) == 0.0f)
        CorvaneWarning("The light direction has zero length: the whole map gets the ambient\n");
    if (!ValidSettings(settings)) {
        if (job.texture) FreeTexture(job.texture);
        return result;
    }
    WarnOutsideTexture(settings.MapCellsX, "x");
    WarnOutsideTexture(settings.MapCellsY, "y");
    const BakeLayout layout = result.layout = LayOutBake(settings);

    Clock::time_point phase = Clock::now();
    if (settings.FrameCount > 0) RebuildNormals(job.mesh);
    RayTable table;
    table.AddTree(job.mesh);
    stats.tableSeconds = SecondsSince(phase);

    phase = Clock::now();
    FastRayTable fast;
    stats.literalWalk = job.core.UsesLiteralWalk();
    if (!stats.literalWalk) fast.Build(table, settings.Light);
    stats.indexSeconds = SecondsSince(phase);
    stats.triangles = table.TriangleCount();
    stats.indexBytes = table.MemoryBytes() + fast.MemoryBytes();
    const RayCore core = {&table, stats.literalWalk ? nullptr : &fast, job.core.crossing};

    result.texture = PrepareShadowTexture(job.texture, layout.textureSize);
    uint32_t* sums = reinterpret_cast<uint32_t*>(result.texture->pixels);

    phase = Clock::now();
    SampleGrid grid = {layout.rows, layout.columns, layout.oversample, layout.step, settings.Light};
    SampleCounts counts;
    ProgressState progress = {-1};
    stats.cancelled = !SampleMap(grid, core, job.core.threads, sums, layout.textureSize,
                                 ReportProgress, &progress, counts);
    stats.groundHits = counts.groundHits;
    stats.lightRays = counts.lightRays;
    stats.litSamples = counts.litSamples;
    stats.rays = counts.rays;
    stats.samples = stats.groundRays = uint64_t(layout.rows) * uint64_t(layout.columns);
    stats.sampleSeconds = SecondsSince(phase);
    if (stats.cancelled) return result;

    phase = Clock::now();
    QuantiseShadowMap(sums, uint32_t(layout.textureSize) * uint32_t(layout.textureSize), settings);
    stats.quantiseSeconds = SecondsSince(phase);
    DebugOutput("TIME TO BUILD %d\n", int(GetTickCount() - startTicks));

    phase = Clock::now();
    // An animated bake writes only the map's part of the texture.
    bool single = settings.FrameCount == 0;
    int32_t size = layout.textureSize;
    int32_t width = single ? size : int32_t(int64_t(layout.cellsX) * size / MaxMapCells);
    int32_t height = single ? size : int32_t(int64_t(layout.cellsY) * size / MaxMapCells);
    stats.filesWritten =
        WriteShadowMapFile(result.texture, width, height, job.shadowMapPath.c_str());
    if (settings.WriteHeightData) {
        std::vector<float> heights =
            GroundHeights(core, layout.cellsX, layout.cellsY, NoGroundHeight);
        std::string heightPath = HeightFilePath(job.shadowMapPath);
        stats.filesWritten = !heightPath.empty() && WriteHeightFile(heights, heightPath.c_str()) &&
                             stats.filesWritten;
    }
    stats.writeSeconds = SecondsSince(phase);
    return result;
}
