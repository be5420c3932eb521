// Each clone is deleted before its source; the sanitizer build catches a double free of what was
// lent, and a leak of what the clone made.
#include <gtest/gtest.h>

#include <cstring>

#include "base/memory.h"
#include "engine/mesh/draw_group.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"

namespace {

template <typename T>
T* Zeroed(size_t count = 1) {
    auto* block = static_cast<T*>(MALLOC(count * sizeof(T)));
    std::memset(static_cast<void*>(block), 0, count * sizeof(T));
    return block;
}

CMesh* MakeSource(CEntity* parent, const char* name) {
    CMesh* mesh = new CMesh(parent);
    mesh->SetName(name);
    mesh->rotation[1] = 0.5f;
    mesh->AllocVertices(3);
    for (int i = 0; i < 3; ++i) mesh->vertices[i] = MeshVertex{{float(i), 0, 0}, {0, 1, 0}};
    for (int layer = 0; layer < 2; ++layer) {
        mesh->AllocFaces(2, layer);
        for (int f = 0; f < 2; ++f) mesh->faces[layer][f] = MeshFace{{0, 1, 2}, nullptr, 0, {}};
    }
    mesh->AllocColours(3);
    std::memset(mesh->colours, 7, 9);
    mesh->boundRadius = 1.0f;
    mesh->meshFlags |= MeshFlagSpecular | MeshFlagVertexColours;
    return mesh;
}

}  // namespace

TEST(MeshClone, CopiesVerticesAndFacesLendsColoursAndSharesOnlyWhatTheFlagsSay) {
    CMesh* source = MakeSource(nullptr, "source");
    uint8_t shade[3] = {1, 2, 3};
    source->vertexShade = shade;
    new CFrame(source);
    CMesh* older = MakeSource(source, "older");
    MakeSource(source, "newer");
    CMesh* copy = source->Clone(nullptr, 0);
    EXPECT_EQ(copy->rotation[1] + copy->boundRadius, 1.5f);
    EXPECT_EQ(copy->meshFlags, source->meshFlags);
    ASSERT_NE(copy->vertices, source->vertices);
    ASSERT_EQ(copy->vertexCount, 3);
    copy->vertices[2].position.x = 42.0f;
    EXPECT_EQ(source->vertices[2].position.x, 2.0f);
    for (int layer = 0; layer < 2; ++layer) {
        ASSERT_NE(copy->faces[layer], source->faces[layer]);
        EXPECT_EQ(copy->faceCount[layer], 2u);
        EXPECT_EQ(copy->faces[layer][1].vertex[2], 2u);
    }
    EXPECT_EQ(copy->colours, source->colours);
    EXPECT_EQ(copy->ownership, uint32_t(MeshLentColours));
    EXPECT_EQ(copy->vertexShade, nullptr);
    // Children in reverse order (source: newer, older, frame), each of its own class.
    EXPECT_EQ(dynamic_cast<CMesh*>(copy->firstChild), nullptr);
    EXPECT_STREQ(copy->firstChild->nextSibling->name, "older");
    EXPECT_STREQ(copy->firstChild->nextSibling->nextSibling->name, "newer");
    delete copy;

    CMesh* sharing = source->Clone(nullptr, MeshCloneShareVertices | MeshCloneShareShade);
    EXPECT_EQ(sharing->vertices, source->vertices);
    EXPECT_EQ(sharing->vertexShade, shade);
    EXPECT_EQ(sharing->ownership, uint32_t(MeshLentVertices | MeshSharedShade | MeshLentColours));
    EXPECT_EQ(static_cast<CMesh*>(sharing->firstChild->nextSibling)->vertices, older->vertices);
    delete sharing;
    delete source;

    MeshVertex vertices[3] = {};
    MeshFace faces[1] = {};
    CMesh borrower(nullptr);
    borrower.BorrowGeometry(faces, 1, vertices, 3, 0);
    CMesh* own = borrower.Clone(nullptr, 0);  // owns what it copied: a leak would be reported
    EXPECT_EQ(own->meshFlags & MeshFlagBorrowed, 0u);
    EXPECT_NE(own->faces[0], faces);
    delete own;
}

TEST(MeshClone, SharesTheDeviceFormAndMovesItsGroupsToItsOwnFaces) {
    CMesh* source = MakeSource(nullptr, "source");
    source->vertexBuffer = reinterpret_cast<VertexBufferInfo*>(uintptr_t(0x1000));  // never read
    source->ownership |= MeshOwnsDeviceForm;
    source->renderVertexCount = 3;
    source->indices = Zeroed<uint16_t>(6);
    for (uint16_t i = 0; i < 6; ++i) source->indices[i] = i;
    source->groupCount = 2;
    source->drawGroups = Zeroed<DrawGroup>(2);
    for (int g = 0; g < 2; ++g)
        source->drawGroups[g] = {&source->worldMatrix,
                                 0,
                                 3,
                                 &source->faces[0][g].texture,
                                 &source->faces[1][g].texture,
                                 3,
                                 source->indices + 3 * g};
    CMesh* copy = source->Clone(nullptr, 0);
    EXPECT_EQ(copy->vertexBuffer, source->vertexBuffer);
    EXPECT_EQ(copy->indices, source->indices);
    EXPECT_EQ(copy->ownership & MeshOwnsDeviceForm, 0u);
    ASSERT_NE(copy->drawGroups, source->drawGroups);
    EXPECT_EQ(copy->drawGroups[1].texture, &copy->faces[0][1].texture);
    EXPECT_EQ(copy->drawGroups[1].texture2, &copy->faces[1][1].texture);
    EXPECT_EQ(copy->drawGroups[1].groupIndices, source->indices + 3);
    EXPECT_EQ(copy->drawGroups[0].world, &copy->worldMatrix);
    delete copy;  // frees its own groups and leaves the buffer's indices to the source
    EXPECT_EQ(source->indices[5], 5);
    EXPECT_EQ(source->drawGroups[1].texture, &source->faces[0][1].texture);
    delete source;  // the owner frees indices and groups
}

TEST(MeshClone, CopiesAnimationRecordsThatShareTheSourceArrays) {
    CMesh* source = new CMesh(nullptr);
    source->AllocVertices(4);  // two frames of two vertices
    for (int i = 0; i < 4; ++i) source->vertices[i].position = Vector{float(i), 0.0f, 0.0f};
    auto* shape = Zeroed<VertexAnimation>();
    shape->flags = VertexAnimationOwnsArrays;
    shape->frameCount = 2;
    shape->totalVertices = 4;
    shape->frameData = source->vertices;
    shape->frameTable = Zeroed<void*>(2);
    shape->frameTable[0] = source->vertices;
    shape->frameTable[1] = source->vertices + 2;
    shape->currentFrame = 1;
    source->vertexCount = 2;
    source->SetVertexAnimation(shape);
    source->vertices += 2;  // frame 1 in use
    auto* keys = Zeroed<KeyAnimation>();
    keys->owner = 1;
    keys->keyCount = 1;
    keys->keys = Zeroed<AnimationKey>();
    keys->keys[0].scale = Zeroed<Vector>();
    source->SetKeyAnimation(keys);

    CMesh* copy = source->Clone(nullptr, 0);
    EXPECT_EQ(copy->vertexCount, 2);
    EXPECT_EQ(copy->vertices[3].position.x, 3.0f);  // every frame, from the base
    VertexAnimation* copiedShape = copy->vertexAnimation;
    ASSERT_NE(copiedShape, shape);
    EXPECT_EQ(copiedShape->flags & VertexAnimationOwnsArrays, 0u);
    EXPECT_EQ(copiedShape->frameData, copy->vertices);
    EXPECT_EQ(copiedShape->currentFrame, 0u);
    EXPECT_EQ(copiedShape->frameTable, shape->frameTable);
    ASSERT_NE(copy->keyAnimation, keys);
    EXPECT_EQ(copy->keyAnimation->owner, 0);
    EXPECT_EQ(copy->keyAnimation->keys, keys->keys);
    delete copy;
    EXPECT_NE(keys->keys[0].scale, nullptr);  // still there for the source
    delete source;
}
