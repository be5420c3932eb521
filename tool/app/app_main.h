// The desktop application's start, its one message loop and its end, in their fixed order.
#pragma once

#include "platform/ui/win_types.h"

class SetupDialog;

extern SetupDialog* Dialog;  // the one setup dialog, from the start to the end

// Brings up the base library, the render queues, resource paths, the hidden viewer window, the
// start directory, the dialog and the display device (a bake needs none: without it the viewer
// is unavailable). Needs a window system installed (ui_backend.h); false if the dialog can't be
// made.
bool ApplicationStart(HINSTANCE instance, int showMode);

// Until a quit request: the viewer's frame, then a drain of the window messages. While the viewer
// isn't showing, it waits for events instead of spinning.
void MainLoop();

// Takes down what the start brought up, in the opposite order; the exit code.
int ApplicationEnd(HINSTANCE instance);

int RunApplication(HINSTANCE instance, int showMode);

// Runs every pending window message; true if a quit request was among them.
bool DrainWindowMessages();
