// A finished bake opened for viewing: the display device, the scene with the viewer's camera where
// the caller puts it, and the map's display copy with its shadow map over it. The picture of
// tenebrix-view and tenebrix-bake and the on-screen viewer of tenebrix-view all start here.
#pragma once

#include <cstdint>
#include <string>

#include "tool/view/viewer_scene.h"

struct BakeView {
    std::string map;     // a .vbf or .vaf map file
    std::string shadow;  // its shadow map
    int width = ViewerWidth;
    int height = ViewerHeight;
    double distance = 1290.0;  // of the camera from the focus
    double turn = 0.0;         // degrees the view turns about the focus
    double focusX = 0.0, focusZ = 0.0;
};

// Opens Device on window (any non-null value off screen) with the map's textures looked for in
// the TEXTURE_DATA folder of Resources. "" when the view is ready to draw; else why not, with
// whatever was made left for CloseBakeView.
std::string OpenBakeView(const BakeView& view, void* window, int32_t bitsPerPixel);

// Frees what OpenBakeView made, open or half open, and closes the device.
void CloseBakeView();
