// What the rest of the application needs to know of the viewer before it exists: whether a
// display device is open to show a finished bake on, and the viewer's hidden window.
#pragma once

#include "platform/ui/win_types.h"

// False until a display device opens; this build has none, so a bake always ends in the dialog.
bool ViewerAvailable();

// Why the "Display &Map when finished" box can't be ticked while there is no device.
extern const char* const NoViewerReason;

extern HWND ViewerWindow;  // created hidden at the start; null without a window system

HWND CreateViewerWindow(HINSTANCE instance);
void DestroyViewerWindow(HINSTANCE instance);
