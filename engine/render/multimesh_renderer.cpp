#include "engine/render/multimesh_renderer.h"

#include <algorithm>
#include <functional>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/mesh/multimesh.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/renderer.h"
#include "engine/render/transparency.h"
#include "engine/render/vertex_pool.h"
#include "engine/texture/texture.h"

namespace {

// The stage block's words, in the order a CMultiMesh keeps them.
constexpr D3DTEXTURESTAGESTATETYPE BlockStates[6] = {
    D3DTSS_COLORARG1, D3DTSS_COLORARG2, D3DTSS_COLOROP,
    D3DTSS_ALPHAARG1, D3DTSS_ALPHAARG2, D3DTSS_ALPHAOP,
};

CTexture* StageTexture(const MultiMeshQueueEntry& entry, int32_t stage) {
    const CMultiMesh* mesh = entry.mesh;
    if (stage < 0 || stage >= mesh->stageCount || !mesh->stageTextures[stage]) return nullptr;
    if (entry.group->material >= mesh->faceTotal) return nullptr;
    return mesh->stageTextures[stage][entry.group->material];
}

void RequestTexture(CRenderer* renderer, CTexture* texture, uint32_t stage) {
    if (texture && !texture->surface) renderer->LoadDeviceTexture(texture);
    renderer->RequestStageTexture(texture, stage);
}

void DisableStage(CRenderer* renderer, uint32_t stage) {
    renderer->SetStageState(stage, D3DTSS_COLOROP, D3DTOP_DISABLE);
    renderer->SetStageState(stage, D3DTSS_ALPHAOP, D3DTOP_DISABLE);
}

}  // namespace

CMultiMeshRenderer::~CMultiMeshRenderer() {
    if (queue) FREE(queue);
}

CMultiMeshRenderer& MultiMeshQueue() {
    static CMultiMeshRenderer instance;
    return instance;
}

void CMultiMeshRenderer::StartFrame(void* frameViewport, CRenderer* renderer,
                                    const MeshFrameView& frameView) {
    viewport = frameViewport;
    device = renderer;
    view = frameView;
}

void CMultiMeshRenderer::Append(const MultiMeshQueueEntry& entry) {
    if (count >= capacity) {
        const int32_t grown = capacity + MultiMeshQueueGrowth;
        auto* entries = static_cast<MultiMeshQueueEntry*>(
            CvReallocCopy(queue, size_t(capacity) * sizeof(MultiMeshQueueEntry),
                          size_t(grown) * sizeof(MultiMeshQueueEntry)));
        if (!entries) return;
        queue = entries;
        capacity = grown;
    }
    queue[count++] = entry;
}

void CMultiMeshRenderer::QueueMultiMesh(CMultiMesh* mesh) {
    if (!mesh) return;
    if (mesh->vertexBuffer && mesh->vertexBuffer->refill) mesh->RestoreVertices();
    if (mesh->notQueued || mesh->vertexTotal == 0 || mesh->passStages == 0) return;
    if (!mesh->vertexBuffer || !mesh->vertexBuffer->pool) return;
    VertexBufferPool* pool = mesh->vertexBuffer->pool;
    const int32_t end = std::min(mesh->firstStage + mesh->passStages, mesh->stageCount);
    for (int32_t stage = std::max(mesh->firstStage, 0); stage < end;) {
        const int32_t stages = std::clamp(int32_t(mesh->stagePass[stage][0]), 1, end - stage);
        CTexture** table = mesh->stageTextures[stage];
        if (mesh->stagePass[stage][1]) {
            CTexture* texture = table && mesh->faceTotal ? table[0] : nullptr;
            Append({mesh, pool, &mesh->wholeGroup, texture, stage, stages});
        } else {
            for (int32_t g = 0; g < mesh->multiGroupCount; ++g) {
                const MultiDrawGroup& group = mesh->multiGroups[g];
                CTexture* texture =
                    table && group.material < mesh->faceTotal ? table[group.material] : nullptr;
                Append({mesh, pool, &group, texture, stage, stages});
            }
        }
        stage += stages;
    }
}

// Coordinate sets and blocks of the pass's stages onto device stages 0 up; the one behind is off.
void CMultiMeshRenderer::SetPassState(const MultiMeshQueueEntry& entry) {
    const CMultiMesh* mesh = entry.mesh;
    for (int32_t i = 0; i < entry.stages; ++i) {
        const int32_t stage = entry.pass + i;
        const uint32_t* block = mesh->StageSettings(stage);
        device->SetStageState(uint32_t(i), D3DTSS_TEXCOORDINDEX, mesh->stageCoordinates[stage]);
        for (int word = 0; word < 6; ++word)
            device->SetStageState(uint32_t(i), BlockStates[word], block[word]);
        if (entry.stages > 3) RequestTexture(device, StageTexture(entry, stage), uint32_t(i));
    }
    if (entry.stages < StageCount) DisableStage(device, uint32_t(entry.stages));
}

void CMultiMeshRenderer::FlushMultiMeshQueue() {
    if (count == 0) return;
    if (!device || !device->device) {
        count = 0;
        return;
    }
    D3DMATRIX identity = {};
    for (int i = 0; i < 4; ++i) identity.m[i][i] = 1.0f;
    device->device->SetTransform(D3DTRANSFORMSTATE_WORLD, &identity);
    device->SetRenderState(D3DRENDERSTATE_ALPHATESTENABLE, 0);
    device->SetRenderState(D3DRENDERSTATE_STENCILENABLE, 0);
    device->SetRenderState(D3DRENDERSTATE_LIGHTING,
                           (queue[0].mesh->layoutFlags & MultiLayoutDiffuse) ? 0 : 1);

    std::less<const void*> before;
    std::stable_sort(queue, queue + count,
                     [&before](const MultiMeshQueueEntry& a, const MultiMeshQueueEntry& b) {
                         if (a.pass != b.pass) return a.pass < b.pass;
                         if (a.pool != b.pool) return before(a.pool, b.pool);
                         return before(a.texture, b.texture);
                     });

    int32_t lastPass = -1, lastStages = -1;
    CTexture* lastTexture = nullptr;
    for (int32_t i = 0; i < count; ++i) {
        const MultiMeshQueueEntry& entry = queue[i];
        if (entry.stages > 3) {
            SetPassState(entry);
            CorvaneWarning("Slow Render Path in Multimeshrender");
        } else if (entry.pass != lastPass || entry.stages != lastStages) {
            SetPassState(entry);
            if (entry.stages == 3) CorvaneDebug("3");
        }
        lastPass = entry.pass;
        lastStages = entry.stages;
        if (entry.stages == 2 || entry.stages == 3)
            for (int32_t stage = 1; stage < entry.stages; ++stage)
                RequestTexture(device, StageTexture(entry, entry.pass + stage), uint32_t(stage));

        if (entry.texture != lastTexture) {
            const uint32_t flags = entry.texture ? entry.texture->flags : 0;
            if (flags & (TextureFlagAlpha | TextureFlagMultiply)) {
                device->SetAlphaMode(true);
                SetBlendFromTexture(device, flags);
                device->SetRenderState(D3DRENDERSTATE_ZWRITEENABLE, 1);
            } else {
                device->SetAlphaMode(false);
            }
            RequestTexture(device, entry.texture, 0);
            lastTexture = entry.texture;
        }
        device->ApplyState();
        const MultiDrawGroup& group = *entry.group;
        device->device->DrawIndexedPrimitiveVB(
            entry.mesh->stripped ? D3DPT_TRIANGLESTRIP : D3DPT_TRIANGLELIST, entry.pool->buffer,
            group.firstVertex, group.vertexSpan, group.groupIndices, group.indexCount, 0);
    }
    for (uint32_t stage = 1; stage < StageCount; ++stage) DisableStage(device, stage);
    RequestBaseStageState(device);
    device->SetAlphaMode(false);
    count = 0;
}
