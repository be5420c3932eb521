// The texel bake pass: a regular grid of samples over the map, a ray down to the ground and a ray
// towards the light for each, N.L summed per texel, then quantised into the shadow texture and
// written as the shadow map file (and the height file where asked).
#pragma once

#include <cstdint>
#include <string>

#include "tool/bake/shadow_settings.h"
#include "tool/raycast/literal_walk.h"

class CMesh;
class CTexture;

// Which core answers the queries. The fast core and the literal walk give the same bytes under
// the half-open rule; the closed rule is baked through the literal walk only.
struct RayCoreOptions {
    bool literalWalk = false;
    CrossingRule crossing = CrossingRule::HalfOpen;
    int threads = 0;  // worker threads; 0 is one per core; the result is the same for any number

    bool UsesLiteralWalk() const { return literalWalk || crossing == CrossingRule::Closed; }
};

struct BakeJob {
    ShadowSettingsRecord settings;  // Light need not be normalised
    CMesh* mesh = nullptr;          // root of the map's tree, geometry in world coordinates
    std::string shadowMapPath;      // where the shadow map goes; the height file goes beside it
    RayCoreOptions core;
    CTexture* texture = nullptr;  // a shadow texture to reuse while its size fits, or null
};

struct BakeStatistics {
    uint64_t samples = 0;        // grid points sampled
    uint64_t groundRays = 0;     // rays cast down (one per sample)
    uint64_t groundHits = 0;     // of those, the ones that found ground
    uint64_t lightRays = 0;      // rays cast towards the light (one per ground hit)
    uint64_t litSamples = 0;     // of those, the ones that reached the light
    RayCounters rays;            // the cores' work: triangle and record tests
    uint64_t triangles = 0;      // in the ray table
    size_t indexBytes = 0;       // the ray table and the fast core's grids
    double loadSeconds = 0;      // reading the map, where the caller timed it
    double tableSeconds = 0;     // building the ray table
    double indexSeconds = 0;     // building the fast core's grids
    double sampleSeconds = 0;    // casting both rays for every sample
    double quantiseSeconds = 0;  // sums to levels and colours
    double writeSeconds = 0;     // the shadow map and height files
    bool filesWritten = false;   // false if an output could not be written
    bool cancelled = false;      // stopped between rows by a cancel request; nothing written
    bool literalWalk = false;    // which core answered

    double TotalSeconds() const {
        return loadSeconds + tableSeconds + indexSeconds + sampleSeconds + quantiseSeconds +
               writeSeconds;
    }
};

// The side of the texture and the extent of the sample grid of a job's settings.
struct BakeLayout {
    int32_t textureSize, oversample;
    int32_t cellsX, cellsY;  // cut to the texture
    int rows, columns;       // samples
    double step;             // world units between samples
};
BakeLayout LayOutBake(const ShadowSettingsRecord& settings);

struct BakeResult {
    CTexture* texture = nullptr;  // the quantised shadow map, or null where the job was refused
    BakeLayout layout = {};       // the texture's side and the part of it that the map covers
    BakeStatistics statistics;
};

// Bakes the job. The result's texture is job.texture where that fitted, otherwise a new one (and
// job.texture was freed); the caller owns it. Reads nothing else of the process's state, so two
// bakes may run at once on two threads.
BakeResult BakeShadowMap(const BakeJob& job);
