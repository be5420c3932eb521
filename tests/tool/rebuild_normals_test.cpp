#include <gtest/gtest.h>

#include "engine/mesh/mesh.h"
#include "tool/rebuild_normals.h"

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

TEST(RebuildNormals, CoplanarFacesGiveEveryVertexTheSameUnitNormal) {
    CMesh* mesh = TwoFaces(nullptr, 1.0f);
    RebuildNormals(mesh);
    // (c - b) x (a - b) for the first face: out of the side the engine's winding shows.
    Vector expected = {-1.0f, 1.0f, 0.0f};
    VectorNormalize(expected);
    for (int i = 0; i < 4; ++i) {
        EXPECT_NEAR(mesh->vertices[i].normal.x, expected.x, 1e-6) << i;
        EXPECT_NEAR(mesh->vertices[i].normal.y, expected.y, 1e-6) << i;
        EXPECT_NEAR(mesh->vertices[i].normal.z, expected.z, 1e-6) << i;
    }
    // The zero-area face counted for vertex 0 but, after normalising, changed nothing.
    EXPECT_EQ(mesh->vertices[4].normal.x, 0.0f);  // used by no face
    EXPECT_EQ(mesh->vertices[4].normal.y, 0.0f);
    EXPECT_EQ(mesh->vertices[4].normal.z, 0.0f);
    delete mesh;
}

TEST(RebuildNormals, WalksTheWholeTree) {
    CMesh* root = new CMesh(nullptr);  // no faces of its own
    CMesh* child = TwoFaces(root, 0.0f);
    CMesh* grandchild = TwoFaces(child, 0.0f);
    RebuildNormals(root);
    EXPECT_FLOAT_EQ(child->vertices[2].normal.y, 1.0f);
    EXPECT_FLOAT_EQ(grandchild->vertices[2].normal.y, 1.0f);
    delete root;
}
