#include <cstdio>
#include <cstring>

#include "base/diagnostics.h"
#include "base/memory.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/renderer.h"
#include "engine/render/renderer_config.h"
#include "engine/render/transparency.h"
#include "engine/render/vertex_pool.h"
#include "engine/texture/device_texture.h"
#include "engine/texture/texture.h"
#include "engine/texture/tga.h"
#include "platform/crt/clock.h"

namespace {

CRenderer* OpenDevices = nullptr;

bool IsZeroGuid(const GUID& guid) {
    return guid == GUID{};
}

template <typename T>
void Release(T*& object) {
    if (object) object->Release();
    object = nullptr;
}

// The adapter walk: each 3D driver is scored by its last device, and the best one kept.
struct AdapterWalk {
    CRenderer* renderer;
    LPDIRECTDRAW7 chosen;
    GUID chosenGuid;
};

HRESULT TakeMode(LPDDSURFACEDESC2 mode, LPVOID context) {
    DriverRecord* driver = static_cast<DriverRecord*>(context);
    if (mode->ddpfPixelFormat.dwRGBBitCount < 16) return DDENUMRET_OK;
    driver->modes =
        NEW DisplayModeRecord{int32_t(mode->dwWidth), int32_t(mode->dwHeight),
                              int32_t(mode->ddpfPixelFormat.dwRGBBitCount), driver->modes};
    return DDENUMRET_OK;
}

HRESULT ScoreDevice(LPSTR, LPSTR, LPD3DDEVICEDESC7 desc, LPVOID context) {
    CRenderer* renderer = static_cast<CRenderer*>(context);
    int32_t score = 0;
    if (desc->dwDevCaps & D3DDEVCAPS_HWRASTERIZATION) {
        score = desc->dpcTriCaps.dwTextureFilterCaps > 1 ? 1 : 0;
        if (desc->dwDevCaps & D3DDEVCAPS_HWTRANSFORMANDLIGHT)
            score = renderer->transformAllowed ? score + 1 : 0;
    }
    renderer->driverScore = score;
    return DDENUMRET_OK;
}

BOOL ExamineDriver(GUID* guid, LPSTR, LPSTR name, LPVOID context) {
    AdapterWalk* walk = static_cast<AdapterWalk*>(context);
    CRenderer* renderer = walk->renderer;
    LPDIRECTDRAW7 directDraw = nullptr;
    if (FAILED(DirectDrawCreateEx(guid, reinterpret_cast<LPVOID*>(&directDraw), IID_IDirectDraw7,
                                  nullptr)))
        return 1;
    DDCAPS caps;
    std::memset(&caps, 0, sizeof caps);
    caps.dwSize = sizeof caps;
    if (FAILED(directDraw->GetCaps(&caps, nullptr)) || !(caps.dwCaps & DDCAPS_3D)) {
        Release(directDraw);
        return 1;
    }

    DriverRecord* driver = NEW DriverRecord;
    driver->guid = guid ? *guid : GUID{};
    std::snprintf(driver->name, sizeof driver->name, "%s", name ? name : "");
    driver->modes = nullptr;
    driver->description = "3D";
    driver->next = renderer->drivers;
    renderer->drivers = driver;
    directDraw->EnumDisplayModes(0, nullptr, driver, TakeMode);

    renderer->driverScore = 0;
    LPDIRECT3D7 direct3D = nullptr;
    if (SUCCEEDED(
            directDraw->QueryInterface(IID_IDirect3D7, reinterpret_cast<LPVOID*>(&direct3D)))) {
        direct3D->EnumDevices(ScoreDevice, renderer);
        Release(direct3D);
    }

    int32_t score = renderer->driverScore;
    bool wins = !walk->chosen || (renderer->reverseChoice ? score <= renderer->bestScore
                                                          : score > renderer->bestScore);
    if (!wins) {
        Release(directDraw);
        return 1;
    }
    Release(walk->chosen);
    walk->chosen = directDraw;
    walk->chosenGuid = driver->guid;
    renderer->bestScore = score;
    return 1;
}

HRESULT FindTransformDevice(LPSTR, LPSTR, LPD3DDEVICEDESC7 desc, LPVOID context) {
    constexpr DWORD wanted = D3DDEVCAPS_HWRASTERIZATION | D3DDEVCAPS_HWTRANSFORMANDLIGHT;
    if ((desc->dwDevCaps & wanted) != wanted) return DDENUMRET_OK;
    *static_cast<bool*>(context) = true;
    return DDENUMRET_CANCEL;
}

struct DepthSearch {
    DWORD flags;
    DDPIXELFORMAT* found;
    bool any;
};

HRESULT FindDepthFormat(LPDDPIXELFORMAT format, LPVOID context) {
    DepthSearch* search = static_cast<DepthSearch*>(context);
    if (format->dwFlags != search->flags || format->dwZBufferBitDepth < 16) return DDENUMRET_OK;
    *search->found = *format;
    search->any = true;
    return DDENUMRET_CANCEL;
}

void ClearDecalSlot(CTexture* texture, void*) {
    texture->decalTally = 0;
}

DDSURFACEDESC2 SurfaceDesc(DWORD flags, DWORD caps) {
    DDSURFACEDESC2 desc;
    std::memset(&desc, 0, sizeof desc);
    desc.dwSize = sizeof desc;
    desc.dwFlags = flags;
    desc.ddsCaps.dwCaps = caps;
    return desc;
}

}  // namespace

CRenderer::CRenderer()
    : openFlags(0),
      multitexture(0),
      separateMemories(0),
      width(0),
      height(0),
      bitsPerPixel(0),
      fogEnable(0),
      fogDensity(1.0f),
      fogStart(0.0f),
      fogEnd(100.0f),
      fogColour(0),
      fogMode(0),
      directDraw(nullptr),
      primary(nullptr),
      flipping(nullptr),
      clipper(nullptr),
      window(nullptr),
      focusWindow(nullptr),
      windowRect{0, 0, 0, 0},
      windowStyle(0),
      deviceGuid(IID_IDirect3DHALDevice),
      driverGuid{},
      depthFormat{},
      deviceDesc{},
      direct3D(nullptr),
      device(nullptr),
      depthBuffer(nullptr),
      fromConfig(0),
      reverseChoice(0),
      hardwareTransform(0),
      softwareFormat(0),
      colourKey(0),
      textureFormats(nullptr),
      drivers(nullptr),
      displayFormat{},
      deviceLost(0),
      frameCount(0),
      dxtSupport(0),
      textureBlend(0),
      limits(nullptr),
      driverScore(0),
      bestScore(-1),
      transformAllowed(true),
      deviceTextures(nullptr),
      deviceTextureCount(0),
      deviceTextureCapacity(0),
      mipmapMode(0),
      defaultMipLevels(0),
      pools(nullptr),
      dynamicBuffers{},
      alphaSource(nullptr),
      alphaTarget(nullptr),
      decalSource(nullptr),
      decalTarget(nullptr),
      decalQuads(nullptr),
      decalQuadIndices(nullptr),
      transparency(nullptr),
      currentConfig(nullptr),
      nextOpen(nullptr) {
    ResetStateCache();
}

CRenderer::~CRenderer() {
    ReleaseMovieSurface();
    ReleaseDynamicBuffers(this);
    // The decal tally and the deferred list are freed here once decals and deferred draws exist.
    if (limits) DELETE(limits);
    limits = nullptr;
    while (DriverRecord* driver = drivers) {
        drivers = driver->next;
        while (DisplayModeRecord* mode = driver->modes) {
            driver->modes = mode->next;
            DELETE(mode);
        }
        DELETE(driver);
    }
    Sleep(1000);

    DestroyAllPools(this);
    ReleaseTransparency(this);  // before the first batch's buffers go
    ReleaseFixedBuffers(this);
    FreeAllDeviceTextures();
    while (TextureFormatRecord* record = textureFormats) {
        textureFormats = record->next;
        DELETE(record);
    }

    if (Has3D() && directDraw) {
        directDraw->RestoreDisplayMode();
        directDraw->SetCooperativeLevel(window, DDSCL_NORMAL);
    }
    Release(device);
    Release(depthBuffer);
    // The back buffer of a full screen chain is held through GetAttachedSurface, and a software
    // device keeps its own flipping surface and clipper: both are let go whatever the flags.
    if (primary) {
        Release(flipping);
        Release(clipper);
        Release(primary);
    }
    Release(direct3D);
    Release(directDraw);
    Sleep(1000);
}

bool CRenderer::ChooseAdapter() {
    if (openFlags & (OpenFromConfig | OpenWithDriverGuid)) {
        GUID* named = IsZeroGuid(driverGuid) ? nullptr : &driverGuid;
        return SUCCEEDED(DirectDrawCreateEx(named, reinterpret_cast<LPVOID*>(&directDraw),
                                            IID_IDirectDraw7, nullptr));
    }
    if (IsWindowed())
        return SUCCEEDED(DirectDrawCreateEx(nullptr, reinterpret_cast<LPVOID*>(&directDraw),
                                            IID_IDirectDraw7, nullptr));
    AdapterWalk walk = {this, nullptr, GUID{}};
    bestScore = -1;
    DirectDrawEnumerateA(ExamineDriver, &walk);
    directDraw = walk.chosen;
    driverGuid = walk.chosenGuid;
    return directDraw != nullptr;
}

// A window that is still coming up may refuse the level for a moment: a few tries, with a pause.
void CRenderer::SetCooperative() {
    for (int attempt = 0; attempt < 10; ++attempt) {
        HRESULT result;
        if (focusWindow) {
            result = directDraw->SetCooperativeLevel(focusWindow, IsWindowed() ? 650u : 659u);
        } else {
            result = directDraw->SetCooperativeLevel(window, DDSCL_SETFOCUSWINDOW);
            if (SUCCEEDED(result))
                result = directDraw->SetCooperativeLevel(window, IsWindowed() ? 10u : 19u);
        }
        Sleep(100);
        if (SUCCEEDED(result)) return;
    }
}

bool CRenderer::SetupDirect3D() {
    if (FAILED(directDraw->QueryInterface(IID_IDirect3D7, reinterpret_cast<LPVOID*>(&direct3D))))
        return false;
    if (!fromConfig && transformAllowed) {
        bool found = false;
        direct3D->EnumDevices(FindTransformDevice, &found);
        if (found) {
            CorvaneDebug("Using Hardware TnL....\n");
            deviceGuid = IID_IDirect3DTnLHalDevice;
            hardwareTransform = 1;
        }
    }
    DepthSearch search = {
        openFlags & OpenStencil ? DWORD(DDPF_ZBUFFER | DDPF_STENCILBUFFER) : DWORD(DDPF_ZBUFFER),
        &depthFormat, false};
    direct3D->EnumZBufferFormats(deviceGuid, FindDepthFormat, &search);
    if (!search.any && (openFlags & OpenStencil)) {
        openFlags &= ~uint32_t(OpenStencil);
        search.flags = DDPF_ZBUFFER;
        direct3D->EnumZBufferFormats(deviceGuid, FindDepthFormat, &search);
    }
    if (!search.any) {
        CorvaneDebug("Failed to enumerate valid/required zbuffer\n");
        CorvaneDebug("Failed to create Z Buffer");
        return false;
    }
    return true;
}

bool CRenderer::CreateSurfaces() {
    DWORD device3D = Has3D() ? DWORD(DDSCAPS_3DDEVICE) : 0;
    if (IsWindowed()) {
        DDSURFACEDESC2 desc = SurfaceDesc(
            DDSD_CAPS, DDSCAPS_PRIMARYSURFACE | (Has3D() ? DWORD(DDSCAPS_VIDEOMEMORY) : 0));
        if (FAILED(directDraw->CreateSurface(&desc, &primary, nullptr))) {
            primary = nullptr;
            CorvaneDebug("Could not make primary surface");
            return false;
        }
        if (SUCCEEDED(directDraw->CreateClipper(0, &clipper, nullptr))) {
            clipper->SetHWnd(0, window);
            primary->SetClipper(clipper);
        } else {
            clipper = nullptr;
        }
        desc = SurfaceDesc(DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT, DDSCAPS_VIDEOMEMORY | device3D);
        desc.dwWidth = DWORD(width);
        desc.dwHeight = DWORD(height);
        if (FAILED(directDraw->CreateSurface(&desc, &flipping, nullptr))) flipping = nullptr;
    } else {
        DDSURFACEDESC2 desc = SurfaceDesc(DDSD_CAPS | DDSD_BACKBUFFERCOUNT, 0x4218 | device3D);
        desc.dwBackBufferCount = 1;
        if (FAILED(directDraw->CreateSurface(&desc, &primary, nullptr))) {
            primary = nullptr;
            CorvaneDebug("Could not make primary surface");
            return false;
        }
        DDSCAPS2 back = {DDSCAPS_BACKBUFFER, 0, 0, 0};
        if (FAILED(primary->GetAttachedSurface(&back, &flipping))) flipping = nullptr;
    }
    if (!flipping) {
        CorvaneDebug("Could not make flipping surface");
        return false;
    }

    std::memset(&displayFormat, 0, sizeof displayFormat);
    displayFormat.dwSize = sizeof displayFormat;
    primary->GetPixelFormat(&displayFormat);
    softwareFormat = 0;
    if (displayFormat.dwRBitMask == 0x7C00) {
        softwareFormat = 0x5550;
        colourKey = 0x7C1F;
    } else if (displayFormat.dwRBitMask == 0xF800) {
        softwareFormat = 0x5650;
        colourKey = 0xF81F;
    }
    TextureForcedFormat = 0;
    if (!Has3D()) {
        if (!softwareFormat) {
            CorvaneDebug("Could not find valid SW pixel format");
            return false;
        }
        TextureForcedFormat = softwareFormat;
    }

    DDBLTFX fill;
    std::memset(&fill, 0, sizeof fill);
    fill.dwSize = sizeof fill;
    primary->Blt(nullptr, nullptr, nullptr, DDBLT_COLORFILL | DDBLT_WAIT, &fill);
    flipping->Blt(nullptr, nullptr, nullptr, DDBLT_COLORFILL | DDBLT_WAIT, &fill);
    return true;
}

bool CRenderer::CreateZBuffer() {
    DDSURFACEDESC2 desc = SurfaceDesc(DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT | DDSD_PIXELFORMAT,
                                      DDSCAPS_ZBUFFER | DDSCAPS_VIDEOMEMORY);
    desc.dwWidth = DWORD(width);
    desc.dwHeight = DWORD(height);
    desc.ddpfPixelFormat = depthFormat;
    if (FAILED(directDraw->CreateSurface(&desc, &depthBuffer, nullptr))) {
        depthBuffer = nullptr;
        CorvaneDebug("Could not create Z buffer");
        return false;
    }
    if (FAILED(flipping->AddAttachedSurface(depthBuffer))) {
        CorvaneDebug("Could not attach Z buffer");
        return false;
    }
    return true;
}

bool CRenderer::CreateDevice3D() {
    if (FAILED(direct3D->CreateDevice(deviceGuid, flipping, &device))) {
        device = nullptr;
        directDraw->SetCooperativeLevel(window, DDSCL_NORMAL);
        CorvaneDebug("Could not create device\n");
        return false;
    }
    std::memset(&deviceDesc, 0, sizeof deviceDesc);
    device->GetCaps(&deviceDesc);
    multitexture =
        deviceDesc.wMaxTextureBlendStages >= 2 && deviceDesc.wMaxSimultaneousTextures >= 2;
    separateMemories = deviceDesc.dwDevCaps & D3DDEVCAPS_SEPARATETEXTUREMEMORIES ? 1 : 0;
    RunDefaultState();
    return true;
}

// The defaults go straight to the device; what the engine draws with is requested on top.
void CRenderer::RunDefaultState() {
    {
        CRendererConfig defaults(this);
        defaults.SetDefaults();
    }
    SetRenderState(D3DRENDERSTATE_SHADEMODE, D3DSHADE_GOURAUD);
    SetRenderState(D3DRENDERSTATE_SPECULARENABLE, 0);
    SetRenderState(D3DRENDERSTATE_TEXTUREPERSPECTIVE, 1);
    SetRenderState(D3DRENDERSTATE_LIGHTING, 1);
    SetRenderState(D3DRENDERSTATE_FOGENABLE, 0);
    SetStageState(0, D3DTSS_TEXCOORDINDEX, 0);
    SetDefaultStages(false);
    SetStageState(0, D3DTSS_MAGFILTER, D3DTFG_LINEAR);
    SetStageState(0, D3DTSS_MINFILTER, D3DTFN_LINEAR);
    SetStageState(1, D3DTSS_TEXCOORDINDEX, 1);
    SetStageState(1, D3DTSS_COLORARG1, D3DTA_TEXTURE);
    SetStageState(1, D3DTSS_COLORARG2, D3DTA_CURRENT);
    SetStageState(1, D3DTSS_ALPHAARG2, D3DTA_TEXTURE);
    SetStageState(1, D3DTSS_ALPHAARG1, D3DTA_CURRENT);
    SetStageState(1, D3DTSS_COLOROP, D3DTOP_DISABLE);
    SetStageState(1, D3DTSS_ALPHAOP, D3DTOP_DISABLE);
    SetStageState(1, D3DTSS_MAGFILTER, D3DTFG_LINEAR);
    SetStageState(1, D3DTSS_MINFILTER, D3DTFN_LINEAR);
    for (uint32_t stage = 2; stage < StageCount; ++stage) {
        SetStageState(stage, D3DTSS_COLOROP, D3DTOP_DISABLE);
        SetStageState(stage, D3DTSS_ALPHAOP, D3DTOP_DISABLE);
    }
}

static bool OpenSteps(CRenderer* renderer) {
    if (!renderer->ChooseAdapter()) return false;
    renderer->SetCooperative();
    if (!renderer->IsWindowed() &&
        FAILED(renderer->directDraw->SetDisplayMode(DWORD(renderer->width), DWORD(renderer->height),
                                                    DWORD(renderer->bitsPerPixel), 0, 0))) {
        CorvaneDebug("Failed to set display mode\n");
        return false;
    }
    if (!renderer->Has3D()) return renderer->CreateSurfaces();
    if (!renderer->SetupDirect3D() || !renderer->CreateSurfaces() || !renderer->CreateZBuffer() ||
        !renderer->CreateDevice3D())
        return false;
    renderer->SetRenderState(D3DRENDERSTATE_SRCBLEND, D3DBLEND_SRCALPHA);
    renderer->SetRenderState(D3DRENDERSTATE_DESTBLEND, D3DBLEND_INVSRCALPHA);
    renderer->SetRenderState(D3DRENDERSTATE_DITHERENABLE, 1);
    if (!CreateFixedBuffers(renderer) || !CreateTransparency(renderer)) return false;
    renderer->EnumerateTextureFormats();
    D3DMATERIAL7 material;
    std::memset(&material, 0, sizeof material);
    material.dcvDiffuse = {1.0f, 1.0f, 1.0f, 1.0f};
    material.dcvAmbient = {1.0f, 1.0f, 1.0f, 1.0f};
    renderer->device->SetMaterial(&material);
    return true;
}

CRenderer* OpenDevice(void* window, uint32_t flags, int32_t width, int32_t height,
                      int32_t bitsPerPixel) {
    CRenderer* renderer = NEW CRenderer;
    renderer->width = width;
    renderer->height = height;
    renderer->bitsPerPixel = bitsPerPixel;
    if (flags & OpenFromConfig) {
        const RendererConfigRecord* record = static_cast<const RendererConfigRecord*>(window);
        renderer->window = record->window;
        renderer->focusWindow = record->focusWindow;
        renderer->driverGuid = record->driver;
        renderer->deviceGuid = record->device;
        if (record->has3D) flags |= Open3D;
        renderer->width = record->width;
        renderer->height = record->height;
        renderer->bitsPerPixel = record->bitsPerPixel;
        if (!record->fullScreen) flags |= OpenWindowed;
        renderer->fromConfig = 1;
    } else if (flags & OpenWithDriverGuid) {
        renderer->driverGuid = *static_cast<const GUID*>(window);
    } else {
        renderer->window = static_cast<HWND>(window);
    }
    renderer->openFlags = flags;
    renderer->reverseChoice = flags & OpenReverseChoice ? 1 : 0;
    renderer->transformAllowed = !(flags & OpenNoHardwareTransform);

    if (!OpenSteps(renderer)) {
        DELETE(renderer);
        return nullptr;
    }
    renderer->nextOpen = OpenDevices;
    OpenDevices = renderer;
    InstallDeviceTextureHooks();
    return renderer;
}

void CloseDevice(CRenderer* renderer) {
    if (!renderer) return;
    ForEachTexture(ClearDecalSlot, nullptr);
    for (CRenderer** link = &OpenDevices; *link; link = &(*link)->nextOpen) {
        if (*link != renderer) continue;
        *link = renderer->nextOpen;
        break;
    }
    if (!OpenDevices) SetTextureDeviceHooks(nullptr);
    DELETE(renderer);
}

CRenderer* FirstOpenDevice() {
    return OpenDevices;
}

void CloseVelmora() {
    // The pick scratch array and the multi-mesh queue go first here once they exist.
    CloseMeshRenderer();
    LogTexturesStillAllocated();
}
