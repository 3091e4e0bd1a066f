#include "render/LVContext.h"

#include "render/LVGLContext.h"

namespace {
std::function<QSize()>& sizeProvider()
{
    static std::function<QSize()> provider = [] { return QSize(320, 240); };
    return provider;
}
int gWidth = 0;
int gHeight = 0;
}

class LVPBuffer {};

void LVSetVideoSizeProvider(std::function<QSize()> provider) { sizeProvider() = std::move(provider); }

static void loadVideoSize()
{
    if (gWidth != 0)
        return;
    QSize s = sizeProvider()();
    gWidth = s.width();
    gHeight = s.height();
}
int LVGetWidth() { loadVideoSize(); return gWidth; }
int LVGetHeight() { loadVideoSize(); return gHeight; }

std::unique_ptr<LVContext> LVContext::create(QString* error)
{
    if (error)
        *error = QStringLiteral("not implemented yet");
    return nullptr;
}
LVContext::~LVContext() = default;
void LVContext::makeCurrent() {}
LVGLContext& LVContext::oglCtx() { return *oglCtx_; }
void LVContext::reset(bool) {}
void LVContext::flush() {}
GLuint LVContext::framebuffer() { return 0; }
LVTexture LVContext::texture() { return {}; }
void LVContext::fetchOpenGLPixels(void*, int) {}
void LVContext::drawTexture(const LVTexture&, QRectF, QRectF) {}
void LVContext::renderToCurrentTarget(bool, bool) {}
GLuint LVContext::textureFromImage(const QImage&, int*, int*) { return 0; }
void LVContext::clearContext(float, float, float, float) {}
void LVContext::drawTexture(const LVTexture&, QRectF, QRectF, bool, bool) {}
void LVContext::drawCVTexture(const LVTexture&, bool, bool, bool) {}
void LVContext::_readRenderer() {}

LVOffscreenContext::LVOffscreenContext(int32_t width, int32_t height)
    : cgcontext_(LVUtil::newBitmapContext(width, height, LVPixelFormatPremultipliedFirst))
{
}
void LVOffscreenContext::clear(bool) {}
