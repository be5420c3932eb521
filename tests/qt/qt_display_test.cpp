// A present through the display layer lands in the Qt window it names.
#include "platform/ui/qt/qt_display.h"

#include <gtest/gtest.h>

#include <QImage>
#include <QWidget>

#include "platform/dx7/d3d7.h"
#include "platform/ui/qt/qt_ui.h"
#include "platform/ui/window_api.h"

namespace {

DDSURFACEDESC2 Described(DWORD flags, DWORD caps, DWORD width = 0, DWORD height = 0) {
    DDSURFACEDESC2 desc{};
    desc.dwSize = sizeof desc;
    desc.dwFlags = flags;
    desc.ddsCaps.dwCaps = caps;
    desc.dwWidth = width;
    desc.dwHeight = height;
    return desc;
}

TEST(QtDisplay, ABltToThePrimaryPaintsTheFrameIntoItsWindow) {
    QtUi ui;
    QtDisplay display(ui);
    WNDCLASSA windowClass = {};
    windowClass.lpfnWndProc = DefWindowProcA;
    windowClass.lpszClassName = "QtDisplayTest";
    RegisterClassA(&windowClass);
    HWND window = CreateWindowExA(0, "QtDisplayTest", "frame", WS_POPUP, 0, 0, 32, 16, nullptr,
                                  nullptr, nullptr, nullptr);
    ASSERT_NE(ui.Widget(window), nullptr);

    IDirectDraw7* directDraw = nullptr;
    ASSERT_EQ(DirectDrawCreateEx(nullptr, reinterpret_cast<LPVOID*>(&directDraw), IID_IDirectDraw7,
                                 nullptr),
              DD_OK);
    ASSERT_EQ(directDraw->SetCooperativeLevel(window, DDSCL_NORMAL), DD_OK);
    DDSURFACEDESC2 primaryDesc = Described(DDSD_CAPS, DDSCAPS_PRIMARYSURFACE);
    DDSURFACEDESC2 frameDesc =
        Described(DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT, DDSCAPS_OFFSCREENPLAIN, 32, 16);
    IDirectDrawSurface7 *primary = nullptr, *frame = nullptr;
    ASSERT_EQ(directDraw->CreateSurface(&primaryDesc, &primary, nullptr), DD_OK);
    ASSERT_EQ(directDraw->CreateSurface(&frameDesc, &frame, nullptr), DD_OK);
    DDBLTFX fill{};
    fill.dwSize = sizeof fill;
    fill.dwFillColor = 0x3060C0;  // the desktop's 32-bit format
    ASSERT_EQ(frame->Blt(nullptr, nullptr, nullptr, DDBLT_COLORFILL | DDBLT_WAIT, &fill), DD_OK);
    ASSERT_EQ(primary->Blt(nullptr, frame, nullptr, DDBLT_WAIT, nullptr), DD_OK);

    const QImage shown = ui.Widget(window)->grab().toImage();
    ASSERT_FALSE(shown.isNull());
    EXPECT_EQ(shown.pixel(3, 3) & 0xFFFFFF, 0x3060C0u);
    EXPECT_EQ(shown.pixel(shown.width() - 1, shown.height() - 1) & 0xFFFFFF, 0x3060C0u);

    frame->Release();
    primary->Release();
    directDraw->Release();
    DestroyWindow(window);
}

// Where the window system offers GL (a desktop, Xvfb with GLX; not Qt's offscreen platform), the
// device draws on Qt's context.
TEST(QtDisplay, TheDeviceDrawsOnTheWindowSystemsContext) {
    QtUi ui;
    QtDisplay display(ui);
    if (!display.UsesQtContext()) GTEST_SKIP() << "the window system offers no GL context";
    EXPECT_EQ(DxCurrentGlContext()->Describe().find("no Qt"), std::string::npos);

    IDirectDraw7* directDraw = nullptr;
    IDirect3D7* direct3D = nullptr;
    IDirectDrawSurface7* target = nullptr;
    IDirect3DDevice7* device = nullptr;
    ASSERT_EQ(DirectDrawCreateEx(nullptr, reinterpret_cast<LPVOID*>(&directDraw), IID_IDirectDraw7,
                                 nullptr),
              DD_OK);
    ASSERT_EQ(directDraw->SetCooperativeLevel(nullptr, DDSCL_NORMAL), DD_OK);
    ASSERT_EQ(directDraw->QueryInterface(IID_IDirect3D7, reinterpret_cast<LPVOID*>(&direct3D)),
              DD_OK);
    DDSURFACEDESC2 targetDesc = Described(DDSD_CAPS | DDSD_WIDTH | DDSD_HEIGHT,
                                          DDSCAPS_OFFSCREENPLAIN | DDSCAPS_3DDEVICE, 16, 16);
    ASSERT_EQ(directDraw->CreateSurface(&targetDesc, &target, nullptr), DD_OK);
    ASSERT_EQ(direct3D->CreateDevice(IID_IDirect3DHALDevice, target, &device), DD_OK);
    struct Corner {
        float x, y, z, rhw;
        D3DCOLOR diffuse, specular;
        float u, v;
    } quad[4] = {{0, 0, 0.5f, 1, 0xFF20A040, 0, 0, 0}, {16, 0, 0.5f, 1, 0xFF20A040, 0, 1, 0},
                 {0, 16, 0.5f, 1, 0xFF20A040, 0, 0, 1}, {16, 16, 0.5f, 1, 0xFF20A040, 0, 1, 1}};
    device->Clear(0, nullptr, D3DCLEAR_TARGET, 0xFF000000, 1, 0);
    device->SetTextureStageState(0, D3DTSS_COLOROP, D3DTOP_SELECTARG2);
    device->SetRenderState(D3DRENDERSTATE_CULLMODE, D3DCULL_NONE);
    ASSERT_EQ(device->DrawPrimitive(D3DPT_TRIANGLESTRIP, D3DFVF_TLVERTEX, quad, 4, 0), D3D_OK);
    DDSURFACEDESC2 locked{};
    locked.dwSize = sizeof locked;
    ASSERT_EQ(target->Lock(nullptr, &locked, DDLOCK_WAIT, nullptr), DD_OK);
    const uint32_t centre = static_cast<const uint32_t*>(locked.lpSurface)[8 * locked.lPitch / 4 + 8];
    target->Unlock(nullptr);
    EXPECT_EQ(centre & 0xFFFFFF, 0x20A040u);

    device->Release();
    target->Release();
    direct3D->Release();
    directDraw->Release();
}

}  // namespace
