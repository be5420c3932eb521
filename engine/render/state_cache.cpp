#include <bit>
#include <cstring>

#include "engine/render/renderer.h"
#include "engine/texture/texture.h"

void CRenderer::ResetStateCache() {
    std::memset(appliedRenderStates, 0xFF, sizeof appliedRenderStates);
    std::memset(requestedRenderStates, 0xFF, sizeof requestedRenderStates);
    std::memset(appliedStageStates, 0xFF, sizeof appliedStageStates);
    std::memset(requestedStageStates, 0xFF, sizeof requestedStageStates);
    std::memset(renderDirty, 0, sizeof renderDirty);
    std::memset(stageDirty, 0, sizeof stageDirty);
    renderDirtyGroups = 0;
    stageDirtyGroups = 0;
    textureDirty = 0;
    for (int stage = 0; stage < StageCount; ++stage) {
        appliedTextures[stage] = nullptr;
        requestedTextures[stage] = nullptr;
    }
}

void CRenderer::SetRenderState(uint32_t id, uint32_t value) {
    currentConfig = nullptr;
    if (requestedRenderStates[id] == value) return;
    requestedRenderStates[id] = value;
    renderDirty[id >> 5] |= 1u << (id & 31);
    renderDirtyGroups |= 1u << (id >> 5);
}

void CRenderer::SetStageState(uint32_t stage, uint32_t id, uint32_t value) {
    currentConfig = nullptr;
    uint32_t index = stage * StageStateCount + id;
    if (requestedStageStates[index] == value) return;
    requestedStageStates[index] = value;
    stageDirty[stage] |= 1u << id;
    stageDirtyGroups |= 1u << stage;
}

void CRenderer::RequestStageTexture(CTexture* texture, uint32_t stage) {
    currentConfig = nullptr;
    if (texture == appliedTextures[stage]) {
        textureDirty &= ~(1u << stage);
        return;
    }
    textureDirty |= 1u << stage;
    requestedTextures[stage] = texture;
}

void CRenderer::ForceStageTexture(CTexture* texture, uint32_t stage) {
    currentConfig = nullptr;
    textureDirty |= 1u << stage;
    requestedTextures[stage] = texture;
}

// Textures go first: applying one requests stage and render state, which the later steps send.
void CRenderer::ApplyState() {
    for (uint32_t pending = textureDirty; pending; pending &= pending - 1) {
        uint32_t stage = uint32_t(std::countr_zero(pending));
        ApplyStageTexture(requestedTextures[stage], stage);
    }
    textureDirty = 0;

    for (uint32_t groups = stageDirtyGroups; groups; groups &= groups - 1) {
        uint32_t stage = uint32_t(std::countr_zero(groups));
        uint32_t* requested = requestedStageStates + stage * StageStateCount;
        uint32_t* applied = appliedStageStates + stage * StageStateCount;
        for (uint32_t mask = stageDirty[stage]; mask; mask &= mask - 1) {
            uint32_t id = uint32_t(std::countr_zero(mask));
            if (requested[id] == applied[id]) continue;
            if (device)
                device->SetTextureStageState(stage, D3DTEXTURESTAGESTATETYPE(id), requested[id]);
            applied[id] = requested[id];
        }
        stageDirty[stage] = 0;
    }
    stageDirtyGroups = 0;

    for (uint32_t groups = renderDirtyGroups; groups; groups &= groups - 1) {
        uint32_t group = uint32_t(std::countr_zero(groups));
        for (uint32_t mask = renderDirty[group]; mask; mask &= mask - 1) {
            uint32_t id = group << 5 | uint32_t(std::countr_zero(mask));
            if (requestedRenderStates[id] == appliedRenderStates[id]) continue;
            if (device) device->SetRenderState(D3DRENDERSTATETYPE(id), requestedRenderStates[id]);
            appliedRenderStates[id] = requestedRenderStates[id];
        }
        renderDirty[group] = 0;
    }
    renderDirtyGroups = 0;
}

void CRenderer::ApplyStageTexture(CTexture* texture, uint32_t stage) {
    appliedTextures[stage] = texture;
    uint32_t flags = texture ? texture->flags : 0;
    SetStageState(stage, D3DTSS_ADDRESS,
                  flags & TextureFlagClamp ? D3DTADDRESS_CLAMP : D3DTADDRESS_WRAP);
    SetRenderState(D3DRENDERSTATE_ALPHATESTENABLE, flags & TextureFlagKeyed ? 1 : 0);
    SetStageState(stage, D3DTSS_MIPFILTER,
                  flags & TextureFlagMipChain ? D3DTFP_LINEAR : D3DTFP_NONE);
    if (flags & TextureFlagAnisotropic) {
        SetStageState(stage, D3DTSS_MAGFILTER, D3DTFG_ANISOTROPIC);
        SetStageState(stage, D3DTSS_MINFILTER, D3DTFN_ANISOTROPIC);
        SetStageState(stage, D3DTSS_MAXANISOTROPY, 255);
    } else {
        SetStageState(stage, D3DTSS_MAGFILTER, D3DTFG_LINEAR);
        SetStageState(stage, D3DTSS_MINFILTER, D3DTFN_LINEAR);
        SetStageState(stage, D3DTSS_MAXANISOTROPY, 1);
    }
    if (device) {
        void* surface = texture ? texture->surface : nullptr;
        device->SetTexture(stage, static_cast<LPDIRECTDRAWSURFACE7>(surface));
    }
}

void CRenderer::SetAlphaMode(bool on) {
    if (on) {
        SetRenderState(D3DRENDERSTATE_ZWRITEENABLE, 0);
        SetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE, 1);
        SetRenderState(D3DRENDERSTATE_ALPHATESTENABLE, 0);
    } else {
        SetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE, 0);
        SetRenderState(D3DRENDERSTATE_ZWRITEENABLE, 1);
    }
}

void CRenderer::SetDefaultStages(bool twoLayers) {
    SetStageState(0, D3DTSS_COLORARG1, D3DTA_TEXTURE);
    SetStageState(0, D3DTSS_COLORARG2, D3DTA_CURRENT);
    SetStageState(0, D3DTSS_COLOROP, D3DTOP_MODULATE);
    SetStageState(0, D3DTSS_ALPHAARG1, D3DTA_TEXTURE);
    SetStageState(0, D3DTSS_ALPHAARG2, D3DTA_CURRENT);
    SetStageState(0, D3DTSS_ALPHAOP, D3DTOP_SELECTARG1);
    if (!twoLayers) {
        SetStageState(1, D3DTSS_COLOROP, D3DTOP_DISABLE);
        SetStageState(1, D3DTSS_ALPHAOP, D3DTOP_DISABLE);
        return;
    }
    SetStageState(1, D3DTSS_COLORARG1, D3DTA_TEXTURE);
    SetStageState(1, D3DTSS_COLORARG2, D3DTA_CURRENT);
    SetStageState(1, D3DTSS_COLOROP, D3DTOP_BLENDTEXTUREALPHA);
    SetStageState(1, D3DTSS_ALPHAARG1, D3DTA_TEXTURE);
    SetStageState(1, D3DTSS_ALPHAARG2, D3DTA_CURRENT);
    SetStageState(1, D3DTSS_ALPHAOP, D3DTOP_SELECTARG1);
}
