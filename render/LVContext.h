#pragma once
// The frame's drawing surface: an offscreen EGL/OpenGL 3.3 core context whose render target is a
// pooled texture+framebuffer ("pbuffer"), plus the program's common textured-quad routines.
#include "render/LVGL.h"

#include <QImage>
#include <QRect>
#include <QRectF>
#include <QSize>
#include <QSizeF>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "core/util/LVUtil.h"

class LVContext;
class LVGLContext;
class LVPBuffer;

// GL_TEXTURE_2D RGBA8, origin bottom-left (GL convention). A frame's texture holds on to its
// render target, so the pool never hands it out again while a copy of this is alive.
struct LVTexture {
    GLuint name = 0;
    int width = 0;
    int height = 0;
    std::shared_ptr<const void> retained = {};
};

// Process-wide video size, read once from the provider and cached.
int LVGetWidth();
int LVGetHeight();
// The app installs one reading the "videoSize" preference; the default answers 320x240.
void LVSetVideoSizeProvider(std::function<QSize()> provider);
// What the frame pool ages idle frames by; tests step a clock of their own instead of waiting.
// None restores the steady clock.
void LVSetFramePoolClock(std::function<std::chrono::steady_clock::time_point()> clock);

// Something whose output is drawn lazily into the context, when the surface is next needed.
class LVPendingRenderer {
public:
    virtual ~LVPendingRenderer() = default;
    // Draws the output into ctx's current frame (ctx.framebuffer() is already bound).
    virtual void drawPendingOutput(LVContext& ctx) = 0;
    // True when that drawing writes every pixel of the frame, unblended: a target taken
    // uncleared for it then needs no clear.
    virtual bool coversEveryPixel() const { return false; }
};

class LVContext {
public:
    // Own EGL context (surfaceless Mesa, else the EGL device platform), OpenGL 3.3 core,
    // sharing objects with the process-wide shared context; size = LVGetWidth/LVGetHeight.
    // On failure answers null and, when error is given, the failing call and its error.
    static std::unique_ptr<LVContext> create(QString* error);
    // The same at an explicit size (benchmarks, tools that follow a producer's size).
    static std::unique_ptr<LVContext> create(QSize size, QString* error);
    ~LVContext();
    LVContext(const LVContext&) = delete;
    LVContext& operator=(const LVContext&) = delete;

    QSizeF size() const { return QSizeF(width_, height_); }
    int width() const { return width_; }
    int height() const { return height_; }

    void makeCurrent();
    LVGLContext& oglCtx(); // runs _readRenderer first

    // Drops any pending renderer, takes a new target from the pool and clears it to
    // (0,0,0,0) when transparent, (0,0,0,1) otherwise. Leaves the new target bound. When the
    // first drawer overwrites every pixel (it takes framebufferToOverwrite()), an opaque clear
    // is only owed: made if anything else draws into or reads the frame first.
    void reset(bool transparent, bool firstDrawOverwrites = false);
    // The same, but the new target is left as it comes from the pool for the pending renderer
    // set next to overwrite. It is cleared to opaque black after all when that renderer does not
    // cover every pixel, or none is set, by the time the frame is drawn into or read.
    void resetUncleared();
    void flush();
    // The current frame's framebuffer, bound as draw target with viewport (0,0,w,h).
    GLuint framebuffer();
    // The same for a drawer that writes every pixel: a clear still owed is not made.
    GLuint framebufferToOverwrite();
    // The current frame's colour texture.
    LVTexture texture();
    // Reads the frame as A,R,G,B bytes, top row first, rows rowBytes apart; the frame stays
    // the current one.
    void fetchOpenGLPixels(void* destination, int rowBytes);
    // The same as B,G,R,A bytes (a QImage's ARGB32 words).
    void fetchBGRAPixels(void* destination, int rowBytes);
    // Whether the read-back turns the rows over in one read (GL_MESA_pack_invert; on where
    // the GL has it) or reads row by row.
    bool packInvert() const { return packInvert_; }
    void setPackInvert(bool enabled) { packInvert_ = enabled && hasPackInvert_; }
    // Draws a texture into the current frame, not flipped, not mirrored.
    void drawTexture(const LVTexture& tex, QRectF inRect, QRectF fromRect);
    // Copies a texture of the frame's size into the current frame unchanged, only inside area
    // (GL's pixels) when there is one: a plain copy of the pixels, no shading (what a
    // rasteriser does fastest).
    void copyIntoFrame(const LVTexture& tex, const std::optional<QRect>& area = std::nullopt);
    // Makes an earlier frame of this size, frame, the current one again, so what follows draws
    // over that picture; the current target goes back to the pool. Only when nobody but frame
    // holds the picture any more (then frame is emptied); otherwise nothing changes.
    bool drawOverFrame(LVTexture& frame);
    // Draws the current frame into whatever framebuffer and viewport the caller bound on
    // the current GL context, not flipped, not mirrored.
    void renderToContext();

    void setQCRenderer(LVPendingRenderer* renderer) { renderer_ = renderer; }
    LVPendingRenderer* qcRenderer() const { return renderer_; }
    void setFrameTime(double seconds) { frameTime_ = seconds; }
    double frameTime() const { return frameTime_; }
    void setIsForPreview(bool forPreview) { bForPreview_ = forPreview; }
    bool isForPreview() const { return bForPreview_; }

    // Uploads an image for drawing (RGBA8, bottom row first); the caller deletes the texture.
    GLuint textureFromImage(const QImage& image, int* width = nullptr, int* height = nullptr);

    // Common drawing routines, into whatever framebuffer and viewport are bound on the
    // current GL context.
    static void clearContext(float r, float g, float b, float a);
    // fromRect in texels, inRect in window pixels (truncated); flipped/mirrored swap the
    // ortho bounds of the viewport.
    static void drawTexture(const LVTexture& tex, QRectF fromRect, QRectF inRect, bool flipped, bool mirrored);
    // Aspect-fits the whole texture into the current viewport; a texture stored upside down
    // comes out upright.
    static void drawCVTexture(const LVTexture& tex, bool storedUpsideDown, bool flipped, bool mirrored);
    // A frame's texture (stored the GL way up), aspect-fitted into the current viewport.
    static void drawPBuffer(const LVTexture& tex, bool flipped, bool mirrored);
    // A source's picture aspect-fitted into the current frame, only inside area when there is
    // one (what the chain after the source reads).
    void drawPicture(const LVTexture& tex, const std::optional<QRect>& area);
    // Later draws go only into area; none: anywhere.
    static void setScissor(const std::optional<QRect>& area);

private:
    LVContext() = default;
    void _readRenderer();
    void _bindTarget();
    // Reads top row first in the order GL reads as a copy; answers it (GL_RGBA or GL_BGRA).
    GLenum _readPixels(void* destination, int rowBytes);
    void _takeTarget();
    // Makes target the frame drawn into, bound.
    void _useTarget(std::shared_ptr<LVPBuffer> target);

    int width_ = 0;
    int height_ = 0;
    std::unique_ptr<LVGLContext> oglCtx_;
    std::shared_ptr<LVPBuffer> oglPBuff_;
    GLuint fbo_ = 0;
    GLuint copyFbo_ = 0; // reads the texture copyIntoFrame copies
    LVPendingRenderer* renderer_ = nullptr;
    bool uncleared_ = false;
    double frameTime_ = 0;
    bool bForPreview_ = false;
    bool hasPackInvert_ = false;
    bool packInvert_ = false;
    GLenum readFormat_ = 0; // the byte order GL reads the frame in as a plain copy; 0: not asked yet
};

// A CPU bitmap surface (alpha-first premultiplied pixels) for QPainter drawing.
class LVOffscreenContext {
public:
    LVOffscreenContext(int32_t width, int32_t height);
    LVBitmapContext* CGContext() const { return cgcontext_.get(); }
    // All zero bytes when transparent, opaque black otherwise.
    void clear(bool transparent);

private:
    std::unique_ptr<LVBitmapContext> cgcontext_;
};
