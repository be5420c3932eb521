// A finished bake in the viewer's own window, with no dialog behind it: tenebrix-view's viewer.
#pragma once

#include <string>

#include "tool/view/bake_view.h"

// Shows the view until Escape, the window's close box or a quit request; needs a window system
// installed (ui_backend.h). "" when it was shown; else why not, with nothing left open.
std::string ShowBakeOnScreen(const BakeView& view);
