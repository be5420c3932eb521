// CViewport::RenderCubeMap: the faces it draws into and their order, a lost cube, backgrounds in
// place of the clears, and what each face shows, read back through GL.
#include "engine/scene/camera.h"
#include "engine/scene/scene.h"
#include "engine/scene/viewport.h"
#include "engine/texture/texture.h"
#include "platform/dx7/gl_context.h"
#include "tests/render/renderer_fixture.h"

namespace {

// A square of one colour in world space, drawn straight through the device.
class Marker : public CEntity {
public:
    Marker(CEntity* owner, const Vector& at, const Vector& u, const Vector& v, D3DCOLOR tint)
        : CEntity(owner) {
        for (int i = 0; i < 4; ++i) {
            const float a = i == 1 || i == 2 ? 10 : -10, b = i >= 2 ? 10 : -10;
            quad[i] = {
                {at.x + a * u.x + b * v.x, at.y + a * u.y + b * v.y, at.z + a * u.z + b * v.z},
                tint};
        }
    }
    void Render(CRenderContext* context) override {
        context->device->device->SetRenderState(D3DRENDERSTATE_LIGHTING, 0);
        context->device->device->SetRenderState(D3DRENDERSTATE_CULLMODE, D3DCULL_NONE);
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
    void Start(DxRendering mode) {
        DxSetRendering(mode);
        ASSERT_TRUE(Open(Open3D));
        viewport = renderer->CreateViewport(0, 0, 64, 64);
        cube = CreateTexture(64, 64, 0x8888);
        cube->flags = TextureFlagRenderTarget | TextureFlagCubeMap;
        renderer->LoadDeviceTexture(cube);
        ASSERT_NE(faces[0] = static_cast<LPDIRECTDRAWSURFACE7>(cube->surface), nullptr);
        for (int i = 1; i < 6; ++i) {
            DDSCAPS2 caps{DDSCAPS_TEXTURE, DDSCAPS2_CUBEMAP | (DDSCAPS2_CUBEMAP_POSITIVEX << i), 0,
                          0};
            ASSERT_EQ(faces[0]->GetAttachedSurface(&caps, &faces[i]), DD_OK);
            faces[i]->Release();  // the cube holds it
        }
        // The eye is placed and turned in world terms under a moved and turned layer root.
        CFrame* top = new CFrame(nullptr);
        top->SetPosition(0, 100, 0);
        top->SetOrientation(Vector{1, 0, 0}, Vector{0, 1, 0});
        delete scene.layerRoot[0];
        scene.SetLayerRoot(0, top);
        holder.SetPosition(10, 0, 0);
        camera.SetPosition(0, 0, 5);
    }
    void TearDown() override {
        if (viewport) renderer->DestroyViewport(viewport);
        for (CTexture* texture : textures)
            if (texture) FreeTexture(texture);
        if (cube) FreeTexture(cube);
        RendererTest::TearDown();
    }
    static std::string Target(const void* surface) {
        return "SetRenderTarget(" + Ref(surface) + ", 0)";
    }

    CViewport* viewport = nullptr;
    CTexture* cube = nullptr;
    CTexture* textures[6] = {};
    LPDIRECTDRAWSURFACE7 faces[6] = {};
    CScene scene;
    CFrame holder{nullptr};
    CCamera camera{&holder, 320.0f};
};

TEST_F(CubeMapTest, MaskPicksFacesInOrderAndALostCubeIsOnlyRestored) {
    Start(DxRendering::RecordOnly);
    for (auto [mask, drawn] : {std::pair{0x3Fu, Lines{"0", "1", "2", "3", "4", "5"}},
                               std::pair{0x28u, Lines{"3", "5"}}}) {
        DxCallRecorder calls;
        viewport->RenderCubeMap(&camera, &scene, cube, mask, nullptr);
        Lines expected;
        for (const std::string& face : drawn) {
            expected.push_back(Target(faces[std::stoi(face)]));
            expected.push_back(Target(renderer->flipping));
        }
        EXPECT_EQ(calls.Only("SetRenderTarget"), expected);
        EXPECT_EQ(calls.Only("Clear").size(), drawn.size());
    }
    DxFaultSwitches().surfacesLost = true;
    DxCallRecorder calls;
    viewport->RenderCubeMap(&camera, &scene, cube, 0x3F, nullptr);
    EXPECT_EQ(calls.Only("SetRenderTarget,BeginScene").size(), 0u);
    EXPECT_EQ(calls.Only("Restore").at(0), "Restore(" + Ref(faces[0]) + ")");
    EXPECT_EQ(faces[5]->IsLost(), DD_OK);  // restored with the root
}

TEST_F(CubeMapTest, FaceTexturesReplaceTheClearsForThatCallOnly) {
    Start(DxRendering::RecordOnly);
    for (CTexture*& texture : textures) texture = CreateTexture(4, 4, 0x8888);
    viewport->clearColour = 0;
    DxCallRecorder calls;
    viewport->RenderCubeMap(&camera, &scene, cube, 0x12, textures);
    EXPECT_EQ(calls.Only("Clear").size(), 0u);
    Lines set = calls.Only("SetTexture");
    std::erase(set, "SetTexture(0, null)");
    EXPECT_EQ(set, Lines({"SetTexture(0, " + Ref(textures[1]->surface) + ")",
                          "SetTexture(0, " + Ref(textures[4]->surface) + ")"}));
    EXPECT_EQ(viewport->clearColour + 2 * viewport->clearDepth, 2);
    calls.Clear();
    viewport->RenderCubeMap(&camera, &scene, cube, 0x01, nullptr);
    EXPECT_EQ(calls.Only("Clear"), Lines({"Clear(1, 2, 0x00000000, 1, 0)"}));
}

TEST_F(CubeMapTest, SquareAheadOfEachFaceShowsOnlyThereUpAndRightOfCentre) {
    DxSetRendering(DxRendering::GlWhenAvailable);
    if (!DxCurrentGlContext()) GTEST_SKIP() << DxGlFailure();
    Start(DxRendering::GlWhenAvailable);
    // Direction, up and right of each face as cube samplers lay them out, and a colour.
    const struct Look {
        Vector d, up, right;
        uint32_t tint;
    } looks[6] = {{{1, 0, 0}, {0, 1, 0}, {0, 0, -1}, 0xFF0000},
                  {{-1, 0, 0}, {0, 1, 0}, {0, 0, 1}, 0x00FF00},
                  {{0, 1, 0}, {0, 0, -1}, {1, 0, 0}, 0x0000FF},
                  {{0, -1, 0}, {0, 0, 1}, {1, 0, 0}, 0xFFFF00},
                  {{0, 0, 1}, {0, 1, 0}, {1, 0, 0}, 0x00FFFF},
                  {{0, 0, -1}, {0, 1, 0}, {-1, 0, 0}, 0xFF00FF}};
    for (const auto& f : looks) {
        Vector at{10, 0, 5};
        for (float Vector::*k : {&Vector::x, &Vector::y, &Vector::z})
            at.*k += 50 * f.d.*k + 15 * f.up.*k + 15 * f.right.*k;
        new Marker(scene.layerRoot[0], at, f.right, f.up, 0xFF000000 | f.tint);
    }
    viewport->RenderCubeMap(&camera, &scene, cube, 0x3F, nullptr);
    for (int i = 0; i < 6; ++i) {
        DDSURFACEDESC2 desc{};
        desc.dwSize = sizeof desc;
        ASSERT_EQ(faces[i]->Lock(nullptr, &desc, DDLOCK_READONLY, nullptr), DD_OK);
        auto pixel = [&](int x, int y) {
            const auto* row = static_cast<const uint8_t*>(desc.lpSurface) + y * desc.lPitch;
            return reinterpret_cast<const uint32_t*>(row)[x] & 0xFFFFFF;
        };
        EXPECT_EQ(pixel(42, 22), looks[i].tint) << i;
        int other = 0;
        for (int y = 0; y < 64; ++y)
            for (int x = 0; x < 64; ++x) other += pixel(x, y) != 0 && pixel(x, y) != looks[i].tint;
        EXPECT_EQ(other, 0) << i;
        faces[i]->Unlock(nullptr);
    }
}

}  // namespace
