// The bake run: a map loaded by its extension, its size from the file's chunks, the pass run in
// the map's directory, the light description copied beside it; for one map or a batch list.
#pragma once

#include <cstdint>

struct BakeStatistics;

struct BakeRunResult {
    int baked;   // maps whose shadow map was written
    int failed;  // maps refused, not written, or cancelled
};

// Called behind each pass, in the map's directory, while ShadowTexture holds the result; the
// command line writes its preview and statistics here. Null: none.
using MapBakedCallback = void (*)(const char* mapPath, const char* outputName,
                                  const BakeStatistics& statistics);
void SetMapBakedCallback(MapBakedCallback callback);

// Called where a run that shows no viewer hands back to the front end (the setup dialog enables
// its controls again), before the run's objects go. Null: none.
void SetRunFinishedCallback(void (*callback)());

// The name a single bake writes its shadow map to, relative to the map's folder; "texture.dat"
// unless a front end names another. A batch job names its own.
void SetBakeOutputName(const char* name);

// The whole run of one request: the scene, the bake of the map (or of every job of the batch
// list that OpenBatchFile read), "test.lit" beside the map, and the clean-up. mapPath is a
// writable buffer of at least 260 bytes; in a batch it ends holding the last job's map.
BakeRunResult BakeMap(char* mapPath, uint8_t showViewer);

// The bake run proper, called by BakeMap.
BakeRunResult RunBakeMaps(char* mapPath);

// The type letter of a map path: the third character from the first "." (so a dot in a
// directory's name spoils it), or 0 where the path has none.
char MapTypeLetter(const char* path);
