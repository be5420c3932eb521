// Cube map surfaces: the faces a request makes, how they are found, counted and released, and
// the requests that are refused.
#include <bit>

#include "tests/dx7/dx7_fixture.h"

namespace {

TEST_F(Dx7, CubeRootIsTheFirstFaceAskedForAndOwnsTheOthers) {
    DDSCAPS2 memory{DDSCAPS_TEXTURE, 0, 0, 0};
    DWORD total = 0, before = 0, free = 0;
    dd->GetAvailableVidMem(&memory, &total, &before);
    struct Case {  // caps 0x1008: a complex texture; caps2 0x200: a cube, 0x400 to 0x8000 faces
        DWORD caps, caps2, root, height;
        HRESULT expected;
    } cases[] = {{0x1008, 0xFE00, 0x400, 32, DD_OK},             // all faces: +x holds the others
                 {0x1008, 0x6200, 0x2000, 32, DD_OK},            // -y and +z
                 {0x1008, 0xFE00, 0, 16, DDERR_INVALIDPARAMS},   // not square
                 {0x1008, 0x200, 0, 32, DDERR_INVALIDPARAMS},    // no face
                 {0x1000, 0xFE00, 0, 32, DDERR_INVALIDCAPS},     // not complex
                 {0x1008, 0xFC00, 0, 32, DDERR_INVALIDCAPS},     // faces without a cube
                 {0x401008, 0xFE00, 0, 32, DDERR_UNSUPPORTED}};  // with a mip chain
    for (const Case& c : cases) {
        DDSURFACEDESC2 desc = Desc(c.caps, 32, c.height);
        desc.ddsCaps.dwCaps2 = c.caps2;
        IDirectDrawSurface7* cube = nullptr;
        ASSERT_EQ(dd->CreateSurface(&desc, &cube, nullptr), c.expected) << c.caps2;
        if (!cube) continue;
        dd->GetAvailableVidMem(&memory, &total, &free);
        EXPECT_EQ(before - free, std::popcount(c.caps2 & 0xFC00) * 32 * 32 * 4u);
        cube->GetSurfaceDesc(&desc);
        EXPECT_EQ(desc.ddsCaps.dwCaps2, DDSCAPS2_CUBEMAP | c.root);
        std::vector<IDirectDrawSurface7*> found;
        for (DWORD face = 0x400; face <= DDSCAPS2_CUBEMAP_NEGATIVEZ; face <<= 1) {
            DDSCAPS2 caps{DDSCAPS_TEXTURE, DDSCAPS2_CUBEMAP | face, 0, 0};
            IDirectDrawSurface7* surface = nullptr;
            cube->GetAttachedSurface(&caps, &surface);
            EXPECT_EQ(surface != nullptr, face != c.root && (c.caps2 & face)) << face;
            if (!surface) continue;
            EXPECT_EQ(surface->Release(), 1u);  // the cube's hold is left
            found.push_back(surface);
        }
        EXPECT_EQ(cube->Release(), 0u);
        for (IDirectDrawSurface7* surface : found) EXPECT_EQ(DxObjectNumber(surface), 0u);
    }
    dd->GetAvailableVidMem(&memory, &total, &free);
    EXPECT_EQ(free, before);
}

}  // namespace
