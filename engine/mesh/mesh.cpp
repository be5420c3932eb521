#include "engine/mesh/mesh.h"

#include "base/memory.h"

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

CMesh::~CMesh() {
    if (!(ownership & MeshLentColours)) FREE(colours);
    FREE(speculars);
    bool borrowed = (meshFlags & MeshFlagBorrowed) != 0;
    if (!borrowed) {
        FREE(smoothingGroups);
        FREE(faces[0]);
        FREE(faces[1]);
    }
    if (!borrowed && !(ownership & MeshLentVertices)) FREE(vertices);
}

void CMesh::AllocVertices(int32_t count) {
    if (!(ownership & MeshLentVertices)) FREE(vertices);
    ownership &= ~uint32_t(MeshLentVertices);
    vertices = count > 0 ? static_cast<MeshVertex*>(MALLOC(size_t(count) * sizeof(MeshVertex)))
                         : nullptr;
    vertexCount = count > 0 ? count : 0;
}

void CMesh::AllocFaces(uint32_t count, int layer) {
    FREE(faces[layer]);
    FreeSmoothingGroups();
    faces[layer] = count ? static_cast<MeshFace*>(MALLOC(size_t(count) * sizeof(MeshFace)))
                         : nullptr;
    faceCount[layer] = count;
}

void CMesh::AllocColours(int32_t count) {
    if (!(ownership & MeshLentColours)) FREE(colours);
    ownership &= ~uint32_t(MeshLentColours);
    colours = count > 0 ? static_cast<uint8_t*>(MALLOC(size_t(count) * 3)) : nullptr;
}

void CMesh::AllocSpeculars(int32_t count) {
    FREE(speculars);
    speculars = count > 0 ? static_cast<uint32_t*>(MALLOC(size_t(count) * 4)) : nullptr;
}

void CMesh::AllocSmoothingGroups() {
    FREE(smoothingGroups);
    smoothingGroups =
        faceCount[0] ? static_cast<uint32_t*>(MALLOC(size_t(faceCount[0]) * 4)) : nullptr;
}

void CMesh::FreeSmoothingGroups() {
    FREE(smoothingGroups);
    smoothingGroups = nullptr;
}
