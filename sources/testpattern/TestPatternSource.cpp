#include "sources/testpattern/TestPatternSource.h"

#include "render/LVContext.h"

const std::array<QRgb, 7> TestPatternSource::kBars = {
    qRgb(191, 191, 191), qRgb(191, 191, 0), qRgb(0, 191, 191), qRgb(0, 191, 0),
    qRgb(191, 0, 191),   qRgb(191, 0, 0),   qRgb(0, 0, 191),
};

namespace {

const QString kMoving = QStringLiteral("moving");
const QString kCounter = QStringLiteral("showCounter");

int stripHeight(int height)
{
    return height - (height * 2) / 3;
}

// Solid rectangles through scissored clears: exact colours, no blending, no geometry.
void fill(const QRect& r, QRgb colour)
{
    glScissor(r.x(), r.y(), r.width(), r.height());
    glClearColor(qRed(colour) / 255.f, qGreen(colour) / 255.f, qBlue(colour) / 255.f, 1.f);
    glClear(GL_COLOR_BUFFER_BIT);
}

} // namespace

const LVEffectDescriptor& TestPatternSource::classDescriptor()
{
    static const LVEffectDescriptor d{
        QStringLiteral("TestPatternSource"),
        QStringLiteral("Test Pattern"),
        LVEffectRole::Source,
        [] { return std::make_unique<TestPatternSource>(); },
        {LVBoolParameter(kMoving, QStringLiteral("Moving Square"), true),
         LVBoolParameter(kCounter, QStringLiteral("Frame Counter"), true)},
    };
    return d;
}

void LVRegisterTestPatternSource()
{
    LVEffectClasses::registerClass(&TestPatternSource::classDescriptor());
}

QRect TestPatternSource::barRect(int index, int width, int height)
{
    const int strip = stripHeight(height);
    const int x0 = index * width / 7;
    const int x1 = (index + 1) * width / 7;
    return QRect(x0, strip, x1 - x0, height - strip);
}

QRect TestPatternSource::squareRect(qint64 frame, int width, int height)
{
    const int side = std::max(1, stripHeight(height) / 2);
    const int step = std::max(1, width / 160);
    const int travel = std::max(1, width - side);
    const int x = int((frame * step) % travel);
    return QRect(x, stripHeight(height) - side, side, side);
}

QRect TestPatternSource::counterRect(int width, int height)
{
    return QRect(0, 0, width, std::max(1, stripHeight(height) / 2));
}

QString TestPatternSource::counterText(qint64 frame, double seconds)
{
    const qint64 ms = qint64(seconds * 1000.0 + 0.5);
    return QStringLiteral("%1:%2:%3.%4  #%5")
        .arg(ms / 3600000, 2, 10, QLatin1Char('0'))
        .arg((ms / 60000) % 60, 2, 10, QLatin1Char('0'))
        .arg((ms / 1000) % 60, 2, 10, QLatin1Char('0'))
        .arg(ms % 1000, 3, 10, QLatin1Char('0'))
        .arg(frame, 6, 10, QLatin1Char('0'));
}

TestPatternSource::~TestPatternSource()
{
    if (staticPart_ && context()) {
        context()->makeCurrent();
        glDeleteTextures(1, &staticPart_);
    }
}

void TestPatternSource::drawStaticPart(LVContext& ctx)
{
    const int w = ctx.width();
    const int h = ctx.height();
    if (staticPart_ && staticSize_ == QSize(w, h)) {
        ctx.copyIntoFrame(LVTexture{staticPart_, w, h});
        return;
    }
    glEnable(GL_SCISSOR_TEST);
    for (int i = 0; i < int(kBars.size()); ++i)
        fill(barRect(i, w, h), kBars[size_t(i)]);
    fill(QRect(0, 0, w, stripHeight(h)), qRgb(0, 0, 0));
    glDisable(GL_SCISSOR_TEST);
    // Kept for the next frames: a copy costs the rasteriser less than the fills.
    if (!staticPart_)
        glGenTextures(1, &staticPart_);
    glBindTexture(GL_TEXTURE_2D, staticPart_);
    glCopyTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, 0, 0, w, h, 0);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    glBindTexture(GL_TEXTURE_2D, 0);
    staticSize_ = LVCheckGLError("glCopyTexImage2D(test pattern)") ? QSize(w, h) : QSize();
}

void TestPatternSource::drawCounter(LVContext& ctx)
{
    // The frame's own time when the application sets one, else time since the first frame.
    double seconds;
    if (ctx.frameTime() != 0) {
        if (!firstFrameTime_)
            firstFrameTime_ = ctx.frameTime();
        seconds = ctx.frameTime() - *firstFrameTime_;
    } else {
        seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started_).count();
    }
    const QRect area = counterRect(ctx.width(), ctx.height());
    const QImage& picture = counter_.picture(area.size(), counterText(frame_, seconds));
    // Opaque and pixel for pixel: written straight into the frame's texture, with no drawing.
    const LVTexture frame = ctx.texture();
    GLint previous = 0, rowLength = 0, alignment = 0;
    glGetIntegerv(GL_TEXTURE_BINDING_2D, &previous);
    glGetIntegerv(GL_UNPACK_ROW_LENGTH, &rowLength);
    glGetIntegerv(GL_UNPACK_ALIGNMENT, &alignment);
    glBindTexture(GL_TEXTURE_2D, frame.name);
    glPixelStorei(GL_UNPACK_ROW_LENGTH, int(picture.bytesPerLine() / 4));
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glTexSubImage2D(GL_TEXTURE_2D, 0, area.x(), area.y(), area.width(), area.height(), GL_RGBA, GL_UNSIGNED_BYTE,
                    picture.constBits());
    glPixelStorei(GL_UNPACK_ROW_LENGTH, rowLength);
    glPixelStorei(GL_UNPACK_ALIGNMENT, alignment);
    glBindTexture(GL_TEXTURE_2D, GLuint(previous));
}

void TestPatternSource::doit()
{
    LVContext* ctx = context();
    if (!ctx)
        return;
    // The bars and the strip below them cover the frame.
    ctx->framebufferToOverwrite();
    drawStaticPart(*ctx);
    // The counter's upload before the square's clear: the upload would wait for the clear to be
    // drawn first. At sizes from 16 rows up the two never overlap.
    if (parameterValue(kCounter).toBool())
        drawCounter(*ctx);
    const qint64 position = parameterValue(kMoving).toBool() ? frame_ : 0;
    glEnable(GL_SCISSOR_TEST);
    fill(squareRect(position, ctx->width(), ctx->height()), qRgb(255, 255, 255));
    glDisable(GL_SCISSOR_TEST);
    ++frame_;
}
