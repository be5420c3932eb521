// The half of CMultiMesh that needs the device: its vertex block in a pool, locks, the build from
// a CMesh, the draw groups, refill after a reset, validation and the queue's frustum test.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "base/memory.h"
#include "base/services.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/multimesh.h"
#include "engine/mesh/render_vertices.h"
#include "engine/render/multimesh_renderer.h"
#include "engine/render/renderer.h"
#include "engine/render/vertex_pool.h"
#include "engine/scene/render_list.h"
#include "engine/texture/texture.h"

namespace {

constexpr uint32_t MultiMeshPoolKind = 3;
constexpr int32_t MaxReserve = 65535;

}  // namespace

CMultiMesh::CMultiMesh(CRenderer* owner, CEntity* parentEntity)
    : CFrame(parentEntity),
      positionX(nullptr),
      positionY(nullptr),
      positionZ(nullptr),
      layoutFlags(0),
      worldCentre{0.0f, 0.0f, 0.0f},
      boundCentre{0.0f, 0.0f, 0.0f},
      boundRadius(0.0f),
      stageCount(0),
      passStages(0),
      firstStage(0),
      uvSets(1),
      stageCoordinates{},
      faceIndices(nullptr),
      stageTextures{},
      stageSettings{},
      stagePass{},
      vertexBuffer(nullptr),
      lockedVertices(nullptr),
      vertexTotal(0),
      faceTotal(0),
      device(owner),
      strideWords(0),
      multiGroups(nullptr),
      multiGroupCount(0),
      wholeGroup{},
      boxMin{0.0f, 0.0f, 0.0f},
      boxMax{0.0f, 0.0f, 0.0f},
      locked(0),
      notQueued(0),
      stripped(0),
      vertexCopy(nullptr) {
    features |= 1;
    kind = EntityKindMultiMesh;
    for (auto& pass : stagePass) pass[0] = 1;
    wholeGroup.world = &worldMatrix;
}

CMultiMesh::~CMultiMesh() {
    FreeAll();
    for (float* array : {positionX, positionY, positionZ}) AlignedFree(array);
}

void CMultiMesh::FreeGroups() {
    if (multiGroups) FREE(multiGroups);
    multiGroups = nullptr;
    multiGroupCount = 0;
    AlignedFree(wholeGroup.groupIndices);
    wholeGroup = {&worldMatrix, 0, 0, 0, 0, nullptr};
}

void CMultiMesh::FreeAll() {
    if (locked) Unlock();
    FreeGroups();
    FreeVertices(vertexBuffer);
    vertexBuffer = nullptr;
    if (vertexCopy) FREE(vertexCopy);
    vertexCopy = nullptr;
    for (CTexture**& table : stageTextures) {
        if (table) FREE(table);
        table = nullptr;
    }
    AlignedFree(faceIndices);
    faceIndices = nullptr;
    vertexTotal = faceTotal = 0;
    stripped = 0;
}

void CMultiMesh::Allocate(uint32_t vertices, uint32_t faces, int32_t stages,
                          int32_t coordinateSets) {
    FreeAll();
    stages = std::clamp(stages, 0, MultiMeshStages);
    stageCount = passStages = stages;
    firstStage = 0;
    uvSets = std::clamp(coordinateSets == -1 ? stages : coordinateSets, 1, MultiMeshStages);
    strideWords = ((layoutFlags & MultiLayoutDiffuse) ? 4u : 6u) + 2u * uint32_t(uvSets);

    if (faces) {
        faceIndices = static_cast<uint16_t*>(AlignedAlloc(size_t(faces) * 3 * sizeof(uint16_t)));
        for (int32_t stage = 0; stage < stageCount; ++stage) {
            stageTextures[stage] = static_cast<CTexture**>(MALLOC(faces * sizeof(CTexture*)));
            if (stageTextures[stage])
                std::fill(stageTextures[stage], stageTextures[stage] + faces, nullptr);
        }
        if (faceIndices) std::memset(faceIndices, 0, size_t(faces) * 3 * sizeof(uint16_t));
    }
    if (vertices && device) {
        DWORD caps = D3DVBCAPS_WRITEONLY | D3DVBCAPS_DONOTCLIP;
        if (!device->HasHardwareTransform()) caps |= D3DVBCAPS_SYSTEMMEMORY;
        D3DVERTEXBUFFERDESC desc = {sizeof desc, caps, VertexFormat(), vertices};
        if (MultiMeshPoolReserve != -1) {
            D3DVERTEXBUFFERDESC reserve = desc;
            reserve.dwNumVertices = DWORD(std::clamp(MultiMeshPoolReserve, 0, MaxReserve));
            AllocateVertices(device, &reserve, int32_t(strideWords),
                             MultiMeshPoolKind | VertexPoolReserve);
            MultiMeshPoolReserve = -1;
        }
        vertexBuffer = AllocateVertices(device, &desc, int32_t(strideWords), MultiMeshPoolKind);
    }
    if (vertices) {
        const size_t words = size_t(vertices) * strideWords;
        vertexCopy = static_cast<float*>(MALLOC(words * sizeof(float)));
        if (vertexCopy) std::memset(vertexCopy, 0, words * sizeof(float));
    }
    for (int stage = 0; stage < MultiMeshStages; ++stage)
        stageCoordinates[stage] = uint8_t(std::min(stage, uvSets - 1));
    vertexTotal = vertexCopy ? vertices : 0;
    faceTotal = faceIndices ? faces : 0;
}

bool CMultiMesh::Lock() {
    if (locked) return true;
    if (!vertexBuffer) return false;
    lockedVertices = static_cast<float*>(LockVertices(vertexBuffer, DDLOCK_WAIT));
    locked = lockedVertices ? 1 : 0;
    return locked != 0;
}

void CMultiMesh::Unlock() {
    if (!locked) return;
    UnlockVertices(vertexBuffer);
    lockedVertices = nullptr;
    locked = 0;
}

void CMultiMesh::RestoreVertices() {
    if (!vertexBuffer) return;
    const bool wasLocked = locked != 0;
    if (!Lock()) return;
    if (vertexCopy)
        std::memcpy(lockedVertices, vertexCopy, size_t(vertexTotal) * strideWords * sizeof(float));
    if (!wasLocked) Unlock();
    vertexBuffer->refill = 0;
}

void CMultiMesh::BuildFromMesh(CMesh* mesh, int32_t stages, int32_t coordinateSets) {
    Matrix local;
    mesh->GetLocalMatrix(local);
    SetMatrix(local);
    Allocate(0, 0, 1, 1);

    const uint32_t faceCount = mesh->faces[0] ? mesh->faceCount[0] : 0;
    auto* indices = static_cast<uint16_t*>(MALLOC((size_t(faceCount) * 3 + 1) * sizeof(uint16_t)));
    if (!indices) return;
    RenderVertexList list = BuildRenderVertices(mesh->vertexCount, mesh->vertices, mesh->faceCount,
                                                mesh->faces, faceCount ? indices : nullptr);
    const bool twoLayers = mesh->faces[1] && mesh->faceCount[1] == faceCount && stages > 1;

    Allocate(list.count, faceCount, stages, coordinateSets);
    if (faceIndices) std::copy(indices, indices + size_t(faceTotal) * 3, faceIndices);
    FREE(indices);
    Lock();
    const bool diffuse = (layoutFlags & MultiLayoutDiffuse) != 0;
    for (uint32_t i = 0; i < vertexTotal; ++i) {
        const RenderVertex& corner = list.vertices[i];
        if (corner.source >= uint32_t(std::max(mesh->vertexCount, 0))) continue;
        const MeshVertex& source = mesh->vertices[corner.source];
        SetVertexPosition(i, source.position.x, source.position.y, source.position.z);
        if (!diffuse && mesh->colours) {
            const uint8_t* rgb = mesh->colours + size_t(corner.source) * 3;
            SetVertexNormal(i, float(rgb[0]), float(rgb[1]), float(rgb[2]));
        } else if (!diffuse) {
            SetVertexNormal(i, source.normal.x, source.normal.y, source.normal.z);
        }
        SetVertexUV(i, 0, corner.uv[0][0], corner.uv[0][1]);
        if (twoLayers) SetVertexUV(i, 1, corner.uv[1][0], corner.uv[1][1]);
    }
    Unlock();
    FreeRenderVertices(list);

    for (uint32_t face = 0; face < faceTotal; ++face) {
        if (stageTextures[0]) stageTextures[0][face] = mesh->faces[0][face].texture;
        if (twoLayers && stageTextures[1]) stageTextures[1][face] = mesh->faces[1][face].texture;
    }
    if (vertexTotal) BuildGroups();
}

void CMultiMesh::BuildGroups() {
    FreeGroups();
    if (!faceIndices || faceTotal == 0) return;
    const auto texture = [this](int32_t stage, uint32_t face) {
        return stageTextures[stage] ? stageTextures[stage][face] : nullptr;
    };
    for (int32_t stage = 0; stage < stageCount; ++stage)
        for (uint32_t face = 0; face < faceTotal; ++face)
            if (CTexture* t = texture(stage, face); t && !t->surface && device)
                device->LoadDeviceTexture(t);

    // A run ends where any stage's texture differs from that of the run's first face.
    const auto sameRun = [&](uint32_t first, uint32_t face) {
        for (int32_t stage = 0; stage < stageCount; ++stage)
            if (texture(stage, face) != texture(stage, first)) return false;
        return true;
    };
    int32_t runs = 0;
    for (uint32_t face = 0, first = 0; face < faceTotal; ++face)
        if (face == 0 || !sameRun(first, face)) ++runs, first = face;
    multiGroups = static_cast<MultiDrawGroup*>(MALLOC(size_t(runs) * sizeof(MultiDrawGroup)));
    wholeGroup.groupIndices =
        static_cast<uint16_t*>(AlignedAlloc(size_t(faceTotal) * 3 * sizeof(uint16_t)));
    if (!multiGroups || !wholeGroup.groupIndices) {
        FreeGroups();
        return;
    }
    std::copy(faceIndices, faceIndices + size_t(faceTotal) * 3, wholeGroup.groupIndices);
    const uint32_t start = uint32_t(std::max(GetVertexStart(vertexBuffer), 0));
    wholeGroup = {&worldMatrix, start, vertexTotal, 3 * faceTotal, 0, wholeGroup.groupIndices};

    for (uint32_t face = 0; face < faceTotal;) {
        uint32_t end = face + 1;
        while (end < faceTotal && sameRun(face, end)) ++end;
        uint16_t* indices = faceIndices + size_t(face) * 3;
        const uint32_t count = (end - face) * 3;
        const auto [low, high] = std::minmax_element(indices, indices + count);
        // Both ends are read before the rebase below rewrites the elements they point at.
        const uint16_t lowest = *low, highest = *high;
        for (uint32_t i = 0; i < count; ++i) indices[i] = uint16_t(indices[i] - lowest);
        multiGroups[multiGroupCount++] = {
            &worldMatrix, start + lowest, uint32_t(highest - lowest) + 1, count, face, indices};
        face = end;
    }
}

CMultiMesh* CMultiMesh::Clone(CEntity* parentEntity, uint32_t /*flags*/) {
    auto* copy = NEW CMultiMesh(device, parentEntity);
    CopyPlacementTo(copy);
    CopyRotationTo(copy);
    copy->layoutFlags = layoutFlags;
    copy->notQueued = notQueued;
    std::copy(stageSettings, stageSettings + MultiMeshStages, copy->stageSettings);
    copy->boundCentre = boundCentre;
    copy->boundRadius = boundRadius;
    copy->Allocate(vertexTotal, faceTotal, stageCount, uvSets);
    if (faceIndices && copy->faceIndices)
        std::copy(faceIndices, faceIndices + size_t(faceTotal) * 3, copy->faceIndices);
    for (int32_t stage = 0; stage < stageCount; ++stage)
        if (stageTextures[stage] && copy->stageTextures[stage])
            std::copy(stageTextures[stage], stageTextures[stage] + faceTotal,
                      copy->stageTextures[stage]);
    return copy;
}

void CMultiMesh::Render(CRenderContext* /*context*/) {
    MultiMeshQueue().QueueMultiMesh(this);
}

void CMultiMesh::Collect(RenderList* list, uint8_t /*parentValid*/) {
    const CMultiMeshRenderer& queue = MultiMeshQueue();
    TestFrustum(queue.view.planes, queue.view.planeOffsets);
    if (!culled) list->Append(this);
}

void CMultiMesh::CalculateBounds() {
    const bool wasLocked = locked != 0;
    Lock();
    double sum[3] = {0.0, 0.0, 0.0};
    for (uint32_t i = 0; i < vertexTotal; ++i)
        for (int axis = 0; axis < 3; ++axis) sum[axis] += VertexWords(i)[axis];
    const double n = vertexTotal ? double(vertexTotal) : 1.0;
    boundCentre = {float(sum[0] / n), float(sum[1] / n), float(sum[2] / n)};
    double largest = 0.0;
    for (uint32_t i = 0; i < vertexTotal; ++i) {
        const float* p = VertexWords(i);
        const double dx = double(p[0]) - boundCentre.x, dy = double(p[1]) - boundCentre.y;
        const double dz = double(p[2]) - boundCentre.z;
        largest = std::max(largest, dx * dx + dy * dy + dz * dz);
    }
    boundRadius = float(std::sqrt(largest));
    if (!wasLocked) Unlock();
    for (CEntity* child = firstChild; child; child = child->nextSibling) {
        if (child->kind == EntityKindMesh) static_cast<CMesh*>(child)->CalculateBounds();
        if (child->kind == EntityKindMultiMesh) static_cast<CMultiMesh*>(child)->CalculateBounds();
    }
}

void CMultiMesh::Finalise() {
    worldCentre = boundCentre;
    if (vertexBuffer && vertexBuffer->pool) OptimiseVertices(vertexBuffer->pool);
}

bool CRenderer::ValidateMultiMeshPass(CMultiMesh* mesh, int pass) {
    if (!mesh || pass < 0 || pass >= mesh->stageCount) return false;
    const int stages = std::clamp(int(mesh->stagePass[pass][0]), 1, mesh->stageCount - pass);
    const uint32_t* blocks[MultiMeshStages];
    uint8_t coordinates[MultiMeshStages];
    CTexture* textures[MultiMeshStages];
    for (int i = 0; i < stages; ++i) {
        const int stage = pass + i;
        blocks[i] = mesh->StageSettings(stage);
        coordinates[i] = mesh->stageCoordinates[stage];
        CTexture** table = mesh->stageTextures[stage];
        textures[i] = table && mesh->faceTotal ? table[0] : nullptr;
        if (textures[i] && !textures[i]->surface) LoadDeviceTexture(textures[i]);
    }
    return ValidateStageSetup(stages, blocks, coordinates, textures);
}
