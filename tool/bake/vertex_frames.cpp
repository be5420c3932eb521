#include "tool/bake/vertex_frames.h"

#include <cstring>

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/mesh_animation.h"

namespace {

// Packed records are 8 bytes: x, y, z and a normal word. The normals are left as they stand:
// every animated pass rebuilds them from the frame's faces.
constexpr size_t PackedRecordSize = 8;

const int16_t* Record(const VertexAnimation* animation, const void* entry, uint32_t index) {
    if (!entry || !animation->frameData) return nullptr;
    const auto* base = static_cast<const uint8_t*>(animation->frameData);
    const auto* at = static_cast<const uint8_t*>(entry);
    if (at < base) return nullptr;
    const size_t offset = size_t(at - base) + size_t(index) * PackedRecordSize;
    if (offset % 2 != 0 ||
        offset + PackedRecordSize > size_t(animation->totalVertices) * PackedRecordSize)
        return nullptr;
    return reinterpret_cast<const int16_t*>(base + offset);
}

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

void ApplyPacked(CMesh* mesh, const VertexAnimation* animation, uint32_t frame) {
    const uint32_t count = animation->frameCount;
    const int fraction =
        int((animation->flags & VertexAnimationFractionMask) >> VertexAnimationFractionShift);
    double scale = 1.0 / double(uint32_t(1) << fraction);
    const void* entry = animation->frameTable[frame];
    const void* after = entry;
    const bool halfway = !entry;
    if (halfway) {
        entry = animation->frameTable[(frame + count - 1) % count];
        after = animation->frameTable[(frame + 1) % count];
        scale *= 0.5;
        if (!entry || !after) return;  // nothing to stand between: the shape in force stays
    }
    if (!OwnVertices(mesh)) return;
    for (int32_t s = 0; s < mesh->vertexCount; ++s) {
        const int16_t* first = Record(animation, entry, uint32_t(s));
        const int16_t* second = Record(animation, after, uint32_t(s));
        if (!first || !second) continue;
        MeshVertex& vertex = mesh->vertices[s];
        vertex.position.x = float(double(first[0] + (halfway ? second[0] : 0)) * scale);
        vertex.position.y = float(double(first[1] + (halfway ? second[1] : 0)) * scale);
        vertex.position.z = float(double(first[2] + (halfway ? second[2] : 0)) * scale);
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
