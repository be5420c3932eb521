#include "engine/mesh/mesh.h"

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/mesh/draw_group.h"
#include "engine/mesh/mesh_animation.h"
#include "engine/mesh/render_vertices.h"
#include "engine/scene/render_list.h"
#include "engine/scene/visibility.h"

CMesh::CMesh(CEntity* parentNode)
    : CFrame(parentNode),
      vertexShade(nullptr),
      meshFlags(MeshFlagConstructed),
      dirtyMask(0),
      vertexCount(0),
      vertices(nullptr),
      faceCount{0, 0},
      faces{nullptr, nullptr},
      worldCentre{0.0f, 0.0f, 0.0f},
      boundCentre{0.0f, 0.0f, 0.0f},
      boundRadius(0.0f),
      vertexAnimation(nullptr),
      keyAnimation(nullptr),
      vertexBuffer(nullptr),
      groupCount(0),
      renderVertexCount(0),
      indices(nullptr),
      drawGroups(nullptr),
      renderVertexSource(nullptr),
      renderVertexUV{nullptr, nullptr},
      vertexFormat(nullptr),
      ownership(0),
      colours(nullptr),
      speculars(nullptr),
      smoothingGroups(nullptr),
      specularPower(0.0f) {
    features |= MeshFeatureGeometry;
    kind = EntityKindMesh;
}

// The vertex animation goes before the vertices: an unpacked one hands its base array back, and
// that array, not the frame in use, is the block to free.
CMesh::~CMesh() {
    if (!(ownership & MeshLentColours) && colours) FREE(colours);
    if (speculars) FREE(speculars);
    ReleaseDeviceForm();
    bool borrowed = (meshFlags & MeshFlagBorrowed) != 0;
    if (!borrowed) ReleaseVertexAnimation();
    if (smoothingGroups) FREE(smoothingGroups);  // never borrowed: BorrowGeometry leaves it alone
    if (!borrowed) {
        if (faces[0]) FREE(faces[0]);
        if (faces[1]) FREE(faces[1]);
        if (!(ownership & MeshLentVertices) && vertices) FREE(vertices);
    }
    FreeKeyAnimation(keyAnimation);
}

void CMesh::AllocVertices(int32_t count) {
    if (!(ownership & MeshLentVertices) && vertices) FREE(vertices);
    ownership &= ~uint32_t(MeshLentVertices);
    vertices =
        count > 0 ? static_cast<MeshVertex*>(MALLOC(size_t(count) * sizeof(MeshVertex))) : nullptr;
    vertexCount = count > 0 ? count : 0;
}

void CMesh::AllocFaces(uint32_t count, int layer) {
    ASSERT(layer == 0 || layer == 1);  // two face layers only
    if (layer != 0 && layer != 1) return;
    if (faces[layer]) FREE(faces[layer]);
    FreeSmoothingGroups();
    faces[layer] =
        count ? static_cast<MeshFace*>(MALLOC(size_t(count) * sizeof(MeshFace))) : nullptr;
    faceCount[layer] = count;
}

void CMesh::AllocColours(int32_t count) {
    if (!(ownership & MeshLentColours) && colours) FREE(colours);
    ownership &= ~uint32_t(MeshLentColours);
    colours = count > 0 ? static_cast<uint8_t*>(MALLOC(size_t(count) * 3)) : nullptr;
}

void CMesh::AllocSpeculars(int32_t count) {
    if (speculars) FREE(speculars);
    speculars = count > 0 ? static_cast<uint32_t*>(MALLOC(size_t(count) * 4)) : nullptr;
}

void CMesh::AllocSmoothingGroups() {
    if (smoothingGroups) FREE(smoothingGroups);
    smoothingGroups =
        faceCount[0] ? static_cast<uint32_t*>(MALLOC(size_t(faceCount[0]) * 4)) : nullptr;
}

void CMesh::FreeSmoothingGroups() {
    if (smoothingGroups) FREE(smoothingGroups);
    smoothingGroups = nullptr;
}

void CMesh::BorrowGeometry(MeshFace* faceArray, uint32_t count, MeshVertex* vertexArray,
                           int32_t countOfVertices, int layer) {
    ASSERT(layer == 0 || layer == 1);  // two face layers only
    if (layer != 0 && layer != 1) return;
    if (!(meshFlags & MeshFlagBorrowed)) {
        if (faces[layer]) FREE(faces[layer]);
        if (!(ownership & MeshLentVertices) && vertices) FREE(vertices);
    }
    FreeSmoothingGroups();
    ownership &= ~uint32_t(MeshLentVertices);  // the borrow bit covers the vertices now
    faces[layer] = faceArray;
    faceCount[layer] = count;
    vertices = vertexArray;
    vertexCount = countOfVertices;
    meshFlags |= MeshFlagBorrowed;
}

void CMesh::ReleaseBorrowedGeometry(int layer) {
    ASSERT(layer == 0 || layer == 1);  // two face layers only
    if (layer != 0 && layer != 1) return;
    meshFlags &= ~uint32_t(MeshFlagBorrowed);
    vertices = nullptr;
    vertexCount = 0;
    faces[layer] = nullptr;
    faceCount[layer] = 0;
}

// Borrowed arrays are let go, not freed, and a borrowing mesh's animation is left alone.
void CMesh::ClearGeometry() {
    ReleaseDeviceForm();
    bool borrowed = (meshFlags & MeshFlagBorrowed) != 0;
    if (!borrowed) ReleaseVertexAnimation();
    for (int layer = 0; layer < 2; ++layer) {
        if (!borrowed && faces[layer]) FREE(faces[layer]);
        faces[layer] = nullptr;
        faceCount[layer] = 0;
    }
    FreeSmoothingGroups();
    if (!borrowed && !(ownership & MeshLentVertices) && vertices) FREE(vertices);
    vertices = nullptr;
    vertexCount = 0;
    ownership &= ~uint32_t(MeshLentVertices);
    if (!(ownership & MeshLentColours) && colours) FREE(colours);
    colours = nullptr;
    ownership &= ~uint32_t(MeshLentColours);
    if (speculars) FREE(speculars);
    speculars = nullptr;
}

// Only meshes change; the plain frames between them are walked through.
static void SetHiddenBelow(CEntity* node, uint8_t hide, bool recursive) {
    if (node->kind == EntityKindMesh) node->hidden = hide;
    if (!recursive) return;
    for (CEntity* child = node->firstChild; child; child = child->nextSibling)
        SetHiddenBelow(child, hide, true);
}

void CMesh::SetVisible(uint32_t visible, uint32_t recursive) {
    SetHiddenBelow(this, (visible & 0xFF) ? 0 : 1, (recursive & 0xFF) != 0);
}

void CMesh::CountContents(uint32_t* frames, uint32_t* faceTotal, uint32_t* vertexTotal,
                          uint32_t* groups, uint32_t* textures) const {
    if (faceTotal) *faceTotal += faceCount[0];
    if (vertexTotal) *vertexTotal += uint32_t(vertexCount);
    // A released device form keeps its count but has no groups left to count.
    const CTexture* previous = nullptr;
    for (int32_t g = 0; drawGroups && g < groupCount; ++g) {
        if (groups) ++*groups;
        const CTexture* texture = drawGroups[g].texture ? *drawGroups[g].texture : nullptr;
        if (texture != previous && textures) ++*textures;
        previous = texture;
    }
    CEntity::CountContents(frames, faceTotal, vertexTotal, groups, textures);
}

// The renderer files the draws; without one open there is nothing to draw with.
void CMesh::Render(CRenderContext* context) {
    if (MeshRender) MeshRender(this, context);
}

void CMesh::Collect(RenderList* list, uint8_t parentValid) {
    if (meshFlags & MeshFlagSkipCollect) return;
    uint8_t valid = parentValid & matrixValid;
    if (!valid) {
        if (parent) {
            parent->GetWorldMatrix(worldMatrix);
            ApplyLocalBefore(worldMatrix);  // local * parent's world
        } else {
            GetLocalMatrix(worldMatrix);
        }
        worldMatrix[3] = worldMatrix[7] = worldMatrix[11] = 0.0f;
        worldMatrix[15] = 1.0f;
        if (vertexCount > 0 || (meshFlags & MeshFlagBoundsSubtree))
            MatrixApply(worldMatrix, boundCentre, worldCentre);
    }
    VisibilityTest(this, valid);
    // The sphere of such a mesh bounds its whole subtree.
    if ((meshFlags & MeshFlagBoundsSubtree) && culled) return;
    if (!culled) list->Append(this);
    matrixValid = 1;
    // valid, not the repaired flag: a moved node's children must rebuild too.
    for (CEntity* child = firstChild; child; child = child->nextSibling)
        child->Collect(list, valid);
}
