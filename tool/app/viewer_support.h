// The viewer's place in the application: its hidden window, the display device it draws on, and
// the steps it adds to a bake run while a device is open.
#pragma once

#include "platform/ui/win_types.h"

extern HWND ViewerWindow;  // created hidden at the start; null without a window system

HWND CreateViewerWindow(HINSTANCE instance);
void DestroyViewerWindow(HINSTANCE instance);
// At the screen's corner, a little larger than the frame it shows (660 by 510 for 640 by 480).
void PlaceViewerWindow(int frameWidth, int frameHeight);

// Opens Device on the viewer's window, which stays hidden, and adds the viewer's steps to every
// bake run. False where no device opens: bakes then end in the dialog, and NoViewerReason says
// why.
bool OpenViewerDevice();
// Closes a showing viewer, then the device; bakes go back to ending in the dialog.
void CloseViewerDevice();

// Whether a finished bake can be shown: a device is open.
bool ViewerAvailable();
// Why the "Display &Map when finished" box can't be ticked.
const char* NoViewerReason();
