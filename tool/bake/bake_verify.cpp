#include "tool/bake/bake_verify.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "tool/bake/bake_pass.h"
#include "tool/bake/sample_grid.h"
#include "tool/raycast/fast_raycast.h"

namespace {

std::vector<int> RowsSpread(int wanted, int rows) {
    std::vector<int> chosen;
    if (rows <= 0) return chosen;
    if (wanted >= rows) wanted = rows;
    for (int i = 0; i < wanted; ++i)
        chosen.push_back(wanted == 1 ? 0 : int(int64_t(i) * (rows - 1) / (wanted - 1)));
    return chosen;
}

}  // namespace

VerifyOutcome VerifyBakeRows(const ShadowSettingsRecord& settings, CMesh* mesh, int rows,
                             int threads) {
    Vector light = settings.Light;
    VectorNormalize(light);
    const BakeLayout layout = LayOutBake(settings);
    const SampleGrid grid = {layout.rows, layout.columns, layout.oversample, layout.step, light};
    RayTable table;
    table.AddTree(mesh);
    FastRayTable fast;
    fast.Build(table, light);
    const RayCore fastCore = {&table, &fast, CrossingRule::HalfOpen};
    const RayCore literalCore = {&table, nullptr, CrossingRule::HalfOpen};

    const std::vector<int> chosen = RowsSpread(rows, layout.rows);
    std::vector<VerifyOutcome> outcomes(chosen.size());
    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t i; (i = next++) < chosen.size();) {
            int row = chosen[i];
            std::vector<uint32_t> quick = SampleRow(grid, fastCore, row);
            std::vector<uint32_t> literal = SampleRow(grid, literalCore, row);
            auto differs = std::mismatch(quick.begin(), quick.end(), literal.begin());
            if (differs.first == quick.end()) continue;
            VerifyOutcome& outcome = outcomes[i];
            outcome.identical = false;
            outcome.row = row;
            outcome.column = int(differs.first - quick.begin());
            outcome.x = float(outcome.column * grid.step);
            outcome.z = float(-(row * grid.step));
            outcome.fastAdds = *differs.first;
            outcome.literalAdds = *differs.second;
        }
    };
    if (threads <= 0) threads = int(std::max(1u, std::thread::hardware_concurrency()));
    std::vector<std::thread> workers;
    for (int t = 1; t < std::min<int>(threads, int(chosen.size())); ++t) workers.emplace_back(work);
    work();
    for (std::thread& worker : workers) worker.join();

    for (const VerifyOutcome& outcome : outcomes)  // rows ascend: the first difference wins
        if (!outcome.identical) {
            VerifyOutcome first = outcome;
            first.rowsChecked = int(chosen.size());
            return first;
        }
    VerifyOutcome all;
    all.rowsChecked = int(chosen.size());
    return all;
}
