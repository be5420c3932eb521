// The setup dialog driven as its user would drive it, on the screenless window system.
#include <filesystem>
#include <string>

#include "platform/ui/headless_ui.h"
#include "tests/support/app_fixture.h"

namespace {

// The application brought up on a headless screen for one test, and taken down after it.
class SetupDialogTest : public AppFixture {
protected:
    void Open() {
        ASSERT_TRUE(ApplicationStart(nullptr, SW_SHOWNORMAL));
        dialog = Dialog->Window;
    }
    void TearDown() override {
        if (Dialog) ApplicationEnd(nullptr);
        AppFixture::TearDown();
    }

    // The user's click on "&Create Shadows", and everything it sets off.
    void PressCreate() {
        ASSERT_TRUE(ui.Click(dialog, IdCreateShadows));
        DrainWindowMessages();
    }

    // Types dir, presses the button and says whether the one error box came up (and only it).
    bool Refused(const std::string& typed) {
        size_t before = ui.Boxes().size();
        EXPECT_TRUE(ui.Type(dialog, IdMapDirectory, typed));
        PressCreate();
        if (ui.Boxes().size() == before) return false;
        EXPECT_EQ(ui.Boxes().size(), before + 1);
        const HeadlessUi::Box& box = ui.Boxes().back();
        EXPECT_EQ(box.text, ErrorText);
        EXPECT_EQ(box.caption, "ERROR");
        EXPECT_EQ(box.type, 16u);
        EXPECT_EQ(box.owner, WindowId(reinterpret_cast<uintptr_t>(dialog)));
        return true;
    }

    HeadlessUi ui;
    HWND dialog = nullptr;
};

TEST_F(SetupDialogTest, OpensWithItsControlsTextsAndScripts) {
    WriteScript("B_second.ssf", "AMBIENT 10\n");
    WriteScript("a_first.ssf", "AMBIENT 20\n");
    WriteWholeFile(dir.File("lit/notes.txt"), "not a script");
    Open();
    char title[64];
    GetWindowTextA(dialog, title, sizeof title);
    EXPECT_STREQ(title, "Parameters for Shadow Generator");
    EXPECT_TRUE(IsWindowVisible(dialog));
    EXPECT_EQ(GetFocus(), dialog);
    EXPECT_EQ(ItemText(dialog, IdCreateShadows), "&Create Shadows");
    EXPECT_EQ(ItemText(dialog, IdExit), "E&xit");
    EXPECT_EQ(ItemText(dialog, IdProgressLabel), "Shadow Build Progress:");

    // The scripts of the LIT folder in the order of the search, the first one chosen.
    HWND list = GetDlgItem(dialog, IdScript);
    ASSERT_EQ(SendMessageA(list, CB_GETCOUNT, 0, 0), 3);
    char entry[64];
    const char* expected[] = {"a_first.ssf", "B_second.ssf", "quick.ssf"};
    for (int i = 0; i < 3; ++i) {
        SendMessageA(list, CB_GETLBTEXT, WPARAM(i), reinterpret_cast<LPARAM>(entry));
        EXPECT_STREQ(entry, expected[i]);
    }
    EXPECT_EQ(SendMessageA(list, CB_GETCURSEL, 0, 0), 0);
    EXPECT_EQ(ItemText(dialog, IdScript), "a_first.ssf");

    // Laid out in dialog units of the classic font: 6 by 13 pixels a character.
    PixelRect create = ui.Geometry(GetDlgItem(dialog, IdCreateShadows));
    EXPECT_EQ(create.x, 8);
    EXPECT_EQ(create.y, 146);
    EXPECT_EQ(create.width, 97);
    EXPECT_EQ(create.height, 23);
    PixelRect whole = ui.Geometry(dialog);
    EXPECT_EQ(whole.width, 408);
    EXPECT_EQ(whole.height, 180);

    // Without a display device the viewer box is shown but can't be ticked, and says why.
    HWND display = GetDlgItem(dialog, IdDisplayMap);
    EXPECT_TRUE(IsWindowVisible(display));
    EXPECT_FALSE(IsWindowEnabled(display));
    EXPECT_NE(ui.Tooltip(display).find("no display device"), std::string::npos);
    EXPECT_FALSE(ui.Click(dialog, IdDisplayMap));
}

TEST_F(SetupDialogTest, TheLastMapDirectoryComesBackWholeBlanksIncluded) {
    WriteWholeFile(dir.File("LastShadow.txt"), "maps/with a blank\n");
    Open();
    EXPECT_EQ(ItemText(dialog, IdMapDirectory), "maps/with a blank");
}

TEST_F(SetupDialogTest, EmptyListAndMissingLastDirectoryLeaveEmptyControls) {
    std::filesystem::remove(dir.File("lit/quick.ssf"));
    Open();
    EXPECT_EQ(ItemText(dialog, IdMapDirectory), "");
    EXPECT_EQ(SendMessageA(GetDlgItem(dialog, IdScript), CB_GETCOUNT, 0, 0), 0);
    EXPECT_EQ(ItemText(dialog, IdScript), "");
    // No script to choose: the selection names the folder, which is no script.
    EXPECT_TRUE(Refused("maps/good"));
    EXPECT_FALSE(Exists("LastShadow.txt"));
}

TEST_F(SetupDialogTest, TheLengthRuleAllowsExactly250Characters) {
    std::string longest(250, 'd'), tooLong(251, 'e');
    WriteMap(longest);
    WriteMap(tooLong);
    Open();
    EXPECT_TRUE(Refused(tooLong));
    EXPECT_FALSE(Exists("LastShadow.txt"));
    EXPECT_FALSE(Refused(longest));
    EXPECT_TRUE(Exists(longest + "/texture.dat"));
    EXPECT_EQ(ReadWholeFile(dir.File("LastShadow.txt")), longest);
}

TEST_F(SetupDialogTest, EveryBadMapDirectoryGetsTheOneBox) {
    std::filesystem::create_directories(dir.File("maps/empty"));
    std::filesystem::create_directories(dir.File("maps/folder/test.vbf"));
    WriteWholeFile(dir.File("maps/plain-file"), "x");
    Open();
    EXPECT_TRUE(Refused(""));
    EXPECT_TRUE(Refused("maps/nowhere"));
    EXPECT_TRUE(Refused("maps/plain-file"));
    EXPECT_TRUE(Refused("maps/empty"));   // no test.vbf
    EXPECT_TRUE(Refused("maps/folder"));  // test.vbf is itself a directory
    EXPECT_FALSE(Exists("LastShadow.txt"));
    // Nothing of a bake happened, and the dialog still takes input.
    EXPECT_FALSE(Exists("maps/folder/texture.dat"));
    EXPECT_TRUE(Enabled(dialog, IdCreateShadows));
}

TEST_F(SetupDialogTest, AScriptThatVanishedSinceTheListWasFilledIsRefusedAndLogged) {
    WriteWholeFile(dir.File("LastShadow.txt"), "maps/old");
    Open();
    std::filesystem::remove(dir.File("lit/quick.ssf"));
    EXPECT_TRUE(Refused("maps/good"));
    std::string expected = "***** FAILED TO OPEN SCRIPT lit/quick.ssf *****";
    ASSERT_GT(MessageLogCount(), 0);
    EXPECT_EQ(MessageLogLine(MessageLogCount() - 1), expected);
    EXPECT_EQ(ReadWholeFile(dir.File("LastShadow.txt")), "maps/old");  // untouched
}

// What the user sees while the bake runs: the bar moving and nothing that could start another.
struct BakeView {
    std::vector<int> percents;
    std::vector<std::vector<bool>> controls;
};
BakeView* Watching = nullptr;
HWND WatchedDialog = nullptr;
ProgressHooks AppHooks;

void WatchProgress(int percent) {
    AppHooks.setProgress(percent);
    Watching->percents.push_back(Progress(WatchedDialog) == percent ? percent : -1);
    Watching->controls.push_back(BakeControlsEnabled(WatchedDialog));
}

TEST_F(SetupDialogTest, ABakeDisablesTheControlsMovesTheBarAndHandsBack) {
    Open();
    ASSERT_TRUE(ui.Type(dialog, IdMapDirectory, "maps/good"));
    BakeView view;
    Watching = &view;
    WatchedDialog = dialog;
    AppHooks = SetProgressHooks(nullptr);
    ProgressHooks watch = AppHooks;
    watch.setProgress = WatchProgress;
    SetProgressHooks(&watch);
    int pumpsBefore = ui.PumpCount();

    PressCreate();
    SetProgressHooks(&AppHooks);

    EXPECT_EQ(view.percents, (std::vector<int>{0, 25, 50, 75}));
    for (const std::vector<bool>& state : view.controls)
        EXPECT_EQ(state, std::vector<bool>(6, false));
    EXPECT_GE(ui.PumpCount() - pumpsBefore, 4);  // the window kept being served mid-bake

    // Handed back: controls as at the start, the bar at 0, the start directory current.
    EXPECT_EQ(BakeControlsEnabled(dialog),
              (std::vector<bool>{true, true, true, false, true, true}));
    EXPECT_EQ(Progress(dialog), 0);
    EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(), dir.Path()));
    EXPECT_EQ(GetFocus(), dialog);
    EXPECT_TRUE(ui.CursorVisible());
    EXPECT_EQ(ReadWholeFile(dir.File("LastShadow.txt")), "maps/good");
    EXPECT_EQ(ReadWholeFile(dir.File("maps/good/texture.dat")).size(), ShadowMapBytes);
    EXPECT_EQ(ReadWholeFile(dir.File("maps/good/test.lit")), "light description\n");
    EXPECT_TRUE(ui.Boxes().empty());
}

// Past the dialog's rules, a map the run refuses says why in a box, since no viewer shows the log.
TEST_F(SetupDialogTest, AMapTheRunRefusesSaysWhyAndHandsBack) {
    WriteWholeFile(dir.File("maps/good/test.vbf"), std::string("\0\0\0\0\x05", 5));
    Open();
    ASSERT_TRUE(ui.Type(dialog, IdMapDirectory, "maps/good"));
    PressCreate();
    ASSERT_EQ(ui.Boxes().size(), 1u);
    EXPECT_EQ(ui.Boxes()[0].caption, "ERROR");
    EXPECT_NE(ui.Boxes()[0].text.find("***** MAP REFUSED"), std::string::npos);
    EXPECT_FALSE(Exists("maps/good/texture.dat"));
    EXPECT_TRUE(Enabled(dialog, IdCreateShadows));
    EXPECT_EQ(Progress(dialog), 0);
}

TEST_F(SetupDialogTest, TheFolderPickerFillsTheDirectoryUnlessCancelled) {
    Open();
    ASSERT_TRUE(ui.Type(dialog, IdMapDirectory, "typed"));
    ui.SetFolderPickerAnswer(nullptr);
    ASSERT_TRUE(ui.Click(dialog, IdBrowse));
    DrainWindowMessages();
    EXPECT_EQ(ui.FolderPickerCalls(), 1);
    EXPECT_EQ(ui.FolderPickerTitle(), "Select Map Directory");
    EXPECT_EQ(ItemText(dialog, IdMapDirectory), "typed");

    std::string picked = dir.File("maps/good");
    ui.SetFolderPickerAnswer(picked.c_str());
    ASSERT_TRUE(ui.Click(dialog, IdBrowse));
    DrainWindowMessages();
    EXPECT_EQ(ItemText(dialog, IdMapDirectory), picked);
}

TEST_F(SetupDialogTest, WithoutTheComponentLibraryBrowseStaysOffEvenAfterABake) {
    ui.SetComponentLibraryResult(HRESULT(0x80004005u));
    Open();
    EXPECT_EQ(NoFolderPicker, 1);
    EXPECT_FALSE(Enabled(dialog, IdBrowse));
    // A message that reaches the dialog anyway opens no picker.
    PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(IdBrowse, BN_CLICKED), 0);
    DrainWindowMessages();
    EXPECT_EQ(ui.FolderPickerCalls(), 0);
    // The user can still type a directory.
    ASSERT_TRUE(ui.Type(dialog, IdMapDirectory, "maps/good"));
    PressCreate();
    EXPECT_TRUE(Exists("maps/good/texture.dat"));
    EXPECT_FALSE(Enabled(dialog, IdBrowse));
    EXPECT_TRUE(Enabled(dialog, IdCreateShadows));
}

TEST_F(SetupDialogTest, OnlyTheLowWordOfACommandCounts) {
    Open();
    PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(IdExit, 0x300), 0);
    EXPECT_TRUE(DrainWindowMessages());
}

}  // namespace
