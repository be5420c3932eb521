// tenebrix-view: a finished bake as the viewer shows it, on screen or drawn off screen into a
// picture.
#ifdef TENEBRIX_VIEW_ON_SCREEN
#include <QApplication>

#include "apps/common/display_check.h"
#include "platform/ui/qt/qt_display.h"
#include "platform/ui/qt/qt_ui.h"
#include "tool/app/view_on_screen.h"
#endif

#include <cstdio>
#include <filesystem>
#include <string>

#include "apps/common/tool_session.h"
#include "apps/view/view_options.h"
#include "base/memory.h"
#include "base/resmanager.h"
#include "engine/texture/texture_lookup.h"
#include "platform/crt/paths.h"
#include "platform/dx7/call_recorder.h"
#include "tool/maps/tool_load_texture.h"
#include "tool/run/app_state.h"
#include "tool/view/view_picture.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* Program = "tenebrix-view";

int Fail(const std::string& message) {
    std::fprintf(stderr, "%s: error: %s\n", Program, message.c_str());
    return ExitFailed;
}

// The map's textures come through the TEXTURE_DATA folder of the resource.cfg beside it, which
// is relative to the map's folder.
void UseMapResources(const fs::path& folder) {
    _chdir(folder.c_str());
    if (fs::is_regular_file("resource.cfg")) Resources = NEW ResourceManager("resource.cfg");
    SetToolResourceManager(Resources);
    SetTextureLoadFunction(ToolLoadTexture);
}

// The viewer's window until Escape; the shadow map and map are read once the window system runs.
int ShowOnScreen(const BakeView& view) {
#ifdef TENEBRIX_VIEW_ON_SCREEN
    static const char* const ToolkitWords[] = {Program, nullptr};
    if (DisplayMissing(1, ToolkitWords))
        return Fail(
            "no display to show the viewer on (DISPLAY is not set); give --png FILE to "
            "draw a picture off screen instead");
    int toolkitCount = 1;  // the toolkit takes no options of ours
    QApplication application(toolkitCount, const_cast<char**>(ToolkitWords));
    QtUi ui;
    QtDisplay display(ui);
    const std::string error = ShowBakeOnScreen(view);
    return error.empty() ? 0 : Fail(error);
#else
    (void)view;
    return Fail("this build has no window system to show the viewer on; give --png FILE");
#endif
}

}  // namespace

int main(int argc, char** argv) {
    ViewOptions options;
    CommandLineOutcome parsed = ParseViewOptions(argc, argv, options);
    if (!parsed.run) return PrintOutcome(parsed);
    fs::path mapFile = fs::absolute(options.map);
    if (fs::is_directory(mapFile)) mapFile /= "test.vbf";
    if (!fs::is_regular_file(mapFile)) return Fail("map " + mapFile.string() + ": no such file");
    if (mapFile.extension() != ".vbf" && mapFile.extension() != ".VBF")
        return Fail("map " + mapFile.string() + ": not a .vbf map");
    const fs::path shadowFile = options.shadow.empty() ? mapFile.parent_path() / "texture.dat"
                                                       : fs::absolute(options.shadow);
    const fs::path pngFile = options.png.empty() ? fs::path() : fs::absolute(options.png);

    ToolSessionOptions session;
    session.program = Program;
    ToolSession running(session);
    DxSetRendering(DxRendering::GlWhenAvailable);
    UseMapResources(mapFile.parent_path());
    ViewPicture picture;
    picture.map = mapFile.string();
    picture.shadow = shadowFile.string();
    picture.png = pngFile.string();
    picture.width = options.width, picture.height = options.height;
    picture.distance = options.distance, picture.turn = options.turn;
    picture.focusX = options.focusX, picture.focusZ = options.focusZ;
    if (options.png.empty()) return ShowOnScreen(picture);
    const std::string error = DrawViewPicture(picture);
    int status = error.empty() ? 0 : Fail(error);
    if (status == 0 && ToolSession::Errors() > 0) status = ExitFailed;
    if (status == 0) std::printf("%s\n", pngFile.c_str());
    return status;
}
