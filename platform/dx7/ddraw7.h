// DirectDraw 7 as the engine calls it: the published records, numbers and interfaces, with our
// own implementation behind them (surfaces in memory, the GL side for what the 3D device draws).
#pragma once

#include <cstdint>

#include "platform/ui/win_types.h"

using DWORD = uint32_t;
using WORD = uint16_t;
using LPVOID = void*;
using LPDWORD = DWORD*;
using LPSTR = char*;
using HANDLE = void*;

struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
using REFIID = const GUID&;
using REFCLSID = const GUID&;

inline bool operator==(const GUID& a, const GUID& b) {
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
    for (int i = 0; i < 8; ++i)
        if (a.Data4[i] != b.Data4[i]) return false;
    return true;
}

constexpr bool FAILED(HRESULT result) {
    return result < 0;
}
constexpr bool SUCCEEDED(HRESULT result) {
    return result >= 0;
}
constexpr HRESULT MAKE_DDHRESULT(uint32_t code) {
    return HRESULT(0x88760000u + code);
}

constexpr HRESULT DD_OK = 0;
constexpr HRESULT S_OK = 0;
constexpr HRESULT E_FAIL = HRESULT(0x80004005u);
constexpr HRESULT E_NOTIMPL = HRESULT(0x80004001u);
constexpr HRESULT E_NOINTERFACE = HRESULT(0x80004002u);
constexpr HRESULT E_OUTOFMEMORY = HRESULT(0x8007000Eu);
constexpr HRESULT E_INVALIDARG = HRESULT(0x80070057u);

constexpr HRESULT DDERR_GENERIC = E_FAIL;
constexpr HRESULT DDERR_INVALIDPARAMS = E_INVALIDARG;
constexpr HRESULT DDERR_OUTOFMEMORY = E_OUTOFMEMORY;
constexpr HRESULT DDERR_UNSUPPORTED = E_NOTIMPL;
constexpr HRESULT DDERR_CANNOTATTACHSURFACE = MAKE_DDHRESULT(10);
constexpr HRESULT DDERR_CANNOTDETACHSURFACE = MAKE_DDHRESULT(20);
constexpr HRESULT DDERR_INCOMPATIBLEPRIMARY = MAKE_DDHRESULT(95);
constexpr HRESULT DDERR_INVALIDCAPS = MAKE_DDHRESULT(100);
constexpr HRESULT DDERR_INVALIDMODE = MAKE_DDHRESULT(120);
constexpr HRESULT DDERR_INVALIDOBJECT = MAKE_DDHRESULT(130);
constexpr HRESULT DDERR_INVALIDPIXELFORMAT = MAKE_DDHRESULT(145);
constexpr HRESULT DDERR_INVALIDRECT = MAKE_DDHRESULT(150);
constexpr HRESULT DDERR_NOALPHAHW = MAKE_DDHRESULT(180);
constexpr HRESULT DDERR_NOCOOPERATIVELEVELSET = MAKE_DDHRESULT(212);
constexpr HRESULT DDERR_NOEXCLUSIVEMODE = MAKE_DDHRESULT(225);
constexpr HRESULT DDERR_NOFLIPHW = MAKE_DDHRESULT(230);
constexpr HRESULT DDERR_NOTFOUND = MAKE_DDHRESULT(255);
constexpr HRESULT DDERR_NOOVERLAYHW = MAKE_DDHRESULT(260);
constexpr HRESULT DDERR_NOZBUFFERHW = MAKE_DDHRESULT(340);
constexpr HRESULT DDERR_OUTOFVIDEOMEMORY = MAKE_DDHRESULT(380);
constexpr HRESULT DDERR_SURFACEALREADYATTACHED = MAKE_DDHRESULT(410);
constexpr HRESULT DDERR_SURFACEBUSY = MAKE_DDHRESULT(430);
constexpr HRESULT DDERR_SURFACELOST = MAKE_DDHRESULT(450);
constexpr HRESULT DDERR_SURFACENOTATTACHED = MAKE_DDHRESULT(460);
constexpr HRESULT DDERR_UNSUPPORTEDFORMAT = MAKE_DDHRESULT(510);
constexpr HRESULT DDERR_WASSTILLDRAWING = MAKE_DDHRESULT(540);
constexpr HRESULT DDERR_NODIRECTDRAWHW = MAKE_DDHRESULT(563);
constexpr HRESULT DDERR_PRIMARYSURFACEALREADYEXISTS = MAKE_DDHRESULT(564);
constexpr HRESULT DDERR_NOEMULATION = MAKE_DDHRESULT(565);
constexpr HRESULT DDERR_NOTFLIPPABLE = MAKE_DDHRESULT(582);
constexpr HRESULT DDERR_NOTLOCKED = MAKE_DDHRESULT(584);
constexpr HRESULT DDERR_WRONGMODE = MAKE_DDHRESULT(587);
constexpr HRESULT DDERR_UNSUPPORTEDMODE = MAKE_DDHRESULT(590);
constexpr HRESULT DDERR_NOMIPMAPHW = MAKE_DDHRESULT(591);

constexpr HRESULT DDENUMRET_CANCEL = 0;
constexpr HRESULT DDENUMRET_OK = 1;

enum : DWORD {
    // SetCooperativeLevel
    DDSCL_FULLSCREEN = 0x1,
    DDSCL_ALLOWREBOOT = 0x2,
    DDSCL_NORMAL = 0x8,
    DDSCL_EXCLUSIVE = 0x10,
    DDSCL_SETFOCUSWINDOW = 0x80,
    DDSCL_SETDEVICEWINDOW = 0x100,
    DDSCL_CREATEDEVICEWINDOW = 0x200,

    // DDSCAPS2.dwCaps
    DDSCAPS_ALPHA = 0x2,
    DDSCAPS_BACKBUFFER = 0x4,
    DDSCAPS_COMPLEX = 0x8,
    DDSCAPS_FLIP = 0x10,
    DDSCAPS_FRONTBUFFER = 0x20,
    DDSCAPS_OFFSCREENPLAIN = 0x40,
    DDSCAPS_PRIMARYSURFACE = 0x200,
    DDSCAPS_SYSTEMMEMORY = 0x800,
    DDSCAPS_TEXTURE = 0x1000,
    DDSCAPS_3DDEVICE = 0x2000,
    DDSCAPS_VIDEOMEMORY = 0x4000,
    DDSCAPS_WRITEONLY = 0x10000,
    DDSCAPS_ZBUFFER = 0x20000,
    DDSCAPS_MIPMAP = 0x400000,
    DDSCAPS_LOCALVIDMEM = 0x10000000,

    // DDSCAPS2.dwCaps2
    DDSCAPS2_HINTDYNAMIC = 0x4,
    DDSCAPS2_HINTSTATIC = 0x8,
    DDSCAPS2_TEXTUREMANAGE = 0x10,
    DDSCAPS2_CUBEMAP = 0x200,
    DDSCAPS2_CUBEMAP_POSITIVEX = 0x400,
    DDSCAPS2_CUBEMAP_NEGATIVEX = 0x800,
    DDSCAPS2_CUBEMAP_POSITIVEY = 0x1000,
    DDSCAPS2_CUBEMAP_NEGATIVEY = 0x2000,
    DDSCAPS2_CUBEMAP_POSITIVEZ = 0x4000,
    DDSCAPS2_CUBEMAP_NEGATIVEZ = 0x8000,
    DDSCAPS2_CUBEMAP_ALLFACES = 0xFC00,

    // DDSURFACEDESC2.dwFlags
    DDSD_CAPS = 0x1,
    DDSD_HEIGHT = 0x2,
    DDSD_WIDTH = 0x4,
    DDSD_PITCH = 0x8,
    DDSD_BACKBUFFERCOUNT = 0x20,
    DDSD_ZBUFFERBITDEPTH = 0x40,
    DDSD_LPSURFACE = 0x800,
    DDSD_PIXELFORMAT = 0x1000,
    DDSD_MIPMAPCOUNT = 0x20000,
    DDSD_TEXTURESTAGE = 0x100000,

    // DDPIXELFORMAT.dwFlags
    DDPF_ALPHAPIXELS = 0x1,
    DDPF_ALPHA = 0x2,
    DDPF_FOURCC = 0x4,
    DDPF_PALETTEINDEXED8 = 0x20,
    DDPF_RGB = 0x40,
    DDPF_ZBUFFER = 0x400,
    DDPF_STENCILBUFFER = 0x4000,
    DDPF_LUMINANCE = 0x20000,
    DDPF_BUMPLUMINANCE = 0x40000,
    DDPF_BUMPDUDV = 0x80000,

    // Lock
    DDLOCK_WAIT = 0x1,
    DDLOCK_READONLY = 0x10,
    DDLOCK_WRITEONLY = 0x20,
    DDLOCK_NOSYSLOCK = 0x800,
    DDLOCK_DISCARDCONTENTS = 0x2000,

    // Blt and Flip
    DDBLT_COLORFILL = 0x400,
    DDBLT_DDFX = 0x800,
    DDBLT_KEYSRC = 0x8000,
    DDBLT_WAIT = 0x1000000,
    DDBLT_DEPTHFILL = 0x2000000,
    DDFLIP_WAIT = 0x1,

    // DDCAPS.dwCaps
    DDCAPS_3D = 0x1,

    // Bit depths in capability records (D3DDEVICEDESC7 render and Z buffer depths)
    DDBD_8 = 0x800,
    DDBD_16 = 0x400,
    DDBD_24 = 0x200,
    DDBD_32 = 0x100,

    // EnumAttachedSurfaces / GetAttachedSurface walk and mode enumeration
    DDEDM_REFRESHRATES = 0x1,
};

// Four-character codes of the compressed texture formats.
constexpr DWORD MAKEFOURCC(char a, char b, char c, char d) {
    return DWORD(uint8_t(a)) | DWORD(uint8_t(b)) << 8 | DWORD(uint8_t(c)) << 16 |
           DWORD(uint8_t(d)) << 24;
}
constexpr DWORD FOURCC_DXT1 = MAKEFOURCC('D', 'X', 'T', '1');
constexpr DWORD FOURCC_DXT2 = MAKEFOURCC('D', 'X', 'T', '2');
constexpr DWORD FOURCC_DXT3 = MAKEFOURCC('D', 'X', 'T', '3');
constexpr DWORD FOURCC_DXT4 = MAKEFOURCC('D', 'X', 'T', '4');
constexpr DWORD FOURCC_DXT5 = MAKEFOURCC('D', 'X', 'T', '5');

struct DDPIXELFORMAT {
    DWORD dwSize;
    DWORD dwFlags;
    DWORD dwFourCC;
    union {
        DWORD dwRGBBitCount;
        DWORD dwZBufferBitDepth;
        DWORD dwAlphaBitDepth;
        DWORD dwLuminanceBitCount;
    };
    union {
        DWORD dwRBitMask;
        DWORD dwStencilBitDepth;
    };
    union {
        DWORD dwGBitMask;
        DWORD dwZBitMask;
    };
    union {
        DWORD dwBBitMask;
        DWORD dwStencilBitMask;
    };
    union {
        DWORD dwRGBAlphaBitMask;
        DWORD dwRGBZBitMask;
    };
};
static_assert(sizeof(DDPIXELFORMAT) == 32);
using LPDDPIXELFORMAT = DDPIXELFORMAT*;

struct DDSCAPS2 {
    DWORD dwCaps;
    DWORD dwCaps2;
    DWORD dwCaps3;
    DWORD dwCaps4;
};
using LPDDSCAPS2 = DDSCAPS2*;

struct DDCOLORKEY {
    DWORD dwColorSpaceLowValue;
    DWORD dwColorSpaceHighValue;
};

struct DDSURFACEDESC2 {
    DWORD dwSize;
    DWORD dwFlags;
    DWORD dwHeight;
    DWORD dwWidth;
    union {
        LONG lPitch;
        DWORD dwLinearSize;
    };
    union {
        DWORD dwBackBufferCount;
        DWORD dwDepth;
    };
    union {
        DWORD dwMipMapCount;
        DWORD dwRefreshRate;
    };
    DWORD dwAlphaBitDepth;
    DWORD dwReserved;
    LPVOID lpSurface;
    DDCOLORKEY ddckCKDestOverlay;
    DDCOLORKEY ddckCKDestBlt;
    DDCOLORKEY ddckCKSrcOverlay;
    DDCOLORKEY ddckCKSrcBlt;
    union {
        DDPIXELFORMAT ddpfPixelFormat;
        DWORD dwFVF;
    };
    DDSCAPS2 ddsCaps;
    DWORD dwTextureStage;
};
using LPDDSURFACEDESC2 = DDSURFACEDESC2*;

// The published capability record, in its published order.
struct DDCAPS {
    DWORD dwSize;
    DWORD dwCaps;
    DWORD dwCaps2;
    DWORD dwCKeyCaps;
    DWORD dwFXCaps;
    DWORD dwFXAlphaCaps;
    DWORD dwPalCaps;
    DWORD dwSVCaps;
    DWORD dwAlphaBltConstBitDepths;
    DWORD dwAlphaBltPixelBitDepths;
    DWORD dwAlphaBltSurfaceBitDepths;
    DWORD dwAlphaOverlayConstBitDepths;
    DWORD dwAlphaOverlayPixelBitDepths;
    DWORD dwAlphaOverlaySurfaceBitDepths;
    DWORD dwZBufferBitDepths;
    DWORD dwVidMemTotal;
    DWORD dwVidMemFree;
    DWORD dwMaxVisibleOverlays;
    DWORD dwCurrVisibleOverlays;
    DWORD dwNumFourCCCodes;
    DWORD dwAlignBoundarySrc;
    DWORD dwAlignSizeSrc;
    DWORD dwAlignBoundaryDest;
    DWORD dwAlignSizeDest;
    DWORD dwAlignStrideAlign;
    DWORD dwRops[8];
    DWORD ddsOldCaps;
    DWORD dwMinOverlayStretch;
    DWORD dwMaxOverlayStretch;
    DWORD dwMinLiveVideoStretch;
    DWORD dwMaxLiveVideoStretch;
    DWORD dwMinHwCodecStretch;
    DWORD dwMaxHwCodecStretch;
    DWORD dwReserved1;
    DWORD dwReserved2;
    DWORD dwReserved3;
    DWORD dwSVBCaps;
    DWORD dwSVBCKeyCaps;
    DWORD dwSVBFXCaps;
    DWORD dwSVBRops[8];
    DWORD dwVSBCaps;
    DWORD dwVSBCKeyCaps;
    DWORD dwVSBFXCaps;
    DWORD dwVSBRops[8];
    DWORD dwSSBCaps;
    DWORD dwSSBCKeyCaps;
    DWORD dwSSBFXCaps;
    DWORD dwSSBRops[8];
    DWORD dwMaxVideoPorts;
    DWORD dwCurrVideoPorts;
    DWORD dwSVBCaps2;
    DWORD dwNLVBCaps;
    DWORD dwNLVBCaps2;
    DWORD dwNLVBCKeyCaps;
    DWORD dwNLVBFXCaps;
    DWORD dwNLVBRops[8];
    DDSCAPS2 ddsCaps;
};
using LPDDCAPS = DDCAPS*;

struct DDBLTFX {
    DWORD dwSize;
    DWORD dwDDFX;
    DWORD dwROP;
    DWORD dwDDROP;
    DWORD dwRotationAngle;
    DWORD dwZBufferOpCode;
    DWORD dwZBufferLow;
    DWORD dwZBufferHigh;
    DWORD dwZBufferBaseDest;
    DWORD dwZDestConstBitDepth;
    DWORD dwZDestConst;
    DWORD dwZSrcConstBitDepth;
    DWORD dwZSrcConst;
    DWORD dwAlphaEdgeBlendBitDepth;
    DWORD dwAlphaEdgeBlend;
    DWORD dwReserved;
    DWORD dwAlphaDestConstBitDepth;
    DWORD dwAlphaDestConst;
    DWORD dwAlphaSrcConstBitDepth;
    DWORD dwAlphaSrcConst;
    union {
        DWORD dwFillColor;
        DWORD dwFillDepth;
        DWORD dwFillPixel;
    };
    DDCOLORKEY ddckDestColorkey;
    DDCOLORKEY ddckSrcColorkey;
};
using LPDDBLTFX = DDBLTFX*;

class IDirectDrawSurface7;
class IDirectDrawClipper;
using LPDIRECTDRAWSURFACE7 = IDirectDrawSurface7*;
using LPDIRECTDRAWCLIPPER = IDirectDrawClipper*;

using LPDDENUMCALLBACKA = BOOL (*)(GUID* guid, LPSTR description, LPSTR name, LPVOID context);
using LPDDENUMMODESCALLBACK2 = HRESULT (*)(LPDDSURFACEDESC2 mode, LPVOID context);
using LPDDENUMSURFACESCALLBACK7 = HRESULT (*)(LPDIRECTDRAWSURFACE7 surface,
                                              LPDDSURFACEDESC2 desc, LPVOID context);

// IUnknown's three: references are counted, and the last Release frees the object.
class IUnknown {
public:
    virtual HRESULT QueryInterface(REFIID iid, LPVOID* out) = 0;
    virtual uint32_t AddRef() = 0;
    virtual uint32_t Release() = 0;

protected:
    virtual ~IUnknown() = default;
};

class IDirectDrawClipper : public IUnknown {
public:
    virtual HRESULT SetHWnd(DWORD flags, HWND window) = 0;
    virtual HRESULT GetHWnd(HWND* window) = 0;
};

class IDirectDrawSurface7 : public IUnknown {
public:
    virtual HRESULT Lock(RECT* rect, LPDDSURFACEDESC2 desc, DWORD flags, HANDLE event) = 0;
    virtual HRESULT Unlock(RECT* rect) = 0;
    virtual HRESULT Blt(RECT* destRect, LPDIRECTDRAWSURFACE7 source, RECT* sourceRect, DWORD flags,
                        LPDDBLTFX effects) = 0;
    virtual HRESULT Flip(LPDIRECTDRAWSURFACE7 target, DWORD flags) = 0;
    virtual HRESULT IsLost() = 0;
    virtual HRESULT Restore() = 0;
    virtual HRESULT GetAttachedSurface(LPDDSCAPS2 caps, LPDIRECTDRAWSURFACE7* out) = 0;
    virtual HRESULT AddAttachedSurface(LPDIRECTDRAWSURFACE7 surface) = 0;
    virtual HRESULT DeleteAttachedSurface(DWORD flags, LPDIRECTDRAWSURFACE7 surface) = 0;
    virtual HRESULT EnumAttachedSurfaces(LPVOID context, LPDDENUMSURFACESCALLBACK7 callback) = 0;
    virtual HRESULT GetSurfaceDesc(LPDDSURFACEDESC2 desc) = 0;
    virtual HRESULT GetPixelFormat(LPDDPIXELFORMAT format) = 0;
    virtual HRESULT SetClipper(LPDIRECTDRAWCLIPPER clipper) = 0;
};

class IDirectDraw7 : public IUnknown {
public:
    virtual HRESULT GetCaps(LPDDCAPS driverCaps, LPDDCAPS emulationCaps) = 0;
    virtual HRESULT EnumDisplayModes(DWORD flags, LPDDSURFACEDESC2 filter, LPVOID context,
                                     LPDDENUMMODESCALLBACK2 callback) = 0;
    virtual HRESULT GetDisplayMode(LPDDSURFACEDESC2 desc) = 0;
    virtual HRESULT SetCooperativeLevel(HWND window, DWORD flags) = 0;
    virtual HRESULT SetDisplayMode(DWORD width, DWORD height, DWORD bitsPerPixel,
                                   DWORD refreshRate, DWORD flags) = 0;
    virtual HRESULT RestoreDisplayMode() = 0;
    virtual HRESULT CreateSurface(LPDDSURFACEDESC2 desc, LPDIRECTDRAWSURFACE7* out,
                                  IUnknown* outer) = 0;
    virtual HRESULT CreateClipper(DWORD flags, LPDIRECTDRAWCLIPPER* out, IUnknown* outer) = 0;
    virtual HRESULT RestoreAllSurfaces() = 0;
    virtual HRESULT TestCooperativeLevel() = 0;
    virtual HRESULT GetAvailableVidMem(LPDDSCAPS2 caps, LPDWORD total, LPDWORD free) = 0;
};
using LPDIRECTDRAW7 = IDirectDraw7*;

// {15E65EC0-3B9C-11D2-B92F-00609797EA5B}
constexpr GUID IID_IDirectDraw7 = {0x15E65EC0, 0x3B9C, 0x11D2,
                                   {0xB9, 0x2F, 0x00, 0x60, 0x97, 0x97, 0xEA, 0x5B}};

// The driver named by guid, or the default driver for null.
HRESULT DirectDrawCreateEx(GUID* guid, LPVOID* out, REFIID iid, IUnknown* outer);
HRESULT DirectDrawEnumerateA(LPDDENUMCALLBACKA callback, LPVOID context);
