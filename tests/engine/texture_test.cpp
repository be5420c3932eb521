#include "engine/texture/texture.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Rgba = std::tuple<int, int, int, int>;

Rgba Read(uint32_t format, const Bytes& block) {
    uint8_t r, g, b, a;
    GetTexturePixel(1, 1, 2, block.data(), format, r, g, b, a);
    return {r, g, b, a};
}

}  // namespace

// Pixel (1, 1) of a 2 x 2 block: where the layout puts each channel, and how it widens back.
TEST(PixelFormat, EachFormatStoresItsLayoutAndKeyAndReadsBackWidened) {
    const Rgba magenta = {255, 0, 255, 0};
    const struct {
        uint32_t format;
        Rgba in;
        Bytes stored;
        Rgba out;
    } cases[] = {
        {TextureFormat4444, {0x1F, 0x2F, 0x3F, 0x4F}, {0x23, 0x41}, {0x11, 0x22, 0x33, 0x44}},
        {TextureFormat5550, {0x08, 0x10, 0x18, 255}, {0x43, 0x04}, {8, 16, 24, 255}},
        {TextureFormat5551, {0x08, 0x10, 0x18, 128}, {0x43, 0x84}, {8, 16, 24, 255}},
        {TextureFormat5551, {0xFF, 0xFF, 0xFF, 127}, {0xFF, 0x7F}, {255, 255, 255, 0}},
        {TextureFormat5650, {0x08, 0x0C, 0x18, 255}, {0x63, 0x08}, {8, 12, 24, 255}},
        {TextureFormat5650, {0xFF, 0xFF, 0xFF, 255}, {0xFF, 0xFF}, {255, 255, 255, 255}},
        {TextureFormat8880, {1, 2, 3, 255}, {3, 2, 1}, {1, 2, 3, 255}},
        {TextureFormat8888, {1, 2, 3, 4}, {3, 2, 1, 4}, {1, 2, 3, 4}},
        // Alpha 0 stores the key whatever the colour; opaque magenta is the key all the same.
        {TextureFormat5550, {1, 2, 3, 0}, {0x1F, 0x7C}, magenta},
        {TextureFormat5650, {1, 2, 3, 0}, {0x1F, 0xF8}, magenta},
        {TextureFormat8880, {1, 2, 3, 0}, {255, 0, 255}, magenta},
        {TextureFormat8880, {255, 0, 255, 255}, {255, 0, 255}, magenta},
        {TextureFormat8888, {255, 0, 255, 200}, {255, 0, 255, 200}, {255, 0, 255, 200}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.format << " " << int(c.stored[0]));
        const size_t bpp = size_t(GetTextureBPP(c.format));
        ASSERT_EQ(bpp, c.stored.size());
        Bytes block(4 * bpp, 0xEE);
        auto [r, g, b, a] = c.in;
        SetTexturePixel(1, 1, 2, block.data(), c.format, uint8_t(r), uint8_t(g), uint8_t(b),
                        uint8_t(a));
        EXPECT_EQ(Bytes(block.begin() + 3 * bpp, block.end()), c.stored);
        EXPECT_EQ(Bytes(block.begin(), block.begin() + 3 * bpp), Bytes(3 * bpp, 0xEE));
        EXPECT_EQ(Read(c.format, block), c.out);
    }
    // 0x5550 compares all 16 bits: the unused top bit makes the key opaque magenta.
    EXPECT_EQ(Read(TextureFormat5550, {0, 0, 0, 0, 0, 0, 0x1F, 0xFC}), (Rgba{255, 0, 255, 255}));
    EXPECT_EQ(Read(TextureFormat5551, {0, 0, 0, 0, 0, 0, 0x1F, 0x7C}), (Rgba{255, 0, 255, 0}));
    uint8_t r, g, b, a;
    uint8_t block[4] = {};
    EXPECT_DEATH(GetTexturePixel(0, 0, 1, block, 0x8800, r, g, b, a),
                 "GetTexturePixel: Unknown format 8800");
}

TEST(Texture, ColourKeyIsLookedForInTheFormatsWithoutAlphaOnly) {
    const struct {
        uint32_t format;
        Bytes pixels;
        bool keyed;
    } cases[] = {
        {TextureFormat5550, {0x34, 0x12, 0x1E, 0x7C}, false},
        {TextureFormat5550, {0x34, 0x12, 0x1F, 0xFC}, true},  // the unused top bit is ignored
        {TextureFormat5650, {0x1F, 0x7C, 0x1E, 0xF8}, false},
        {TextureFormat5650, {0x1F, 0xF8, 0x1E, 0xF8}, true},
        {TextureFormat8880, {255, 0, 254, 255, 1, 255}, false},
        {TextureFormat8880, {255, 0, 254, 255, 0, 255}, true},
        {TextureFormat8888, {255, 0, 255, 0, 1, 2, 3, 4}, false},
        {TextureFormat4444, {0x0F, 0x0F, 0, 0}, false},
    };
    for (const auto& c : cases) {
        CTexture* texture = CreateTexture(2, 1, c.format);
        std::memcpy(texture->pixels, c.pixels.data(), c.pixels.size());
        EXPECT_EQ(texture->HasColourKey(), c.keyed) << std::hex << c.format << " " << c.keyed;
        FreeTexture(texture);
    }
}

TEST(Texture, TheListKeepsInStepAndFreesOnlyWhatItHolds) {
    int before = CountTextures();
    CTexture* texture = CreateTexture(8, 4, TextureFormat8880);
    CTexture* empty = CreateEmptyTexture();
    EXPECT_EQ(empty->pixels, nullptr);
    EXPECT_EQ(CountTextures(), before + 2);
    FreeTexture(texture);
    FreeTexture(texture);  // already gone, like one never in the list: nothing happens
    FreeTexture(nullptr);
    EXPECT_EQ(CountTextures(), before + 1);
    FreeTexture(empty);
    EXPECT_EQ(CountTextures(), before);
}
