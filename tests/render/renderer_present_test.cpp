#include "engine/render/vertex_pool.h"
#include "tests/render/renderer_fixture.h"

namespace {

const std::string ResetLines =
    "DEBUG: RESET DEVICE IN PROGRESS.....\nDEBUG: RESET DEVICE :: RestoreAllSurfaces\n"
    "DEBUG: RESET DEVICE :: VBs\nDEBUG: RESET DEVICE DONE....\n";

TEST_F(RendererTest, TwoFailedFlipsLoseTheDeviceAndAResetSendsEverythingAgain) {
    ASSERT_TRUE(Open(Open3D));
    DebugCapture debug;
    DxFaultSwitches().presents = 1;
    renderer->Flip();
    EXPECT_EQ(renderer->deviceLost, 0);  // the second try got through
    DxFaultSwitches().presents = 2;
    renderer->Flip();
    EXPECT_EQ(renderer->deviceLost, 1);
    EXPECT_EQ(renderer->frameCount, 2u);
    DxFaultSwitches().cooperativeTests = 1;
    EXPECT_FALSE(renderer->CheckDevice());
    EXPECT_EQ(renderer->deviceLost, 1);
    DxCallRecorder calls;
    EXPECT_TRUE(renderer->CheckDevice());
    EXPECT_EQ(renderer->deviceLost, 0);
    EXPECT_EQ(debug.Text(),
              "DEBUG: FAILED FIRST FLIP\nDEBUG: FAILED FIRST FLIP\n"
              "DEBUG: FAILED TEST COOP\n" +
                  ResetLines);
    EXPECT_EQ(calls.Only("RestoreAllSurfaces").size(), 1u);
    EXPECT_EQ(calls.Only("SetRenderState").size(), 61u);
    EXPECT_EQ(calls.Only("SetTextureStageState").size(), size_t(StageCount * 24) + 10u);
}

TEST_F(RendererTest, WindowedPresentsFullScreenViewportsAndDisplayResets) {
    ASSERT_TRUE(Open(OpenWindowed | Open3D, 320, 200));
    DebugCapture debug;
    DxFaultSwitches().presents = 1;
    renderer->Flip();
    EXPECT_EQ(renderer->deviceLost, 1);
    EXPECT_EQ(debug.Text(), "");
    renderer->deviceLost = 0;
    DxFaultSwitches().presents = 1;
    renderer->UpdateViewport();
    EXPECT_EQ(renderer->deviceLost, 1);
    EXPECT_EQ(debug.Text(), ResetLines);
    DDSURFACEDESC2 screen{};
    screen.dwSize = sizeof screen;
    renderer->directDraw->GetDisplayMode(&screen);
    ASSERT_TRUE(renderer->FitWindow());
    LONG left = LONG(screen.dwWidth - 320) / 2, top = LONG(screen.dwHeight - 200) / 2;
    const RECT& rect = renderer->windowRect;
    EXPECT_EQ(std::vector<LONG>({rect.left, rect.top, rect.right, rect.bottom}),
              std::vector<LONG>({left, top, left + 320, top + 200}));
    renderer->width = int32_t(screen.dwWidth) + 1;
    EXPECT_FALSE(renderer->FitWindow());
    Close();

    ASSERT_TRUE(Open(Open3D));
    debug.Clear();
    renderer->UpdateViewport();
    DxFaultSwitches().displayModes = 1;
    renderer->ResetDisplay();
    EXPECT_EQ(debug.Text(),
              "\nWarning :: Invalid attempt to update single viewport.\n"
              "             Current device does not support independent viewports.\n"
              "             Use device a flip instead of viewport updates.\n"
              "DEBUG: Failed to reset display mode\n\n");
}

TEST_F(RendererTest, LostSurfacesAreRestoredAndLockedPoolsReported) {
    ASSERT_TRUE(Open(OpenWindowed | Open3D));
    D3DVERTEXBUFFERDESC desc = {sizeof desc, 0, D3DFVF_TLVERTEX, 16};
    VertexBufferInfo* info = AllocateVertices(renderer, &desc, 8, 1);
    ASSERT_NE(LockVertices(info, 0), nullptr);
    DxFaultSwitches().surfacesLost = true;
    DebugCapture debug;
    renderer->RestoreLostSurfaces();
    UnlockVertices(info);
    renderer->RestoreLostSurfaces();
    EXPECT_EQ(debug.Text(),
              "VB Locked!\nDEBUG: Device primary is lost :: Restoring\n\n"
              "DEBUG: Device flipping (target) is lost :: Restoring\n\n"
              "DEBUG: Device zbuffer is lost :: Restoring\n\n");
    FreeVertices(info);
}

TEST_F(RendererTest, LocksRestoreAllSurfacesAndTryOnceMore) {
    ASSERT_TRUE(Open(OpenWindowed | Open3D));
    for (int faults : {1, 2}) {
        DxCallRecorder calls;
        DDSURFACEDESC2 desc{};
        desc.dwSize = sizeof desc;
        DxFaultSwitches().locks = faults;
        HRESULT surface = renderer->LockSurfaceRetry(renderer->flipping, nullptr, &desc, 1);
        if (SUCCEEDED(surface)) renderer->flipping->Unlock(nullptr);
        DxFaultSwitches().locks = faults;
        void* data = nullptr;
        HRESULT buffer = renderer->LockBufferRetry(renderer->alphaSource, 1, &data);
        if (SUCCEEDED(buffer)) renderer->alphaSource->Unlock();
        EXPECT_EQ(SUCCEEDED(surface) && SUCCEEDED(buffer), faults == 1);
        EXPECT_EQ(FAILED(surface) || FAILED(buffer), faults == 2);
        EXPECT_EQ(calls.Only("RestoreAllSurfaces").size(), 2u);
    }
}

TEST_F(RendererTest, TheZBufferFollowsTheRenderTarget) {
    ASSERT_TRUE(Open(OpenWindowed | Open3D));
    LPDIRECTDRAWSURFACE7 target =
        renderer->CreateOffscreen(640, 480, DDSCAPS_3DDEVICE | DDSCAPS_VIDEOMEMORY);
    ASSERT_NE(target, nullptr);
    auto depthOf = [](LPDIRECTDRAWSURFACE7 surface) {
        DDSCAPS2 caps = {DDSCAPS_ZBUFFER, 0, 0, 0};
        LPDIRECTDRAWSURFACE7 depth = nullptr;
        if (SUCCEEDED(surface->GetAttachedSurface(&caps, &depth))) depth->Release();
        return depth;
    };
    renderer->SetTarget(target);
    EXPECT_EQ(depthOf(target), renderer->depthBuffer);
    EXPECT_EQ(depthOf(renderer->flipping), nullptr);
    DxCallRecorder calls;
    renderer->SetTarget(renderer->flipping);
    EXPECT_EQ(depthOf(renderer->flipping), renderer->depthBuffer);
    EXPECT_EQ(calls.Only("SetRenderTarget"),
              (Lines{"SetRenderTarget(" + Ref(renderer->flipping) + ", 0)"}));
    target->Release();
}

}  // namespace
