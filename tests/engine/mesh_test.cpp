// The sanitizer build turns a wrong free below (a lent, borrowed, shared or mid-block pointer)
// into a failure, and a forgotten one into a leak report.
#include "engine/mesh/mesh.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh_animation.h"

namespace {

template <typename T>
T* Zeroed(size_t count = 1) {
    auto* block = static_cast<T*>(MALLOC(count * sizeof(T)));
    std::memset(static_cast<void*>(block), 0, count * sizeof(T));
    return block;
}

// An unpacked animation of `frames` frames of `perFrame` vertices, attached as a reader would:
// frameData is the mesh's whole vertex block.
VertexAnimation* AttachUnpacked(CMesh* mesh, uint32_t frames, int32_t perFrame) {
    mesh->AllocVertices(int32_t(frames) * perFrame);
    auto* animation = Zeroed<VertexAnimation>();
    animation->flags = VertexAnimationOwnsArrays;
    animation->frameCount = animation->keyCount = frames;
    animation->totalVertices = frames * uint32_t(perFrame);
    animation->frameData = mesh->vertices;
    animation->frameTable = Zeroed<void*>(frames);
    animation->keyFrames = Zeroed<uint32_t>(frames);
    for (uint32_t f = 0; f < frames; ++f) {
        animation->frameTable[f] = mesh->vertices + f * uint32_t(perFrame);
        animation->keyFrames[f] = f;
    }
    animation->currentData = animation->frameTable[0];
    mesh->vertexCount = perFrame;
    mesh->SetVertexAnimation(animation);
    return animation;
}

KeyAnimation* MakeKeys(uint32_t lastFrame, uint8_t owner) {
    auto* animation = Zeroed<KeyAnimation>();
    animation->owner = owner;
    animation->lastFrame = lastFrame;
    animation->currentFrame = KeyAnimationNoFrame;
    if (!owner) return animation;
    animation->keyCount = 2;
    animation->keys = Zeroed<AnimationKey>(2);
    animation->keys[1].translation = Zeroed<Vector>();
    animation->keys[1].rotation = Zeroed<Quaternion>();
    return animation;
}

}  // namespace

TEST(Mesh, LentBorrowedAndSharedArraysAreNeverFreedHere) {
    std::vector<MeshVertex> sharedVertices(6);
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
    lent->AllocFaces(3, 0);
    lent->AllocSmoothingGroups();
    lent->AllocFaces(2, 1);  // faces of any layer drop the smoothing groups
    EXPECT_EQ(lent->smoothingGroups, nullptr);
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
    CMesh cleared(nullptr);
    cleared.BorrowGeometry(sharedFaces.data(), 2, sharedVertices.data(), 4, 0);
    cleared.AllocSpeculars(4);
    cleared.ClearGeometry();
    EXPECT_EQ(cleared.faces[0], nullptr);
    EXPECT_EQ(cleared.speculars, nullptr);

    // A vertex animation goes with its base block, whatever frame is in use.
    CMesh* animated = new CMesh(nullptr);
    AttachUnpacked(animated, 2, 3);
    MeshVertex* base = animated->vertices;
    animated->vertices = base + 3;  // frame 1 in use
    animated->ClearVertexAnimation();
    EXPECT_EQ(animated->vertices, base);
    EXPECT_EQ(animated->features & MeshFeatureVertexAnimation, 0);
    AttachUnpacked(animated, 2, 3);
    animated->vertices += 3;
    animated->colours = sharedColours.data();
    animated->ownership |= MeshLentColours;
    delete animated;                 // freeing base + 3 or the lent colours would be caught
    CMesh borrowerOfTable(nullptr);  // a clone's record shares its arrays: only the record goes
    void* table[2] = {nullptr, nullptr};
    borrowerOfTable.AllocVertices(2);
    auto* shared = Zeroed<VertexAnimation>();
    shared->frameCount = 2;
    shared->frameTable = table;
    shared->frameData = borrowerOfTable.vertices;
    borrowerOfTable.SetVertexAnimation(shared);

    CMesh* keyed = new CMesh(nullptr);  // clearing frees nothing; the owner frees keys and values
    KeyAnimation* first = MakeKeys(9, 1);
    keyed->SetKeyAnimation(first);
    keyed->ClearKeyAnimation();
    EXPECT_EQ(keyed->features & MeshFeatureKeyAnimation, 0);
    keyed->SetKeyAnimation(first);
    EXPECT_EQ(keyed->features & MeshFeatureKeyAnimation, MeshFeatureKeyAnimation);
    KeyAnimation* owned = MakeKeys(4, 1);
    KeyAnimation* sharer = MakeKeys(4, 0);
    sharer->keys = owned->keys;
    sharer->keyCount = owned->keyCount;
    (new CMesh(keyed))->SetKeyAnimation(sharer);
    delete keyed;  // the shared keys stay with their owner
    EXPECT_NE(owned->keys[1].translation, nullptr);
    FreeKeyAnimation(owned);
}

TEST(MeshAnimation, FrameNumbersRoundToEvenAndWrapPerAnimation) {
    const float frames[] = {0.4f, 0.5f, 0.6f, 1.5f, -1.5f, -4194304.0f};
    const int32_t numbers[] = {0, 0, 1, 2, -2, -4194304};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(AnimationFrameNumber(frames[i]), numbers[i]) << i;

    CMesh mesh(nullptr);
    VertexAnimation* shape = AttachUnpacked(&mesh, 4, 1);
    shape->frameTable[3] = shape->frameTable[2];  // frames 2 and 3 share their data
    KeyAnimation* keys = MakeKeys(2, 1);          // frames 0 to 2
    mesh.SetKeyAnimation(keys);
    mesh.SetAnimationFrame(6.0f, 0);  // vertex frame 6 mod 4 = 2, key frame 2 mod 3 = 2
    EXPECT_EQ(shape->currentFrame, 2u);
    EXPECT_EQ(shape->currentData, shape->frameTable[2]);
    EXPECT_EQ(mesh.dirtyMask, uint32_t(MeshDirtyAnimationFrame));
    EXPECT_EQ(keys->currentFrame, 2u);
    mesh.dirtyMask = 0;
    mesh.SetAnimationFrame(3.0f, 0);  // same data: nothing to rewrite
    EXPECT_EQ(shape->currentFrame, 3u);
    EXPECT_EQ(mesh.dirtyMask, 0u);
    EXPECT_EQ(keys->currentFrame, 0u);
    mesh.SetAnimationFrame(-1.0f, 0);
    EXPECT_EQ(shape->currentFrame, 3u);
    // The walk wraps the key frame from the rounded number: 5 mod 3, not (5 mod 4) mod 3.
    mesh.SetAnimationFrame(5.0f, AnimationRecursive | AnimationWalk);
    EXPECT_EQ(shape->currentFrame, 1u);
    EXPECT_EQ(keys->currentFrame, 2u);
    mesh.SetAnimationFrame(5.0f, 0);
    EXPECT_EQ(keys->currentFrame, 1u);
}

TEST(MeshAnimation, WalksReachTheChildrenAsTheFlagsSayAndCacheOwnedKeys) {
    CMesh root(nullptr);
    CMesh* belowFrame = new CMesh(new CFrame(&root));
    CMesh* marked = new CMesh(&root);
    marked->meshFlags |= MeshFlagStopAnimation;
    CMesh* belowMarked = new CMesh(marked);
    KeyAnimation *a = MakeKeys(9, 1), *b = MakeKeys(9, 1), *c = MakeKeys(9, 1);
    belowFrame->SetKeyAnimation(a);
    marked->SetKeyAnimation(b);
    belowMarked->SetKeyAnimation(c);
    root.SetAnimationFrame(1.0f, 0);
    EXPECT_EQ(a->currentFrame, KeyAnimationNoFrame);
    root.SetAnimationFrame(2.0f, AnimationRecursive);
    EXPECT_EQ(a->currentFrame + c->currentFrame, 4u);
    root.SetAnimationFrame(3.0f, AnimationRecursive | AnimationWalk | AnimationStopAtMarked);
    EXPECT_EQ(a->currentFrame, 3u);  // through the plain frame
    EXPECT_EQ(b->currentFrame, 3u);  // the marked mesh itself moves
    EXPECT_EQ(c->currentFrame, 2u);  // but not what lies below it
    root.SetAnimationFrame(4.0f, AnimationRecursive | AnimationWalk);
    EXPECT_EQ(c->currentFrame, 4u);

    KeyAnimation* shared = MakeKeys(3, 0);
    (new CMesh(&root))->SetKeyAnimation(shared);
    root.CacheAnimation();
    EXPECT_NE(a->frameCached, nullptr);
    EXPECT_NE(a->frameData, nullptr);
    EXPECT_EQ(a->currentFrame, 9u);  // every frame was set in turn
    EXPECT_EQ(shared->frameCached, nullptr);
}
