#include <cmath>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/mesh/mesh.h"

void CMesh::TransformVertices(const CEntity* ref, const MeshVertex* source, Vector* out,
                              int32_t count) const {
    Matrix chain;
    BuildChain(ref, chain);
    for (int32_t i = 0; i < count; ++i) MatrixApply(chain, source[i].position, out[i]);
}

void CMesh::TransformNormals(const CEntity* ref, const MeshVertex* source, Vector* out,
                             int32_t count) const {
    Matrix chain;
    BuildChain(ref, chain);
    for (int32_t i = 0; i < count; ++i) MatrixApplyRotation(chain, source[i].normal, out[i]);
}

// The mean of the positions and the largest distance from it, measured from the centre as
// stored. A mesh without vertices gets a zero sphere at its own position.
static void BoundMesh(CMesh* mesh) {
    if (mesh->vertexCount > 0 && mesh->vertices) {
        double sx = 0.0, sy = 0.0, sz = 0.0;
        for (int32_t i = 0; i < mesh->vertexCount; ++i) {
            const Vector& p = mesh->vertices[i].position;
            sx += p.x;
            sy += p.y;
            sz += p.z;
        }
        double n = mesh->vertexCount;
        Vector centre{float(sx / n), float(sy / n), float(sz / n)};
        double largest = 0.0;
        for (int32_t i = 0; i < mesh->vertexCount; ++i) {
            const Vector& p = mesh->vertices[i].position;
            double dx = double(p.x) - centre.x, dy = double(p.y) - centre.y,
                   dz = double(p.z) - centre.z;
            double squared = dx * dx + dy * dy + dz * dz;
            if (squared > largest) largest = squared;
        }
        mesh->boundCentre = centre;
        mesh->boundRadius = float(std::sqrt(largest));
    } else {
        mesh->boundCentre = mesh->position;
        mesh->boundRadius = 0.0f;
    }
    mesh->Invalidate();
}

static void BoundTree(CEntity* node) {
    if (node->kind == EntityKindMesh) BoundMesh(static_cast<CMesh*>(node));
    for (CEntity* child = node->firstChild; child; child = child->nextSibling) BoundTree(child);
}

void CMesh::CalculateBounds() {
    BoundTree(this);
}

static void* AllocCopy(const void* old, size_t oldBytes, size_t bytes) {
    if (!bytes) return nullptr;
    void* block = MALLOC(bytes);
    if (old && oldBytes) std::memcpy(block, old, oldBytes);
    return block;
}

// Grows the target's layer 0, vertices and colours by the given counts, keeping what they hold.
static void MakeRoom(CMesh* target, uint32_t moreVertices, uint32_t moreFaces) {
    target->ClearVertexAnimation();  // merged geometry is static: the base pose stays
    size_t vertexCount = size_t(target->vertexCount > 0 ? target->vertexCount : 0);
    size_t vertexTotal = vertexCount + moreVertices;
    size_t faceTotal = size_t(target->faceCount[0]) + moreFaces;

    void* newVertices = AllocCopy(target->vertices, vertexCount * sizeof(MeshVertex),
                                  vertexTotal * sizeof(MeshVertex));
    if (!(target->ownership & MeshLentVertices) && target->vertices) FREE(target->vertices);
    target->vertices = static_cast<MeshVertex*>(newVertices);
    target->ownership &= ~uint32_t(MeshLentVertices);

    void* newFaces = AllocCopy(target->faces[0], target->faceCount[0] * sizeof(MeshFace),
                               faceTotal * sizeof(MeshFace));
    if (target->faces[0]) FREE(target->faces[0]);
    target->faces[0] = static_cast<MeshFace*>(newFaces);
    target->FreeSmoothingGroups();  // they no longer match layer 0

    if (target->colours) {
        void* newColours = AllocCopy(target->colours, vertexCount * 3, vertexTotal * 3);
        if (!(target->ownership & MeshLentColours) && target->colours) FREE(target->colours);
        target->colours = static_cast<uint8_t*>(newColours);
        target->ownership &= ~uint32_t(MeshLentColours);
    }
}

// Appends one mesh's layer 0 to the target, carried through the local placements from the mesh
// up to the target (the mesh's own included, the target's not).
static void AppendMesh(CMesh* target, const CMesh* mesh) {
    Matrix chain;
    MatrixIdentity(chain);
    for (const CEntity* f = mesh; f && f != target; f = f->parent) f->ApplyLocalAfter(chain);
    uint32_t base = uint32_t(target->vertexCount);
    for (uint32_t i = 0; mesh->faces[0] && i < mesh->faceCount[0]; ++i) {
        MeshFace face = mesh->faces[0][i];
        for (uint32_t& v : face.vertex) v += base;
        target->faces[0][target->faceCount[0]++] = face;
    }
    for (int32_t i = 0; mesh->vertices && i < mesh->vertexCount; ++i) {
        MeshVertex& out = target->vertices[base + uint32_t(i)];
        MatrixApply(chain, mesh->vertices[i].position, out.position);
        MatrixApplyRotation(chain, mesh->vertices[i].normal, out.normal);
        if (target->colours) {
            uint8_t* colour = target->colours + size_t(base + uint32_t(i)) * 3;
            if (mesh->colours)
                std::memcpy(colour, mesh->colours + size_t(i) * 3, 3);
            else
                std::memset(colour, 0, 3);
        }
    }
    if (mesh->vertices && mesh->vertexCount > 0) target->vertexCount += mesh->vertexCount;
}

// The node's geometry goes to the target, then each child's, and each child is deleted.
static void FlattenInto(CEntity* node, CMesh* target) {
    if (node->kind == EntityKindMesh && node != target)
        AppendMesh(target, static_cast<const CMesh*>(node));
    while (CEntity* child = node->firstChild) {
        FlattenInto(child, target);
        delete child;  // unlinks itself: the next child moves to the front
    }
}

// The root keeps its own geometry in front of what it gathers.
void CMesh::Flatten(CMesh* target) {
    CMesh* into = target ? target : this;
    ASSERT(!(into->meshFlags & MeshFlagBorrowed));  // flatten into a mesh with arrays of its own
    if (into->meshFlags & MeshFlagBorrowed) return;
    uint32_t faceTotal = 0, vertexTotal = 0;
    CountContents(nullptr, &faceTotal, &vertexTotal, nullptr, nullptr);
    if (into == this) {
        faceTotal -= faceCount[0];
        vertexTotal -= uint32_t(vertexCount);
    }
    MakeRoom(into, vertexTotal, faceTotal);
    FlattenInto(this, into);
}
