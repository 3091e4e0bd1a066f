#include "render/LVGLContext.h"

std::unique_ptr<LVGLContext> LVGLContext::makeOffscreenGLContext(QString* error) { return _make(nullptr, error); }
LVGLContext* LVGLContext::sharedGLContext(QString*) { return nullptr; }
LVGLContext::~LVGLContext() = default;
void LVGLContext::makeCurrent() {}
void LVGLContext::doneCurrent() {}
bool LVGLContext::isCurrent() const { return false; }
std::unique_ptr<LVGLContext> LVGLContext::_make(void*, QString* error)
{
    if (error)
        *error = QStringLiteral("not implemented yet");
    return nullptr;
}
