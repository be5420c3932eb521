// One frame of a finished bake as the viewer shows it, drawn off screen into a PNG: what
// tenebrix-view draws, and tenebrix-bake behind a bake.
#pragma once

#include <string>

#include "tool/view/bake_view.h"

struct ViewPicture : BakeView {
    std::string png;  // the picture, written under a temporary name and renamed
};

// Opens the display device off screen, draws the frame, writes the picture and closes the device
// again. The map's textures are looked for in the TEXTURE_DATA folder of Resources, relative to
// the current directory. "" when the picture was written; else why not.
std::string DrawViewPicture(const ViewPicture& picture);
