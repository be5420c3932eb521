#include "engine/texture/device_pixel_walk.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <vector>

#include "base/memory.h"
#include "engine/texture/texture.h"
#include "platform/debug/debug_output.h"
#include "platform/dx7/adapter_table.h"

namespace {

TextureFormatRecord Record(int32_t bytes, uint32_t red, uint32_t green, uint32_t blue,
                           uint32_t alpha) {
    TextureFormatRecord r{};
    r.bytesPerPixel = bytes;
    const uint32_t masks[4] = {red, green, blue, alpha};
    uint32_t* maskOut[4] = {&r.redMask, &r.greenMask, &r.blueMask, &r.alphaMask};
    uint32_t* shiftOut[4] = {&r.redShift, &r.greenShift, &r.blueShift, &r.alphaShift};
    uint32_t* bitsOut[4] = {&r.redBits, &r.greenBits, &r.blueBits, &r.alphaBits};
    for (int i = 0; i < 4; ++i) {
        *maskOut[i] = masks[i];
        *shiftOut[i] = masks[i] ? uint32_t(std::countr_zero(masks[i])) : 0;
        *bitsOut[i] = uint32_t(std::popcount(masks[i]));
    }
    return r;
}

const TextureFormatRecord A8R8G8B8 = Record(4, 0xFF0000, 0xFF00, 0xFF, 0xFF000000);
const TextureFormatRecord A4R4G4B4 = Record(2, 0xF00, 0xF0, 0xF, 0xF000);
const TextureFormatRecord A1R5G5B5 = Record(2, 0x7C00, 0x3E0, 0x1F, 0x8000);
const TextureFormatRecord X1R5G5B5 = Record(2, 0x7C00, 0x3E0, 0x1F, 0);
const TextureFormatRecord R5G6B5 = Record(2, 0xF800, 0x7E0, 0x1F, 0);
const TextureFormatRecord R8G8B8 = Record(3, 0xFF0000, 0xFF00, 0xFF, 0);

// A texture outside the engine's list; its destructor frees the pixels.
struct Image {
    CTexture texture;
    std::vector<uint8_t> target;
    DDSURFACEDESC2 desc{};

    Image(int32_t width, int32_t height, uint32_t format, uint32_t flags = 0) {
        texture.width = width;
        texture.height = height;
        texture.format = format;
        texture.flags = flags;
        texture.alphaSetting = 2;
        texture.pixels =
            static_cast<uint8_t*>(MALLOC(TextureBlockSize(width, height, format, 0)));
    }
    void Set(int32_t x, int32_t y, int r, int g, int b, int a = 255) {
        SetTexturePixel(x, y, texture.width, texture.pixels, texture.format, uint8_t(r),
                        uint8_t(g), uint8_t(b), uint8_t(a));
    }
    void Fill(const TextureFormatRecord& format) {
        desc.dwWidth = DWORD(texture.width);
        desc.dwHeight = DWORD(texture.height);
        desc.lPitch = texture.width * format.bytesPerPixel + 6;  // padding must be stepped over
        target.assign(size_t(desc.lPitch) * size_t(texture.height), 0xEE);
        desc.lpSurface = target.data();
        FillTextureSurface(&format, &desc, &texture);
    }
    uint32_t At(int32_t x, int32_t y, int32_t bytes) const {
        uint32_t value = 0;
        for (int32_t i = bytes - 1; i >= 0; --i)
            value = value << 8 | target[size_t(y * desc.lPitch + x * bytes + i)];
        return value;
    }
};

uint32_t Channel(uint32_t value, uint32_t mask) {
    if (!mask) return 255;
    uint32_t max = mask >> std::countr_zero(mask);
    return ((value & mask) >> std::countr_zero(mask)) * 255 / max;
}

}  // namespace

// Every engine format onto every format the default device offers and back, on a gradient:
// each channel comes back within one step of the narrower of the two formats.
TEST(PixelWalk, EveryFormatConvertsToEveryDeviceFormatWithinAStep) {
    std::vector<TextureFormatRecord> devices;
    const DxAdapterTable table = DxDescribeGlContext();
    for (const DDPIXELFORMAT& f : table.adapters.at(0).textureFormats) {
        if (!(f.dwFlags & DDPF_RGB)) continue;
        devices.push_back(Record(int32_t(f.dwRGBBitCount / 8), f.dwRBitMask, f.dwGBitMask,
                                 f.dwBBitMask,
                                 (f.dwFlags & DDPF_ALPHAPIXELS) ? f.dwRGBAlphaBitMask : 0));
    }
    devices.push_back(R8G8B8);
    ASSERT_GE(devices.size(), 4u);
    const uint32_t formats[] = {TextureFormat4444, TextureFormat5550, TextureFormat5551,
                                TextureFormat5650, TextureFormat8880, TextureFormat8888};
    for (uint32_t format : formats) {
        Image image(16, 8, format);
        for (int y = 0; y < 8; ++y)
            for (int x = 0; x < 16; ++x)
                image.Set(x, y, x * 17, 40 + y * 30, 255 - x * 16, 8 + x * 15);
        for (const TextureFormatRecord& device : devices) {
            SCOPED_TRACE(testing::Message() << std::hex << format << " on " << device.redMask
                                            << "/" << device.alphaMask);
            image.Fill(device);
            const uint32_t* masks[4] = {&device.redMask, &device.greenMask, &device.blueMask,
                                        &device.alphaMask};
            for (int y = 0; y < 8; ++y) {
                for (int x = 0; x < 16; ++x) {
                    uint8_t in[4];
                    GetTexturePixel(x, y, 16, image.texture.pixels, format, in[0], in[1], in[2],
                                    in[3]);
                    uint32_t value = image.At(x, y, device.bytesPerPixel);
                    for (int c = 0; c < 4; ++c) {
                        if (c == 3 && !device.alphaMask) continue;
                        int step = 256 >> std::popcount(*masks[c]);
                        EXPECT_NEAR(int(Channel(value, *masks[c])), int(in[c]), step)
                            << x << "," << y << " channel " << c;
                    }
                }
                // The row's padding is never written.
                EXPECT_EQ(image.target[size_t((y + 1) * image.desc.lPitch - 1)], 0xEE);
            }
        }
    }
}

TEST(PixelWalk, KeyPixelsTakeTheirNeighboursColourWrappingAtTheEdges) {
    // Last row and column red 90, the rest black: the corner's wrapped neighbourhood holds five
    // of the 90s and three blacks.
    Image corner(4, 4, TextureFormat8880);
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) corner.Set(x, y, (x == 3 || y == 3) ? 90 : 0, 10, 0);
    corner.Set(0, 0, 255, 0, 255);
    corner.Fill(A8R8G8B8);
    EXPECT_EQ(corner.At(0, 0, 4), uint32_t(450 / 8) << 16 | 10 << 8);
    EXPECT_EQ(corner.At(1, 1, 4), 0xFF000A00u);

    // Nothing but keys around: black, transparent.
    Image keys(2, 2, TextureFormat5650);
    for (int i = 0; i < 4; ++i) keys.Set(i % 2, i / 2, 0, 0, 0, 0);
    keys.Fill(A1R5G5B5);
    EXPECT_EQ(keys.At(1, 1, 2), 0u);
}

TEST(PixelWalk, PlainCopyOnlyForTheSameLayoutWithoutKeys) {
    Image image(3, 2, TextureFormat5650);
    for (int i = 0; i < 6; ++i) image.Set(i % 3, i / 3, 200, 100, 50);
    image.Set(0, 0, 0, 0, 0, 0);
    EXPECT_TRUE(IsTextureLayout(&R5G6B5, &image.texture));
    image.Fill(R5G6B5);
    EXPECT_EQ(image.At(0, 0, 2), 0xF81Fu);  // copied as it stands

    image.texture.flags = TextureFlagKeyed;
    EXPECT_FALSE(IsTextureLayout(&R5G6B5, &image.texture));
    image.Fill(R5G6B5);
    EXPECT_EQ(image.At(0, 0, 2), image.At(1, 0, 2));  // coloured from the neighbours

    const struct {
        uint32_t format;
        const TextureFormatRecord* device;
        bool plain;
    } layouts[] = {
        {TextureFormat5650, &A1R5G5B5, false}, {TextureFormat5550, &A1R5G5B5, false},
        {TextureFormat5551, &A1R5G5B5, false}, {TextureFormat4444, &A4R4G4B4, true},
        {TextureFormat8888, &A8R8G8B8, true},  {TextureFormat8880, &R8G8B8, true},
        {TextureFormat8880, &A8R8G8B8, false}, {TextureFormat5550, &R5G6B5, false},
        {TextureFormat5550, &X1R5G5B5, true},
    };
    for (const auto& c : layouts) {
        CTexture texture;
        texture.format = c.format;
        EXPECT_EQ(IsTextureLayout(c.device, &texture), c.plain) << std::hex << c.format;
    }
}

// The "!" mark derives alpha from the brightest channel shifted by the alpha setting; "!" with a
// fixed value takes the setting's low byte. Either is narrowed to the device's alpha bits.
TEST(PixelWalk, DerivedAndFixedAlphaNarrowToTheDeviceAlphaBits) {
    const struct {
        uint32_t flags;
        uint32_t setting;
        const TextureFormatRecord* device;
        uint32_t alphaShift;
        uint32_t bright, dark;  // alpha of 0x7FFF and of 0x0000
    } cases[] = {
        {TextureFlagAlpha, 2, &A8R8G8B8, 24, 63, 0},
        {TextureFlagAlpha, 2, &A4R4G4B4, 12, 3, 0},
        {TextureFlagAlpha, 0, &A8R8G8B8, 24, 255, 0},
        {TextureFlagAlpha | TextureFlagFixedAlpha, 85, &A8R8G8B8, 24, 85, 85},
        {TextureFlagAlpha | TextureFlagFixedAlpha, 85, &A4R4G4B4, 12, 5, 5},
        {TextureFlagAlpha | TextureFlagFixedAlpha, 0xFFFFFFFF, &A8R8G8B8, 24, 255, 255},
        {0, 2, &A8R8G8B8, 24, 255, 255},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.flags << " " << c.setting);
        Image image(2, 1, TextureFormat5550, c.flags);
        image.texture.alphaSetting = c.setting;
        std::memcpy(image.texture.pixels, "\xFF\x7F\x00\x00", 4);
        image.Fill(*c.device);
        const int32_t bytes = c.device->bytesPerPixel;
        EXPECT_EQ(image.At(0, 0, bytes) >> c.alphaShift, c.bright);
        EXPECT_EQ(image.At(1, 0, bytes) >> c.alphaShift, c.dark);
    }
}

TEST(PixelWalk, StoresBySizeLowByteFirstAndReportsWhatItCannotDo) {
    Image image(1, 1, TextureFormat5650);
    image.Set(0, 0, 0x10, 0x20, 0x30);
    image.Fill(R8G8B8);
    EXPECT_EQ(image.target[0], 0x31);  // blue, widened from 5 bits
    EXPECT_EQ(image.target[1], 0x20);
    EXPECT_EQ(image.target[2], 0x10);
    EXPECT_EQ(image.target[3], 0xEE);

    {
        DebugCapture capture;
        TextureFormatRecord odd = Record(1, 0xE0, 0x1C, 0x3, 0);
        image.Fill(odd);
        EXPECT_EQ(image.target[0], 0xEE);
        EXPECT_NE(capture.Text().find("Unknown bpp (1) in texture"), std::string::npos);
    }

    FREE(image.texture.pixels);
    image.texture.pixels = nullptr;
    DebugCapture capture;
    image.Fill(A8R8G8B8);
    EXPECT_EQ(capture.Text(), "DEBUG: Attempt to FillTextureSurface for non-dynamic texture that "
                              "has been done already\n\n");
    EXPECT_EQ(image.target[0], 0xEE);
}
