// What a long pass needs of the front end: a percentage to show, a redraw of the viewer, and a
// drain of pending user interface work that may report that the user asked to quit. The front end
// installs its hooks; without any, the pass runs silently.
#pragma once

#include <cstdint>

// Set by a quit request met in any drain; obeyed only by the main loop, never by a pass.
extern uint8_t QuitRequested;

struct ProgressHooks {
    void (*setProgress)(int percent);  // the dialog's progress bar
    void (*redrawViewer)();            // invalidate the viewer window
    bool (*drainMessages)();           // run pending UI work; true if a quit request was met
};

// Installs the hooks (null: none) and returns the previous ones.
ProgressHooks SetProgressHooks(const ProgressHooks* hooks);

void SetProgress(int percent);
void RequestViewerRedraw();
void DrainMessages();  // sets QuitRequested when the drain meets a quit request

// Unlike a quit request, a cancel stops a bake pass between rows, and the pass then writes no
// file. The command line asks for it on an interrupt; RequestCancel is safe in a signal handler.
void RequestCancel();
bool CancelRequested();
void ClearCancel();
