#include "tool/bake/rebuild_normals.h"

#include <gtest/gtest.h>

#include "engine/mesh/mesh.h"

namespace {
// Two faces over four vertices, plus an unused fifth vertex and a zero-area face on vertex 0.
CMesh* TwoFaces(CEntity* parent, float tilt) {
    CMesh* mesh = new CMesh(parent);
    mesh->AllocVertices(5);
    const Vector positions[5] = {{0, 0, 0}, {1, tilt, 0}, {1, tilt, -1}, {0, 0, -1}, {9, 9, 9}};
    for (int i = 0; i < 5; ++i) mesh->vertices[i] = {positions[i], {7, 7, 7}};
    mesh->AllocFaces(3, 0);
    const uint32_t faces[3][3] = {{0, 1, 2}, {0, 2, 3}, {0, 0, 0}};
    for (int f = 0; f < 3; ++f)
        for (int k = 0; k < 3; ++k) mesh->faces[0][f].vertex[k] = faces[f][k];
    return mesh;
}
}  // namespace

TEST(RebuildNormals, CoplanarFacesGiveEveryVertexTheSameUnitNormalThroughTheTree) {
    CMesh* root = new CMesh(nullptr);  // no faces of its own
    CMesh* child = TwoFaces(root, 1.0f);
    CMesh* grandchild = TwoFaces(child, 0.0f);
    RebuildNormals(root);
    // (c - b) x (a - b) for the first face: out of the side the engine's winding shows. The
    // zero-area face counted for vertex 0 but, after normalising, changed nothing.
    const float s = 0.70710678f;
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(child->vertices[i].normal.x, -s, 1e-6) << i;
        EXPECT_NEAR(child->vertices[i].normal.y, s, 1e-6) << i;
        EXPECT_NEAR(child->vertices[i].normal.z, 0.0f, 1e-6) << i;
        EXPECT_FLOAT_EQ(grandchild->vertices[i].normal.y, 1.0f) << i;
    }
    EXPECT_EQ(VectorLength(child->vertices[4].normal), 0.0f);  // used by no face
    delete root;
}
