#include "tool/app/viewer_window.h"

#include "base/diagnostics.h"
#include "platform/ui/window_api.h"
#include "tool/app/app_main.h"
#include "tool/app/setup_dialog.h"
#include "tool/app/viewer_support.h"
#include "tool/view/viewer_scene.h"

namespace {

// The cursor is held here while the viewer shows, so each move reads as an offset from it.
constexpr int HoldX = 320, HoldY = 200;
constexpr WPARAM KeyK = 75, KeyL = 76;

// The flag a key holds, or null for any other key.
uint8_t* KeyFlag(WPARAM key) {
    switch (key) {
        case VK_SHIFT:
            return &ShiftHeld;
        case KeyK:
            return &KeyKHeld;
        case KeyL:
            return &KeyLHeld;
        default:
            return nullptr;
    }
}

}  // namespace

void StartViewer() {
    SetCursorPos(HoldX, HoldY);
    ShowCursor(0);
    ShowWindow(ViewerWindow, SW_SHOW);
    SetFocus(ViewerWindow);
    ViewerActive = 1;
}

void CloseViewer() {
    ViewerActive = 0;
    ShowWindow(ViewerWindow, SW_HIDE);
    if (Dialog)
        Dialog->RunFinished();
    else  // the program's end, or a viewer of its own (tenebrix-view)
        ShowCursor(1);
    FreeViewerScene();
}

LRESULT ViewerProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_DESTROY:
            if (ViewerActive) CloseViewer();
            return 0;
        case WM_CLOSE:  // the desktop's close box: the window stays for the next run
            if (ViewerActive) CloseViewer();
            return 0;
        case WM_MOVE:
        case WM_SIZE:
            SetFocus(window);
            break;
        case WM_KEYDOWN:
            if (wParam == VK_ESCAPE) {
                if (ViewerActive) CloseViewer();
                return 0;
            }
            if (wParam == VK_SPACE)
                CorvaneDebug("%f %f %f %f\n", double(Focus.x), double(Focus.y), double(Focus.z),
                             Distance);
            else if (uint8_t* flag = KeyFlag(wParam))
                *flag = 1;
            break;
        case WM_KEYUP:
            if (uint8_t* flag = KeyFlag(wParam)) *flag = 0;
            break;
        case WM_MOUSEMOVE: {
            POINT cursor = {};
            GetCursorPos(&cursor);
            if (cursor.x != HoldX || cursor.y != HoldY) {
                MouseLook(cursor.x - HoldX, cursor.y - HoldY);
                SetCursorPos(HoldX, HoldY);
            }
            break;
        }
        case WM_LBUTTONDOWN:
            LeftHeld = 1;
            break;
        case WM_LBUTTONUP:
            LeftHeld = 0;
            break;
        case WM_RBUTTONDOWN:
            RightHeld = 1;
            break;
        case WM_RBUTTONUP:
            RightHeld = 0;
            break;
        default:
            break;
    }
    return DefWindowProcA(window, message, wParam, lParam);
}
