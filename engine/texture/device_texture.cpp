#include "engine/texture/device_texture.h"

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/render/renderer.h"
#include "engine/texture/device_pixel_walk.h"
#include "engine/texture/texture.h"

uint8_t CompressDeviceTextures = 1;
uint8_t FreePixelsAfterUpload = 0;

namespace {

constexpr int32_t TableGrowth = 256;
constexpr DWORD DeviceLockFlags = DDLOCK_WAIT | DDLOCK_WRITEONLY | DDLOCK_NOSYSLOCK;

LPDIRECTDRAWSURFACE7 SurfaceOf(const CTexture* texture) {
    return static_cast<LPDIRECTDRAWSURFACE7>(texture->surface);
}

void ReleaseField(void*& field) {
    if (field) static_cast<LPDIRECTDRAWSURFACE7>(field)->Release();
    field = nullptr;
}

const TextureFormatRecord* BestFormat(CRenderer* renderer, const CTexture* texture) {
    return renderer->GetBestTextureFormat(texture->format, (texture->flags & TextureFlagKeyed) != 0,
                                          (texture->flags & TextureFlagAlpha) != 0);
}

void ReportReason(HRESULT result) {
    if (const char* name = DirectDrawErrorName(result)) {
        CorvaneDebug("%s", name);
        CorvaneDebug("\n");
    } else {
        CorvaneDebug("Unknown reason\n");
    }
}

const char* NameOf(const CTexture* texture) {
    return texture->name ? texture->name : "";
}

// The mip count of a new surface: the texture's own, else the device's default, cut down to the
// levels the width allows. 0 leaves the count to the surface.
DWORD MipCount(const CRenderer* renderer, const CTexture* texture) {
    uint32_t count = texture->mipLevels ? texture->mipLevels : uint32_t(renderer->defaultMipLevels);
    while (count > 32 || (count > 0 && (texture->width >> (count - 1)) == 0)) --count;
    return count;
}

void AddMipmaps(DDSURFACEDESC2& desc, DWORD count) {
    desc.ddsCaps.dwCaps |= DDSCAPS_MIPMAP | DDSCAPS_COMPLEX;
    if (!count) return;
    desc.dwFlags |= DDSD_MIPMAPCOUNT;
    desc.dwMipMapCount = count;
}

void FillLocked(CRenderer* renderer, LPDIRECTDRAWSURFACE7 surface,
                const TextureFormatRecord* format, CTexture* texture) {
    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof(desc);
    if (FAILED(renderer->LockSurfaceRetry(surface, nullptr, &desc, DDLOCK_WAIT))) return;
    FillTextureSurface(format, &desc, texture);
    surface->Unlock(nullptr);
}

// Each level scales the full-size image down itself, rather than halving the level above.
void FillMipChain(CRenderer* renderer, LPDIRECTDRAWSURFACE7 staging, DDSURFACEDESC2 desc,
                  const TextureFormatRecord* format, CTexture* texture) {
    desc.dwFlags &= ~DWORD(DDSD_MIPMAPCOUNT);
    desc.dwMipMapCount = 0;
    desc.ddsCaps.dwCaps = DDSCAPS_OFFSCREENPLAIN | DDSCAPS_SYSTEMMEMORY;
    LPDIRECTDRAWSURFACE7 temporary = nullptr;
    if (FAILED(renderer->directDraw->CreateSurface(&desc, &temporary, nullptr)) || !temporary) {
        CorvaneWarning("Texture Creation Failed For MIPMAP temporary %s\n", NameOf(texture));
        return;
    }
    FillLocked(renderer, temporary, format, texture);
    LPDIRECTDRAWSURFACE7 level = staging;
    level->AddRef();
    while (level) {
        if (FAILED(level->Blt(nullptr, temporary, nullptr, DDBLT_WAIT, nullptr)))
            CorvaneDebug("Blitting Mipmap level failure\n");
        DDSCAPS2 caps{DDSCAPS_TEXTURE | DDSCAPS_MIPMAP, 0, 0, 0};
        LPDIRECTDRAWSURFACE7 next = nullptr;
        if (FAILED(level->GetAttachedSurface(&caps, &next))) next = nullptr;
        level->Release();
        level = next;
    }
    temporary->Release();
}

// The surface proper: managed by default, in video memory for a render target.
HRESULT CreateDeviceSurface(CRenderer* renderer, CTexture* texture, uint32_t entryFlags,
                            const TextureFormatRecord* format) {
    const uint32_t flags = texture->flags;
    bool compress = CompressDeviceTextures != 0;
    if (entryFlags & TextureFlagNeverCompress) compress = false;
    if (entryFlags & TextureFlagAlpha) compress = false;
    if (entryFlags & TextureFlagAlwaysCompress) compress = true;
    if (entryFlags & TextureFlagMipChain) compress = false;
    if (texture->width % 4 != 0 || texture->height % 4 != 0) compress = false;
    if (entryFlags & TextureFlagDynamic) compress = false;
    if (entryFlags & TextureFlagRenderTarget) compress = false;

    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof(desc);
    desc.dwFlags = DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT | DDSD_PIXELFORMAT;
    desc.dwWidth = DWORD(texture->width);
    desc.dwHeight = DWORD(texture->height);
    desc.ddsCaps.dwCaps = DDSCAPS_TEXTURE;
    desc.ddsCaps.dwCaps2 = DDSCAPS2_TEXTUREMANAGE;
    if (renderer->separateMemories) {
        desc.dwFlags |= DDSD_TEXTURESTAGE;
        desc.dwTextureStage = texture->stage;
    }
    if (flags & TextureFlagDynamic) desc.ddsCaps.dwCaps2 |= DDSCAPS2_HINTDYNAMIC;
    if (flags & TextureFlagRenderTarget) {
        desc.ddsCaps.dwCaps = DDSCAPS_TEXTURE | DDSCAPS_VIDEOMEMORY | DDSCAPS_3DDEVICE;
        desc.ddsCaps.dwCaps2 = 0;
    }
    if (flags & TextureFlagCubeMap) {
        desc.ddsCaps.dwCaps2 = DDSCAPS2_CUBEMAP | DDSCAPS2_CUBEMAP_ALLFACES;
        desc.ddsCaps.dwCaps |= DDSCAPS_COMPLEX;
    }
    if (flags & TextureFlagMipChain) AddMipmaps(desc, MipCount(renderer, texture));

    const bool withAlpha = TextureFormatHasAlpha(texture->format) || (flags & TextureFlagAlpha);
    const uint32_t dxtBit = withAlpha ? DxtSupport5 : DxtSupport1;
    if (compress && (renderer->dxtSupport & dxtBit)) {
        desc.ddpfPixelFormat = DDPIXELFORMAT{};
        desc.ddpfPixelFormat.dwSize = sizeof(DDPIXELFORMAT);
        desc.ddpfPixelFormat.dwFlags = DDPF_FOURCC;
        desc.ddpfPixelFormat.dwFourCC = withAlpha ? FOURCC_DXT5 : FOURCC_DXT1;
    } else {
        desc.ddpfPixelFormat = format->format;
    }

    LPDIRECTDRAWSURFACE7 surface = nullptr;
    HRESULT result = renderer->directDraw->CreateSurface(&desc, &surface, nullptr);
    texture->surface = SUCCEEDED(result) ? surface : nullptr;
    if (SUCCEEDED(result)) return result;
    CorvaneDebug("Initial attempt failed to allocate Texture surface....\n");
    ReportReason(result);
    CorvaneDebug("Attempting second method\n");
    desc.ddsCaps.dwCaps2 &= ~DWORD(DDSCAPS2_TEXTUREMANAGE);
    surface = nullptr;
    result = renderer->directDraw->CreateSurface(&desc, &surface, nullptr);
    texture->surface = SUCCEEDED(result) ? surface : nullptr;
    if (SUCCEEDED(result)) return result;
    CorvaneDebug("Second attempt failed to allocate Texture surface....Sorry!\n");
    ReportReason(result);
    return result;
}

// A render target that the device cannot draw into is dropped; one larger than the back surface
// needs a depth buffer of its own.
void PrepareRenderTarget(CRenderer* renderer, CTexture* texture) {
    LPDIRECTDRAWSURFACE7 surface = SurfaceOf(texture);
    LPDIRECTDRAWSURFACE7 former = nullptr;
    renderer->device->GetRenderTarget(&former);
    HRESULT test = renderer->device->SetRenderTarget(surface, 0);
    if (former) {
        renderer->device->SetRenderTarget(former, 0);
        former->Release();
    }
    if (FAILED(test)) {
        ReleaseField(texture->surface);
        texture->depthSurface = nullptr;
        return;
    }
    if (texture->width <= renderer->width && texture->height <= renderer->height) return;
    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof(desc);
    HRESULT result =
        renderer->depthBuffer ? renderer->depthBuffer->GetSurfaceDesc(&desc) : DDERR_INVALIDOBJECT;
    LPDIRECTDRAWSURFACE7 depth = nullptr;
    if (SUCCEEDED(result)) {
        desc.dwWidth = DWORD(texture->width);
        desc.dwHeight = DWORD(texture->height);
        result = renderer->directDraw->CreateSurface(&desc, &depth, nullptr);
    }
    if (FAILED(result) || !depth) {
        if (result == DDERR_OUTOFMEMORY) CorvaneDebug("Out of memory!\n");
        if (result == DDERR_OUTOFVIDEOMEMORY) CorvaneDebug("Out of video memory!\n");
        ReleaseField(texture->surface);
        texture->depthSurface = nullptr;
        return;
    }
    surface->AddAttachedSurface(depth);
    texture->depthSurface = depth;
}

void ReleaseSurfaces(CTexture* texture) {
    ReleaseField(texture->stagingSurface);
    ReleaseField(texture->depthSurface);
    ReleaseField(texture->surface);
}

void ReleaseTextureEverywhere(CTexture* texture) {
    for (CRenderer* renderer = FirstOpenDevice(); renderer; renderer = renderer->nextOpen)
        if (renderer->IsOnDevice(texture)) renderer->FreeDeviceTexture(texture);
}

void ReleaseAllTexturesEverywhere() {
    for (CRenderer* renderer = FirstOpenDevice(); renderer; renderer = renderer->nextOpen) {
        renderer->FreeAllDeviceTextures();
        renderer->EvictTextures();
    }
}

// A compressed surface has no rows to write: it takes neither the direct road nor a refill.
bool IsCompressed(const DDSURFACEDESC2& desc) {
    return (desc.ddpfPixelFormat.dwFlags & DDPF_FOURCC) != 0;
}

bool LockSurfaceDirectly(CRenderer* renderer, CTexture* texture, TextureLock* out) {
    if (!texture->surface || !renderer->device) return false;
    if (!IsTextureLayout(BestFormat(renderer, texture), texture)) return false;
    DDSURFACEDESC2 desc{};
    if (!renderer->LockDeviceTexture(texture, &desc)) return false;
    if (IsCompressed(desc)) {
        UnlockDeviceTexture(texture);
        return false;
    }
    out->pixels = static_cast<uint8_t*>(desc.lpSurface);
    out->pitch = desc.lPitch;
    return true;
}

const TextureDeviceHooks DeviceTextureHooks = {ReleaseTextureEverywhere,
                                               ReleaseAllTexturesEverywhere, LockSurfaceDirectly,
                                               UnlockDeviceTexture, RefillDeviceTexture};

}  // namespace

void InstallDeviceTextureHooks() {
    SetTextureDeviceHooks(&DeviceTextureHooks);
}

const char* DirectDrawErrorName(HRESULT result) {
    static const struct {
        HRESULT result;
        const char* name;
    } names[] = {
        {DDERR_INVALIDPARAMS, "DDERR_INVALIDPARAMS"},
        {DDERR_OUTOFMEMORY, "DDERR_OUTOFMEMORY"},
        {DDERR_INCOMPATIBLEPRIMARY, "DDERR_INCOMPATIBLEPRIMARY"},
        {DDERR_INVALIDCAPS, "DDERR_INVALIDCAPS"},
        {DDERR_INVALIDOBJECT, "DDERR_INVALIDOBJECT"},
        {DDERR_INVALIDPIXELFORMAT, "DDERR_INVALIDPIXELFORMAT"},
        {DDERR_NOALPHAHW, "DDERR_NOALPHAHW"},
        {DDERR_NOCOOPERATIVELEVELSET, "DDERR_NOCOOPERATIVELEVELSET"},
        {DDERR_NOEXCLUSIVEMODE, "DDERR_NOEXCLUSIVEMODE"},
        {DDERR_NOFLIPHW, "DDERR_NOFLIPHW"},
        {DDERR_NOZBUFFERHW, "DDERR_NOZBUFFERHW"},
        {DDERR_NOOVERLAYHW, "DDERR_NOOVERLAYHW"},
        {DDERR_OUTOFVIDEOMEMORY, "DDERR_OUTOFVIDEOMEMORY"},
        {DDERR_NODIRECTDRAWHW, "DDERR_NODIRECTDRAWHW"},
        {DDERR_PRIMARYSURFACEALREADYEXISTS, "DDERR_PRIMARYSURFACEALREADYEXISTS"},
        {DDERR_NOMIPMAPHW, "DDERR_NOMIPMAPHW"},
        {DDERR_UNSUPPORTEDMODE, "DDERR_UNSUPPORTEDMODE"},
        {DDERR_NOEMULATION, "DDERR_NOEMULATION"},
    };
    for (const auto& entry : names)
        if (entry.result == result) return entry.name;
    return nullptr;
}

void CRenderer::LoadDeviceTexture(CTexture* texture) {
    if (!texture || !device || !directDraw || IsOnDevice(texture)) return;
    // A surface made by another device stays that device's.
    if (texture->surface) return;
    if (deviceTextureCount == deviceTextureCapacity) {
        int32_t capacity = deviceTextureCapacity + TableGrowth;
        auto* table = static_cast<CTexture**>(
            CvReallocCopy(deviceTextures, size_t(deviceTextureCapacity) * sizeof(CTexture*),
                          size_t(capacity) * sizeof(CTexture*)));
        if (!table) {
            deviceTextures = nullptr;
            deviceTextureCount = deviceTextureCapacity = 0;
            return;
        }
        deviceTextures = table;
        deviceTextureCapacity = capacity;
    }
    deviceTextures[deviceTextureCount++] = texture;
    InstallDeviceTextureHooks();

    const uint32_t entryFlags = texture->flags;
    const uint32_t noMipmaps = TextureFlagRenderTarget | TextureFlagCubeMap;
    if (mipmapMode == 2 || (entryFlags & noMipmaps))
        texture->flags &= ~uint32_t(TextureFlagMipChain);
    else if (mipmapMode == 1)
        texture->flags |= TextureFlagMipChain;
    const bool mipmaps = (texture->flags & TextureFlagMipChain) != 0;
    const bool renderTarget = (entryFlags & TextureFlagRenderTarget) != 0;
    const TextureFormatRecord* format = BestFormat(this, texture);

    LPDIRECTDRAWSURFACE7 staging = nullptr;
    if (!renderTarget) {
        DDSURFACEDESC2 desc{};
        desc.dwSize = sizeof(desc);
        desc.dwFlags = DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT | DDSD_PIXELFORMAT;
        desc.ddsCaps.dwCaps = DDSCAPS_TEXTURE | DDSCAPS_SYSTEMMEMORY;
        desc.dwWidth = DWORD(texture->width);
        desc.dwHeight = DWORD(texture->height);
        desc.ddpfPixelFormat = format->format;
        if (mipmaps) AddMipmaps(desc, MipCount(this, texture));
        if (FAILED(directDraw->CreateSurface(&desc, &staging, nullptr)) || !staging) {
            CorvaneWarning("Texture Creation Failed For %s\n", NameOf(texture));
            return;
        }
        texture->stagingSurface = staging;
        if (mipmaps)
            FillMipChain(this, staging, desc, format, texture);
        else
            FillLocked(this, staging, format, texture);
    }
    if (FreePixelsAfterUpload && !(entryFlags & TextureFlagDynamic) && texture->pixels) {
        FREE(texture->pixels);
        texture->pixels = nullptr;
    }

    CreateDeviceSurface(this, texture, entryFlags, format);
    LPDIRECTDRAWSURFACE7 surface = SurfaceOf(texture);
    if (!renderTarget) {
        if (surface && (texture->flags & TextureFlagMipChain))
            device->Load(surface, nullptr, staging, nullptr, 0);
        else if (surface)
            surface->Blt(nullptr, staging, nullptr, DDBLT_WAIT, nullptr);
        ReleaseField(texture->stagingSurface);
        return;
    }
    if (surface) PrepareRenderTarget(this, texture);
}

bool CRenderer::LockDeviceTexture(CTexture* texture, DDSURFACEDESC2* out) {
    LPDIRECTDRAWSURFACE7 surface = SurfaceOf(texture);
    if (!surface) return false;
    *out = DDSURFACEDESC2{};
    out->dwSize = sizeof(DDSURFACEDESC2);
    return SUCCEEDED(LockSurfaceRetry(surface, nullptr, out, DeviceLockFlags));
}

void UnlockDeviceTexture(CTexture* texture) {
    if (LPDIRECTDRAWSURFACE7 surface = SurfaceOf(texture)) surface->Unlock(nullptr);
}

void RefillDeviceTexture(CRenderer* renderer, CTexture* texture) {
    LPDIRECTDRAWSURFACE7 surface = SurfaceOf(texture);
    if (!renderer || !surface || !renderer->directDraw) return;
    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof(desc);
    renderer->LockSurfaceRetry(surface, nullptr, &desc, DeviceLockFlags);
    if (!IsCompressed(desc)) FillTextureSurface(BestFormat(renderer, texture), &desc, texture);
    surface->Unlock(nullptr);
}

void CRenderer::EvictTextures() {
    if (device && direct3D) direct3D->EvictManagedTextures();
}

void CRenderer::PreloadTexture(CTexture* texture) {
    if (!texture || !device) return;
    if (!texture->surface) LoadDeviceTexture(texture);
    if (texture->surface) device->PreLoad(SurfaceOf(texture));
}

bool CRenderer::IsOnDevice(const CTexture* texture) const {
    for (int32_t i = 0; i < deviceTextureCount; ++i)
        if (deviceTextures[i] == texture) return true;
    return false;
}

void CRenderer::FreeDeviceTexture(CTexture* texture) {
    for (int32_t i = 0; i < deviceTextureCount; ++i) {
        if (deviceTextures[i] != texture) continue;
        ReleaseSurfaces(texture);
        deviceTextures[i] = deviceTextures[--deviceTextureCount];
        // The stages must not go on naming a texture that may be freed next.
        for (uint32_t stage = 0; stage < StageCount; ++stage) {
            if (device) device->SetTexture(stage, nullptr);
            appliedTextures[stage] = nullptr;
            if (requestedTextures[stage] == texture) requestedTextures[stage] = nullptr;
        }
        return;
    }
}

void CRenderer::FreeAllDeviceTextures() {
    for (int32_t i = 0; i < deviceTextureCount; ++i) ReleaseSurfaces(deviceTextures[i]);
    if (deviceTextures) FREE(deviceTextures);
    deviceTextures = nullptr;
    deviceTextureCount = deviceTextureCapacity = 0;
    for (uint32_t stage = 0; stage < StageCount; ++stage) {
        if (device) device->SetTexture(stage, nullptr);
        appliedTextures[stage] = requestedTextures[stage] = nullptr;
    }
}
