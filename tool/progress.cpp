#include "tool/progress.h"

uint8_t QuitRequested = 0;

static ProgressHooks Hooks = {};

ProgressHooks SetProgressHooks(const ProgressHooks* hooks) {
    ProgressHooks previous = Hooks;
    Hooks = hooks ? *hooks : ProgressHooks{};
    return previous;
}

void SetProgress(int percent) {
    if (Hooks.setProgress) Hooks.setProgress(percent);
}

void RequestViewerRedraw() {
    if (Hooks.redrawViewer) Hooks.redrawViewer();
}

void DrainMessages() {
    if (Hooks.drainMessages && Hooks.drainMessages()) QuitRequested = 1;
}
