// Meshes written out vertex by vertex and face by face, for tests that need exact orders.
#pragma once

#include <cstdint>
#include <vector>

#include "engine/mesh/mesh.h"

struct HandFace {
    uint32_t a, b, c;
};

// A mesh under parent (null: none) with exactly these vertices and faces, in this order.
CMesh* HandMesh(CEntity* parent, const std::vector<MeshVertex>& vertices,
                const std::vector<HandFace>& faces);

inline MeshVertex At(float x, float y, float z, Vector normal = {0.0f, 1.0f, 0.0f}) {
    return {{x, y, z}, normal};
}
