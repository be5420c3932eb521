// The display layer on the desktop. The 3D device draws with Qt's own GL context where the window
// system offers one (the desktop's GL: the GPU where there is one), made current on an off-screen
// surface since the device renders into its own framebuffers; where it offers none (Qt's
// offscreen platform, a remote X server without GL) the EGL context stays in force. A present
// paints the frame into the window it names.
#pragma once

#include <QOffscreenSurface>
#include <QOpenGLContext>
#include <memory>
#include <string>

#include "platform/dx7/gl_context.h"

class QtUi;

class QtGlContext final : public DxGlContext {
public:
    QtGlContext();  // needs a QGuiApplication; IsValid() says whether Qt could make the context
    bool IsValid() const { return valid; }
    bool MakeCurrent() override;
    std::string Describe() const override;

private:
    QOpenGLContext context;
    QOffscreenSurface surface;
    bool valid = false;
};

// Installs the context (when valid) and the present hook while it lives.
class QtDisplay {
public:
    explicit QtDisplay(QtUi& ui);
    ~QtDisplay();
    QtDisplay(const QtDisplay&) = delete;
    QtDisplay& operator=(const QtDisplay&) = delete;

    bool UsesQtContext() const { return context && context->IsValid(); }

private:
    static void Present(const DxFrame& frame, void* user);
    QtUi& ui;
    std::unique_ptr<QtGlContext> context;
};
