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

void SetChannel(uint32_t mask, uint32_t& outMask, uint32_t& shift, uint32_t& bits) {
    outMask = mask;
    shift = mask ? uint32_t(std::countr_zero(mask)) : 0;
    bits = uint32_t(std::popcount(mask));
}

TextureFormatRecord Record(int32_t bytes, uint32_t r, uint32_t g, uint32_t b, uint32_t a) {
    TextureFormatRecord f{};
    f.bytesPerPixel = bytes;
    SetChannel(r, f.redMask, f.redShift, f.redBits);
    SetChannel(g, f.greenMask, f.greenShift, f.greenBits);
    SetChannel(b, f.blueMask, f.blueShift, f.blueBits);
    SetChannel(a, f.alphaMask, f.alphaShift, f.alphaBits);
    return f;
}

const TextureFormatRecord A8R8G8B8 = Record(4, 0xFF0000, 0xFF00, 0xFF, 0xFF000000);
const TextureFormatRecord A4R4G4B4 = Record(2, 0xF00, 0xF0, 0xF, 0xF000);
const TextureFormatRecord A1R5G5B5 = Record(2, 0x7C00, 0x3E0, 0x1F, 0x8000);
const TextureFormatRecord X1R5G5B5 = Record(2, 0x7C00, 0x3E0, 0x1F, 0);
const TextureFormatRecord R5G6B5 = Record(2, 0xF800, 0x7E0, 0x1F, 0);
const TextureFormatRecord R8G8B8 = Record(3, 0xFF0000, 0xFF00, 0xFF, 0);

// A texture outside the engine's list (its destructor frees the pixels) and a padded target.
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
        texture.pixels = static_cast<uint8_t*>(MALLOC(TextureBlockSize(width, height, format, 0)));
    }
    void Set(int32_t x, int32_t y, int r, int g, int b, int a = 255) {
        SetTexturePixel(x, y, texture.width, texture.pixels, texture.format, uint8_t(r), uint8_t(g),
                        uint8_t(b), uint8_t(a));
    }
    void Fill(const TextureFormatRecord& format) {
        desc.dwWidth = DWORD(texture.width);
        desc.dwHeight = DWORD(texture.height);
        desc.lPitch = texture.width * format.bytesPerPixel + 6;
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

}  // namespace

// Every engine format onto every RGB format the default device offers, and back: each channel
// within one step of the device's width. The padding behind each row is never written.
TEST(PixelWalk, EveryFormatConvertsToEveryDeviceFormatWithinAStep) {
    std::vector<TextureFormatRecord> devices = {R8G8B8};
    const DxAdapterTable table = DxDescribeGlContext();
    for (const DDPIXELFORMAT& f : table.adapters.at(0).textureFormats)
        if (f.dwFlags & DDPF_RGB)
            devices.push_back(Record(int32_t(f.dwRGBBitCount / 8), f.dwRBitMask, f.dwGBitMask,
                                     f.dwBBitMask, f.dwRGBAlphaBitMask));
    ASSERT_GE(devices.size(), 5u);
    for (uint32_t format : {0x4444u, 0x5550u, 0x5551u, 0x5650u, 0x8880u, 0x8888u}) {
        Image image(16, 8, format);
        for (int i = 0; i < 128; ++i)
            image.Set(i % 16, i / 16, i % 16 * 17, 40 + i / 16 * 30, 255 - i % 16 * 16, 8 + i);
        for (const TextureFormatRecord& device : devices) {
            SCOPED_TRACE(testing::Message() << std::hex << format << " on " << device.redMask << "/"
                                            << device.alphaMask);
            image.Fill(device);
            const uint32_t masks[4] = {device.redMask, device.greenMask, device.blueMask,
                                       device.alphaMask};
            for (int i = 0; i < 128; ++i) {
                uint8_t in[4];
                GetTexturePixel(i % 16, i / 16, 16, image.texture.pixels, format, in[0], in[1],
                                in[2], in[3]);
                const uint32_t value = image.At(i % 16, i / 16, device.bytesPerPixel);
                for (int c = 0; c < 4 && masks[c]; ++c) {
                    const int shift = std::countr_zero(masks[c]);
                    const int out = int(((value & masks[c]) >> shift) * 255 / (masks[c] >> shift));
                    EXPECT_NEAR(out, in[c], 256 >> std::popcount(masks[c])) << i << " " << c;
                }
            }
            for (int y = 0; y < 8; ++y)
                EXPECT_EQ(image.target[size_t((y + 1) * image.desc.lPitch - 1)], 0xEE);
        }
    }
}

TEST(PixelWalk, KeyPixelsTakeTheirWrappedNeighbourhoodAndPlainCopyNeedsNoKeys) {
    // Last row and column red 90, the rest black: the corner's neighbourhood wraps to five 90s.
    Image corner(4, 4, TextureFormat8880);
    for (int i = 0; i < 16; ++i)
        corner.Set(i % 4, i / 4, (i % 4 == 3 || i / 4 == 3) ? 90 : 0, 10, 0);
    corner.Set(0, 0, 255, 0, 255);
    corner.Fill(A8R8G8B8);
    EXPECT_EQ(corner.At(0, 0, 4), uint32_t(450 / 8) << 16 | 10 << 8);
    EXPECT_EQ(corner.At(1, 1, 4), 0xFF000A00u);
    for (uint32_t format : {0x4444u, 0x5550u, 0x5551u, 0x5650u, 0x8880u, 0x8888u}) {
        Image keys(2, 2, format, TextureFlagKeyed);
        for (int i = 0; i < 4; ++i) keys.Set(i % 2, i / 2, 255, 0, 255, 0);
        keys.Fill(A8R8G8B8);
        EXPECT_EQ(keys.At(1, 1, 4), 0u) << std::hex << format;  // nothing but keys: black
    }

    Image image(3, 2, TextureFormat5650);
    for (int i = 0; i < 6; ++i) image.Set(i % 3, i / 3, 200, 100, 50, i ? 255 : 0);
    image.Fill(R5G6B5);
    EXPECT_EQ(image.At(0, 0, 2), 0xF81Fu);  // copied as it stands
    image.texture.flags = TextureFlagKeyed;
    image.Fill(R5G6B5);
    EXPECT_EQ(image.At(0, 0, 2), image.At(1, 0, 2));
    const struct {
        uint32_t format;
        const TextureFormatRecord* device;
        bool plain;
    } layouts[] = {
        {0x5650, &R5G6B5, true},    {0x5650, &A1R5G5B5, false}, {0x5550, &X1R5G5B5, true},
        {0x5550, &A1R5G5B5, false}, {0x5551, &A1R5G5B5, false}, {0x4444, &A4R4G4B4, true},
        {0x8888, &A8R8G8B8, true},  {0x8880, &R8G8B8, true},    {0x8880, &A8R8G8B8, false},
    };
    for (const auto& c : layouts) {
        CTexture texture;
        texture.format = c.format;
        EXPECT_EQ(IsTextureLayout(c.device, &texture), c.plain) << std::hex << c.format;
        texture.flags = TextureFlagKeyed;
        EXPECT_FALSE(IsTextureLayout(c.device, &texture));
    }
}

// "!" derives alpha from the brightest channel shifted by the setting; with a fixed value it is
// the setting's low byte. Either is then narrowed to the device's alpha bits.
TEST(PixelWalk, DerivedAndFixedAlphaNarrowToTheDeviceAlphaBits) {
    const struct {
        uint32_t flags, setting;
        const TextureFormatRecord* device;
        uint32_t bright, dark;  // alpha of 0x7FFF and of 0x0000
    } cases[] = {
        {TextureFlagAlpha, 2, &A8R8G8B8, 63, 0},
        {TextureFlagAlpha, 2, &A4R4G4B4, 3, 0},
        {TextureFlagAlpha, 0, &A8R8G8B8, 255, 0},
        {TextureFlagAlpha | TextureFlagFixedAlpha, 85, &A8R8G8B8, 85, 85},
        {TextureFlagAlpha | TextureFlagFixedAlpha, 85, &A4R4G4B4, 5, 5},
        {TextureFlagAlpha | TextureFlagFixedAlpha, 0xFFFFFFFF, &A8R8G8B8, 255, 255},
        {0, 2, &A8R8G8B8, 255, 255},
    };
    for (const auto& c : cases) {
        Image image(2, 1, TextureFormat5550, c.flags);
        image.texture.alphaSetting = c.setting;
        std::memcpy(image.texture.pixels, "\xFF\x7F\x00\x00", 4);
        image.Fill(*c.device);
        const int32_t bytes = c.device->bytesPerPixel;
        EXPECT_EQ(image.At(0, 0, bytes) >> c.device->alphaShift, c.bright) << c.flags;
        EXPECT_EQ(image.At(1, 0, bytes) >> c.device->alphaShift, c.dark) << c.flags;
    }
}

TEST(PixelWalk, StoresLowByteFirstAndReportsWhatItCannotDo) {
    Image image(1, 1, TextureFormat5650);
    image.Set(0, 0, 0x10, 0x20, 0x30);
    image.Fill(R8G8B8);
    EXPECT_EQ(image.target,
              (std::vector<uint8_t>{0x31, 0x20, 0x10, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE}));
    DebugCapture capture;
    image.Fill(Record(1, 0xE0, 0x1C, 0x3, 0));
    EXPECT_EQ(image.target[0], 0xEE);
    EXPECT_NE(capture.Text().find("Unknown bpp (1) in texture"), std::string::npos);
    capture.Clear();
    FREE(image.texture.pixels);
    image.texture.pixels = nullptr;
    image.Fill(A8R8G8B8);
    EXPECT_EQ(capture.Text(),
              "DEBUG: Attempt to FillTextureSurface for non-dynamic texture that "
              "has been done already\n\n");
    EXPECT_EQ(image.target[0], 0xEE);
}
