// CRenderer: the engine's handle on a display adapter. It owns the DirectDraw and Direct3D
// objects, the surfaces and depth buffer, the state cache, the vertex buffer pools and the
// textures it has made surfaces for. One class, kept in several files by concern:
//   renderer_open.cpp      adapter choice, OpenDevice, surfaces, depth buffer, device, CloseDevice
//   renderer_present.cpp   Flip, lost device checks and reset, render targets
//   renderer_formats.cpp   texture formats and GetBestTextureFormat, limits, PackColour
//   state_cache.cpp        requested and applied state, ApplyState, alpha mode, default stages
//   renderer_config.cpp    CRendererConfig and the device's default state
//   state_validation.cpp   ValidateState, ValidateMultiMeshPass, TestTextureBlend
//   vertex_pool.cpp, dynamic_buffers.cpp, poly_buffer.cpp   vertex buffers
//   engine/texture/device_texture.cpp                       texture surfaces
#pragma once

#include <cstdint>

#include "platform/dx7/d3d7.h"

class CTexture;
class CMultiMesh;
class CPolyBuffer;
class CRendererConfig;
class CViewport;
struct VertexBufferPool;
struct VertexBufferInfo;
struct TransparencyCache;

enum RendererOpenFlags : uint32_t {
    OpenWindowed = 1,
    Open3D = 2,
    OpenFromConfig = 4,     // the window argument is a RendererConfigRecord
    OpenReverseChoice = 8,  // the last of equally good adapters wins
    OpenNoHardwareTransform = 16,
    OpenStencil = 32,
    OpenWithDriverGuid = 64,  // the window argument starts with the driver's GUID
};

// The configuration record of OpenFromConfig, in this order.
struct RendererConfigRecord {
    HWND window;
    HWND focusWindow;
    GUID driver;
    GUID device;
    uint8_t has3D;  // adds Open3D
    int32_t width;
    int32_t height;
    uint8_t bitsPerPixel;
    uint8_t fullScreen;  // zero adds OpenWindowed
};

// A texture format the device offers, with its channels taken apart.
struct TextureFormatRecord {
    DDPIXELFORMAT format;
    int32_t bytesPerPixel;
    uint32_t redMask, greenMask, blueMask, alphaMask;      // alphaMask 0 without alpha pixels
    uint32_t redShift, greenShift, blueShift, alphaShift;  // lowest set bit
    uint32_t redBits, greenBits, blueBits, alphaBits;
    TextureFormatRecord* next;
};

struct DisplayModeRecord {
    int32_t width, height, bitsPerPixel;
    DisplayModeRecord* next;
};

struct DriverRecord {
    GUID guid;  // zero for the default driver
    char name[128];
    DisplayModeRecord* modes;
    const char* description;  // "3D"
    DriverRecord* next;
};

struct DeviceLimits {
    int32_t maxTextureWidth, maxTextureHeight;  // -1 where the device says 0
    int32_t minTextureWidth, minTextureHeight;
    int32_t blendStages;
    int32_t simultaneousTextures;
    uint8_t powerOfTwoOnly;
    uint8_t squareOnly;
};

enum DxtSupport : uint32_t {
    DxtSupport1 = 1,
    DxtSupport2 = 2,
    DxtSupport3 = 4,
    DxtSupport4 = 8,
    DxtSupport5 = 16,
};

constexpr int RenderStateCount = 160;
constexpr int StageCount = 8;
constexpr int StageStateCount = 25;

class CRenderer {
public:
    CRenderer();   // the data model's defaults, all lists empty, the state cache unknown
    ~CRenderer();  // the destruction order of the device; see renderer_open.cpp
    CRenderer(const CRenderer&) = delete;
    CRenderer& operator=(const CRenderer&) = delete;

    // Presenting and losing the device.
    void Flip();
    void UpdateViewport();
    bool CheckDevice();  // false: the frame is not to be drawn
    void ResetDevice();
    void RestoreLostSurfaces();
    void SetTarget(LPDIRECTDRAWSURFACE7 surface);
    HRESULT LockSurfaceRetry(LPDIRECTDRAWSURFACE7 surface, RECT* rect, DDSURFACEDESC2* desc,
                             DWORD flags);
    HRESULT LockBufferRetry(LPDIRECT3DVERTEXBUFFER7 buffer, DWORD flags, void** data);
    void ResetDisplay();
    void ReleaseToDesktop();
    // Works out the window rectangle around the client size, centred on the screen, into
    // windowRect and windowStyle; false if it cannot fit even without a frame.
    bool FitWindow();

    // A viewport of the device (viewport.cpp): on a 3D device the device's viewport is set to
    // the rectangle; on a software device it gets its surface and depth words.
    CViewport* CreateViewport(int32_t left, int32_t top, int32_t width, int32_t height);
    void DestroyViewport(CViewport* viewport);

    bool Has3D() const { return (openFlags & Open3D) != 0; }
    bool IsWindowed() const { return (openFlags & OpenWindowed) != 0; }
    bool HasHardwareTransform() const { return hardwareTransform != 0; }
    const DeviceLimits* GetDeviceLimits();

    // Formats.
    uint32_t PackColour(uint8_t red, uint8_t green, uint8_t blue) const;
    LPDIRECTDRAWSURFACE7 CreateOffscreen(int32_t width, int32_t height, DWORD caps);
    const TextureFormatRecord* GetBestTextureFormat(uint32_t format, bool colourKey, bool alpha);

    // Textures on the device.
    void LoadDeviceTexture(CTexture* texture);
    bool LockDeviceTexture(CTexture* texture, DDSURFACEDESC2* out);
    void EvictTextures();
    void PreloadTexture(CTexture* texture);
    void FreeDeviceTexture(CTexture* texture);
    void FreeAllDeviceTextures();
    bool IsOnDevice(const CTexture* texture) const;

    // Reports: screenshot.cpp (index -1: the next free number) and video_memory_report.cpp.
    void SaveScreenShot(const char* prefix, int32_t index);
    void ReleaseMovieSurface();  // the screenshot's copy, if this device made it
    void ReportVideoMemory(uint32_t* video, uint32_t* localTexture, uint32_t* texture);

    // Pre-transformed triangles, run by run (poly_buffer.cpp).
    void RenderPolyBuffer(CPolyBuffer* buffer);

    // The state cache.
    void SetRenderState(uint32_t id, uint32_t value);
    uint32_t GetRenderState(uint32_t id) const { return requestedRenderStates[id]; }
    void SetStageState(uint32_t stage, uint32_t id, uint32_t value);
    uint32_t GetStageState(uint32_t stage, uint32_t id) const {
        return requestedStageStates[stage * StageStateCount + id];
    }
    void RequestStageTexture(CTexture* texture, uint32_t stage);
    void ForceStageTexture(CTexture* texture, uint32_t stage);
    void ApplyState();
    void ApplyStageTexture(CTexture* texture, uint32_t stage);
    void SetAlphaMode(bool on);
    void SetDefaultStages(bool twoLayers);
    void ResetStateCache();  // everything unknown again
    HRESULT ValidateState(DWORD* passes);
    bool ValidateMultiMeshPass(CMultiMesh* mesh, int pass);
    // The core of ValidateMultiMeshPass: stages 0 to stageCount - 1 take each its block of seven
    // words (COLORARG1, COLORARG2, COLOROP, ALPHAARG1, ALPHAARG2, ALPHAOP, spare), coordinate
    // set and texture; the stage behind is disabled, and the driver is asked.
    bool ValidateStageSetup(int stageCount, const uint32_t* const* blocks,
                            const uint8_t* coordinates, CTexture* const* textures);
    uint32_t TestTextureBlend(bool applyOnly);
    void Apply(CRendererConfig* config, bool force);  // renderer_config.cpp

    // The steps of OpenDevice (renderer_open.cpp).
    bool ChooseAdapter();
    void SetCooperative();
    bool SetupDirect3D();
    bool CreateSurfaces();
    bool CreateZBuffer();
    bool CreateDevice3D();
    void RunDefaultState();
    void EnumerateTextureFormats();  // renderer_formats.cpp

    // Open flags and what the open found.
    uint32_t openFlags;
    uint8_t multitexture;
    uint8_t separateMemories;
    int32_t width, height, bitsPerPixel;
    uint8_t fogEnable;
    float fogDensity, fogStart, fogEnd;
    uint32_t fogColour;
    uint8_t fogMode;

    LPDIRECTDRAW7 directDraw;
    LPDIRECTDRAWSURFACE7 primary;
    LPDIRECTDRAWSURFACE7 flipping;  // the render target
    LPDIRECTDRAWCLIPPER clipper;    // windowed only
    HWND window;
    HWND focusWindow;
    RECT windowRect;       // FitWindow's result, on the screen
    uint32_t windowStyle;  // 0xC00000 (caption) or 0
    GUID deviceGuid;
    GUID driverGuid;
    DDPIXELFORMAT depthFormat;
    D3DDEVICEDESC7 deviceDesc;
    LPDIRECT3D7 direct3D;
    LPDIRECT3DDEVICE7 device;
    LPDIRECTDRAWSURFACE7 depthBuffer;
    uint8_t fromConfig;
    uint8_t reverseChoice;
    uint8_t hardwareTransform;
    uint32_t softwareFormat;  // 0x5550, 0x5650 or 0
    uint32_t colourKey;       // the display's key pixel
    TextureFormatRecord* textureFormats;
    DriverRecord* drivers;
    DDPIXELFORMAT displayFormat;
    uint8_t deviceLost;
    uint32_t frameCount;
    uint32_t dxtSupport;    // DxtSupport bits
    uint32_t textureBlend;  // TestTextureBlend's result
    DeviceLimits* limits;

    // Enumeration.
    int32_t driverScore;
    int32_t bestScore;
    bool transformAllowed;

    // Textures on the device.
    CTexture** deviceTextures;
    int32_t deviceTextureCount;
    int32_t deviceTextureCapacity;  // grows by 256
    int32_t mipmapMode;             // 0 by the texture's flag, 1 all on, 2 all off
    int32_t defaultMipLevels;

    // Vertex buffers.
    VertexBufferPool* pools;  // newest first
    LPDIRECT3DVERTEXBUFFER7 dynamicBuffers[11];
    LPDIRECT3DVERTEXBUFFER7 alphaSource;  // the first alpha batch
    LPDIRECT3DVERTEXBUFFER7 alphaTarget;
    LPDIRECT3DVERTEXBUFFER7 decalSource;
    LPDIRECT3DVERTEXBUFFER7 decalTarget;
    LPDIRECT3DVERTEXBUFFER7 decalQuads;
    uint16_t* decalQuadIndices;       // 384 entries
    TransparencyCache* transparency;  // the depth-binned cache and the alpha batches

    // The state cache: requested and applied values, dirty masks.
    uint32_t appliedRenderStates[RenderStateCount];
    uint32_t requestedRenderStates[RenderStateCount];
    uint32_t renderDirty[5];
    uint32_t renderDirtyGroups;
    uint32_t appliedStageStates[StageCount * StageStateCount];
    uint32_t requestedStageStates[StageCount * StageStateCount];
    uint32_t stageDirty[StageCount];
    uint32_t stageDirtyGroups;
    CTexture* appliedTextures[StageCount];
    CTexture* requestedTextures[StageCount];
    uint32_t textureDirty;
    CRendererConfig* currentConfig;

    CRenderer* nextOpen;  // the list of open devices
};

// Opens a device on window (or, by flags, on a configuration record or a driver GUID). Null on
// any failure, after the messages of the failing step.
CRenderer* OpenDevice(void* window, uint32_t flags, int32_t width, int32_t height,
                      int32_t bitsPerPixel);
void CloseDevice(CRenderer* renderer);
CRenderer* FirstOpenDevice();
void CloseVelmora();
