// The DirectDraw and Direct3D objects in record-only mode: drivers, surfaces, pixels, faults and
// the call record.
#include <algorithm>
#include <string>

#include "tests/dx7/dx7_fixture.h"

namespace {

TEST_F(Dx7, StagedDriversAreEnumeratedAsStagedAndCreatedByGuid) {
    DxAdapterTable table;
    table.adapters.push_back(DxDescribeGlContext().adapters[0]);
    DxAdapterEntry second = table.adapters[0];
    second.isDefault = false;
    second.guid = {0x12345678, 1, 2, {3, 4, 5, 6, 7, 8, 9, 10}};
    second.description = "Second card";
    second.caps = 0;
    table.adapters.push_back(second);
    DxStageAdapters(&table);

    struct Seen {
        bool nullGuid;
        GUID guid;
        std::string description;
    };
    std::vector<Seen> seen;
    DirectDrawEnumerateA(
        [](GUID* guid, LPSTR description, LPSTR, LPVOID context) -> BOOL {
            static_cast<std::vector<Seen>*>(context)->push_back(
                {guid == nullptr, guid ? *guid : GUID{}, description});
            return 1;
        },
        &seen);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_TRUE(seen[0].nullGuid);
    EXPECT_FALSE(seen[1].nullGuid);
    EXPECT_TRUE(seen[1].guid == second.guid);
    EXPECT_EQ(seen[1].description, "Second card");

    void* out = nullptr;
    ASSERT_EQ(DirectDrawCreateEx(&seen[1].guid, &out, IID_IDirectDraw7, nullptr), DD_OK);
    auto* other = static_cast<IDirectDraw7*>(out);
    DDCAPS caps{};
    caps.dwSize = sizeof caps;
    EXPECT_EQ(other->GetCaps(&caps, nullptr), DD_OK);
    EXPECT_EQ(caps.dwCaps & DDCAPS_3D, 0u);
    EXPECT_EQ(other->Release(), 0u);
    auto count = [](LPDDSURFACEDESC2, LPVOID context) -> HRESULT {
        ++*static_cast<int*>(context);
        return DDENUMRET_OK;
    };
    DDSURFACEDESC2 sixteen = Desc(0);
    sixteen.dwFlags = DDSD_PIXELFORMAT;
    sixteen.ddpfPixelFormat.dwRGBBitCount = 16;
    int modes = 0;
    EXPECT_EQ(dd->EnumDisplayModes(0, &sixteen, &modes, count), DD_OK);
    EXPECT_EQ(modes, 3);
    GUID unknown = {9, 9, 9, {9}};
    EXPECT_EQ(DirectDrawCreateEx(&unknown, &out, IID_IDirectDraw7, nullptr), DDERR_INVALIDPARAMS);
    DxStageAdapters(nullptr);
}

TEST_F(Dx7, FlipHandsTheBackBufferToThePresentHookAsArgb) {
    ASSERT_EQ(dd->SetDisplayMode(640, 480, 16, 0, 0), DD_OK);
    DDSURFACEDESC2 desc =
        Desc(DDSCAPS_PRIMARYSURFACE | DDSCAPS_FLIP | DDSCAPS_COMPLEX | DDSCAPS_3DDEVICE);
    desc.dwFlags |= DDSD_BACKBUFFERCOUNT;
    desc.dwBackBufferCount = 1;
    IDirectDrawSurface7* primary = Make(desc);
    DDSCAPS2 caps{DDSCAPS_BACKBUFFER, 0, 0, 0};
    IDirectDrawSurface7* back = nullptr;
    ASSERT_EQ(primary->GetAttachedSurface(&caps, &back), DD_OK);
    Hold(back);

    RECT corner{10, 20, 11, 21};
    Fill(back, 0xF800, &corner);  // pure red in 5-6-5

    struct Frame {
        DWORD width = 0, height = 0;
        uint32_t corner = 0, origin = 0;
        HWND window = nullptr;
    } frame;
    DxSetPresentHook(
        [](const DxFrame& f, void* user) {
            auto* out = static_cast<Frame*>(user);
            out->width = f.width;
            out->height = f.height;
            out->corner = f.pixels[20 * f.width + 10];
            out->origin = f.pixels[0];
            out->window = f.window;
        },
        &frame);
    ASSERT_EQ(primary->Flip(nullptr, DDFLIP_WAIT), DD_OK);
    EXPECT_EQ(frame.width, 640u);
    EXPECT_EQ(frame.height, 480u);
    EXPECT_EQ(frame.corner, 0xFFFF0000u);
    EXPECT_EQ(frame.origin, 0xFF000000u);
    EXPECT_EQ(frame.window, Window());
    EXPECT_EQ(back->Flip(nullptr, 0), DDERR_NOTFLIPPABLE);
}

// Each format keeps a gradient within the step of its narrowest channel after a trip there and
// back through 8-8-8-8.
struct RoundTrip {
    const char* name;
    DDPIXELFORMAT format;
    int step;
};

TEST_F(Dx7, BltConvertsBetweenRgbFormatsWithinTheNarrowerStep) {
    const RoundTrip trips[] = {
        {"565", DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0), 8},
        {"1555", DxRgbFormat(16, 0x7C00, 0x3E0, 0x1F, 0x8000), 8},
        {"4444", DxRgbFormat(16, 0xF00, 0xF0, 0xF, 0xF000), 17},
        {"8888", DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000), 0},
    };
    const DDPIXELFORMAT argb = DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000);
    IDirectDrawSurface7* source = MakeRgb(64, 4, argb);
    DDSURFACEDESC2 lock{};
    lock.dwSize = sizeof lock;
    ASSERT_EQ(source->Lock(nullptr, &lock, DDLOCK_WAIT, nullptr), DD_OK);
    for (DWORD y = 0; y < 4; ++y)
        for (DWORD x = 0; x < 64; ++x) {
            uint32_t v = x * 4;
            uint32_t pixel = (255 - v) << 24 | v << 16 | (v / 2) << 8 | (255 - v / 3);
            memcpy(static_cast<uint8_t*>(lock.lpSurface) + y * lock.lPitch + x * 4, &pixel, 4);
        }
    ASSERT_EQ(source->Unlock(nullptr), DD_OK);
    std::vector<uint32_t> original = Pixels(source, 4);

    for (const RoundTrip& trip : trips) {
        SCOPED_TRACE(trip.name);
        IDirectDrawSurface7* narrow = MakeRgb(64, 4, trip.format);
        IDirectDrawSurface7* back = MakeRgb(64, 4, argb);
        ASSERT_EQ(narrow->Blt(nullptr, source, nullptr, DDBLT_WAIT, nullptr), DD_OK);
        ASSERT_EQ(back->Blt(nullptr, narrow, nullptr, DDBLT_WAIT, nullptr), DD_OK);
        std::vector<uint32_t> result = Pixels(back, 4);
        bool alpha = trip.format.dwFlags & DDPF_ALPHAPIXELS;
        int alphaStep = trip.format.dwRGBAlphaBitMask == 0x8000 ? 255 : trip.step;
        for (size_t i = 0; i < original.size(); ++i)
            for (int shift = 0; shift < 32; shift += 8) {
                int a = int(original[i] >> shift & 0xFF), b = int(result[i] >> shift & 0xFF);
                int allowed = shift == 24 ? alphaStep : trip.step;
                if (shift == 24 && !alpha) continue;
                ASSERT_LE(std::abs(a - b), allowed / 2 + 1) << "pixel " << i << " shift " << shift;
            }
    }
}

TEST_F(Dx7, MipChainsAreWalkedLevelByLevelBuiltByBltAndLoadedWhole) {
    DDSURFACEDESC2 desc = Desc(DDSCAPS_TEXTURE | DDSCAPS_MIPMAP | DDSCAPS_COMPLEX, 16, 8);
    desc.dwFlags |= DDSD_MIPMAPCOUNT | DDSD_PIXELFORMAT;
    desc.dwMipMapCount = 4;
    desc.ddpfPixelFormat = DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0);
    desc.ddsCaps.dwCaps |= DDSCAPS_SYSTEMMEMORY;
    IDirectDrawSurface7* source = Make(desc);
    desc.ddsCaps.dwCaps &= ~DWORD(DDSCAPS_SYSTEMMEMORY);
    desc.ddsCaps.dwCaps2 = DDSCAPS2_TEXTUREMANAGE;
    desc.ddpfPixelFormat = DxFourCcFormat(FOURCC_DXT1);
    IDirectDrawSurface7* dest = Make(desc);
    IDirectDrawSurface7* full = MakeRgb(16, 8, DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0));

    // Each level is scaled down from the full-size surface, as the engine builds its chains.
    const DWORD sizes[][2] = {{16, 8}, {8, 4}, {4, 2}, {2, 1}};
    const DWORD fills[] = {0xF800, 0x07E0, 0x001F, 0xFFFF};
    IDirectDrawSurface7* level = source;
    for (int i = 0; i < 4; ++i) {
        SCOPED_TRACE(i);
        ASSERT_NE(level, nullptr);
        DDSURFACEDESC2 got{};
        got.dwSize = sizeof got;
        ASSERT_EQ(level->GetSurfaceDesc(&got), DD_OK);
        EXPECT_EQ(got.dwWidth, sizes[i][0]);
        EXPECT_EQ(got.dwHeight, sizes[i][1]);
        EXPECT_EQ(got.dwMipMapCount, DWORD(4 - i));
        Fill(full, fills[i]);
        ASSERT_EQ(level->Blt(nullptr, full, nullptr, DDBLT_WAIT, nullptr), DD_OK);
        for (uint32_t pixel : Pixels(level, 2)) ASSERT_EQ(pixel, fills[i]);
        level = NextLevel(level);
    }
    EXPECT_EQ(level, nullptr);

    // Load takes every level; DXT surfaces hold ARGB, shown by a copy back to 8-8-8-8.
    IDirect3DDevice7* device = MakeDevice();
    ASSERT_EQ(device->Load(dest, nullptr, source, nullptr, 0), D3D_OK);
    const uint32_t argb[] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFFFFFFFFu};
    level = dest;
    for (int i = 0; i < 4; ++i) {
        ASSERT_NE(level, nullptr);
        IDirectDrawSurface7* copy =
            MakeRgb(sizes[i][0], sizes[i][1], DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0xFF000000));
        ASSERT_EQ(copy->Blt(nullptr, level, nullptr, DDBLT_WAIT, nullptr), DD_OK);
        for (uint32_t pixel : Pixels(copy, 4)) ASSERT_EQ(pixel, argb[i]) << "level " << i;
        level = NextLevel(level);
    }
    DDSURFACEDESC2 lock{};
    lock.dwSize = sizeof lock;
    EXPECT_EQ(dest->Lock(nullptr, &lock, 0, nullptr), DDERR_UNSUPPORTEDFORMAT);
}

TEST_F(Dx7, SurfacesThatCannotBeMadeAreRefused) {
    auto with = [](DWORD caps, DWORD width, DWORD height, DDPIXELFORMAT format) {
        DDSURFACEDESC2 desc = Desc(caps, width, height);
        if (format.dwFlags) desc.dwFlags |= DDSD_PIXELFORMAT;
        desc.ddpfPixelFormat = format;
        return desc;
    };
    DDSURFACEDESC2 deepMips = with(DDSCAPS_TEXTURE | DDSCAPS_MIPMAP | DDSCAPS_COMPLEX, 4, 4, {});
    deepMips.dwFlags |= DDSD_MIPMAPCOUNT;
    deepMips.dwMipMapCount = 4;
    const DWORD plain = DDSCAPS_OFFSCREENPLAIN;
    const struct {
        const char* name;
        DDSURFACEDESC2 desc;
        HRESULT expected;
    } cases[] = {
        {"no size", Desc(plain), DDERR_INVALIDPARAMS},
        {"no height", with(plain, 4, 0, {}), DDERR_INVALIDPARAMS},
        {"too wide", with(plain, 16385, 1, {}), DDERR_INVALIDPARAMS},
        {"no colour", with(plain, 4, 4, DxRgbFormat(16, 0, 0, 0, 0xF000)),
         DDERR_INVALIDPIXELFORMAT},
        {"broken mask", with(plain, 4, 4, DxRgbFormat(16, 0xF0F0, 0xF00, 0xF, 0)),
         DDERR_INVALIDPIXELFORMAT},
        {"unknown code",
         with(DDSCAPS_TEXTURE, 4, 4, DxFourCcFormat(MAKEFOURCC('A', 'B', 'C', 'D'))),
         DDERR_INVALIDPIXELFORMAT},
        {"depth of no format", with(DDSCAPS_ZBUFFER, 4, 4, {}), DDERR_INVALIDPIXELFORMAT},
        {"depth of colour", with(DDSCAPS_ZBUFFER, 4, 4, DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0)),
         DDERR_INVALIDPIXELFORMAT},
        {"more levels than sizes", deepMips, DDERR_INVALIDPARAMS},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Make(c.desc, c.expected);
    }

    // Video memory runs out at the staged size; system memory does not count.
    DxAdapterTable table = DxDescribeGlContext();
    table.adapters[0].videoMemory = 64 * 64 * 4;
    DxStageAdapters(&table);
    void* out = nullptr;
    ASSERT_EQ(DirectDrawCreateEx(nullptr, &out, IID_IDirectDraw7, nullptr), DD_OK);
    std::swap(dd, *reinterpret_cast<IDirectDraw7**>(&out));
    Hold(static_cast<IDirectDraw7*>(out));
    DxStageAdapters(nullptr);
    IDirectDrawSurface7* big = Make(with(DDSCAPS_VIDEOMEMORY, 64, 64, {}));
    Make(with(DDSCAPS_VIDEOMEMORY, 1, 1, {}), DDERR_OUTOFVIDEOMEMORY);
    Make(with(DDSCAPS_SYSTEMMEMORY, 1, 1, {}));
    DDSCAPS2 caps{DDSCAPS_VIDEOMEMORY, 0, 0, 0};
    DWORD total = 0, free = 1;
    ASSERT_EQ(dd->GetAvailableVidMem(&caps, &total, &free), DD_OK);
    EXPECT_EQ(free, 0u);
    held.erase(std::find(held.begin(), held.end(), big));
    big->Release();
    ASSERT_EQ(dd->GetAvailableVidMem(&caps, &total, &free), DD_OK);
    EXPECT_EQ(free, total);
}

}  // namespace
