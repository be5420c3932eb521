// The off-screen GL context: EGL without a window system, made current with no surface.
#include "platform/dx7/gl_context.h"

#include "platform/dx7/gl/gl_offscreen.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GL/gl.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace {

std::string Failure;
DxGlContext* Installed = nullptr;

std::string Hex(EGLint value) {
    char text[16];
    snprintf(text, sizeof text, "0x%04X", unsigned(value));
    return text;
}

bool HasWord(const char* list, const char* word) {
    size_t length = strlen(word);
    for (const char* p = list ? strstr(list, word) : nullptr; p; p = strstr(p + 1, word)) {
        bool starts = p == list || p[-1] == ' ';
        if (starts && (p[length] == ' ' || p[length] == 0)) return true;
    }
    return false;
}

class EglContext : public DxGlContext {
public:
    EglContext(EGLDisplay d, EGLContext c) : display(d), context(c) {}
    ~EglContext() override {
        if (eglGetCurrentContext() == context)
            eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
        eglDestroyContext(display, context);
    }

    bool MakeCurrent() override {
        if (eglGetCurrentContext() == context) return true;
        return eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context) == EGL_TRUE;
    }

    std::string Describe() const override {
        const char* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
        const char* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
        return std::string(renderer ? renderer : "?") + ", OpenGL " + (version ? version : "?");
    }

    bool Software() const {
        const char* renderer = reinterpret_cast<const char*>(glGetString(GL_RENDERER));
        return !renderer || strstr(renderer, "llvmpipe") || strstr(renderer, "softpipe") ||
               strstr(renderer, "Software");
    }

private:
    EGLDisplay display;
    EGLContext context;
};

// A compatibility context current without a surface, or null with the reason in why.
EglContext* MakeContext(EGLDisplay display, std::string& why) {
    EGLint major = 0, minor = 0;
    if (display == EGL_NO_DISPLAY) {
        why = "no display";
        return nullptr;
    }
    if (!eglInitialize(display, &major, &minor)) {
        why = "eglInitialize failed (" + Hex(eglGetError()) + ")";
        return nullptr;
    }
    const char* extensions = eglQueryString(display, EGL_EXTENSIONS);
    if (!HasWord(extensions, "EGL_KHR_surfaceless_context")) {
        why = "no EGL_KHR_surfaceless_context";
        return nullptr;
    }
    if (!eglBindAPI(EGL_OPENGL_API)) {
        why = "desktop OpenGL is not offered";
        return nullptr;
    }
    EGLConfig config = EGL_NO_CONFIG_KHR;
    if (!HasWord(extensions, "EGL_KHR_no_config_context")) {
        const EGLint wanted[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_SURFACE_TYPE,
                                 EGL_PBUFFER_BIT, EGL_NONE};
        EGLint count = 0;
        if (!eglChooseConfig(display, wanted, &config, 1, &count) || count < 1) {
            why = "no configuration for desktop OpenGL";
            return nullptr;
        }
    }
    // Fixed-function calls stay legal in a compatibility profile, and client-side vertex arrays
    // with them; the shaders we generate need 3.0.
    const EGLint attributes[] = {EGL_CONTEXT_OPENGL_PROFILE_MASK,
                                 EGL_CONTEXT_OPENGL_COMPATIBILITY_PROFILE_BIT, EGL_NONE};
    EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, attributes);
    if (context == EGL_NO_CONTEXT)
        context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
    if (context == EGL_NO_CONTEXT) {
        why = "eglCreateContext failed (" + Hex(eglGetError()) + ")";
        return nullptr;
    }
    if (!eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context)) {
        why = "eglMakeCurrent without a surface failed (" + Hex(eglGetError()) + ")";
        eglDestroyContext(display, context);
        return nullptr;
    }
    auto* made = new EglContext(display, context);
    const char* version = reinterpret_cast<const char*>(glGetString(GL_VERSION));
    if (!version || version[0] < '3' || version[1] != '.') {
        why = std::string("OpenGL 3.0 or later needed, the context has ") +
              (version ? version : "none");
        delete made;
        return nullptr;
    }
    return made;
}

// Mesa's surfaceless platform first, then a GPU's EGL device, then the default display. A
// software renderer is kept only while no later way gives hardware, since a machine with a GPU
// may have Mesa beside its driver.
EglContext* MakeOffscreen() {
    const char* client = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    auto getPlatformDisplay = reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(
        eglGetProcAddress("eglGetPlatformDisplayEXT"));
    auto queryDevices =
        reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));

    EglContext* kept = nullptr;
    std::string reasons;
    auto attempt = [&](const char* name, EGLDisplay display) {
        if (kept && !kept->Software()) return;
        std::string why;
        EglContext* made = MakeContext(display, why);
        if (!made) {
            reasons += std::string(reasons.empty() ? "" : "; ") + name + ": " + why;
            if (kept) kept->MakeCurrent();
            return;
        }
        if (kept && made->Software()) {
            delete made;
            kept->MakeCurrent();
            return;
        }
        delete kept;
        kept = made;
        kept->MakeCurrent();
    };

    if (getPlatformDisplay && HasWord(client, "EGL_MESA_platform_surfaceless"))
        attempt("surfaceless",
                getPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr));
    if (getPlatformDisplay && queryDevices && HasWord(client, "EGL_EXT_platform_device")) {
        EGLDeviceEXT device = nullptr;
        EGLint count = 0;
        if (queryDevices(1, &device, &count) && count > 0)
            attempt("device", getPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, device, nullptr));
    }
    attempt("default display", eglGetDisplay(EGL_DEFAULT_DISPLAY));
    if (!kept) Failure = "no OpenGL context could be made (" + reasons + ")";
    return kept;
}

}  // namespace

namespace {
EglContext* Offscreen() {
    static EglContext* offscreen = MakeOffscreen();
    return offscreen;
}
}  // namespace

DxGlContext* DxCurrentGlContext() {
    return Installed ? Installed : Offscreen();
}

bool DxGlIsOffscreen(const DxGlContext* context) {
    return context && !Installed && context == Offscreen();
}

const std::string& DxGlFailure() {
    return Failure;
}

void DxInstallGlContext(DxGlContext* context) {
    Installed = context;
}
