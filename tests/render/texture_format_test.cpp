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
        for (DxDeviceEntry& entry : table.adapters[0].devices) {
            entry.desc.dwMaxTextureWidth = 0;
            entry.desc.dpcTriCaps.dwTextureCaps |= D3DPTEXTURECAPS_POW2;
        }
        DxStageAdapters(&table);
        return Open(OpenWindowed | Open3D);
    }
};

TEST_F(TextureFormatTest, EnumerationTakesRgbFormatsApartAndNotesDxt) {
    DDPIXELFORMAT luminance = Rgb565;
    luminance.dwFlags |= DDPF_LUMINANCE;
    DebugCapture debug;
    ASSERT_TRUE(
        OpenWith({Argb8888, luminance, DxFourCcFormat(FOURCC_DXT3),
                  DxRgbFormat(8, 0xE0, 0x1C, 0x3, 0), DxFourCcFormat(FOURCC_DXT1), Rgb565}));
    const TextureFormatRecord* last = renderer->textureFormats;  // the list is newest first
    ASSERT_TRUE(last && last->next && !last->next->next);
    const TextureFormatRecord* first = last->next;
    EXPECT_EQ(
        std::vector<uint32_t>({uint32_t(last->bytesPerPixel), last->alphaMask, last->redShift,
                               last->greenShift, last->greenBits, uint32_t(first->bytesPerPixel),
                               first->alphaShift, first->alphaBits, first->blueBits}),
        std::vector<uint32_t>({2, 0, 11, 5, 6, 4, 24, 8, 8}));
    EXPECT_EQ(renderer->dxtSupport, uint32_t(DxtSupport1 | DxtSupport3));
    EXPECT_NE(debug.Text().find("DEBUG: Device Supports DXT3\nDEBUG: Device Supports DXT1\n"),
              std::string::npos);
    const DeviceLimits* limits = renderer->GetDeviceLimits();
    EXPECT_EQ(std::vector<int32_t>({limits->maxTextureWidth, limits->maxTextureHeight,
                                    limits->powerOfTwoOnly, limits->squareOnly}),
              std::vector<int32_t>({-1, 8192, 1, 0}));
}

TEST_F(TextureFormatTest, BestFormatByChannelDepths) {
    struct Case {
        std::vector<DDPIXELFORMAT> offered;  // listed newest first, so last to first
        uint32_t format;
        bool key, alpha;
        DWORD redMask, alphaMask;
    };
    const Case cases[] = {
        // Both deeper than wanted somewhere: the smallest largest difference wins.
        {{Argb8888, Argb1555}, 0x4444, false, false, 0x7C00, 0x8000},
        {{Argb8888, Argb1555, Argb4444}, 0x4444, false, false, 0xF00, 0xF000},
        {{Rgb565, Rgb555, Argb1555}, 0x5650, false, false, 0xF800, 0},
        // A key asks for one alpha bit, the alpha flag for as many as the deepest colour.
        {{Rgb565, Rgb555, Argb1555}, 0x5650, true, false, 0x7C00, 0x8000},
        {{Argb4444, Argb8888, Rgb565}, 0x8880, false, true, 0xFF0000, 0xFF000000},
        {{Argb8888, Argb4444}, 0x8888, false, false, 0xFF0000, 0xFF000000},
        // Shallower everywhere: the smallest shortfall, the first listed on a tie.
        {{Rgb555, Rgb565}, 0x8880, false, false, 0xF800, 0},
        {{Rgb565, Rgb555}, 0x8880, false, false, 0x7C00, 0},
    };
    for (const Case& c : cases) {
        ASSERT_TRUE(OpenWith(c.offered));
        const TextureFormatRecord* best = renderer->GetBestTextureFormat(c.format, c.key, c.alpha);
        EXPECT_EQ(best->redMask, c.redMask) << &c - cases;
        EXPECT_EQ(best->alphaMask, c.alphaMask) << &c - cases;
        Close();
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
    for (auto [format, packed] :
         {std::pair{0x5550u, 0x4103u}, {0x5650u, 0x8223u}, {0u, 0x804418u}}) {
        bare.softwareFormat = format;
        DebugCapture debug;
        EXPECT_EQ(bare.PackColour(0x80, 0x44, 0x18), packed) << format;
        EXPECT_EQ(debug.Text(), format ? "" : "Unknown Pixel Format.....\n");
    }
}

}  // namespace
