#pragma once
// One EGL context for OpenGL 3.3 core with no window: surfaceless Mesa first, the EGL device
// platform as fallback. Contexts made here share objects with the process-wide shared one.
#include <QString>

#include <memory>

class LVGLContext {
public:
    // A new context sharing objects with sharedGLContext(); null with the failing call in error.
    static std::unique_ptr<LVGLContext> makeOffscreenGLContext(QString* error);
    // The process-wide context every other one shares with, made on first call.
    static LVGLContext* sharedGLContext(QString* error);
    ~LVGLContext();
    LVGLContext(const LVGLContext&) = delete;
    LVGLContext& operator=(const LVGLContext&) = delete;

    void makeCurrent();
    void doneCurrent();
    bool isCurrent() const;
    void* eglContext() const { return context_; }

private:
    LVGLContext() = default;
    static std::unique_ptr<LVGLContext> _make(void* share, QString* error);
    void* context_ = nullptr;
};
