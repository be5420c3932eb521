#include "tool/app/view_on_screen.h"

#include "platform/ui/window_api.h"
#include "tool/app/app_main.h"
#include "tool/app/viewer_support.h"
#include "tool/app/viewer_window.h"

std::string ShowBakeOnScreen(const BakeView& view) {
    if (!CreateViewerWindow(nullptr)) return "no window system to show the viewer on";
    std::string error = OpenBakeView(view, ViewerWindow, 16);
    if (error.empty()) {
        PlaceViewerWindow(view.width, view.height);
        StartViewer();
        bool quit = false;
        while (ViewerActive && !quit) {
            ViewerFrame();
            quit = DrainWindowMessages();
        }
        if (ViewerActive) CloseViewer();
    }
    CloseBakeView();
    DestroyViewerWindow(nullptr);
    return error;
}
