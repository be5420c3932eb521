#include "apps/view/view_options.h"

#include <cmath>
#include <cstdio>

namespace {

const char* Summary =
    "Shows a baked map with its shadow map laid over it, from the viewer's camera: looking "
    "about 50 degrees down at the focus, by default the map's corner at the origin. MAP is a "
    "map directory holding test.vbf (and resource.cfg for its textures), or a .vbf file. Without "
    "--png the viewer's window opens: move the mouse to pan, with Shift to turn, hold the left "
    "or right button to come nearer or go back; K and L with the mouse turn the light for the "
    "next bake, Space prints the focus and distance, Escape ends. With --png one frame is drawn "
    "off screen into a picture, with no display needed.";

const char* Footer =
    "Exit status: 0 when the picture was written or the viewer closed, 1 when the map, the "
    "shadow map, the display, the display device or the picture failed, 2 for a usage error.";

}  // namespace

bool ParsePictureSize(const std::string& text, int& width, int& height) {
    int w = 0, h = 0, used = 0;
    if (std::sscanf(text.c_str(), "%5dx%5d%n", &w, &h, &used) != 2 || used != int(text.size()))
        return false;
    if (w < 16 || w > 8192 || h < 16 || h > 8192) return false;
    width = w, height = h;
    return true;
}

bool ParseFocus(const std::string& text, double& x, double& z) {
    double a = 0, b = 0;
    int used = 0;
    if (std::sscanf(text.c_str(), "%lf,%lf%n", &a, &b, &used) != 2 || used != int(text.size()))
        return false;
    if (!(std::fabs(a) <= 1e6 && std::fabs(b) <= 1e6)) return false;
    x = a, z = b;
    return true;
}

CommandLineOutcome ParseViewOptions(int argc, const char* const* argv, ViewOptions& options) {
    CommandLine line("tenebrix-view", Summary, Footer);
    CLI::App& app = line.app;
    app.add_option("MAP", options.map, "the baked map")->type_name("");
    line.Path("--shadow", options.shadow, "FILE",
              "the shadow map file (default: texture.dat beside the map)");
    line.Path("--png", options.png, "FILE", "draw one frame off screen into this PNG and exit");
    std::string size = "640x480";
    app.add_option("--size", size, "the frame's width and height, 16 to 8192 each")
        ->type_name("WxH")
        ->capture_default_str()
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                int w, h;
                return ParsePictureSize(text, w, h) ? "" : text + " is no size WxH";
            },
            ""));
    line.Real("--distance", options.distance, -100000, true, 100000,
              "the camera's distance from the focus in world units")
        ->capture_default_str();
    line.Real("--turn", options.turn, -360, true, 360,
              "degrees the view turns about the focus, as the mouse with Shift turns it")
        ->capture_default_str();
    std::string focus = "0,0";
    app.add_option("--focus", focus,
                   "the point on the ground the camera looks at (the map runs towards +x and -z "
                   "from the origin)")
        ->type_name("X,Z")
        ->capture_default_str()
        ->check(CLI::Validator(
            [](std::string& text) -> std::string {
                double x, z;
                return ParseFocus(text, x, z) ? "" : text + " is no point X,Z";
            },
            ""));
    return line.Parse(argc, argv, [&]() -> std::string {
        ParsePictureSize(size, options.width, options.height);
        ParseFocus(focus, options.focusX, options.focusZ);
        return options.map.empty() ? "no map given" : "";
    });
}
