// tenebrix-view's own viewer on the screenless window system: it shows until Escape, the close box
// or a quit, and a bad shadow map leaves nothing open behind its message.
#include <functional>

#include "engine/render/renderer.h"
#include "platform/dx7/call_recorder.h"
#include "platform/ui/headless_ui.h"
#include "tests/support/app_fixture.h"
#include "tool/app/view_on_screen.h"
#include "tool/app/viewer_support.h"
#include "tool/view/viewer_scene.h"

namespace {

class ViewOnScreenTest : public AppFixture {
protected:
    void SetUp() override {
        AppFixture::SetUp();
        WriteWholeFile(dir.File("maps/good/texture.dat"), std::string(ShadowMapBytes, '\x80'));
    }
};

TEST_F(ViewOnScreenTest, ShowsUntilTheUserEndsItAndLeavesNothingOpen) {
    struct Row {
        const char* name;
        const char* shadow;
        std::function<void()> end;  // what the user does once the viewer shows
        const char* error;
    };
    const Row table[] = {
        {"escape", "maps/good/texture.dat",
         [] { PostMessageA(ViewerWindow, WM_KEYDOWN, VK_ESCAPE, 0); }, ""},
        {"close box", "maps/good/texture.dat", [] { PostMessageA(ViewerWindow, WM_CLOSE, 0, 0); },
         ""},
        {"quit", "maps/good/texture.dat", [] { PostQuitMessage(0); }, ""},
        {"no shadow map", "maps/good/none.dat", nullptr, "shadow map maps/good/none.dat: "},
    };
    for (const Row& r : table) {
        HeadlessUi ui;
        bool shown = false;
        ui.SetPumpHook([&] {
            if (!ViewerActive || shown) return;
            shown = true;
            EXPECT_TRUE(IsWindowVisible(ViewerWindow) && GetFocus() == ViewerWindow) << r.name;
            EXPECT_FALSE(ui.CursorVisible()) << r.name;
            const PixelRect placed = ui.Geometry(ViewerWindow);
            EXPECT_TRUE(placed.width == 340 && placed.height == 270) << r.name;
            r.end();
        });
        BakeView view;
        view.map = "maps/good/test.vbf", view.shadow = r.shadow;
        view.width = 320, view.height = 240;
        const std::string error = ShowBakeOnScreen(view);
        EXPECT_EQ(error.rfind(r.error, 0), 0u) << r.name << ": " << error;
        EXPECT_EQ(shown, *r.error == 0) << r.name;
        EXPECT_TRUE(!ViewerActive && !ViewerWindow && !Device && !ViewerMesh && !MapMesh &&
                    !Scene && !ShadowTexture)
            << r.name;
        EXPECT_TRUE(ui.CursorVisible()) << r.name;
    }
}

}  // namespace
