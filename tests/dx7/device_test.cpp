// The 3D device and vertex buffers in record-only mode, the fault switches and the call record.
#include <functional>
#include <string>

#include "platform/dx7/gl/gl_backend.h"
#include "tests/dx7/dx7_fixture.h"

namespace {

struct TlVertex {
    float x, y, z, rhw;
    DWORD diffuse, specular;
    float u, v;
};

struct LitVertex {
    float x, y, z;
    float nx, ny, nz;
    float u, v;
};

TEST_F(Dx7, FaultsFailTheNamedCallsTheGivenNumberOfTimes) {
    DDSURFACEDESC2 chain =
        Desc(DDSCAPS_PRIMARYSURFACE | DDSCAPS_FLIP | DDSCAPS_COMPLEX | DDSCAPS_3DDEVICE);
    chain.dwFlags |= DDSD_BACKBUFFERCOUNT;
    chain.dwBackBufferCount = 1;
    IDirectDrawSurface7* primary = Make(chain);
    IDirectDrawSurface7* plain = Make(Desc(DDSCAPS_OFFSCREENPLAIN, 8, 8));
    IDirect3DVertexBuffer7* buffer = MakeBuffer(D3DFVF_TLVERTEX, 4);
    // Calls that succeed the third time leave what they made or locked to be let go below.
    IDirect3DDevice7* device = nullptr;
    IDirectDrawSurface7* surface = nullptr;
    DDSURFACEDESC2 small = Desc(DDSCAPS_OFFSCREENPLAIN, 4, 4), lock = Desc(0);
    void* data = nullptr;
    DxFaults& faults = DxFaultSwitches();
    struct Case {
        const char* name;
        int* counter;
        std::function<HRESULT()> call;
        HRESULT failure;
    };
    const Case cases[] = {
        {"presents", &faults.presents, [&] { return primary->Flip(nullptr, DDFLIP_WAIT); },
         DDERR_SURFACELOST},
        {"presents by Blt", &faults.presents,
         [&] { return primary->Blt(nullptr, plain, nullptr, DDBLT_WAIT, nullptr); },
         DDERR_SURFACELOST},
        {"cooperativeTests", &faults.cooperativeTests, [&] { return dd->TestCooperativeLevel(); },
         DDERR_NOEXCLUSIVEMODE},
        {"cooperativeLevels", &faults.cooperativeLevels,
         [&] { return dd->SetCooperativeLevel(Window(), DDSCL_EXCLUSIVE | DDSCL_FULLSCREEN); },
         DDERR_NOEXCLUSIVEMODE},
        {"displayModes", &faults.displayModes,
         [&] { return dd->SetDisplayMode(800, 600, 32, 0, 0); }, DDERR_UNSUPPORTEDMODE},
        {"createDevices", &faults.createDevices,
         [&] { return d3d->CreateDevice(IID_IDirect3DHALDevice, primary, &device); },
         DDERR_INVALIDCAPS},
        {"createSurfaces", &faults.createSurfaces,
         [&] { return dd->CreateSurface(&small, &surface, nullptr); }, DDERR_OUTOFVIDEOMEMORY},
        {"surface locks", &faults.locks, [&] { return plain->Lock(nullptr, &lock, 0, nullptr); },
         DDERR_SURFACELOST},
        {"vertex buffer locks", &faults.locks, [&] { return buffer->Lock(0, &data, nullptr); },
         DDERR_SURFACELOST},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        *c.counter = 2;
        EXPECT_EQ(c.call(), c.failure);
        EXPECT_EQ(c.call(), c.failure);
        EXPECT_EQ(*c.counter, 0);
        EXPECT_EQ(c.call(), DD_OK);
    }
    if (device) device->Release();
    if (surface) surface->Release();
}

TEST_F(Dx7, LostSurfacesStayLostUntilRestored) {
    IDirectDrawSurface7* a = Make(Desc(DDSCAPS_OFFSCREENPLAIN, 8, 8));
    IDirectDrawSurface7* b = Make(Desc(DDSCAPS_OFFSCREENPLAIN, 8, 8));
    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof desc;
    DxFaultSwitches().surfacesLost = true;
    EXPECT_EQ(a->IsLost(), DDERR_SURFACELOST);
    EXPECT_EQ(b->Lock(nullptr, &desc, 0, nullptr), DDERR_SURFACELOST);
    EXPECT_EQ(a->Restore(), DD_OK);
    EXPECT_EQ(a->IsLost(), DD_OK);
    EXPECT_EQ(b->IsLost(), DDERR_SURFACELOST);
    EXPECT_EQ(dd->RestoreAllSurfaces(), DD_OK);
    EXPECT_EQ(b->IsLost(), DD_OK);
    // A second loss takes the restored surfaces again.
    DxFaultSwitches().surfacesLost = false;
    EXPECT_EQ(a->IsLost(), DD_OK);
    DxFaultSwitches().surfacesLost = true;
    EXPECT_EQ(a->IsLost(), DDERR_SURFACELOST);
}

TEST_F(Dx7, CallsAreRecordedByTheirPublishedNames) {
    IDirect3DDevice7* device = MakeDevice();
    IDirectDrawSurface7* texture =
        MakeRgb(8, 8, DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0), DDSCAPS_TEXTURE);
    IDirect3DVertexBuffer7* buffer = MakeBuffer(D3DFVF_TLVERTEX, 300);
    WORD indices[900] = {};
    std::string tex = "#" + std::to_string(DxObjectNumber(texture));
    std::string vb = "#" + std::to_string(DxObjectNumber(buffer));

    DxCallRecorder record;
    device->SetRenderState(D3DRENDERSTATE_ALPHABLENDENABLE, 1);
    device->SetTextureStageState(0, D3DTSS_COLOROP, D3DTOP_MODULATE);
    device->SetTexture(0, texture);
    device->SetTexture(1, nullptr);
    device->DrawIndexedPrimitiveVB(D3DPT_TRIANGLELIST, buffer, 0, 300, indices, 900, 0);
    void* data = nullptr;
    buffer->Lock(DDLOCK_WAIT, &data, nullptr);
    buffer->Unlock();
    DDSURFACEDESC2 desc = Desc(DDSCAPS_OFFSCREENPLAIN | DDSCAPS_3DDEVICE, 640, 480);
    Make(desc);
    std::vector<std::string> expected = {
        "SetRenderState(27, 1)",
        "SetTextureStageState(0, 1, 4)",
        "SetTexture(0, " + tex + ")",
        "SetTexture(1, null)",
        "DrawIndexedPrimitiveVB(4, " + vb + ", 0, 300, 900, 0)",
        "Lock(" + vb + ", 1)",
        "Unlock(" + vb + ")",
        "CreateSurface(caps 0x2040, 640x480)",
    };
    EXPECT_EQ(record.Calls(), expected);
    EXPECT_EQ(record.Only("SetTexture, Lock"),
              (std::vector<std::string>{expected[2], expected[3], expected[5]}));
}

TEST_F(Dx7, ClearWithoutGlFillsTheTargetAndDepthInMemory) {
    IDirect3DDevice7* device = MakeDevice();
    D3DRECT area{2, 3, 4, 5};
    ASSERT_EQ(device->Clear(1, &area, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFF00FF00u, 0.5f, 0),
              D3D_OK);
    IDirectDrawSurface7* target = nullptr;
    ASSERT_EQ(device->GetRenderTarget(&target), D3D_OK);
    Hold(target);
    std::vector<uint32_t> pixels = Pixels(target, 4);
    EXPECT_EQ(pixels[3 * 64 + 2], 0x00FF00u);
    EXPECT_EQ(pixels[4 * 64 + 3], 0x00FF00u);
    EXPECT_EQ(pixels[5 * 64 + 3], 0u);
    DDSCAPS2 zCaps{DDSCAPS_ZBUFFER, 0, 0, 0};
    IDirectDrawSurface7* depth = nullptr;
    ASSERT_EQ(target->GetAttachedSurface(&zCaps, &depth), DD_OK);
    Hold(depth);
    EXPECT_EQ(Pixels(depth, 2)[3 * 64 + 2], 0x8000u);
    EXPECT_EQ(device->Clear(0, nullptr, D3DCLEAR_STENCIL, 0, 1.0f, 1),
              D3DERR_STENCILBUFFER_NOTPRESENT);
}

TEST_F(Dx7, ProcessVerticesTransformsAndLightsAsPublished) {
    IDirect3DDevice7* device = MakeDevice();
    D3DVIEWPORT7 viewport{0, 0, 64, 48, 0.0f, 1.0f};
    ASSERT_EQ(device->SetViewport(&viewport), D3D_OK);
    // Move the point 5 along z, then a 90 degree perspective from 1 to 100.
    D3DMATRIX world{}, projection{};
    for (int i = 0; i < 4; ++i) world.m[i][i] = 1.0f;
    world.m[3][2] = 5.0f;
    projection.m[0][0] = projection.m[1][1] = 1.0f;
    projection.m[2][2] = 100.0f / 99.0f;
    projection.m[2][3] = 1.0f;
    projection.m[3][2] = -100.0f / 99.0f;
    device->SetTransform(D3DTRANSFORMSTATE_WORLD, &world);
    device->SetTransform(D3DTRANSFORMSTATE_PROJECTION, &projection);
    D3DMATERIAL7 material{};
    material.dcvDiffuse = {0.5f, 0.25f, 1.0f, 1.0f};
    material.dcvSpecular = {1.0f, 1.0f, 1.0f, 1.0f};
    material.dvPower = 10.0f;
    device->SetMaterial(&material);
    device->SetRenderState(D3DRENDERSTATE_SPECULARENABLE, 1);
    device->SetRenderState(D3DRENDERSTATE_LOCALVIEWER, 0);
    D3DLIGHT7 light{};
    light.dltType = D3DLIGHT_DIRECTIONAL;
    light.dcvDiffuse = {1.0f, 1.0f, 1.0f, 1.0f};
    light.dcvSpecular = {0.5f, 0.5f, 0.5f, 1.0f};
    light.dvDirection = {0.0f, 0.0f, 1.0f};
    device->SetLight(0, &light);
    device->LightEnable(0, 1);

    IDirect3DVertexBuffer7* source = MakeBuffer(D3DFVF_VERTEX, 2);
    IDirect3DVertexBuffer7* target = MakeBuffer(D3DFVF_TLVERTEX, 2);
    void* data = nullptr;
    ASSERT_EQ(source->Lock(0, &data, nullptr), D3D_OK);
    auto* in = static_cast<LitVertex*>(data);
    in[0] = {1.0f, -0.5f, 0.0f, 0.0f, 0.0f, -1.0f, 0.25f, 0.75f};  // faces the light
    in[1] = {1.0f, -0.5f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f};     // faces away
    source->Unlock();
    ASSERT_EQ(target->ProcessVertices(D3DVOP_TRANSFORM | D3DVOP_LIGHT, 0, 2, source, 0, device, 0),
              D3D_OK);
    ASSERT_EQ(target->Lock(0, &data, nullptr), D3D_OK);
    const auto* out = static_cast<const TlVertex*>(data);
    // x/w = 0.2 and y/w = -0.1 of the half viewport from its centre, y going down;
    // z = (5 - 1) / 5 * 100/99.
    EXPECT_NEAR(out[0].x, 32.0f * 1.2f, 1e-4);
    EXPECT_NEAR(out[0].y, 24.0f * 1.1f, 1e-4);
    EXPECT_NEAR(out[0].z, 0.8f * 100.0f / 99.0f, 1e-5);
    EXPECT_NEAR(out[0].rhw, 0.2f, 1e-6);
    EXPECT_EQ(out[0].diffuse, 0xFF8040FFu);
    EXPECT_EQ(out[1].diffuse, 0xFF000000u);
    EXPECT_EQ(out[0].specular, 0xFF808080u);  // the viewer along the light: a full highlight
    EXPECT_EQ(out[1].specular, 0xFF000000u);
    EXPECT_EQ(out[0].u, 0.25f);
    EXPECT_EQ(out[0].v, 0.75f);
    target->Unlock();
    // A point light 2 in front of the face, attenuated by 1 / (0.25 * 2): twice as bright.
    light.dltType = D3DLIGHT_POINT;
    light.dvPosition = {1.0f, -0.5f, 3.0f};
    light.dvRange = 10.0f;
    light.dvAttenuation1 = 0.25f;
    device->SetLight(1, &light);
    ASSERT_EQ(device->GetMaterial(&material), D3D_OK);
    EXPECT_EQ(material.dcvDiffuse.g, 0.25f);
    device->LightEnable(0, 0);
    device->LightEnable(1, 1);
    ASSERT_EQ(target->ProcessVertices(D3DVOP_TRANSFORM | D3DVOP_LIGHT, 0, 1, source, 0, device, 0),
              D3D_OK);
    ASSERT_EQ(target->Lock(0, &data, nullptr), D3D_OK);
    EXPECT_EQ(static_cast<const TlVertex*>(data)->diffuse, 0xFFFF80FFu);
    target->Unlock();
    EXPECT_EQ(target->ProcessVertices(D3DVOP_TRANSFORM, 1, 2, source, 0, device, 0),
              DDERR_INVALIDPARAMS);
}

TEST_F(Dx7, DrawsOutsideTheirVerticesAreRefused) {
    IDirect3DDevice7* device = MakeDevice();
    IDirect3DVertexBuffer7* buffer = MakeBuffer(D3DFVF_TLVERTEX, 6);
    TlVertex vertices[3] = {};
    WORD inside[3] = {0, 1, 2}, outside[3] = {0, 1, 3};
    struct Case {
        const char* name;
        std::function<HRESULT()> draw;
        HRESULT expected;
    };
    const Case cases[] = {
        {"no buffer",
         [&] {
             return device->DrawIndexedPrimitiveVB(D3DPT_TRIANGLELIST, nullptr, 0, 3, inside, 3, 0);
         },
         DDERR_INVALIDPARAMS},
        {"buffer whole",
         [&] { return device->DrawPrimitiveVB(D3DPT_TRIANGLELIST, buffer, 3, 3, 0); }, D3D_OK},
        {"buffer past its end",
         [&] { return device->DrawPrimitiveVB(D3DPT_TRIANGLELIST, buffer, 4, 3, 0); },
         DDERR_INVALIDPARAMS},
        {"buffer index past the run",
         [&] {
             return device->DrawIndexedPrimitiveVB(D3DPT_TRIANGLELIST, buffer, 3, 3, outside, 3, 0);
         },
         DDERR_INVALIDPARAMS},
        {"buffer index inside",
         [&] {
             return device->DrawIndexedPrimitiveVB(D3DPT_TRIANGLELIST, buffer, 3, 3, inside, 3, 0);
         },
         D3D_OK},
        {"memory index past the vertices",
         [&] {
             return device->DrawIndexedPrimitive(D3DPT_TRIANGLELIST, D3DFVF_TLVERTEX, vertices, 3,
                                                 outside, 3, 0);
         },
         DDERR_INVALIDPARAMS},
        {"unknown primitive",
         [&] {
             return device->DrawPrimitive(D3DPRIMITIVETYPE(7), D3DFVF_TLVERTEX, vertices, 3, 0);
         },
         DDERR_INVALIDPARAMS},
        {"format without a layout",
         [&] { return device->DrawPrimitive(D3DPT_TRIANGLELIST, 0x1, vertices, 3, 0); },
         DDERR_INVALIDPARAMS},
        {"too many vertices",
         [&] {
             return device->DrawPrimitive(D3DPT_POINTLIST, D3DFVF_TLVERTEX, vertices,
                                          D3DMAXNUMVERTICES + 1, 0);
         },
         DDERR_INVALIDPARAMS},
    };
    for (const Case& c : cases) EXPECT_EQ(c.draw(), c.expected) << c.name;
    void* data = nullptr;
    ASSERT_EQ(buffer->Lock(0, &data, nullptr), D3D_OK);
    EXPECT_EQ(device->DrawPrimitiveVB(D3DPT_TRIANGLELIST, buffer, 0, 3, 0),
              D3DERR_VERTEXBUFFERLOCKED);
    buffer->Unlock();
    ASSERT_EQ(buffer->Optimize(device, 0), D3D_OK);
    EXPECT_EQ(buffer->Lock(0, &data, nullptr), D3DERR_VERTEXBUFFEROPTIMIZED);
}

TEST_F(Dx7, ValidateDeviceChecksStagesAndOperationsAgainstTheCaps) {
    DxAdapterTable table = DxDescribeGlContext();
    D3DDEVICEDESC7& caps = table.adapters[0].devices[0].desc;
    caps.wMaxTextureBlendStages = 2;
    caps.dwTextureOpCaps &= ~(1u << (D3DTOP_SUBTRACT - 1));
    DxStageAdapters(&table);
    void* out = nullptr;
    ASSERT_EQ(DirectDrawCreateEx(nullptr, &out, IID_IDirectDraw7, nullptr), DD_OK);
    std::swap(dd, *reinterpret_cast<IDirectDraw7**>(&out));
    Hold(static_cast<IDirectDraw7*>(out));
    d3d->Release();
    dd->SetCooperativeLevel(Window(), DDSCL_NORMAL);
    ASSERT_EQ(dd->QueryInterface(IID_IDirect3D7, &out), DD_OK);
    d3d = static_cast<IDirect3D7*>(out);
    IDirect3DDevice7* device = MakeDevice();

    struct Case {
        DWORD stage, state, value;
        HRESULT expected;
    };
    const Case cases[] = {
        {0, D3DTSS_COLOROP, D3DTOP_MODULATE, D3D_OK},
        {1, D3DTSS_COLOROP, D3DTOP_ADD, D3D_OK},
        {2, D3DTSS_COLOROP, D3DTOP_ADD, D3DERR_TOOMANYOPERATIONS},
        {2, D3DTSS_COLOROP, D3DTOP_DISABLE, D3D_OK},
        {1, D3DTSS_COLOROP, D3DTOP_SUBTRACT, D3DERR_UNSUPPORTEDCOLOROPERATION},
        {1, D3DTSS_COLOROP, D3DTOP_ADD, D3D_OK},
        {1, D3DTSS_ALPHAOP, D3DTOP_SUBTRACT, D3DERR_UNSUPPORTEDALPHAOPERATION},
        {1, D3DTSS_COLOROP, D3DTOP_DISABLE, D3D_OK},  // a stage out of use is not looked at
    };
    for (const Case& c : cases) {
        device->SetTextureStageState(c.stage, D3DTEXTURESTAGESTATETYPE(c.state), c.value);
        DWORD passes = 7;
        EXPECT_EQ(device->ValidateDevice(&passes), c.expected)
            << "stage " << c.stage << " state " << c.state << " value " << c.value;
        EXPECT_EQ(passes, c.expected == D3D_OK ? 1u : 0u);
    }
    DxStageAdapters(nullptr);
}

TEST_F(Dx7, DrawsThroughGlComeBackAtTheNextLock) {
    DxSetRendering(DxRendering::GlWhenAvailable);
    if (!DxGlBackend::Get()) GTEST_SKIP() << DxGlFailure();
    IDirect3DDevice7* device = MakeDevice();
    device->SetRenderState(D3DRENDERSTATE_CULLMODE, D3DCULL_NONE);
    ASSERT_EQ(device->Clear(0, nullptr, D3DCLEAR_TARGET | D3DCLEAR_ZBUFFER, 0xFF0000FFu, 1.0f, 0),
              D3D_OK);
    const TlVertex corner[3] = {{0, 0, 0.5f, 1, 0xFFFF0000u, 0, 0, 0},
                                {64, 0, 0.5f, 1, 0xFFFF0000u, 0, 0, 0},
                                {0, 64, 0.5f, 1, 0xFFFF0000u, 0, 0, 0}};
    // From a vertex buffer, behind three vertices that would cover everything.
    IDirect3DVertexBuffer7* buffer = MakeBuffer(D3DFVF_TLVERTEX, 6);
    void* data = nullptr;
    ASSERT_EQ(buffer->Lock(0, &data, nullptr), D3D_OK);
    auto* vertices = static_cast<TlVertex*>(data);
    for (int i = 0; i < 3; ++i)
        vertices[i] = {
            i == 1 ? 200.0f : -100, i == 2 ? 200.0f : -100, 0.5f, 1, 0xFF00FF00u, 0, 0, 0};
    memcpy(vertices + 3, corner, sizeof corner);
    buffer->Unlock();
    WORD indices[3] = {0, 1, 2};
    ASSERT_EQ(device->BeginScene(), D3D_OK);
    ASSERT_EQ(device->DrawIndexedPrimitiveVB(D3DPT_TRIANGLELIST, buffer, 3, 3, indices, 3, 0),
              D3D_OK);
    ASSERT_EQ(device->EndScene(), D3D_OK);
    IDirectDrawSurface7* target = nullptr;
    ASSERT_EQ(device->GetRenderTarget(&target), D3D_OK);
    Hold(target);
    std::vector<uint32_t> pixels = Pixels(target, 4);
    EXPECT_EQ(pixels[5 * 64 + 5] & 0xFFFFFF, 0xFF0000u);
    EXPECT_EQ(pixels[60 * 64 + 60] & 0xFFFFFF, 0x0000FFu);
}

}  // namespace
