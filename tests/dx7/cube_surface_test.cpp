// Cube map surfaces: the faces a request makes, how they are found and counted, what is refused,
// and faces as separate pixels and render targets.
#include <bit>

#include "tests/dx7/dx7_fixture.h"

namespace {

constexpr DWORD Faces[] = {DDSCAPS2_CUBEMAP_POSITIVEX, DDSCAPS2_CUBEMAP_NEGATIVEX,
                           DDSCAPS2_CUBEMAP_POSITIVEY, DDSCAPS2_CUBEMAP_NEGATIVEY,
                           DDSCAPS2_CUBEMAP_POSITIVEZ, DDSCAPS2_CUBEMAP_NEGATIVEZ};

DDSURFACEDESC2 CubeDesc(DWORD faces, DWORD side, DWORD caps = DDSCAPS_VIDEOMEMORY) {
    DDSURFACEDESC2 desc = Desc(DDSCAPS_TEXTURE | DDSCAPS_COMPLEX | caps, side, side);
    desc.dwFlags |= DDSD_PIXELFORMAT;
    desc.ddpfPixelFormat = DxRgbFormat(32, 0xFF0000, 0xFF00, 0xFF, 0);
    desc.ddsCaps.dwCaps2 = DDSCAPS2_CUBEMAP | faces;
    return desc;
}

IDirectDrawSurface7* FindFace(IDirectDrawSurface7* cube, DWORD face) {
    DDSCAPS2 caps{DDSCAPS_TEXTURE, DDSCAPS2_CUBEMAP | face, 0, 0};
    IDirectDrawSurface7* out = nullptr;
    return SUCCEEDED(cube->GetAttachedSurface(&caps, &out)) ? out : nullptr;
}

DWORD FreeVideo(IDirectDraw7* dd) {
    DDSCAPS2 caps{DDSCAPS_TEXTURE, 0, 0, 0};
    DWORD total = 0, free = 0;
    dd->GetAvailableVidMem(&caps, &total, &free);
    return free;
}

TEST_F(Dx7, CubeRootIsTheFirstFaceAskedForAndHoldsTheRest) {
    struct Case {
        DWORD faces, root;
    } cases[] = {
        {DDSCAPS2_CUBEMAP_ALLFACES, DDSCAPS2_CUBEMAP_POSITIVEX},
        {DDSCAPS2_CUBEMAP_NEGATIVEY | DDSCAPS2_CUBEMAP_POSITIVEZ, DDSCAPS2_CUBEMAP_NEGATIVEY},
        {DDSCAPS2_CUBEMAP_NEGATIVEZ, DDSCAPS2_CUBEMAP_NEGATIVEZ},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.faces);
        const DWORD before = FreeVideo(dd);
        DDSURFACEDESC2 desc = CubeDesc(c.faces, 32);
        IDirectDrawSurface7* cube = nullptr;
        ASSERT_EQ(dd->CreateSurface(&desc, &cube, nullptr), DD_OK);
        const DWORD count = DWORD(std::popcount(c.faces));
        EXPECT_EQ(before - FreeVideo(dd), count * 32 * 32 * 4);
        DDSURFACEDESC2 got{};
        got.dwSize = sizeof got;
        ASSERT_EQ(cube->GetSurfaceDesc(&got), DD_OK);
        EXPECT_EQ(got.ddsCaps.dwCaps2, DDSCAPS2_CUBEMAP | c.root);

        std::vector<IDirectDrawSurface7*> found;
        for (DWORD face : Faces) {
            IDirectDrawSurface7* surface = FindFace(cube, face);
            EXPECT_EQ(surface != nullptr, (c.faces & face) && face != c.root) << face;
            if (!surface) continue;
            ASSERT_EQ(surface->GetSurfaceDesc(&got), DD_OK);
            EXPECT_EQ(got.ddsCaps.dwCaps2, DDSCAPS2_CUBEMAP | face);
            EXPECT_EQ(got.dwWidth, 32u);
            EXPECT_EQ(surface->AddRef(), 3u);  // its own, the search's, this one
            EXPECT_EQ(surface->Release(), 2u);
            EXPECT_EQ(surface->Release(), 1u);
            found.push_back(surface);
        }
        int listed = 0;
        cube->EnumAttachedSurfaces(&listed, [](LPDIRECTDRAWSURFACE7 s, LPDDSURFACEDESC2, LPVOID n) {
            ++*static_cast<int*>(n);
            s->Release();
            return HRESULT(DDENUMRET_OK);
        });
        EXPECT_EQ(listed, int(count) - 1);

        EXPECT_EQ(cube->Release(), 0u);
        for (IDirectDrawSurface7* surface : found) EXPECT_EQ(DxObjectNumber(surface), 0u);
        EXPECT_EQ(FreeVideo(dd), before);
    }
}

TEST_F(Dx7, CubeRequestsThatCannotBeMadeAreRefused) {
    struct Case {
        const char* what;
        DDSURFACEDESC2 desc;
        HRESULT expected;
    } cases[] = {
        {"not square", CubeDesc(DDSCAPS2_CUBEMAP_ALLFACES, 32), DDERR_INVALIDPARAMS},
        {"no faces", CubeDesc(0, 32), DDERR_INVALIDPARAMS},
        {"not complex", CubeDesc(DDSCAPS2_CUBEMAP_ALLFACES, 32), DDERR_INVALIDCAPS},
        {"no texture", CubeDesc(DDSCAPS2_CUBEMAP_ALLFACES, 32), DDERR_INVALIDCAPS},
        {"faces without cube", CubeDesc(DDSCAPS2_CUBEMAP_POSITIVEX, 32), DDERR_INVALIDCAPS},
        {"mip chain", CubeDesc(DDSCAPS2_CUBEMAP_ALLFACES, 32, DDSCAPS_MIPMAP), DDERR_UNSUPPORTED},
    };
    cases[0].desc.dwHeight = 16;
    cases[2].desc.ddsCaps.dwCaps &= ~DWORD(DDSCAPS_COMPLEX);
    cases[3].desc.ddsCaps.dwCaps = DDSCAPS_OFFSCREENPLAIN | DDSCAPS_COMPLEX;
    cases[4].desc.ddsCaps.dwCaps2 &= ~DWORD(DDSCAPS2_CUBEMAP);
    const DWORD before = FreeVideo(dd);
    for (Case& c : cases) {
        IDirectDrawSurface7* surface = nullptr;
        EXPECT_EQ(dd->CreateSurface(&c.desc, &surface, nullptr), c.expected) << c.what;
        EXPECT_EQ(surface, nullptr) << c.what;
    }
    EXPECT_EQ(FreeVideo(dd), before);
}

TEST_F(Dx7, CubeFacesKeepTheirOwnPixelsDrawAsTargetsAndRestoreWithTheRoot) {
    IDirect3DDevice7* device = MakeDevice();
    IDirectDrawSurface7* cube =
        Make(CubeDesc(DDSCAPS2_CUBEMAP_ALLFACES, 16, DDSCAPS_VIDEOMEMORY | DDSCAPS_3DDEVICE));
    std::vector<IDirectDrawSurface7*> faces{cube};
    for (DWORD face : Faces)
        if (IDirectDrawSurface7* found = FindFace(cube, face)) faces.push_back(Hold(found));
    ASSERT_EQ(faces.size(), 6u);
    for (size_t i = 0; i < faces.size(); ++i) Fill(faces[i], DWORD(0x100 + i));
    for (size_t i = 0; i < faces.size(); ++i) {
        EXPECT_EQ(Pixels(faces[i], 4), std::vector<uint32_t>(16 * 16, DWORD(0x100 + i)));
        EXPECT_EQ(device->SetRenderTarget(faces[i], 0), D3D_OK) << i;
        IDirectDrawSurface7* target = nullptr;
        ASSERT_EQ(device->GetRenderTarget(&target), D3D_OK);
        EXPECT_EQ(target, faces[i]);
        target->Release();
    }
    DxFaultSwitches().surfacesLost = true;
    EXPECT_EQ(faces[5]->IsLost(), DDERR_SURFACELOST);
    EXPECT_EQ(cube->Restore(), DD_OK);
    for (IDirectDrawSurface7* face : faces) EXPECT_EQ(face->IsLost(), DD_OK);
}

}  // namespace
