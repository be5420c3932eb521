// The maps the benchmarks bake, each generated once per process on first use: the large ones take
// seconds to make, far longer than some of the benchmarks that read them.
#pragma once

#include <cstdint>
#include <string>

#include "tool/bake/shadow_settings.h"
#include "tool/raycast/fast_raycast.h"
#include "tool/raycast/ray_table.h"

class CMesh;

// The generated maps first; the imported ones after them need data that may not be there.
enum BenchMapId {
    SmallOneMesh,
    Chunked128,
    Chunked256,
    MillionOneMesh,
    GeneratedMapCount,
    PugetSound = GeneratedMapCount,  // the README's import of the Puget Sound height map
    BenchMapCount
};

struct BenchMap {
    const char* name;
    int cells;
    int literalRows;  // sample rows that the literal walk times in a few seconds at most
    CMesh* mesh;      // null where the map could not be made
    uint32_t triangles;
    std::string missing;  // why mesh is null
};

constexpr int BenchOversamples[] = {1, 4};

const char* BenchMapName(BenchMapId id);  // without building the map
const BenchMap& GetBenchMap(BenchMapId id);

// The default light and texture size over the map's cells.
ShadowSettingsRecord BenchSettings(const BenchMap& map, int oversample);

// The ray table and the fast core's index of a map under the default light, built once; an
// imported map that could not be made gets an empty one.
struct BenchIndex {
    RayTable table;
    FastRayTable fast;
    Vector light;  // normalised
};

const BenchIndex& GetBenchIndex(BenchMapId id);

// A benchmark's name: what it measures, the map and the oversample.
std::string BenchName(const char* what, BenchMapId id, int oversample);
