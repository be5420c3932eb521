#include "tool/bake/bake_pass.h"

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "base/diagnostics.h"
#include "engine/mesh/mesh.h"
#include "engine/scene/scene.h"
#include "engine/texture/texture.h"
#include "platform/crt/clock.h"
#include "platform/debug/debug_output.h"
#include "tool/run/app_state.h"
#include "tool/bake/progress.h"
#include "tool/raycast/ray_table.h"
#include "tool/bake/rebuild_normals.h"
#include "tool/bake/sample_grid.h"
#include "tool/bake/shadow_map_file.h"
#include "tool/bake/shadow_quantise.h"
#include "tool/bake/shadow_settings.h"

namespace {

constexpr double WorldSpan = 8192.0;  // the shadow map covers 8192 x 8192 world units
constexpr int32_t MaxMapCells = 256;  // 256 cells of 32 units fill the span

using Clock = std::chrono::steady_clock;

int BakeThreads = 0;

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
int32_t ClampMapCells(int32_t cells, const char* axis) {
    if (cells >= 0 && cells <= MaxMapCells) return cells;
    CorvaneWarning("Map size %d in %s is outside 0 to 256; baking the part that fits\n", cells,
                   axis);
    return cells < 0 ? 0 : MaxMapCells;
}

bool ValidSettings(const ShadowSettingsRecord& s) {
    bool oversampleOk = s.Oversample == 1 || s.Oversample == 2 || s.Oversample == 4 ||
                        s.Oversample == 8 || s.Oversample == 16;
    bool sizeOk = s.TextureSize >= 1 && s.TextureSize <= 8192;
    if (!oversampleOk || !sizeOk)
        CorvaneWarning("Bake refused: Oversample %d or TextureSize %d out of range\n",
                       s.Oversample, s.TextureSize);
    return oversampleOk && sizeOk;
}

void PrepareShadowTexture(int32_t size) {
    if (ShadowTexture && ShadowTexture->width != size) {
        FreeTexture(ShadowTexture);
        ShadowTexture = nullptr;
    }
    if (!ShadowTexture) {
        ShadowTexture = CreateTexture(size, size, TextureFormat8888);
        ShadowTexture->flags = TextureFlagMultiply | 0x20 | TextureFlagAlpha;
    }
    std::memset(ShadowTexture->pixels, 0, size_t(size) * size_t(size) * 4);
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

void SetBakeThreads(int threads) { BakeThreads = threads < 0 ? 0 : threads; }

void BakeShadowMap(CMesh* mesh, char* outputName, BakeStatistics* statistics) {
    BakeStatistics stats = {};
    uint32_t startTicks = GetTickCount();
    ShadowSettingsRecord& settings = ShadowSettings;
    if (VectorNormalize(settings.Light) == 0.0f)
        CorvaneWarning("The light direction has zero length: the whole map gets the ambient\n");
    if (!ValidSettings(settings)) {
        if (statistics) *statistics = stats;
        return;
    }

    Clock::time_point phase = Clock::now();
    if (settings.FrameCount > 0) RebuildNormals(mesh);
    RayTableBegin();
    RayTableAddTree(mesh);
    stats.tableSeconds = SecondsSince(phase);
    if (Scene) Scene->ambient = 0xFFFFFF;

    const int32_t size = settings.TextureSize;
    const int32_t oversample = settings.Oversample;
    const double step = WorldSpan / (double(size) * oversample);
    PrepareShadowTexture(size);
    uint32_t* sums = reinterpret_cast<uint32_t*>(ShadowTexture->pixels);

    const int32_t cellsX = ClampMapCells(settings.MapCellsX, "x");
    const int32_t cellsY = ClampMapCells(settings.MapCellsY, "y");
    const int columns = int(int64_t(cellsX) * oversample * size / MaxMapCells);
    const int rows = int(int64_t(cellsY) * oversample * size / MaxMapCells);

    phase = Clock::now();
    SampleGrid grid = {rows, columns, oversample, step, settings.Light, sums, size};
    SampleCounts counts = {};
    ProgressState progress = {-1};
    stats.cancelled = !SampleMap(grid, BakeThreads, ReportProgress, &progress, counts);
    stats.groundHits = counts.groundHits;
    stats.lightRays = counts.lightRays;
    stats.litSamples = counts.litSamples;
    stats.samples = stats.groundRays = uint64_t(rows) * uint64_t(columns);
    stats.sampleSeconds = SecondsSince(phase);
    if (stats.cancelled) {
        RayTableFree();
        if (statistics) *statistics = stats;
        return;
    }

    phase = Clock::now();
    QuantiseShadowMap(sums, uint32_t(size) * uint32_t(size), settings);
    stats.quantiseSeconds = SecondsSince(phase);
    DebugOutput("TIME TO BUILD %d\n", int(GetTickCount() - startTicks));

    phase = Clock::now();
    bool single = settings.FrameCount == 0;
    int32_t width = single ? size : int32_t(int64_t(cellsX) * size / MaxMapCells);
    int32_t height = single ? size : int32_t(int64_t(cellsY) * size / MaxMapCells);
    stats.filesWritten = WriteShadowMapFile(ShadowTexture, width, height, outputName);
    if (settings.WriteHeightData)
        stats.filesWritten = WriteHeightFile(cellsX, cellsY, outputName) && stats.filesWritten;
    stats.writeSeconds = SecondsSince(phase);

    RayTableFree();
    if (statistics) *statistics = stats;
}
