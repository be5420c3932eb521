#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/ui/headless_ui.h"
#include "platform/ui/window_api.h"

namespace {

const ControlTemplate Controls[] = {
    {1, ControlKind::DefaultPushButton, "&Go", 5, 90, 65, 14},
    {7, ControlKind::AutoCheckBox, "Tick", 5, 40, 170, 15},
    {10, ControlKind::Edit, "", 70, 5, 150, 12},
};
const DialogTemplate Dialog = {"Test", "MS Sans Serif", 8, 272, 111, Controls, 3};

std::vector<std::pair<UINT, WPARAM>> Calls;

INT_PTR RecordingProcedure(HWND, UINT message, WPARAM wParam, LPARAM) {
    Calls.push_back({message, wParam});
    return 0;
}

HWND MakeDialog() {
    RegisterDialogTemplate(9001, &Dialog);
    return CreateDialogParamA(nullptr, MAKEINTRESOURCEA(9001), nullptr, RecordingProcedure, 0);
}

class WindowSystemTest : public ::testing::Test {
protected:
    void SetUp() override {
        dialog = MakeDialog();
        ASSERT_NE(dialog, nullptr);
        ShowWindow(dialog, SW_SHOW);
        Calls.clear();
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
    PostMessageA(dialog, WM_COMMAND, 7, 0);
    EXPECT_TRUE(DestroyWindow(dialog));
    EXPECT_TRUE(Drain().empty());  // messages for a window that went are dropped with it
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
}

TEST_F(WindowSystemTest, UserActionsArriveAsCommandsOnlyFromReachableControls) {
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
    // The cursor hides once the count drops below zero and shows again once it is back.
    std::vector<int> counts;
    for (BOOL show : {0, 0, 1, 1}) counts.push_back(ShowCursor(show) * 2 + ui.CursorVisible());
    EXPECT_EQ(counts, (std::vector<int>{-2, -4, -2, 1}));
}

}  // namespace
