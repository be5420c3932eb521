#include "bench/bench_maps.h"

#include <unistd.h>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <memory>
#include <mutex>
#include <system_error>

#include "engine/mesh/mesh.h"
#include "tool/maps/map_generator.h"
#ifdef TENEBRIX_BENCH_IMPORT
#include "apps/import/import_options.h"
#include "tool/import/import_run.h"
#endif

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
const std::array<MapEntry, GeneratedMapCount> Entries = {{
    {"onemesh64", Recipe(64, 1, 20, 2, 1, true), 8},
    {"chunks128", Recipe(128, 8, 60, 6, 4, false), 8},
    {"chunks256", Recipe(256, 16, 300, 12, 8, false), 4},
    {"onemesh1M", Recipe(176, 1, 40, 2, 1, true, 4), 1},
}};

const char* const PugetName = "puget";

namespace fs = std::filesystem;

// The folder of the real data sets: TENEBRIX_REAL_DATA in the environment, else the one beside
// the source tree.
fs::path RealDataFolder() {
    if (const char* set = std::getenv("TENEBRIX_REAL_DATA"); set && *set) return set;
#ifdef TENEBRIX_REAL_DATA
    return TENEBRIX_REAL_DATA;
#else
    return {};
#endif
}

// The README's Puget Sound import, run through the importer's own command line and loaded back
// from the map folder it writes, which goes again straight after.
BenchMap ImportPuget() {
    BenchMap map = {PugetName, 256, 1, nullptr, 0, {}};
#ifdef TENEBRIX_BENCH_IMPORT
    const fs::path source = RealDataFolder() / "puget-sound-dem" / "ps_height_1k.png";
    std::error_code error;
    if (!fs::is_regular_file(source, error)) {
        map.missing = "no Puget Sound height map at " + source.string() +
                      " (set TENEBRIX_REAL_DATA to the folder of the real data sets)";
        return map;
    }
    const fs::path folder =
        fs::temp_directory_path(error) / ("tenebrix-bench-puget-" + std::to_string(getpid()));
    const std::string input = source.string(), output = folder.string();
    const char* const argv[] = {"tenebrix-import", input.c_str(), "-o",           output.c_str(),
                                "--fit",           "256",         "--pixel-size", "160",
                                "--height-unit",   "0.1",         "--quiet"};
    ImportOptions options;
    CommandLineOutcome parsed = ParseImportOptions(int(std::size(argv)), argv, options);
    if (!parsed.run) {
        map.missing = "the import's command line was refused: " + parsed.text;
        return map;
    }
    std::string firstError;
    ImportLog log([&firstError](ImportSeverity severity, const std::string& text) {
        if (severity == ImportSeverity::Error && firstError.empty()) firstError = text;
    });
    ImportSummary summary;
    if (RunImport(options.request, log, summary) && log.Errors() == 0) {
        auto* mesh = new CMesh(nullptr);
        if (mesh->LoadVBF(summary.mapPath.c_str())) {
            map.mesh = mesh;
            map.cells = std::max(summary.placement.cellsX, summary.placement.cellsY);
            map.triangles = CountTriangles(mesh);
        } else {
            delete mesh;
            map.missing = "the imported map " + summary.mapPath + " could not be read";
        }
    } else {
        map.missing = "the Puget Sound import failed: " + firstError;
    }
    fs::remove_all(folder, error);
#else
    map.missing = "the importer is not built here (it needs Assimp)";
#endif
    return map;
}

struct OwnedMap {
    explicit OwnedMap(BenchMapId id) {
        if (id == PugetSound) {
            map = ImportPuget();
            return;
        }
        const MapEntry& entry = Entries[id];
        CMesh* mesh = GenerateMap(entry.recipe, nullptr);
        map = {entry.name, entry.recipe.cells, entry.literalRows, mesh, CountTriangles(mesh), {}};
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
    return id == PugetSound ? PugetName : Entries[id].name;
}

const BenchMap& GetBenchMap(BenchMapId id) {
    return Lazily(maps, id, [id] { return std::make_unique<OwnedMap>(id); }).map;
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
        if (mesh) index->table.AddTree(mesh);
        index->fast.Build(index->table, index->light);
        return index;
    });
}

std::string BenchName(const char* what, BenchMapId id, int oversample) {
    return std::string(what) + "/" + BenchMapName(id) + "/oversample:" + std::to_string(oversample);
}
