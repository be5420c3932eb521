#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/vbf_reader.h"
#include "platform/debug/debug_output.h"

using Floats = std::vector<float>;

TEST(KeyAnimation, SamplesCachesAndReducesEveryFramesPlacement) {
    // A key value: 'r' a rotation (s, x, y, z), 's' a scale, 't' a translation.
    using Key = std::tuple<float, char, std::array<float, 4>>;
    const float H = 0.70710678f, c = 0.92387953f, s = 0.38268343f;  // 45 and 22.5 degrees
    auto turn = [&](float time) { return Key{time, 'r', {H, 0, H, 0}}; };
    const std::tuple<uint32_t, std::vector<Key>, uint32_t, int> sets[] = {
        {9, {turn(4)}, KeyFormTable, 0},  // rotation fractions lost
        {9, {{3, 's', {2, 2, 2}}}, KeyFormFixedTable, 1},
        {9, {{0, 'r', {1, 0, 0, 0}}, turn(8), {4, 't', {1, 2, 3}}}, KeyFormRecords, 0},
        {19, {turn(0), {0, 's', {1, 1, 1}}, turn(10), {10, 's', {3, 1, 1}}}, KeyFormRecords, 0},
        {9, {{2, 't', {0, 0, -2}}, {8, 't', {6, 0, -0.5f}}}, KeyFormFixedTable, 1},
        {9, {{5, 't', {200, 0, 0}}}, KeyFormTable, 0},  // past what 8 fraction bits hold in i16
        {65534, {}, KeyFormRecords, 1},                 // too many frames for a table
    };
    // Set, frame, then rotation rows and position. The base turns 90 degrees about z.
    auto at = [](Floats r, Floats p) { return r.insert(r.end(), p.begin(), p.end()), r; };
    const Matrix placed = {{0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 7, 8, 9, 1}};
    const Floats base = {0, 1, 0, -1, 0, 0, 0, 0, 1}, half = {0, 0, 1, 0, 1, 0, -1, 0, 0};
    const std::tuple<size_t, uint32_t, Floats> rows[] = {
        {0, 2, at(base, {7, 8, 9})},  // before the only rotation key (90 degrees about y)
        {0, 4, at(half, {7, 8, 9})},
        {1, 5, at(base, {7, 8, 9})},                           // a lone scale key scales nothing
        {2, 2, at({c, 0, s, 0, 1, 0, -s, 0, c}, {7, 8, 9})},   // before the translation key
        {2, 6, at({s, 0, c, 0, 1, 0, -c, 0, s}, {1, 2, 3})},   // the lone translation key holds
        {2, 8, at(half, {1, 2, 3})},                           // a key at t: its own value
        {3, 5, at({0, 0, 2, 0, 1, 0, -1, 0, 0}, {7, 8, 9})},   // scale along the mesh's own x
        {3, 15, at({0, 0, 4, 0, 1, 0, -1, 0, 0}, {7, 8, 9})},  // alpha -0.5 past the last key
        {4, 5, at(base, {3, 0, -1.25f})},
        {4, 9, at(base, {7, 0, -0.25f})},  // from the last key away from the first
    };
    for (size_t i = 0; i < std::size(sets); ++i) {
        const auto& [lastFrame, values, form, fits] = sets[i];
        CMesh root(nullptr);
        CMesh& m = *new CMesh(new CFrame(&root));
        auto* keys = static_cast<KeyAnimation*>(MALLOC(sizeof(KeyAnimation)));
        *keys = {nullptr, {}, 1, nullptr, KeyFormKeys, lastFrame, 0, KeyAnimationNoFrame, placed};
        for (const auto& [time, kind, v] : values) {
            if (kind == 'r') InsertRotationKey(keys, nullptr, time, {v[0], v[1], v[2], v[3]});
            if (kind == 's') InsertScaleKey(keys, nullptr, time, {v[0], v[1], v[2]});
            if (kind == 't') InsertTranslationKey(keys, nullptr, time, {v[0], v[1], v[2]});
        }
        m.SetKeyAnimation(keys);
        root.CacheAnimation();
        auto placement = [&, &p = m.position] {
            return at({m.rotation, m.rotation + 9}, {p.x, p.y, p.z});
        };
        std::vector<Floats> before;
        for (uint32_t f = 0; f <= lastFrame; ++f) {
            m.SetAnimationFrame(float(f), 0);
            before.push_back(placement());
        }
        for (const auto& [set, f, want] : rows) {
            if (set != i) continue;
            EXPECT_THAT(before[f], testing::Pointwise(testing::FloatNear(1e-6f), want)) << f;
        }
        keys->frameCached[lastFrame] = 0;  // a frame left out of the cache is sampled anew
        std::memset(static_cast<Matrix*>(keys->frameData) + lastFrame, 0xFF, 64);
        DebugCapture capture;
        root.ReduceKeyAnimation();
        EXPECT_EQ(capture.Text(), "DEBUG: CAN BE REDUCED = " + std::to_string(fits) + "\n");
        EXPECT_EQ(keys->form, form) << "set " << i;
        // Rounded (ties to even), wrapped, then every frame: bit for bit, moving only on a change.
        std::vector<std::tuple<float, uint32_t>> steps = {
            {float(lastFrame + 1), 0}, {0.4f, 0}, {0.5f, 0}, {0.6f, 1}, {1.5f, 2}, {-1, lastFrame}};
        for (uint32_t f = 0; f <= lastFrame; ++f) steps.push_back({float(f), f});
        uint32_t last = lastFrame;
        for (const auto& [time, f] : steps) {
            m.matrixValid = 1;
            m.SetAnimationFrame(time, 0);
            ASSERT_EQ(keys->currentFrame, f) << time;
            ASSERT_EQ(placement(), before[f]) << "set " << i << " frame " << f;
            const bool moved = f != last && (form == KeyFormRecords || before[f] != before[last]);
            ASSERT_EQ(m.matrixValid, moved ? 0 : 1) << "set " << i << " frame " << time;
            last = f;
        }
    }
}
