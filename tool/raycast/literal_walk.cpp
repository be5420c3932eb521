#include "tool/raycast/literal_walk.h"

#include "engine/mesh/mesh.h"

using namespace raypredicates;

void RayCounters::Add(const RayCounters& other) {
    groundRays += other.groundRays;
    lightRays += other.lightRays;
    groundTriangleTests += other.groundTriangleTests;
    lightTriangleTests += other.lightTriangleTests;
    cylinderTests += other.cylinderTests;
    lastBlockerHits += other.lastBlockerHits;
}

bool RayCastDown(const RayTable& table, RayQueryState& state, float ox, float oy, float oz,
                 float tx, float ty, float tz, RayCounters* counters, CrossingRule rule) {
    Vector direction;
    Vector origin = {ox, oy, oz};
    Vector target = {tx, ty, tz};
    VectorSubtract(target, origin, direction);
    double best = VectorNormalize(direction);

    const RayTriangle* found = nullptr;
    const RayMesh* foundRecord = nullptr;
    DownHit hit = {}, foundHit = {};
    uint64_t tests = 0;
    for (const RayMesh* record = table.First(); record; record = record->Next) {
        if (!InsideBox(*record, ox, oz)) continue;
        tests += record->TriangleCount;
        for (uint32_t i = 0; i < record->TriangleCount; ++i) {
            const RayTriangle& triangle = record->Triangles[i];
            if (!HitsDown(triangle, ox, oy, oz, direction, best, hit, rule)) continue;
            best = hit.t;  // the test is strict: on equal t the earlier find stays
            found = &triangle;
            foundRecord = record;
            foundHit = hit;
        }
    }
    if (counters) {
        ++counters->groundRays;
        counters->groundTriangleTests += tests;
    }
    if (!found) return true;

    RayGroundState& ground = state.Ground;
    ground.Position.x = float(ox + best * direction.x);
    ground.Position.y = float(oy + best * direction.y);
    ground.Position.z = float(oz + best * direction.z);
    InterpolatedNormal(foundRecord->Mesh->vertices, *found, foundHit.a, foundHit.b, ground.Normal);
    VectorNormalize(ground.Normal);
    return false;
}

template <CrossingRule Rule>
static bool WalkTowardsLight(const RayTable& table, RayQueryState& state, const float o[3],
                             const float d[3], RayCounters& counters) {
    ++counters.lightRays;
    if (state.LastBlocker && CylinderMayBlock(*state.LastBlockerMesh, o, d) &&
        HitsTowardsLight<Rule>(*state.LastBlocker, o, d)) {
        ++counters.lastBlockerHits;
        return false;
    }
    for (const RayMesh* record = table.First(); record; record = record->Next) {
        ++counters.cylinderTests;
        if (!CylinderMayBlock(*record, o, d)) continue;
        for (uint32_t i = 0; i < record->TriangleCount; ++i) {
            const RayTriangle& triangle = record->Triangles[i];
            if (triangle.Skip != 0) continue;
            ++counters.lightTriangleTests;
            if (HitsTowardsLight<Rule>(triangle, o, d)) {
                state.LastBlocker = &triangle;
                state.LastBlockerMesh = record;
                return false;
            }
        }
    }
    return true;
}

bool RayCastToLight(const RayTable& table, RayQueryState& state, float ox, float oy, float oz,
                    float dx, float dy, float dz, CrossingRule rule, RayCounters* counters) {
    const float o[3] = {ox, oy, oz};
    const float d[3] = {dx, dy, dz};
    RayCounters ignored;
    RayCounters& count = counters ? *counters : ignored;
    return rule == CrossingRule::HalfOpen
               ? WalkTowardsLight<CrossingRule::HalfOpen>(table, state, o, d, count)
               : WalkTowardsLight<CrossingRule::Closed>(table, state, o, d, count);
}
