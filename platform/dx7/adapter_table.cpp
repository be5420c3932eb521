#include "platform/dx7/adapter_table.h"

#include <algorithm>
#include <optional>

#include "platform/dx7/gl/gl_backend.h"

namespace {

std::optional<DxAdapterTable> Staged;
DxFaults Faults;

constexpr DWORD AllBlendOps = 0xFFFF;  // D3DTEXOPCAPS of the ops 1 to 16

D3DPRIMCAPS TriangleCaps() {
    D3DPRIMCAPS caps{};
    caps.dwSize = sizeof(D3DPRIMCAPS);
    caps.dwMiscCaps = 0x2 | 0x10 | 0x20 | 0x40;  // mask Z, cull none, CW, CCW
    caps.dwRasterCaps = 0x1 | 0x80 | 0x100;      // dither, fog vertex, fog table
    caps.dwZCmpCaps = 0xFF;                      // every comparison
    caps.dwSrcBlendCaps = 0x1FFF;
    caps.dwDestBlendCaps = 0x1FFF;
    caps.dwAlphaCmpCaps = 0xFF;
    caps.dwShadeCaps = 0x8 | 0x200 | 0x4000 | 0x80000;  // Gouraud colour, specular, alpha, fog
    caps.dwTextureCaps = 0x1 | D3DPTEXTURECAPS_ALPHA | 0x400;  // perspective, alpha, mipmaps
    caps.dwTextureFilterCaps = D3DPTFILTERCAPS_NEAREST | D3DPTFILTERCAPS_LINEAR |
                               D3DPTFILTERCAPS_MIPNEAREST | D3DPTFILTERCAPS_MIPLINEAR | 0x100 |
                               0x200 | 0x10000 | 0x20000 | 0x1000000 | 0x2000000;
    caps.dwTextureBlendCaps = 0xFF;
    caps.dwTextureAddressCaps = 0x1 | 0x2 | 0x4 | 0x8 | 0x10;  // wrap, mirror, clamp, border
    return caps;
}

DxDeviceEntry GlDevice(const GUID& guid, bool transform) {
    DxDeviceEntry entry;
    entry.description = transform ? "Hardware transform, lighting and rasterisation over OpenGL"
                                  : "Hardware rasterisation over OpenGL";
    entry.name = transform ? "Direct3D T&L HAL" : "Direct3D HAL";
    D3DDEVICEDESC7& d = entry.desc;
    d = D3DDEVICEDESC7{};
    d.dwDevCaps =
        D3DDEVCAPS_HWRASTERIZATION | (transform ? DWORD(D3DDEVCAPS_HWTRANSFORMANDLIGHT) : 0);
    d.dpcTriCaps = TriangleCaps();
    d.dpcLineCaps = TriangleCaps();
    d.dwDeviceRenderBitDepth = DDBD_16 | DDBD_32;
    d.dwDeviceZBufferBitDepth = DDBD_16 | DDBD_24 | DDBD_32;
    d.dwMinTextureWidth = 1;
    d.dwMinTextureHeight = 1;
    d.dwMaxTextureWidth = 8192;
    d.dwMaxTextureHeight = 8192;
    d.dwMaxTextureRepeat = 8192;
    d.dwMaxTextureAspectRatio = 8192;
    d.dwMaxAnisotropy = 16;
    d.dwStencilCaps = 0xFF;  // every stencil operation
    d.dwFVFCaps = 8;         // texture coordinate sets
    d.dwTextureOpCaps = AllBlendOps;
    d.wMaxTextureBlendStages = DxMaxStages;
    d.wMaxSimultaneousTextures = DxMaxStages;
    d.dwMaxActiveLights = DxMaxLights;
    d.dvMaxVertexW = 1e10f;
    d.deviceGUID = guid;
    // Directional and positional lights, local viewer, material sources.
    d.dwVertexProcessingCaps = transform ? 0x2 | 0x8 | 0x10 | 0x20 : 0;
    return entry;
}

DDPIXELFORMAT ZeroFormat() {
    DDPIXELFORMAT format{};
    format.dwSize = sizeof(DDPIXELFORMAT);
    return format;
}

}  // namespace

const DxAdapterTable& DxAdapters() {
    static DxAdapterTable gl = DxDescribeGlContext();
    return Staged ? *Staged : gl;
}

void DxStageAdapters(const DxAdapterTable* table) {
    if (table)
        Staged = *table;
    else
        Staged.reset();
}

DxAdapterTable DxDescribeGlContext() {
    DxAdapterEntry adapter;
    adapter.isDefault = true;
    adapter.description = "Primary display driver over OpenGL";
    adapter.name = "display";
    adapter.caps = DDCAPS_3D;
    adapter.videoMemory = 256u << 20;
    adapter.displayFormat = DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0);
    for (DWORD bits : {16u, 32u}) {
        adapter.modes.push_back({640, 480, bits});
        adapter.modes.push_back({800, 600, bits});
        adapter.modes.push_back({1024, 768, bits});
    }
    adapter.devices.push_back(GlDevice(IID_IDirect3DHALDevice, false));
    adapter.devices.push_back(GlDevice(IID_IDirect3DTnLHalDevice, true));
    adapter.depthFormats = {DxDepthFormat(16, 0), DxDepthFormat(24, 8), DxDepthFormat(32, 0)};
    adapter.textureFormats = {
        DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000),
        DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0),
        DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0),
        DxRgbFormat(16, 0x7C00, 0x3E0, 0x1F, 0),
        DxRgbFormat(16, 0x7C00, 0x3E0, 0x1F, 0x8000),
        DxRgbFormat(16, 0xF00, 0xF0, 0xF, 0xF000),
        DxFourCcFormat(FOURCC_DXT1),
        DxFourCcFormat(FOURCC_DXT5),
    };
    DxAdapterTable table;
    table.adapters.push_back(adapter);
    return table;
}

DxFaults& DxFaultSwitches() {
    return Faults;
}

DDPIXELFORMAT DxRgbFormat(DWORD bits, DWORD red, DWORD green, DWORD blue, DWORD alpha) {
    DDPIXELFORMAT format = ZeroFormat();
    format.dwFlags = DDPF_RGB | (alpha ? DWORD(DDPF_ALPHAPIXELS) : 0);
    format.dwRGBBitCount = bits;
    format.dwRBitMask = red;
    format.dwGBitMask = green;
    format.dwBBitMask = blue;
    format.dwRGBAlphaBitMask = alpha;
    return format;
}

// The depth bits sit above the stencil bits; dwZBufferBitDepth counts both, as published.
DDPIXELFORMAT DxDepthFormat(DWORD bits, DWORD stencilBits) {
    bits = std::min<DWORD>(bits, 32);
    stencilBits = std::min<DWORD>(stencilBits, 32 - bits);
    DDPIXELFORMAT format = ZeroFormat();
    format.dwFlags = DDPF_ZBUFFER | (stencilBits ? DWORD(DDPF_STENCILBUFFER) : 0);
    format.dwZBufferBitDepth = bits + stencilBits;
    format.dwStencilBitDepth = stencilBits;
    uint64_t depthMask = ((uint64_t(1) << bits) - 1) << stencilBits;
    format.dwZBitMask = DWORD(depthMask);
    format.dwStencilBitMask = DWORD((uint64_t(1) << stencilBits) - 1);
    return format;
}

DDPIXELFORMAT DxFourCcFormat(DWORD fourCc) {
    DDPIXELFORMAT format = ZeroFormat();
    format.dwFlags = DDPF_FOURCC;
    format.dwFourCC = fourCc;
    return format;
}
