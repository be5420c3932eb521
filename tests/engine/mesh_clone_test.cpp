#include <gtest/gtest.h>

#include <cstring>

#include "base/memory.h"
#include "engine/mesh/draw_group.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"

namespace {

CMesh* MakeSource(CEntity* parent) {
    CMesh* mesh = new CMesh(parent);
    mesh->SetName("source");
    mesh->SetPosition(1.0f, 2.0f, 3.0f);
    mesh->rotation[1] = 0.5f;
    mesh->hidden = 1;
    mesh->AllocVertices(3);
    for (int i = 0; i < 3; ++i)
        mesh->vertices[i] = MeshVertex{{float(i), 0.0f, 0.0f}, {0.0f, 1.0f, 0.0f}};
    mesh->AllocFaces(2, 0);
    mesh->AllocFaces(2, 1);
    for (int layer = 0; layer < 2; ++layer)
        for (int f = 0; f < 2; ++f) mesh->faces[layer][f] = MeshFace{{0, 1, 2}, nullptr, 0, {}};
    mesh->AllocColours(3);
    std::memset(mesh->colours, 7, 9);
    mesh->boundCentre = Vector{1.0f, 0.0f, 0.0f};
    mesh->boundRadius = 1.0f;
    mesh->meshFlags |= MeshFlagSpecular | MeshFlagVertexColours;
    return mesh;
}

}  // namespace

// Each clone is deleted before its source; the sanitizer build catches a double free of what
// was lent, and a leak of what the clone made.
TEST(MeshClone, CopiesVerticesAndFacesAndLendsColours) {
    CMesh* source = MakeSource(nullptr);
    uint8_t shade[3] = {1, 2, 3};
    source->vertexShade = shade;
    new CFrame(source);
    CMesh* older = MakeSource(source);
    older->SetName("older");
    MakeSource(source)->SetName("newer");

    CMesh* copy = source->Clone(nullptr, 0);
    EXPECT_EQ(copy->rotation[1], 0.5f);
    EXPECT_EQ(copy->meshFlags, source->meshFlags);
    EXPECT_EQ(copy->boundRadius + copy->boundCentre.x, 2.0f);
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
    ASSERT_NE(copy->firstChild, nullptr);
    EXPECT_STREQ(copy->firstChild->nextSibling->name, "older");
    EXPECT_STREQ(copy->firstChild->nextSibling->nextSibling->name, "newer");
    delete copy;

    CMesh* sharing = source->Clone(nullptr, MeshCloneShareVertices | MeshCloneShareShade);
    EXPECT_EQ(sharing->vertices, source->vertices);
    EXPECT_EQ(sharing->vertexShade, shade);
    EXPECT_EQ(sharing->ownership, uint32_t(MeshLentVertices | MeshSharedShade | MeshLentColours));
    // The flags go on to the children.
    CMesh* sharingChild = static_cast<CMesh*>(sharing->firstChild->nextSibling);
    EXPECT_EQ(sharingChild->vertices, older->vertices);
    delete sharing;
    delete source;
}

TEST(MeshClone, SharesTheDeviceFormAndMovesItsGroupsToItsOwnFaces) {
    CMesh* source = MakeSource(nullptr);
    source->vertexBuffer = reinterpret_cast<VertexBufferInfo*>(uintptr_t(0x1000));  // never read
    source->ownership |= MeshOwnsDeviceForm;
    source->renderVertexCount = 3;
    source->indices = static_cast<uint16_t*>(MALLOC(6 * sizeof(uint16_t)));
    for (uint16_t i = 0; i < 6; ++i) source->indices[i] = i;
    source->groupCount = 2;
    source->drawGroups = static_cast<DrawGroup*>(MALLOC(2 * sizeof(DrawGroup)));
    for (int g = 0; g < 2; ++g) {
        source->drawGroups[g] = {&source->worldMatrix,
                                 0,
                                 3,
                                 &source->faces[0][g].texture,
                                 &source->faces[1][g].texture,
                                 3,
                                 source->indices + 3 * g};
    }

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
    auto* shape = static_cast<VertexAnimation*>(MALLOC(sizeof(VertexAnimation)));
    std::memset(shape, 0, sizeof *shape);
    shape->flags = VertexAnimationOwnsArrays;
    shape->frameCount = 2;
    shape->totalVertices = 4;
    shape->frameData = source->vertices;
    shape->frameTable = static_cast<void**>(MALLOC(2 * sizeof(void*)));
    shape->frameTable[0] = source->vertices;
    shape->frameTable[1] = source->vertices + 2;
    shape->currentFrame = 1;
    source->vertexCount = 2;
    source->SetVertexAnimation(shape);
    source->vertices += 2;  // frame 1 in use
    auto* keys = static_cast<KeyAnimation*>(MALLOC(sizeof(KeyAnimation)));
    std::memset(keys, 0, sizeof *keys);
    keys->owner = 1;
    keys->keyCount = 1;
    keys->keys = static_cast<AnimationKey*>(MALLOC(sizeof(AnimationKey)));
    std::memset(keys->keys, 0, sizeof(AnimationKey));
    keys->keys[0].scale = static_cast<Vector*>(MALLOC(sizeof(Vector)));
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

TEST(MeshClone, OwnsWhatItCopiedFromBorrowedGeometry) {
    MeshVertex vertices[3] = {};
    MeshFace faces[1] = {};
    CMesh* borrower = new CMesh(nullptr);
    borrower->BorrowGeometry(faces, 1, vertices, 3, 0);
    CMesh* copy = borrower->Clone(nullptr, 0);
    EXPECT_EQ(copy->meshFlags & MeshFlagBorrowed, 0u);
    EXPECT_NE(copy->faces[0], faces);
    delete copy;  // frees its own copies: a leak would be reported
    delete borrower;
}
