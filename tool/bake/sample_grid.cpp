#include "tool/bake/sample_grid.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "tool/bake/progress.h"
#include "tool/raycast/ray_table.h"

namespace {

constexpr int ProgressRowStep = 32;

// One sample: ground under (x, z), then the light from just above it along the smooth normal.
// A sample over no ground adds nothing, so no sample depends on the one before it.
void Sample(RayQueryState& state, const Vector& light, float x, float z, uint32_t& texel,
            SampleCounts& counts) {
    if (RayCastDownIn(state, x, 10000.0f, z, x, -20000.0f, z)) return;
    ++counts.groundHits;
    Vector n = state.ground->Normal;
    float h = state.ground->Position.y;
    float ox = float(x + n.x * 0.01);
    float oy = float(h + n.y * 0.01);
    float oz = float(z + n.z * 0.01);
    ++counts.lightRays;
    if (!RayCastToLightIn(state, ox, oy, oz, light.x, light.y, light.z)) return;
    ++counts.litSamples;
    double s = double(n.z) * light.z + double(n.y) * light.y + double(n.x) * light.x;
    if (!(s > 0.0)) s = 0.0;
    if (s > 1.0) s = 1.0;
    texel += uint32_t(s * 255.0);
}

// The sample rows of one texel row.
void SampleTexelRow(const SampleGrid& grid, int texelRow, RayQueryState& state,
                    SampleCounts& counts) {
    uint32_t* texels = grid.sums + size_t(texelRow) * size_t(grid.texelsPerRow);
    int first = texelRow * grid.oversample;
    int last = std::min(first + grid.oversample, grid.rows);
    for (int row = first; row < last; ++row) {
        float z = float(-(row * grid.step));
        for (int col = 0; col < grid.columns; ++col) {
            float x = float(col * grid.step);  // at the low corner of the grid cell, no half step
            Sample(state, grid.light, x, z, texels[col / grid.oversample], counts);
        }
    }
}

void Add(SampleCounts& into, const SampleCounts& counts) {
    into.groundHits += counts.groundHits;
    into.lightRays += counts.lightRays;
    into.litSamples += counts.litSamples;
}

// One thread, the process-wide query state, progress before each 32nd row as it is reached.
bool SampleSerially(const SampleGrid& grid, int texelRows, SampleProgress progress,
                    void* context, SampleCounts& counts) {
    RayQueryState state = {&RayGround, RayTable.LastBlocker, RayTable.LastBlockerMesh};
    bool finished = true;
    for (int texelRow = 0; texelRow < texelRows; ++texelRow) {
        int row = texelRow * grid.oversample;  // 32 is a multiple of every oversample
        if (row % ProgressRowStep == 0) progress(row, grid.rows, context);
        if (CancelRequested()) {
            finished = false;
            break;
        }
        SampleTexelRow(grid, texelRow, state, counts);
    }
    RayTable.LastBlocker = state.lastBlocker;
    RayTable.LastBlockerMesh = state.lastBlockerMesh;
    return finished;
}

}  // namespace

bool SampleMap(const SampleGrid& grid, int threads, SampleProgress progress, void* context,
               SampleCounts& counts) {
    counts = {};
    const int texelRows = (grid.rows + grid.oversample - 1) / grid.oversample;
    if (threads <= 0) threads = int(std::max(1u, std::thread::hardware_concurrency()));
    threads = std::min(threads, std::max(texelRows, 1));
    if (threads == 1) return SampleSerially(grid, texelRows, progress, context, counts);

    std::atomic<int> next{0};
    std::atomic<bool> stop{false};
    std::mutex mutex;
    std::condition_variable rowDone;
    std::vector<uint8_t> done(size_t(texelRows), 0);
    std::vector<SampleCounts> perThread(size_t(threads), SampleCounts{});
    std::vector<std::thread> workers;
    for (int t = 0; t < threads; ++t)
        workers.emplace_back([&, t] {
            RayGroundState ground = {};
            RayQueryState state = {&ground, nullptr, nullptr};
            for (int texelRow; !stop && (texelRow = next++) < texelRows;) {
                SampleTexelRow(grid, texelRow, state, perThread[size_t(t)]);
                std::lock_guard<std::mutex> lock(mutex);
                done[size_t(texelRow)] = 1;
                rowDone.notify_one();
            }
        });

    // Progress and the user interface stay on this thread, in the order of the rows.
    int finishedRows = 0;  // texel rows done from the top without a gap
    int nextReport = 0;    // the next sample row that is a multiple of 32
    while (nextReport < grid.rows && !stop) {
        {
            std::unique_lock<std::mutex> lock(mutex);
            rowDone.wait_for(lock, std::chrono::milliseconds(50), [&] {
                return finishedRows < texelRows && done[size_t(finishedRows)];
            });
            while (finishedRows < texelRows && done[size_t(finishedRows)]) ++finishedRows;
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
