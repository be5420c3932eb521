// The sample grid of a bake pass: every sample casts a ray down to the ground and one towards the
// light, and adds its N.L to the texel it falls in. Samples fan out over worker threads by texel
// rows, so no two threads add to one texel; each thread has its own query object, and since no
// answer depends on the rays before it, the sums are the same for any number of threads.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/scene/maths.h"
#include "tool/raycast/literal_walk.h"

class FastRayTable;

// The core that answers a pass's queries: the accelerated one where fast is set, the literal
// walk under the rule otherwise.
struct RayCore {
    const RayTable* table;
    const FastRayTable* fast;  // null: the literal walk
    CrossingRule rule;
};

struct SampleGrid {
    int rows, columns;  // samples
    int oversample;     // samples per texel along each axis
    double step;        // world units between neighbouring samples
    Vector light;       // normalised
};

struct SampleCounts {
    uint64_t groundHits = 0;
    uint64_t lightRays = 0;
    uint64_t litSamples = 0;
    RayCounters rays;  // work done by the cores
};

// Called on the calling thread with each sample row that is a multiple of 32, in order, once
// every row before it is sampled; the pass shows progress and drains the user interface there.
using SampleProgress = void (*)(int row, int rows, void* context);

// Samples every row into sums (the texture's texels, texelsPerRow to a row); threads 0 means one
// per core. Returns false when a cancel request stopped it between rows.
bool SampleMap(const SampleGrid& grid, const RayCore& core, int threads, uint32_t* sums,
               int32_t texelsPerRow, SampleProgress progress, void* context, SampleCounts& counts);

// What each sample of one row adds to its texel, in column order.
std::vector<uint32_t> SampleRow(const SampleGrid& grid, const RayCore& core, int row);

// The ground's height at each map cell corner (x = 32c, z = -32r), row by row, by a ray straight
// down; noGround where there is none.
std::vector<float> GroundHeights(const RayCore& core, int32_t cellsX, int32_t cellsY,
                                 float noGround);
