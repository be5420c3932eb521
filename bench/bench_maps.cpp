#include "bench/bench_maps.h"

#include <array>
#include <memory>
#include <mutex>

#include "engine/mesh/mesh.h"
#include "tool/maps/map_generator.h"

namespace {

struct MapEntry {
    const char* name;
    MapRecipe recipe;
    int literalRows;
};

MapRecipe Recipe(int cells, int chunks, int buildings, int arches, int bridges, bool oneMesh,
                 int quadsPerCell = 1) {
    MapRecipe recipe;
    recipe.cells = cells;
    recipe.chunks = chunks;
    recipe.buildings = buildings;
    recipe.arches = arches;
    recipe.bridges = bridges;
    recipe.oneMesh = oneMesh;
    recipe.quadsPerCell = quadsPerCell;
    return recipe;
}

// 176 cells at 4 quads a side is 704 x 704 terrain quads: a little under a million triangles
// before the buildings.
const std::array<MapEntry, BenchMapCount> Entries = {{
    {"onemesh64", Recipe(64, 1, 20, 2, 1, true), 8},
    {"chunks128", Recipe(128, 8, 60, 6, 4, false), 8},
    {"chunks256", Recipe(256, 16, 300, 12, 8, false), 4},
    {"onemesh1M", Recipe(176, 1, 40, 2, 1, true, 4), 1},
}};

struct OwnedMap {
    explicit OwnedMap(const MapEntry& entry) {
        CMesh* mesh = GenerateMap(entry.recipe, nullptr);
        map = {entry.name, entry.recipe.cells, entry.literalRows, mesh, CountTriangles(mesh)};
    }
    ~OwnedMap() { delete map.mesh; }
    OwnedMap(const OwnedMap&) = delete;
    OwnedMap& operator=(const OwnedMap&) = delete;
    BenchMap map;
};

// Built on first use and kept until exit; the indexes borrow the maps, so they go first.
template <typename T, typename Make>
const T& Lazily(std::array<std::unique_ptr<T>, BenchMapCount>& slots, BenchMapId id, Make make) {
    static std::mutex mutex;
    std::lock_guard<std::mutex> lock(mutex);
    if (!slots[id]) slots[id] = make();
    return *slots[id];
}

std::array<std::unique_ptr<OwnedMap>, BenchMapCount> maps;
std::array<std::unique_ptr<BenchIndex>, BenchMapCount> indexes;

}  // namespace

const char* BenchMapName(BenchMapId id) {
    return Entries[id].name;
}

const BenchMap& GetBenchMap(BenchMapId id) {
    return Lazily(maps, id, [id] { return std::make_unique<OwnedMap>(Entries[id]); }).map;
}

ShadowSettingsRecord BenchSettings(const BenchMap& map, int oversample) {
    ShadowSettingsRecord settings = DefaultShadowSettings();
    settings.MapCellsX = settings.MapCellsY = map.cells;
    settings.Oversample = oversample;
    return settings;
}

const BenchIndex& GetBenchIndex(BenchMapId id) {
    CMesh* mesh = GetBenchMap(id).mesh;
    return Lazily(indexes, id, [mesh] {
        auto index = std::make_unique<BenchIndex>();
        index->light = DefaultShadowSettings().Light;
        VectorNormalize(index->light);
        index->table.AddTree(mesh);
        index->fast.Build(index->table, index->light);
        return index;
    });
}

std::string BenchName(const char* what, BenchMapId id, int oversample) {
    return std::string(what) + "/" + BenchMapName(id) + "/oversample:" + std::to_string(oversample);
}
