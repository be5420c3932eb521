// One import from start to end: read every input, convert its axes, check its winding, make the
// normals it lacks, place it in the map, add the ground, cut it into chunk meshes and write the
// map folder. The command line and the tests run this.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tool/import/assimp_reader.h"
#include "tool/import/heightmap_reader.h"
#include "tool/import/import_scene.h"
#include "tool/import/placement.h"

constexpr double DefaultChunkUnits = 256.0;  // 8 cells: a 256-cell map in 32 x 32 chunks

struct ImportRequest {
    std::vector<std::string> inputs;
    std::string mapFolder;
    PlacementOptions placement;
    HeightMapOptions heightMap;
    AnimationOptions animation = {};
    double chunkSize = DefaultChunkUnits;  // world units
    bool textures = true;                  // false: faces get no textures, none are read
};

struct ImportSummary {
    std::string mapPath;    // the test.vbf written
    size_t meshes = 0;      // meshes with faces in the tree
    size_t triangles = 0;   // written
    size_t degenerate = 0;  // dropped
    Placement placement;
    size_t animatedMeshes = 0;  // meshes with a vertex animation
    uint32_t frames = 0;        // the most frames of any of them
    bool animationAsked = false;
    bool written = false;
};

// False when no map was written. A run that wrote a map can still have failed: an error such as
// a colour map that couldn't be read counts in log.Errors().
bool RunImport(const ImportRequest& request, ImportLog& log, ImportSummary& summary);

// "DIR/test.vbf: 4 meshes, 5856 triangles, extent 128 x 57.4 x 140 (x 0 .. 128, y 0 .. 57.4,
// z -140 .. 0), 4 x 5 cells", and for an animated map "; 20 frames in 1 animated mesh: bake with
// ANIMATED 20 in the shadow script"
std::string FormatSummary(const ImportSummary& summary);
