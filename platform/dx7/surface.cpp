// Surfaces: pixels in memory, locks, copies between formats, chains, and the present.
#include <algorithm>

#include "platform/dx7/dx_objects.h"
#include "platform/dx7/gl_context.h"

namespace {

DxPresentHook PresentHook = nullptr;
void* PresentUser = nullptr;

bool TakeFault(int& counter) {
    if (counter <= 0) return false;
    --counter;
    return true;
}

RECT Whole(const DxSurfaceStore& store) {
    return {0, 0, LONG(store.width), LONG(store.height)};
}

bool Inside(const RECT& rect, const DxSurfaceStore& store) {
    return rect.left >= 0 && rect.top >= 0 && rect.left < rect.right && rect.top < rect.bottom &&
           DWORD(rect.right) <= store.width && DWORD(rect.bottom) <= store.height;
}

bool Covers(const RECT& rect, const DxSurfaceStore& store) {
    return rect.left == 0 && rect.top == 0 && DWORD(rect.right) == store.width &&
           DWORD(rect.bottom) == store.height;
}

// Nearest sample: the source pixel under the centre of destination pixel i of n.
LONG Sample(LONG from, LONG span, LONG i, LONG n) {
    return from + LONG((int64_t(2 * i + 1) * span) / (int64_t(2) * n));
}

}  // namespace

void DxSetPresentHook(DxPresentHook hook, void* user) {
    PresentHook = hook;
    PresentUser = user;
}

void DxForgetOnGl(DxSurfaceStore& store) {
    // Whatever the mode is now: GL may hold a copy made while it was drawing, and a later store
    // at the same address must not find it.
    DxRendering mode = DxGetRendering();
    DxSetRendering(DxRendering::GlWhenAvailable);
    if (DxGlBackend* backend = DxGlBackend::Get()) backend->Forget(store);
    DxSetRendering(mode);
    store.glVersion = 0;
    store.glNewer = false;
}

uint64_t DxLossGeneration() {
    static uint64_t generation = 0;
    static bool wasLost = false;
    bool lost = DxFaultSwitches().surfacesLost;
    if (lost && !wasLost) ++generation;
    wasLost = lost;
    return generation;
}

DxSurface* DxAsSurface(IDirectDrawSurface7* surface) {
    return dynamic_cast<DxSurface*>(surface);
}

DxSurface::DxSurface(DxDirectDraw* ownerObject, uint32_t caps, uint32_t caps2, DWORD width,
                     DWORD height, const DDPIXELFORMAT& format, const DxPixelLayout& pixels)
    : owner(ownerObject), layout(pixels), restoredGeneration(DxLossGeneration()) {
    owner->Grab();
    store.id = Number();
    store.width = width;
    store.height = height;
    // Rows start on 4-byte boundaries, as drivers commonly lay them out.
    store.pitch = LONG((width * DWORD(layout.bytes) + 3) & ~3u);
    store.format = format;
    store.caps = caps;
    store.caps2 = caps2;
    store.bytes.assign(size_t(store.pitch) * height, 0);
    if (DxInVideoMemory(caps, caps2)) owner->videoBytes += store.bytes.size();
    owner->surfaces.push_back(this);
}

DxSurface::~DxSurface() {
    if (owner->primary == this) owner->primary = nullptr;
    if (DxInVideoMemory(store.caps, store.caps2)) owner->videoBytes -= store.bytes.size();
    owner->surfaces.erase(std::remove(owner->surfaces.begin(), owner->surfaces.end(), this),
                          owner->surfaces.end());
    for (Attachment& a : attached) a.surface->Drop();
    DxDrop(clipper);
    // Only a surface GL has seen has anything there to free; asking otherwise would make a
    // context for nothing.
    if (store.glVersion != 0 || store.glNewer) DxForgetOnGl(store);
    owner->Drop();
}

bool DxSurface::Lost() const {
    uint64_t generation = DxLossGeneration();  // first, so that it sees the switch go off
    return DxFaultSwitches().surfacesLost && restoredGeneration != generation;
}

void DxSurface::MarkRestored() {
    restoredGeneration = DxLossGeneration();
}

void DxSurface::SyncFromGl() {
    if (!store.glNewer) return;
    if (DxGlBackend* backend = DxGlBackend::Get())
        backend->ReadBack(store);
    else
        store.glNewer = false;
}

DxSurfaceStore* DxSurface::AttachedDepth() const {
    for (const Attachment& a : attached)
        if (a.surface->store.caps & DDSCAPS_ZBUFFER) return &a.surface->store;
    return nullptr;
}

void DxSurface::FillDesc(DDSURFACEDESC2& desc) const {
    desc = DDSURFACEDESC2{};
    desc.dwSize = sizeof(DDSURFACEDESC2);
    desc.dwFlags = DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT | DDSD_PITCH | DDSD_PIXELFORMAT;
    desc.dwWidth = store.width;
    desc.dwHeight = store.height;
    desc.lPitch = store.pitch;
    desc.ddpfPixelFormat = store.format;
    desc.ddsCaps.dwCaps = store.caps;
    desc.ddsCaps.dwCaps2 = store.caps2;
    if (store.caps & DDSCAPS_MIPMAP) {
        desc.dwFlags |= DDSD_MIPMAPCOUNT;
        desc.dwMipMapCount = mipCount;
    }
    if (store.caps & DDSCAPS_FRONTBUFFER) {
        DWORD count = 0;
        for (const DxSurface* s = this; !s->attached.empty() && s->attached[0].implicit;
             s = s->attached[0].surface)
            ++count;
        desc.dwFlags |= DDSD_BACKBUFFERCOUNT;
        desc.dwBackBufferCount = count;
    }
}

void DxSurface::ToArgb(const RECT& rect, DWORD width, DWORD height, std::vector<uint32_t>& out) {
    SyncFromGl();
    out.resize(size_t(width) * height);
    LONG spanX = rect.right - rect.left, spanY = rect.bottom - rect.top;
    for (DWORD y = 0; y < height; ++y) {
        LONG sy = Sample(rect.top, spanY, LONG(y), LONG(height));
        const uint8_t* row = store.bytes.data() + size_t(sy) * size_t(store.pitch);
        for (DWORD x = 0; x < width; ++x) {
            LONG sx = Sample(rect.left, spanX, LONG(x), LONG(width));
            uint32_t raw = DxReadPixel(row + size_t(sx) * size_t(layout.bytes), layout.bytes);
            out[size_t(y) * width + x] = DxToArgb(layout, raw);
        }
    }
}

HRESULT DxSurface::Present(DxSurface& source, const RECT& rect, DWORD width, DWORD height) {
    std::vector<uint32_t> frame;
    source.ToArgb(rect, width, height, frame);
    for (uint32_t& pixel : frame) pixel |= 0xFF000000u;  // a screen has no alpha
    if (PresentHook) {
        HWND hwnd = clipper && clipper->window ? clipper->window : owner->window;
        PresentHook(DxFrame{hwnd, frame.data(), width, height}, PresentUser);
    }
    return DD_OK;
}

HRESULT DxSurface::Lock(RECT* rect, LPDDSURFACEDESC2 desc, DWORD flags, HANDLE) {
    DxNote("Lock(%s, %u)", DxRef(this).c_str(), flags);
    if (!desc || desc->dwSize != sizeof(DDSURFACEDESC2)) return DDERR_INVALIDPARAMS;
    if (TakeFault(DxFaultSwitches().locks)) return DDERR_SURFACELOST;
    if (Lost()) return DDERR_SURFACELOST;
    if (locked) return DDERR_SURFACEBUSY;
    if (layout.fourCc) return DDERR_UNSUPPORTEDFORMAT;  // blocks are never handed out
    RECT area = rect ? *rect : Whole(store);
    if (!Inside(area, store)) return DDERR_INVALIDPARAMS;
    SyncFromGl();
    FillDesc(*desc);
    desc->dwFlags |= DDSD_LPSURFACE;
    desc->lpSurface = store.bytes.data() + size_t(area.top) * size_t(store.pitch) +
                      size_t(area.left) * size_t(layout.bytes);
    locked = true;
    lockedReadOnly = flags & DDLOCK_READONLY;
    return DD_OK;
}

HRESULT DxSurface::Unlock(RECT*) {
    DxNote("Unlock(%s)", DxRef(this).c_str());
    if (!locked) return DDERR_NOTLOCKED;
    locked = false;
    if (!lockedReadOnly) ++store.cpuVersion;
    return DD_OK;
}

HRESULT DxSurface::Blt(RECT* destRect, LPDIRECTDRAWSURFACE7 sourceInterface, RECT* sourceRect,
                       DWORD flags, LPDDBLTFX effects) {
    DxNote("Blt(%s, %s, %u)", DxRef(this).c_str(), DxRef(sourceInterface).c_str(), flags);
    DxSurface* source = sourceInterface ? DxAsSurface(sourceInterface) : nullptr;
    if (sourceInterface && !source) return DDERR_INVALIDPARAMS;
    if (flags & (DDBLT_KEYSRC | DDBLT_DDFX)) return DDERR_UNSUPPORTED;
    if (Lost() || (source && source->Lost())) return DDERR_SURFACELOST;
    if (locked || (source && source->locked)) return DDERR_SURFACEBUSY;
    RECT to = destRect ? *destRect : Whole(store);

    if (flags & (DDBLT_COLORFILL | DDBLT_DEPTHFILL)) {
        if (!effects || effects->dwSize != sizeof(DDBLTFX)) return DDERR_INVALIDPARAMS;
        bool depthFill = flags & DDBLT_DEPTHFILL;
        if (depthFill != layout.depth || ((flags & DDBLT_COLORFILL) && depthFill))
            return DDERR_INVALIDPARAMS;
        if (!Inside(to, store)) return DDERR_INVALIDRECT;
        uint32_t value = depthFill ? effects->dwFillDepth : effects->dwFillColor;
        if (Covers(to, store))
            store.glNewer = false;  // every pixel is replaced
        else
            SyncFromGl();
        for (LONG y = to.top; y < to.bottom; ++y) {
            uint8_t* row = store.bytes.data() + size_t(y) * size_t(store.pitch);
            for (LONG x = to.left; x < to.right; ++x)
                DxWritePixel(row + size_t(x) * size_t(layout.bytes), layout.bytes, value);
        }
        ++store.cpuVersion;
        return DD_OK;
    }

    if (!source) return DDERR_INVALIDPARAMS;
    RECT from = sourceRect ? *sourceRect : Whole(source->store);
    if (!Inside(from, source->store)) return DDERR_INVALIDRECT;
    if (store.caps & DDSCAPS_PRIMARYSURFACE) {
        // A copy to the screen is a present: the frame goes to the hook at the size asked for.
        if (TakeFault(DxFaultSwitches().presents)) return DDERR_SURFACELOST;
        if (to.left >= to.right || to.top >= to.bottom) return DDERR_INVALIDRECT;
        if (int64_t(to.right) - to.left > 16384 || int64_t(to.bottom) - to.top > 16384)
            return DDERR_INVALIDRECT;
        if (source->layout.depth) return DDERR_UNSUPPORTEDFORMAT;
        return Present(*source, from, DWORD(to.right - to.left), DWORD(to.bottom - to.top));
    }
    if (!Inside(to, store)) return DDERR_INVALIDRECT;
    return CopyFrom(*source, from, to);
}

HRESULT DxSurface::CopyFrom(DxSurface& source, const RECT& from, const RECT& to) {
    if (layout.depth != source.layout.depth) return DDERR_UNSUPPORTEDFORMAT;
    bool raw = DxSameFormat(store.format, source.store.format);
    if (layout.depth && !raw) return DDERR_UNSUPPORTEDFORMAT;

    source.SyncFromGl();
    if (Covers(to, store))
        store.glNewer = false;
    else
        SyncFromGl();
    // A copy within one surface reads from a snapshot, so overlapping rectangles come out right.
    std::vector<uint8_t> snapshot;
    const uint8_t* pixels = source.store.bytes.data();
    if (&source == this) {
        snapshot = store.bytes;
        pixels = snapshot.data();
    }
    LONG width = to.right - to.left, height = to.bottom - to.top;
    LONG spanX = from.right - from.left, spanY = from.bottom - from.top;
    int inBytes = source.layout.bytes;
    for (LONG y = 0; y < height; ++y) {
        LONG sy = Sample(from.top, spanY, y, height);
        const uint8_t* in = pixels + size_t(sy) * size_t(source.store.pitch);
        uint8_t* out = store.bytes.data() + size_t(to.top + y) * size_t(store.pitch);
        for (LONG x = 0; x < width; ++x) {
            LONG sx = Sample(from.left, spanX, x, width);
            uint32_t value = DxReadPixel(in + size_t(sx) * size_t(inBytes), inBytes);
            if (!raw) value = DxFromArgb(layout, DxToArgb(source.layout, value));
            DxWritePixel(out + size_t(to.left + x) * size_t(layout.bytes), layout.bytes, value);
        }
    }
    ++store.cpuVersion;
    return DD_OK;
}

HRESULT DxSurface::Flip(LPDIRECTDRAWSURFACE7 targetInterface, DWORD flags) {
    DxNote("Flip(%s)", DxRef(this).c_str());
    (void)flags;
    if (!(store.caps & DDSCAPS_FRONTBUFFER) || attached.empty() || !attached[0].implicit)
        return DDERR_NOTFLIPPABLE;
    if (Lost()) return DDERR_SURFACELOST;
    if (TakeFault(DxFaultSwitches().presents)) return DDERR_SURFACELOST;
    DxSurface* back = attached[0].surface;
    if (targetInterface) {
        DxSurface* wanted = DxAsSurface(targetInterface);
        DxSurface* member = back;
        while (member && member != wanted)
            member = !member->attached.empty() && member->attached[0].implicit
                         ? member->attached[0].surface
                         : nullptr;
        if (!member) return DDERR_INVALIDPARAMS;
        back = member;
    }
    if (locked || back->locked) return DDERR_SURFACEBUSY;
    // The back buffer keeps its pixels: the engine draws each frame whole, and the front
    // buffer's memory is never read, so nothing needs to change places.
    return Present(*back, Whole(back->store), back->store.width, back->store.height);
}

HRESULT DxSurface::IsLost() {
    DxNote("IsLost(%s)", DxRef(this).c_str());
    return Lost() ? DDERR_SURFACELOST : DD_OK;
}

HRESULT DxSurface::Restore() {
    DxNote("Restore(%s)", DxRef(this).c_str());
    // A chain is restored whole, as it was made whole.
    MarkRestored();
    for (Attachment& a : attached)
        if (a.implicit) a.surface->Restore();
    return DD_OK;
}

HRESULT DxSurface::GetAttachedSurface(LPDDSCAPS2 caps, LPDIRECTDRAWSURFACE7* out) {
    DxNote("GetAttachedSurface(%s, caps 0x%X)", DxRef(this).c_str(), caps ? caps->dwCaps : 0);
    if (!caps || !out) return DDERR_INVALIDPARAMS;
    *out = nullptr;
    for (Attachment& a : attached) {
        const DxSurfaceStore& s = a.surface->store;
        if ((s.caps & caps->dwCaps) == caps->dwCaps && (s.caps2 & caps->dwCaps2) == caps->dwCaps2) {
            a.surface->Grab();
            *out = a.surface;
            return DD_OK;
        }
    }
    return DDERR_NOTFOUND;
}

HRESULT DxSurface::AddAttachedSurface(LPDIRECTDRAWSURFACE7 surfaceInterface) {
    DxNote("AddAttachedSurface(%s, %s)", DxRef(this).c_str(), DxRef(surfaceInterface).c_str());
    DxSurface* surface = surfaceInterface ? DxAsSurface(surfaceInterface) : nullptr;
    if (!surface || surface == this) return DDERR_INVALIDPARAMS;
    // Only a Z buffer can be attached afterwards, and only to a surface that is none.
    if (!(surface->store.caps & DDSCAPS_ZBUFFER) || (store.caps & DDSCAPS_ZBUFFER))
        return DDERR_CANNOTATTACHSURFACE;
    for (const Attachment& a : attached)
        if (a.surface == surface) return DDERR_SURFACEALREADYATTACHED;
    if (AttachedDepth()) return DDERR_CANNOTATTACHSURFACE;
    if (surface->store.width < store.width || surface->store.height < store.height)
        return DDERR_CANNOTATTACHSURFACE;
    surface->Grab();
    attached.push_back({surface, false});
    return DD_OK;
}

HRESULT DxSurface::DeleteAttachedSurface(DWORD flags, LPDIRECTDRAWSURFACE7 surfaceInterface) {
    DxNote("DeleteAttachedSurface(%s, %u, %s)", DxRef(this).c_str(), flags,
           DxRef(surfaceInterface).c_str());
    if (flags) return DDERR_INVALIDPARAMS;
    if (!surfaceInterface) {
        // Null lets go of everything attached afterwards.
        for (auto at = attached.begin(); at != attached.end();) {
            if (at->implicit) {
                ++at;
                continue;
            }
            DxSurface* gone = at->surface;
            at = attached.erase(at);
            gone->Drop();
        }
        return DD_OK;
    }
    for (auto at = attached.begin(); at != attached.end(); ++at) {
        if (at->surface != surfaceInterface) continue;
        if (at->implicit) return DDERR_CANNOTDETACHSURFACE;
        DxSurface* gone = at->surface;
        attached.erase(at);
        gone->Drop();
        return DD_OK;
    }
    return DDERR_SURFACENOTATTACHED;
}

HRESULT DxSurface::EnumAttachedSurfaces(LPVOID context, LPDDENUMSURFACESCALLBACK7 callback) {
    DxNote("EnumAttachedSurfaces(%s)", DxRef(this).c_str());
    if (!callback) return DDERR_INVALIDPARAMS;
    // A copy: the callback may detach what it is given.
    std::vector<DxSurface*> list;
    for (const Attachment& a : attached) list.push_back(a.surface);
    for (DxSurface* surface : list) surface->Grab();
    size_t next = 0;
    for (; next < list.size(); ++next) {
        DDSURFACEDESC2 desc;
        list[next]->FillDesc(desc);
        // The callback owns the reference it is handed, as published.
        if (callback(list[next], &desc, context) == DDENUMRET_CANCEL) {
            ++next;
            break;
        }
    }
    for (; next < list.size(); ++next) list[next]->Drop();
    return DD_OK;
}

HRESULT DxSurface::GetSurfaceDesc(LPDDSURFACEDESC2 desc) {
    DxNote("GetSurfaceDesc(%s)", DxRef(this).c_str());
    if (!desc || desc->dwSize != sizeof(DDSURFACEDESC2)) return DDERR_INVALIDPARAMS;
    FillDesc(*desc);
    return DD_OK;
}

HRESULT DxSurface::GetPixelFormat(LPDDPIXELFORMAT format) {
    DxNote("GetPixelFormat(%s)", DxRef(this).c_str());
    if (!format || format->dwSize != sizeof(DDPIXELFORMAT)) return DDERR_INVALIDPARAMS;
    *format = store.format;
    return DD_OK;
}

HRESULT DxSurface::SetClipper(LPDIRECTDRAWCLIPPER clipperInterface) {
    DxNote("SetClipper(%s, %s)", DxRef(this).c_str(), DxRef(clipperInterface).c_str());
    DxClipper* next = clipperInterface ? dynamic_cast<DxClipper*>(clipperInterface) : nullptr;
    if (clipperInterface && !next) return DDERR_INVALIDPARAMS;
    if (next) next->Grab();
    DxDrop(clipper);
    clipper = next;
    return DD_OK;
}
