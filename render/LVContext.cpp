#include "render/LVContext.h"

#include <chrono>
#include <cmath>
#include <cstring>
#include <map>
#include <vector>

#include "core/util/LVLog.h"
#include "render/LVGLContext.h"
#include "render/LVQuad.h"

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>

namespace {

std::function<QSize()>& sizeProvider()
{
    static std::function<QSize()> provider = [] { return QSize(320, 240); };
    return provider;
}
int gWidth = 0;
int gHeight = 0;

void loadVideoSize()
{
    if (gWidth != 0)
        return;
    const QSize s = sizeProvider()();
    gWidth = s.width();
    gHeight = s.height();
}

using Clock = std::chrono::steady_clock;

std::function<Clock::time_point()>& poolClock()
{
    static std::function<Clock::time_point()> clock = &Clock::now;
    return clock;
}

} // namespace

void LVSetFramePoolClock(std::function<Clock::time_point()> clock)
{
    poolClock() = clock ? std::move(clock) : std::function<Clock::time_point()>(&Clock::now);
}

void LVSetVideoSizeProvider(std::function<QSize()> provider)
{
    sizeProvider() = std::move(provider);
}

int LVGetWidth()
{
    loadVideoSize();
    return gWidth;
}

int LVGetHeight()
{
    loadVideoSize();
    return gHeight;
}

// One frame's render target: a colour texture of the video size, shared by every context.
class LVPBuffer {
public:
    GLuint texture = 0;
    int width = 0;
    int height = 0;
    Clock::time_point released;
};

// Recycles render targets. A target still held by a texture handed out is never reused; one
// that waited unused for more than half a second is freed the next time a target is taken.
class LVPBufferPool {
public:
    static LVPBufferPool& shared()
    {
        static LVPBufferPool pool;
        return pool;
    }

    std::shared_ptr<LVPBuffer> take(int width, int height)
    {
        const Clock::time_point now = poolClock()();
        for (auto it = free_.begin(); it != free_.end();) {
            if (it->use_count() == 1 && now - (*it)->released > kMaxAge) {
                glDeleteTextures(1, &(*it)->texture);
                it = free_.erase(it);
            } else {
                ++it;
            }
        }
        for (auto it = free_.rbegin(); it != free_.rend(); ++it) {
            if (it->use_count() == 1 && (*it)->width == width && (*it)->height == height) {
                std::shared_ptr<LVPBuffer> found = std::move(*it);
                free_.erase(std::next(it).base());
                return found;
            }
        }
        // An error an earlier call left behind is not this allocation's.
        while (glGetError() != GL_NO_ERROR) {
        }
        auto made = std::make_shared<LVPBuffer>();
        made->width = width;
        made->height = height;
        glGenTextures(1, &made->texture);
        glBindTexture(GL_TEXTURE_2D, made->texture);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        glBindTexture(GL_TEXTURE_2D, 0);
        if (!LVCheckGLError("glTexImage2D(frame)")) {
            glDeleteTextures(1, &made->texture);
            return nullptr;
        }
        return made;
    }

    // The recycled target that is buffer, out of the pool again; none when it is not there.
    std::shared_ptr<LVPBuffer> reclaim(const void* buffer)
    {
        for (auto it = free_.begin(); it != free_.end(); ++it) {
            if (it->get() == buffer) {
                std::shared_ptr<LVPBuffer> found = std::move(*it);
                free_.erase(it);
                return found;
            }
        }
        return nullptr;
    }

    void recycle(std::shared_ptr<LVPBuffer> buffer)
    {
        if (!buffer)
            return;
        buffer->released = poolClock()();
        free_.push_back(std::move(buffer));
    }

private:
    static constexpr std::chrono::milliseconds kMaxAge{500};
    std::vector<std::shared_ptr<LVPBuffer>> free_;
};

std::unique_ptr<LVContext> LVContext::create(QString* error)
{
    return create(QSize(LVGetWidth(), LVGetHeight()), error);
}

std::unique_ptr<LVContext> LVContext::create(QSize size, QString* error)
{
    if (size.width() <= 0 || size.height() <= 0) {
        if (error)
            *error = QStringLiteral("LVContext: invalid video size %1x%2").arg(size.width()).arg(size.height());
        return nullptr;
    }
    std::unique_ptr<LVGLContext> gl = LVGLContext::makeOffscreenGLContext(error);
    if (!gl)
        return nullptr;
    std::unique_ptr<LVContext> ctx(new LVContext);
    ctx->width_ = size.width();
    ctx->height_ = size.height();
    ctx->oglCtx_ = std::move(gl);
    ctx->oglCtx_->makeCurrent();

    // Colour only: nothing tests depth, and a depth buffer would cost a full-frame clear a frame.
    glGenFramebuffers(1, &ctx->fbo_);
    glBindFramebuffer(GL_FRAMEBUFFER, ctx->fbo_);
    glViewport(0, 0, ctx->width_, ctx->height_);
    glEnable(GL_BLEND);
    // Alpha composes "over", so a frame that starts opaque stays opaque.
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    GLint extensions = 0;
    glGetIntegerv(GL_NUM_EXTENSIONS, &extensions);
    for (GLint i = 0; i < extensions; ++i)
        if (std::strcmp(reinterpret_cast<const char*>(glGetStringi(GL_EXTENSIONS, GLuint(i))), "GL_MESA_pack_invert") == 0)
            ctx->hasPackInvert_ = ctx->packInvert_ = true;
    if (!LVCheckGLError("LVContext::create")) {
        if (error)
            *error = QStringLiteral("LVContext::create: GL error while making the frame buffer");
        return nullptr;
    }
    return ctx;
}

LVContext::~LVContext()
{
    if (!oglCtx_)
        return;
    oglCtx_->makeCurrent();
    LVPBufferPool::shared().recycle(std::move(oglPBuff_));
    glDeleteFramebuffers(1, &fbo_);
    if (copyFbo_)
        glDeleteFramebuffers(1, &copyFbo_);
}

void LVContext::makeCurrent()
{
    oglCtx_->makeCurrent();
}

LVGLContext& LVContext::oglCtx()
{
    _readRenderer();
    return *oglCtx_;
}

void LVContext::_bindTarget()
{
    makeCurrent();
    glBindFramebuffer(GL_FRAMEBUFFER, fbo_);
    glViewport(0, 0, width_, height_);
}

void LVContext::_takeTarget()
{
    renderer_ = nullptr;
    uncleared_ = false;
    makeCurrent();
    // Recycled first: the frame just left may be the one taken again.
    LVPBufferPool::shared().recycle(std::move(oglPBuff_));
    _useTarget(LVPBufferPool::shared().take(width_, height_));
    if (!oglPBuff_)
        LVLog("NIL pbuff!");
}

void LVContext::_useTarget(std::shared_ptr<LVPBuffer> target)
{
    oglPBuff_ = std::move(target);
    _bindTarget();
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, oglPBuff_ ? oglPBuff_->texture : 0, 0);
}

void LVContext::reset(bool transparent, bool firstDrawOverwrites)
{
    if (firstDrawOverwrites && !transparent) {
        resetUncleared();
        return;
    }
    _takeTarget();
    if (oglPBuff_)
        clearContext(0, 0, 0, transparent ? 0 : 1);
}

void LVContext::resetUncleared()
{
    _takeTarget();
    // On a software rasteriser a clear is a full-frame write of its own.
    uncleared_ = oglPBuff_ != nullptr;
}

void LVContext::flush()
{
    makeCurrent();
    glFlush();
}

void LVContext::_readRenderer()
{
    LVPendingRenderer* r = renderer_;
    renderer_ = nullptr;
    if (uncleared_) {
        uncleared_ = false;
        if (!r || !r->coversEveryPixel()) {
            _bindTarget();
            clearContext(0, 0, 0, 1);
        }
    }
    if (!r)
        return;
    _bindTarget();
    r->drawPendingOutput(*this);
}

GLuint LVContext::framebufferToOverwrite()
{
    if (!renderer_) uncleared_ = false;
    return framebuffer();
}

GLuint LVContext::framebuffer()
{
    _readRenderer();
    _bindTarget();
    return fbo_;
}

LVTexture LVContext::texture()
{
    _readRenderer();
    if (!oglPBuff_)
        return {};
    return {oglPBuff_->texture, oglPBuff_->width, oglPBuff_->height, oglPBuff_};
}

void LVContext::fetchOpenGLPixels(void* destination, int rowBytes)
{
    auto* bytes = static_cast<uint8_t*>(destination);
    if (_readPixels(destination, rowBytes) == GL_RGBA) {
        static const uint8_t kRGBAToARGB[16] = {3, 0, 1, 2, 7, 4, 5, 6, 11, 8, 9, 10, 15, 12, 13, 14};
        libyuv::ARGBShuffle(bytes, rowBytes, bytes, rowBytes, kRGBAToARGB, width_, height_);
    } else {
        // libyuv names formats by their 32-bit word: its "ARGB" is B,G,R,A bytes.
        libyuv::ARGBToBGRA(bytes, rowBytes, bytes, rowBytes, width_, height_);
    }
}

void LVContext::fetchBGRAPixels(void* destination, int rowBytes)
{
    auto* bytes = static_cast<uint8_t*>(destination);
    if (_readPixels(destination, rowBytes) == GL_RGBA) libyuv::ABGRToARGB(bytes, rowBytes, bytes, rowBytes, width_, height_);
}

GLenum LVContext::_readPixels(void* destination, int rowBytes)
{
    // GL rows run bottom first; they are read into top-first order straight into the
    // destination: one copy, and no flipped copy of the frame drawn on the GPU first, which
    // costs llvmpipe several times the read itself.
    _readRenderer();
    _bindTarget();
    GLint rowLength = 0, alignment = 0;
    glGetIntegerv(GL_PACK_ROW_LENGTH, &rowLength);
    glGetIntegerv(GL_PACK_ALIGNMENT, &alignment);
    glPixelStorei(GL_PACK_ROW_LENGTH, rowBytes / 4);
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    // The order the frame is stored in reads as a plain copy; any other is converted pixel by
    // pixel (six times the copy on llvmpipe, which stores R,G,B,A): the caller reorders after.
    if (!readFormat_) {
        GLint format = 0, type = 0;
        glGetIntegerv(GL_IMPLEMENTATION_COLOR_READ_FORMAT, &format);
        glGetIntegerv(GL_IMPLEMENTATION_COLOR_READ_TYPE, &type);
        readFormat_ = format == GL_RGBA && type == GL_UNSIGNED_BYTE ? GL_RGBA : GL_BGRA;
    }
    if (packInvert_) {
        glPixelStorei(GL_PACK_INVERT_MESA, GL_TRUE);
        glReadPixels(0, 0, width_, height_, readFormat_, GL_UNSIGNED_BYTE, destination);
        glPixelStorei(GL_PACK_INVERT_MESA, GL_FALSE);
    } else {
        auto* rows = static_cast<uint8_t*>(destination);
        for (int y = 0; y < height_; ++y)
            glReadPixels(0, y, width_, 1, readFormat_, GL_UNSIGNED_BYTE, rows + size_t(height_ - 1 - y) * size_t(rowBytes));
    }
    glPixelStorei(GL_PACK_ROW_LENGTH, rowLength);
    glPixelStorei(GL_PACK_ALIGNMENT, alignment);
    return readFormat_;
}

void LVContext::drawTexture(const LVTexture& tex, QRectF inRect, QRectF fromRect)
{
    framebuffer();
    drawTexture(tex, fromRect, inRect, false, false);
}

bool LVContext::drawOverFrame(LVTexture& frame)
{
    // Held by the pool and by frame alone: nobody else shows that picture.
    if (frame.retained.use_count() != 2)
        return false;
    std::shared_ptr<LVPBuffer> back = LVPBufferPool::shared().reclaim(frame.retained.get());
    if (!back)
        return false;
    frame = {};
    _readRenderer();
    uncleared_ = false;
    LVPBufferPool::shared().recycle(std::move(oglPBuff_));
    _useTarget(std::move(back));
    return true;
}

void LVContext::copyIntoFrame(const LVTexture& tex, const std::optional<QRect>& area)
{
    framebuffer();
    if (tex.name == 0 || tex.width != width_ || tex.height != height_)
        return;
    if (!copyFbo_)
        glGenFramebuffers(1, &copyFbo_);
    const GLboolean scissored = glIsEnabled(GL_SCISSOR_TEST);
    glDisable(GL_SCISSOR_TEST);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, copyFbo_);
    glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, tex.name, 0);
    const QRect r = area.value_or(QRect(0, 0, width_, height_));
    glBlitFramebuffer(r.left(), r.top(), r.right() + 1, r.bottom() + 1, r.left(), r.top(), r.right() + 1, r.bottom() + 1,
                      GL_COLOR_BUFFER_BIT, GL_NEAREST);
    glFramebufferTexture2D(GL_READ_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, 0, 0);
    glBindFramebuffer(GL_READ_FRAMEBUFFER, fbo_);
    if (scissored)
        glEnable(GL_SCISSOR_TEST);
}

void LVContext::renderToContext()
{
    LVTexture t = texture();
    makeCurrent();
    drawPBuffer(t, false, false);
}

GLuint LVContext::textureFromImage(const QImage& image, int* width, int* height)
{
    makeCurrent();
    // GL rows run bottom to top. Straight-alpha and opaque 32-bit images are B,G,R,A bytes in
    // memory already and go up as they are; others are converted once.
    const bool bgra = image.format() == QImage::Format_ARGB32 || image.format() == QImage::Format_RGB32;
    const QImage rgba = (bgra ? image : image.convertToFormat(QImage::Format_RGBA8888)).mirrored(false, true);
    GLuint name = 0;
    glGenTextures(1, &name);
    GLint previous = 0, rowLength = 0, alignment = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous);
    glGetIntegerv(GL_UNPACK_ROW_LENGTH, &rowLength);
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
    glBindTexture(GL_TEXTURE_2D, name);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, int(rgba.bytesPerLine() / 4));
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, rgba.width(), rgba.height(), 0, bgra ? GL_BGRA : GL_RGBA, GL_UNSIGNED_BYTE,
                 rgba.constBits());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, rowLength);
    glPixelStorei(GL_UNPACK_ALIGNMENT, alignment);
    glBindTexture(GL_TEXTURE_2D, previous);
    if (!LVCheckGLError("glTexImage2D(textureFromImage)")) {
        glDeleteTextures(1, &name);
        return 0;
    }
    if (width)
        *width = rgba.width();
    if (height)
        *height = rgba.height();
    return name;
}

void LVContext::clearContext(float r, float g, float b, float a)
{
    glClearColor(r, g, b, a);
    glClear(GL_COLOR_BUFFER_BIT);
    glFlush();
}

void LVContext::drawTexture(const LVTexture& tex, QRectF fromRect, QRectF inRect, bool flipped, bool mirrored)
{
    if (tex.name == 0 || tex.width <= 0 || tex.height <= 0)
        return;
    GLint vp[4] = {};
    glGetIntegerv(GL_VIEWPORT, vp);
    float left = float(vp[0]), right = float(vp[0] + vp[2]);
    float bottom = float(vp[1]), top = float(vp[1] + vp[3]);
    if (mirrored)
        std::swap(left, right);
    if (flipped)
        std::swap(bottom, top);

    const double sx = fromRect.x(), sy = fromRect.y(), sw = fromRect.width(), sh = fromRect.height();
    const double dx = inRect.x(), dy = inRect.y(), dw = inRect.width(), dh = inRect.height();
    const float tw = float(tex.width), th = float(tex.height);
    auto vertex = [&](double x, double y, double u, double v) {
        return LVQuadVertex{float(std::trunc(x)), float(std::trunc(y)), float(u) / tw, float(v) / th};
    };
    const LVQuadVertex quad[4] = {
        vertex(dx, dy, sx, sy),
        vertex(dx, dy + dh, sx, sy + sh),
        vertex(dx + dw, dy + dh, sx + sw, sy + sh),
        vertex(dx + dw, dy, sx + sw, sy),
    };
    LVQuadDraw(tex.name, quad, left, right, bottom, top);
}

void LVContext::drawCVTexture(const LVTexture& tex, bool storedUpsideDown, bool flipped, bool mirrored)
{
    const double sw = tex.width;
    const double sh = storedUpsideDown ? -tex.height : tex.height;
    const double sy = storedUpsideDown ? tex.height : 0;
    GLint vp[4] = {};
    glGetIntegerv(GL_VIEWPORT, vp);
    QRectF fitted = LVUtil::fitRect(QSizeF(sw, std::abs(sh)), QSizeF(vp[2], vp[3]));
    fitted.translate(vp[0], vp[1]);
    drawTexture(tex, QRectF(0, sy, sw, sh), fitted, flipped, mirrored);
}

void LVContext::drawPBuffer(const LVTexture& tex, bool flipped, bool mirrored)
{
    drawCVTexture(tex, false, flipped, mirrored);
}

void LVContext::drawPicture(const LVTexture& tex, const std::optional<QRect>& area)
{
    framebuffer();
    setScissor(area);
    drawPBuffer(tex, false, false);
    setScissor(std::nullopt);
}

void LVContext::setScissor(const std::optional<QRect>& area)
{
    if (!area) {
        glDisable(GL_SCISSOR_TEST);
        return;
    }
    glEnable(GL_SCISSOR_TEST);
    glScissor(area->x(), area->y(), area->width(), area->height());
}

LVOffscreenContext::LVOffscreenContext(int32_t width, int32_t height)
    : cgcontext_(LVUtil::newBitmapContext(width, height, LVPixelFormatPremultipliedFirst))
{
}

void LVOffscreenContext::clear(bool transparent)
{
    if (!cgcontext_ || !cgcontext_->data()) {
        LVLog("It happened!");
        return;
    }
    // Pixels are native 0xAARRGGBB words.
    const uint32_t pixel = transparent ? 0u : 0xFF000000u;
    auto* p = reinterpret_cast<uint32_t*>(cgcontext_->data());
    std::fill(p, p + size_t(cgcontext_->width()) * size_t(cgcontext_->height()), pixel);
}
