#include <cstring>
#include <initializer_list>

#include "base/diagnostics.h"
#include "engine/render/renderer.h"
#include "engine/texture/texture.h"

namespace {

struct ValidationCause {
    HRESULT result;
    const char* line;
};

constexpr ValidationCause ValidationCauses[] = {
    {D3DERR_WRONGTEXTUREFORMAT, "wrong texture format"},
    {D3DERR_UNSUPPORTEDCOLOROPERATION, "unsup colour op"},
    {D3DERR_UNSUPPORTEDCOLORARG, "unsup colour arg"},
    {D3DERR_UNSUPPORTEDALPHAOPERATION, "unsup alpha op"},
    {D3DERR_UNSUPPORTEDALPHAARG, "unsup alpha arg"},
    {D3DERR_TOOMANYOPERATIONS, "too many"},
    {D3DERR_CONFLICTINGTEXTUREFILTER, "con tex filter"},
    {D3DERR_UNSUPPORTEDFACTORVALUE, "unsup factor arg"},
    {D3DERR_CONFLICTINGRENDERSTATE, "Conf render state"},
    {D3DERR_UNSUPPORTEDTEXTUREFILTER, "unsup tex filter"},
    {D3DERR_CONFLICTINGTEXTUREPALETTE, "palette"},
    {DDERR_INVALIDPARAMS, "invalid params"},
    {DDERR_INVALIDOBJECT, "invalid object"},
};

// The stage block's words, in the order a CMultiMesh keeps them.
constexpr D3DTEXTURESTAGESTATETYPE BlockStates[6] = {
    D3DTSS_COLORARG1, D3DTSS_COLORARG2, D3DTSS_COLOROP,
    D3DTSS_ALPHAARG1, D3DTSS_ALPHAARG2, D3DTSS_ALPHAOP,
};

bool OnePass(CRenderer* renderer) {
    DWORD passes = 0;
    return renderer->ValidateState(&passes) == D3D_OK && passes == 1;
}

CTexture* BlendTestTexture() {
    CTexture* texture = CreateTexture(32, 32, 0x8888);
    std::memset(texture->pixels, 0xFF, TextureBlockSize(32, 32, 0x8888, 0));
    return texture;
}

}  // namespace

HRESULT CRenderer::ValidateState(DWORD* passes) {
    ApplyState();
    *passes = 0;
    if (!device) return DDERR_INVALIDOBJECT;
    return device->ValidateDevice(passes);
}

bool CRenderer::ValidateStageSetup(int stageCount, const uint32_t* const* blocks,
                                   const uint8_t* coordinates, CTexture* const* textures) {
    for (int stage = 0; stage < stageCount; ++stage) {
        SetStageState(uint32_t(stage), D3DTSS_TEXCOORDINDEX, coordinates[stage]);
        for (int word = 0; word < 6; ++word)
            SetStageState(uint32_t(stage), BlockStates[word], blocks[stage][word]);
        RequestStageTexture(textures[stage], uint32_t(stage));
    }
    if (stageCount < StageCount) {
        SetStageState(uint32_t(stageCount), D3DTSS_COLOROP, D3DTOP_DISABLE);
        SetStageState(uint32_t(stageCount), D3DTSS_ALPHAOP, D3DTOP_DISABLE);
    }
    DWORD passes = 0;
    HRESULT result = ValidateState(&passes);
    if (result == D3D_OK && passes == 1) return true;
    CorvaneDebug("FAILED TO VALIDATE");
    for (const ValidationCause& cause : ValidationCauses)
        if (cause.result == result) CorvaneDebug("%s", cause.line);
    return false;
}

uint32_t CRenderer::TestTextureBlend(bool applyOnly) {
    if (applyOnly) {
        ApplyState();
        return 0;
    }
    textureBlend = 0;
    if (deviceDesc.wMaxTextureBlendStages < 2 || deviceDesc.wMaxSimultaneousTextures < 2) return 0;

    CTexture* first = BlendTestTexture();
    CTexture* second = BlendTestTexture();
    LoadDeviceTexture(first);
    LoadDeviceTexture(second);
    RequestStageTexture(first, 0);
    RequestStageTexture(second, 1);
    // The two-layer stages, but stage 0 modulating by the diffuse colour; the cache sends only
    // the differences, in its own order, so the order of these requests doesn't matter.
    SetDefaultStages(true);
    SetStageState(0, D3DTSS_COLORARG2, D3DTA_DIFFUSE);
    SetStageState(0, D3DTSS_TEXCOORDINDEX, 0);
    SetStageState(1, D3DTSS_TEXCOORDINDEX, 1);

    uint32_t result = 0;
    if (OnePass(this)) {
        result = 0xF0000000u;
    } else {
        SetStageState(1, D3DTSS_COLOROP, D3DTOP_MODULATE);
        if (OnePass(this)) result = 0xF0000001u;
    }

    RequestStageTexture(nullptr, 0);
    RequestStageTexture(nullptr, 1);
    SetDefaultStages(false);
    for (uint32_t stage = 1; stage <= 2; ++stage) {
        SetStageState(stage, D3DTSS_COLOROP, D3DTOP_DISABLE);
        SetStageState(stage, D3DTSS_ALPHAOP, D3DTOP_DISABLE);
    }
    ApplyState();
    // Out of this device's table first: FreeTexture reaches only the devices on the open list.
    for (CTexture* texture : {first, second})
        if (IsOnDevice(texture)) FreeDeviceTexture(texture);
    FreeTexture(first);
    FreeTexture(second);
    textureBlend = result;
    return result;
}
