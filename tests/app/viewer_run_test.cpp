// The viewer in the application's own loop, on the screenless window system: a bake with the box
// ticked shows it, each turn of the loop draws a frame, Escape gives the dialog back, and the
// program can end while it shows.
#include <algorithm>
#include <string>

#include "engine/render/renderer.h"
#include "engine/scene/camera.h"
#include "engine/scene/scene.h"
#include "platform/dx7/call_recorder.h"
#include "platform/ui/headless_ui.h"
#include "tests/support/app_fixture.h"
#include "tool/app/viewer_support.h"
#include "tool/view/viewer_scene.h"

namespace {

class ViewerRunTest : public AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        WriteWholeFile(dir.File("LastShadow.txt"), "maps/good");
    }
    void TearDown() override {
        Distance = 1290.0;
        AppFixture::TearDown();
    }

    // Frames presented so far: the windowed device copies each into the primary surface.
    int Presents() {
        if (Device) primary = DxObjectNumber(Device->primary);
        const std::string prefix = "Blt(#" + std::to_string(primary) + ",";
        const std::vector<std::string>& all = calls.Calls();
        return int(std::count_if(all.begin(), all.end(), [&](const std::string& call) {
            return call.rfind(prefix, 0) == 0;
        }));
    }

    HeadlessUi ui;
    DxCallRecorder calls;
    uint32_t primary = 0;
};

TEST_F(ViewerRunTest, ATickedBakeShowsTheViewerDrawsEachTurnAndEscapeGivesTheDialogBack) {
    HWND dialog = nullptr;
    int run = 0, pumps = 0, pressedAt = 0, presents = 0;
    double distance = 0;
    ui.AddStep([&] {
        dialog = Dialog->Window;
        EXPECT_TRUE(Enabled(dialog, IdDisplayMap));
        EXPECT_EQ(ui.Tooltip(GetDlgItem(dialog, IdDisplayMap)), "");
        Focus = {5, 0, 5};  // where an earlier run left it
        Distance = 1000;
        EXPECT_TRUE(ui.Click(dialog, IdDisplayMap));
        run = 1;
        EXPECT_TRUE(ui.Click(dialog, IdCreateShadows));
    });
    ui.SetPumpHook([&] {
        if (!ViewerActive) return;
        if (++pumps == 1) {  // right behind the bake, before the first frame
            EXPECT_TRUE(IsWindowVisible(ViewerWindow));
            EXPECT_EQ(GetFocus(), ViewerWindow);
            EXPECT_FALSE(ui.CursorVisible());
            POINT cursor;
            EXPECT_TRUE(GetCursorPos(&cursor) && cursor.x == 320 && cursor.y == 200);
            const PixelRect placed = ui.Geometry(ViewerWindow);
            EXPECT_TRUE(placed.x == 0 && placed.y == 0 && placed.width == 660 &&
                        placed.height == 510);
            EXPECT_EQ(BakeControlsEnabled(dialog), std::vector<bool>(6, false));
            // The display copy stands for the map: one two-stage mesh per mesh that has vertices.
            EXPECT_TRUE(ViewerMesh && MapMesh == ViewerMesh && ViewerMesh->firstChild);
            EXPECT_TRUE(Focus.x == 0 && Focus.z == 0) << "the focus starts at the origin";
            EXPECT_EQ(Distance, 1000.0) << "the distance is kept from run to run";
            pressedAt = Presents();
            if (run == 2) return PostQuitMessage(0);  // the program ends with the viewer up
            PostMessageA(ViewerWindow, WM_LBUTTONDOWN, 0, 0);
        } else if (pumps == 5) {
            presents = Presents() - pressedAt;
            distance = Distance;
            EXPECT_FALSE(calls.Only("DrawIndexedPrimitiveVB").empty());
            PostMessageA(ViewerWindow, WM_KEYDOWN, VK_ESCAPE, 0);
        }
    });
    ui.AddStep([&] {
        // Every turn of the loop drew one frame, the held button 10 units nearer each.
        EXPECT_GE(presents, 3);
        EXPECT_EQ(distance, 1000.0 - 10 * presents);
        EXPECT_FALSE(ViewerActive || IsWindowVisible(ViewerWindow));
        EXPECT_TRUE(ui.CursorVisible());
        EXPECT_EQ(GetFocus(), dialog);
        EXPECT_EQ(BakeControlsEnabled(dialog), std::vector<bool>(6, true));
        EXPECT_TRUE(!ViewerMesh && !MapMesh && !Camera && !Viewport && !Scene && !ShadowTexture);
        Distance = 1000, Focus = {7, 0, 7};
        run = 2, pumps = 0;
        EXPECT_TRUE(ui.Click(dialog, IdCreateShadows));
    });
    EXPECT_EQ(RunApplication(nullptr, SW_SHOWNORMAL), 0);
    EXPECT_FALSE(ui.RanOutOfSteps());
    EXPECT_EQ(Presents(), pressedAt);  // the quit came before the second run's first frame
    EXPECT_TRUE(!Device && !ViewerMesh && !MapMesh && !Camera && !Viewport && !Scene);
    EXPECT_EQ(ReadWholeFile(dir.File("maps/good/texture.dat")).size(), ShadowMapBytes);
}

}  // namespace
