#include "engine/texture/pixel_format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <ostream>
#include <vector>

namespace {

struct FormatInfo {
    uint32_t format;
    int bits[4];  // red, green, blue, alpha
};

const FormatInfo Formats[] = {
    {TextureFormat4444, {4, 4, 4, 4}}, {TextureFormat5550, {5, 5, 5, 0}},
    {TextureFormat5551, {5, 5, 5, 1}}, {TextureFormat5650, {5, 6, 5, 0}},
    {TextureFormat8880, {8, 8, 8, 0}}, {TextureFormat8888, {8, 8, 8, 8}},
};

// What an 8-bit value comes back as through a channel of the given width: its top bits,
// repeated downwards to fill the byte.
int ThroughChannel(int value, int bits) {
    int top = value >> (8 - bits);
    if (bits == 1) return top * 255;
    return ((top << bits) | top) >> (2 * bits - 8);
}

struct Pixel {
    int r, g, b, a;
    bool operator==(const Pixel&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Pixel& p) {
    return out << "(" << p.r << ", " << p.g << ", " << p.b << ", " << p.a << ")";
}

Pixel Read(uint32_t format, const uint8_t* block, int x = 0, int y = 0, int width = 1) {
    uint8_t r, g, b, a;
    GetTexturePixel(x, y, width, block, format, r, g, b, a);
    return {r, g, b, a};
}

Pixel RoundTrip(uint32_t format, Pixel in) {
    std::vector<uint8_t> block(4 * 6, 0xEE);  // 3 x 2 pixels of up to 4 bytes
    SetTexturePixel(1, 1, 3, block.data(), format, uint8_t(in.r), uint8_t(in.g), uint8_t(in.b),
                    uint8_t(in.a));
    return Read(format, block.data(), 1, 1, 3);
}

std::vector<uint8_t> Stored(uint32_t format, Pixel in) {
    std::vector<uint8_t> block(size_t(GetTextureBPP(format)));
    SetTexturePixel(0, 0, 1, block.data(), format, uint8_t(in.r), uint8_t(in.g), uint8_t(in.b),
                    uint8_t(in.a));
    return block;
}

Pixel Read16(uint32_t format, uint16_t value) {
    const uint8_t bytes[2] = {uint8_t(value), uint8_t(value >> 8)};
    return Read(format, bytes);
}

using Bytes = std::vector<uint8_t>;

TEST(PixelFormat, EachFormatPutsItsChannelsWhereItsLayoutSays) {
    EXPECT_EQ(Stored(TextureFormat4444, {0x1F, 0x2F, 0x3F, 0x4F}), (Bytes{0x23, 0x41}));
    EXPECT_EQ(Stored(TextureFormat5550, {0x08, 0x10, 0x18, 255}), (Bytes{0x43, 0x04}));
    EXPECT_EQ(Stored(TextureFormat5551, {0x08, 0x10, 0x18, 128}), (Bytes{0x43, 0x84}));
    EXPECT_EQ(Stored(TextureFormat5650, {0x08, 0x0C, 0x18, 255}), (Bytes{0x63, 0x08}));
    EXPECT_EQ(Stored(TextureFormat8880, {1, 2, 3, 255}), (Bytes{3, 2, 1}));
    EXPECT_EQ(Stored(TextureFormat8888, {1, 2, 3, 4}), (Bytes{3, 2, 1, 4}));

    for (const FormatInfo& info : Formats) {
        EXPECT_EQ(TextureFormatHasAlpha(info.format), info.bits[3] != 0) << std::hex << info.format;
        int bytes = (info.bits[0] + info.bits[1] + info.bits[2] + info.bits[3] + 7) / 8;
        EXPECT_EQ(GetTextureBPP(info.format), bytes) << std::hex << info.format;
    }
}

TEST(PixelFormat, RoundTripKeepsTheTopBitsOfEveryChannelWidenedToFullRange) {
    for (const FormatInfo& info : Formats) {
        SCOPED_TRACE(testing::Message() << std::hex << info.format);
        for (int v = 0; v < 256; ++v) {
            // Green stays at 0x80 or red at 0, so no colour here is the key.
            Pixel red = RoundTrip(info.format, {uint8_t(v), 0x80, 0, 255});
            Pixel green = RoundTrip(info.format, {0, uint8_t(v), 0x40, 255});
            Pixel blue = RoundTrip(info.format, {0, 0x80, uint8_t(v), 255});
            ASSERT_EQ(red.r, ThroughChannel(v, info.bits[0])) << v;
            ASSERT_EQ(green.g, ThroughChannel(v, info.bits[1])) << v;
            ASSERT_EQ(blue.b, ThroughChannel(v, info.bits[2])) << v;
            ASSERT_EQ(red.a, 255);
            if (info.bits[3]) {
                Pixel alpha = RoundTrip(info.format, {0x40, 0x80, 0x40, uint8_t(v)});
                ASSERT_EQ(alpha.a, ThroughChannel(v, info.bits[3])) << v;
                ASSERT_EQ(alpha.r, ThroughChannel(0x40, info.bits[0]));
            }
        }
    }
}

TEST(PixelFormat, KeyValuesOfTheFormatsWithoutAlpha) {
    // Alpha 0 stores the key whatever the colour, and the key reads back as transparent magenta.
    for (uint32_t format : {TextureFormat5550, TextureFormat5650, TextureFormat8880}) {
        SCOPED_TRACE(testing::Message() << std::hex << format);
        EXPECT_EQ(RoundTrip(format, {12, 200, 7, 0}), (Pixel{255, 0, 255, 0}));
    }
    EXPECT_EQ(Stored(TextureFormat5550, {1, 2, 3, 0}), (Bytes{0x1F, 0x7C}));
    EXPECT_EQ(Stored(TextureFormat5650, {1, 2, 3, 0}), (Bytes{0x1F, 0xF8}));
    EXPECT_EQ(Stored(TextureFormat8880, {1, 2, 3, 0}), (Bytes{255, 0, 255}));
    // Opaque magenta written with alpha 255 is the key all the same.
    EXPECT_EQ(RoundTrip(TextureFormat8880, {255, 0, 255, 255}).a, 0);

    // 0x5550 compares all 16 bits: the unused top bit makes the key opaque magenta.
    EXPECT_EQ(Read16(TextureFormat5550, 0x7C1F), (Pixel{255, 0, 255, 0}));
    EXPECT_EQ(Read16(TextureFormat5550, 0xFC1F), (Pixel{255, 0, 255, 255}));
    EXPECT_EQ(Read16(TextureFormat5650, 0xFFFF), (Pixel{255, 255, 255, 255}));
    EXPECT_EQ(Read16(TextureFormat5650, 0xF81F).a, 0);

    // The alpha formats know no key: magenta is a colour like any other.
    EXPECT_EQ(Read16(TextureFormat5551, 0xFC1F).a, 255);
    EXPECT_EQ(Read16(TextureFormat5551, 0x7C1F).a, 0);
    EXPECT_EQ(RoundTrip(TextureFormat8888, {255, 0, 255, 200}).a, 200);
}

TEST(PixelFormat, OneBitAlphaCutsAtHalf) {
    EXPECT_EQ(Stored(TextureFormat5551, {0, 0, 0, 127})[1] & 0x80, 0);
    EXPECT_EQ(Stored(TextureFormat5551, {0, 0, 0, 128})[1] & 0x80, 0x80);
    EXPECT_EQ(RoundTrip(TextureFormat5551, {0, 0, 0, 127}).a, 0);
    EXPECT_EQ(RoundTrip(TextureFormat5551, {0, 0, 0, 128}).a, 255);
}

TEST(PixelFormat, PixelsLieRowByRowWithoutPadding) {
    Bytes block(5 * 3 * 3, 0);
    SetTexturePixel(4, 1, 5, block.data(), TextureFormat8880, 9, 8, 7, 255);
    EXPECT_EQ(Bytes(block.begin() + 26, block.begin() + 30), (Bytes{0, 7, 8, 9}));
    Bytes wide(4 * 2 * 2, 0);
    SetTexturePixel(3, 1, 4, wide.data(), TextureFormat5650, 255, 255, 255, 255);
    EXPECT_EQ(Bytes(wide.begin() + 12, wide.end()), (Bytes{0, 0, 0xFF, 0xFF}));
}

TEST(PixelFormat, NextPowerOfTwo) {
    const uint32_t values[] = {0, 1, 3, 64, 65, 16385};
    const uint32_t powers[] = {1, 1, 4, 64, 128, 32768};
    for (int i = 0; i < 6; ++i) EXPECT_EQ(NextPowerOfTwo(values[i]), powers[i]) << values[i];
}

TEST(PixelFormatDeathTest, UnknownFormatIsFatal) {
    uint8_t block[4] = {};
    uint8_t r, g, b, a;
    EXPECT_DEATH(GetTexturePixel(0, 0, 1, block, 0x8800, r, g, b, a),
                 "GetTexturePixel: Unknown format 8800");
    EXPECT_DEATH(SetTexturePixel(0, 0, 1, block, 0x565, 1, 2, 3, 4),
                 "GetTexturePixel: Unknown format 565");
    EXPECT_DEATH(GetTextureBPP(0x1234), "GetTextureBPP: Invalid Texture format 1234");
}

}  // namespace
