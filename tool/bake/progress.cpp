#include "tool/bake/progress.h"

#include <atomic>

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

static std::atomic<bool> Cancelled{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the flag is set from a signal handler");

void RequestCancel() {
    Cancelled.store(true);
}

bool CancelRequested() {
    return Cancelled.load(std::memory_order_relaxed);
}

void ClearCancel() {
    Cancelled.store(false);
}
