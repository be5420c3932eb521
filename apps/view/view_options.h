// The command line of tenebrix-view.
#pragma once

#include <string>

#include "apps/common/command_line.h"

struct ViewOptions {
    std::string map;     // a map directory holding test.vbf, or a .vbf file
    std::string shadow;  // the shadow map; default: texture.dat beside the map
    std::string png;     // the picture to write; none: the on-screen viewer
    int width = 640;
    int height = 480;
    double distance = 1290.0;  // of the camera from the focus
    double turn = 0.0;         // degrees the view turns about the focus
    double focusX = 0.0;       // the point on the ground the camera looks at
    double focusZ = 0.0;
};

// Reads the arguments into options; without a run, the outcome holds the answer to print or the
// usage error.
CommandLineOutcome ParseViewOptions(int argc, const char* const* argv, ViewOptions& options);

// "X,Z", each within a million units of the origin; false for anything else.
bool ParseFocus(const std::string& text, double& x, double& z);

// "WxH" with each side from 16 to 8192; false for anything else.
bool ParsePictureSize(const std::string& text, int& width, int& height);
