// The viewer's window on the screenless window system: the keys and buttons it holds, the ends
// that give the dialog back, the mouse held at one point and the debug line of Space.
#include "base/memory.h"
#include "engine/render/renderer.h"
#include "engine/scene/scene.h"
#include "platform/dx7/call_recorder.h"
#include "platform/ui/headless_ui.h"
#include "tests/support/app_fixture.h"
#include "tool/app/viewer_support.h"
#include "tool/view/viewer_scene.h"

namespace {

struct Posted {
    UINT message;
    WPARAM key = 0;
};

struct Row {
    const char* name;
    uint8_t active;
    POINT cursor;
    Posted posted[4];  // message 0 ends the list
    uint8_t shift = 0, k = 0, l = 0, left = 0, right = 0;
    bool closed = false, moved = false;  // moved: a hidden window takes the focus when moved
    float panned = 0;  // the focus moves this far along x and back along z
    const char* debug = "";
};

class ViewerWindowTest : public AppFixture {
protected:
    HeadlessUi ui;
};

TEST_F(ViewerWindowTest, MessagesHoldKeysEndTheViewerAndHoldTheCursor) {
    constexpr UINT Down = WM_KEYDOWN, Up = WM_KEYUP;
    const float pan = 24 * 0.63952601f;  // 8 pixels at 3 units each, times the heading's z
    const Row table[] = {
        {"shift K L down", 1, {320, 200}, {{Down, 16}, {Down, 75}, {Down, 76}}, 1, 1, 1, 0, 0},
        {"released K", 1, {320, 200}, {{Down, 16}, {Down, 75}, {Down, 76}, {Up, 75}}, 1, 0, 1},
        {"released shift", 1, {320, 200}, {{Down, 16}, {Down, 76}, {Up, 16}, {Down, 65}}, 0, 0, 1},
        {"released L", 1, {320, 200}, {{Down, 75}, {Down, 76}, {Up, 76}}, 0, 1, 0},
        {"buttons down", 1, {320, 200}, {{WM_LBUTTONDOWN}, {WM_RBUTTONDOWN}}, 0, 0, 0, 1, 1},
        {"buttons up", 1, {320, 200},
         {{WM_LBUTTONDOWN}, {WM_RBUTTONDOWN}, {WM_LBUTTONUP}, {WM_RBUTTONUP}}},
        {"escape active", 1, {320, 200}, {{Down, 27}}, 0, 0, 0, 0, 0, true},
        {"destroy active", 1, {320, 200}, {{WM_DESTROY}}, 0, 0, 0, 0, 0, true},
        {"escape idle", 0, {320, 200}, {{Down, 27}, {WM_DESTROY}}},
        {"move focuses", 0, {320, 200}, {{WM_MOVE}}, 0, 0, 0, 0, 0, false, true},
        {"mouse away once", 1, {328, 208}, {{WM_MOUSEMOVE}, {WM_MOUSEMOVE}}, 0, 0, 0, 0, 0, false,
         false, pan},
        {"mouse held", 1, {320, 200}, {{WM_MOUSEMOVE}}},
        {"space", 1, {320, 200}, {{Down, 32}}, 0, 0, 0, 0, 0, false, false, 0,
         "DEBUG: 1.500000 -2.250000 3.125000 1000.000000\n\n"},
    };
    ASSERT_TRUE(ApplicationStart(nullptr, SW_SHOWNORMAL));
    ASSERT_TRUE(Device);
    const HWND dialog = Dialog->Window;
    const std::vector<bool> idle = BakeControlsEnabled(dialog);
    for (const Row& r : table) {
        Scene = NEW CScene;
        SceneRoot = Scene->layerRoot[0];
        SetUpViewer();
        Focus = {1.5f, -2.25f, 3.125f}, Distance = 1000;
        Dialog->EnableControls(false);
        Dialog->SetProgress(40);
        const std::vector<bool> busy = BakeControlsEnabled(dialog);
        ShowCursor(0);  // as the viewer's start does
        ShowWindow(ViewerWindow, r.active ? SW_SHOW : SW_HIDE);
        SetFocus(r.active ? ViewerWindow : dialog);
        ViewerActive = r.active;
        SetCursorPos(r.cursor.x, r.cursor.y);
        DebugCapture capture;
        for (const Posted& p : r.posted)
            if (p.message) PostMessageA(ViewerWindow, p.message, p.key, 0);
        DrainWindowMessages();
        EXPECT_EQ(capture.Text(), r.debug) << r.name;
        EXPECT_EQ(std::vector<int>({ShiftHeld, KeyKHeld, KeyLHeld, LeftHeld, RightHeld}),
                  std::vector<int>({r.shift, r.k, r.l, r.left, r.right}))
            << r.name;
        EXPECT_EQ(GetFocus(), !r.closed && (r.active || r.moved) ? ViewerWindow : dialog) << r.name;
        EXPECT_NEAR(Focus.x, 1.5f + r.panned, 1e-3) << r.name;
        EXPECT_NEAR(Focus.z, 3.125f - r.panned, 1e-3) << r.name;
        POINT cursor;
        EXPECT_TRUE(GetCursorPos(&cursor) && cursor.x == 320 && cursor.y == 200) << r.name;
        // Closing hides the window, frees the run and gives the dialog back as a bake's end does.
        EXPECT_EQ(ViewerActive, r.active && !r.closed) << r.name;
        EXPECT_EQ(bool(IsWindowVisible(ViewerWindow)), r.active && !r.closed) << r.name;
        EXPECT_EQ(Camera == nullptr && Viewport == nullptr && Scene == nullptr, r.closed) << r.name;
        EXPECT_EQ(BakeControlsEnabled(dialog), r.closed ? idle : busy) << r.name;
        EXPECT_EQ(Progress(dialog), r.closed ? 0 : 40) << r.name;
        EXPECT_EQ(ui.CursorVisible(), r.closed) << r.name;
        if (!r.closed) ShowCursor(1), FreeViewerScene();
        ViewerActive = ShiftHeld = KeyKHeld = KeyLHeld = LeftHeld = RightHeld = 0;
    }
    Distance = 1290.0;
    EXPECT_EQ(ApplicationEnd(nullptr), 0);
    EXPECT_EQ(Device, nullptr);
}

}  // namespace
