// Where the 3D device's GL calls go, and where a presented frame goes.
//
// Off screen (tests, pictures, command line tools) the context comes from EGL without any window
// system: Mesa's surfaceless platform, or a GPU's EGL device. On screen the UI installs the
// context of its GL widget before the device is made. The device renders into its own
// framebuffer object either way, so a context never needs a window surface.
#pragma once

#include <cstdint>
#include <string>

#include "platform/dx7/ddraw7.h"

class DxGlContext {
public:
    virtual ~DxGlContext() = default;
    virtual bool MakeCurrent() = 0;
    virtual std::string Describe() const = 0;  // renderer and version, for logs and reports
};

// The context in force: the one the UI installed, else the off-screen one, made on first use.
// Null where no GL context can be made; DxGlFailure() then says why.
DxGlContext* DxCurrentGlContext();
const std::string& DxGlFailure();
void DxInstallGlContext(DxGlContext* context);  // null goes back to the off-screen one

// A present (Flip, or Blt to a primary surface) hands the frame over: rows from the top, 32-bit
// pixels 0xAARRGGBB (alpha 255). Without a hook the frame is dropped.
struct DxFrame {
    HWND window;
    const uint32_t* pixels;
    DWORD width;
    DWORD height;
};
using DxPresentHook = void (*)(const DxFrame& frame, void* user);
void DxSetPresentHook(DxPresentHook hook, void* user);
