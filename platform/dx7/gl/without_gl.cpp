// A build without GL: no context can be made, and the device records without drawing.
#include "platform/dx7/gl/gl_backend.h"
#include "platform/dx7/gl_context.h"

namespace {
const std::string noGl = "this build has no OpenGL or EGL";
}

DxGlBackend* DxGlBackend::Get() {
    return nullptr;
}

DxGlContext* DxCurrentGlContext() {
    return nullptr;
}

const std::string& DxGlFailure() {
    return noGl;
}

void DxInstallGlContext(DxGlContext*) {}
