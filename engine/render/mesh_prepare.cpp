#include "engine/render/mesh_prepare.h"

#include "base/memory.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/render_vertices.h"
#include "engine/render/renderer.h"
#include "engine/render/vertex_pool.h"
#include "engine/texture/texture.h"

namespace {

constexpr uint32_t MeshBufferCaps = D3DVBCAPS_WRITEONLY | D3DVBCAPS_DONOTCLIP;

float* LockRun(CMesh* mesh) {
    return static_cast<float*>(LockVertices(mesh->vertexBuffer, 0));
}

uint32_t RunStart(const CMesh* mesh) {
    return mesh->vertexBuffer ? uint32_t(GetVertexStart(mesh->vertexBuffer)) : 0;
}

template <typename T>
T* AllocTable(int32_t count) {
    return static_cast<T*>(MALLOC(size_t(count) * sizeof(T)));
}

// A fresh device form: weld, run, tables, vertices, groups.
void Build(CMesh* mesh, CRenderer* renderer) {
    const bool keepTables = (mesh->meshFlags & MeshFlagKeepRenderTables) != 0;
    mesh->indices = AllocTable<uint16_t>(int32_t(mesh->faceCount[0] * 3));
    if (!mesh->indices) return;
    RenderVertexList list = BuildRenderVertices(mesh->vertexCount, mesh->vertices, mesh->faceCount,
                                                mesh->faces, mesh->indices);
    mesh->renderVertexCount = int32_t(list.count);
    mesh->vertexFormat = SelectVertexFormat(mesh);
    D3DVERTEXBUFFERDESC desc = {};
    desc.dwSize = sizeof desc;
    desc.dwCaps =
        MeshBufferCaps | (renderer->HasHardwareTransform() ? 0u : uint32_t(D3DVBCAPS_SYSTEMMEMORY));
    desc.dwFVF = DWORD(mesh->vertexFormat->fvf);
    desc.dwNumVertices = list.count;
    MeshFreeVertices = FreeVertices;
    mesh->vertexBuffer = list.count
                             ? AllocateVertices(renderer, &desc, mesh->vertexFormat->stride,
                                                keepTables ? MeshPoolChanging : MeshPoolStatic)
                             : nullptr;
    if (!mesh->vertexBuffer) {
        FreeRenderVertices(list);
        FREE(mesh->indices);
        mesh->indices = nullptr;
        mesh->renderVertexCount = 0;
        return;
    }
    mesh->ownership |= MeshOwnsDeviceForm;
    if (keepTables) {
        mesh->renderVertexSource = AllocTable<uint32_t>(mesh->renderVertexCount);
        mesh->renderVertexUV[0] = AllocTable<float*>(mesh->renderVertexCount);
        if (HasTwoLayers(mesh))
            mesh->renderVertexUV[1] = AllocTable<float*>(mesh->renderVertexCount);
    }
    if (float* out = LockRun(mesh)) {
        WriteRenderVertices(mesh, list, out, mesh->renderVertexSource, mesh->renderVertexUV[0],
                            mesh->renderVertexUV[1]);
        UnlockVertices(mesh->vertexBuffer);
    }
    FreeRenderVertices(list);
    BuildDrawGroups(mesh, renderer);
    mesh->dirtyMask = 0;
}

// Writes what dirtyMask asks of an existing run, in one lock.
void Refresh(CMesh* mesh, CRenderer* renderer) {
    if (mesh->dirtyMask & MeshDirtyGroups) {
        BuildDrawGroups(mesh, renderer);
        mesh->dirtyMask &= ~uint32_t(MeshDirtyGroups);
    }
    float* out = LockRun(mesh);
    if (!out) return;
    RefreshRenderVertices(mesh, mesh->dirtyMask, out);
    if (mesh->dirtyMask & MeshDirtyAnimationFrame) {
        mesh->dirtyMask = 0;
        WriteAnimationFrame(mesh, out);
        RefreshRenderVertices(mesh, mesh->dirtyMask, out);
    }
    UnlockVertices(mesh->vertexBuffer);
}

}  // namespace

void PrepareForRender(CMesh* mesh, CRenderer* renderer) {
    if (!renderer || !renderer->Has3D() || !renderer->device || mesh->faceCount[0] == 0 ||
        !mesh->faces[0] || mesh->vertexCount <= 0 || !mesh->vertices)
        return;
    // A clone that changes gets a device form of its own.
    if (mesh->dirtyMask && !(mesh->ownership & MeshOwnsDeviceForm)) mesh->ReleaseDeviceForm();
    if (mesh->dirtyMask & MeshDirtyFaceOrder) {
        mesh->ReleaseDeviceForm();
        mesh->dirtyMask &= ~uint32_t(MeshDirtyFaceOrder);
    }
    if (mesh->dirtyMask && !mesh->renderVertexSource) {
        // The first change: from now on the mesh keeps its tables and refreshes in place.
        mesh->ReleaseDeviceForm();
        mesh->meshFlags |= MeshFlagKeepRenderTables;
    }
    if (mesh->vertexBuffer && mesh->vertexBuffer->refill) {
        if (mesh->meshFlags & MeshFlagKeepRenderTables) {
            mesh->dirtyMask |= RefreshAll;
            mesh->vertexBuffer->refill = 0;
        } else {
            RefillVertexBuffer(mesh, renderer);
        }
    }
    if (mesh->vertexBuffer) {
        if (mesh->dirtyMask == 0) return;
        Refresh(mesh, renderer);
        mesh->dirtyMask = 0;
        return;
    }
    Build(mesh, renderer);
}

void BuildDrawGroups(CMesh* mesh, CRenderer* renderer) {
    const MeshFace* faces = mesh->faces[0];
    for (uint32_t f = 0; faces && f < mesh->faceCount[0]; ++f) {
        CTexture* texture = faces[f].texture;
        if (texture && !texture->surface && (f == 0 || texture != faces[f - 1].texture))
            renderer->LoadDeviceTexture(texture);
    }
    MakeDrawGroups(mesh, RunStart(mesh));
}

void RefillVertexBuffer(CMesh* mesh, CRenderer* /*renderer*/) {
    if (!mesh->vertexBuffer) return;
    mesh->vertexBuffer->refill = 0;
    RenderVertexList list = BuildRenderVertices(mesh->vertexCount, mesh->vertices, mesh->faceCount,
                                                mesh->faces, nullptr);
    // The run holds renderVertexCount vertices, whatever a changed source welds to now.
    if (list.count > uint32_t(mesh->renderVertexCount))
        list.count = uint32_t(mesh->renderVertexCount);
    if (float* out = LockRun(mesh)) {
        WriteRenderVertices(mesh, list, out, nullptr, nullptr, nullptr);
        UnlockVertices(mesh->vertexBuffer);
    }
    FreeRenderVertices(list);
}
