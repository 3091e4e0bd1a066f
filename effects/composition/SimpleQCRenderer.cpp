#include "effects/composition/SimpleQCRenderer.h"

#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"
#include "effects/composition/LVISFExpression.h"

#include <QColor>
#include <QDateTime>
#include <QFont>
#include <QFontMetrics>
#include <QGuiApplication>
#include <QPainter>
#include <QPointF>

#include <algorithm>
#include <cmath>
#include <utility>

namespace {

// The built-in font when a composition names none or one that is not installed.
QString fontFamily(const QString& requested)
{
    return requested.isEmpty() ? QStringLiteral("DejaVu Sans") : requested;
}

bool canRasteriseText()
{
    static const bool ok = [] {
        const bool gui = qobject_cast<QGuiApplication*>(QCoreApplication::instance()) != nullptr;
        if (!gui) LVLog("Text inputs stay empty: fonts need a QGuiApplication");
        return gui;
    }();
    return ok;
}

} // namespace

SimpleQCRenderer::SimpleQCRenderer(LVContext* ctx, const QString& path)
    : ctx_(ctx), composition_(LVComposition::load(path))
{
    for (const LVISFInput& input : composition_->inputs()) values_.insert(input.name, input.defaultValue);
}

SimpleQCRenderer::~SimpleQCRenderer()
{
    ctx_->makeCurrent();
    for (auto& [key, slot] : images_) glDeleteTextures(1, &slot.texture);
    for (auto& [key, slot] : texts_) glDeleteTextures(1, &slot.texture);
    for (auto& [key, texture] : imports_) {
        if (texture.name != empty_) glDeleteTextures(1, &texture.name);
    }
    for (auto& [key, t] : targets_) {
        const GLuint fbos[] = {t.fbo, t.backFbo};
        const GLuint textures[] = {t.texture, t.backTexture};
        glDeleteFramebuffers(2, fbos);
        glDeleteTextures(2, textures);
    }
    glDeleteTextures(1, &empty_);
    glDeleteVertexArrays(1, &vao_);
}

void SimpleQCRenderer::setValue(const QVariant& value, const QString& key)
{
    setNonGifValue(value, key);
    const LVISFInput* input = composition_->input(key);
    if (!input || input->type != LVISFInputType::Image) return;
    ImageSlot& slot = images_[key];
    const QString path = value.toString();
    if (slot.path == path && !slot.stale) return;
    slot.path = path;
    slot.stale = true;
    slot.gif.reset();
    slot.loading = path.isEmpty() ? nullptr : LVAnimatedImageLoad::start(path);
}

void SimpleQCRenderer::setNonGifValue(const QVariant& value, const QString& key)
{
    values_.insert(key, value);
    if (composition_->switchInputs().contains(key)) {
        constants_.reset();
        steadyFrames_ = 0;
    }
    const LVISFInput* input = composition_->input(key);
    if (input && input->type == LVISFInputType::Event && value.toBool()) firedEvents_.insert(key);
}

bool SimpleQCRenderer::hasAnimationForInputKey(const QString& key)
{
    const auto it = images_.find(key);
    if (it == images_.end()) return false;
    ImageSlot& slot = it->second;
    if (slot.loading) {
        slot.loading->waitForFinished();
        takeAnimation(slot);
    }
    return slot.gif != nullptr;
}

void SimpleQCRenderer::takeAnimation(ImageSlot& slot)
{
    slot.gif = slot.loading->take();
    slot.loading.reset();
    if (!slot.gif) return;
    // It starts at the frame showing now, not at its first.
    slot.gif->advance(time_);
    slot.stale = true;
}

void SimpleQCRenderer::setTextureForInputKey(const LVTexture& texture, const QString& key)
{
    frames_.insert(key, texture);
}

void SimpleQCRenderer::beginFrame(double time)
{
    timeDelta_ = frameIndex_ < 0 ? 0 : std::max(0.0, time - time_);
    time_ = time;
    ++frameIndex_;
    if (steadyFrames_ < kLVSteadyFrames && ++steadyFrames_ == kLVSteadyFrames) constants_.reset();
    // The frame's own time (the render loop's wall clock), not the moment this runs: every
    // effect of a frame shows the same second, and frames drawn at given times show their own.
    const QDateTime now = QDateTime::fromMSecsSinceEpoch(qint64(std::llround(ctx_->frameTime() * 1000.0)));
    date_[0] = float(now.date().year());
    date_[1] = float(now.date().month());
    date_[2] = float(now.date().day());
    date_[3] = float(now.time().msecsSinceStartOfDay() / 1000.0);
    for (auto& [key, slot] : images_) {
        if (slot.loading && slot.loading->isFinished()) takeAnimation(slot);
        if (slot.gif && slot.gif->advance(time)) slot.stale = true;
    }
    refreshTexts();
}

void SimpleQCRenderer::endFrame()
{
    frames_.remove(composition_->imageInputKey());
    for (const QString& key : std::as_const(firedEvents_)) values_.insert(key, false);
    firedEvents_.clear();
}

GLuint SimpleQCRenderer::uploadImage(const QImage& image, GLuint reuse)
{
    if (reuse) glDeleteTextures(1, &reuse);
    return ctx_->textureFromImage(image);
}

LVTexture SimpleQCRenderer::emptyTexture()
{
    if (!empty_) {
        QImage clear(1, 1, QImage::Format_RGBA8888);
        clear.fill(Qt::transparent);
        empty_ = ctx_->textureFromImage(clear);
    }
    return LVTexture{empty_, 1, 1};
}

void SimpleQCRenderer::refreshTexts()
{
    const LVISFInput* fontName = composition_->input(QStringLiteral("Font_Name"));
    const LVISFInput* fontSize = composition_->input(QStringLiteral("Font_Size"));
    for (const LVISFInput& input : composition_->inputs()) {
        // The font's name chooses the font; it is never drawn.
        if (input.type != LVISFInputType::Text || input.name == QLatin1String("Font_Name")) continue;
        TextSlot& slot = texts_[input.name];
        const QString text = values_.value(input.name).toString();
        const QString font = fontFamily(fontName ? values_.value(fontName->name).toString() : QString());
        // "Font_Size" is in units of half the picture's height.
        const double size = fontSize ? values_.value(fontSize->name).toDouble() : 0.1;
        const int pixelSize = std::max(1, int(std::lround(size * input.fontScale * ctx_->height() / 2)));
        if (slot.texture && slot.text == text && slot.font == font && slot.pixelSize == pixelSize) continue;
        slot.text = text;
        slot.font = font;
        slot.pixelSize = pixelSize;
        if (text.isEmpty() || !canRasteriseText()) {
            QImage clear(1, 1, QImage::Format_ARGB32_Premultiplied);
            clear.fill(Qt::transparent);
            slot.texture = uploadImage(clear, slot.texture);
            slot.size = clear.size();
            continue;
        }
        QFont qfont(font);
        qfont.setPixelSize(pixelSize);
        const QFontMetrics metrics(qfont);
        const QStringList lines = text.split(QLatin1Char('\n'));
        int width = 1;
        for (const QString& line : lines) width = std::max(width, metrics.horizontalAdvance(line));
        QImage image(width + 2, std::max(1, metrics.height() * int(lines.size())), QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::TextAntialiasing);
        painter.setFont(qfont);
        painter.setPen(Qt::white);
        for (int i = 0; i < int(lines.size()); ++i) painter.drawText(1, metrics.ascent() + i * metrics.height(), lines[i]);
        painter.end();
        slot.texture = uploadImage(image, slot.texture);
        slot.size = image.size();
    }
}

LVTexture SimpleQCRenderer::textureForInput(const LVISFInput& input)
{
    const auto frame = frames_.constFind(input.name);
    if (frame != frames_.constEnd() && frame->name) return *frame;
    // Not fed (unread, or drawn inside a shared shader): still the chain's picture size.
    if (input.name == composition_->imageInputKey()) return LVTexture{emptyTexture().name, ctx_->width(), ctx_->height()};
    if (input.type == LVISFInputType::Text) {
        const auto it = texts_.find(input.name);
        if (it == texts_.end() || !it->second.texture) return emptyTexture();
        return LVTexture{it->second.texture, it->second.size.width(), it->second.size.height()};
    }
    const auto it = images_.find(input.name);
    if (it == images_.end() || it->second.path.isEmpty()) return emptyTexture();
    ImageSlot& slot = it->second;
    if (slot.stale) {
        slot.stale = false;
        if (slot.gif) {
            slot.texture = uploadImage(slot.gif->currentImage(), slot.texture);
            slot.size = slot.gif->currentImage().size();
        } else {
            QString error;
            const QImage image = LVReadImageFile(slot.path, &error);
            if (image.isNull()) {
                LVLog("Image %s for input \"%s\" not loaded: it %s", qPrintable(slot.path), qPrintable(input.name),
                      qPrintable(error));
                glDeleteTextures(1, &slot.texture);
                slot.texture = 0;
            } else {
                slot.texture = uploadImage(image, slot.texture);
                slot.size = image.size();
            }
        }
    }
    return slot.texture ? LVTexture{slot.texture, slot.size.width(), slot.size.height()} : emptyTexture();
}

QHash<QString, double> SimpleQCRenderer::expressionVariables() const
{
    QHash<QString, double> variables;
    variables.insert(QStringLiteral("WIDTH"), ctx_->width());
    variables.insert(QStringLiteral("HEIGHT"), ctx_->height());
    for (const LVISFInput& input : composition_->inputs()) {
        const QVariant v = values_.value(input.name);
        if (input.type == LVISFInputType::Float || input.type == LVISFInputType::Long ||
            input.type == LVISFInputType::Bool || input.type == LVISFInputType::Event)
            variables.insert(input.name, v.toDouble());
    }
    for (const auto& [name, slot] : texts_) {
        variables.insert(name + QStringLiteral("_WIDTH"), slot.size.width());
        variables.insert(name + QStringLiteral("_HEIGHT"), slot.size.height());
    }
    return variables;
}

std::optional<double> SimpleQCRenderer::evaluateDeclared(const QString& expr, double whole,
                                                         const QHash<QString, double>& variables, const char* key,
                                                         bool* reported) const
{
    if (expr.isEmpty()) return whole;
    QString problem;
    auto value = LVISFEvaluate(expr, variables, &problem);
    if (value && !std::isfinite(*value)) {
        problem = QStringLiteral("%1 is not a finite number").arg(expr);
        value.reset();
    }
    if (!value && !std::exchange(*reported, true))
        LVLog("Composition %s: %s does not evaluate (%s); taken as the whole frame", qPrintable(composition_->path()),
              key, qPrintable(problem));
    return value;
}

std::optional<QRectF> SimpleQCRenderer::declaredRectangle(const LVISFArea& area, const char* key, bool* reported) const
{
    const QHash<QString, double> variables = expressionVariables();
    const auto x = evaluateDeclared(area.x, 0, variables, key, reported);
    const auto y = x ? evaluateDeclared(area.y, 0, variables, key, reported) : std::nullopt;
    const auto w = y ? evaluateDeclared(area.width, ctx_->width(), variables, key, reported) : std::nullopt;
    const auto h = w ? evaluateDeclared(area.height, ctx_->height(), variables, key, reported) : std::nullopt;
    if (!h) return std::nullopt;
    return QRectF(*x, *y, std::max(*w, 0.0), std::max(*h, 0.0));
}

std::optional<QRegion> SimpleQCRenderer::changedArea() const
{
    const std::optional<LVISFArea>& changes = composition_->changedArea();
    const std::optional<LVISFArea>& kept = composition_->keptArea();
    if (!changes && !kept) return std::nullopt;
    QRegion area(0, 0, ctx_->width(), ctx_->height());
    if (changes) {
        const std::optional<QRectF> r = declaredRectangle(*changes, "CHANGES_ONLY", &changesReported_);
        if (!r) return std::nullopt;
        area = withPixelMargin(*r);
    }
    if (kept) {
        const std::optional<QRectF> r = declaredRectangle(*kept, "KEEPS_INSIDE", &keptReported_);
        if (!r) return std::nullopt;
        area -= withPixelMargin(*r, PixelMargin::Inwards);
    }
    return area;
}

QRect SimpleQCRenderer::withPixelMargin(const QRectF& r, PixelMargin margin) const
{
    // A pixel's margin on every side: the shader's own arithmetic may round a border pixel in
    // (or, for what it keeps, out).
    const double grow = margin == PixelMargin::Outwards ? 1 : -1;
    auto edge = [](double v, double limit) { return int(std::clamp(v, 0.0, limit)); };
    auto low = [&](double v) { return margin == PixelMargin::Outwards ? std::floor(v) : std::ceil(v); };
    auto high = [&](double v) { return margin == PixelMargin::Outwards ? std::ceil(v) : std::floor(v); };
    const int left = edge(low(r.x()) - grow, ctx_->width());
    const int bottom = edge(low(r.y()) - grow, ctx_->height());
    const int right = edge(high(r.x() + r.width()) + grow, ctx_->width());
    const int top = edge(high(r.y() + r.height()) + grow, ctx_->height());
    return QRect(left, bottom, std::max(right - left, 0), std::max(top - bottom, 0));
}

std::optional<SimpleQCRenderer::Fill> SimpleQCRenderer::fill() const
{
    const std::optional<LVISFArea>& area = composition_->filledArea();
    if (!area || !composition_->isOnePlainPass()) return std::nullopt;
    const QColor c = values_.value(area->color).value<QColor>();
    const std::array<float, 4> colour = {c.redF(), c.greenF(), c.blueF(), c.alphaF()};
    // A clear rounds a colour to 8 bits as the shader does only on whole steps (tested).
    for (const float v : colour)
        if (float(std::lround(v * 255.0f)) / 255.0f != v) return std::nullopt;
    const std::optional<QRectF> r = declaredRectangle(*area, "FILLS_OUTSIDE", &fillReported_);
    if (!r) return std::nullopt;
    return Fill{withPixelMargin(*r), colour};
}

std::optional<QRect> SimpleQCRenderer::inputAreaFor(const QRect& output) const
{
    const LVComposition& c = *composition_;
    if (c.isPointwise()) return output;
    const std::optional<LVISFArea>& reads = c.readArea();
    if (!reads || !c.isOnePlainPass()) return std::nullopt;
    const QRect frame(0, 0, ctx_->width(), ctx_->height());
    QRect area = frame;
    if (!reads->margin.isEmpty()) {
        const std::optional<double> margin =
            evaluateDeclared(reads->margin, 0, expressionVariables(), "READS_ONLY", &readsReported_);
        if (!margin) return std::nullopt;
        // A filtered sample reads a pixel beyond where it lands.
        const int m = int(std::clamp(std::ceil(*margin), 0.0, double(frame.width() + frame.height()))) + 1;
        area = output.adjusted(-m, -m, m, m) & frame;
    }
    if (reads->hasRectangle()) {
        const std::optional<QRectF> r = declaredRectangle(*reads, "READS_ONLY", &readsReported_);
        if (!r) return std::nullopt;
        if (r->isEmpty()) return QRect();
        // Samples past an edge read the edge's pixels; a filtered sample reads a pixel beyond
        // where it lands, and the shader's arithmetic may round one more in.
        auto span = [](double from, double length, int limit) {
            const int low = int(std::clamp(std::floor(from) - 2, 0.0, double(limit - 1)));
            const int high = int(std::clamp(std::ceil(from + length) + 2, double(low + 1), double(limit)));
            return std::pair(low, high);
        };
        const auto [left, right] = span(r->x(), r->width(), frame.width());
        const auto [bottom, top] = span(r->y(), r->height(), frame.height());
        area &= QRect(left, bottom, right - left, top - bottom);
    }
    return area;
}

QSize SimpleQCRenderer::passSize(const LVISFPass& pass) const
{
    const QHash<QString, double> variables = expressionVariables();
    auto evaluate = [&](const QString& expr, int fallback) {
        if (expr.isEmpty()) return fallback;
        const auto value = LVISFEvaluate(expr, variables);
        if (!value || !std::isfinite(*value)) return fallback;
        return std::clamp(int(std::floor(*value)), 1, 8192);
    };
    const QSize asked(evaluate(pass.widthExpr, ctx_->width()), evaluate(pass.heightExpr, ctx_->height()));
    const QSize size = LVCapPassSize(asked, pass.floatTarget);
    if (size != asked && cappedTargets_.insert(pass.target).second) {
        LVLog("Composition %s: pass target \"%s\" asks for %dx%d; drawn at %dx%d to stay within %s",
              qPrintable(composition_->path()), qPrintable(pass.target), asked.width(), asked.height(), size.width(),
              size.height(), qPrintable(LVByteLimitText(kLVPassTargetBudget)));
    }
    return size;
}

QSize LVCapPassSize(QSize asked, bool isFloat)
{
    // A target holds two textures (the pass may read its own last frame).
    const double bytes = 2.0 * (isFloat ? 16 : 4) * double(asked.width()) * double(asked.height());
    if (bytes <= double(kLVPassTargetBudget)) return asked;
    const double scale = std::sqrt(double(kLVPassTargetBudget) / bytes);
    return QSize(std::max(1, int(std::floor(asked.width() * scale))), std::max(1, int(std::floor(asked.height() * scale))));
}

SimpleQCRenderer::Target& SimpleQCRenderer::target(const LVISFPass& pass, QSize size)
{
    Target& t = targets_[pass.target];
    if (t.texture && t.size == size && t.isFloat == pass.floatTarget) return t;
    if (!t.texture) {
        glGenTextures(1, &t.texture);
        glGenTextures(1, &t.backTexture);
        glGenFramebuffers(1, &t.fbo);
        glGenFramebuffers(1, &t.backFbo);
    }
    t.size = size;
    t.isFloat = pass.floatTarget;
    for (const auto& [texture, fbo] : {std::pair(t.texture, t.fbo), std::pair(t.backTexture, t.backFbo)}) {
        glBindTexture(GL_TEXTURE_2D, texture);
        glTexImage2D(GL_TEXTURE_2D, 0, t.isFloat ? GL_RGBA32F : GL_RGBA8, size.width(), size.height(), 0, GL_RGBA,
                     t.isFloat ? GL_FLOAT : GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
        glBindFramebuffer(GL_FRAMEBUFFER, fbo);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
        // A new or resized target starts transparent, persistent or not.
        glClearColor(0, 0, 0, 0);
        glClear(GL_COLOR_BUFFER_BIT);
    }
    glBindTexture(GL_TEXTURE_2D, 0);
    LVCheckGLError("SimpleQCRenderer pass target");
    return t;
}

const LVISFConstants& SimpleQCRenderer::constants() const
{
    if (constants_) return *constants_;
    constants_.emplace();
    const bool steady = steadyFrames_ >= kLVSteadyFrames;
    for (const QString& name : composition_->switchInputs()) {
        const LVISFInput& input = *composition_->input(name);
        // Exactly what applyUniforms would send.
        const QVariant v = values_.value(name);
        switch (input.type) {
        case LVISFInputType::Bool:
            constants_->emplace_back(name, v.toBool() ? QStringLiteral("true") : QStringLiteral("false"));
            break;
        case LVISFInputType::Long:
            if (steady || input.values.contains(v.toInt()) || v.toInt() == input.defaultValue.toInt())
                constants_->emplace_back(name, QString::number(v.toInt()));
            break;
        case LVISFInputType::Float:
            if (steady || float(v.toDouble()) == float(input.defaultValue.toDouble())) {
                // Nine digits give the float back exactly; GLSL wants a point or an exponent.
                QString literal = QString::number(double(float(v.toDouble())), 'g', 9);
                if (!literal.contains(QLatin1Char('.')) && !literal.contains(QLatin1Char('e'))) literal += QLatin1String(".0");
                constants_->emplace_back(name, literal);
            }
            break;
        default: break;
        }
    }
    return *constants_;
}

void SimpleQCRenderer::applyUniforms(const LVISFProgram& program, int stage, QSize renderSize, int* unit)
{
    auto loc = [&](const QString& name) { return program.location(LVISFUniformName(stage, name)); };
    auto bindTexture = [&](const QString& name, const LVTexture& texture) {
        // Our textures hold the whole image, upright.
        glUniform4f(loc(LVISFImageRectName(name)), 0, 0, 1, 1);
        glUniform2f(loc(LVISFImageSizeName(name)), float(texture.width), float(texture.height));
        glUniform1i(loc(LVISFImageFlipName(name)), 0);
        const GLint location = loc(name);
        if (location < 0) return;
        glActiveTexture(GL_TEXTURE0 + GLenum(*unit));
        glBindTexture(GL_TEXTURE_2D, texture.name);
        glUniform1i(location, *unit);
        ++*unit;
    };
    auto wanted = [&](const QString& image) {
        return loc(image) >= 0 || loc(LVISFImageRectName(image)) >= 0 || loc(LVISFImageSizeName(image)) >= 0 ||
               loc(LVISFImageFlipName(image)) >= 0;
    };
    glUniform1f(loc(QStringLiteral("TIME")), float(time_));
    glUniform1f(loc(QStringLiteral("TIMEDELTA")), float(timeDelta_));
    glUniform1i(loc(QStringLiteral("FRAMEINDEX")), frameIndex_);
    glUniform4fv(loc(QStringLiteral("DATE")), 1, date_);
    glUniform2f(program.location(QStringLiteral("RENDERSIZE")), float(renderSize.width()), float(renderSize.height()));
    for (const LVISFInput& input : composition_->inputs()) {
        const GLint location = loc(input.name);
        if (input.type == LVISFInputType::Image || input.type == LVISFInputType::Text ||
            input.type == LVISFInputType::Audio) {
            if (wanted(input.name)) bindTexture(input.name, textureForInput(input));
            continue;
        }
        if (location < 0) continue;
        const QVariant v = values_.value(input.name);
        switch (input.type) {
        case LVISFInputType::Bool:
        case LVISFInputType::Event: glUniform1i(location, v.toBool() ? 1 : 0); break;
        case LVISFInputType::Long: glUniform1i(location, v.toInt()); break;
        case LVISFInputType::Float: glUniform1f(location, float(v.toDouble())); break;
        case LVISFInputType::Point2D: {
            const QPointF p = v.toPointF();
            glUniform2f(location, float(p.x()), float(p.y()));
            break;
        }
        case LVISFInputType::Color: {
            const QColor c = v.value<QColor>();
            glUniform4f(location, c.redF(), c.greenF(), c.blueF(), c.alphaF());
            break;
        }
        case LVISFInputType::Image:
        case LVISFInputType::Text:
        case LVISFInputType::Audio: break;
        }
    }
    for (const LVISFPass& pass : composition_->passes()) {
        if (pass.target.isEmpty()) continue;
        const auto it = targets_.find(pass.target);
        if (it != targets_.end()) {
            bindTexture(pass.target, LVTexture{it->second.texture, it->second.size.width(), it->second.size.height()});
        } else if (wanted(pass.target)) {
            // A pass skipped because only its size is read still has that size.
            const QSize size = passSize(pass);
            bindTexture(pass.target, LVTexture{emptyTexture().name, size.width(), size.height()});
        }
    }
    for (const LVISFImport& import : composition_->imports()) {
        LVTexture& texture = imports_[import.name];
        if (!texture.name) {
            QString error;
            const QImage image = LVReadImageFile(import.path, &error);
            if (image.isNull()) LVLog("Imported image %s not loaded: it %s", qPrintable(import.path), qPrintable(error));
            texture = image.isNull() ? emptyTexture()
                                     : LVTexture{ctx_->textureFromImage(image), image.width(), image.height()};
        }
        bindTexture(import.name, texture);
    }
}

void SimpleQCRenderer::drawTriangle()
{
    if (!vao_) glGenVertexArrays(1, &vao_);
    glBindVertexArray(vao_);
    glDrawArrays(GL_TRIANGLES, 0, 3);
    glBindVertexArray(0);
}

void SimpleQCRenderer::renderPass(int index, Target* into, QSize size)
{
    const LVISFProgram* p = program(index);
    if (into) glBindFramebuffer(GL_FRAMEBUFFER, into->backFbo);
    glViewport(0, 0, size.width(), size.height());
    glUseProgram(p->program);
    int unit = 0;
    applyUniforms(*p, -1, size, &unit);
    drawTriangle();
    glActiveTexture(GL_TEXTURE0);
    if (into) {
        std::swap(into->texture, into->backTexture);
        std::swap(into->fbo, into->backFbo);
    }
}

void SimpleQCRenderer::renderIntermediatePasses()
{
    if (!isUsable()) return;
    const auto& passes = composition_->passes();
    const bool blending = glIsEnabled(GL_BLEND);
    glDisable(GL_BLEND);
    for (size_t i = 0; i + 1 < passes.size(); ++i) {
        if (!passes[i].read) continue;
        const QSize size = passSize(passes[i]);
        renderPass(int(i), &target(passes[i], size), size);
    }
    if (blending) glEnable(GL_BLEND);
    glUseProgram(0);
}

void SimpleQCRenderer::drawFinalPass(bool blendOver)
{
    if (!isUsable()) return;
    const auto& passes = composition_->passes();
    const int last = int(passes.size()) - 1;
    GLint bound = 0;
    glGetIntegerv(GL_DRAW_FRAMEBUFFER_BINDING, &bound);
    const bool blending = glIsEnabled(GL_BLEND);
    if (passes.back().target.isEmpty()) {
        if (blendOver) glEnable(GL_BLEND);
        else glDisable(GL_BLEND);
        renderPass(last, nullptr, outputSize());
    } else {
        // A last pass with a target keeps its picture there for the next frame; the
        // output is a copy of it.
        glDisable(GL_BLEND);
        const QSize size = passSize(passes.back());
        Target& t = target(passes.back(), size);
        renderPass(last, &t, size);
        glBindFramebuffer(GL_FRAMEBUFFER, GLuint(bound));
        glViewport(0, 0, outputSize().width(), outputSize().height());
        if (blendOver) glEnable(GL_BLEND);
        LVContext::drawTexture(LVTexture{t.texture, size.width(), size.height()}, QRectF(0, 0, size.width(), size.height()),
                               QRectF(0, 0, outputSize().width(), outputSize().height()), false, false);
    }
    if (blending) glEnable(GL_BLEND);
    else glDisable(GL_BLEND);
    glUseProgram(0);
}
