#include "platform/debug/debug_output.h"

#include <cstdio>
#include <cstdlib>

static DebugCapture* ActiveCapture = nullptr;
static MessageBoxPresenter Presenter = nullptr;

static bool DebugToStderr() {
    static const bool enabled = std::getenv("TENEBRIX_DEBUG") != nullptr;
    return enabled;
}

void OutputDebugStringA(const char* text) {
    if (!text) return;
    if (ActiveCapture) ActiveCapture->pieces.emplace_back(text);
    if (DebugToStderr()) std::fputs(text, stderr);
}

int MessageBoxA(void* owner, const char* text, const char* caption, unsigned type) {
    text = text ? text : "";
    caption = caption ? caption : "";
    if (ActiveCapture) ActiveCapture->boxes.push_back(std::string(caption) + ": " + text);
    if (Presenter) return Presenter(owner, text, caption, type);
    std::fprintf(stderr, "%s: %s\n", caption, text);
    return IDOK;
}

MessageBoxPresenter SetMessageBoxPresenter(MessageBoxPresenter presenter) {
    MessageBoxPresenter previous = Presenter;
    Presenter = presenter;
    return previous;
}

DebugCapture::DebugCapture() : previous(ActiveCapture) { ActiveCapture = this; }

DebugCapture::~DebugCapture() { ActiveCapture = previous; }

std::string DebugCapture::Text() const {
    std::string all;
    for (const std::string& piece : pieces) all += piece;
    return all;
}

void DebugCapture::Clear() {
    pieces.clear();
    boxes.clear();
}
