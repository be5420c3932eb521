#include "engine/mesh/mesh.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "engine/mesh/draw_group.h"
#include "engine/scene/render_list.h"
#include "engine/scene/visibility.h"

namespace {

void Fill(CMesh* mesh, std::initializer_list<Vector> positions) {
    mesh->AllocVertices(int32_t(positions.size()));
    int32_t i = 0;
    for (const Vector& p : positions) mesh->vertices[i++] = MeshVertex{p, {0.0f, 1.0f, 0.0f}};
}

void ExpectVector(const Vector& v, float x, float y, float z) {
    EXPECT_FLOAT_EQ(v.x, x);
    EXPECT_FLOAT_EQ(v.y, y);
    EXPECT_FLOAT_EQ(v.z, z);
}

void CullNamedCull(CEntity* entity, uint8_t /*valid*/) {
    entity->culled = entity->name && std::strcmp(entity->name, "cull") == 0;
}

}  // namespace

// The sanitizer build turns any wrong free below (a lent, borrowed or mid-block pointer) into a
// failure, and any forgotten one into a leak report.
TEST(Mesh, LentAndBorrowedArraysAreNeverFreedHere) {
    std::vector<MeshVertex> sharedVertices(4);
    std::vector<MeshFace> sharedFaces(2);
    std::vector<uint8_t> sharedColours(12);

    CMesh* lent = new CMesh(nullptr);
    lent->vertices = sharedVertices.data();
    lent->vertexCount = 4;
    lent->colours = sharedColours.data();
    lent->ownership |= MeshLentVertices | MeshLentColours;
    lent->AllocVertices(3);  // replaces the lent array and owns the new one
    lent->AllocColours(3);
    EXPECT_EQ(lent->ownership & (MeshLentVertices | MeshLentColours), 0u);
    delete lent;

    CMesh* borrower = new CMesh(nullptr);
    borrower->AllocVertices(2);  // own arrays that the borrow replaces
    borrower->AllocFaces(1, 0);
    borrower->AllocSmoothingGroups();
    borrower->BorrowGeometry(sharedFaces.data(), 2, sharedVertices.data(), 4, 0);
    EXPECT_EQ(borrower->meshFlags & MeshFlagBorrowed, uint32_t(MeshFlagBorrowed));
    EXPECT_EQ(borrower->faces[0], sharedFaces.data());
    EXPECT_EQ(borrower->smoothingGroups, nullptr);
    delete borrower;

    CMesh released(nullptr);
    released.BorrowGeometry(sharedFaces.data(), 2, sharedVertices.data(), 4, 1);
    released.ReleaseBorrowedGeometry(1);
    EXPECT_EQ(released.meshFlags & MeshFlagBorrowed, 0u);
    EXPECT_EQ(released.vertices, nullptr);
    EXPECT_EQ(released.faces[1], nullptr);
    EXPECT_EQ(released.vertexCount + int(released.faceCount[1]), 0);

    CMesh cleared(nullptr);
    cleared.BorrowGeometry(sharedFaces.data(), 2, sharedVertices.data(), 4, 0);
    cleared.AllocSpeculars(4);
    cleared.ClearGeometry();
    EXPECT_EQ(cleared.faces[0], nullptr);
    EXPECT_EQ(cleared.speculars, nullptr);
}

TEST(Mesh, FacesOfAnyLayerDropTheSmoothingGroups) {
    CMesh mesh(nullptr);
    mesh.AllocFaces(3, 0);
    mesh.AllocSmoothingGroups();
    ASSERT_NE(mesh.smoothingGroups, nullptr);
    mesh.AllocFaces(2, 1);
    EXPECT_EQ(mesh.smoothingGroups, nullptr);
    EXPECT_EQ(mesh.faceCount[0], 3u);
    mesh.AllocVertices(5);
    mesh.AllocVertices(0);
    EXPECT_EQ(mesh.vertices, nullptr);
}

TEST(Mesh, CalculateBoundsCoversEveryMeshBelowAndInvalidates) {
    CMesh root(nullptr);
    root.SetPosition(7.0f, 8.0f, 9.0f);
    CMesh* single = new CMesh(new CFrame(&root));
    Fill(single, {{1.0f, 2.0f, 3.0f}});
    CMesh* pair = new CMesh(&root);
    Fill(pair, {{0.0f, 0.0f, 0.0f}, {6.0f, 8.0f, 0.0f}});
    single->matrixValid = pair->matrixValid = root.matrixValid = 1;

    root.CalculateBounds();
    ExpectVector(single->boundCentre, 1.0f, 2.0f, 3.0f);
    EXPECT_EQ(single->boundRadius, 0.0f);
    ExpectVector(pair->boundCentre, 3.0f, 4.0f, 0.0f);
    EXPECT_FLOAT_EQ(pair->boundRadius, 5.0f);
    ExpectVector(root.boundCentre, 7.0f, 8.0f, 9.0f);  // no vertices: its own position
    EXPECT_EQ(single->matrixValid + pair->matrixValid + root.matrixValid, 0);
}

TEST(Mesh, SetVisibleChangesMeshesAndLeavesPlainFrames) {
    CMesh root(nullptr);
    CFrame* shownFrame = new CFrame(&root);
    CFrame* hiddenFrame = new CFrame(&root);
    hiddenFrame->hidden = 1;
    CMesh* deep = new CMesh(shownFrame);
    CMesh* near = new CMesh(&root);
    auto hidden = [&] {
        return std::vector<int>{root.hidden, deep->hidden, near->hidden, shownFrame->hidden,
                                hiddenFrame->hidden};
    };

    root.SetVisible(0, 1);
    EXPECT_EQ(hidden(), (std::vector<int>{1, 1, 1, 0, 1}));
    root.SetVisible(0x101, 0);  // only the low byte counts, and only the root without recursion
    EXPECT_EQ(hidden(), (std::vector<int>{0, 1, 1, 0, 1}));
    root.SetVisible(1, 1);
    EXPECT_EQ(hidden(), (std::vector<int>{0, 0, 0, 0, 1}));
    root.SetVisible(0x100, 0x100);  // a recursive word without a low byte doesn't recurse
    EXPECT_EQ(hidden(), (std::vector<int>{1, 0, 0, 0, 1}));
}

TEST(Mesh, CountContentsAddsFacesVerticesAndTextureRunsOfTheTree) {
    CMesh root(nullptr);  // no geometry: still counted as a frame and walked
    CMesh* a = new CMesh(new CFrame(&root));
    Fill(a, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    a->AllocFaces(1, 0);
    CMesh* b = new CMesh(&root);
    Fill(b, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}});
    b->AllocFaces(2, 0);
    b->AllocFaces(5, 1);  // only layer 0 counts

    // Groups with textures x, x, null, y: a texture counts where it differs from the one before.
    CTexture* x = reinterpret_cast<CTexture*>(uintptr_t(0x100));
    CTexture* y = reinterpret_cast<CTexture*>(uintptr_t(0x200));
    CTexture* groupTextures[4] = {x, x, nullptr, y};
    DrawGroup groups[4] = {};
    for (int g = 0; g < 4; ++g) groups[g].texture = &groupTextures[g];
    b->drawGroups = groups;
    b->groupCount = 4;

    uint32_t counts[5] = {};
    root.CountContents(&counts[0], &counts[1], &counts[2], &counts[3], &counts[4]);
    const uint32_t expected[5] = {4, 3, 7, 4, 3};  // frames, faces, vertices, groups, textures
    for (int i = 0; i < 5; ++i) EXPECT_EQ(counts[i], expected[i]) << i;
    b->drawGroups = nullptr;
    b->groupCount = 0;
}

TEST(Mesh, CollectSkipsMarkedSubtreesAndKeepsWorldCentres) {
    VisibilityTest = CullNamedCull;
    CMesh root(nullptr);
    root.SetPosition(0.0f, 0.0f, 10.0f);
    CMesh* empty = new CMesh(&root);  // no vertices: walked, centre left alone
    empty->SetPosition(1.0f, 0.0f, 0.0f);
    empty->worldCentre = Vector{-1.0f, -1.0f, -1.0f};
    CMesh* underEmpty = new CMesh(empty);
    CMesh* skipped = new CMesh(&root);
    skipped->meshFlags |= MeshFlagSkipCollect;
    CMesh* underSkipped = new CMesh(skipped);
    CMesh* culledBounds = new CMesh(&root);
    culledBounds->SetName("cull");
    culledBounds->meshFlags |= MeshFlagBoundsSubtree;
    CMesh* underCulledBounds = new CMesh(culledBounds);
    CMesh* culledPlain = new CMesh(&root);
    culledPlain->SetName("cull");
    Fill(culledPlain, {{0, 0, 0}});
    culledPlain->boundCentre = Vector{0.0f, 2.0f, 0.0f};
    culledPlain->SetPosition(3.0f, 0.0f, 0.0f);
    CMesh* underCulledPlain = new CMesh(culledPlain);

    RenderList list;
    root.Collect(&list, 1);
    VisibilityTest = VisibilityTestNone;
    const CEntity* expected[] = {&root, underCulledPlain, empty, underEmpty};
    ASSERT_EQ(list.count, 4u);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(list.items[i], expected[i]) << i;
    EXPECT_EQ(skipped->matrixValid + underSkipped->matrixValid + underCulledBounds->matrixValid, 0);
    ExpectVector(culledPlain->worldCentre, 3.0f, 2.0f, 10.0f);  // boundCentre through the world
    ExpectVector(empty->worldCentre, -1.0f, -1.0f, -1.0f);
    ExpectVector(culledBounds->worldCentre, 0.0f, 0.0f, 10.0f);  // kept without vertices
    EXPECT_FLOAT_EQ(underEmpty->worldMatrix[12], 1.0f);
    EXPECT_FLOAT_EQ(underEmpty->worldMatrix[14], 10.0f);
}

TEST(Mesh, TransformVerticesCarriesThroughTheParentsUpToRef) {
    CFrame top(nullptr);
    top.SetPosition(0.0f, 5.0f, 0.0f);
    CFrame* turned = new CFrame(&top);
    // A quarter turn about y: x goes to -z, z to x; then moved by (10, 0, 0).
    Matrix m;
    MatrixIdentity(m);
    m[0] = m[10] = 0.0f;
    m[2] = -1.0f;
    m[8] = 1.0f;
    m[12] = 10.0f;
    turned->SetMatrix(m);
    CMesh* mesh = new CMesh(turned);
    mesh->SetPosition(100.0f, 100.0f, 100.0f);  // not part of the chain
    MeshVertex source[2] = {{{1.0f, 0.0f, 0.0f}, {1.0f, 0.0f, 0.0f}},
                            {{0.0f, 2.0f, 3.0f}, {0.0f, 0.0f, 1.0f}}};
    Vector out[2];
    mesh->TransformVertices(nullptr, source, out, 2);
    ExpectVector(out[0], 10.0f, 5.0f, -1.0f);
    ExpectVector(out[1], 13.0f, 7.0f, 0.0f);
    mesh->TransformNormals(nullptr, source, out, 2);
    ExpectVector(out[0], 0.0f, 0.0f, -1.0f);
    ExpectVector(out[1], 1.0f, 0.0f, 0.0f);
    mesh->TransformVertices(turned, source, out, 2);  // own parent: unchanged
    ExpectVector(out[1], 0.0f, 2.0f, 3.0f);
    mesh->TransformVertices(&top, source, out, 1);  // stops below top: no lift by 5
    ExpectVector(out[0], 10.0f, 0.0f, -1.0f);
}

TEST(Mesh, FlattenMergesTheTreeIntoTheRootThroughEachPlacement) {
    CMesh root(nullptr);
    Fill(&root, {{1.0f, 1.0f, 1.0f}});
    root.AllocFaces(1, 0);
    root.faces[0][0] = MeshFace{{0, 0, 0}, nullptr, 0, {}};
    root.AllocColours(1);
    std::memset(root.colours, 200, 3);
    CFrame* frame = new CFrame(&root);
    frame->SetPosition(0.0f, 10.0f, 0.0f);
    CMesh* child = new CMesh(frame);
    child->SetPosition(5.0f, 0.0f, 0.0f);
    Fill(child, {{0.0f, 0.0f, 0.0f}, {1.0f, 0.0f, 0.0f}});
    child->AllocFaces(1, 0);
    child->faces[0][0] = MeshFace{{0, 1, 1}, nullptr, 7, {}};

    root.Flatten(nullptr);
    EXPECT_EQ(root.firstChild, nullptr);
    ASSERT_EQ(root.vertexCount, 3);
    ASSERT_EQ(root.faceCount[0], 2u);
    ExpectVector(root.vertices[0].position, 1.0f, 1.0f, 1.0f);  // its own geometry first
    ExpectVector(root.vertices[1].position, 5.0f, 10.0f, 0.0f);
    ExpectVector(root.vertices[2].position, 6.0f, 10.0f, 0.0f);
    const MeshFace& moved = root.faces[0][1];
    EXPECT_EQ(moved.vertex[0] * 100 + moved.vertex[1] * 10 + moved.vertex[2], 122u);
    EXPECT_EQ(moved.flags, 7u);
    EXPECT_EQ(root.colours[0], 200);
    EXPECT_EQ(root.colours[3], 0);  // a mesh without colours adds black
}
