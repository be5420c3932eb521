// The bake run: a map loaded by its type, its size from the file's chunks, the pass writing beside
// the map, the light description copied beside it; for one map or a batch list. Paths are resolved
// against the map's folder; the process's directory never changes.
#pragma once

#include <cstdint>

struct BakeResult;
struct RayCoreOptions;

struct BakeRunResult {
    int baked;   // maps whose shadow map was written
    int failed;  // maps refused, not written, or cancelled, and batch jobs baked from a script
                 // that could not be read
};

// Called behind each pass with the shadow map's absolute path and the pass's result (which
// ShadowTexture holds until the next pass); the command line writes its preview and statistics
// here. Null: none.
using MapBakedCallback = void (*)(const char* mapPath, const char* shadowMapPath,
                                  const BakeResult& result);
void SetMapBakedCallback(MapBakedCallback callback);

// Called where a run that shows no viewer hands back to the front end (the setup dialog enables
// its controls again), before the run's objects go. Null: none.
void SetRunFinishedCallback(void (*callback)());

// What a front end with a display does around a single bake, in the run's order. Null: nothing,
// and the run frees its own objects (the command line, or no display device).
struct ViewerSteps {
    void (*setUp)();    // before the bake, each run: the viewer's camera and viewport
    void (*takeMap)();  // behind a single map's good pass: its display copy out of MapMesh
    bool (*show)();     // at the end, when asked: true if the viewer now shows and owns the run
    void (*release)();  // otherwise: every object of the run, the display copy's included
};
void SetViewerSteps(const ViewerSteps* steps);

// The core and threads of the run's passes (default: the fast core, half-open, every core).
void SetRayCoreOptions(const RayCoreOptions& options);

// The name a single bake writes its shadow map to, relative to the map's folder; "texture.dat"
// unless a front end names another. A batch job names its own. False, and the name unchanged,
// where it is longer than the run's path buffers hold.
bool SetBakeOutputName(const char* name);

// The whole run of one request: the scene, the bake of the map (or of every job of the batch
// list that OpenBatchFile read), "test.lit" beside the map, and the clean-up. mapPath is a
// writable buffer of at least 260 bytes; in a batch it ends holding the last job's map.
BakeRunResult BakeMap(char* mapPath, uint8_t showViewer);

// The bake run proper, called by BakeMap.
BakeRunResult RunBakeMaps(char* mapPath);

// The type letter of a map path in a batch list: the third character from the first "." (so a
// dot in a directory's name spoils it), or 0 where the path has none. A single map's type comes
// from its file's extension.
char MapTypeLetter(const char* path);
