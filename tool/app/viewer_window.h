// The viewer's window procedure: the keys, the mouse and the end of the viewer.
#pragma once

#include "platform/ui/win_types.h"

LRESULT ViewerProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// Shows the viewer: the cursor hidden and held at its centre, the window shown with the focus.
void StartViewer();

// Hides the window, gives the dialog back and frees the run's viewer objects.
void CloseViewer();
