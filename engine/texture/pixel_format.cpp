#include "engine/texture/pixel_format.h"

#include <cstddef>

#include "base/velmora_log.h"

namespace {

// 16-bit pixels are little-endian whatever the host.
uint32_t Read16(const uint8_t* at) {
    return uint32_t(at[0]) | uint32_t(at[1]) << 8;
}

void Write16(uint8_t* at, uint32_t value) {
    at[0] = uint8_t(value);
    at[1] = uint8_t(value >> 8);
}

size_t PixelIndex(int32_t x, int32_t y, int32_t rowWidth) {
    return size_t(y) * size_t(rowWidth) + size_t(x);
}

}  // namespace

bool TextureFormatHasAlpha(uint32_t format) {
    return format == TextureFormat4444 || format == TextureFormat5551 ||
           format == TextureFormat8888;
}

uint32_t NextPowerOfTwo(uint32_t n) {
    uint32_t power = 1;
    while (power < n && power < 0x80000000u) power <<= 1;
    return power;
}

int GetTextureBPP(uint32_t format) {
    switch (format) {
        case TextureFormat4444:
        case TextureFormat5550:
        case TextureFormat5551:
        case TextureFormat5650:
            return 2;
        case TextureFormat8880:
            return 3;
        case TextureFormat8888:
            return 4;
    }
    VelmoraFatal("GetTextureBPP", "Invalid Texture format %x\n", format);
}

void GetTexturePixel(int32_t x, int32_t y, int32_t rowWidth, const uint8_t* pixels, uint32_t format,
                     uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha) {
    size_t index = PixelIndex(x, y, rowWidth);
    switch (format) {
        case TextureFormat4444: {
            uint32_t v = Read16(pixels + index * 2);
            alpha = WidenChannel4(v >> 12);
            red = WidenChannel4(v >> 8);
            green = WidenChannel4(v >> 4);
            blue = WidenChannel4(v);
            return;
        }
        case TextureFormat5550: {
            // The key test takes all 16 bits, so 0xFC1F is opaque magenta here.
            uint32_t v = Read16(pixels + index * 2);
            if (v == 0x7C1F) {
                red = 255, green = 0, blue = 255, alpha = 0;
                return;
            }
            red = WidenChannel5(v >> 10);
            green = WidenChannel5(v >> 5);
            blue = WidenChannel5(v);
            alpha = 255;
            return;
        }
        case TextureFormat5551: {
            uint32_t v = Read16(pixels + index * 2);
            alpha = WidenChannel1(v >> 15);
            red = WidenChannel5(v >> 10);
            green = WidenChannel5(v >> 5);
            blue = WidenChannel5(v);
            return;
        }
        case TextureFormat5650: {
            uint32_t v = Read16(pixels + index * 2);
            if (v == 0xF81F) {
                red = 255, green = 0, blue = 255, alpha = 0;
                return;
            }
            red = WidenChannel5(v >> 11);
            green = WidenChannel6(v >> 5);
            blue = WidenChannel5(v);
            alpha = 255;
            return;
        }
        case TextureFormat8880: {
            const uint8_t* at = pixels + index * 3;
            blue = at[0], green = at[1], red = at[2];
            alpha = (red == 255 && green == 0 && blue == 255) ? 0 : 255;
            return;
        }
        case TextureFormat8888: {
            const uint8_t* at = pixels + index * 4;
            blue = at[0], green = at[1], red = at[2], alpha = at[3];
            return;
        }
    }
    VelmoraFatal("GetTexturePixel", "Unknown format %x\n", format);
}

void SetTexturePixel(int32_t x, int32_t y, int32_t rowWidth, uint8_t* pixels, uint32_t format,
                     uint8_t red, uint8_t green, uint8_t blue, uint8_t alpha) {
    size_t index = PixelIndex(x, y, rowWidth);
    switch (format) {
        case TextureFormat4444:
            Write16(pixels + index * 2, uint32_t(alpha >> 4) << 12 | uint32_t(red >> 4) << 8 |
                                            uint32_t(green >> 4) << 4 | uint32_t(blue >> 4));
            return;
        case TextureFormat5550:
            Write16(pixels + index * 2, alpha == 0
                                            ? 0x7C1Fu
                                            : uint32_t(red >> 3) << 10 | uint32_t(green >> 3) << 5 |
                                                  uint32_t(blue >> 3));
            return;
        case TextureFormat5551:
            Write16(pixels + index * 2, uint32_t(alpha >> 7) << 15 | uint32_t(red >> 3) << 10 |
                                            uint32_t(green >> 3) << 5 | uint32_t(blue >> 3));
            return;
        case TextureFormat5650:
            Write16(pixels + index * 2, alpha == 0
                                            ? 0xF81Fu
                                            : uint32_t(red >> 3) << 11 | uint32_t(green >> 2) << 5 |
                                                  uint32_t(blue >> 3));
            return;
        case TextureFormat8880: {
            uint8_t* at = pixels + index * 3;
            if (alpha == 0) red = 255, green = 0, blue = 255;
            at[0] = blue, at[1] = green, at[2] = red;
            return;
        }
        case TextureFormat8888: {
            uint8_t* at = pixels + index * 4;
            at[0] = blue, at[1] = green, at[2] = red, at[3] = alpha;
            return;
        }
    }
    VelmoraFatal("GetTexturePixel", "Unknown format %x\n", format);
}
