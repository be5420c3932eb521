// The Direct3D object: the driver's 3D devices, their depth formats, devices and vertex buffers.
#include <new>

#include "platform/dx7/dx_objects.h"

namespace {

std::string GuidText(const GUID& guid) {
    char text[48];
    snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid.Data1,
             guid.Data2, guid.Data3, guid.Data4[0], guid.Data4[1], guid.Data4[2], guid.Data4[3],
             guid.Data4[4], guid.Data4[5], guid.Data4[6], guid.Data4[7]);
    return text;
}

}  // namespace

DxDirect3D::DxDirect3D(DxDirectDraw* ownerObject) : owner(ownerObject) {
    owner->Grab();
}

DxDirect3D::~DxDirect3D() {
    if (owner->direct3d == this) owner->direct3d = nullptr;
    owner->Drop();
}

HRESULT DxDirect3D::QueryInterface(REFIID iid, LPVOID* out) {
    DxNote("QueryInterface(%s)", GuidText(iid).c_str());
    if (!out) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    if (iid == IID_IDirect3D7 || IsUnknown(iid)) {
        Grab();
        *out = static_cast<IDirect3D7*>(this);
        return S_OK;
    }
    if (iid == IID_IDirectDraw7) {
        owner->Grab();
        *out = static_cast<IDirectDraw7*>(owner);
        return S_OK;
    }
    return E_NOINTERFACE;
}

const DxDeviceEntry* DxDirect3D::FindDevice(const GUID& guid) const {
    for (const DxDeviceEntry& entry : owner->adapter.devices)
        if (entry.desc.deviceGUID == guid) return &entry;
    return nullptr;
}

HRESULT DxDirect3D::EnumDevices(LPD3DENUMDEVICESCALLBACK7 callback, LPVOID context) {
    DxNote("EnumDevices()");
    if (!callback) return DDERR_INVALIDPARAMS;
    for (const DxDeviceEntry& entry : owner->adapter.devices) {
        std::string description = entry.description, name = entry.name;
        D3DDEVICEDESC7 desc = entry.desc;
        if (callback(description.data(), name.data(), &desc, context) == DDENUMRET_CANCEL) break;
    }
    return D3D_OK;
}

HRESULT DxDirect3D::CreateDevice(REFCLSID guid, LPDIRECTDRAWSURFACE7 targetInterface,
                                 LPDIRECT3DDEVICE7* out) {
    DxNote("CreateDevice(%s, %s)", GuidText(guid).c_str(), DxRef(targetInterface).c_str());
    if (!out) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    if (DxFaultSwitches().createDevices > 0) {
        --DxFaultSwitches().createDevices;
        return DDERR_INVALIDCAPS;
    }
    const DxDeviceEntry* entry = FindDevice(guid);
    DxSurface* target = targetInterface ? DxAsSurface(targetInterface) : nullptr;
    if (!entry || !target || target->owner != owner) return DDERR_INVALIDPARAMS;
    if (!(target->store.caps & DDSCAPS_3DDEVICE)) return DDERR_INVALIDCAPS;
    if (target->layout.depth || target->layout.fourCc) return DDERR_INVALIDPIXELFORMAT;
    DWORD depths = entry->desc.dwDeviceRenderBitDepth;
    if (depths && !(depths & DxBitDepthFlag(target->store.format.dwRGBBitCount)))
        return DDERR_INVALIDPIXELFORMAT;
    *out = new DxDevice(this, *entry, target);
    return D3D_OK;
}

HRESULT DxDirect3D::CreateVertexBuffer(LPD3DVERTEXBUFFERDESC desc, LPDIRECT3DVERTEXBUFFER7* out,
                                       DWORD flags) {
    DxNote("CreateVertexBuffer(%u, %u, %u)", desc ? desc->dwFVF : 0, desc ? desc->dwNumVertices : 0,
           desc ? desc->dwCaps : 0);
    if (!out) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    if (!desc || desc->dwSize != sizeof(D3DVERTEXBUFFERDESC) || flags) return DDERR_INVALIDPARAMS;
    DxVertexLayout layout;
    if (!DxLayoutVertex(desc->dwFVF, layout)) return D3DERR_INVALIDVERTEXFORMAT;
    if (desc->dwNumVertices == 0 || desc->dwNumVertices > D3DMAXNUMVERTICES)
        return DDERR_INVALIDPARAMS;
    try {
        *out = new DxVertexBuffer(this, *desc, layout);
    } catch (const std::bad_alloc&) {
        return DDERR_OUTOFMEMORY;
    }
    return D3D_OK;
}

HRESULT DxDirect3D::EnumZBufferFormats(REFCLSID device, LPD3DENUMPIXELFORMATSCALLBACK callback,
                                       LPVOID context) {
    DxNote("EnumZBufferFormats(%s)", GuidText(device).c_str());
    if (!callback || !FindDevice(device)) return DDERR_INVALIDPARAMS;
    std::vector<DDPIXELFORMAT> formats = owner->adapter.depthFormats;
    for (DDPIXELFORMAT& format : formats)
        if (callback(&format, context) == DDENUMRET_CANCEL) break;
    return D3D_OK;
}

HRESULT DxDirect3D::EvictManagedTextures() {
    DxNote("EvictManagedTextures()");
    // Managed textures live on in memory; their GL copies go and are made again on next use.
    for (DxSurface* surface : owner->surfaces) {
        DxSurfaceStore& store = surface->store;
        if ((store.caps2 & DDSCAPS2_TEXTUREMANAGE) && store.glVersion != 0) DxForgetOnGl(store);
    }
    return D3D_OK;
}
