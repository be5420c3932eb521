#include <vector>

#include "tests/render/renderer_fixture.h"

namespace {

const DDPIXELFORMAT Argb8888 = DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000);
const DDPIXELFORMAT Argb1555 = DxRgbFormat(16, 0x7C00, 0x3E0, 0x1F, 0x8000);
const DDPIXELFORMAT Rgb565 = DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0);
const DDPIXELFORMAT Rgb555 = DxRgbFormat(16, 0x7C00, 0x3E0, 0x1F, 0);
const DDPIXELFORMAT Argb4444 = DxRgbFormat(16, 0xF00, 0xF0, 0xF, 0xF000);

class TextureFormatTest : public RendererTest {
protected:
    CRenderer* OpenWith(std::vector<DDPIXELFORMAT> formats) {
        DxAdapterTable table = DxDescribeGlContext();
        table.adapters[0].textureFormats = std::move(formats);
        DxStageAdapters(&table);
        return Open(OpenWindowed | Open3D);
    }
};

TEST_F(TextureFormatTest, EnumerationKeepsRgbFormatsTakenApartAndNotesDxt) {
    DDPIXELFORMAT luminance = DxRgbFormat(16, 0xFF, 0, 0, 0);
    luminance.dwFlags = DDPF_LUMINANCE | DDPF_RGB;
    DebugCapture debug;
    ASSERT_TRUE(OpenWith({Argb8888, luminance, DxFourCcFormat(FOURCC_DXT3),
                          DxRgbFormat(8, 0xE0, 0x1C, 0x3, 0), DxFourCcFormat(FOURCC_DXT1),
                          Rgb565}));
    const TextureFormatRecord* first = renderer->textureFormats;  // the last one reported
    ASSERT_TRUE(first && first->next);
    EXPECT_EQ(first->next->next, nullptr);
    EXPECT_EQ(first->bytesPerPixel, 2);
    EXPECT_EQ(first->alphaMask, 0u);
    EXPECT_EQ(first->redShift, 11u);
    EXPECT_EQ(first->greenBits, 6u);
    EXPECT_EQ(first->blueShift, 0u);
    const TextureFormatRecord* wide = first->next;
    EXPECT_EQ(wide->bytesPerPixel, 4);
    EXPECT_EQ(wide->alphaShift, 24u);
    EXPECT_EQ(wide->alphaBits, 8u);
    EXPECT_EQ(renderer->dxtSupport, uint32_t(DxtSupport1 | DxtSupport3));
    std::string text = debug.Text();
    EXPECT_NE(text.find("DEBUG: Device Supports DXT3\nDEBUG: Device Supports DXT1\n"),
              std::string::npos);
}

TEST_F(TextureFormatTest, BestFormatByChannelDepths) {
    struct Case {
        std::vector<DDPIXELFORMAT> offered;
        uint32_t format;
        bool key, alpha;
        DWORD expectedRed, expectedAlpha;
    };
    const Case cases[] = {
        // Both are deeper than wanted somewhere: the smallest largest difference wins.
        {{Argb8888, Argb1555}, 0x4444, false, false, 0x7C00, 0x8000},
        {{Argb8888, Argb1555, Argb4444}, 0x4444, false, false, 0xF00, 0xF000},
        {{Rgb565, Rgb555, Argb1555}, 0x5650, false, false, 0xF800, 0},
        // A key asks for one alpha bit, the alpha flag for as many as the deepest colour.
        {{Rgb565, Rgb555, Argb1555}, 0x5650, true, false, 0x7C00, 0x8000},
        {{Argb4444, Argb8888, Rgb565}, 0x8880, false, true, 0xFF0000, 0xFF000000},
        // Shallower in every channel: the smallest shortfall, the first listed (the last
        // reported) on a tie.
        {{Rgb555, Rgb565}, 0x8880, false, false, 0xF800, 0},
        {{Rgb565, Rgb555}, 0x8880, false, false, 0x7C00, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        ASSERT_TRUE(OpenWith(c.offered));
        const TextureFormatRecord* best = renderer->GetBestTextureFormat(c.format, c.key, c.alpha);
        ASSERT_NE(best, nullptr);
        EXPECT_EQ(best->redMask, c.expectedRed);
        EXPECT_EQ(best->alphaMask, c.expectedAlpha);
        CloseDevice(renderer);
        renderer = nullptr;
    }
}

TEST_F(TextureFormatTest, NoUsableFormatEndsTheProgramWithABox) {
    ASSERT_TRUE(OpenWith({Argb8888}));
    EXPECT_DEATH(renderer->GetBestTextureFormat(0x5650, false, false),
                 "GetBestTextureFormat: Utterly Failed to find any matching texture for 5650");
    EXPECT_DEATH(renderer->GetBestTextureFormat(0x1234, false, false),
                 "GetBestTextureFormat: Invalid Pixel Format 1234");
    CRenderer bare;
    EXPECT_DEATH(bare.GetBestTextureFormat(0x8888, false, false),
                 "GetBestTextureFormat: No Valid Texture Formats Found!");
}

TEST_F(RendererTest, PackColourBySoftwareFormat) {
    CRenderer bare;
    struct Case {
        uint32_t format;
        uint32_t packed;
    };
    for (Case c : {Case{0x5550, 0x4103}, Case{0x5650, 0x8223}, Case{0, 0x804418}}) {
        bare.softwareFormat = c.format;
        DebugCapture debug;
        EXPECT_EQ(bare.PackColour(0x80, 0x44, 0x18), c.packed) << c.format;
        EXPECT_EQ(debug.Text(), c.format ? "" : "Unknown Pixel Format.....\n");
    }
}

TEST_F(TextureFormatTest, LimitsMarkWhatTheDeviceLeavesOpen) {
    DxAdapterTable table = DxDescribeGlContext();
    for (DxDeviceEntry& entry : table.adapters[0].devices) {
        entry.desc.dwMaxTextureWidth = 0;
        entry.desc.dpcTriCaps.dwTextureCaps |= D3DPTEXTURECAPS_POW2;
    }
    DxStageAdapters(&table);
    ASSERT_TRUE(Open(OpenWindowed | Open3D));
    const DeviceLimits* limits = renderer->GetDeviceLimits();
    ASSERT_NE(limits, nullptr);
    EXPECT_EQ(limits->maxTextureWidth, -1);
    EXPECT_EQ(limits->maxTextureHeight, 8192);
    EXPECT_EQ(limits->powerOfTwoOnly, 1);
    EXPECT_EQ(limits->squareOnly, 0);
    EXPECT_EQ(renderer->GetDeviceLimits(), limits);
}

}  // namespace
