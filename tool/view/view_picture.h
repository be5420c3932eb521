// One frame of a finished bake as the viewer shows it, drawn off screen into a PNG: what
// tenebrix-view draws, and tenebrix-bake behind a bake.
#pragma once

#include <string>

#include "tool/view/viewer_scene.h"

struct ViewPicture {
    std::string map;     // a .vbf or .vaf map file
    std::string shadow;  // its shadow map
    std::string png;     // the picture, written under a temporary name and renamed
    int width = ViewerWidth;
    int height = ViewerHeight;
    double distance = 1290.0;  // of the camera from the focus
    double turn = 0.0;         // degrees the view turns about the focus
    double focusX = 0.0, focusZ = 0.0;
};

// Opens the display device off screen, draws the frame, writes the picture and closes the device
// again. The map's textures are looked for in the TEXTURE_DATA folder of Resources, relative to
// the current directory. "" when the picture was written; else why not.
std::string DrawViewPicture(const ViewPicture& picture);
