// The project's map generator: maps of any size and seed, for the sample map, the tests and the
// benchmarks. Terrain in chunk meshes, buildings with pitched roofs, arches, bridges that
// overhang the ground, roofs on posts; every object a mesh of its chunk's subtree, or everything
// in one mesh. The world of a map: x from 0 up, z from 0 down, y up, 32 units a cell.
#pragma once

#include <cstdint>

class CMesh;
class CTexture;

struct MapRecipe {
    int cells = 64;        // side of the map in cells, 1 to 256
    int chunks = 4;        // the ground is chunks x chunks meshes
    int quadsPerCell = 1;  // terrain resolution
    float hills = 24.0f;   // terrain amplitude in world units; 0 for flat ground
    int buildings = 20;
    int arches = 2;
    int bridges = 1;
    int roofsOnPosts = 2;
    uint32_t seed = 1;
    bool oneMesh = false;  // everything in a single mesh
};

struct MapTextures {
    CTexture* grass;
    CTexture* rock;
    CTexture* wall;
    CTexture* roof;
    CTexture* wood;
};

// Small procedural textures in the engine's list, named grass.tga, rock.tga, wall.tga, roof.tga
// and wood.tga. Free them with FreeTexture.
MapTextures CreateMapTextures();

// The map's tree under a new root without geometry; textures may be null (untextured faces).
// Delete the root to free it.
CMesh* GenerateMap(const MapRecipe& recipe, const MapTextures* textures);

// The lowest ground height that maps of this recipe have over [x0, x1] x [z0, z1], sampled as
// the generator sets its buildings down.
float LowestGround(const MapRecipe& recipe, float x0, float z0, float x1, float z1);

// Faces in the whole tree.
uint32_t CountTriangles(const CMesh* root);
