// The GL side of the 3D device: turns one draw with the device's state into GL calls on the
// current context, rendering into a framebuffer object per render target. Only the device
// objects call this; everything here runs on the one engine thread.
#pragma once

#include <cstdint>

#include "platform/dx7/d3d7.h"
#include "platform/dx7/surface_store.h"

struct DxLightSlot {
    D3DLIGHT7 light;
    bool set;
    bool enabled;
};

constexpr int DxMaxLights = 8;
constexpr int DxMaxStages = 8;

// All the device state a draw reads, as the device holds it.
struct DxDrawState {
    DWORD renderStates[256];
    DWORD stageStates[DxMaxStages][32];
    DxSurfaceStore* textures[DxMaxStages];
    D3DMATRIX world;
    D3DMATRIX view;
    D3DMATRIX projection;
    D3DVIEWPORT7 viewport;
    D3DMATERIAL7 material;
    DxLightSlot lights[DxMaxLights];
    DxSurfaceStore* target;
    DxSurfaceStore* depth;  // the Z buffer attached to the target, or null
};

struct DxPrimitive {
    D3DPRIMITIVETYPE type;
    DWORD fvf;
    const uint8_t* vertices;  // the first vertex drawn
    DWORD vertexCount;
    const WORD* indices;      // null for a plain draw; each below vertexCount (the device checks)
    DWORD indexCount;
};

class DxGlBackend {
public:
    // The backend on the current GL context; null in record-only mode or where no context can
    // be made (DxGlFailure() says why).
    static DxGlBackend* Get();

    virtual ~DxGlBackend() = default;
    virtual void Draw(const DxDrawState& state, const DxPrimitive& primitive) = 0;
    virtual void Clear(const DxDrawState& state, DWORD count, const D3DRECT* rects, DWORD flags,
                       D3DCOLOR colour, D3DVALUE z, DWORD stencil) = 0;
    // Brings a render target's pixels back into store.bytes when GL is newer.
    virtual void ReadBack(DxSurfaceStore& store) = 0;
    // The surface is going: its GL texture, framebuffer and depth buffer go too.
    virtual void Forget(const DxSurfaceStore& store) = 0;
};
