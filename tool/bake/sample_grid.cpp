#include "tool/bake/sample_grid.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tool/bake/progress.h"
#include "tool/raycast/fast_raycast.h"

namespace {

constexpr int ProgressRowStep = 32;

// One sample: ground under (x, z), then the light from just above it along the smooth normal.
// A sample over no ground adds nothing, so no sample depends on the one before it.
template <typename Query>
uint32_t Sample(Query& query, const Vector& light, float x, float z, SampleCounts& counts) {
    if (query.CastDown(x, 10000.0f, z, x, -20000.0f, z)) return 0;
    ++counts.groundHits;
    const RayGroundState& ground = query.Ground();
    Vector n = ground.Normal;
    float h = ground.Position.y;
    float ox = float(x + n.x * 0.01);
    float oy = float(h + n.y * 0.01);
    float oz = float(z + n.z * 0.01);
    ++counts.lightRays;
    if (!query.CastToLight(ox, oy, oz)) return 0;
    ++counts.litSamples;
    double s = double(n.z) * light.z + double(n.y) * light.y + double(n.x) * light.x;
    if (!(s > 0.0)) s = 0.0;
    if (s > 1.0) s = 1.0;
    return uint32_t(s * 255.0);
}

// Calls visit(column, added) for each sample of one row.
template <typename Query, typename Visit>
void SampleRowWith(const SampleGrid& grid, int row, Query& query, SampleCounts& counts,
                   Visit&& visit) {
    float z = float(-(row * grid.step));
    for (int col = 0; col < grid.columns; ++col) {
        float x = float(col * grid.step);  // at the low corner of the grid cell, no half step
        visit(col, Sample(query, grid.light, x, z, counts));
    }
}

// The sample rows of one texel row.
template <typename Query>
void SampleTexelRow(const SampleGrid& grid, int texelRow, uint32_t* texels, Query& query,
                    SampleCounts& counts) {
    int first = texelRow * grid.oversample;
    int last = std::min(first + grid.oversample, grid.rows);
    for (int row = first; row < last; ++row)
        SampleRowWith(grid, row, query, counts,
                      [&](int col, uint32_t added) { texels[col / grid.oversample] += added; });
}

// Runs body(query) with a query object of the core on this thread.
template <typename Body>
void WithQuery(const RayCore& core, const Vector& light, SampleCounts& counts, Body&& body) {
    if (core.fast) {
        FastRayQuery query(*core.fast);
        body(query);
        counts.rays.Add(query.counters);
    } else {
        LiteralRayQuery query(*core.table, light, core.rule);
        body(query);
        counts.rays.Add(query.counters);
    }
}

void Add(SampleCounts& into, const SampleCounts& counts) {
    into.groundHits += counts.groundHits;
    into.lightRays += counts.lightRays;
    into.litSamples += counts.litSamples;
    into.rays.Add(counts.rays);
}

struct TexelRows {
    uint32_t* sums;
    int32_t texelsPerRow;
    int count;
    uint32_t* Row(int texelRow) const { return sums + size_t(texelRow) * size_t(texelsPerRow); }
};

// One thread, progress before each 32nd row as it is reached.
bool SampleSerially(const SampleGrid& grid, const RayCore& core, const TexelRows& texels,
                    SampleProgress progress, void* context, SampleCounts& counts) {
    bool finished = true;
    WithQuery(core, grid.light, counts, [&](auto& query) {
        for (int texelRow = 0; texelRow < texels.count; ++texelRow) {
            int row = texelRow * grid.oversample;  // 32 is a multiple of every oversample
            if (row % ProgressRowStep == 0) progress(row, grid.rows, context);
            if (CancelRequested()) {
                finished = false;
                return;
            }
            SampleTexelRow(grid, texelRow, texels.Row(texelRow), query, counts);
        }
    });
    return finished;
}

}  // namespace

bool SampleMap(const SampleGrid& grid, const RayCore& core, int threads, uint32_t* sums,
               int32_t texelsPerRow, SampleProgress progress, void* context, SampleCounts& counts) {
    counts = {};
    const TexelRows texels = {sums, texelsPerRow,
                              (grid.rows + grid.oversample - 1) / grid.oversample};
    if (threads <= 0) threads = int(std::max(1u, std::thread::hardware_concurrency()));
    threads = std::min(threads, std::max(texels.count, 1));
    if (threads == 1) return SampleSerially(grid, core, texels, progress, context, counts);

    std::atomic<int> next{0};
    std::atomic<bool> stop{false};
    std::mutex mutex;
    std::condition_variable rowDone;
    std::vector<uint8_t> done(size_t(texels.count), 0);
    std::vector<SampleCounts> perThread(static_cast<size_t>(threads));
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            SampleCounts& mine = perThread[size_t(t)];
            WithQuery(core, grid.light, mine, [&](auto& query) {
                for (int texelRow; !stop && (texelRow = next++) < texels.count;) {
                    SampleTexelRow(grid, texelRow, texels.Row(texelRow), query, mine);
                    std::lock_guard<std::mutex> lock(mutex);
                    done[size_t(texelRow)] = 1;
                    rowDone.notify_one();
                }
            });
        });

    // Progress and the user interface stay on this thread, in the order of the rows.
    int finishedRows = 0;  // texel rows done from the top without a gap
    int nextReport = 0;    // the next sample row that is a multiple of 32
    while (nextReport < grid.rows && !stop) {
        {
            std::unique_lock<std::mutex> lock(mutex);
            rowDone.wait_for(lock, std::chrono::milliseconds(50), [&] {
                return finishedRows < texels.count && done[size_t(finishedRows)];
            });
            while (finishedRows < texels.count && done[size_t(finishedRows)]) ++finishedRows;
        }
        while (nextReport < grid.rows && nextReport <= finishedRows * grid.oversample) {
            progress(nextReport, grid.rows, context);
            nextReport += ProgressRowStep;
        }
        if (CancelRequested()) stop = true;
    }
    for (std::thread& worker : workers) worker.join();
    for (const SampleCounts& c : perThread) Add(counts, c);
    return !stop;
}

std::vector<uint32_t> SampleRow(const SampleGrid& grid, const RayCore& core, int row) {
    std::vector<uint32_t> added(size_t(grid.columns), 0);
    SampleCounts counts;
    WithQuery(core, grid.light, counts, [&](auto& query) {
        SampleRowWith(grid, row, query, counts,
                      [&](int col, uint32_t value) { added[size_t(col)] = value; });
    });
    return added;
}

std::vector<float> GroundHeights(const RayCore& core, int32_t cellsX, int32_t cellsY,
                                 float noGround) {
    std::vector<float> heights(size_t(cellsX) * size_t(cellsY), noGround);
    SampleCounts counts;
    WithQuery(core, Vector{0, 0, 0}, counts, [&](auto& query) {
        for (int32_t r = 0; r < cellsY; ++r)
            for (int32_t c = 0; c < cellsX; ++c) {
                float x = float(32 * c), z = float(-32 * r);
                if (!query.CastDown(x, 10000.0f, z, x, -10000.0f, z))
                    heights[size_t(r) * size_t(cellsX) + size_t(c)] = query.Ground().Position.y;
            }
    });
    return heights;
}
