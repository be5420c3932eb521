// The window calls over the screenless window system: handles, the queue, dispatch and the
// controls' messages, as the dialog and the main loop rely on them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/ui/headless_ui.h"
#include "platform/ui/shell_api.h"
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
        MSG message;
        while (PeekMessageA(&message, nullptr, 0, 0, PM_REMOVE)) {
            seen.push_back(message.message);
            DispatchMessageA(&message);
        }
        return seen;
    }

    HeadlessUi ui;
    HWND dialog = nullptr;
};

TEST(DialogUnits, NeighboursThatTouchInUnitsTouchInPixelsWhateverTheFont) {
    for (DialogBaseUnits units : {DialogBaseUnits{6, 13}, {7, 16}, {9, 19}}) {
        PixelRect left = DialogUnitsToPixels(0, 0, 37, 11, units);
        PixelRect right = DialogUnitsToPixels(37, 11, 20, 9, units);
        EXPECT_EQ(left.x + left.width, right.x);
        EXPECT_EQ(left.y + left.height, right.y);
    }
}

TEST_F(WindowSystemTest, ADialogIsMadeFromItsTemplateAndNothingElse) {
    ASSERT_FALSE(Calls.empty());
    EXPECT_EQ(Calls[0].first, UINT(WM_INITDIALOG));
    for (const ControlTemplate& control : Controls)
        EXPECT_EQ(GetDlgCtrlID(GetDlgItem(dialog, control.id)), control.id);
    EXPECT_EQ(GetDlgItem(dialog, 1234), nullptr);
    char text[16];
    EXPECT_EQ(GetDlgItemTextA(dialog, 1, text, 3), 2u);  // what fits, terminated
    EXPECT_STREQ(text, "&G");
    EXPECT_EQ(CreateDialogParamA(nullptr, MAKEINTRESOURCEA(4242), nullptr, RecordingProcedure, 0),
              nullptr);
}

TEST_F(WindowSystemTest, StaleAndMadeUpHandlesAreRefused) {
    HWND control = GetDlgItem(dialog, 10);
    HWND madeUp = reinterpret_cast<HWND>(uintptr_t(0xBADBAD));
    EXPECT_FALSE(IsWindow(madeUp));
    EXPECT_FALSE(SetWindowTextA(madeUp, "x"));
    EXPECT_FALSE(PostMessageA(madeUp, WM_COMMAND, 1, 0));
    EXPECT_FALSE(DestroyWindow(control));  // a control goes with its dialog only
    EXPECT_TRUE(DestroyWindow(dialog));
    EXPECT_FALSE(IsWindow(dialog));
    EXPECT_FALSE(IsWindow(control));
    EXPECT_FALSE(SetWindowTextA(control, "x"));
    EXPECT_EQ(SendMessageA(control, PBM_GETPOS, 0, 0), 0);
    EXPECT_EQ(GetDlgItem(dialog, 10), nullptr);
    EXPECT_EQ(GetWindowLongPtrA(dialog, GWLP_USERDATA), 0);
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
    EXPECT_EQ(SendMessageA(list, CB_ADDSTRING, 0, LPARAM("one")), 0);
    EXPECT_EQ(SendMessageA(list, CB_ADDSTRING, 0, LPARAM("two")), 1);
    EXPECT_EQ(SendMessageA(list, CB_SETCURSEL, 1, 0), 1);
    char text[16];
    GetDlgItemTextA(dialog, 8, text, sizeof text);
    EXPECT_STREQ(text, "two");
    EXPECT_EQ(SendMessageA(list, CB_SETCURSEL, 5, 0), CB_ERR);
    EXPECT_EQ(SendMessageA(list, CB_GETCURSEL, 0, 0), CB_ERR);
    EXPECT_EQ(SendMessageA(list, CB_GETLBTEXTLEN, 9, 0), CB_ERR);
    HWND bar = GetDlgItem(dialog, 9);
    EXPECT_EQ(SendMessageA(bar, PBM_SETPOS, 40, 0), 0);
    EXPECT_EQ(SendMessageA(bar, PBM_SETPOS, 150, 0), 40);  // the previous position
    EXPECT_EQ(SendMessageA(bar, PBM_GETPOS, 0, 0), 100);   // held to the range
    EXPECT_FALSE(EnableWindow(GetDlgItem(dialog, 1), 0));  // was enabled
    EXPECT_TRUE(EnableWindow(GetDlgItem(dialog, 1), 1));   // was disabled
    // The cursor hides once the count drops below zero and shows again once it is back.
    EXPECT_EQ(ShowCursor(0), -1);
    EXPECT_EQ(ShowCursor(0), -2);
    EXPECT_EQ(ShowCursor(1), -1);
    EXPECT_FALSE(ui.CursorVisible());
    EXPECT_EQ(ShowCursor(1), 0);
    EXPECT_TRUE(ui.CursorVisible());
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

TEST_F(WindowSystemTest, TheFolderPickerNeedsTheComponentLibraryAndAPathThatFits) {
    BROWSEINFOA info = {};
    info.hwndOwner = dialog;
    ui.SetFolderPickerAnswer("/maps/one");
    EXPECT_EQ(SHBrowseForFolderA(&info), nullptr);  // not started
    EXPECT_EQ(ui.FolderPickerCalls(), 0);
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    const std::string deep = "/" + std::string(300, 'd');  // can't be handed back in 260 bytes
    ui.SetFolderPickerAnswer(deep.c_str());
    EXPECT_EQ(SHBrowseForFolderA(&info), nullptr);
    EXPECT_EQ(ui.FolderPickerCalls(), 1);
    CoUninitialize();
}

TEST(WindowSystem, WithoutAnImplementationNothingIsMadeAndNothingWaits) {
    UiBackend* none = SetUiBackend(nullptr);
    EXPECT_EQ(MakeDialog(), nullptr);
    EXPECT_FALSE(WaitMessage());  // nothing could ever arrive
    EXPECT_NE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    SetUiBackend(none);
}

}  // namespace
