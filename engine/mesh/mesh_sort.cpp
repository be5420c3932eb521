#include <cstdint>
#include <utility>

#include "engine/mesh/mesh.h"
#include "engine/texture/texture.h"

namespace {

// What the drawing order looks at in a face: a copy, since swaps move the records.
struct FaceKey {
    uint32_t transparent;  // the texture is in the transparent class; sorts last
    uintptr_t texture;     // identity only: makes equal textures adjacent
    uint32_t vertex[3];
};

FaceKey KeyOf(const MeshFace& face) {
    const CTexture* texture = face.texture;
    return FaceKey{texture && (texture->flags & TextureFlagKeyed) ? 1u : 0u,
                   reinterpret_cast<uintptr_t>(texture),
                   {face.vertex[0], face.vertex[1], face.vertex[2]}};
}

bool Less(const FaceKey& a, const FaceKey& b) {
    if (a.transparent != b.transparent) return a.transparent < b.transparent;
    if (a.texture != b.texture) return a.texture < b.texture;
    for (int k = 0; k < 3; ++k)
        if (a.vertex[k] != b.vertex[k]) return a.vertex[k] < b.vertex[k];
    return false;
}

// Faces i and j change places in every layer that holds both, and so do their smoothing groups.
void SwapFaces(CMesh& mesh, uint32_t i, uint32_t j) {
    for (int layer = 0; layer < 2; ++layer)
        if (mesh.faces[layer] && i < mesh.faceCount[layer] && j < mesh.faceCount[layer])
            std::swap(mesh.faces[layer][i], mesh.faces[layer][j]);
    if (mesh.smoothingGroups) std::swap(mesh.smoothingGroups[i], mesh.smoothingGroups[j]);
}

// Quicksort with the middle element as pivot. The smaller side recurses and the larger loops,
// so the stack stays logarithmic whatever the input.
void SortRange(CMesh& mesh, int64_t lo, int64_t hi) {
    const MeshFace* faces = mesh.faces[0];
    while (lo < hi) {
        FaceKey pivot = KeyOf(faces[lo + (hi - lo) / 2]);
        int64_t i = lo, j = hi;
        while (i <= j) {
            while (Less(KeyOf(faces[i]), pivot)) ++i;
            while (Less(pivot, KeyOf(faces[j]))) --j;
            if (i <= j) {
                if (i != j) SwapFaces(mesh, uint32_t(i), uint32_t(j));
                ++i;
                --j;
            }
        }
        if (j - lo < hi - i) {
            SortRange(mesh, lo, j);
            lo = i;
        } else {
            SortRange(mesh, i, hi);
            hi = j;
        }
    }
}

}  // namespace

void CMesh::SortFaces(uint32_t recursive) {
    if (faces[0] && faceCount[0] > 1) SortRange(*this, 0, int64_t(faceCount[0]) - 1);
    if (vertexBuffer) dirtyMask |= MeshDirtyFaceOrder;
    CEntity::SortFaces(recursive);
}
