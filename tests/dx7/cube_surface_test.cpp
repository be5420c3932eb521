// Cube map surfaces: the faces a request makes, how they are found, counted and released, and
// the requests that are refused.
#include "tests/dx7/dx7_fixture.h"

namespace {

DDSURFACEDESC2 CubeDesc(DWORD caps2, DWORD caps = DDSCAPS_TEXTURE | DDSCAPS_COMPLEX) {
    DDSURFACEDESC2 desc = Desc(caps, 32, 32);
    desc.dwFlags |= DDSD_PIXELFORMAT;
    desc.ddpfPixelFormat = DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0);
    desc.ddsCaps.dwCaps2 = caps2;
    return desc;
}

TEST_F(Dx7, CubeRootIsTheFirstFaceAskedForAndOwnsTheOthers) {
    DDSCAPS2 memory{DDSCAPS_TEXTURE, 0, 0, 0};
    DWORD total = 0, before = 0, free = 0;
    dd->GetAvailableVidMem(&memory, &total, &before);
    struct Case {
        DWORD faces, root, count;
    } cases[] = {{DDSCAPS2_CUBEMAP_ALLFACES, DDSCAPS2_CUBEMAP_POSITIVEX, 6},
                 {DDSCAPS2_CUBEMAP_NEGATIVEY | DDSCAPS2_CUBEMAP_POSITIVEZ, 0x2000, 2},
                 {DDSCAPS2_CUBEMAP_NEGATIVEZ, DDSCAPS2_CUBEMAP_NEGATIVEZ, 1}};
    for (const Case& c : cases) {
        IDirectDrawSurface7* cube = nullptr;
        DDSURFACEDESC2 desc = CubeDesc(DDSCAPS2_CUBEMAP | c.faces);
        ASSERT_EQ(dd->CreateSurface(&desc, &cube, nullptr), DD_OK);
        dd->GetAvailableVidMem(&memory, &total, &free);
        EXPECT_EQ(before - free, c.count * 32 * 32 * 4);
        cube->GetSurfaceDesc(&desc);
        EXPECT_EQ(desc.ddsCaps.dwCaps2, DDSCAPS2_CUBEMAP | c.root);
        std::vector<IDirectDrawSurface7*> found;
        for (DWORD face = DDSCAPS2_CUBEMAP_POSITIVEX; face <= DDSCAPS2_CUBEMAP_NEGATIVEZ;
             face <<= 1) {
            DDSCAPS2 caps{DDSCAPS_TEXTURE, DDSCAPS2_CUBEMAP | face, 0, 0};
            IDirectDrawSurface7* surface = nullptr;
            cube->GetAttachedSurface(&caps, &surface);
            EXPECT_EQ(surface != nullptr, face != c.root && (c.faces & face)) << face;
            if (!surface) continue;
            EXPECT_EQ(surface->Release(), 1u);  // the cube's hold is left
            found.push_back(surface);
        }
        EXPECT_EQ(cube->Release(), 0u);
        for (IDirectDrawSurface7* surface : found) EXPECT_EQ(DxObjectNumber(surface), 0u);
    }
    dd->GetAvailableVidMem(&memory, &total, &free);
    EXPECT_EQ(free, before);

    struct Refused {
        DDSURFACEDESC2 desc;
        HRESULT expected;
    } refused[] = {{CubeDesc(0xFE00), DDERR_INVALIDPARAMS},  // made 32 x 16 below
                   {CubeDesc(DDSCAPS2_CUBEMAP), DDERR_INVALIDPARAMS},
                   {CubeDesc(0xFE00, DDSCAPS_TEXTURE), DDERR_INVALIDCAPS},
                   {CubeDesc(0xFE00, DDSCAPS_OFFSCREENPLAIN | DDSCAPS_COMPLEX), DDERR_INVALIDCAPS},
                   {CubeDesc(DDSCAPS2_CUBEMAP_ALLFACES), DDERR_INVALIDCAPS},
                   {CubeDesc(0xFE00, 0x401008), DDERR_UNSUPPORTED}};  // with a mip chain
    refused[0].desc.dwHeight = 16;
    for (Refused& r : refused) {
        IDirectDrawSurface7* surface = nullptr;
        EXPECT_EQ(dd->CreateSurface(&r.desc, &surface, nullptr), r.expected) << &r - refused;
        EXPECT_EQ(surface, nullptr);
    }
}

}  // namespace
