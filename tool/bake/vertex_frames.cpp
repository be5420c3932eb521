#include "tool/bake/vertex_frames.h"

#include <cstring>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/packed_frame.h"

namespace {

// An entry must hold a whole frame of records inside the animation's data.
bool HoldsFrame(const VertexAnimation* animation, const void* entry, int32_t vertexCount) {
    const auto* base = static_cast<const uint8_t*>(animation->frameData);
    const auto* at = static_cast<const uint8_t*>(entry);
    if (!base || at < base) return false;
    const size_t offset = size_t(at - base);
    const size_t end = offset + size_t(vertexCount) * sizeof(MeshVertex);
    return offset % alignof(MeshVertex) == 0 &&
           end <= size_t(animation->totalVertices) * sizeof(MeshVertex);
}

void ApplyUnpacked(CMesh* mesh, const VertexAnimation* animation, uint32_t frame) {
    // A frame without data of its own keeps the shape in force, as drawing does.
    void* entry = animation->frameTable[frame];
    if (!entry || !HoldsFrame(animation, entry, mesh->vertexCount)) return;
    mesh->vertices = static_cast<MeshVertex*>(entry);
}

// A mesh whose vertices are lent gets an array of its own first: the lender's stays untouched.
bool OwnVertices(CMesh* mesh) {
    if (!(mesh->ownership & MeshLentVertices)) return true;
    const size_t bytes = size_t(mesh->vertexCount) * sizeof(MeshVertex);
    MeshVertex* lent = mesh->vertices;
    MeshVertex* own = static_cast<MeshVertex*>(MALLOC(bytes));
    if (!own) return false;
    std::memcpy(own, lent, bytes);
    mesh->ownership &= ~uint32_t(MeshLentVertices);
    mesh->vertices = own;
    return true;
}

// Positions only: every animated pass rebuilds the normals from the frame's faces.
void ApplyPacked(CMesh* mesh, const VertexAnimation* animation, uint32_t frame) {
    PackedFrame packed;
    // A halfway frame with nothing to stand between keeps the shape in force.
    if (!packed.Locate(animation, frame) || !OwnVertices(mesh)) return;
    for (int32_t s = 0; s < mesh->vertexCount; ++s) {
        Vector position;
        if (packed.Vertex(uint32_t(s), position, nullptr)) mesh->vertices[s].position = position;
    }
}

void ApplyFrame(CMesh* mesh) {
    const VertexAnimation* animation = mesh->vertexAnimation;
    // Borrowed geometry belongs to its lender, whose own animation shapes it.
    if (!animation || !animation->frameTable || (mesh->meshFlags & MeshFlagBorrowed) ||
        mesh->vertexCount <= 0 || !mesh->vertices)
        return;
    const uint32_t frame = animation->currentFrame;
    if (frame >= animation->frameCount) return;
    if (animation->flags & VertexAnimationPacked)
        ApplyPacked(mesh, animation, frame);
    else
        ApplyUnpacked(mesh, animation, frame);
    mesh->dirtyMask |= MeshDirtyPositions | MeshDirtyNormals;
}

}  // namespace

void ApplyVertexFrames(CMesh* root) {
    ApplyFrame(root);
    for (CEntity* child = root->firstChild; child; child = child->nextSibling)
        if (child->kind == EntityKindMesh) ApplyVertexFrames(static_cast<CMesh*>(child));
}
