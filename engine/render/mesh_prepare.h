// The device half of render vertices: a mesh's run of vertices in a pool, written in one lock,
// refreshed attribute by attribute when the mesh changed and refilled after a device reset.
#pragma once

#include <cstdint>

class CMesh;
class CRenderer;

// Brings the mesh's device form to built and clean; nothing without a 3D device, faces or
// vertices.
void PrepareForRender(CMesh* mesh, CRenderer* renderer);
// Rebuilds the draw groups, loading each group's texture onto the device.
void BuildDrawGroups(CMesh* mesh, CRenderer* renderer);
// Writes the whole run again from the source arrays after the device lost it.
void RefillVertexBuffer(CMesh* mesh, CRenderer* renderer);

// Pool kinds of mesh runs: a mesh that changes keeps to pools of its own.
enum MeshPoolKind : uint32_t {
    MeshPoolStatic = 0,
    MeshPoolChanging = 4,
};
