#include "platform/ui/qt/qt_display.h"

#include <QImage>
#include <QOpenGLFunctions>

#include "platform/debug/debug_output.h"
#include "platform/ui/qt/qt_ui.h"

QtGlContext::QtGlContext() {
    // The device's shaders are written for a compatibility context of GL 3.0 or later. Asking
    // for a version of 3.2 or more gets a core context from some drivers whatever the profile
    // asked; asking for 2.1 gets the newest compatibility context the driver has.
    QSurfaceFormat format;
    format.setVersion(2, 1);
    format.setDepthBufferSize(24);
    format.setStencilBufferSize(8);
    context.setFormat(format);
    if (!context.create()) return;
    surface.setFormat(context.format());
    surface.create();
    valid = surface.isValid() && context.makeCurrent(&surface) &&
            context.format().majorVersion() >= 3 &&
            context.format().profile() != QSurfaceFormat::CoreProfile;
}

bool QtGlContext::MakeCurrent() {
    return valid && context.makeCurrent(&surface);
}

std::string QtGlContext::Describe() const {
    if (!valid) return "no Qt GL context";
    auto* functions = context.functions();
    auto text = [functions](GLenum name) {
        const GLubyte* value = functions->glGetString(name);
        return value ? std::string(reinterpret_cast<const char*>(value)) : std::string("?");
    };
    return text(GL_RENDERER) + ", OpenGL " + text(GL_VERSION);
}

QtDisplay::QtDisplay(QtUi& userInterface) : ui(userInterface) {
    context = std::make_unique<QtGlContext>();
    if (context->IsValid()) {
        DxInstallGlContext(context.get());
    } else {
        OutputDebugStringA("The window system has no GL context: drawing off screen through EGL\n");
    }
    DxSetPresentHook(&QtDisplay::Present, this);
}

QtDisplay::~QtDisplay() {
    DxSetPresentHook(nullptr, nullptr);
    if (context->IsValid()) DxInstallGlContext(nullptr);
}

void QtDisplay::Present(const DxFrame& frame, void* user) {
    auto* display = static_cast<QtDisplay*>(user);
    // The frame's memory belongs to the device until the call returns: the window keeps a copy.
    QImage image(reinterpret_cast<const uchar*>(frame.pixels), int(frame.width), int(frame.height),
                 int(frame.width) * 4, QImage::Format_RGB32);
    display->ui.ShowFrame(frame.window, image.copy());
}
