// The texel bake pass: a regular grid of samples over the map, a ray down to the ground and a ray
// towards the light for each, N.L summed per texel, then quantised into ShadowTexture and written
// as the shadow map file.
#pragma once

#include <cstdint>

class CMesh;

struct BakeStatistics {
    uint64_t samples;       // grid points sampled
    uint64_t groundRays;    // rays cast down (one per sample)
    uint64_t groundHits;    // of those, the ones that found ground
    uint64_t lightRays;     // rays cast towards the light (one per ground hit)
    uint64_t litSamples;    // of those, the ones that reached the light
    double tableSeconds;    // building the ray table
    double sampleSeconds;   // casting both rays for every sample
    double quantiseSeconds; // sums to levels and colours
    double writeSeconds;    // the shadow map and height files
    bool filesWritten;      // false if an output could not be written
    bool cancelled;         // stopped between rows by a cancel request; nothing written
};

// Worker threads of the passes that follow; 0 (the default) is one per core, 1 samples on the
// calling thread. The result is the same for any number.
void SetBakeThreads(int threads);

// mesh: the root of the map's tree, geometry in world coordinates. outputName: relative to the
// current directory, in a writable buffer of 260 bytes (the height file's name is made in it).
// Works on ShadowSettings, ShadowTexture and Scene; leaves ShadowTexture finished for the viewer.
void BakeShadowMap(CMesh* mesh, char* outputName, BakeStatistics* statistics = nullptr);
