// Stand-ins for the debug output and the message box of the desktop platform.
//
// OutputDebugStringA: each piece goes to stderr when TENEBRIX_DEBUG is set in the environment, and
// to the capture while one is installed, in the order of the calls.
// MessageBoxA: the UI installs a presenter where a person can dismiss the box; without one the
// box is printed to stderr and returns at once, so nothing blocks where nobody is there.
#pragma once

#include <string>
#include <vector>

void OutputDebugStringA(const char* text);

enum : unsigned {
    MB_OK = 0x00000000,
    MB_ICONERROR = 0x00000010,
    IDOK = 1,
};

int MessageBoxA(void* owner, const char* text, const char* caption, unsigned type);

// owner: the window the box belongs to (an HWND of the window system), or null.
using MessageBoxPresenter = int (*)(void* owner, const char* text, const char* caption,
                                   unsigned type);
MessageBoxPresenter SetMessageBoxPresenter(MessageBoxPresenter presenter);

// Collects every debug output piece and message box while it lives; tests read them in order.
class DebugCapture {
public:
    DebugCapture();
    ~DebugCapture();
    DebugCapture(const DebugCapture&) = delete;
    DebugCapture& operator=(const DebugCapture&) = delete;

    const std::vector<std::string>& Pieces() const { return pieces; }
    std::string Text() const;  // all pieces joined
    const std::vector<std::string>& Boxes() const { return boxes; }  // "caption: text"
    void Clear();

private:
    friend void OutputDebugStringA(const char* text);
    friend int MessageBoxA(void*, const char*, const char*, unsigned);
    std::vector<std::string> pieces;
    std::vector<std::string> boxes;
    DebugCapture* previous;
};
