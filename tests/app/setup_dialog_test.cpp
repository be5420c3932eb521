// The setup dialog driven as its user would drive it, on the screenless window system.
#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <tuple>

#include "platform/dx7/adapter_table.h"
#include "platform/ui/headless_ui.h"
#include "tests/support/app_fixture.h"
#include "tool/app/setup_dialog_template.h"
#include "tool/view/viewer_scene.h"

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

    // Every box shown so far, as "caption|type|text", and whether the dialog owned each.
    std::vector<std::string> Boxes() const {
        std::vector<std::string> seen;
        for (const HeadlessUi::Box& box : ui.Boxes())
            seen.push_back(box.caption + "|" + std::to_string(box.type) +
                           (box.owner == WindowId(uintptr_t(dialog)) ? "|" : "|unowned|") +
                           box.text);
        return seen;
    }

    HeadlessUi ui;
    HWND dialog = nullptr;
};

TEST_F(SetupDialogTest, OpensWithTheScriptsTheLastDirectoryAndTheViewerBoxOff) {
    WriteScript("B_second.ssf", "AMBIENT 10\n");
    WriteScript("a_first.ssf", "AMBIENT 20\n");
    WriteWholeFile(dir.File("lit/notes.txt"), "not a script");
    WriteWholeFile(dir.File("LastShadow.txt"), "maps/with a blank\n");
    DxFaultSwitches().createDevices = 100;  // no 3D device to be had
    Open();
    DxFaultSwitches() = {};
    EXPECT_EQ(ItemText(dialog, IdMapDirectory), "maps/with a blank");
    // The scripts of the LIT folder in name order whatever the case, the first one chosen.
    std::vector<std::string> scripts = {ItemText(dialog, IdScript)};
    for (int i = 1; SendMessageA(GetDlgItem(dialog, IdScript), CB_SETCURSEL, WPARAM(i), 0) == i;
         ++i)
        scripts.push_back(ItemText(dialog, IdScript));
    EXPECT_EQ(scripts, (std::vector<std::string>{"a_first.ssf", "B_second.ssf", "quick.ssf"}));
    // Without a display device the viewer box is shown but can't be ticked, and says why.
    EXPECT_EQ(Device, nullptr);
    EXPECT_NE(ui.Tooltip(GetDlgItem(dialog, IdDisplayMap)).find("display device could not be "),
              std::string::npos);
    EXPECT_FALSE(ui.Click(dialog, IdDisplayMap));
}

// Each bad map directory or script gets the one box with its reason under it, nothing of a bake
// happens and the last directory is kept; a path of exactly 250 characters is still good.
TEST_F(SetupDialogTest, EveryBadDirectoryOrScriptGetsTheOneBox) {
    const std::string longest(250, 'd'), tooLong(251, 'e'),
        refused = "ERROR|16|" + std::string(ErrorText) + "\n\n";
    WriteMap(longest);
    WriteMap(tooLong);
    std::filesystem::create_directories(dir.File("maps/empty"));
    std::filesystem::create_directories(dir.File("maps/folder/test.vbf"));
    WriteWholeFile(dir.File("maps/plain-file"), "x");
    WriteWholeFile(dir.File("LastShadow.txt"), "maps/old");
    Open();
    std::vector<std::string> boxes;
    for (const auto& [typed, reason] : std::vector<std::pair<std::string, std::string>>{
             {"", "No map directory is given."},
             {"maps/nowhere", "The directory maps/nowhere does not exist."},
             {"maps/plain-file", "maps/plain-file is a file, not a directory."},
             {"maps/empty", "maps/empty holds no test.vbf."},
             {"maps/folder", "maps/folder/test.vbf is a directory, not a map."},
             {tooLong, "The map directory's path is too long: at most 250 characters fit."}}) {
        Create(typed);
        boxes.push_back(refused + reason);
        EXPECT_EQ(Boxes(), boxes) << typed;
        EXPECT_EQ(MessageLogCount(), 0) << typed;  // the script is read only for a good map
    }
    std::filesystem::remove(dir.File("lit/quick.ssf"));  // since the list was filled
    Create("maps/good");
    boxes.push_back(refused + "The script lit/quick.ssf can't be read.");
    EXPECT_EQ(Boxes(), boxes);
    EXPECT_STREQ(MessageLogLine(MessageLogCount() - 1),
                 "***** FAILED TO OPEN SCRIPT lit/quick.ssf *****");
    EXPECT_EQ(ReadWholeFile(dir.File("LastShadow.txt")), "maps/old");
    EXPECT_FALSE(Exists("maps/good/texture.dat") || Exists(tooLong + "/texture.dat"));
    EXPECT_TRUE(Enabled(dialog, IdCreateShadows));

    WriteScript("quick.ssf", "LIGHT 1 2 1\nSCRIPT quick.lit\n");
    Create(longest);
    EXPECT_EQ(Boxes(), boxes);
    EXPECT_TRUE(Exists(longest + "/texture.dat"));
    EXPECT_EQ(ReadWholeFile(dir.File("LastShadow.txt")), longest);
}

// When a bake ends the bar's label says what it wrote and in what time, or that it failed; a map
// the run refuses says why, since no viewer shows the log.
TEST_F(SetupDialogTest, TheEndOfEachBakeIsToldUnderTheBar) {
    WriteScript("z_frames.ssf", "ANIMATED 3\n");
    std::filesystem::create_directories(dir.File("maps/bad"));
    WriteWholeFile(dir.File("maps/bad/test.vbf"), std::string("\0\0\0\0\x05", 5));
    Open();
    for (const auto& [script, typed, said] : std::vector<std::tuple<int, std::string, std::string>>{
             {0, "maps/good", "Done: /.*/maps/good/texture\\.dat in [0-9.]+ s"},
             {1, "maps/good", "Done: /.*/maps/good/texture0\\.dat and 2 more in [0-9.]+ s"},
             {0, "maps/bad", "Failed: maps/bad/test\\.vbf"}}) {
        ASSERT_TRUE(ui.Choose(dialog, IdScript, script));
        Create(typed);
        EXPECT_THAT(ItemText(dialog, IdProgressLabel), testing::MatchesRegex(said));
        EXPECT_TRUE(Enabled(dialog, IdCreateShadows));
    }
    EXPECT_THAT(Boxes(), testing::ElementsAre(testing::StartsWith(
                             "ERROR|16|***** MAP REFUSED maps/bad/test.vbf: ")));
}

// What the user sees while the bake runs: the bar moving and nothing that could start another.
std::vector<int> Percents;
std::vector<std::vector<bool>> ControlStates;
HWND WatchedDialog = nullptr;
ProgressHooks AppHooks;

void WatchProgress(int percent) {
    AppHooks.setProgress(percent);
    const bool told = ItemText(WatchedDialog, IdProgressLabel) == ProgressLabelText;
    Percents.push_back(Progress(WatchedDialog) == percent && told ? percent : -1);
    ControlStates.push_back(BakeControlsEnabled(WatchedDialog));
}

// The directory picked, the bake runs with the controls locked and the bar moving, then hands back.
TEST_F(SetupDialogTest, APickedDirectoryBakesWithTheControlsLockedAndTheBarMoving) {
    Open();
    ASSERT_TRUE(ui.Type(dialog, IdMapDirectory, "typed"));
    for (const char* answer : {static_cast<const char*>(nullptr), "maps/good"}) {  // cancel, pick
        ui.SetFolderPickerAnswer(answer);
        ASSERT_TRUE(ui.Click(dialog, IdBrowse));
        DrainWindowMessages();
        EXPECT_EQ(ItemText(dialog, IdMapDirectory), answer ? answer : "typed");
    }
    EXPECT_EQ(ui.FolderPickerTitle(), "Select Map Directory");
    WatchedDialog = dialog;
    Percents.clear(), ControlStates.clear();
    AppHooks = SetProgressHooks(nullptr);
    ProgressHooks watch = AppHooks;
    watch.setProgress = WatchProgress;
    SetProgressHooks(&watch);
    SetDlgItemTextA(dialog, IdProgressLabel, "Done: an earlier bake");  // gone while it runs
    const int pumpsBefore = ui.PumpCount();
    ASSERT_TRUE(ui.Click(dialog, IdCreateShadows));
    DrainWindowMessages();
    SetProgressHooks(&AppHooks);

    EXPECT_EQ(Percents, (std::vector<int>{0, 25, 50, 75}));
    EXPECT_EQ(ControlStates, std::vector<std::vector<bool>>(4, std::vector<bool>(6, false)));
    EXPECT_GE(ui.PumpCount() - pumpsBefore, 4);  // the window kept being served mid-bake
    // Handed back: controls as at the start, the bar at 0, the start directory current.
    EXPECT_EQ(BakeControlsEnabled(dialog), std::vector<bool>(6, true));
    EXPECT_EQ(Progress(dialog), 0);
    EXPECT_TRUE(std::filesystem::equivalent(std::filesystem::current_path(), dir.Path()));
    EXPECT_EQ(GetFocus(), dialog);
    EXPECT_TRUE(ui.CursorVisible());
    EXPECT_EQ(ReadWholeFile(dir.File("LastShadow.txt")), "maps/good");
    EXPECT_EQ(ReadWholeFile(dir.File("maps/good/texture.dat")).size(), ShadowMapBytes);
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
    // Only the low word of a command counts.
    PostMessageA(dialog, WM_COMMAND, MAKEWPARAM(IdExit, 0x300), 0);
    EXPECT_TRUE(DrainWindowMessages());
}

}  // namespace
