// tenebrix-view: a finished bake as the viewer shows it, drawn off screen into a picture.
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

}  // namespace

int main(int argc, char** argv) {
    ViewOptions options;
    CommandLineOutcome parsed = ParseViewOptions(argc, argv, options);
    if (!parsed.run) return PrintOutcome(parsed);
    if (options.png.empty()) {
        std::fprintf(stderr,
                     "%s: the viewer's window comes in a later version; give --png FILE for a "
                     "picture\n",
                     Program);
        return ExitUsage;
    }
    fs::path mapFile = fs::absolute(options.map);
    if (fs::is_directory(mapFile)) mapFile /= "test.vbf";
    if (!fs::is_regular_file(mapFile)) return Fail("map " + mapFile.string() + ": no such file");
    if (mapFile.extension() != ".vbf" && mapFile.extension() != ".VBF")
        return Fail("map " + mapFile.string() + ": not a .vbf map");
    const fs::path shadowFile = options.shadow.empty() ? mapFile.parent_path() / "texture.dat"
                                                       : fs::absolute(options.shadow);
    const fs::path pngFile = fs::absolute(options.png);

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
    const std::string error = DrawViewPicture(picture);
    int status = error.empty() ? 0 : Fail(error);
    if (status == 0 && ToolSession::Errors() > 0) status = ExitFailed;
    if (status == 0) std::printf("%s\n", pngFile.c_str());
    return status;
}
