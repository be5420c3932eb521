// Pixel formats by their masks, and flexible vertex formats by their bits.
#include "platform/dx7/dx_objects.h"

namespace {

bool MakeChannel(uint32_t mask, int bytes, DxChannel& out) {
    out = {mask, 0, 0};
    if (mask == 0) return true;
    if (bytes < 4 && (mask >> (bytes * 8)) != 0) return false;
    while (!((mask >> out.shift) & 1)) ++out.shift;
    uint32_t run = mask >> out.shift;
    while (out.bits < 32 && ((run >> out.bits) & 1)) ++out.bits;
    // Only unbroken masks: the channel must be one run of bits.
    return out.bits == 32 || (run >> out.bits) == 0;
}

uint32_t Expand(const DxChannel& channel, uint32_t raw, uint32_t absent) {
    if (channel.bits == 0) return absent;
    uint32_t value = (raw & channel.mask) >> channel.shift;
    if (channel.bits >= 8) return value >> (channel.bits - 8);
    uint32_t top = (1u << channel.bits) - 1;
    return (value * 255 + top / 2) / top;
}

uint32_t Compress(const DxChannel& channel, uint32_t value) {
    if (channel.bits == 0) return 0;
    uint64_t top = channel.bits >= 32 ? 0xFFFFFFFFull : (uint64_t(1) << channel.bits) - 1;
    uint64_t scaled = (uint64_t(value) * top + 127) / 255;
    return uint32_t(scaled << channel.shift) & channel.mask;
}

bool IsDxt(DWORD fourCc) {
    return fourCc == FOURCC_DXT1 || fourCc == FOURCC_DXT2 || fourCc == FOURCC_DXT3 ||
           fourCc == FOURCC_DXT4 || fourCc == FOURCC_DXT5;
}

}  // namespace

bool DxDescribePixels(const DDPIXELFORMAT& format, DxPixelLayout& out) {
    out = DxPixelLayout{};
    if (format.dwFlags & DDPF_FOURCC) {
        // DXT surfaces are only ever filled by Blt or Load and drawn with, so their pixels stay
        // as 32-bit ARGB here; the GL side uploads them as such, and nothing is compressed.
        if (!IsDxt(format.dwFourCC)) return false;
        out.bytes = 4;
        out.fourCc = true;
        out.alpha = {0xFF000000u, 24, 8};
        out.red = {0xFF0000u, 16, 8};
        out.green = {0xFF00u, 8, 8};
        out.blue = {0xFFu, 0, 8};
        return true;
    }
    if (format.dwFlags & DDPF_ZBUFFER) {
        DWORD bits = format.dwZBufferBitDepth;
        if (bits != 16 && bits != 24 && bits != 32) return false;
        out.bytes = int(bits / 8);
        out.depth = true;
        DWORD stencil = (format.dwFlags & DDPF_STENCILBUFFER) ? format.dwStencilBitMask : 0;
        if (format.dwZBitMask == 0 || (format.dwZBitMask & stencil)) return false;
        return MakeChannel(format.dwZBitMask, out.bytes, out.red) &&
               MakeChannel(stencil, out.bytes, out.alpha);
    }
    const DWORD unsupported =
        DDPF_ALPHA | DDPF_PALETTEINDEXED8 | DDPF_LUMINANCE | DDPF_BUMPLUMINANCE | DDPF_BUMPDUDV;
    if (!(format.dwFlags & DDPF_RGB) || (format.dwFlags & unsupported)) return false;
    DWORD bits = format.dwRGBBitCount;
    if (bits != 8 && bits != 16 && bits != 24 && bits != 32) return false;
    out.bytes = int(bits / 8);
    DWORD alpha = (format.dwFlags & DDPF_ALPHAPIXELS) ? format.dwRGBAlphaBitMask : 0;
    DWORD red = format.dwRBitMask, green = format.dwGBitMask, blue = format.dwBBitMask;
    if ((red & green) || (red & blue) || (green & blue) || ((red | green | blue) & alpha))
        return false;
    if ((red | green | blue) == 0) return false;
    return MakeChannel(red, out.bytes, out.red) && MakeChannel(green, out.bytes, out.green) &&
           MakeChannel(blue, out.bytes, out.blue) && MakeChannel(alpha, out.bytes, out.alpha);
}

uint32_t DxReadPixel(const uint8_t* at, int bytes) {
    uint32_t value = 0;
    for (int i = 0; i < bytes; ++i) value |= uint32_t(at[i]) << (8 * i);
    return value;
}

void DxWritePixel(uint8_t* at, int bytes, uint32_t value) {
    for (int i = 0; i < bytes; ++i) at[i] = uint8_t(value >> (8 * i));
}

uint32_t DxToArgb(const DxPixelLayout& layout, uint32_t raw) {
    return Expand(layout.alpha, raw, 255) << 24 | Expand(layout.red, raw, 0) << 16 |
           Expand(layout.green, raw, 0) << 8 | Expand(layout.blue, raw, 0);
}

uint32_t DxFromArgb(const DxPixelLayout& layout, uint32_t argb) {
    return Compress(layout.alpha, argb >> 24) | Compress(layout.red, (argb >> 16) & 0xFF) |
           Compress(layout.green, (argb >> 8) & 0xFF) | Compress(layout.blue, argb & 0xFF);
}

bool DxSameFormat(const DDPIXELFORMAT& a, const DDPIXELFORMAT& b) {
    const DWORD kinds =
        DDPF_FOURCC | DDPF_RGB | DDPF_ZBUFFER | DDPF_ALPHAPIXELS | DDPF_STENCILBUFFER;
    if ((a.dwFlags & kinds) != (b.dwFlags & kinds)) return false;
    if (a.dwFlags & DDPF_FOURCC) return a.dwFourCC == b.dwFourCC;
    bool alpha = a.dwFlags & (DDPF_ALPHAPIXELS | DDPF_STENCILBUFFER);
    return a.dwRGBBitCount == b.dwRGBBitCount && a.dwRBitMask == b.dwRBitMask &&
           a.dwGBitMask == b.dwGBitMask && a.dwBBitMask == b.dwBBitMask &&
           (!alpha || a.dwRGBAlphaBitMask == b.dwRGBAlphaBitMask);
}

bool DxModeFormat(DWORD bitsPerPixel, DDPIXELFORMAT& out) {
    switch (bitsPerPixel) {
        case 8:
            out = DxRgbFormat(8, 0, 0, 0, 0);
            out.dwFlags |= DDPF_PALETTEINDEXED8;
            return true;
        case 16:
            out = DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0);
            return true;
        case 24:
            out = DxRgbFormat(24, 0xFF0000, 0xFF00, 0xFF, 0);
            return true;
        case 32:
            out = DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0);
            return true;
        default:
            return false;
    }
}

bool DxLayoutVertex(DWORD fvf, DxVertexLayout& out) {
    out = DxVertexLayout{};
    out.normal = out.diffuse = out.specular = -1;
    const DWORD known = D3DFVF_POSITION_MASK | D3DFVF_NORMAL | D3DFVF_RESERVED1 | D3DFVF_DIFFUSE |
                        D3DFVF_SPECULAR | D3DFVF_TEXCOUNT_MASK | 0xFFFF0000u;
    if (fvf & ~known) return false;
    DWORD position = fvf & D3DFVF_POSITION_MASK;
    if (position == D3DFVF_XYZ)
        out.size = 12;
    else if (position == D3DFVF_XYZRHW)
        out.size = 16, out.rhw = true;
    else
        return false;  // no position, or blend weights, which this layer does not do
    if (fvf & D3DFVF_NORMAL) out.normal = int(out.size), out.size += 12;
    if (fvf & D3DFVF_RESERVED1) out.size += 4;
    if (fvf & D3DFVF_DIFFUSE) out.diffuse = int(out.size), out.size += 4;
    if (fvf & D3DFVF_SPECULAR) out.specular = int(out.size), out.size += 4;
    out.texCount = int((fvf & D3DFVF_TEXCOUNT_MASK) >> D3DFVF_TEXCOUNT_SHIFT);
    if (out.texCount > 8) return false;
    for (int i = 0; i < out.texCount; ++i) {
        static const int floats[4] = {2, 3, 4, 1};
        out.texFloats[i] = floats[(fvf >> (16 + 2 * i)) & 3];
        out.texOffset[i] = int(out.size);
        out.size += DWORD(out.texFloats[i]) * 4;
    }
    return true;
}

DWORD FvfVertexSize(DWORD fvf) {
    DxVertexLayout layout;
    return DxLayoutVertex(fvf, layout) ? layout.size : 0;
}

DWORD DxBitDepthFlag(DWORD bits) {
    switch (bits) {
        case 8:
            return DDBD_8;
        case 16:
            return DDBD_16;
        case 24:
            return DDBD_24;
        case 32:
            return DDBD_32;
        default:
            return 0;
    }
}
