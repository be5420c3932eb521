// The map's tree: a root without geometry and one mesh for each cell of an xz grid that holds
// faces, because the ray core skips whole meshes by their bounds; a chunk whose faces would need
// more than 65535 render vertices (the renderer's 16-bit indices) is cut in halves until each
// part fits, the parts below a chunk node. Here the scene is rounded to float, once, and faces
// that are degenerate in float (two corners the same, or no area) are dropped. An animated scene
// mesh is not cut by the grid: it becomes one mesh of its own (split only past the render vertex
// limit) with a vertex animation of its frames.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tool/import/import_scene.h"

class CMesh;

constexpr size_t MaxRenderVertices = 65535;

struct ChunkTreeStats {
    size_t meshes = 0;  // meshes with faces
    size_t triangles = 0;
    size_t degenerate = 0;          // faces dropped
    size_t mostRenderVertices = 0;  // in any one mesh: distinct vertex and uv pairs
    size_t animatedMeshes = 0;      // meshes given a vertex animation
    uint32_t frames = 0;            // the most frames of any of them
    uint64_t frameTables = 0;       // their frames summed: what a reader allocates tables for
};

// Faces go to the chunk of their centroid; chunkSize is in world units. The scene must be placed
// (x >= 0, z <= 0) with a normal for every vertex. Delete the root to free the tree; the faces'
// textures stay the materials'.
CMesh* BuildChunkTree(const ImportScene& scene, double chunkSize, ChunkTreeStats& stats);
