// The DirectDraw object: drivers from the adapter table, the cooperative level, display modes
// and the making of surfaces.
#include <algorithm>
#include <bit>
#include <new>

#include "platform/dx7/dx_objects.h"

namespace {

constexpr DWORD MaxSurfaceSide = 16384;
constexpr DWORD MaxBackBuffers = 3;

bool TakeFault(int& counter) {
    if (counter <= 0) return false;
    --counter;
    return true;
}

std::string GuidText(const GUID* guid) {
    if (!guid) return "null";
    char text[48];
    snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}", guid->Data1,
             guid->Data2, guid->Data3, guid->Data4[0], guid->Data4[1], guid->Data4[2],
             guid->Data4[3], guid->Data4[4], guid->Data4[5], guid->Data4[6], guid->Data4[7]);
    return text;
}

// The desktop a driver starts in: its largest mode of the desktop's depth.
DxDisplayMode DesktopOf(const DxAdapterEntry& adapter) {
    DWORD bits = adapter.displayFormat.dwRGBBitCount ? adapter.displayFormat.dwRGBBitCount : 32;
    DxDisplayMode best = {640, 480, bits};
    uint64_t bestArea = 0;
    for (const DxDisplayMode& mode : adapter.modes) {
        uint64_t area = uint64_t(mode.width) * mode.height;
        if (mode.bitsPerPixel == bits && area > bestArea) best = mode, bestArea = area;
    }
    return best;
}

void FillModeDesc(const DxDisplayMode& mode, const DDPIXELFORMAT& format, DDSURFACEDESC2& desc) {
    desc = DDSURFACEDESC2{};
    desc.dwSize = sizeof(DDSURFACEDESC2);
    desc.dwFlags = DDSD_WIDTH | DDSD_HEIGHT | DDSD_PITCH | DDSD_PIXELFORMAT;
    desc.dwWidth = mode.width;
    desc.dwHeight = mode.height;
    desc.lPitch = LONG(mode.width * ((mode.bitsPerPixel + 7) / 8));
    desc.ddpfPixelFormat = format;
}

// As the surface lays its rows out: each on a 4-byte boundary.
uint64_t SurfaceBytes(DWORD width, DWORD height, int bytes) {
    return ((uint64_t(width) * uint64_t(bytes) + 3) & ~uint64_t(3)) * height;
}

// The faces of a cube in the order they are made; the first one asked for is the root.
constexpr DWORD CubeFaces[] = {DDSCAPS2_CUBEMAP_POSITIVEX, DDSCAPS2_CUBEMAP_NEGATIVEX,
                               DDSCAPS2_CUBEMAP_POSITIVEY, DDSCAPS2_CUBEMAP_NEGATIVEY,
                               DDSCAPS2_CUBEMAP_POSITIVEZ, DDSCAPS2_CUBEMAP_NEGATIVEZ};

HRESULT CheckCube(DWORD caps, DWORD caps2, DWORD width, DWORD height) {
    if (!(caps2 & DDSCAPS2_CUBEMAP)) {
        return (caps2 & DDSCAPS2_CUBEMAP_ALLFACES) ? DDERR_INVALIDCAPS : DD_OK;
    }
    if (!(caps & DDSCAPS_TEXTURE) || !(caps & DDSCAPS_COMPLEX)) return DDERR_INVALIDCAPS;
    if (!(caps2 & DDSCAPS2_CUBEMAP_ALLFACES) || width != height) return DDERR_INVALIDPARAMS;
    if (caps & DDSCAPS_MIPMAP) return DDERR_UNSUPPORTED;  // no mip chains under cube faces
    return DD_OK;
}

// Each face keeps only its own face bit, so that GetAttachedSurface can ask for it by name. The
// root holds the others. A cube set as a stage texture samples the root's pixels, the +x face:
// the engine only draws into cubes, so GL never sees one as a cube texture.
void AttachCubeFaces(DxDirectDraw* owner, DxSurface* root, DWORD caps, DWORD caps2) {
    const DWORD common = caps2 & ~DWORD(DDSCAPS2_CUBEMAP_ALLFACES);
    bool first = true;
    for (DWORD face : CubeFaces) {
        if (!(caps2 & face)) continue;
        if (first) {
            root->store.caps2 = common | face;
            first = false;
            continue;
        }
        const DxSurfaceStore& shape = root->store;
        DxSurface* next = new DxSurface(owner, caps, common | face, shape.width, shape.height,
                                        shape.format, root->layout);
        root->attached.push_back({next, true});
    }
}

}  // namespace

// ---- drivers -----------------------------------------------------------------------------------

HRESULT DirectDrawEnumerateA(LPDDENUMCALLBACKA callback, LPVOID context) {
    DxNote("DirectDrawEnumerateA()");
    if (!callback) return DDERR_INVALIDPARAMS;
    // A copy, so that a callback that stages another table cannot pull the list from under us.
    DxAdapterTable table = DxAdapters();
    for (DxAdapterEntry& adapter : table.adapters) {
        GUID guid = adapter.guid;
        std::string description = adapter.description;
        std::string name = adapter.name;
        if (!callback(adapter.isDefault ? nullptr : &guid, description.data(), name.data(),
                      context))
            break;
    }
    return DD_OK;
}

HRESULT DirectDrawCreateEx(GUID* guid, LPVOID* out, REFIID iid, IUnknown* outer) {
    // The published stand-ins for "the hardware driver" and "emulation only".
    GUID* const emulationOnly = reinterpret_cast<GUID*>(uintptr_t(1));
    GUID* const hardwareOnly = reinterpret_cast<GUID*>(uintptr_t(2));
    bool special = guid == emulationOnly || guid == hardwareOnly;
    DxNote("DirectDrawCreateEx(%s)", special ? "special" : GuidText(guid).c_str());
    if (!out) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    if (outer || !(iid == IID_IDirectDraw7)) return DDERR_INVALIDPARAMS;
    if (guid == emulationOnly) return DDERR_NODIRECTDRAWHW;
    const DxAdapterTable& table = DxAdapters();
    const DxAdapterEntry* chosen = nullptr;
    if (!guid || guid == hardwareOnly) {
        for (const DxAdapterEntry& adapter : table.adapters)
            if (adapter.isDefault && !chosen) chosen = &adapter;
        if (!chosen && !table.adapters.empty()) chosen = &table.adapters.front();
        if (!chosen) return DDERR_NODIRECTDRAWHW;
    } else {
        for (const DxAdapterEntry& adapter : table.adapters)
            if (adapter.guid == *guid && !chosen) chosen = &adapter;
        if (!chosen) return DDERR_INVALIDPARAMS;
    }
    *out = static_cast<IDirectDraw7*>(new DxDirectDraw(*chosen));
    return DD_OK;
}

// ---- clipper -----------------------------------------------------------------------------------

HRESULT DxClipper::SetHWnd(DWORD flags, HWND hwnd) {
    DxNote("SetHWnd(%s, %u)", DxRef(this).c_str(), flags);
    if (flags) return DDERR_INVALIDPARAMS;
    window = hwnd;
    return DD_OK;
}

HRESULT DxClipper::GetHWnd(HWND* out) {
    DxNote("GetHWnd(%s)", DxRef(this).c_str());
    if (!out) return DDERR_INVALIDPARAMS;
    *out = window;
    return DD_OK;
}

// ---- DirectDraw --------------------------------------------------------------------------------

DxDirectDraw::DxDirectDraw(const DxAdapterEntry& entry)
    : adapter(entry), desktop(DesktopOf(entry)), mode(desktop) {
    DxPixelLayout layout;
    displayFormat = entry.displayFormat;
    if (!DxDescribePixels(displayFormat, layout) || layout.depth || layout.fourCc)
        DxModeFormat(32, displayFormat);
}

HRESULT DxDirectDraw::QueryInterface(REFIID iid, LPVOID* out) {
    DxNote("QueryInterface(%s)", GuidText(&iid).c_str());
    if (!out) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    if (iid == IID_IDirectDraw7 || IsUnknown(iid)) {
        Grab();
        *out = static_cast<IDirectDraw7*>(this);
        return S_OK;
    }
    if (!(iid == IID_IDirect3D7)) return E_NOINTERFACE;
    if (direct3d)
        direct3d->Grab();
    else
        direct3d = new DxDirect3D(this);
    *out = static_cast<IDirect3D7*>(direct3d);
    return S_OK;
}

HRESULT DxDirectDraw::GetCaps(LPDDCAPS driverCaps, LPDDCAPS emulationCaps) {
    DxNote("GetCaps()");
    if (!driverCaps && !emulationCaps) return DDERR_INVALIDPARAMS;
    if ((driverCaps && driverCaps->dwSize != sizeof(DDCAPS)) ||
        (emulationCaps && emulationCaps->dwSize != sizeof(DDCAPS)))
        return DDERR_INVALIDPARAMS;
    if (driverCaps) {
        *driverCaps = DDCAPS{};
        driverCaps->dwSize = sizeof(DDCAPS);
        driverCaps->dwCaps = adapter.caps;
        driverCaps->dwVidMemTotal = adapter.videoMemory;
        uint64_t used = videoBytes;
        driverCaps->dwVidMemFree =
            used >= adapter.videoMemory ? 0 : DWORD(adapter.videoMemory - used);
        driverCaps->dwZBufferBitDepths = 0;
        for (const DDPIXELFORMAT& depth : adapter.depthFormats) {
            DWORD bits = depth.dwZBufferBitDepth - depth.dwStencilBitDepth;
            driverCaps->dwZBufferBitDepths |= DxBitDepthFlag(bits);
        }
        if (adapter.caps & DDCAPS_3D) {
            driverCaps->ddsCaps.dwCaps =
                DDSCAPS_3DDEVICE | DDSCAPS_TEXTURE | DDSCAPS_ZBUFFER | DDSCAPS_MIPMAP;
        }
        driverCaps->ddsCaps.dwCaps |= DDSCAPS_BACKBUFFER | DDSCAPS_COMPLEX | DDSCAPS_FLIP |
                                      DDSCAPS_FRONTBUFFER | DDSCAPS_OFFSCREENPLAIN |
                                      DDSCAPS_PRIMARYSURFACE | DDSCAPS_SYSTEMMEMORY |
                                      DDSCAPS_VIDEOMEMORY | DDSCAPS_LOCALVIDMEM;
    }
    if (emulationCaps) {
        // Nothing is emulated: everything the driver does, it does itself.
        *emulationCaps = DDCAPS{};
        emulationCaps->dwSize = sizeof(DDCAPS);
    }
    return DD_OK;
}

HRESULT DxDirectDraw::EnumDisplayModes(DWORD flags, LPDDSURFACEDESC2 filter, LPVOID context,
                                       LPDDENUMMODESCALLBACK2 callback) {
    DxNote("EnumDisplayModes(%u)", flags);
    if (!callback) return DDERR_INVALIDPARAMS;
    if (filter && filter->dwSize != sizeof(DDSURFACEDESC2)) return DDERR_INVALIDPARAMS;
    std::vector<DxDisplayMode> modes = adapter.modes;
    for (const DxDisplayMode& m : modes) {
        if (filter) {
            if ((filter->dwFlags & DDSD_WIDTH) && filter->dwWidth != m.width) continue;
            if ((filter->dwFlags & DDSD_HEIGHT) && filter->dwHeight != m.height) continue;
            if ((filter->dwFlags & DDSD_PIXELFORMAT) &&
                filter->ddpfPixelFormat.dwRGBBitCount != m.bitsPerPixel)
                continue;
        }
        DDPIXELFORMAT format;
        if (!DxModeFormat(m.bitsPerPixel, format)) continue;
        DDSURFACEDESC2 desc;
        FillModeDesc(m, format, desc);
        if (callback(&desc, context) == DDENUMRET_CANCEL) break;
    }
    return DD_OK;
}

HRESULT DxDirectDraw::GetDisplayMode(LPDDSURFACEDESC2 desc) {
    DxNote("GetDisplayMode()");
    if (!desc || desc->dwSize != sizeof(DDSURFACEDESC2)) return DDERR_INVALIDPARAMS;
    FillModeDesc(mode, displayFormat, *desc);
    return DD_OK;
}

HRESULT DxDirectDraw::SetCooperativeLevel(HWND hwnd, DWORD flags) {
    DxNote("SetCooperativeLevel(%u)", flags);
    if (TakeFault(DxFaultSwitches().cooperativeLevels)) return DDERR_NOEXCLUSIVEMODE;
    bool normal = flags & DDSCL_NORMAL, exclusiveAsked = flags & DDSCL_EXCLUSIVE;
    bool fullScreen = flags & DDSCL_FULLSCREEN;
    bool windowsOnly = flags & (DDSCL_SETFOCUSWINDOW | DDSCL_SETDEVICEWINDOW);
    if (normal && exclusiveAsked) return DDERR_INVALIDPARAMS;
    if (exclusiveAsked != fullScreen) return DDERR_INVALIDPARAMS;
    if (!normal && !exclusiveAsked && !windowsOnly) return DDERR_INVALIDPARAMS;
    if (exclusiveAsked && !hwnd && !(flags & DDSCL_CREATEDEVICEWINDOW)) return DDERR_INVALIDPARAMS;
    if (windowsOnly && !hwnd) return DDERR_INVALIDPARAMS;
    if (flags & DDSCL_SETFOCUSWINDOW) focusWindow = hwnd;
    if (!normal && !exclusiveAsked) return DD_OK;  // only a window was named
    window = hwnd;
    exclusive = exclusiveAsked;
    levelSet = true;
    return DD_OK;
}

HRESULT DxDirectDraw::SetDisplayMode(DWORD width, DWORD height, DWORD bitsPerPixel, DWORD,
                                     DWORD flags) {
    DxNote("SetDisplayMode(%u, %u, %u, %u)", width, height, bitsPerPixel, flags);
    if (TakeFault(DxFaultSwitches().displayModes)) return DDERR_UNSUPPORTEDMODE;
    bool listed = std::any_of(adapter.modes.begin(), adapter.modes.end(), [&](auto& m) {
        return m.width == width && m.height == height && m.bitsPerPixel == bitsPerPixel;
    });
    if (!listed) return DDERR_INVALIDMODE;
    DDPIXELFORMAT format;
    DxPixelLayout layout;
    if (!DxModeFormat(bitsPerPixel, format) || !DxDescribePixels(format, layout))
        return DDERR_UNSUPPORTEDMODE;
    mode = {width, height, bitsPerPixel};
    displayFormat = format;
    return DD_OK;
}

HRESULT DxDirectDraw::RestoreDisplayMode() {
    DxNote("RestoreDisplayMode()");
    mode = desktop;
    DxPixelLayout layout;
    displayFormat = adapter.displayFormat;
    if (!DxDescribePixels(displayFormat, layout) || layout.depth || layout.fourCc)
        DxModeFormat(32, displayFormat);
    return DD_OK;
}

HRESULT DxDirectDraw::CreateSurface(LPDDSURFACEDESC2 desc, LPDIRECTDRAWSURFACE7* out,
                                    IUnknown* outer) {
    if (DxRecording()) {
        DWORD caps = desc ? desc->ddsCaps.dwCaps : 0;
        DWORD width = desc && (desc->dwFlags & DDSD_WIDTH) ? desc->dwWidth : 0;
        DWORD height = desc && (desc->dwFlags & DDSD_HEIGHT) ? desc->dwHeight : 0;
        DxNote("CreateSurface(caps 0x%X, %ux%u)", caps, width, height);
    }
    if (!out) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    if (!desc || outer || desc->dwSize != sizeof(DDSURFACEDESC2)) return DDERR_INVALIDPARAMS;
    if (TakeFault(DxFaultSwitches().createSurfaces)) return DDERR_OUTOFVIDEOMEMORY;
    DxSurface* made = nullptr;
    HRESULT result;
    try {
        result = MakeSurface(*desc, made);
    } catch (const std::bad_alloc&) {
        return DDERR_OUTOFMEMORY;
    }
    if (FAILED(result)) return result;
    *out = made;
    return DD_OK;
}

HRESULT DxDirectDraw::MakeSurface(const DDSURFACEDESC2& desc, DxSurface*& out) {
    if (!(desc.dwFlags & DDSD_CAPS)) return DDERR_INVALIDPARAMS;
    if (desc.dwFlags & DDSD_LPSURFACE) return DDERR_UNSUPPORTED;  // surfaces own their memory
    DWORD caps = desc.ddsCaps.dwCaps, caps2 = desc.ddsCaps.dwCaps2;
    bool isPrimary = caps & DDSCAPS_PRIMARYSURFACE, isDepth = caps & DDSCAPS_ZBUFFER;
    bool isTexture = caps & DDSCAPS_TEXTURE, flips = caps & DDSCAPS_FLIP;
    bool complex = caps & DDSCAPS_COMPLEX;
    if ((caps & DDSCAPS_SYSTEMMEMORY) && (caps & DDSCAPS_VIDEOMEMORY)) return DDERR_INVALIDCAPS;
    if (isPrimary && (isDepth || isTexture)) return DDERR_INVALIDCAPS;
    if (isDepth && isTexture) return DDERR_INVALIDCAPS;
    if ((caps & DDSCAPS_MIPMAP) && !isTexture) return DDERR_INVALIDCAPS;
    if ((caps2 & DDSCAPS2_TEXTUREMANAGE) &&
        (!isTexture || (caps & (DDSCAPS_SYSTEMMEMORY | DDSCAPS_VIDEOMEMORY))))
        return DDERR_INVALIDCAPS;
    if ((isTexture || isDepth || (caps & DDSCAPS_3DDEVICE)) && !(adapter.caps & DDCAPS_3D))
        return DDERR_INVALIDCAPS;
    if (flips && (!complex || !(desc.dwFlags & DDSD_BACKBUFFERCOUNT) || !isPrimary))
        return DDERR_INVALIDCAPS;

    DWORD width, height;
    DDPIXELFORMAT format;
    DWORD backBuffers = 0;
    if (isPrimary) {
        if (!levelSet) return DDERR_NOCOOPERATIVELEVELSET;
        if (primary) return DDERR_PRIMARYSURFACEALREADYEXISTS;
        if (desc.dwFlags & (DDSD_WIDTH | DDSD_HEIGHT | DDSD_PIXELFORMAT))
            return DDERR_INVALIDPARAMS;
        if (flips) {
            if (!exclusive) return DDERR_NOEXCLUSIVEMODE;
            backBuffers = desc.dwBackBufferCount;
            if (backBuffers < 1 || backBuffers > MaxBackBuffers) return DDERR_INVALIDPARAMS;
        }
        width = mode.width;
        height = mode.height;
        format = displayFormat;
    } else {
        if ((desc.dwFlags & (DDSD_WIDTH | DDSD_HEIGHT)) != (DDSD_WIDTH | DDSD_HEIGHT))
            return DDERR_INVALIDPARAMS;
        width = desc.dwWidth;
        height = desc.dwHeight;
        if (width == 0 || height == 0 || width > MaxSurfaceSide || height > MaxSurfaceSide)
            return DDERR_INVALIDPARAMS;
        if (desc.dwFlags & DDSD_PIXELFORMAT) {
            format = desc.ddpfPixelFormat;
            if (format.dwSize != sizeof(DDPIXELFORMAT)) return DDERR_INVALIDPIXELFORMAT;
        } else if (isDepth) {
            return DDERR_INVALIDPIXELFORMAT;  // a Z buffer names its format
        } else {
            format = displayFormat;
        }
    }
    if (HRESULT cube = CheckCube(caps, caps2, width, height); FAILED(cube)) return cube;
    DxPixelLayout layout;
    if (!DxDescribePixels(format, layout)) return DDERR_INVALIDPIXELFORMAT;
    if (layout.depth != isDepth) return DDERR_INVALIDPIXELFORMAT;
    bool inVideo = DxInVideoMemory(caps, caps2);
    if (layout.fourCc) {
        if (!isTexture) return DDERR_INVALIDPIXELFORMAT;
        if (inVideo || (caps2 & DDSCAPS2_TEXTUREMANAGE)) {
            bool offered = std::any_of(adapter.textureFormats.begin(), adapter.textureFormats.end(),
                                       [&](auto& f) { return DxSameFormat(f, format); });
            if (!offered) return DDERR_INVALIDPIXELFORMAT;
        }
    }
    if (isDepth && inVideo) {
        bool offered = std::any_of(adapter.depthFormats.begin(), adapter.depthFormats.end(),
                                   [&](auto& f) { return DxSameFormat(f, format); });
        if (!offered) return DDERR_INVALIDPIXELFORMAT;
    }

    DWORD levels = 1;
    if ((caps & DDSCAPS_MIPMAP) && complex) {
        DWORD most = 1;
        for (DWORD side = std::max(width, height); side > 1; side /= 2) ++most;
        levels =
            (desc.dwFlags & DDSD_MIPMAPCOUNT) && desc.dwMipMapCount ? desc.dwMipMapCount : most;
        if (levels > most) return DDERR_INVALIDPARAMS;
    }

    // Video memory is counted, so that a staged table can run out of it.
    uint64_t needed = 0;
    for (DWORD level = 0; level < levels; ++level)
        needed += SurfaceBytes(std::max<DWORD>(width >> level, 1),
                               std::max<DWORD>(height >> level, 1), layout.bytes);
    needed *= backBuffers + 1;
    const bool cube = caps2 & DDSCAPS2_CUBEMAP;
    if (cube) needed *= uint64_t(std::popcount(caps2 & DDSCAPS2_CUBEMAP_ALLFACES));
    if (inVideo && videoBytes + needed > adapter.videoMemory) return DDERR_OUTOFVIDEOMEMORY;

    DWORD memory = inVideo ? DDSCAPS_VIDEOMEMORY | DDSCAPS_LOCALVIDMEM : 0;
    DWORD madeCaps = caps | memory;
    if (flips) madeCaps |= DDSCAPS_FRONTBUFFER;
    DxSurface* top = new DxSurface(this, madeCaps, caps2, width, height, format, layout);
    top->mipCount = levels;
    if (isPrimary) primary = top;
    if (cube) AttachCubeFaces(this, top, madeCaps, caps2);

    // Chains: each member holds the next, so the whole chain goes with its first surface.
    DxSurface* last = top;
    for (DWORD level = 1; level < levels; ++level) {
        DWORD levelCaps = (caps & ~DDSCAPS_COMPLEX) | memory;
        DxSurface* next = new DxSurface(this, levelCaps, caps2, std::max<DWORD>(width >> level, 1),
                                        std::max<DWORD>(height >> level, 1), format, layout);
        next->mipCount = levels - level;
        last->attached.push_back({next, true});
        last->store.nextLevel = &next->store;
        last = next;
    }
    for (DWORD buffer = 0; buffer < backBuffers; ++buffer) {
        DWORD backCaps = DDSCAPS_BACKBUFFER | DDSCAPS_FLIP | DDSCAPS_COMPLEX |
                         (caps & (DDSCAPS_3DDEVICE | DDSCAPS_VIDEOMEMORY)) | memory;
        if (buffer > 0) backCaps &= ~DDSCAPS_BACKBUFFER;  // only the first is "the" back buffer
        DxSurface* next = new DxSurface(this, backCaps, caps2, width, height, format, layout);
        last->attached.push_back({next, true});
        last = next;
    }
    out = top;
    return DD_OK;
}

HRESULT DxDirectDraw::CreateClipper(DWORD flags, LPDIRECTDRAWCLIPPER* out, IUnknown* outer) {
    DxNote("CreateClipper(%u)", flags);
    if (!out) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    if (outer || flags) return DDERR_INVALIDPARAMS;
    *out = new DxClipper;
    return DD_OK;
}

HRESULT DxDirectDraw::RestoreAllSurfaces() {
    DxNote("RestoreAllSurfaces()");
    for (DxSurface* surface : surfaces) surface->MarkRestored();
    return DD_OK;
}

HRESULT DxDirectDraw::TestCooperativeLevel() {
    DxNote("TestCooperativeLevel()");
    if (TakeFault(DxFaultSwitches().cooperativeTests)) return DDERR_NOEXCLUSIVEMODE;
    return DD_OK;
}

HRESULT DxDirectDraw::GetAvailableVidMem(LPDDSCAPS2 caps, LPDWORD total, LPDWORD free) {
    DxNote("GetAvailableVidMem(caps 0x%X)", caps ? caps->dwCaps : 0);
    if (!caps) return DDERR_INVALIDPARAMS;
    uint64_t used = videoBytes;
    if (total) *total = adapter.videoMemory;
    if (free) *free = used >= adapter.videoMemory ? 0 : DWORD(adapter.videoMemory - used);
    return DD_OK;
}
