#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/ui/headless_ui.h"
#include "platform/ui/window_api.h"

namespace {

const ControlTemplate Controls[] = {
    {1, ControlKind::DefaultPushButton, "&Go", 5, 90, 65, 14},
    {7, ControlKind::AutoCheckBox, "Tick", 5, 40, 170, 15},
    {8, ControlKind::DropDownList, "", 70, 20, 150, 55},
    {9, ControlKind::ProgressBar, "", 5, 75, 260, 10},
    {10, ControlKind::Edit, "", 70, 5, 150, 12},
};
const DialogTemplate Dialog = {"Test", "MS Sans Serif", 8, 272, 111, Controls, 5};
constexpr uintptr_t DialogId = 9001;

std::vector<std::pair<UINT, WPARAM>> Calls;

INT_PTR RecordingProcedure(HWND, UINT message, WPARAM wParam, LPARAM) {
    Calls.push_back({message, wParam});
    return 0;
}

HWND MakeDialog() {
    RegisterDialogTemplate(DialogId, &Dialog);
    return CreateDialogParamA(nullptr, MAKEINTRESOURCEA(DialogId), nullptr, RecordingProcedure, 0);
}

class WindowSystemTest : public ::testing::Test {
protected:
    void SetUp() override {
        Calls.clear();
        dialog = MakeDialog();
        ASSERT_NE(dialog, nullptr);
        ShowWindow(dialog, SW_SHOW);
    }

    std::vector<UINT> Drain() {
        std::vector<UINT> seen;
        for (MSG m; PeekMessageA(&m, nullptr, 0, 0, PM_REMOVE); DispatchMessageA(&m))
            seen.push_back(m.message);
        return seen;
    }

    HeadlessUi ui;
    HWND dialog = nullptr;
};

TEST_F(WindowSystemTest, StaleAndMadeUpHandlesAreRefused) {
    HWND control = GetDlgItem(dialog, 10);
    EXPECT_FALSE(DestroyWindow(control));  // a control goes with its dialog only
    EXPECT_TRUE(DestroyWindow(dialog));
    for (HWND gone : {control, dialog, reinterpret_cast<HWND>(uintptr_t(0xBADBAD))}) {
        EXPECT_FALSE(IsWindow(gone));
        EXPECT_FALSE(SetWindowTextA(gone, "x"));
        EXPECT_FALSE(PostMessageA(gone, WM_COMMAND, 1, 0));
        EXPECT_FALSE(DestroyWindow(gone));
        EXPECT_EQ(SendMessageA(gone, PBM_GETPOS, 0, 0), 0);
        EXPECT_EQ(GetDlgItem(gone, 10), nullptr);
        EXPECT_EQ(GetWindowLongPtrA(gone, GWLP_USERDATA), 0);
    }
}

TEST_F(WindowSystemTest, TheQuitComesBehindEveryPostedMessageAndOnce) {
    PostMessageA(dialog, WM_COMMAND, 5, 0);
    PostQuitMessage(3);
    PostMessageA(dialog, WM_COMMAND, 6, 0);
    MSG peeked;
    ASSERT_TRUE(PeekMessageA(&peeked, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(peeked.wParam, 5u);
    EXPECT_EQ(Drain(), (std::vector<UINT>{WM_COMMAND, WM_COMMAND, WM_QUIT}));
    EXPECT_FALSE(PeekMessageA(&peeked, nullptr, 0, 0, PM_REMOVE));
    // Messages for a window that went are dropped with it.
    PostMessageA(dialog, WM_COMMAND, 7, 0);
    DestroyWindow(dialog);
    EXPECT_TRUE(Drain().empty());
}

TEST_F(WindowSystemTest, ControlsHoldTheirStateInRange) {
    HWND list = GetDlgItem(dialog, 8);
    EXPECT_EQ(SendMessageA(list, CB_SETCURSEL, 0, 0), CB_ERR);  // nothing to choose yet
    for (const char* entry : {"one", "two"}) SendMessageA(list, CB_ADDSTRING, 0, LPARAM(entry));
    EXPECT_EQ(SendMessageA(list, CB_SETCURSEL, 1, 0), 1);
    char text[16];
    GetDlgItemTextA(dialog, 8, text, sizeof text);
    EXPECT_STREQ(text, "two");
    EXPECT_EQ(SendMessageA(list, CB_SETCURSEL, 5, 0), CB_ERR);
    EXPECT_EQ(SendMessageA(list, CB_GETCURSEL, 0, 0), CB_ERR);  // a bad choice clears it
    HWND bar = GetDlgItem(dialog, 9);
    EXPECT_EQ(SendMessageA(bar, PBM_SETPOS, 40, 0), 0);
    EXPECT_EQ(SendMessageA(bar, PBM_SETPOS, 150, 0), 40);  // the previous position
    EXPECT_EQ(SendMessageA(bar, PBM_GETPOS, 0, 0), 100);   // held to the range
    // The cursor hides once the count drops below zero and shows again once it is back.
    std::vector<int> counts;
    for (BOOL show : {0, 0, 1, 1}) counts.push_back(ShowCursor(show) * 2 + ui.CursorVisible());
    EXPECT_EQ(counts, (std::vector<int>{-2, -4, -2, 1}));
}

TEST_F(WindowSystemTest, UserActionsArriveAsCommandsOnlyFromReachableControls) {
    Calls.clear();
    EXPECT_TRUE(ui.Click(dialog, 7));
    EXPECT_EQ(IsDlgButtonChecked(dialog, 7), 1u);  // the box ticked itself
    EnableWindow(GetDlgItem(dialog, 1), 0);
    EXPECT_FALSE(ui.Click(dialog, 1));
    EXPECT_FALSE(ui.Type(dialog, 1, "not an edit"));
    EXPECT_TRUE(ui.PressCloseBox(dialog));
    Drain();
    using Call = std::pair<UINT, WPARAM>;
    EXPECT_EQ(Calls, (std::vector<Call>{{WM_COMMAND, MAKEWPARAM(7, BN_CLICKED)}, {WM_CLOSE, 0}}));
    ShowWindow(dialog, SW_HIDE);
    EXPECT_FALSE(ui.Click(dialog, 7));  // nobody clicks what isn't on the screen
}

TEST(WindowSystem, WithoutAnImplementationNothingIsMadeAndNothingWaits) {
    UiBackend* none = SetUiBackend(nullptr);
    EXPECT_EQ(MakeDialog(), nullptr);
    EXPECT_FALSE(WaitMessage());  // nothing could ever arrive
    SetUiBackend(none);
}

}  // namespace
