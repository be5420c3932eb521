// The six pixel formats of CTexture and the reading and writing of single pixels. A format code's
// four hex digits are the bit widths of red, green, blue and alpha. Formats without alpha know
// transparency only through the key colour, magenta (255, 0, 255), which reads with alpha 0.
#pragma once

#include <cstdint>

enum TextureFormat : uint32_t {
    TextureFormat4444 = 0x4444,  // bits 15-12 alpha, 11-8 red, 7-4 green, 3-0 blue
    TextureFormat5550 = 0x5550,  // bit 15 unused, 14-10 red, 9-5 green, 4-0 blue; key 0x7C1F
    TextureFormat5551 = 0x5551,  // bit 15 alpha, 14-10 red, 9-5 green, 4-0 blue
    TextureFormat5650 = 0x5650,  // bits 15-11 red, 10-5 green, 4-0 blue; key 0xF81F
    TextureFormat8880 = 0x8880,  // bytes blue, green, red
    TextureFormat8888 = 0x8888,  // bytes blue, green, red, alpha
};

// Widening of a channel narrower than 8 bits to the full 8-bit range; the pixel walkers of the
// device upload use the same rule.
inline uint8_t WidenChannel1(uint32_t v) {
    return uint8_t((v & 1) * 255);
}
inline uint8_t WidenChannel4(uint32_t v) {
    return uint8_t((v & 15) * 17);
}
inline uint8_t WidenChannel5(uint32_t v) {
    return uint8_t(((v & 31) << 3) | ((v & 31) >> 2));
}
inline uint8_t WidenChannel6(uint32_t v) {
    return uint8_t(((v & 63) << 2) | ((v & 63) >> 4));
}

bool TextureFormatHasAlpha(uint32_t format);  // 0x4444, 0x5551 and 0x8888

// The smallest power of two not below n; 1 for n below 2. Saturates at 2^31.
uint32_t NextPowerOfTwo(uint32_t n);

// Bytes per pixel: 2, 3 or 4. An unknown format is fatal.
int GetTextureBPP(uint32_t format);

// Pixel (x, y) of a block of rowWidth pixels a row, channels widened to 8 bits. In a format
// without alpha a key pixel reads as 255, 0, 255 with alpha 0 and any other pixel has alpha 255.
// An unknown format is fatal.
void GetTexturePixel(int32_t x, int32_t y, int32_t rowWidth, const uint8_t* pixels, uint32_t format,
                     uint8_t& red, uint8_t& green, uint8_t& blue, uint8_t& alpha);

// Narrows by cutting low bits, never rounding. In a format without alpha, alpha 0 stores the key
// value whatever the colour. An unknown format is fatal.
void SetTexturePixel(int32_t x, int32_t y, int32_t rowWidth, uint8_t* pixels, uint32_t format,
                     uint8_t red, uint8_t green, uint8_t blue, uint8_t alpha);
