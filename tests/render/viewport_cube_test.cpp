// CViewport::RenderCubeMap: the faces it draws into and their order, a lost cube, backgrounds in
// place of the clears, and what each face shows, read back through GL.
#include <algorithm>

#include "engine/scene/camera.h"
#include "engine/scene/scene.h"
#include "engine/scene/viewport.h"
#include "engine/texture/texture.h"
#include "platform/dx7/gl_context.h"
#include "tests/render/renderer_fixture.h"

namespace {

// Direction, up and right of each face as cube samplers lay them out, and a colour.
struct Look {
    Vector d, up, right;
    uint32_t tint;
} const Looks[6] = {
    {{1, 0, 0}, {0, 1, 0}, {0, 0, -1}, 0xFF0000}, {{-1, 0, 0}, {0, 1, 0}, {0, 0, 1}, 0x00FF00},
    {{0, 1, 0}, {0, 0, -1}, {1, 0, 0}, 0x0000FF}, {{0, -1, 0}, {0, 0, 1}, {1, 0, 0}, 0xFFFF00},
    {{0, 0, 1}, {0, 1, 0}, {1, 0, 0}, 0x00FFFF},  {{0, 0, -1}, {0, 1, 0}, {-1, 0, 0}, 0xFF00FF}};

// A square of 20 units in a look's colour, 50 ahead of (10, 0, 5) and 15 up and 15 right of
// the look's axis, drawn straight through the device.
class Marker : public CEntity {
public:
    Marker(CEntity* owner, const Look& f) : CEntity(owner) {
        for (int i = 0; i < 4; ++i) {  // clockwise as seen: not culled
            const float a = i >= 2 ? 25 : 5, b = i == 1 || i == 2 ? 25 : 5;
            const Vector place{10, 0, 5};
            for (float Vector::*k : {&Vector::x, &Vector::y, &Vector::z})
                quad[i].at.*k = place.*k + 50 * f.d.*k + a * f.right.*k + b * f.up.*k;
            quad[i].colour = 0xFF000000 | f.tint;
        }
    }
    void Render(CRenderContext* context) override {
        context->device->device->SetRenderState(D3DRENDERSTATE_LIGHTING, 0);
        context->device->device->DrawPrimitive(D3DPT_TRIANGLEFAN, D3DFVF_XYZ | D3DFVF_DIFFUSE, quad,
                                               4, 0);
    }
    struct Corner {
        Vector at;
        D3DCOLOR colour;
    } quad[4];
};

class CubeMapTest : public RendererTest {
protected:
    void SetUp() override {
        RendererTest::SetUp();
        DxSetRendering(DxRendering::GlWhenAvailable);  // records all the same
        ASSERT_TRUE(Open(Open3D));
        viewport = renderer->CreateViewport(0, 0, 64, 64);
        cube = CreateTexture(64, 64, 0x8888);
        cube->flags = TextureFlagRenderTarget | TextureFlagCubeMap;
        renderer->LoadDeviceTexture(cube);
        ASSERT_NE(faces[0] = static_cast<LPDIRECTDRAWSURFACE7>(cube->surface), nullptr);
        for (int i = 1; i < 6; ++i) {
            DDSCAPS2 caps{0, DDSCAPS2_CUBEMAP_POSITIVEX << i, 0, 0};
            ASSERT_EQ(faces[0]->GetAttachedSurface(&caps, &faces[i]), DD_OK);
            faces[i]->Release();  // the cube holds it
        }
        // The eye is placed and turned in world terms under a moved and turned layer root.
        CFrame* top = new CFrame(nullptr);
        top->SetPosition(0, 100, 0);
        top->SetOrientation(Vector{1, 0, 0}, Vector{0, 1, 0});
        delete scene.layerRoot[0];
        scene.SetLayerRoot(0, top);
        holder.SetPosition(10, 0, 5);
    }
    void TearDown() override {
        if (viewport) renderer->DestroyViewport(viewport);
        for (CTexture* texture : textures)
            if (texture) FreeTexture(texture);
        if (cube) FreeTexture(cube);
        RendererTest::TearDown();
    }

    CViewport* viewport = nullptr;
    CTexture* cube = nullptr;
    CTexture* textures[6] = {};
    LPDIRECTDRAWSURFACE7 faces[6] = {};
    CScene scene;
    CFrame holder{nullptr};
    CCamera camera{&holder, 320.0f};
};

TEST_F(CubeMapTest, MaskPicksFacesInOrderBackgroundsReplaceClearsAndALostCubeIsRestored) {
    for (CTexture*& texture : textures) texture = CreateTexture(4, 4, 0x8888);
    for (uint32_t mask : {0x3Fu, 0x28u, 0x12u}) {
        CTexture* const* backgrounds = mask == 0x12 ? textures : nullptr;
        viewport->clearColour = 0;  // kept as it was
        DxCallRecorder calls;
        viewport->RenderCubeMap(&camera, &scene, cube, mask, backgrounds);
        Lines targets, set;
        for (int face = 0; face < 6; ++face) {
            if (!(mask & (1u << face))) continue;
            targets.push_back("SetRenderTarget(" + Ref(faces[face]) + ", 0)");
            targets.push_back("SetRenderTarget(" + Ref(renderer->flipping) + ", 0)");
            if (backgrounds) set.push_back("SetTexture(0, " + Ref(textures[face]->surface) + ")");
        }
        EXPECT_EQ(calls.Only("SetRenderTarget"), targets) << mask;
        EXPECT_EQ(calls.Only("Clear").size(), backgrounds ? 0 : targets.size() / 2) << mask;
        Lines textured = calls.Only("SetTexture");
        std::erase(textured, "SetTexture(0, null)");
        EXPECT_EQ(textured, set) << mask;
        EXPECT_EQ(viewport->clearColour + 2 * viewport->clearDepth, 2) << mask;
        EXPECT_EQ(viewport->focal, 32.0f);  // 90 degrees across a face
    }
    DxFaultSwitches().surfacesLost = true;
    DxCallRecorder calls;
    viewport->RenderCubeMap(&camera, &scene, cube, 0x3F, nullptr);
    EXPECT_EQ(calls.Only("SetRenderTarget,BeginScene").size(), 0u);
    EXPECT_EQ(calls.Only("Restore").at(0), "Restore(" + Ref(faces[0]) + ")");
    EXPECT_EQ(faces[5]->IsLost(), DD_OK);  // restored with the root
}

TEST_F(CubeMapTest, SquareAheadOfEachFaceShowsOnlyThereUpAndRightOfCentre) {
    if (!DxCurrentGlContext()) GTEST_SKIP() << DxGlFailure();
    for (const Look& look : Looks) new Marker(scene.layerRoot[0], look);
    viewport->RenderCubeMap(&camera, &scene, cube, 0x3F, nullptr);
    for (int i = 0; i < 6; ++i) {
        DDSURFACEDESC2 desc{};
        desc.dwSize = sizeof desc;
        ASSERT_EQ(faces[i]->Lock(nullptr, &desc, DDLOCK_READONLY, nullptr), DD_OK);
        const auto* pixels = static_cast<const uint32_t*>(desc.lpSurface);  // rows of 256 bytes
        EXPECT_EQ(pixels[22 * 64 + 42] & 0xFFFFFF, Looks[i].tint) << i;
        EXPECT_TRUE(std::all_of(pixels, pixels + 64 * 64, [&](uint32_t p) {
            return (p & 0xFFFFFF) == 0 || (p & 0xFFFFFF) == Looks[i].tint;
        })) << i;
        faces[i]->Unlock(nullptr);
    }
}

}  // namespace
