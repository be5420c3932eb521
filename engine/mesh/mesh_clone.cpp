#include <cstddef>
#include <cstring>

#include "base/memory.h"
#include "engine/mesh/draw_group.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"

// A pointer to a face's texture field in one of the source's face arrays, moved to the same face
// of the copy's. One that points elsewhere is kept.
static CTexture** MoveTextureField(CTexture** field, const MeshFace* from, uint32_t count,
                                   MeshFace* to) {
    if (!field || !from || !to) return field;
    uintptr_t start = reinterpret_cast<uintptr_t>(from);
    uintptr_t at = reinterpret_cast<uintptr_t>(field) - offsetof(MeshFace, texture);
    if (at < start || (at - start) % sizeof(MeshFace) != 0) return field;
    uintptr_t index = (at - start) / sizeof(MeshFace);
    return index < count ? &to[index].texture : field;
}

CMesh* CMesh::Clone(CEntity* newParent, uint32_t flags) {
    CEntity* first = firstChild;  // before the copy can join this subtree
    CMesh* copy = NEW CMesh(newParent);
    CopyPlacementTo(copy);
    CopyRotationTo(copy);

    copy->colours = colours;
    copy->ownership |= MeshLentColours;
    if (flags & MeshCloneShareShade) {
        copy->vertexShade = vertexShade;
        copy->ownership |= MeshSharedShade;
    }

    VertexAnimation* shape = vertexAnimation;
    bool unpacked = shape && !(shape->flags & VertexAnimationPacked);
    if (flags & MeshCloneShareVertices) {
        copy->vertices = vertices;
        copy->vertexCount = vertexCount;
        copy->ownership |= MeshLentVertices;
    } else {
        // An unpacked animation's frames all stand in one block: copy the block, from its base.
        int32_t records = unpacked ? int32_t(shape->totalVertices) : vertexCount;
        const void* from = unpacked ? shape->frameData : vertices;
        copy->AllocVertices(records);
        if (records > 0 && from)
            std::memcpy(copy->vertices, from, size_t(records) * sizeof(MeshVertex));
        copy->vertexCount = vertexCount;
    }

    for (int layer = 0; layer < 2; ++layer) {
        copy->AllocFaces(faceCount[layer], layer);
        if (faceCount[layer] && faces[layer])
            std::memcpy(copy->faces[layer], faces[layer], faceCount[layer] * sizeof(MeshFace));
    }
    copy->boundCentre = boundCentre;
    copy->boundRadius = boundRadius;

    if (shape) {
        VertexAnimation* animation = static_cast<VertexAnimation*>(MALLOC(sizeof *animation));
        *animation = *shape;
        animation->flags &= ~uint32_t(VertexAnimationOwnsArrays);
        // A packed animation keeps its packed data: the vertices are not its frames.
        if (unpacked) animation->frameData = copy->vertices;
        animation->currentFrame = 0;
        copy->vertexAnimation = animation;
    }
    if (keyAnimation) {
        KeyAnimation* animation = static_cast<KeyAnimation*>(MALLOC(sizeof *animation));
        std::memcpy(animation, keyAnimation, sizeof *animation);
        animation->owner = 0;
        copy->keyAnimation = animation;
    }

    // The copies above are the clone's own, whatever this mesh borrowed.
    copy->meshFlags = meshFlags & ~uint32_t(MeshFlagBorrowed);
    // The clone draws from this mesh's device form and never frees it.
    copy->vertexBuffer = vertexBuffer;
    copy->renderVertexCount = renderVertexCount;
    copy->indices = indices;
    copy->vertexFormat = vertexFormat;
    copy->groupCount = groupCount;
    copy->ownership &= ~uint32_t(MeshOwnsDeviceForm);
    if (drawGroups && groupCount > 0) {
        size_t bytes = size_t(groupCount) * sizeof(DrawGroup);
        copy->drawGroups = static_cast<DrawGroup*>(MALLOC(bytes));
        std::memcpy(copy->drawGroups, drawGroups, bytes);
        for (int32_t g = 0; g < groupCount; ++g) {
            DrawGroup& group = copy->drawGroups[g];
            group.world = &copy->worldMatrix;
            group.texture = MoveTextureField(group.texture, faces[0], faceCount[0], copy->faces[0]);
            group.texture2 =
                MoveTextureField(group.texture2, faces[1], faceCount[1], copy->faces[1]);
        }
    }

    CloneChildren(first, copy, flags);
    copy->Invalidate();
    return copy;
}
