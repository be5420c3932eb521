#include "tool/app/viewer_support.h"

#include <string>

#include "engine/render/renderer.h"
#include "platform/dx7/call_recorder.h"
#include "platform/dx7/gl_context.h"
#include "platform/ui/window_api.h"
#include "tool/app/viewer_window.h"
#include "tool/run/bake_run.h"
#include "tool/view/viewer_scene.h"

HWND ViewerWindow = nullptr;

namespace {

std::string Reason = "The viewer's display device is not open yet.";

void SetReason(const std::string& why) {
    Reason = "A finished bake can't be shown: " + why +
             ". The shadow map is still written as texture.dat beside test.vbf.";
}

const ViewerSteps DisplaySteps = {
    [] {
        SetUpViewer();
        PlaceViewerWindow(ViewerWidth, ViewerHeight);
    },
    TakeBakedMap,
    [] {
        StartViewer();
        return true;
    },
    FreeViewerScene,
};

}  // namespace

static const char* const ViewerClass = "Viewer";

HWND CreateViewerWindow(HINSTANCE instance) {
    WNDCLASSA viewerClass = {};
    viewerClass.style = CS_DBLCLKS;
    viewerClass.lpfnWndProc = ViewerProcedure;
    viewerClass.hInstance = instance;
    viewerClass.hIcon = LoadIconA(nullptr, IDI_APPLICATION);
    viewerClass.hCursor = LoadCursorA(nullptr, IDC_ARROW);
    viewerClass.hbrBackground = GetStockObject(WHITE_BRUSH);
    viewerClass.lpszClassName = ViewerClass;
    RegisterClassA(&viewerClass);
    int width = ViewerWidth + 2 * GetSystemMetrics(SM_CXFRAME);
    int height = ViewerHeight + 2 * GetSystemMetrics(SM_CYFRAME) + GetSystemMetrics(SM_CYMENU);
    ViewerWindow = CreateWindowExA(0, ViewerClass, ViewerClass, WS_POPUP, 0, 0, width, height,
                                   nullptr, nullptr, instance, nullptr);
    ShowWindow(ViewerWindow, SW_HIDE);
    return ViewerWindow;
}

void PlaceViewerWindow(int frameWidth, int frameHeight) {
    SetWindowPos(ViewerWindow, nullptr, 0, 0, frameWidth + 20, frameHeight + 30, SWP_NOZORDER);
}

void DestroyViewerWindow(HINSTANCE instance) {
    DestroyWindow(ViewerWindow);
    ViewerWindow = nullptr;
    UnregisterClassA(ViewerClass, instance);
}

bool OpenViewerDevice() {
    if (DxGetRendering() == DxRendering::GlWhenAvailable && !DxCurrentGlContext()) {
        SetReason("there is no display device (no GL context: " + DxGlFailure() + ")");
        return false;
    }
    // Windowed, 3D, and 16 bits: what the viewer has always asked for.
    Device = OpenDevice(ViewerWindow, OpenWindowed | Open3D, ViewerWidth, ViewerHeight, 16);
    ShowWindow(ViewerWindow, SW_HIDE);
    if (!Device) {
        SetReason("the display device could not be opened (velmora.log says why)");
        return false;
    }
    SetViewerSteps(&DisplaySteps);
    return true;
}

void CloseViewerDevice() {
    if (ViewerActive) CloseViewer();
    SetViewerSteps(nullptr);
    if (Device) CloseDevice(Device);
    Device = nullptr;
}

bool ViewerAvailable() {
    return Device != nullptr;
}

const char* NoViewerReason() {
    return Reason.c_str();
}
