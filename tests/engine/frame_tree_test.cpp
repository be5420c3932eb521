#include <gtest/gtest.h>

#include "engine/mesh/mesh.h"

TEST(FrameTree, ChildrenStandNewestFirstAndDeleteWithTheirParent) {
    CFrame* root = new CFrame(nullptr);
    CMesh* a = new CMesh(root);
    CMesh* b = new CMesh(root);
    CMesh* grandchild = new CMesh(a);
    (void)grandchild;
    EXPECT_EQ(root->firstChild, b);
    EXPECT_EQ(b->nextSibling, a);
    EXPECT_EQ(a->parent, root);
    EXPECT_EQ(a->kind, EntityKindMesh);
    EXPECT_EQ(a->meshFlags, uint32_t(MeshFlagConstructed));
    EXPECT_EQ(a->features & MeshFeatureGeometry, MeshFeatureGeometry);

    delete b;  // a middle or first child unlinks itself and leaves the list intact
    EXPECT_EQ(root->firstChild, a);
    EXPECT_EQ(a->nextSibling, nullptr);
    delete root;  // the sanitizer build checks that a and its child went with it
}

TEST(FrameTree, MeshArraysAreAllocatedAndReplaced) {
    CMesh mesh(nullptr);
    mesh.AllocVertices(5);
    mesh.AllocFaces(3, 0);
    mesh.AllocSmoothingGroups();
    ASSERT_NE(mesh.smoothingGroups, nullptr);
    mesh.AllocFaces(2, 1);  // any layer drops the smoothing groups
    EXPECT_EQ(mesh.smoothingGroups, nullptr);
    EXPECT_EQ(mesh.vertexCount, 5);
    EXPECT_EQ(mesh.faceCount[0], 3u);
    EXPECT_EQ(mesh.faceCount[1], 2u);
    mesh.AllocVertices(0);
    EXPECT_EQ(mesh.vertices, nullptr);
    EXPECT_EQ(mesh.vertexCount, 0);
}
