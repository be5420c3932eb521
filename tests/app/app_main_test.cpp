// The application's whole life on the screenless window system: start, the loop, the end.
#include <filesystem>

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

TEST_F(AppMainTest, StartsInOrderWaitsForTheUserAndEndsWithExitCodeZero) {
    ShadowSettings.Light = {3.0f, 0.0f, 4.0f};
    bool looked = false;
    HWND dialog = nullptr, viewer = nullptr;
    ui.AddStep([&] {
        looked = true;
        dialog = DialogNow();
        viewer = ViewerWindow;
        EXPECT_TRUE(IsWindowVisible(dialog));
        EXPECT_TRUE(IsWindow(viewer));
        EXPECT_FALSE(IsWindowVisible(viewer));  // the viewer's window waits hidden
        EXPECT_FLOAT_EQ(ShadowSettings.Light.x, 0.6f);
        EXPECT_FLOAT_EQ(ShadowSettings.Light.z, 0.8f);
        EXPECT_TRUE(std::filesystem::equivalent(StartDirectory, dir.Path()));
        ASSERT_NE(TexturePaths, nullptr);
        char found[260];
        WriteWholeFile(dir.File("textures/rock.tga"), "x");
        EXPECT_GE(TexturePaths->FindFile("rock.tga", found), 0);
        ASSERT_NE(Resources, nullptr);
        EXPECT_STREQ(Resources->GetResourcePath("LIT"), "lit");
        EXPECT_TRUE(ui.Click(dialog, IdExit));
    });
    EXPECT_EQ(RunApplication(nullptr, SW_SHOWNORMAL), 0);
    EXPECT_TRUE(looked);
    EXPECT_FALSE(ui.RanOutOfSteps());
    // The end took down everything the start brought up.
    EXPECT_FALSE(IsWindow(dialog));
    EXPECT_FALSE(IsWindow(viewer));
    EXPECT_EQ(Dialog, nullptr);
    EXPECT_EQ(TexturePaths, nullptr);
    EXPECT_EQ(Resources, nullptr);
}

// The close box, Escape and "E&xit" all end the program the same way.
TEST_F(AppMainTest, CloseBoxEscapeAndExitEachEndTheProgram) {
    for (int way = 0; way < 3; ++way) {
        HeadlessUi screen;
        screen.AddStep([&] {
            HWND dialog = DialogNow();
            bool pressed = way == 0   ? screen.PressCloseBox(dialog)
                           : way == 1 ? screen.PressEscape(dialog)
                                      : screen.Click(dialog, IdExit);
            EXPECT_TRUE(pressed);
        });
        EXPECT_EQ(RunApplication(nullptr, SW_SHOWNORMAL), 0) << way;
        EXPECT_FALSE(screen.RanOutOfSteps()) << way;
        EXPECT_EQ(QuitRequested, 1) << way;
    }
}

// Idle, the loop sleeps in the window system until the user acts: a few pumps, not thousands.
TEST_F(AppMainTest, TheIdleLoopWaitsInsteadOfSpinning) {
    HWND dialog = nullptr;
    for (int i = 0; i < 3; ++i) ui.AddStep([] {});  // the user does nothing three times
    ui.AddStep([&] {
        dialog = DialogNow();
        ui.Click(dialog, IdExit);
    });
    ui.SetPumpHook([&] {
        if (ui.PumpCount() > 1000) PostQuitMessage(0);  // a spinning loop ends here, and fails
    });
    RunApplication(nullptr, SW_SHOWNORMAL);
    EXPECT_LT(ui.PumpCount(), 50);
    EXPECT_NE(dialog, nullptr);
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
        if (!pressed) {
            pressed = ui.PressCloseBox(dialog);
        } else if (QuitRequested && Progress(dialog) > 25) {
            bakeGoneOn = true;  // the pass kept running after the quit was seen
        }
    });
    EXPECT_EQ(RunApplication(nullptr, SW_SHOWNORMAL), 0);
    EXPECT_TRUE(pressed);
    EXPECT_TRUE(bakeGoneOn);
    EXPECT_FALSE(ui.RanOutOfSteps());
    EXPECT_EQ(ReadWholeFile(dir.File("maps/good/texture.dat")).size(), ShadowMapBytes);
}

TEST_F(AppMainTest, WithoutAWindowSystemTheProgramFailsToStart) {
    UiBackend* mine = SetUiBackend(nullptr);
    EXPECT_EQ(RunApplication(nullptr, SW_SHOWNORMAL), 1);
    EXPECT_EQ(Dialog, nullptr);
    SetUiBackend(mine);
}

}  // namespace
