// The literal walk: both queries of a bake test every record of the ray table in list order and
// every triangle of a record that passes the record test. It is the reference that the
// accelerated core must match bit for bit, and the only core that takes the closed crossing rule.
#pragma once

#include <cstdint>

#include "tool/raycast/ray_predicates.h"
#include "tool/raycast/ray_table.h"

// What the queries of one thread carry from one ray to the next.
struct RayQueryState {
    RayGroundState Ground = {};                // the last ground hit
    const RayTriangle* LastBlocker = nullptr;  // the triangle that blocked the last blocked ray
    const RayMesh* LastBlockerMesh = nullptr;  // its record
};

// Work counted by a query object, for the bake's statistics.
struct RayCounters {
    uint64_t groundRays = 0;
    uint64_t lightRays = 0;
    uint64_t groundTriangleTests = 0;
    uint64_t lightTriangleTests = 0;
    uint64_t cylinderTests = 0;
    uint64_t lastBlockerHits = 0;

    void Add(const RayCounters& other);
};

// True when nothing was hit; only right for a ray straight down (target x, z = origin x, z). A hit
// goes to state.Ground.
bool RayCastDown(const RayTable& table, RayQueryState& state, float ox, float oy, float oz,
                 float tx, float ty, float tz, RayCounters* counters = nullptr,
                 CrossingRule rule = CrossingRule::HalfOpen);

// True when the way to the light is free. d has unit length; its y may have either sign. The last
// blocker is tried first, but only where the walk would test it (its record passes the cylinder
// test), so the cache saves time and never changes an answer: the result of a ray doesn't depend
// on the rays before it, which is what lets samples run in any order and on any thread.
bool RayCastToLight(const RayTable& table, RayQueryState& state, float ox, float oy, float oz,
                    float dx, float dy, float dz, CrossingRule rule = CrossingRule::HalfOpen,
                    RayCounters* counters = nullptr);

// The literal walk behind the interface that the bake's sampling uses: a fixed light and rule.
class LiteralRayQuery {
public:
    LiteralRayQuery(const RayTable& rayTable, const Vector& lightDirection, CrossingRule crossing)
        : table(rayTable), light(lightDirection), rule(crossing) {}

    bool CastDown(float ox, float oy, float oz, float tx, float ty, float tz) {
        return RayCastDown(table, state, ox, oy, oz, tx, ty, tz, &counters, rule);
    }
    bool CastToLight(float ox, float oy, float oz) {
        return RayCastToLight(table, state, ox, oy, oz, light.x, light.y, light.z, rule, &counters);
    }
    const RayGroundState& Ground() const { return state.Ground; }

    RayCounters counters;

private:
    const RayTable& table;
    Vector light;
    CrossingRule rule;
    RayQueryState state;
};
