// The objects behind the DirectDraw 7 and Direct3D 7 interfaces, shared by their .cpp files.
// References are counted as published: each object holds a reference on what it needs to stay
// valid (a surface on its DirectDraw object, a device on its target and stage textures), so no
// release order can leave a dangling pointer.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/dx7/adapter_table.h"
#include "platform/dx7/call_recorder.h"
#include "platform/dx7/d3d7.h"
#include "platform/dx7/gl/gl_backend.h"
#include "platform/dx7/surface_store.h"
#include "platform/dx7/vertex_layout.h"

// ---- call record -------------------------------------------------------------------------------

bool DxRecording();
void DxNote(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string DxRef(const void* object);  // "#N" or "null"

// ---- object numbers and reference counts -------------------------------------------------------

uint32_t DxRegisterObject(const void* object);
void DxForgetObject(const void* object);

template <class Interface>
class DxCounted : public Interface {
public:
    HRESULT QueryInterface(REFIID iid, LPVOID* out) override {
        DxNote("QueryInterface(%s)", DxRef(this).c_str());
        if (!out) return DDERR_INVALIDPARAMS;
        *out = nullptr;
        if (!IsUnknown(iid)) return E_NOINTERFACE;
        Grab();
        *out = this;
        return S_OK;
    }
    uint32_t AddRef() override {
        DxNote("AddRef(%s)", DxRef(this).c_str());
        return Grab();
    }
    uint32_t Release() override {
        DxNote("Release(%s)", DxRef(this).c_str());
        return Drop();
    }

    // The layer's own references, which stay out of the call record.
    uint32_t Grab() { return ++references; }
    uint32_t Drop() {
        uint32_t left = --references;
        if (left == 0) delete this;
        return left;
    }
    uint32_t Number() const { return number; }

protected:
    DxCounted() : number(DxRegisterObject(this)) {}
    ~DxCounted() override { DxForgetObject(this); }

    static bool IsUnknown(REFIID iid) {
        static const GUID unknown = {0, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};
        return iid == unknown;
    }

private:
    uint32_t references = 1;
    uint32_t number;
};

template <class Object>
void DxDrop(Object*& object) {
    if (object) object->Drop();
    object = nullptr;
}

// ---- pixels ------------------------------------------------------------------------------------

struct DxChannel {
    uint32_t mask;
    int shift;
    int bits;
};

// How to read and write one pixel of a surface's format.
struct DxPixelLayout {
    int bytes;    // 1 to 4
    bool fourCc;  // DXT: kept as 32-bit ARGB in memory
    bool depth;   // a Z buffer (red is the depth mask, alpha the stencil mask)
    DxChannel red, green, blue, alpha;
};

// False for a format this layer cannot keep (palettes, luminance, bump maps, odd masks).
bool DxDescribePixels(const DDPIXELFORMAT& format, DxPixelLayout& out);
uint32_t DxReadPixel(const uint8_t* at, int bytes);
void DxWritePixel(uint8_t* at, int bytes, uint32_t value);
uint32_t DxToArgb(const DxPixelLayout& layout, uint32_t raw);
uint32_t DxFromArgb(const DxPixelLayout& layout, uint32_t argb);
bool DxSameFormat(const DDPIXELFORMAT& a, const DDPIXELFORMAT& b);
// The format of a display mode's bit depth; false for a depth without a fixed layout.
bool DxModeFormat(DWORD bitsPerPixel, DDPIXELFORMAT& out);
// The DDBD_ bit of a bit depth, 0 for one without.
DWORD DxBitDepthFlag(DWORD bits);

// ---- objects -----------------------------------------------------------------------------------

class DxSurface;
class DxDirect3D;

class DxClipper final : public DxCounted<IDirectDrawClipper> {
public:
    HRESULT SetHWnd(DWORD flags, HWND window) override;
    HRESULT GetHWnd(HWND* window) override;

    HWND window = nullptr;
};

class DxDirectDraw final : public DxCounted<IDirectDraw7> {
public:
    explicit DxDirectDraw(const DxAdapterEntry& adapter);

    HRESULT QueryInterface(REFIID iid, LPVOID* out) override;
    HRESULT GetCaps(LPDDCAPS driverCaps, LPDDCAPS emulationCaps) override;
    HRESULT EnumDisplayModes(DWORD flags, LPDDSURFACEDESC2 filter, LPVOID context,
                             LPDDENUMMODESCALLBACK2 callback) override;
    HRESULT GetDisplayMode(LPDDSURFACEDESC2 desc) override;
    HRESULT SetCooperativeLevel(HWND window, DWORD flags) override;
    HRESULT SetDisplayMode(DWORD width, DWORD height, DWORD bitsPerPixel, DWORD refreshRate,
                           DWORD flags) override;
    HRESULT RestoreDisplayMode() override;
    HRESULT CreateSurface(LPDDSURFACEDESC2 desc, LPDIRECTDRAWSURFACE7* out,
                          IUnknown* outer) override;
    HRESULT CreateClipper(DWORD flags, LPDIRECTDRAWCLIPPER* out, IUnknown* outer) override;
    HRESULT RestoreAllSurfaces() override;
    HRESULT TestCooperativeLevel() override;
    HRESULT GetAvailableVidMem(LPDDSCAPS2 caps, LPDWORD total, LPDWORD free) override;

    const DxAdapterEntry adapter;
    DxDisplayMode desktop;
    DxDisplayMode mode;
    DDPIXELFORMAT displayFormat;
    HWND window = nullptr;
    HWND focusWindow = nullptr;
    bool levelSet = false;
    bool exclusive = false;
    std::vector<DxSurface*> surfaces;  // every live surface, for RestoreAllSurfaces
    DxSurface* primary = nullptr;
    DxDirect3D* direct3d = nullptr;  // made on first query, forgets itself when released

    uint64_t videoBytes = 0;  // of the live surfaces that count against videoMemory

private:
    ~DxDirectDraw() override = default;
    HRESULT MakeSurface(const DDSURFACEDESC2& desc, DxSurface*& out);
};

class DxSurface final : public DxCounted<IDirectDrawSurface7> {
public:
    DxSurface(DxDirectDraw* owner, uint32_t caps, uint32_t caps2, DWORD width, DWORD height,
              const DDPIXELFORMAT& format, const DxPixelLayout& layout);

    HRESULT Lock(RECT* rect, LPDDSURFACEDESC2 desc, DWORD flags, HANDLE event) override;
    HRESULT Unlock(RECT* rect) override;
    HRESULT Blt(RECT* destRect, LPDIRECTDRAWSURFACE7 source, RECT* sourceRect, DWORD flags,
                LPDDBLTFX effects) override;
    HRESULT Flip(LPDIRECTDRAWSURFACE7 target, DWORD flags) override;
    HRESULT IsLost() override;
    HRESULT Restore() override;
    HRESULT GetAttachedSurface(LPDDSCAPS2 caps, LPDIRECTDRAWSURFACE7* out) override;
    HRESULT AddAttachedSurface(LPDIRECTDRAWSURFACE7 surface) override;
    HRESULT DeleteAttachedSurface(DWORD flags, LPDIRECTDRAWSURFACE7 surface) override;
    HRESULT EnumAttachedSurfaces(LPVOID context, LPDDENUMSURFACESCALLBACK7 callback) override;
    HRESULT GetSurfaceDesc(LPDDSURFACEDESC2 desc) override;
    HRESULT GetPixelFormat(LPDDPIXELFORMAT format) override;
    HRESULT SetClipper(LPDIRECTDRAWCLIPPER clipper) override;

    // The attached Z buffer's memory, or null.
    DxSurfaceStore* AttachedDepth() const;
    // Brings the pixels GL drew back into memory before the processor reads them.
    void SyncFromGl();
    bool Lost() const;
    void MarkRestored();
    void FillDesc(DDSURFACEDESC2& desc) const;
    // The surface as 0xAARRGGBB rows, width by height, sampled nearest from rect.
    void ToArgb(const RECT& rect, DWORD width, DWORD height, std::vector<uint32_t>& out);
    // Copies source's from rectangle onto this one's to rectangle, scaling nearest and
    // converting between formats; both rectangles lie inside their surfaces.
    HRESULT CopyFrom(DxSurface& source, const RECT& from, const RECT& to);

    DxDirectDraw* owner;
    DxSurfaceStore store;
    DxPixelLayout layout;
    DWORD mipCount = 1;  // levels from this one down
    bool locked = false;
    bool lockedReadOnly = false;

    struct Attachment {
        DxSurface* surface;
        bool implicit;  // made with this one as part of a flip or mip chain
    };
    std::vector<Attachment> attached;
    DxClipper* clipper = nullptr;

private:
    ~DxSurface() override;
    uint64_t restoredGeneration;
    HRESULT Present(DxSurface& source, const RECT& rect, DWORD width, DWORD height);
};

class DxDirect3D final : public DxCounted<IDirect3D7> {
public:
    explicit DxDirect3D(DxDirectDraw* owner);

    HRESULT QueryInterface(REFIID iid, LPVOID* out) override;
    HRESULT EnumDevices(LPD3DENUMDEVICESCALLBACK7 callback, LPVOID context) override;
    HRESULT CreateDevice(REFCLSID guid, LPDIRECTDRAWSURFACE7 target,
                         LPDIRECT3DDEVICE7* out) override;
    HRESULT CreateVertexBuffer(LPD3DVERTEXBUFFERDESC desc, LPDIRECT3DVERTEXBUFFER7* out,
                               DWORD flags) override;
    HRESULT EnumZBufferFormats(REFCLSID device, LPD3DENUMPIXELFORMATSCALLBACK callback,
                               LPVOID context) override;
    HRESULT EvictManagedTextures() override;

    const DxDeviceEntry* FindDevice(const GUID& guid) const;

    DxDirectDraw* owner;

private:
    ~DxDirect3D() override;
};

class DxVertexBuffer final : public DxCounted<IDirect3DVertexBuffer7> {
public:
    DxVertexBuffer(DxDirect3D* owner, const D3DVERTEXBUFFERDESC& desc,
                   const DxVertexLayout& layout);

    HRESULT Lock(DWORD flags, LPVOID* data, LPDWORD size) override;
    HRESULT Unlock() override;
    HRESULT ProcessVertices(DWORD operations, DWORD destIndex, DWORD count,
                            LPDIRECT3DVERTEXBUFFER7 source, DWORD sourceIndex,
                            LPDIRECT3DDEVICE7 device, DWORD flags) override;
    HRESULT GetVertexBufferDesc(LPD3DVERTEXBUFFERDESC desc) override;
    HRESULT Optimize(LPDIRECT3DDEVICE7 device, DWORD flags) override;

    DxDirect3D* owner;
    D3DVERTEXBUFFERDESC desc;
    DxVertexLayout layout;
    std::vector<uint8_t> bytes;
    bool locked = false;

private:
    ~DxVertexBuffer() override;
};

class DxDevice final : public DxCounted<IDirect3DDevice7> {
public:
    DxDevice(DxDirect3D* owner, const DxDeviceEntry& entry, DxSurface* target);

    HRESULT GetCaps(LPD3DDEVICEDESC7 desc) override;
    HRESULT EnumTextureFormats(LPD3DENUMPIXELFORMATSCALLBACK callback, LPVOID context) override;
    HRESULT BeginScene() override;
    HRESULT EndScene() override;
    HRESULT SetRenderTarget(LPDIRECTDRAWSURFACE7 surface, DWORD flags) override;
    HRESULT GetRenderTarget(LPDIRECTDRAWSURFACE7* out) override;
    HRESULT Clear(DWORD count, LPD3DRECT rects, DWORD flags, D3DCOLOR colour, D3DVALUE z,
                  DWORD stencil) override;
    HRESULT SetTransform(D3DTRANSFORMSTATETYPE type, LPD3DMATRIX matrix) override;
    HRESULT GetTransform(D3DTRANSFORMSTATETYPE type, LPD3DMATRIX matrix) override;
    HRESULT SetViewport(LPD3DVIEWPORT7 viewport) override;
    HRESULT GetViewport(LPD3DVIEWPORT7 viewport) override;
    HRESULT SetMaterial(LPD3DMATERIAL7 material) override;
    HRESULT GetMaterial(LPD3DMATERIAL7 material) override;
    HRESULT SetLight(DWORD index, LPD3DLIGHT7 light) override;
    HRESULT GetLight(DWORD index, LPD3DLIGHT7 light) override;
    HRESULT LightEnable(DWORD index, BOOL enable) override;
    HRESULT SetRenderState(D3DRENDERSTATETYPE state, DWORD value) override;
    HRESULT GetRenderState(D3DRENDERSTATETYPE state, LPDWORD value) override;
    HRESULT DrawPrimitive(D3DPRIMITIVETYPE type, DWORD fvf, LPVOID vertices, DWORD count,
                          DWORD flags) override;
    HRESULT DrawIndexedPrimitive(D3DPRIMITIVETYPE type, DWORD fvf, LPVOID vertices,
                                 DWORD vertexCount, WORD* indices, DWORD indexCount,
                                 DWORD flags) override;
    HRESULT DrawPrimitiveVB(D3DPRIMITIVETYPE type, LPDIRECT3DVERTEXBUFFER7 buffer,
                            DWORD startVertex, DWORD vertexCount, DWORD flags) override;
    HRESULT DrawIndexedPrimitiveVB(D3DPRIMITIVETYPE type, LPDIRECT3DVERTEXBUFFER7 buffer,
                                   DWORD startVertex, DWORD vertexCount, WORD* indices,
                                   DWORD indexCount, DWORD flags) override;
    HRESULT GetTexture(DWORD stage, LPDIRECTDRAWSURFACE7* out) override;
    HRESULT SetTexture(DWORD stage, LPDIRECTDRAWSURFACE7 texture) override;
    HRESULT GetTextureStageState(DWORD stage, D3DTEXTURESTAGESTATETYPE state,
                                 LPDWORD value) override;
    HRESULT SetTextureStageState(DWORD stage, D3DTEXTURESTAGESTATETYPE state, DWORD value) override;
    HRESULT ValidateDevice(LPDWORD passes) override;
    HRESULT PreLoad(LPDIRECTDRAWSURFACE7 texture) override;
    HRESULT Load(LPDIRECTDRAWSURFACE7 dest, POINT* destPoint, LPDIRECTDRAWSURFACE7 source,
                 RECT* sourceRect, DWORD flags) override;

    DxDirect3D* owner;
    DxDeviceEntry entry;
    DxSurface* target;
    DxSurface* textures[DxMaxStages] = {};
    DxDrawState state;
    D3DMATRIX textureTransforms[DxMaxStages];
    bool recordOnly;
    bool inScene = false;

private:
    ~DxDevice() override;
    HRESULT Submit(D3DPRIMITIVETYPE type, DWORD fvf, const uint8_t* vertices, DWORD vertexCount,
                   bool indexed, const WORD* indices, DWORD indexCount);
    void FullViewport();
};

// Video memory is counted for surfaces that are neither in system memory nor managed.
inline bool DxInVideoMemory(DWORD caps, DWORD caps2) {
    return !(caps & DDSCAPS_SYSTEMMEMORY) && !(caps2 & DDSCAPS2_TEXTUREMANAGE);
}

// The surface behind an interface pointer of this layer, or null for anything else.
DxSurface* DxAsSurface(IDirectDrawSurface7* surface);
DxVertexBuffer* DxAsVertexBuffer(IDirect3DVertexBuffer7* buffer);
DxDevice* DxAsDevice(IDirect3DDevice7* device);

// A generation counter behind DxFaults::surfacesLost: a surface is lost while the switch is on
// and it has not been restored since the switch last went on.
uint64_t DxLossGeneration();

// Lets the GL side drop its copy of a store, whatever the rendering mode is now.
void DxForgetOnGl(DxSurfaceStore& store);

// The backend a device draws with; null when it only records.
DxGlBackend* DxBackendFor(bool recordOnly);
