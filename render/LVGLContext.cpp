#include "render/LVGLContext.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>

#include <cstring>

#include "core/util/LVLog.h"
#include "render/LVGL.h"
#include "render/LVQuad.h"

namespace {

QString eglErrorText(const char* call)
{
    return QStringLiteral("%1: EGL error 0x%2").arg(QString::fromLatin1(call)).arg(eglGetError(), 4, 16, QLatin1Char('0'));
}

bool hasExtension(const char* list, const char* name)
{
    if (!list)
        return false;
    const size_t n = strlen(name);
    for (const char* p = strstr(list, name); p; p = strstr(p + n, name))
        if ((p == list || p[-1] == ' ') && (p[n] == ' ' || p[n] == '\0'))
            return true;
    return false;
}

// The display is made once and kept for the life of the process; EGL objects made on it
// (contexts) are destroyed one by one.
struct Display {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLConfig config = nullptr;
    QString error;
};

EGLDisplay openSurfaceless(QString* error)
{
    const char* clientExts = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
    if (!hasExtension(clientExts, "EGL_MESA_platform_surfaceless")) {
        *error = QStringLiteral("eglQueryString: EGL_MESA_platform_surfaceless is not supported");
        return EGL_NO_DISPLAY;
    }
    EGLDisplay d = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    if (d == EGL_NO_DISPLAY)
        *error = eglErrorText("eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA)");
    return d;
}

EGLDisplay openDevice(QString* error)
{
    auto queryDevices = reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
    if (!queryDevices) {
        *error = QStringLiteral("eglGetProcAddress: eglQueryDevicesEXT is not available");
        return EGL_NO_DISPLAY;
    }
    EGLDeviceEXT devices[8];
    EGLint count = 0;
    if (!queryDevices(8, devices, &count) || count == 0) {
        *error = QStringLiteral("eglQueryDevicesEXT: no EGL device");
        return EGL_NO_DISPLAY;
    }
    for (EGLint i = 0; i < count; ++i) {
        EGLDisplay d = eglGetPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr);
        if (d != EGL_NO_DISPLAY) {
            EGLint major = 0, minor = 0;
            if (eglInitialize(d, &major, &minor))
                return d;
        }
    }
    *error = eglErrorText("eglGetPlatformDisplay(EGL_PLATFORM_DEVICE_EXT)");
    return EGL_NO_DISPLAY;
}

Display& display()
{
    static Display shared = [] {
        Display r;
        QString surfacelessError, deviceError;
        EGLint major = 0, minor = 0;
        EGLDisplay d = openSurfaceless(&surfacelessError);
        if (d != EGL_NO_DISPLAY && !eglInitialize(d, &major, &minor)) {
            surfacelessError = eglErrorText("eglInitialize(surfaceless)");
            d = EGL_NO_DISPLAY;
        }
        if (d == EGL_NO_DISPLAY)
            d = openDevice(&deviceError);
        if (d == EGL_NO_DISPLAY) {
            r.error = QStringLiteral("no EGL display (%1; %2)").arg(surfacelessError, deviceError);
            return r;
        }
        if (!eglBindAPI(EGL_OPENGL_API)) {
            r.error = eglErrorText("eglBindAPI(EGL_OPENGL_API)");
            return r;
        }
        const char* exts = eglQueryString(d, EGL_EXTENSIONS);
        if (!hasExtension(exts, "EGL_KHR_surfaceless_context")) {
            r.error = QStringLiteral("eglQueryString: EGL_KHR_surfaceless_context is not supported");
            return r;
        }
        const EGLint attrs[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_SURFACE_TYPE, EGL_DONT_CARE,
                                EGL_RED_SIZE, 8, EGL_GREEN_SIZE, 8, EGL_BLUE_SIZE, 8, EGL_ALPHA_SIZE, 8, EGL_NONE};
        EGLint n = 0;
        if (!eglChooseConfig(d, attrs, &r.config, 1, &n) || n == 0) {
            if (!hasExtension(exts, "EGL_KHR_no_config_context")) {
                r.error = eglErrorText("eglChooseConfig");
                return r;
            }
            r.config = EGL_NO_CONFIG_KHR;
        }
        r.display = d;
        return r;
    }();
    return shared;
}

} // namespace

std::unique_ptr<LVGLContext> LVGLContext::_make(void* share, QString* error)
{
    Display& d = display();
    if (d.display == EGL_NO_DISPLAY) {
        if (error)
            *error = d.error;
        return nullptr;
    }
    // The client API is per thread, and capture threads make contexts too.
    if (!eglBindAPI(EGL_OPENGL_API)) {
        if (error)
            *error = eglErrorText("eglBindAPI(EGL_OPENGL_API)");
        return nullptr;
    }
    const EGLint attrs[] = {EGL_CONTEXT_MAJOR_VERSION, 3, EGL_CONTEXT_MINOR_VERSION, 3,
                            EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT, EGL_NONE};
    EGLContext ctx = eglCreateContext(d.display, d.config, share ? share : EGL_NO_CONTEXT, attrs);
    if (ctx == EGL_NO_CONTEXT) {
        if (error)
            *error = eglErrorText("eglCreateContext(OpenGL 3.3 core)");
        return nullptr;
    }
    std::unique_ptr<LVGLContext> r(new LVGLContext);
    r->context_ = ctx;
    return r;
}

LVGLContext* LVGLContext::sharedGLContext(QString* error)
{
    // Kept for the life of the process: everything shared lives in its share group.
    static QString failure;
    static LVGLContext* shared = _make(nullptr, &failure).release();
    if (!shared && error)
        *error = failure;
    return shared;
}

std::unique_ptr<LVGLContext> LVGLContext::makeOffscreenGLContext(QString* error)
{
    LVGLContext* shared = sharedGLContext(error);
    if (!shared)
        return nullptr;
    return _make(shared->context_, error);
}

LVGLContext::~LVGLContext()
{
    EGLDisplay d = display().display;
    EGLContext previous = eglGetCurrentContext();
    if (eglMakeCurrent(d, EGL_NO_SURFACE, EGL_NO_SURFACE, context_))
        LVQuadRelease(context_);
    if (previous != context_ && previous != EGL_NO_CONTEXT)
        eglMakeCurrent(d, EGL_NO_SURFACE, EGL_NO_SURFACE, previous);
    else
        eglMakeCurrent(d, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    eglDestroyContext(d, context_);
}

void LVGLContext::makeCurrent()
{
    if (eglGetCurrentContext() == context_)
        return;
    if (!eglMakeCurrent(display().display, EGL_NO_SURFACE, EGL_NO_SURFACE, context_))
        LVLog("%s", qPrintable(eglErrorText("eglMakeCurrent")));
}

void LVGLContext::doneCurrent()
{
    if (eglGetCurrentContext() == context_)
        eglMakeCurrent(display().display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
}

bool LVGLContext::isCurrent() const
{
    return eglGetCurrentContext() == context_;
}
