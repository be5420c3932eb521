// Placing the scene in the map's world: x from 0 up, z from 0 down, y up, 32 units a cell and at
// most 256 cells a side. Sources are taken as right-handed, as OBJ, glTF, FBX, PLY and Collada
// are, with y or z up; the map's world is left-handed, so the conversion mirrors one axis and
// rewinds every face, which keeps the model as it looks in its editor (seen from above, its
// east stays on the right and its north at the top).
#pragma once

#include <cstdint>

#include "tool/import/import_scene.h"

constexpr double MapCellUnits = 32.0;
constexpr int32_t MapMaxCells = 256;
// The bake's ground rays start at this height; everything must stay below it.
constexpr double GroundRayTop = 10000.0;
constexpr double GroundRayBottom = -20000.0;

struct PlacementOptions {
    UpAxis up = UpAxis::Y;
    double scale = 0.0;       // 0: not given (1, unless fitting)
    int32_t fitCells = 0;     // 0: not given; else the larger of x and z fills this many cells
    int32_t marginCells = 0;  // empty cells on every side of the model
    bool ground = false;      // a ground plane under the whole map at the model's lowest point
};

struct Placement {
    double scale = 1.0;
    DVec3 min = {0, 0, 0}, max = {0, 0, 0};  // the model's box in the map's world
    int32_t cellsX = 0, cellsY = 0;          // the map's size; y counts cells along -z
    bool lifted = false;                     // heights were moved to start at 0
};

// Right-handed y-up: (x, y, z) -> (x, y, -z); z-up: (x, y, z) -> (x, z, y). Faces are rewound.
// Meshes already in the map's axes (height maps) are left alone; a mesh whose format defines its
// up axis keeps that one.
void ConvertAxes(ImportScene& scene, UpAxis up);

// Scales and moves every mesh into the map: the box's low x at 0 (plus the margin), its high z at
// 0 (minus the margin), heights kept unless they leave the ground rays' reach. False, with the
// reason logged, when the result does not fit in a map. The box holds every frame of an animated
// mesh, so --fit scales the whole motion into the cells.
bool PlaceInMap(ImportScene& scene, const PlacementOptions& options, Placement& placement,
                ImportLog& log);

// A flat ground under the whole map at the model's lowest height, facing up, cut along the chunk
// grid so every chunk gets its own piece.
void AddGroundPlane(ImportScene& scene, const Placement& placement, double chunkSize);
