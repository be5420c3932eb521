// The sanitizer build turns a wrong free below (a lent, shared or mid-block pointer) into a
// failure, and a forgotten one into a leak report.
#include "engine/mesh/mesh.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "base/memory.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/texture/texture.h"

namespace {

template <typename T>
T* Zeroed(size_t count = 1) {
    auto* block = static_cast<T*>(MALLOC(count * sizeof(T)));
    std::memset(static_cast<void*>(block), 0, count * sizeof(T));
    return block;
}

// An unpacked animation of `frames` frames of `perFrame` numbered vertices, attached as a reader
// would: frameData is the mesh's whole vertex block.
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
    for (uint32_t i = 0; i < animation->totalVertices; ++i)
        mesh->vertices[i].position = Vector{float(i), 0, 0};
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

TEST(Mesh, LentAndSharedArraysAreNeverFreedHere) {
    std::vector<MeshVertex> sharedVertices(6);
    std::vector<uint8_t> sharedColours(12);
    CMesh* lent = new CMesh(nullptr);
    lent->vertices = sharedVertices.data();
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
    delete animated;  // freeing base + 3 would be caught

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

    CMesh* below = new CMesh(new CFrame(&mesh));  // reached through a plain frame when recursive
    KeyAnimation* belowKeys = MakeKeys(9, 1);
    below->SetKeyAnimation(belowKeys);
    mesh.SetAnimationFrame(7.0f, 0);
    EXPECT_EQ(belowKeys->currentFrame, KeyAnimationNoFrame);
    mesh.SetAnimationFrame(7.0f, AnimationRecursive);
    EXPECT_EQ(belowKeys->currentFrame, 7u);
}

// Each clone is deleted before its source: a double free of what was lent would be caught.
TEST(MeshClone, CopiesGeometryAndLendsOnlyWhatTheFlagsSayWithChildrenReversed) {
    CMesh* source = new CMesh(nullptr);
    source->rotation[1] = 0.5f;
    VertexAnimation* shape = AttachUnpacked(source, 2, 2);
    shape->currentFrame = 1;
    source->vertices += 2;  // frame 1 in use
    for (int layer = 0; layer < 2; ++layer) {
        source->AllocFaces(2, layer);
        for (int f = 0; f < 2; ++f) source->faces[layer][f] = MeshFace{{0, 1, 1}, nullptr, 0, {}};
    }
    source->AllocColours(2);
    source->meshFlags |= MeshFlagSpecular | MeshFlagVertexColours;
    uint8_t shade[2] = {1, 2};
    source->vertexShade = shade;
    KeyAnimation* keys = MakeKeys(3, 1);
    source->SetKeyAnimation(keys);
    new CFrame(source);
    CMesh* older = new CMesh(source);
    older->SetName("older");
    older->AllocVertices(1);
    (new CMesh(source))->SetName("newer");

    CMesh* copy = source->Clone(nullptr, 0);
    EXPECT_EQ(copy->rotation[1], 0.5f);
    EXPECT_EQ(copy->meshFlags, source->meshFlags);
    ASSERT_EQ(copy->vertexCount, 2);
    EXPECT_EQ(copy->vertices[3].position.x, 3.0f);  // every frame, from the base
    EXPECT_NE(copy->vertices, shape->frameData);    // its own block
    for (int layer = 0; layer < 2; ++layer) {
        ASSERT_NE(copy->faces[layer], source->faces[layer]);
        EXPECT_EQ(copy->faceCount[layer], 2u);
        EXPECT_EQ(copy->faces[layer][1].vertex[2], 1u);
    }
    EXPECT_EQ(copy->colours, source->colours);
    EXPECT_EQ(copy->ownership, uint32_t(MeshLentColours));
    EXPECT_EQ(copy->vertexShade, nullptr);
    VertexAnimation* copiedShape = copy->vertexAnimation;  // a record sharing the arrays
    ASSERT_NE(copiedShape, shape);
    EXPECT_EQ(copiedShape->flags & VertexAnimationOwnsArrays, 0u);
    EXPECT_EQ(copiedShape->frameData, copy->vertices);
    EXPECT_EQ(copiedShape->currentFrame, 0u);
    EXPECT_EQ(copiedShape->frameTable, shape->frameTable);
    ASSERT_NE(copy->keyAnimation, keys);
    EXPECT_EQ(copy->keyAnimation->owner, 0);
    EXPECT_EQ(copy->keyAnimation->keys, keys->keys);
    EXPECT_EQ(dynamic_cast<CMesh*>(copy->firstChild), nullptr);  // source: newer, older, frame
    EXPECT_STREQ(copy->firstChild->nextSibling->name, "older");
    EXPECT_STREQ(copy->firstChild->nextSibling->nextSibling->name, "newer");
    delete copy;
    EXPECT_NE(keys->keys[1].translation, nullptr);  // still there for the source

    CMesh* sharing = source->Clone(nullptr, MeshCloneShareVertices | MeshCloneShareShade);
    EXPECT_EQ(sharing->vertices, source->vertices);
    EXPECT_EQ(sharing->vertexShade, shade);
    EXPECT_EQ(sharing->ownership, uint32_t(MeshLentVertices | MeshSharedShade | MeshLentColours));
    EXPECT_EQ(static_cast<CMesh*>(sharing->firstChild->nextSibling)->vertices, older->vertices);
    delete sharing;
    source->vertexShade = nullptr;
    delete source;
}

// Each face carries its number in uv[0] of both layers and in its smoothing group, so a sort that
// loses a record or lets the layers drift apart shows. Where layer 1 is shorter, only pairs that
// it holds both of move there.
TEST(MeshSort, OpaqueFirstEqualTexturesTogetherThenByVerticesWithEveryRecordKept) {
    std::mt19937 random(1234);
    CTexture textures[5];
    textures[3].flags = TextureFlagKeyed;
    textures[1].flags = TextureFlagAlpha;  // only the keyed class sorts last
    auto keyed = [](const MeshFace& f) {
        return f.texture && (f.texture->flags & TextureFlagKeyed);
    };
    for (uint32_t count : {2u, 3u, 17u, 500u}) {
        CMesh mesh(nullptr);
        mesh.AllocFaces(count, 0);
        const uint32_t second = count % 2 ? count : count / 2;
        mesh.AllocFaces(second, 1);
        mesh.AllocSmoothingGroups();
        for (uint32_t i = 0; i < count; ++i) {
            MeshFace& face = mesh.faces[0][i];
            uint32_t pick = random() % 6;
            face.texture = pick == 5 ? nullptr : &textures[pick];
            for (uint32_t& v : face.vertex) v = random() % 4;
            face.uv[0] = float(i);
            mesh.smoothingGroups[i] = i;
            if (i < second) {
                mesh.faces[1][i] = face;
                mesh.faces[1][i].uv[1] = 99.0f;  // marks the record as layer 1's
            }
        }
        mesh.SortFaces(0);
        std::vector<uint32_t> ids, secondIds;
        std::vector<const CTexture*> seen;
        for (uint32_t i = 0; i < count; ++i) {
            const MeshFace& face = mesh.faces[0][i];
            ids.push_back(uint32_t(face.uv[0]));
            EXPECT_EQ(mesh.smoothingGroups[i], ids.back());
            if (i < second) {
                secondIds.push_back(uint32_t(mesh.faces[1][i].uv[0]));
                EXPECT_TRUE(second < count || secondIds.back() == ids.back());  // together
                EXPECT_EQ(mesh.faces[1][i].uv[1], 99.0f);
            }
            if (seen.empty() || seen.back() != face.texture) {  // no texture comes back
                ASSERT_EQ(std::count(seen.begin(), seen.end(), face.texture), 0) << count;
                seen.push_back(face.texture);
            }
            if (i + 1 == count) break;
            const MeshFace& next = mesh.faces[0][i + 1];
            ASSERT_LE(keyed(face), keyed(next)) << count << " at " << i;
            if (face.texture == next.texture) {
                ASSERT_LE(std::vector<uint32_t>(face.vertex, face.vertex + 3),
                          std::vector<uint32_t>(next.vertex, next.vertex + 3))
                    << count << " at " << i;
            }
        }
        std::sort(ids.begin(), ids.end());
        std::sort(secondIds.begin(), secondIds.end());
        for (uint32_t i = 0; i < count; ++i) ASSERT_EQ(ids[i], i);
        for (uint32_t i = 0; i < second; ++i) ASSERT_EQ(secondIds[i], i);
        EXPECT_EQ(mesh.dirtyMask, 0u);  // no device form to rebuild
    }

}
