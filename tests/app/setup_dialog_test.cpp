// The setup dialog driven as its user would drive it, on the screenless window system.
#include <filesystem>
#include <string>

#include "platform/ui/headless_ui.h"
#include "tests/support/app_fixture.h"

namespace {

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

    void Create(const std::string& typed) {
        ASSERT_TRUE(ui.Type(dialog, IdMapDirectory, typed));
        ASSERT_TRUE(ui.Click(dialog, IdCreateShadows));
        DrainWindowMessages();
    }

    // Types dir, presses the button and says whether the one error box came up (and only it).
    bool Refused(const std::string& typed) {
        size_t before = ui.Boxes().size();
        Create(typed);
        if (ui.Boxes().size() == before) return false;
        EXPECT_EQ(ui.Boxes().size(), before + 1);
        const HeadlessUi::Box& box = ui.Boxes().back();
        EXPECT_EQ(box.text + "|" + box.caption + "|" + std::to_string(box.type),
                  ErrorText + std::string("|ERROR|16"));
        EXPECT_EQ(box.owner, WindowId(reinterpret_cast<uintptr_t>(dialog)));
        return true;
    }

    HeadlessUi ui;
    HWND dialog = nullptr;
};

TEST_F(SetupDialogTest, OpensWithTheScriptsTheLastDirectoryAndTheViewerBoxOff) {
    WriteScript("B_second.ssf", "AMBIENT 10\n");
    WriteScript("a_first.ssf", "AMBIENT 20\n");
    WriteWholeFile(dir.File("lit/notes.txt"), "not a script");
    WriteWholeFile(dir.File("LastShadow.txt"), "maps/with a blank\n");
    Open();
    EXPECT_TRUE(IsWindowVisible(dialog));
    EXPECT_EQ(GetFocus(), dialog);
    EXPECT_EQ(ItemText(dialog, IdMapDirectory), "maps/with a blank");
    // The scripts of the LIT folder in name order whatever the case, the first one chosen.
    const char* scripts[] = {"a_first.ssf", "B_second.ssf", "quick.ssf"};
    HWND list = GetDlgItem(dialog, IdScript);
    EXPECT_EQ(SendMessageA(list, CB_GETCOUNT, 0, 0), 3);
    EXPECT_EQ(ItemText(dialog, IdScript), scripts[0]);
    for (int i : {2, 1}) {
        SendMessageA(list, CB_SETCURSEL, WPARAM(i), 0);
        EXPECT_EQ(ItemText(dialog, IdScript), scripts[i]);
    }
    // Laid out in dialog units of the classic font, 6 by 13 pixels a character, 7.5 rounding up.
    const PixelRect create = ui.Geometry(GetDlgItem(dialog, IdCreateShadows)),
                    whole = ui.Geometry(dialog);
    EXPECT_EQ((std::vector<int>{create.x, create.y, create.width, create.height, whole.width,
                                whole.height}),
              (std::vector<int>{8, 146, 97, 23, 408, 180}));
    // Without a display device the viewer box is shown but can't be ticked, and says why.
    HWND display = GetDlgItem(dialog, IdDisplayMap);
    EXPECT_TRUE(IsWindowVisible(display));
    EXPECT_FALSE(IsWindowEnabled(display));
    EXPECT_NE(ui.Tooltip(display).find("no display device"), std::string::npos);
    EXPECT_FALSE(ui.Click(dialog, IdDisplayMap));
}

// Each bad map directory or script gets the one box, nothing of a bake happens and the last
// directory is kept; a path of exactly 250 characters is still good.
TEST_F(SetupDialogTest, EveryBadDirectoryOrScriptGetsTheOneBox) {
    const std::string longest(250, 'd'), tooLong(251, 'e');
    WriteMap(longest);
    WriteMap(tooLong);
    std::filesystem::create_directories(dir.File("maps/empty"));
    std::filesystem::create_directories(dir.File("maps/folder/test.vbf"));
    WriteWholeFile(dir.File("maps/plain-file"), "x");
    WriteWholeFile(dir.File("LastShadow.txt"), "maps/old");
    Open();
    for (const std::string& typed :
         {std::string(), std::string("maps/nowhere"), std::string("maps/plain-file"),
          std::string("maps/empty"), std::string("maps/folder"), tooLong}) {
        EXPECT_TRUE(Refused(typed)) << typed;
        EXPECT_EQ(MessageLogCount(), 0) << typed;  // the script is read only for a good map
    }
    std::filesystem::remove(dir.File("lit/quick.ssf"));  // since the list was filled
    EXPECT_TRUE(Refused("maps/good"));
    ASSERT_GT(MessageLogCount(), 0);
    EXPECT_STREQ(MessageLogLine(MessageLogCount() - 1),
                 "***** FAILED TO OPEN SCRIPT lit/quick.ssf *****");
    EXPECT_EQ(ReadWholeFile(dir.File("LastShadow.txt")), "maps/old");
    EXPECT_FALSE(Exists("maps/good/texture.dat") || Exists(tooLong + "/texture.dat"));
    EXPECT_TRUE(Enabled(dialog, IdCreateShadows));

    WriteScript("quick.ssf", "LIGHT 1 2 1\nSCRIPT quick.lit\n");
    EXPECT_FALSE(Refused(longest));
    EXPECT_TRUE(Exists(longest + "/texture.dat"));
    EXPECT_EQ(ReadWholeFile(dir.File("LastShadow.txt")), longest);
}

TEST_F(SetupDialogTest, WithoutScriptsOrALastDirectoryTheControlsStayEmpty) {
    std::filesystem::remove(dir.File("lit/quick.ssf"));
    Open();
    EXPECT_EQ(ItemText(dialog, IdMapDirectory), "");
    EXPECT_EQ(ItemText(dialog, IdScript), "");
    EXPECT_TRUE(Refused("maps/good"));  // the selection names the folder, which is no script
    EXPECT_FALSE(Exists("LastShadow.txt"));
}

// What the user sees while the bake runs: the bar moving and nothing that could start another.
std::vector<int> Percents;
std::vector<std::vector<bool>> ControlStates;
HWND WatchedDialog = nullptr;
ProgressHooks AppHooks;

void WatchProgress(int percent) {
    AppHooks.setProgress(percent);
    Percents.push_back(Progress(WatchedDialog) == percent ? percent : -1);
    ControlStates.push_back(BakeControlsEnabled(WatchedDialog));
}

TEST_F(SetupDialogTest, ABakeDisablesTheControlsMovesTheBarAndHandsBack) {
    Open();
    WatchedDialog = dialog;
    AppHooks = SetProgressHooks(nullptr);
    ProgressHooks watch = AppHooks;
    watch.setProgress = WatchProgress;
    SetProgressHooks(&watch);
    const int pumpsBefore = ui.PumpCount();
    Create("maps/good");
    SetProgressHooks(&AppHooks);

    EXPECT_EQ(Percents, (std::vector<int>{0, 25, 50, 75}));
    EXPECT_EQ(ControlStates, std::vector<std::vector<bool>>(4, std::vector<bool>(6, false)));
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
    Create("maps/good");
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
    const std::string picked = dir.File("maps/good");
    for (const char* answer : {static_cast<const char*>(nullptr), picked.c_str()}) {
        ui.SetFolderPickerAnswer(answer);
        ASSERT_TRUE(ui.Click(dialog, IdBrowse));
        DrainWindowMessages();
        EXPECT_EQ(ItemText(dialog, IdMapDirectory), answer ? picked : "typed");
    }
    EXPECT_EQ(ui.FolderPickerCalls(), 2);
    EXPECT_EQ(ui.FolderPickerTitle(), "Select Map Directory");
}

TEST_F(SetupDialogTest, WithoutTheComponentLibraryBrowseStaysOffEvenAfterABake) {
    ui.SetComponentLibraryResult(HRESULT(0x80004005u));
    Open();
    EXPECT_FALSE(Enabled(dialog, IdBrowse));
    // A message that reaches the dialog anyway opens no picker; the user can still type.
    PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(IdBrowse, BN_CLICKED), 0);
    Create("maps/good");
    EXPECT_EQ(ui.FolderPickerCalls(), 0);
    EXPECT_TRUE(Exists("maps/good/texture.dat"));
    EXPECT_FALSE(Enabled(dialog, IdBrowse));
    EXPECT_TRUE(Enabled(dialog, IdCreateShadows));
    // Only the low word of a command counts.
    PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(IdExit, 0x300), 0);
    EXPECT_TRUE(DrainWindowMessages());
}

}  // namespace
