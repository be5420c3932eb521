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

struct Call {
    HWND window;
    UINT message;
    WPARAM wParam;
};
std::vector<Call> Calls;

INT_PTR RecordingProcedure(HWND window, UINT message, WPARAM wParam, LPARAM) {
    Calls.push_back({window, message, wParam});
    return 0;
}

class WindowSystemTest : public ::testing::Test {
protected:
    void SetUp() override {
        Calls.clear();
        RegisterDialogTemplate(DialogId, &Dialog);
        dialog = CreateDialogParamA(nullptr, MAKEINTRESOURCEA(DialogId), nullptr,
                                    RecordingProcedure, 77);
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

TEST(DialogUnits, ConvertEdgesToTheNearestPixel) {
    // 7.5 rounds away from zero; the right edge converts on its own: 105 - 8.
    PixelRect r = DialogUnitsToPixels(5, 90, 65, 14, ClassicDialogBaseUnits);
    EXPECT_EQ((std::vector<int>{r.x, r.y, r.width, r.height}), (std::vector<int>{8, 146, 97, 23}));
    // Neighbours that touch in units touch in pixels, whatever the font.
    for (DialogBaseUnits units :
         {DialogBaseUnits{6, 13}, DialogBaseUnits{7, 16}, DialogBaseUnits{9, 19}}) {
        PixelRect left = DialogUnitsToPixels(0, 0, 37, 11, units);
        PixelRect right = DialogUnitsToPixels(37, 11, 20, 9, units);
        EXPECT_EQ(left.x + left.width, right.x);
        EXPECT_EQ(left.y + left.height, right.y);
    }
}

TEST_F(WindowSystemTest, ADialogIsMadeFromItsTemplate) {
    ASSERT_FALSE(Calls.empty());
    EXPECT_EQ(Calls[0].message, UINT(WM_INITDIALOG));
    for (const ControlTemplate& control : Controls) {
        HWND item = GetDlgItem(dialog, control.id);
        EXPECT_EQ(GetDlgCtrlID(item), control.id);
        EXPECT_TRUE(IsWindowVisible(item)) << control.id;
    }
    EXPECT_EQ(GetDlgItem(dialog, 1234), nullptr);
    char text[16];
    // A short buffer gets what fits, terminated.
    EXPECT_EQ(GetDlgItemTextA(dialog, 1, text, 3), 2u);
    EXPECT_STREQ(text, "&G");
    // No template, no dialog.
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
    EXPECT_EQ(SendMessageA(control, PBM_GETPOS, 0, 0), 0);
    EXPECT_EQ(GetDlgItem(dialog, 10), nullptr);
    EXPECT_EQ(GetWindowLongPtrA(dialog, GWLP_USERDATA), 0);
}

TEST_F(WindowSystemTest, TheQuitComesBehindEveryPostedMessage) {
    PostMessageA(dialog, WM_COMMAND, 5, 0);
    PostQuitMessage(3);
    PostMessageA(dialog, WM_COMMAND, 6, 0);
    MSG peeked;
    ASSERT_TRUE(PeekMessageA(&peeked, nullptr, 0, 0, PM_NOREMOVE));
    EXPECT_EQ(peeked.wParam, 5u);  // still there
    std::vector<UINT> seen = Drain();
    EXPECT_EQ(seen, (std::vector<UINT>{WM_COMMAND, WM_COMMAND, WM_QUIT}));
    EXPECT_FALSE(PeekMessageA(&peeked, nullptr, 0, 0, PM_REMOVE));  // the quit came once
    // Messages for a window that went are dropped with it.
    PostMessageA(dialog, WM_COMMAND, 7, 0);
    DestroyWindow(dialog);
    EXPECT_TRUE(Drain().empty());
}

TEST_F(WindowSystemTest, ControlMessagesReachTheControls) {
    HWND list = GetDlgItem(dialog, 8);
    EXPECT_EQ(SendMessageA(list, CB_SETCURSEL, 0, 0), CB_ERR);  // nothing to choose yet
    EXPECT_EQ(SendMessageA(list, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>("one")), 0);
    EXPECT_EQ(SendMessageA(list, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>("two")), 1);
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

    EXPECT_EQ(IsDlgButtonChecked(dialog, 7), 0u);
    CheckDlgButton(dialog, 7, BST_CHECKED);
    EXPECT_EQ(IsDlgButtonChecked(dialog, 7), 1u);

    EXPECT_FALSE(EnableWindow(GetDlgItem(dialog, 1), 0));  // was enabled
    EXPECT_TRUE(EnableWindow(GetDlgItem(dialog, 1), 1));   // was disabled
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
    ASSERT_EQ(Calls.size(), 2u);
    EXPECT_EQ(Calls[0].message, UINT(WM_COMMAND));
    EXPECT_EQ(LOWORD(Calls[0].wParam), 7u);
    EXPECT_EQ(HIWORD(Calls[0].wParam), unsigned(BN_CLICKED));
    EXPECT_EQ(Calls[1].message, UINT(WM_CLOSE));
    ShowWindow(dialog, SW_HIDE);
    EXPECT_FALSE(ui.Click(dialog, 7));  // nobody clicks what isn't on the screen
}

TEST_F(WindowSystemTest, MessageBoxesAndTheCursor) {
    EXPECT_EQ(SetWindowLongPtrA(dialog, -4, 1), 0);  // no slot but the user data

    EXPECT_EQ(MessageBoxA(dialog, "text", "Caption", MB_ICONERROR), int(IDOK));
    ASSERT_EQ(ui.Boxes().size(), 1u);
    EXPECT_EQ(ui.Boxes()[0].owner, WindowId(reinterpret_cast<uintptr_t>(dialog)));
    EXPECT_EQ(ui.Boxes()[0].caption, "Caption");

    // The cursor hides once the count drops below zero and shows again once it is back.
    ShowCursor(0);
    EXPECT_EQ(ShowCursor(0), -2);
    EXPECT_EQ(ShowCursor(1), -1);
    EXPECT_FALSE(ui.CursorVisible());
    EXPECT_EQ(ShowCursor(1), 0);
    EXPECT_TRUE(ui.CursorVisible());
}

TEST_F(WindowSystemTest, TheFolderPickerNeedsTheComponentLibrary) {
    BROWSEINFOA info = {};
    info.hwndOwner = dialog;
    info.lpszTitle = "Pick";
    ui.SetFolderPickerAnswer("/maps/one");
    EXPECT_EQ(SHBrowseForFolderA(&info), nullptr);  // not started
    EXPECT_EQ(ui.FolderPickerCalls(), 0);
    ASSERT_EQ(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    char name[260], path[260];
    info.pszDisplayName = name;
    LPITEMIDLIST list = SHBrowseForFolderA(&info);
    ASSERT_NE(list, nullptr);
    EXPECT_STREQ(name, "one");
    EXPECT_TRUE(SHGetPathFromIDListA(list, path));
    EXPECT_STREQ(path, "/maps/one");
    IMalloc* allocator = nullptr;
    ASSERT_EQ(SHGetMalloc(&allocator), S_OK);
    allocator->Free(list);
    // A path that could not be handed back in 260 bytes is no answer.
    std::string deep = "/" + std::string(300, 'd');
    ui.SetFolderPickerAnswer(deep.c_str());
    EXPECT_EQ(SHBrowseForFolderA(&info), nullptr);
    CoUninitialize();
}

TEST(WindowSystem, WithoutAnImplementationNothingIsMadeAndNothingWaits) {
    UiBackend* none = SetUiBackend(nullptr);
    RegisterDialogTemplate(DialogId, &Dialog);
    EXPECT_EQ(
        CreateDialogParamA(nullptr, MAKEINTRESOURCEA(DialogId), nullptr, RecordingProcedure, 0),
        nullptr);
    EXPECT_FALSE(WaitMessage());  // nothing could ever arrive
    EXPECT_NE(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED), S_OK);
    SetUiBackend(none);
}

}  // namespace
