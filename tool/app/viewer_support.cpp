#include "tool/app/viewer_support.h"

#include "platform/ui/window_api.h"
#include "tool/app/viewer_window.h"

HWND ViewerWindow = nullptr;

const char* const NoViewerReason =
    "This build has no display device, so a finished bake can't be shown on the map. "
    "The shadow map is written as texture.dat beside test.vbf.";

bool ViewerAvailable() {
    return false;
}

static const char* const ViewerClass = "Viewer";

HWND CreateViewerWindow(HINSTANCE instance) {
    WNDCLASSA viewerClass = {};
    viewerClass.style = CS_DBLCLKS;
    viewerClass.lpfnWndProc = ViewerProcedure;
    viewerClass.hInstance = instance;
    viewerClass.lpszClassName = ViewerClass;
    RegisterClassA(&viewerClass);
    int width = 640 + 2 * GetSystemMetrics(SM_CXFRAME);
    int height = 480 + 2 * GetSystemMetrics(SM_CYFRAME) + GetSystemMetrics(SM_CYMENU);
    ViewerWindow = CreateWindowExA(0, ViewerClass, ViewerClass, WS_POPUP, 0, 0, width, height,
                                   nullptr, nullptr, instance, nullptr);
    ShowWindow(ViewerWindow, SW_HIDE);
    return ViewerWindow;
}

void DestroyViewerWindow(HINSTANCE instance) {
    DestroyWindow(ViewerWindow);
    ViewerWindow = nullptr;
    UnregisterClassA(ViewerClass, instance);
}
