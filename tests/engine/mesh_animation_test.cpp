#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"

namespace {

// An unpacked animation of `frames` frames of `perFrame` vertices, owning its arrays, attached
// to the mesh as a reader would: frameData is the mesh's whole vertex block.
VertexAnimation* AttachUnpacked(CMesh* mesh, uint32_t frames, int32_t perFrame) {
    mesh->AllocVertices(int32_t(frames) * perFrame);
    auto* animation = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    std::memset(animation, 0, sizeof *animation);
    animation->flags = VertexAnimationOwnsArrays;
    animation->frameCount = frames;
    animation->keyCount = frames;
    animation->totalVertices = frames * uint32_t(perFrame);
    animation->frameData = mesh->vertices;
    animation->frameTable = static_cast<void**>(MALLOC(frames * sizeof(void*)));
    animation->keyFrames = static_cast<uint32_t*>(MALLOC(frames * sizeof(uint32_t)));
    for (uint32_t f = 0; f < frames; ++f) {
        animation->frameTable[f] = mesh->vertices + f * uint32_t(perFrame);
        animation->keyFrames[f] = f;
    }
    animation->currentData = animation->frameTable[0];
    mesh->vertexCount = perFrame;
    mesh->SetVertexAnimation(animation);
    return animation;
}

KeyAnimation* MakeKeyAnimation(uint32_t lastFrame, uint8_t owner) {
    auto* animation = static_cast<KeyAnimation*>(MALLOC(sizeof(KeyAnimation)));
    std::memset(animation, 0, sizeof *animation);
    animation->owner = owner;
    animation->lastFrame = lastFrame;
    animation->currentFrame = KeyAnimationNoFrame;
    if (owner) {
        animation->keyCount = 2;
        animation->keys = static_cast<AnimationKey*>(MALLOC(2 * sizeof(AnimationKey)));
        std::memset(animation->keys, 0, 2 * sizeof(AnimationKey));
        animation->keys[1].translation = static_cast<Vector*>(MALLOC(sizeof(Vector)));
        animation->keys[1].rotation = static_cast<Quaternion*>(MALLOC(sizeof(Quaternion)));
    }
    return animation;
}

}  // namespace

// The sanitizer build turns a free of a mid-block or shared pointer into a failure, and a
// forgotten free into a leak report.
TEST(MeshAnimation, VertexAnimationGoesWithItsBaseBlockWhateverFrameIsInUse) {
    std::vector<uint8_t> sharedColours(6);
    CMesh cleared(nullptr);
    AttachUnpacked(&cleared, 3, 2);
    cleared.vertices += 2;  // the frame in use, inside the block
    cleared.AllocFaces(1, 1);
    cleared.AllocSmoothingGroups();
    cleared.colours = sharedColours.data();
    cleared.ownership |= MeshLentColours;
    cleared.ClearGeometry();
    EXPECT_EQ(cleared.vertexAnimation, nullptr);
    EXPECT_EQ(cleared.features & MeshFeatureVertexAnimation, 0);
    EXPECT_EQ(cleared.vertices, nullptr);
    EXPECT_EQ(cleared.colours, nullptr);

    CMesh* mesh = new CMesh(nullptr);
    AttachUnpacked(mesh, 2, 3);
    MeshVertex* base = mesh->vertices;
    mesh->vertices = base + 3;  // frame 1 in use
    mesh->ClearVertexAnimation();
    EXPECT_EQ(mesh->vertices, base);
    EXPECT_EQ(mesh->features & MeshFeatureVertexAnimation, 0);

    // The destructor does the same before it frees the block: freeing base + 3 would be caught.
    AttachUnpacked(mesh, 2, 3);
    mesh->vertices += 3;
    delete mesh;

    // A clone's record shares its source's arrays: only the record itself goes.
    void* table[2] = {nullptr, nullptr};
    CMesh borrowerOfTable(nullptr);
    borrowerOfTable.AllocVertices(2);
    auto* shared = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    std::memset(shared, 0, sizeof *shared);
    shared->frameCount = 2;
    shared->frameTable = table;
    shared->frameData = borrowerOfTable.vertices;
    borrowerOfTable.SetVertexAnimation(shared);
}

TEST(MeshAnimation, KeyAnimationIsStoredWithoutFreeingTheOldAndFreedByTheDestructor) {
    CMesh* mesh = new CMesh(nullptr);
    KeyAnimation* first = MakeKeyAnimation(9, 1);
    mesh->SetKeyAnimation(first);
    EXPECT_EQ(mesh->features & MeshFeatureKeyAnimation, MeshFeatureKeyAnimation);
    mesh->ClearKeyAnimation();
    EXPECT_EQ(mesh->features & MeshFeatureKeyAnimation, 0);
    first->currentFrame = 7;  // still ours: clearing freed nothing
    mesh->SetKeyAnimation(first);
    delete mesh;  // owner: keys, their values and the record go

    CMesh* clone = new CMesh(nullptr);
    KeyAnimation* owned = MakeKeyAnimation(4, 1);
    KeyAnimation* shared = MakeKeyAnimation(4, 0);
    shared->keys = owned->keys;
    shared->keyCount = owned->keyCount;
    clone->SetKeyAnimation(shared);
    delete clone;  // the shared keys stay with their owner
    EXPECT_NE(owned->keys[1].translation, nullptr);
    FreeKeyAnimation(owned);
}

TEST(MeshAnimation, AnimationFrameNumbersRoundToEvenAndWrap) {
    const float frames[] = {0.4f, 0.5f, 0.6f, 1.5f, -1.5f, -4194304.0f};
    const int32_t numbers[] = {0, 0, 1, 2, -2, -4194304};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(AnimationFrameNumber(frames[i]), numbers[i]) << i;

    CMesh mesh(nullptr);
    VertexAnimation* shape = AttachUnpacked(&mesh, 4, 1);
    shape->frameTable[3] = shape->frameTable[2];  // frames 2 and 3 share their data
    KeyAnimation* keys = MakeKeyAnimation(2, 1);  // frames 0 to 2
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

TEST(MeshAnimation, AnimationWalksReachTheChildrenAsTheFlagsSay) {
    CMesh root(nullptr);
    CFrame* frame = new CFrame(&root);
    CMesh* belowFrame = new CMesh(frame);
    CMesh* marked = new CMesh(&root);
    marked->meshFlags |= MeshFlagStopAnimation;
    CMesh* belowMarked = new CMesh(marked);
    KeyAnimation *a = MakeKeyAnimation(9, 1), *b = MakeKeyAnimation(9, 1),
                 *c = MakeKeyAnimation(9, 1);
    belowFrame->SetKeyAnimation(a);
    marked->SetKeyAnimation(b);
    belowMarked->SetKeyAnimation(c);

    root.SetAnimationFrame(1.0f, 0);
    EXPECT_EQ(a->currentFrame, KeyAnimationNoFrame);
    root.SetAnimationFrame(2.0f, AnimationRecursive);
    EXPECT_EQ(a->currentFrame, 2u);
    EXPECT_EQ(c->currentFrame, 2u);
    root.SetAnimationFrame(3.0f, AnimationRecursive | AnimationWalk | AnimationStopAtMarked);
    EXPECT_EQ(a->currentFrame, 3u);  // through the plain frame
    EXPECT_EQ(b->currentFrame, 3u);  // the marked mesh itself moves
    EXPECT_EQ(c->currentFrame, 2u);  // but not what lies below it
    root.SetAnimationFrame(4.0f, AnimationRecursive | AnimationWalk);
    EXPECT_EQ(c->currentFrame, 4u);
}

TEST(MeshAnimation, CacheAnimationMakesARoomForEveryFrameOfOwnedKeys) {
    CMesh root(nullptr);
    CMesh* child = new CMesh(&root);
    KeyAnimation* owned = MakeKeyAnimation(3, 1);
    child->SetKeyAnimation(owned);
    KeyAnimation* shared = MakeKeyAnimation(3, 0);
    (new CMesh(&root))->SetKeyAnimation(shared);

    root.CacheAnimation();
    EXPECT_NE(owned->frameCached, nullptr);
    EXPECT_NE(owned->frameData, nullptr);
    EXPECT_EQ(owned->currentFrame, 3u);  // every frame was set in turn
    EXPECT_EQ(shared->frameCached, nullptr);
}
