#include <cmath>

#include "engine/mesh/mesh.h"
#include "engine/render/mesh_renderer.h"
#include "engine/render/poly_buffer.h"
#include "engine/scene/camera.h"
#include "engine/scene/scene.h"
#include "engine/scene/viewport.h"
#include "engine/texture/texture.h"
#include "engine/texture/tga.h"
#include "tests/render/renderer_fixture.h"

namespace {

// Notes its Render in the call stream, so draws and walks interleave in one record.
class Probe : public CEntity {
public:
    Probe(CEntity* owner, const char* tag) : CEntity(owner), label(tag) {}
    void Render(CRenderContext*) override { DxCallRecorder::Note("Render(" + label + ")"); }
    std::string label;
};

class ViewportTest : public RendererTest {
protected:
    void SetUp() override {
        RendererTest::SetUp();
        ASSERT_TRUE(Open(Open3D));
        viewport = renderer->CreateViewport(0, 0, 640, 480);
    }
    void TearDown() override {
        renderer->DestroyViewport(viewport);
        RendererTest::TearDown();
    }
    CViewport* viewport = nullptr;
    CScene scene;
    CCamera camera{nullptr, 320.0f};
};

TEST_F(ViewportTest, ProjectionFollowsFocalLengthOrHalfAngle) {
    const double quarter = std::atan(1.0), cot45 = 1.0, cot30 = std::sqrt(3.0);
    struct Case {
        float focal, halfAngle, nearPlane, farPlane;
        double horizontal, vertical;
    } cases[] = {
        {320, 0, 8, 4096, cot45, 1 / std::tan(0.75 * quarter)},  // 0.75 of the angle, not tan
        {1000, 0, 10, 110, 1000.0 / 320, 1 / std::tan(0.75 * std::atan(0.32))},
        {320, 30, 8, 4096, cot30, cot30},
    };
    for (const Case& c : cases) {
        camera.focalLength = c.focal, camera.halfAngle = c.halfAngle;
        camera.nearPlane = c.nearPlane, camera.farPlane = c.farPlane;
        viewport->Render(&camera, &scene);
        D3DMATRIX m{};
        renderer->device->GetTransform(D3DTRANSFORMSTATE_PROJECTION, &m);
        const double q = double(c.farPlane) / (c.farPlane - c.nearPlane);
        EXPECT_NEAR(m.m[0][0], c.horizontal, 1e-5) << c.focal << " " << c.halfAngle;
        EXPECT_NEAR(m.m[1][1], c.vertical, 1e-5) << c.focal << " " << c.halfAngle;
        EXPECT_NEAR(m.m[2][2], q, 1e-6);
        EXPECT_NEAR(m.m[3][2], -q * c.nearPlane, 1e-4);
        EXPECT_EQ(m.m[2][3], 1.0f);
    }
}

TEST_F(ViewportTest, FrameSendsViewportClearAndTransformsThenLayersInOrder) {
    viewport->SetRectangle(10, 20, 300, 200, false);
    viewport->clearRed = 198, viewport->clearGreen = 156, viewport->clearBlue = 107;
    viewport->clearDepth = 0;
    new Probe(scene.layerRoot[0], "a");
    scene.SetLayerRoot(1, new Probe(nullptr, "hidden layer"));
    scene.layerEnabled[1] = 0;
    scene.SetLayerRoot(2, new Probe(nullptr, "c"));
    scene.layerNear[2] = 100.0f;
    CPolyBuffer* buffer = viewport->CreatePolyBuffer(0, 1);
    buffer->layer = 0, buffer->Lock(), buffer->Unlock(0), buffer->SetRunCount(0, 1);
    viewport->CreateBackgroundQuad();
    viewport->Update(&camera, &scene);
    EXPECT_EQ(viewport->List(1).count, 1u);  // walked though not drawn
    DxCallRecorder calls;
    viewport->Render(&camera, &scene);
    const Lines frame =
        calls.Only("SetViewport,Clear,SetTransform,BeginScene,EndScene,Render,DrawPrimitiveVB");
    Lines names;
    for (const std::string& line : frame)
        names.push_back(line.rfind("Render", 0) == 0 ? line : line.substr(0, line.find('(')));
    EXPECT_EQ(names, Lines({"SetViewport", "Clear", "SetTransform", "SetTransform", "BeginScene",
                            "DrawPrimitiveVB", "Render(a)", "DrawPrimitiveVB", "SetTransform",
                            "Render(c)", "EndScene"}));
    EXPECT_EQ(frame[0], "SetViewport(20, 10, 300, 200, 0, 1)");
    EXPECT_EQ(frame[1], "Clear(1, 1, 0x00C69C6B, 1, 0)");  // no stencil surface, depth off
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_ZFUNC), uint32_t(D3DCMP_LESSEQUAL));
    EXPECT_EQ(renderer->GetRenderState(D3DRENDERSTATE_ALPHAREF), 0x80u);
    scene.background = 1;  // drawn over what is there
    calls.Clear();
    viewport->Render(&camera, &scene);
    EXPECT_EQ(calls.Only("Clear").size(), 0u);
}

TEST_F(ViewportTest, LayerFlushesOpaqueFirstThenTransparentFarToNear) {
    OpenMeshRenderer();
    CTexture* solid = CreateTexture(4, 4, 0x8888);
    CTexture* clear = CreateTexture(4, 4, 0x8888);
    clear->flags = TextureFlagAlpha;
    // Newest first in the list: near, far, then the opaque one.
    for (auto [z, texture] : {std::pair{-50.0f, solid}, {-100.0f, clear}, {-30.0f, clear}}) {
        CMesh* mesh = new CMesh(scene.layerRoot[0]);
        mesh->SetPosition(0, 0, z);
        mesh->AllocVertices(3), mesh->AllocFaces(1, 0);
        for (int i = 0; i < 3; ++i) mesh->vertices[i] = {{float(i), float(i == 2), 0}, {0, 0, 1}};
        mesh->faces[0][0] = {{0, 1, 2}, texture, 0, {0, 0, 1, 0, 1, 1}};
    }
    scene.SetLayerRoot(1, new Probe(nullptr, "next layer"));
    viewport->Update(&camera, &scene);
    DxCallRecorder calls;
    viewport->Render(&camera, &scene);
    Lines order;
    for (const std::string& line : calls.Only("SetTransform,DrawIndexedPrimitiveVB,Render")) {
        if (line.rfind("SetTransform(1,", 0) == 0)
            order.push_back(line.substr(line.rfind(' ', line.size() - 4) + 1));
        else if (line.rfind("SetTransform", 0) != 0)
            order.push_back(line.substr(0, line.find('(')));
    }
    EXPECT_EQ(order, Lines({"-50 1)", "DrawIndexedPrimitiveVB", "-100 1)", "DrawIndexedPrimitiveVB",
                            "-30 1)", "DrawIndexedPrimitiveVB", "Render"}));
    while (CEntity* child = scene.layerRoot[0]->firstChild) delete child;
    CloseMeshRenderer();
    FreeTexture(solid);
    FreeTexture(clear);
}

TEST_F(ViewportTest, LightsTakeDenseDeviceNumbersAndLeftoversGoOff) {
    D3DLIGHT7 light{};
    light.dltType = D3DLIGHT_DIRECTIONAL;
    light.dvDirection = {0, 0, 1};
    for (int slot : {3, 50}) {
        light.dcvDiffuse.r = float(slot);
        scene.SetLight(slot, &light);
        scene.EnableLight(slot);
    }
    DxCallRecorder calls;
    viewport->Render(&camera, &scene);
    Lines sent = calls.Only("SetLight,LightEnable");
    ASSERT_EQ(sent.size(), 4u + 49u);  // two lights, then numbers 2 to 50 off
    EXPECT_EQ(sent[0].substr(0, 20), "SetLight(0, 3, 3 0 0");
    EXPECT_EQ(sent[2].substr(0, 21), "SetLight(1, 3, 50 0 0");
    scene.DisableLight(3);
    calls.Clear();
    viewport->Render(&camera, &scene);
    sent = calls.Only("SetLight,LightEnable");
    EXPECT_EQ(sent[0].substr(0, 21), "SetLight(0, 3, 50 0 0");
    EXPECT_EQ(sent[2], "LightEnable(1, 0)");
    EXPECT_EQ(sent.back(), "LightEnable(50, 0)");
}

TEST_F(ViewportTest, ViewComesThroughTheChainAndRollTurnsAboutZ) {
    CEntity* holder = new CFrame(scene.layerRoot[0]);
    holder->SetPosition(10, 0, 0);
    CCamera* child = new CCamera(holder, 320.0f);
    child->SetPosition(0, 0, 5);
    viewport->Update(child, &scene);
    EXPECT_EQ(child->cameraView[12], 10.0f);  // the view looks down -z with x mirrored
    camera.SetPosition(0, 0, 5);
    viewport->Update(&camera, &scene);
    EXPECT_EQ(camera.cameraView[12], 0.0f);

    camera.SetOrientation(Vector{1, 0, 0}, Vector{0, 1, 1});
    viewport->SetupView(&camera, false);
    const Matrix plain = viewport->viewMatrix;
    camera.roll = 90.0f;
    viewport->SetupView(&camera, false);
    for (int row = 0; row < 4; ++row) {
        EXPECT_NEAR(viewport->viewMatrix[row * 4], -plain[row * 4 + 1], 1e-6);
        EXPECT_NEAR(viewport->viewMatrix[row * 4 + 1], plain[row * 4], 1e-6);
        EXPECT_EQ(viewport->viewMatrix[row * 4 + 2], plain[row * 4 + 2]);
    }
}

TEST_F(ViewportTest, FrustumPlanesAndProjectedPointsAgreeOnTheEdges) {
    // An oblique camera, so that no axis of the view lines up with the world's.
    const Vector c{3, 4, 5}, d{1 / 3.0f, -2 / 3.0f, 2 / 3.0f}, up{-2 / 3.0f, 1 / 3.0f, 2 / 3.0f};
    const Vector x{2 / 3.0f, 2 / 3.0f, 1 / 3.0f};
    camera.SetPosition(c);
    camera.SetOrientation(d, up);
    auto at = [&](double across, double upward, double depth) {
        auto axis = [&](float Vector::*k) {
            return float(c.*k + across * x.*k + upward * up.*k + depth * d.*k);
        };
        return Vector{axis(&Vector::x), axis(&Vector::y), axis(&Vector::z)};
    };
    Vector screen;
    EXPECT_EQ(viewport->ProjectPoint(at(64, -32, 128), screen, &camera, &scene),
              uint32_t(ProjectXPositive | ProjectYPositive));
    EXPECT_NEAR(screen.x, 480.0f, 0.01f);
    EXPECT_NEAR(screen.y, 320.0f, 0.01f);
    auto outside = [&](int plane, const Vector& p) {
        return VectorDot(viewport->worldPlanes[plane], p) + viewport->worldPlaneOffsets[plane];
    };
    // 45 degrees each side: view x -100 at depth 100 lies on the left plane.
    EXPECT_NEAR(outside(ViewportPlaneLeft, at(-100, 0, 100)), 0.0f, 1e-3);
    EXPECT_LT(outside(ViewportPlaneRight, at(-100, 0, 100)), -50.0f);
    EXPECT_GT(outside(ViewportPlaneBottom, at(0, -76, 100)), 0.0f);  // 0.75 of 100
    EXPECT_LT(outside(ViewportPlaneTop, at(0, 74, 100)), 0.0f);
    EXPECT_NEAR(outside(ViewportPlaneNear, at(0, 0, 4)), 4.0f, 1e-5);

    const uint32_t behind = viewport->ProjectPoint(at(8, 0, -4), screen, &camera, &scene);
    EXPECT_EQ(behind & ProjectNear, ProjectNear);
    EXPECT_NEAR(screen.z, -4.0f, 1e-5);            // the true depth
    EXPECT_NEAR(screen.x, 320.0f + 320.0f, 0.5f);  // projected at the near distance
}

TEST_F(RendererTest, SoftwareDeviceViewportsOwnASurfaceAndDepthOfTheirSize) {
    DxAdapterTable table = DxDescribeGlContext();
    table.adapters[0].displayFormat = DxRgbFormat(16, 0xF800, 0x7E0, 0x1F, 0);
    DxStageAdapters(&table);
    ASSERT_TRUE(Open(OpenWindowed));
    TextureForcedFormat = 0;
    DxCallRecorder calls;
    CViewport* viewport = renderer->CreateViewport(0, 0, 64, 32);
    ASSERT_NE(viewport->softwareDepth, nullptr);
    viewport->softwareDepth[64 * 32 - 1] = 1;
    CScene scene;
    CCamera camera(nullptr, 32.0f);
    viewport->Render(&camera, &scene);  // nothing of the 3D device's frame
    EXPECT_EQ(calls.Only("CreateSurface,SetViewport,BeginScene"),
              Lines({"CreateSurface(caps 0x840, 64x32)"}));
    const LPDIRECTDRAWSURFACE7 surface = viewport->softwareSurface;
    renderer->DestroyViewport(viewport);
    EXPECT_EQ(DxObjectNumber(surface), 0u);
}

}  // namespace
