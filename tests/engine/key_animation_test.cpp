#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/vbf_reader.h"
#include "platform/debug/debug_output.h"

namespace {

// A key value: 'r' rotation (s, x, y, z), 's' scale, 't' translation.
struct KeyValue {
    float time;
    char kind;
    float v[4];
};

constexpr float H = 0.70710678f;  // cos and sin of 45 degrees

// Base matrix: 90 degrees about z, at (7, 8, 9).
KeyAnimation* NewKeys(uint32_t lastFrame, std::vector<KeyValue> values) {
    auto* keys = static_cast<KeyAnimation*>(MALLOC(sizeof(KeyAnimation)));
    std::memset(static_cast<void*>(keys), 0, sizeof *keys);
    keys->owner = 1;
    keys->lastFrame = lastFrame;
    keys->currentFrame = KeyAnimationNoFrame;
    keys->baseMatrix = {{0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 7, 8, 9, 1}};
    for (const KeyValue& k : values) {
        const Vector v = {k.v[0], k.v[1], k.v[2]};
        if (k.kind == 'r')
            InsertRotationKey(keys, nullptr, k.time, {k.v[0], k.v[1], k.v[2], k.v[3]});
        if (k.kind == 's') InsertScaleKey(keys, nullptr, k.time, v);
        if (k.kind == 't') InsertTranslationKey(keys, nullptr, k.time, v);
    }
    return keys;
}

// Rotation rows and position of the mesh's frame.
std::vector<float> Placement(const CMesh& mesh) {
    std::vector<float> out(mesh.rotation, mesh.rotation + 9);
    out.insert(out.end(), {mesh.position.x, mesh.position.y, mesh.position.z});
    return out;
}

}  // namespace

TEST(KeyAnimation, SamplesEachChannelBetweenItsKeysWithTheWrap) {
    const float c = 0.92387953f, s = 0.38268343f;  // 22.5 degrees
    const std::vector<float> base = {0, 1, 0, -1, 0, 0, 0, 0, 1},
                             half = {0, 0, 1, 0, 1, 0, -1, 0, 0};
    auto turn = [](float time) { return KeyValue{time, 'r', {H, 0, H, 0}}; };
    const std::vector<std::vector<KeyValue>> sets = {
        {turn(4)},
        {{3, 's', {2, 2, 2}}},
        {{0, 'r', {1, 0, 0, 0}}, turn(8), {4, 't', {1, 2, 3}}},
        {turn(0), {0, 's', {1, 1, 1}}, turn(10), {10, 's', {3, 1, 1}}},
        {{2, 't', {0, 0, 0}}, {8, 't', {6, 0, 0}}}};
    struct Case {
        int set;
        uint32_t frame;
        std::vector<float> rotation;
        Vector position;
    } cases[] = {
        {0, 2, base, {7, 8, 9}},  // before the only rotation key (90 degrees about y)
        {0, 4, half, {7, 8, 9}},
        {0, 7, half, {7, 8, 9}},
        {1, 5, base, {7, 8, 9}},                           // a lone scale key scales nothing
        {2, 2, {c, 0, s, 0, 1, 0, -s, 0, c}, {7, 8, 9}},   // before the translation key
        {2, 6, {s, 0, c, 0, 1, 0, -c, 0, s}, {1, 2, 3}},   // the lone translation key holds
        {2, 8, half, {1, 2, 3}},                           // a key at t: its own value
        {3, 5, {0, 0, 2, 0, 1, 0, -1, 0, 0}, {7, 8, 9}},   // scale along the mesh's own x
        {3, 15, {0, 0, 4, 0, 1, 0, -1, 0, 0}, {7, 8, 9}},  // alpha -0.5 past the last key
        {4, 0, base, {7, 8, 9}},
        {4, 5, base, {3, 0, 0}},
        {4, 9, base, {7, 0, 0}},  // from the last key away from the first
    };
    for (const Case& k : cases) {
        CMesh mesh(nullptr);
        mesh.SetKeyAnimation(NewKeys(k.set == 3 ? 19 : 9, sets[size_t(k.set)]));
        mesh.SetAnimationFrame(float(k.frame), 0);
        std::vector<float> want = k.rotation;
        want.insert(want.end(), {k.position.x, k.position.y, k.position.z});
        const std::vector<float> got = Placement(mesh);
        for (size_t i = 0; i < 12; ++i)
            EXPECT_NEAR(got[i], want[i], 1e-6)
                << "set " << k.set << " frame " << k.frame << " " << i;
    }
}

TEST(KeyAnimation, CacheHoldsTheSampledMatricesAndReductionKeepsEveryPlacement) {
    struct Case {
        uint32_t lastFrame;
        std::vector<KeyValue> keys;
        uint32_t form;
        int fits;
    } cases[] = {
        {9, {{0, 't', {0, 0, 0}}, {9, 't', {9, 0, 0}}}, KeyFormRecords, 1},  // all frames differ
        {9, {{5, 't', {100, -2, 0.5f}}}, KeyFormFixedTable, 1},
        {9, {{5, 't', {200, 0, 0}}}, KeyFormTable, 0},  // past what 8 fraction bits hold in i16
        {9, {{5, 'r', {0.98078528f, 0, 0.19509032f, 0}}}, KeyFormTable, 0},  // fractions lost
        {65534, {}, KeyFormRecords, 1},  // too many frames for a table
    };
    for (const Case& k : cases) {
        CMesh root(nullptr);
        CMesh* mesh = new CMesh(new CFrame(&root));
        KeyAnimation* keys = NewKeys(k.lastFrame, k.keys);
        mesh->SetKeyAnimation(keys);
        mesh->SetAnimationFrame(0, 0);  // in force already: must be cached all the same
        root.CacheAnimation();
        std::vector<std::vector<float>> before;
        for (uint32_t f = 0; f <= k.lastFrame; ++f) {
            Matrix sampled;
            SampleKeyFrame(keys, f, sampled);
            ASSERT_TRUE(keys->frameCached[f]);
            ASSERT_EQ(std::memcmp(&sampled, static_cast<Matrix*>(keys->frameData) + f, 64), 0);
            mesh->SetAnimationFrame(float(f), 0);
            before.push_back(Placement(*mesh));
        }
        keys->frameCached[k.lastFrame] = 0;  // a frame left out of the cache is sampled anew
        std::memset(static_cast<Matrix*>(keys->frameData) + k.lastFrame, 0xFF, 64);
        DebugCapture capture;
        root.ReduceKeyAnimation();
        EXPECT_EQ(capture.Text(), "DEBUG: CAN BE REDUCED = " + std::to_string(k.fits) + "\n");
        EXPECT_EQ(keys->form, k.form);
        // Every frame, then rounded, tied to the even one and wrapped. Equal placements share a
        // record, and going from one to the other moves nothing.
        std::vector<float> set;
        std::vector<uint32_t> want;
        for (uint32_t f = 0; f <= k.lastFrame; ++f) set.push_back(float(f)), want.push_back(f);
        set.insert(set.end(), {float(k.lastFrame + 1), 0.4f, 0.5f, 0.6f, 1.5f, -1});
        want.insert(want.end(), {0, 0, 0, 1, 2, k.lastFrame});
        keys->currentFrame = KeyAnimationNoFrame;
        uint32_t last = KeyAnimationNoFrame;
        for (size_t i = 0; i < set.size(); ++i) {
            mesh->matrixValid = 1;
            mesh->SetAnimationFrame(set[i], 0);
            const uint32_t f = want[i];
            ASSERT_EQ(keys->currentFrame, f) << set[i];
            ASSERT_EQ(Placement(*mesh), before[f]) << k.form << " frame " << f;
            const bool moved =
                last == KeyAnimationNoFrame ||
                (f != last && (k.form == KeyFormRecords || before[f] != before[last]));
            ASSERT_EQ(mesh->matrixValid, moved ? 0 : 1) << k.form << " frame " << set[i];
            last = f;
        }
    }
}
