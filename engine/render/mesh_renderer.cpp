#include "engine/render/mesh_renderer.h"

#include <algorithm>
#include <functional>

#include "base/memory.h"
#include "engine/mesh/draw_group.h"
#include "engine/mesh/mesh.h"
#include "engine/mesh/render_vertices.h"
#include "engine/render/mesh_prepare.h"
#include "engine/render/renderer.h"
#include "engine/render/transparency.h"
#include "engine/render/vertex_animation_buffers.h"
#include "engine/render/vertex_pool.h"
#include "engine/scene/visibility.h"
#include "engine/texture/texture.h"

namespace {

CMeshRenderer* Instance = nullptr;

void RenderThroughInstance(CMesh* mesh, CRenderContext* /*context*/) {
    if (Instance) Instance->Render(mesh);
}

// Pool, then the flag words where both have a texture, then the texture: untextured groups come
// first within a pool, textured ones by flags and address.
bool DrawsBefore(const OpaqueEntry& a, const OpaqueEntry& b) {
    if (a.pool != b.pool) return std::less<const void*>()(a.pool, b.pool);
    if (a.texture && b.texture && a.texture->flags != b.texture->flags)
        return a.texture->flags < b.texture->flags;
    return std::less<const void*>()(a.texture, b.texture);
}

void LoadIfNeeded(CRenderer* renderer, CTexture* texture) {
    if (texture && !texture->surface) renderer->LoadDeviceTexture(texture);
}

}  // namespace

CMeshRenderer::~CMeshRenderer() {
    if (queue) FREE(queue);
}

void CMeshRenderer::StartFrame(void* frameViewport, CRenderer* renderer,
                               const MeshFrameView& view) {
    viewport = frameViewport;
    device = renderer;
    viewMatrix = view.view;
    width = view.width;
    height = view.height;
    nearDistance = view.nearDistance;
    nearInverse = float(1.0 / double(view.nearDistance));
    focal = view.focal;
    focalInverse = float(1.0 / double(view.focal));
    halfWidth = float(view.width >> 1);
    halfHeight = float(view.height >> 1);
    planes = view.planes;
    planeOffsets = view.planeOffsets;
    use3D = renderer && renderer->Has3D() ? 1 : 0;
}

bool CMeshRenderer::SphereOutside(const Vector& centre, float radius) const {
    if (!planes || !planeOffsets) return false;
    for (int i = 0; i < 5; ++i) {
        const float distance = float(double(VectorDot(planes[i], centre)) + planeOffsets[i]);
        if (distance >= radius) return true;
    }
    return false;
}

// The specular highlight and the fog switch are requests around the queueing, undone before
// anything reaches the device: the groups carry no record of them into the flush.
void CMeshRenderer::Render(CMesh* mesh) {
    // Without a 3D device meshes belong to the software rasteriser.
    if (!use3D || !device || !device->device) return;
    LPDIRECT3DDEVICE7 d3d = device->device;
    D3DMATERIAL7 saved = {};
    const bool specular = (mesh->meshFlags & MeshFlagSpecular) != 0;
    if (specular) {
        device->SetRenderState(D3DRENDERSTATE_SPECULARENABLE, 1);
        device->SetRenderState(D3DRENDERSTATE_SPECULARMATERIALSOURCE, D3DMCS_MATERIAL);
        d3d->GetMaterial(&saved);
        D3DMATERIAL7 shiny = saved;
        shiny.dcvSpecular.r = shiny.dcvSpecular.g = shiny.dcvSpecular.b = 1.0f;
        shiny.dvPower = mesh->specularPower;
        d3d->SetMaterial(&shiny);
    }
    const bool fogOff = device->fogMode != 0 && !mesh->speculars;
    const uint32_t fog = device->GetRenderState(D3DRENDERSTATE_FOGENABLE);
    if (fogOff) device->SetRenderState(D3DRENDERSTATE_FOGENABLE, 0);
    Queue(mesh);
    if (fogOff) device->SetRenderState(D3DRENDERSTATE_FOGENABLE, fog);
    if (specular) {
        d3d->SetMaterial(&saved);
        device->SetRenderState(D3DRENDERSTATE_SPECULARENABLE, 0);
        device->SetRenderState(D3DRENDERSTATE_SPECULARMATERIALSOURCE, D3DMCS_COLOR2);
    }
}

void CMeshRenderer::Queue(CMesh* mesh) {
    if (mesh->hidden || mesh->vertexCount <= 0) return;
    PrepareForRender(mesh, device);
    VertexBufferPool* pool = mesh->vertexBuffer ? mesh->vertexBuffer->pool : nullptr;
    if (!pool || !mesh->drawGroups) return;
    bool haveDepth = false;
    float depth = 0.0f;
    for (int32_t g = 0; g < mesh->groupCount; ++g) {
        const DrawGroup& group = mesh->drawGroups[g];
        CTexture* texture = group.texture ? *group.texture : nullptr;
        if (!texture ||
            (!(texture->flags & TextureFlagAlpha) && !(mesh->meshFlags & MeshFlagAllTransparent))) {
            Append({mesh, texture, pool, &group});
            continue;
        }
        if (!haveDepth) {
            const Vector& c = mesh->worldCentre;
            const float* m = viewMatrix.m;
            depth = float(double(c.x) * m[2] + double(c.y) * m[6] + double(c.z) * m[10] + m[14]);
            haveDepth = true;
        }
        int32_t shift = 0;
        const VertexBufferPool* framePool = FrameDrawPool(mesh, &shift);
        AddTransparent(device, (framePool ? framePool : pool)->buffer, group.firstVertex + shift,
                       group.vertexSpan, group.indexCount, texture, group.groupIndices,
                       mesh->meshFlags, group.world, depth);
    }
}

void CMeshRenderer::Append(const OpaqueEntry& entry) {
    if (count == capacity) {
        const int32_t grown = capacity + OpaqueQueueGrowth;
        auto* entries = static_cast<OpaqueEntry*>(CvReallocCopy(
            queue, size_t(capacity) * sizeof(OpaqueEntry), size_t(grown) * sizeof(OpaqueEntry)));
        if (!entries) {
            queue = nullptr;
            capacity = count = 0;
            return;
        }
        queue = entries;
        capacity = grown;
    }
    queue[count++] = entry;
}

void CMeshRenderer::FlushOpaqueQueue() {
    if (count == 0 || !device) return;
    RequestBaseState(device);
    std::stable_sort(queue, queue + count, DrawsBefore);
    bool lit = true;
    bool twoLayers = false;
    int secondStageMode = -1;  // none; 0 blends by texture alpha, 1 modulates
    for (int32_t i = 0; i < count; ++i) {
        const OpaqueEntry& entry = queue[i];
        const DrawGroup& group = *entry.group;
        const uint32_t flags = entry.mesh->meshFlags;
        const bool unlit = (flags & MeshFlagVertexColours) != 0;
        if (unlit == lit) {
            device->SetRenderState(D3DRENDERSTATE_LIGHTING, unlit ? 0 : 1);
            lit = !unlit;
        }
        const bool hasSecond = group.texture2 != nullptr;
        if (hasSecond != twoLayers) {
            device->SetDefaultStages(hasSecond);
            twoLayers = hasSecond;
            if (hasSecond) secondStageMode = 0;
        }
        if (flags & MeshFlagModulateStage2) {
            device->SetStageState(1, D3DTSS_COLORARG1, D3DTA_TEXTURE);
            device->SetStageState(1, D3DTSS_COLORARG2, D3DTA_CURRENT);
            device->SetStageState(1, D3DTSS_COLOROP, D3DTOP_MODULATE);
            device->SetStageState(1, D3DTSS_ALPHAOP, D3DTOP_DISABLE);
        }
        if (!entry.texture) {
            device->RequestStageTexture(nullptr, 0);
        } else {
            LoadIfNeeded(device, entry.texture);
            if (twoLayers) {
                CTexture* second = *group.texture2;
                LoadIfNeeded(device, second);
                const bool multiply = second && (second->flags & TextureFlagMultiply);
                if (multiply && secondStageMode != 1) {
                    device->SetStageState(1, D3DTSS_COLOROP, D3DTOP_MODULATE);
                    secondStageMode = 1;
                } else if (!multiply && secondStageMode == 1) {
                    device->SetStageState(1, D3DTSS_COLOROP, D3DTOP_BLENDTEXTUREALPHA);
                    secondStageMode = 0;
                }
                device->RequestStageTexture(second, 1);
            }
            device->RequestStageTexture(entry.texture, 0);
        }
        device->device->SetTransform(D3DTRANSFORMSTATE_WORLD,
                                     reinterpret_cast<LPD3DMATRIX>(group.world));
        device->ApplyState();
        // A vertex animation frame with a run of its own draws from it.
        int32_t shift = 0;
        const VertexBufferPool* framePool = FrameDrawPool(entry.mesh, &shift);
        device->device->DrawIndexedPrimitiveVB(
            D3DPT_TRIANGLELIST, (framePool ? framePool : entry.pool)->buffer,
            group.firstVertex + shift, group.vertexSpan, group.groupIndices, group.indexCount, 0);
    }
    count = 0;
}

CMeshRenderer& MeshRenderer() {
    if (!Instance) Instance = NEW CMeshRenderer;
    return *Instance;
}

void OpenMeshRenderer() {
    MeshRenderer();
    MeshRender = RenderThroughInstance;
    MeshFreeVertices = FreeVertices;
    VisibilityTest = MeshVisibilityTest;
}

void CloseMeshRenderer() {
    if (Instance) DELETE(Instance);
    Instance = nullptr;
    MeshRender = nullptr;
    if (VisibilityTest == MeshVisibilityTest) VisibilityTest = VisibilityTestNone;
}

void RequestBaseStageState(CRenderer* renderer) {
    renderer->SetDefaultStages(false);
    renderer->SetStageState(0, D3DTSS_TEXCOORDINDEX, 0);
    renderer->SetStageState(1, D3DTSS_TEXCOORDINDEX, 1);
}

void RequestBaseState(CRenderer* renderer) {
    RequestBaseStageState(renderer);
    renderer->SetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE, 0);
    renderer->SetRenderState(D3DRENDERSTATE_ZWRITEENABLE, 1);
    renderer->SetRenderState(D3DRENDERSTATE_LIGHTING, 1);
}

void MeshVisibilityTest(CEntity* entity, uint8_t /*valid*/) {
    entity->culled = 0;
    if (entity->kind != EntityKindMesh || !Instance) return;
    const CMesh* mesh = static_cast<const CMesh*>(entity);
    if (mesh->boundRadius != 0.0f)
        entity->culled = Instance->SphereOutside(mesh->worldCentre, mesh->boundRadius) ? 1 : 0;
}
