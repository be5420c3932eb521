#include "engine/texture/device_pixel_walk.h"

#include <algorithm>
#include <cstring>

#include "base/diagnostics.h"
#include "base/velmora_log.h"
#include "engine/texture/texture.h"

namespace {

uint32_t Read16(const uint8_t* at) {
    return uint32_t(at[0]) | uint32_t(at[1]) << 8;
}

void SetKey(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) {
    red = 255;
    green = 0;
    blue = 255;
    alpha = 0;
}

CTexturePixelWalk* WalkerFor(uint32_t format) {
    static CTexturePixelWalk555 walk555;
    static CTexturePixelWalk565 walk565;
    static CTexturePixelWalk888 walk888;
    static CTexturePixelWalk5551 walk5551;
    static CTexturePixelWalk4444 walk4444;
    static CTexturePixelWalk8888 walk8888;
    switch (format) {
        case TextureFormat5550:
            return &walk555;
        case TextureFormat5650:
            return &walk565;
        case TextureFormat8880:
            return &walk888;
        case TextureFormat5551:
            return &walk5551;
        case TextureFormat4444:
            return &walk4444;
        case TextureFormat8888:
            return &walk8888;
    }
    return nullptr;
}

// The average of the non-key pixels in the 3 by 3 block around (x, y), wrapping at the edges,
// so that filtering pulls the shape's own colour into its border rather than magenta.
void KeyColour(const CTexture* texture, int32_t x, int32_t y, uint8_t& red, uint8_t& green,
               uint8_t& blue) {
    uint32_t sums[3] = {0, 0, 0};
    uint32_t count = 0;
    for (int32_t dy = -1; dy <= 1; ++dy) {
        int32_t ny = (y + dy + texture->height) % texture->height;
        for (int32_t dx = -1; dx <= 1; ++dx) {
            int32_t nx = (x + dx + texture->width) % texture->width;
            uint8_t r, g, b, a;
            GetTexturePixel(nx, ny, texture->width, texture->pixels, texture->format, r, g, b, a);
            if (r == 255 && g == 0 && b == 255) continue;
            sums[0] += r;
            sums[1] += g;
            sums[2] += b;
            ++count;
        }
    }
    red = uint8_t(count ? sums[0] / count : 0);
    green = uint8_t(count ? sums[1] / count : 0);
    blue = uint8_t(count ? sums[2] / count : 0);
}

uint32_t PackChannel(uint8_t value, uint32_t bits, uint32_t shift, uint32_t mask) {
    uint32_t narrowed = bits >= 8 ? value : uint32_t(value) >> (8 - bits);
    return shift < 32 ? (narrowed << shift) & mask : 0;
}

}  // namespace

bool CTexturePixelWalk555::Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) {
    uint32_t v = Read16(cursor);
    cursor += 2;
    if (v == 0x7C1F) {
        SetKey(red, green, blue, alpha);
        return true;
    }
    red = WidenChannel5(v >> 10);
    green = WidenChannel5(v >> 5);
    blue = WidenChannel5(v);
    alpha = 255;
    return false;
}

bool CTexturePixelWalk565::Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) {
    uint32_t v = Read16(cursor);
    cursor += 2;
    if (v == 0xF81F) {
        SetKey(red, green, blue, alpha);
        return true;
    }
    red = WidenChannel5(v >> 11);
    green = WidenChannel6(v >> 5);
    blue = WidenChannel5(v);
    alpha = 255;
    return false;
}

bool CTexturePixelWalk888::Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) {
    blue = cursor[0];
    green = cursor[1];
    red = cursor[2];
    cursor += 3;
    bool key = red == 255 && green == 0 && blue == 255;
    alpha = key ? 0 : 255;
    return key;
}

bool CTexturePixelWalk5551::Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) {
    uint32_t v = Read16(cursor);
    cursor += 2;
    red = WidenChannel5(v >> 10);
    green = WidenChannel5(v >> 5);
    blue = WidenChannel5(v);
    alpha = WidenChannel1(v >> 15);
    return (v & 0x7FFF) == 0x7C1F;
}

bool CTexturePixelWalk4444::Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) {
    uint32_t v = Read16(cursor);
    cursor += 2;
    alpha = WidenChannel4(v >> 12);
    red = WidenChannel4(v >> 8);
    green = WidenChannel4(v >> 4);
    blue = WidenChannel4(v);
    return (v & 0xFFF) == 0xF0F;
}

bool CTexturePixelWalk8888::Next(uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) {
    blue = cursor[0];
    green = cursor[1];
    red = cursor[2];
    alpha = cursor[3];
    cursor += 4;
    return red == 255 && green == 0 && blue == 255;
}

bool IsTextureLayout(const TextureFormatRecord* format, const CTexture* texture) {
    if (!format || !texture || (texture->flags & TextureFlagKeyed)) return false;
    struct Layout {
        uint32_t format;
        int32_t bytes;
        uint32_t red, green, blue, alpha;
    };
    static const Layout layouts[] = {
        {TextureFormat5550, 2, 0x7C00, 0x3E0, 0x1F, 0},
        {TextureFormat5650, 2, 0xF800, 0x7E0, 0x1F, 0},
        {TextureFormat4444, 2, 0xF00, 0xF0, 0xF, 0xF000},
        {TextureFormat8880, 3, 0xFF0000, 0xFF00, 0xFF, 0},
        {TextureFormat8888, 4, 0xFF0000, 0xFF00, 0xFF, 0xFF000000},
    };
    for (const Layout& layout : layouts) {
        if (layout.format != texture->format) continue;
        return format->bytesPerPixel == layout.bytes && format->redMask == layout.red &&
               format->greenMask == layout.green && format->blueMask == layout.blue &&
               format->alphaMask == layout.alpha;
    }
    return false;
}

void FillTextureSurface(const TextureFormatRecord* format, const DDSURFACEDESC2* desc,
                        CTexture* texture) {
    if (!texture->pixels) {
        CorvaneDebug(
            "Attempt to FillTextureSurface for non-dynamic texture that has been done "
            "already\n");
        return;
    }
    if (!format || !desc || !desc->lpSurface) return;
    const int32_t sourceBpp = GetTextureBPP(texture->format);
    const int32_t columns = std::min<int64_t>(texture->width, desc->dwWidth);
    const int32_t rows = std::min<int64_t>(texture->height, desc->dwHeight);
    if (columns <= 0 || rows <= 0 || sourceBpp <= 0) return;
    const size_t sourcePitch = size_t(texture->width) * size_t(sourceBpp);
    uint8_t* const target = static_cast<uint8_t*>(desc->lpSurface);
    const ptrdiff_t pitch = desc->lPitch;

    const bool derive =
        !TextureFormatHasAlpha(texture->format) && (texture->flags & TextureFlagAlpha) != 0;
    if (!derive && IsTextureLayout(format, texture)) {
        for (int32_t y = 0; y < rows; ++y)
            std::memcpy(target + y * pitch, texture->pixels + size_t(y) * sourcePitch,
                        size_t(columns) * size_t(sourceBpp));
        return;
    }

    const int32_t bpp = format->bytesPerPixel;
    if (bpp < 2 || bpp > 4) {
        VelmoraLog("Fill Texture Surface", "Unknown bpp (%d) in texture\n", bpp);
        return;
    }
    CTexturePixelWalk* walk = WalkerFor(texture->format);
    if (!walk) return;
    const bool fixedAlpha = (texture->flags & TextureFlagFixedAlpha) != 0;
    for (int32_t y = 0; y < rows; ++y) {
        walk->cursor = texture->pixels + size_t(y) * sourcePitch;
        uint8_t* out = target + y * pitch;
        for (int32_t x = 0; x < columns; ++x, out += bpp) {
            uint8_t red, green, blue, alpha;
            if (walk->Next(red, green, blue, alpha)) {
                KeyColour(texture, x, y, red, green, blue);
                alpha = 0;
            }
            if (derive && fixedAlpha) {
                alpha = uint8_t(texture->alphaSetting);
            } else if (derive) {
                uint32_t brightest = std::max({red, green, blue});
                alpha =
                    uint8_t(texture->alphaSetting < 32 ? brightest >> texture->alphaSetting : 0);
            }
            uint32_t value =
                PackChannel(red, format->redBits, format->redShift, format->redMask) |
                PackChannel(green, format->greenBits, format->greenShift, format->greenMask) |
                PackChannel(blue, format->blueBits, format->blueShift, format->blueMask) |
                PackChannel(alpha, format->alphaBits, format->alphaShift, format->alphaMask);
            out[0] = uint8_t(value);
            out[1] = uint8_t(value >> 8);
            if (bpp >= 3) out[2] = uint8_t(value >> 16);
            if (bpp == 4) out[3] = uint8_t(value >> 24);
        }
    }
}
