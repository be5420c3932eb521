// The sample grid of a bake pass: every sample casts a ray down to the ground and one towards the
// light, and adds its N.L to the texel it falls in. Samples fan out over worker threads by texel
// rows, so no two threads add to one texel; each thread has its own query state, and since no
// answer depends on the rays before it, the sums are the same for any number of threads.
#pragma once

#include <cstdint>

#include "engine/scene/maths.h"

struct SampleGrid {
    int rows, columns;  // samples
    int oversample;     // samples per texel along each axis
    double step;        // world units between neighbouring samples
    Vector light;       // normalised
    uint32_t* sums;     // the texture's texels, row by row
    int32_t texelsPerRow;
};

struct SampleCounts {
    uint64_t groundHits;
    uint64_t lightRays;
    uint64_t litSamples;
};

// Called on the calling thread with each sample row that is a multiple of 32, in order, once
// every row before it is sampled; the pass shows progress and drains the user interface there.
using SampleProgress = void (*)(int row, int rows, void* context);

// Samples every row; threads 0 means one per core. Returns false when a cancel request stopped
// it between rows.
bool SampleMap(const SampleGrid& grid, int threads, SampleProgress progress, void* context,
               SampleCounts& counts);
