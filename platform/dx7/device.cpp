// The 3D device: keeps the whole fixed-function state, checks each draw against its vertices,
// and hands it to the GL side, or only records it.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "platform/dx7/dx_objects.h"

namespace {

constexpr DWORD FirstTextureTransform = D3DTRANSFORMSTATE_TEXTURE0;

DWORD FloatBits(float value) {
    DWORD bits;
    memcpy(&bits, &value, sizeof bits);
    return bits;
}

D3DMATRIX Identity() {
    D3DMATRIX m{};
    for (int i = 0; i < 4; ++i) m.m[i][i] = 1.0f;
    return m;
}

// The state a new device starts with, as Direct3D 7 documents it.
void SetDefaults(DxDrawState& s, bool hasDepth) {
    memset(s.renderStates, 0, sizeof s.renderStates);
    DWORD* rs = s.renderStates;
    rs[D3DRENDERSTATE_TEXTUREPERSPECTIVE] = 1;
    rs[D3DRENDERSTATE_ZENABLE] = hasDepth ? D3DZB_TRUE : D3DZB_FALSE;
    rs[D3DRENDERSTATE_FILLMODE] = D3DFILL_SOLID;
    rs[D3DRENDERSTATE_SHADEMODE] = D3DSHADE_GOURAUD;
    rs[D3DRENDERSTATE_ZWRITEENABLE] = 1;
    rs[D3DRENDERSTATE_LASTPIXEL] = 1;
    rs[D3DRENDERSTATE_SRCBLEND] = D3DBLEND_ONE;
    rs[D3DRENDERSTATE_DESTBLEND] = D3DBLEND_ZERO;
    rs[D3DRENDERSTATE_CULLMODE] = D3DCULL_CCW;
    rs[D3DRENDERSTATE_ZFUNC] = D3DCMP_LESSEQUAL;
    rs[D3DRENDERSTATE_ALPHAFUNC] = D3DCMP_ALWAYS;
    rs[D3DRENDERSTATE_FOGSTART] = FloatBits(0.0f);
    rs[D3DRENDERSTATE_FOGEND] = FloatBits(1.0f);
    rs[D3DRENDERSTATE_FOGDENSITY] = FloatBits(1.0f);
    rs[D3DRENDERSTATE_STENCILFAIL] = 1;  // keep
    rs[D3DRENDERSTATE_STENCILZFAIL] = 1;
    rs[D3DRENDERSTATE_STENCILPASS] = 1;
    rs[D3DRENDERSTATE_STENCILFUNC] = D3DCMP_ALWAYS;
    rs[D3DRENDERSTATE_STENCILMASK] = 0xFFFFFFFFu;
    rs[D3DRENDERSTATE_STENCILWRITEMASK] = 0xFFFFFFFFu;
    rs[D3DRENDERSTATE_TEXTUREFACTOR] = 0xFFFFFFFFu;
    rs[D3DRENDERSTATE_CLIPPING] = 1;
    rs[D3DRENDERSTATE_LIGHTING] = 1;
    rs[D3DRENDERSTATE_COLORVERTEX] = 1;
    rs[D3DRENDERSTATE_LOCALVIEWER] = 1;
    rs[D3DRENDERSTATE_DIFFUSEMATERIALSOURCE] = D3DMCS_COLOR1;
    rs[D3DRENDERSTATE_SPECULARMATERIALSOURCE] = D3DMCS_COLOR2;
    rs[D3DRENDERSTATE_AMBIENTMATERIALSOURCE] = D3DMCS_MATERIAL;
    rs[D3DRENDERSTATE_EMISSIVEMATERIALSOURCE] = D3DMCS_MATERIAL;
    memset(s.stageStates, 0, sizeof s.stageStates);
    for (int stage = 0; stage < DxMaxStages; ++stage) {
        DWORD* ts = s.stageStates[stage];
        ts[D3DTSS_COLOROP] = stage == 0 ? D3DTOP_MODULATE : D3DTOP_DISABLE;
        ts[D3DTSS_COLORARG1] = D3DTA_TEXTURE;
        ts[D3DTSS_COLORARG2] = D3DTA_CURRENT;
        ts[D3DTSS_ALPHAOP] = stage == 0 ? D3DTOP_SELECTARG1 : D3DTOP_DISABLE;
        ts[D3DTSS_ALPHAARG1] = D3DTA_TEXTURE;
        ts[D3DTSS_ALPHAARG2] = D3DTA_CURRENT;
        ts[D3DTSS_TEXCOORDINDEX] = DWORD(stage);
        ts[D3DTSS_ADDRESS] = D3DTADDRESS_WRAP;
        ts[D3DTSS_ADDRESSU] = D3DTADDRESS_WRAP;
        ts[D3DTSS_ADDRESSV] = D3DTADDRESS_WRAP;
        ts[D3DTSS_MAGFILTER] = D3DTFG_POINT;
        ts[D3DTSS_MINFILTER] = D3DTFN_POINT;
        ts[D3DTSS_MIPFILTER] = D3DTFP_NONE;
        ts[D3DTSS_MAXANISOTROPY] = 1;
        s.textures[stage] = nullptr;
    }
    s.world = s.view = s.projection = Identity();
    s.material = D3DMATERIAL7{};
    for (DxLightSlot& slot : s.lights) slot = DxLightSlot{D3DLIGHT7{}, false, false};
}

std::string MatrixText(const D3DMATRIX& m) {
    std::string text;
    char value[32];
    for (int i = 0; i < 4; ++i) {
        for (int j = 0; j < 4; ++j) {
            snprintf(value, sizeof value, "%s%g", i + j ? " " : "", double(m.m[i][j]));
            text += value;
        }
    }
    return text;
}

std::string ColourText(const D3DCOLORVALUE& c) {
    char text[96];
    snprintf(text, sizeof text, "%g %g %g %g", double(c.r), double(c.g), double(c.b), double(c.a));
    return text;
}

bool ValidType(D3DPRIMITIVETYPE type) {
    return type >= D3DPT_POINTLIST && type <= D3DPT_TRIANGLEFAN;
}

bool RenderableTarget(const DxSurface& surface) {
    return (surface.store.caps & DDSCAPS_3DDEVICE) && !surface.layout.depth &&
           !surface.layout.fourCc;
}

}  // namespace

DxDevice* DxAsDevice(IDirect3DDevice7* device) {
    return dynamic_cast<DxDevice*>(device);
}

DxGlBackend* DxBackendFor(bool recordOnly) {
    return recordOnly ? nullptr : DxGlBackend::Get();
}

DxDevice::DxDevice(DxDirect3D* ownerObject, const DxDeviceEntry& deviceEntry,
                   DxSurface* targetSurface)
    : owner(ownerObject),
      entry(deviceEntry),
      target(targetSurface),
      recordOnly(DxGetRendering() == DxRendering::RecordOnly) {
    owner->Grab();
    target->Grab();
    state.target = &target->store;
    state.depth = target->AttachedDepth();
    SetDefaults(state, state.depth != nullptr);
    FullViewport();
    for (D3DMATRIX& m : textureTransforms) m = Identity();
}

DxDevice::~DxDevice() {
    for (DxSurface*& texture : textures) DxDrop(texture);
    DxDrop(target);
    owner->Drop();
}

void DxDevice::FullViewport() {
    state.viewport = D3DVIEWPORT7{0, 0, target->store.width, target->store.height, 0.0f, 1.0f};
}

HRESULT DxDevice::GetCaps(LPD3DDEVICEDESC7 desc) {
    DxNote("GetCaps()");
    if (!desc) return DDERR_INVALIDPARAMS;
    *desc = entry.desc;
    return D3D_OK;
}

HRESULT DxDevice::EnumTextureFormats(LPD3DENUMPIXELFORMATSCALLBACK callback, LPVOID context) {
    DxNote("EnumTextureFormats()");
    if (!callback) return DDERR_INVALIDPARAMS;
    std::vector<DDPIXELFORMAT> formats = owner->owner->adapter.textureFormats;
    for (DDPIXELFORMAT& format : formats)
        if (callback(&format, context) == DDENUMRET_CANCEL) break;
    return D3D_OK;
}

HRESULT DxDevice::BeginScene() {
    DxNote("BeginScene()");
    if (inScene) return D3DERR_SCENE_IN_SCENE;
    inScene = true;
    return D3D_OK;
}

HRESULT DxDevice::EndScene() {
    DxNote("EndScene()");
    if (!inScene) return D3DERR_SCENE_NOT_IN_SCENE;
    inScene = false;
    return D3D_OK;
}

HRESULT DxDevice::SetRenderTarget(LPDIRECTDRAWSURFACE7 surfaceInterface, DWORD flags) {
    DxNote("SetRenderTarget(%s, %u)", DxRef(surfaceInterface).c_str(), flags);
    DxSurface* surface = surfaceInterface ? DxAsSurface(surfaceInterface) : nullptr;
    if (!surface || surface->owner != target->owner) return DDERR_INVALIDPARAMS;
    if (!RenderableTarget(*surface)) return DDERR_INVALIDCAPS;
    surface->Grab();
    DxDrop(target);
    target = surface;
    state.target = &target->store;
    state.depth = target->AttachedDepth();
    // A new target is drawn whole until the engine says otherwise.
    FullViewport();
    return D3D_OK;
}

HRESULT DxDevice::GetRenderTarget(LPDIRECTDRAWSURFACE7* out) {
    DxNote("GetRenderTarget()");
    if (!out) return DDERR_INVALIDPARAMS;
    target->Grab();
    *out = target;
    return D3D_OK;
}

HRESULT DxDevice::Clear(DWORD count, LPD3DRECT rects, DWORD flags, D3DCOLOR colour, D3DVALUE z,
                        DWORD stencil) {
    DxNote("Clear(%u, %u, 0x%08X, %g, %u)", count, flags, colour, double(z), stencil);
    const DWORD known = D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL;
    if (!flags || (flags & ~known) || (count && !rects)) return DDERR_INVALIDPARAMS;
    if (!(z >= 0.0f && z <= 1.0f)) return DDERR_INVALIDPARAMS;
    state.target = &target->store;
    state.depth = target->AttachedDepth();
    DxSurfaceStore* depth = state.depth;
    if ((flags & (D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL)) && !depth) return D3DERR_ZBUFFER_NOTPRESENT;
    DxPixelLayout depthLayout{};
    if (depth) DxDescribePixels(depth->format, depthLayout);
    if ((flags & D3DCLEAR_STENCIL) && depthLayout.alpha.bits == 0)
        return D3DERR_STENCILBUFFER_NOTPRESENT;

    if (DxGlBackend* backend = DxBackendFor(recordOnly)) {
        backend->Clear(state, count, rects, flags, colour, z, stencil);
        return D3D_OK;
    }
    // Without GL the memory is cleared, so that what the engine reads back still makes sense.
    const D3DVIEWPORT7& vp = state.viewport;
    D3DRECT whole = {LONG(vp.dwX), LONG(vp.dwY), LONG(vp.dwX + vp.dwWidth),
                     LONG(vp.dwY + vp.dwHeight)};
    std::vector<D3DRECT> areas;
    if (count == 0) areas.push_back(whole);
    for (DWORD i = 0; i < count; ++i) {
        D3DRECT r = rects[i];
        r.x1 = std::max(r.x1, whole.x1), r.y1 = std::max(r.y1, whole.y1);
        r.x2 = std::min(r.x2, whole.x2), r.y2 = std::min(r.y2, whole.y2);
        if (r.x1 < r.x2 && r.y1 < r.y2) areas.push_back(r);
    }
    auto fill = [&](DxSurfaceStore& store, int bytes, uint32_t keep, uint32_t value) {
        for (const D3DRECT& r : areas) {
            LONG right = std::min(r.x2, LONG(store.width)),
                 bottom = std::min(r.y2, LONG(store.height));
            for (LONG y = std::max(r.y1, 0); y < bottom; ++y) {
                uint8_t* row = store.bytes.data() + size_t(y) * size_t(store.pitch);
                for (LONG x = std::max(r.x1, 0); x < right; ++x) {
                    uint8_t* at = row + size_t(x) * size_t(bytes);
                    DxWritePixel(at, bytes, (DxReadPixel(at, bytes) & keep) | value);
                }
            }
        }
        ++store.cpuVersion;
    };
    if (flags & D3DCLEAR_TARGET) {
        fill(target->store, target->layout.bytes, 0, DxFromArgb(target->layout, colour));
    }
    if (flags & (D3DCLEAR_ZBUFFER | D3DCLEAR_STENCIL)) {
        const DxChannel& zc = depthLayout.red;
        const DxChannel& sc = depthLayout.alpha;
        uint32_t keep = 0xFFFFFFFFu, value = 0;
        if (flags & D3DCLEAR_ZBUFFER) {
            double top = zc.bits >= 32 ? 4294967295.0 : double((uint64_t(1) << zc.bits) - 1);
            keep &= ~zc.mask;
            value |= (uint32_t(std::lround(double(z) * top)) << zc.shift) & zc.mask;
        }
        if (flags & D3DCLEAR_STENCIL) {
            keep &= ~sc.mask;
            value |= (stencil << sc.shift) & sc.mask;
        }
        fill(*depth, depthLayout.bytes, keep, value);
    }
    return D3D_OK;
}

HRESULT DxDevice::SetTransform(D3DTRANSFORMSTATETYPE type, LPD3DMATRIX matrix) {
    DxNote("SetTransform(%u, %s)", DWORD(type), matrix ? MatrixText(*matrix).c_str() : "null");
    if (!matrix) return DDERR_INVALIDPARAMS;
    switch (type) {
        case D3DTRANSFORMSTATE_WORLD:
            state.world = *matrix;
            return D3D_OK;
        case D3DTRANSFORMSTATE_VIEW:
            state.view = *matrix;
            return D3D_OK;
        case D3DTRANSFORMSTATE_PROJECTION:
            state.projection = *matrix;
            return D3D_OK;
        default:
            break;
    }
    DWORD stage = DWORD(type) - FirstTextureTransform;
    if (DWORD(type) < FirstTextureTransform || stage >= DxMaxStages) return DDERR_INVALIDPARAMS;
    textureTransforms[stage] = *matrix;
    return D3D_OK;
}

HRESULT DxDevice::GetTransform(D3DTRANSFORMSTATETYPE type, LPD3DMATRIX matrix) {
    DxNote("GetTransform(%u)", DWORD(type));
    if (!matrix) return DDERR_INVALIDPARAMS;
    switch (type) {
        case D3DTRANSFORMSTATE_WORLD:
            *matrix = state.world;
            return D3D_OK;
        case D3DTRANSFORMSTATE_VIEW:
            *matrix = state.view;
            return D3D_OK;
        case D3DTRANSFORMSTATE_PROJECTION:
            *matrix = state.projection;
            return D3D_OK;
        default:
            break;
    }
    DWORD stage = DWORD(type) - FirstTextureTransform;
    if (DWORD(type) < FirstTextureTransform || stage >= DxMaxStages) return DDERR_INVALIDPARAMS;
    *matrix = textureTransforms[stage];
    return D3D_OK;
}

HRESULT DxDevice::SetViewport(LPD3DVIEWPORT7 viewport) {
    if (!viewport) {
        DxNote("SetViewport(null)");
        return DDERR_INVALIDPARAMS;
    }
    const D3DVIEWPORT7& v = *viewport;
    DxNote("SetViewport(%u, %u, %u, %u, %g, %g)", v.dwX, v.dwY, v.dwWidth, v.dwHeight,
           double(v.dvMinZ), double(v.dvMaxZ));
    if (v.dwWidth == 0 || v.dwHeight == 0) return DDERR_INVALIDPARAMS;
    if (uint64_t(v.dwX) + v.dwWidth > target->store.width ||
        uint64_t(v.dwY) + v.dwHeight > target->store.height)
        return DDERR_INVALIDPARAMS;
    if (!(v.dvMinZ >= 0.0f && v.dvMinZ <= v.dvMaxZ && v.dvMaxZ <= 1.0f)) return DDERR_INVALIDPARAMS;
    state.viewport = v;
    return D3D_OK;
}

HRESULT DxDevice::GetViewport(LPD3DVIEWPORT7 viewport) {
    DxNote("GetViewport()");
    if (!viewport) return DDERR_INVALIDPARAMS;
    *viewport = state.viewport;
    return D3D_OK;
}

HRESULT DxDevice::SetMaterial(LPD3DMATERIAL7 material) {
    if (!material) {
        DxNote("SetMaterial(null)");
        return DDERR_INVALIDPARAMS;
    }
    DxNote("SetMaterial(%s, %s, %s, %s, %g)", ColourText(material->dcvDiffuse).c_str(),
           ColourText(material->dcvAmbient).c_str(), ColourText(material->dcvSpecular).c_str(),
           ColourText(material->dcvEmissive).c_str(), double(material->dvPower));
    state.material = *material;
    return D3D_OK;
}

HRESULT DxDevice::GetMaterial(LPD3DMATERIAL7 material) {
    DxNote("GetMaterial()");
    if (!material) return DDERR_INVALIDPARAMS;
    *material = state.material;
    return D3D_OK;
}

HRESULT DxDevice::SetLight(DWORD index, LPD3DLIGHT7 light) {
    if (!light) {
        DxNote("SetLight(%u, null)", index);
        return DDERR_INVALIDPARAMS;
    }
    DxNote("SetLight(%u, %u, %s, %g %g %g, %g %g %g, %g)", index, DWORD(light->dltType),
           ColourText(light->dcvDiffuse).c_str(), double(light->dvPosition.x),
           double(light->dvPosition.y), double(light->dvPosition.z), double(light->dvDirection.x),
           double(light->dvDirection.y), double(light->dvDirection.z), double(light->dvRange));
    if (index >= DxMaxLights) return DDERR_INVALIDPARAMS;
    DWORD type = light->dltType;
    if (type != D3DLIGHT_POINT && type != D3DLIGHT_SPOT && type != D3DLIGHT_DIRECTIONAL)
        return DDERR_INVALIDPARAMS;
    const D3DVECTOR& d = light->dvDirection;
    if (type != D3DLIGHT_POINT && d.x == 0 && d.y == 0 && d.z == 0) return DDERR_INVALIDPARAMS;
    if (type != D3DLIGHT_DIRECTIONAL && !(light->dvRange >= 0.0f)) return DDERR_INVALIDPARAMS;
    if (type == D3DLIGHT_SPOT && !(light->dvTheta >= 0.0f && light->dvTheta <= light->dvPhi))
        return DDERR_INVALIDPARAMS;
    state.lights[index].light = *light;
    state.lights[index].set = true;
    return D3D_OK;
}

HRESULT DxDevice::GetLight(DWORD index, LPD3DLIGHT7 light) {
    DxNote("GetLight(%u)", index);
    if (!light || index >= DxMaxLights || !state.lights[index].set) return DDERR_INVALIDPARAMS;
    *light = state.lights[index].light;
    return D3D_OK;
}

HRESULT DxDevice::LightEnable(DWORD index, BOOL enable) {
    DxNote("LightEnable(%u, %d)", index, enable);
    if (index >= DxMaxLights) return DDERR_INVALIDPARAMS;
    DxLightSlot& slot = state.lights[index];
    if (!slot.set) {
        // As published, enabling a light never set gives it a white directional light along z.
        slot.light = D3DLIGHT7{};
        slot.light.dltType = D3DLIGHT_DIRECTIONAL;
        slot.light.dcvDiffuse = {1.0f, 1.0f, 1.0f, 0.0f};
        slot.light.dvDirection = {0.0f, 0.0f, 1.0f};
        slot.set = true;
    }
    slot.enabled = enable != 0;
    return D3D_OK;
}

HRESULT DxDevice::SetRenderState(D3DRENDERSTATETYPE which, DWORD value) {
    DxNote("SetRenderState(%u, %u)", DWORD(which), value);
    if (DWORD(which) == 0 || DWORD(which) >= 256) return DDERR_INVALIDPARAMS;
    state.renderStates[which] = value;
    return D3D_OK;
}

HRESULT DxDevice::GetRenderState(D3DRENDERSTATETYPE which, LPDWORD value) {
    DxNote("GetRenderState(%u)", DWORD(which));
    if (!value || DWORD(which) == 0 || DWORD(which) >= 256) return DDERR_INVALIDPARAMS;
    *value = state.renderStates[which];
    return D3D_OK;
}

HRESULT DxDevice::GetTexture(DWORD stage, LPDIRECTDRAWSURFACE7* out) {
    DxNote("GetTexture(%u)", stage);
    if (!out || stage >= DxMaxStages) return DDERR_INVALIDPARAMS;
    if (textures[stage]) textures[stage]->Grab();
    *out = textures[stage];
    return D3D_OK;
}

HRESULT DxDevice::SetTexture(DWORD stage, LPDIRECTDRAWSURFACE7 textureInterface) {
    DxNote("SetTexture(%u, %s)", stage, DxRef(textureInterface).c_str());
    if (stage >= DxMaxStages) return DDERR_INVALIDPARAMS;
    DxSurface* texture = textureInterface ? DxAsSurface(textureInterface) : nullptr;
    if (textureInterface && (!texture || !(texture->store.caps & DDSCAPS_TEXTURE)))
        return DDERR_INVALIDPARAMS;
    if (texture) texture->Grab();
    DxDrop(textures[stage]);
    textures[stage] = texture;
    state.textures[stage] = texture ? &texture->store : nullptr;
    return D3D_OK;
}

HRESULT DxDevice::GetTextureStageState(DWORD stage, D3DTEXTURESTAGESTATETYPE which, LPDWORD value) {
    DxNote("GetTextureStageState(%u, %u)", stage, DWORD(which));
    if (!value || stage >= DxMaxStages || DWORD(which) == 0 ||
        DWORD(which) > D3DTSS_TEXTURETRANSFORMFLAGS)
        return DDERR_INVALIDPARAMS;
    *value = state.stageStates[stage][which];
    return D3D_OK;
}

HRESULT DxDevice::SetTextureStageState(DWORD stage, D3DTEXTURESTAGESTATETYPE which, DWORD value) {
    DxNote("SetTextureStageState(%u, %u, %u)", stage, DWORD(which), value);
    if (stage >= DxMaxStages || DWORD(which) == 0 || DWORD(which) > D3DTSS_TEXTURETRANSFORMFLAGS)
        return DDERR_INVALIDPARAMS;
    state.stageStates[stage][which] = value;
    // The old single address state sets both directions, as published.
    if (which == D3DTSS_ADDRESS) {
        state.stageStates[stage][D3DTSS_ADDRESSU] = value;
        state.stageStates[stage][D3DTSS_ADDRESSV] = value;
    }
    return D3D_OK;
}

HRESULT DxDevice::Submit(D3DPRIMITIVETYPE type, DWORD fvf, const uint8_t* vertices,
                         DWORD vertexCount, bool indexed, const WORD* indices, DWORD indexCount) {
    if (!ValidType(type)) return DDERR_INVALIDPARAMS;
    if (vertexCount > D3DMAXNUMVERTICES || indexCount > D3DMAXNUMVERTICES)
        return DDERR_INVALIDPARAMS;
    for (DWORD i = 0; indexed && i < indexCount; ++i)
        if (indices[i] >= vertexCount) return DDERR_INVALIDPARAMS;
    if ((indexed ? indexCount : vertexCount) == 0) return D3D_OK;  // nothing to draw is no error
    DxGlBackend* backend = DxBackendFor(recordOnly);
    if (!backend) return D3D_OK;
    state.target = &target->store;
    state.depth = target->AttachedDepth();
    backend->Draw(state, DxPrimitive{type, fvf, vertices, vertexCount, indexed ? indices : nullptr,
                                     indexed ? indexCount : 0});
    return D3D_OK;
}

HRESULT DxDevice::DrawPrimitive(D3DPRIMITIVETYPE type, DWORD fvf, LPVOID vertices, DWORD count,
                                DWORD flags) {
    DxNote("DrawPrimitive(%u, %u, %u, %u)", DWORD(type), fvf, count, flags);
    if (FvfVertexSize(fvf) == 0 || (count && !vertices)) return DDERR_INVALIDPARAMS;
    return Submit(type, fvf, static_cast<const uint8_t*>(vertices), count, false, nullptr, 0);
}

HRESULT DxDevice::DrawIndexedPrimitive(D3DPRIMITIVETYPE type, DWORD fvf, LPVOID vertices,
                                       DWORD vertexCount, WORD* indices, DWORD indexCount,
                                       DWORD flags) {
    DxNote("DrawIndexedPrimitive(%u, %u, %u, %u, %u)", DWORD(type), fvf, vertexCount, indexCount,
           flags);
    if (FvfVertexSize(fvf) == 0 || (vertexCount && !vertices) || (indexCount && !indices))
        return DDERR_INVALIDPARAMS;
    return Submit(type, fvf, static_cast<const uint8_t*>(vertices), vertexCount, true, indices,
                  indexCount);
}

HRESULT DxDevice::DrawPrimitiveVB(D3DPRIMITIVETYPE type, LPDIRECT3DVERTEXBUFFER7 bufferInterface,
                                  DWORD startVertex, DWORD vertexCount, DWORD flags) {
    DxNote("DrawPrimitiveVB(%u, %s, %u, %u, %u)", DWORD(type), DxRef(bufferInterface).c_str(),
           startVertex, vertexCount, flags);
    DxVertexBuffer* buffer = bufferInterface ? DxAsVertexBuffer(bufferInterface) : nullptr;
    if (!buffer) return DDERR_INVALIDPARAMS;
    if (buffer->locked) return D3DERR_VERTEXBUFFERLOCKED;
    if (uint64_t(startVertex) + vertexCount > buffer->desc.dwNumVertices)
        return DDERR_INVALIDPARAMS;
    const uint8_t* first = buffer->bytes.data() + size_t(startVertex) * buffer->layout.size;
    return Submit(type, buffer->desc.dwFVF, first, vertexCount, false, nullptr, 0);
}

HRESULT DxDevice::DrawIndexedPrimitiveVB(D3DPRIMITIVETYPE type,
                                         LPDIRECT3DVERTEXBUFFER7 bufferInterface, DWORD startVertex,
                                         DWORD vertexCount, WORD* indices, DWORD indexCount,
                                         DWORD flags) {
    DxNote("DrawIndexedPrimitiveVB(%u, %s, %u, %u, %u, %u)", DWORD(type),
           DxRef(bufferInterface).c_str(), startVertex, vertexCount, indexCount, flags);
    DxVertexBuffer* buffer = bufferInterface ? DxAsVertexBuffer(bufferInterface) : nullptr;
    if (!buffer || (indexCount && !indices)) return DDERR_INVALIDPARAMS;
    if (buffer->locked) return D3DERR_VERTEXBUFFERLOCKED;
    if (uint64_t(startVertex) + vertexCount > buffer->desc.dwNumVertices)
        return DDERR_INVALIDPARAMS;
    // Indices count from the start vertex.
    const uint8_t* first = buffer->bytes.data() + size_t(startVertex) * buffer->layout.size;
    return Submit(type, buffer->desc.dwFVF, first, vertexCount, true, indices, indexCount);
}

HRESULT DxDevice::ValidateDevice(LPDWORD passes) {
    DxNote("ValidateDevice()");
    if (!passes) return DDERR_INVALIDPARAMS;
    *passes = 0;
    const D3DDEVICEDESC7& caps = entry.desc;
    int used = 0;
    while (used < DxMaxStages && state.stageStates[used][D3DTSS_COLOROP] != D3DTOP_DISABLE) ++used;
    if (used > caps.wMaxTextureBlendStages) return D3DERR_TOOMANYOPERATIONS;
    int textured = 0;
    const std::vector<DDPIXELFORMAT>& formats = owner->owner->adapter.textureFormats;
    for (int stage = 0; stage < used; ++stage) {
        const DWORD* ts = state.stageStates[stage];
        auto allowed = [&](DWORD op) {
            return op >= 1 && op <= 32 && (caps.dwTextureOpCaps >> (op - 1)) & 1;
        };
        if (!allowed(ts[D3DTSS_COLOROP])) return D3DERR_UNSUPPORTEDCOLOROPERATION;
        if (ts[D3DTSS_ALPHAOP] != D3DTOP_DISABLE && !allowed(ts[D3DTSS_ALPHAOP]))
            return D3DERR_UNSUPPORTEDALPHAOPERATION;
        const DxSurfaceStore* texture = state.textures[stage];
        if (!texture) continue;
        ++textured;
        bool offered = formats.empty() || std::any_of(formats.begin(), formats.end(), [&](auto& f) {
                           return DxSameFormat(f, texture->format);
                       });
        if (!offered) return D3DERR_WRONGTEXTUREFORMAT;
    }
    if (textured > caps.wMaxSimultaneousTextures) return D3DERR_TOOMANYOPERATIONS;
    *passes = 1;
    return D3D_OK;
}

HRESULT DxDevice::PreLoad(LPDIRECTDRAWSURFACE7 textureInterface) {
    DxNote("PreLoad(%s)", DxRef(textureInterface).c_str());
    DxSurface* texture = textureInterface ? DxAsSurface(textureInterface) : nullptr;
    if (!texture || !(texture->store.caps & DDSCAPS_TEXTURE)) return DDERR_INVALIDPARAMS;
    if (texture->Lost()) return DDERR_SURFACELOST;
    // The GL copy is made at the first draw that needs it, which is as early as it can be.
    return D3D_OK;
}

HRESULT DxDevice::Load(LPDIRECTDRAWSURFACE7 destInterface, POINT* destPoint,
                       LPDIRECTDRAWSURFACE7 sourceInterface, RECT* sourceRect, DWORD flags) {
    DxNote("Load(%s, %s, %u)", DxRef(destInterface).c_str(), DxRef(sourceInterface).c_str(), flags);
    DxSurface* dest = destInterface ? DxAsSurface(destInterface) : nullptr;
    DxSurface* source = sourceInterface ? DxAsSurface(sourceInterface) : nullptr;
    if (!dest || !source || dest == source) return DDERR_INVALIDPARAMS;
    if (!(dest->store.caps & DDSCAPS_TEXTURE) || !(source->store.caps & DDSCAPS_TEXTURE))
        return DDERR_INVALIDPARAMS;
    if (dest->Lost() || source->Lost()) return DDERR_SURFACELOST;
    if (dest->locked || source->locked) return DDERR_SURFACEBUSY;
    RECT from = sourceRect ? *sourceRect
                           : RECT{0, 0, LONG(source->store.width), LONG(source->store.height)};
    POINT at = destPoint ? *destPoint : POINT{0, 0};
    auto fits = [](const RECT& r, const DxSurfaceStore& s) {
        return r.left >= 0 && r.top >= 0 && r.left < r.right && r.top < r.bottom &&
               DWORD(r.right) <= s.width && DWORD(r.bottom) <= s.height;
    };
    RECT to{at.x, at.y, at.x + (from.right - from.left), at.y + (from.bottom - from.top)};
    if (!fits(from, source->store) || !fits(to, dest->store)) return DDERR_INVALIDPARAMS;
    // Level by level down both chains, the rectangles halving with the levels.
    auto next = [](DxSurface* s) -> DxSurface* {
        for (const DxSurface::Attachment& a : s->attached)
            if (a.implicit && (a.surface->store.caps & DDSCAPS_MIPMAP)) return a.surface;
        return nullptr;
    };
    auto halve = [](RECT r) {
        RECT h{r.left / 2, r.top / 2, r.right / 2, r.bottom / 2};
        h.right = std::max(h.right, h.left + 1);
        h.bottom = std::max(h.bottom, h.top + 1);
        return h;
    };
    for (DxSurface *s = source, *d = dest; s && d; s = next(s), d = next(d)) {
        if (!fits(from, s->store) || !fits(to, d->store)) break;
        HRESULT result = d->CopyFrom(*s, from, to);
        if (FAILED(result)) return result;
        from = halve(from);
        to = halve(to);
    }
    return D3D_OK;
}
