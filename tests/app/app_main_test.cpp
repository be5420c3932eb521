// The application's whole life on the screenless window system: start, the loop, the end.
#include "engine/scene/path_list.h"
#include "platform/ui/headless_ui.h"
#include "tests/support/app_fixture.h"
#include "tool/app/viewer_support.h"

namespace {

class AppMainTest : public AppFixture {
protected:
    HWND DialogNow() const { return Dialog ? Dialog->Window : nullptr; }

    HeadlessUi ui;
};

TEST_F(AppMainTest, StartsEverythingWaitsForTheUserAndTakesItAllDown) {
    HWND dialog = nullptr, viewer = nullptr;
    ui.AddStep([&] {
        dialog = DialogNow();
        viewer = ViewerWindow;
        EXPECT_TRUE(IsWindowVisible(dialog));
        EXPECT_TRUE(IsWindow(viewer) && !IsWindowVisible(viewer));  // the viewer waits hidden
        EXPECT_TRUE(ui.Click(dialog, IdExit));
    });
    EXPECT_EQ(RunApplication(nullptr, SW_SHOWNORMAL), 0);
    EXPECT_FALSE(ui.RanOutOfSteps());
    EXPECT_FALSE(IsWindow(dialog) || IsWindow(viewer));
    EXPECT_TRUE(Dialog == nullptr && TexturePaths == nullptr && Resources == nullptr);
    // Without a window system the program fails to start.
    UiBackend* mine = SetUiBackend(nullptr);
    EXPECT_EQ(RunApplication(nullptr, SW_SHOWNORMAL), 1);
    SetUiBackend(mine);
}

// The close box, Escape and Exit each end the program; idle, the loop sleeps in the window system
// until the user acts: a few pumps, not thousands.
TEST_F(AppMainTest, CloseBoxEscapeAndExitEachEndTheProgramAndIdleTheLoopWaits) {
    for (int way = 0; way < 3; ++way) {
        HeadlessUi screen;
        for (int i = 0; i < 3; ++i) screen.AddStep([] {});  // the user does nothing three times
        screen.AddStep([&] {
            HWND dialog = DialogNow();
            EXPECT_TRUE(way == 0   ? screen.PressCloseBox(dialog)
                        : way == 1 ? screen.PressEscape(dialog)
                                   : screen.Click(dialog, IdExit));
        });
        screen.SetPumpHook([&] {
            if (screen.PumpCount() > 1000) PostQuitMessage(0);  // a spinning loop ends here
        });
        QuitRequested = 0;
        EXPECT_EQ(RunApplication(nullptr, SW_SHOWNORMAL), 0) << way;
        EXPECT_FALSE(screen.RanOutOfSteps()) << way;
        EXPECT_LT(screen.PumpCount(), 50) << way;
        EXPECT_EQ(QuitRequested, 1) << way;
    }
}

// A quit met inside a bake is remembered: the bake finishes and writes its file, then the loop
// ends the program.
TEST_F(AppMainTest, TheCloseBoxDuringABakeEndsTheProgramAfterTheBake) {
    WriteWholeFile(dir.File("LastShadow.txt"), "maps/good");
    bool pressed = false, bakeGoneOn = false;
    ui.AddStep([&] { EXPECT_TRUE(ui.Click(DialogNow(), IdCreateShadows)); });
    ui.SetPumpHook([&] {
        HWND dialog = DialogNow();
        if (!dialog || Progress(dialog) == 0) return;
        if (!pressed)
            pressed = ui.PressCloseBox(dialog);
        else if (QuitRequested && Progress(dialog) > 25)
            bakeGoneOn = true;
    });
    EXPECT_EQ(RunApplication(nullptr, SW_SHOWNORMAL), 0);
    EXPECT_TRUE(pressed && bakeGoneOn);  // the pass kept running after the quit was seen
    EXPECT_FALSE(ui.RanOutOfSteps());
    EXPECT_EQ(ReadWholeFile(dir.File("maps/good/texture.dat")).size(), ShadowMapBytes);
}

}  // namespace
