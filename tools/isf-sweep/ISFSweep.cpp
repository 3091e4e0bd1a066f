// Checks a folder of ISF files before a show: each file is parsed, compiled and drawn
// the way the chain draws it (transitions at 0, 0.5 and 1), and one line per file says
// how far it got. Exit status 0 when every file rendered, 1 when one did not, 2 on bad use.
#include "core/LVEffectRegistry.h"
#include "effects/composition/LVComposition.h"
#include "effects/composition/LVISFProgram.h"
#include "effects/composition/LVQCEffect.h"
#include "effects/registration/LVEffectKinds.h"
#include "render/LVContext.h"

#include <QDir>
#include <QFileInfo>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>

#include <cstdio>

namespace {

struct Outcome {
    QString kind = QStringLiteral("-");
    bool loaded = false;
    bool compiled = false;
    bool rendered = false;
    QString error;
};

// A picture with something in every channel and corner, so inputs are never blank.
QImage testPicture(QSize size, bool second)
{
    QImage image(size, QImage::Format_ARGB32);
    QPainter painter(&image);
    QLinearGradient gradient(0, 0, size.width(), size.height());
    gradient.setColorAt(0, second ? Qt::blue : Qt::red);
    gradient.setColorAt(1, second ? Qt::yellow : Qt::green);
    painter.fillRect(image.rect(), gradient);
    return image;
}

QString glErrorText(GLenum error)
{
    return QStringLiteral("GL error 0x%1 while drawing").arg(error, 4, 16, QLatin1Char('0'));
}

class Sweep {
public:
    Sweep(LVContext* ctx, const QString& folder) : ctx_(ctx)
    {
        LVEffectFolders folders;
        folders.bundled = folder;
        folders.systemVersion = -1;
        registry_ = std::make_unique<LVEffectRegistry>(folders);
        registry_->findEffects();
        const QSize size(ctx->width(), ctx->height());
        first_ = LVTexture{ctx->textureFromImage(testPicture(size, false)), size.width(), size.height()};
        second_ = LVTexture{ctx->textureFromImage(testPicture(size, true)), size.width(), size.height()};
    }

    ~Sweep()
    {
        ctx_->makeCurrent();
        glDeleteTextures(1, &first_.name);
        glDeleteTextures(1, &second_.name);
    }

    Outcome check(const QFileInfo& file)
    {
        Outcome outcome;
        const std::shared_ptr<const LVComposition> c = LVComposition::load(file.filePath());
        if (!c->isValid()) {
            outcome.error = c->error();
            return outcome;
        }
        outcome.loaded = true;
        outcome.kind = c->isTransition() ? QStringLiteral("transition")
                       : c->isFilter()   ? QStringLiteral("filter")
                                         : QStringLiteral("generator");
        for (int pass = 0; pass < int(c->passes().size()); ++pass) {
            if (!LVISFProgramFor(*c, pass)) {
                outcome.error = LVISFProgramError(*c);
                return outcome;
            }
        }
        outcome.compiled = true;
        if (!registry_->effectFileMapping().contains(file.fileName())) {
            outcome.error = QStringLiteral("not catalogued (an earlier file of that name wins)");
            return outcome;
        }
        const LVEffectRef effect = LVQCEffect::makeForFile(ctx_, file.fileName());
        auto* qc = dynamic_cast<LVQCEffect*>(effect.get());
        if (!qc || !qc->renderer() || !qc->renderer()->isUsable()) {
            outcome.error = QStringLiteral("no renderer for the catalogued file");
            return outcome;
        }
        qc->setMode(LVModeLive);
        glGetError();
        // Two frames, so persistent buffers are read back once.
        const std::vector<double> fractions = c->isTransition() ? std::vector<double>{0.0, 0.5, 1.0}
                                                                : std::vector<double>{-1.0, -1.0};
        double time = 0;
        for (double fraction : fractions) {
            drawFrame(*qc, time, fraction);
            time += 1.0 / 30;
            if (const GLenum error = glGetError(); error != GL_NO_ERROR) {
                outcome.error = glErrorText(error);
                return outcome;
            }
        }
        outcome.rendered = true;
        return outcome;
    }

private:
    // As the render loop draws one frame; a fraction of -1 runs the effect on its own.
    void drawFrame(LVQCEffect& effect, double time, double fraction)
    {
        ctx_->setFrameTime(time);
        ctx_->reset(false);
        effect.preDoit();
        ctx_->framebuffer();
        ctx_->drawTexture(first_, QRectF(0, 0, ctx_->width(), ctx_->height()),
                          QRectF(0, 0, first_.width, first_.height));
        if (fraction < 0) effect.doit();
        else effect.doTransitionTo(second_, fraction);
        ctx_->flush();
        std::vector<uint8_t> pixels(size_t(ctx_->width()) * ctx_->height() * 4);
        ctx_->fetchOpenGLPixels(pixels.data(), ctx_->width() * 4);
    }

    LVContext* ctx_;
    std::unique_ptr<LVEffectRegistry> registry_;
    LVTexture first_;
    LVTexture second_;
};

QString firstLine(const QString& text)
{
    return text.section(QLatin1Char('\n'), 0, 0);
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() != 2 || !QFileInfo(args[1]).isDir()) {
        std::fprintf(stderr, "usage: %s FOLDER\n  reports, per ISF file (.fs) in FOLDER: loaded, compiled, rendered or "
                             "the error that stopped it\n",
                     qPrintable(QFileInfo(args.value(0)).fileName()));
        return 2;
    }
    QString error;
    std::unique_ptr<LVContext> ctx = LVContext::create(QSize(320, 180), &error);
    if (!ctx) {
        std::fprintf(stderr, "no GL context: %s\n", qPrintable(error));
        return 2;
    }
    LVRegisterEffectKinds();
    const QFileInfoList files = QDir(args[1]).entryInfoList({QStringLiteral("*.fs")}, QDir::Files, QDir::Name);
    int failed = 0;
    {
        Sweep sweep(ctx.get(), QFileInfo(args[1]).absoluteFilePath());
        std::printf("file\tkind\tloaded\tcompiled\trendered\terror\n");
        for (const QFileInfo& file : files) {
            const Outcome o = sweep.check(file);
            if (!o.rendered) ++failed;
            auto yes = [](bool b) { return b ? "yes" : "no"; };
            std::printf("%s\t%s\t%s\t%s\t%s\t%s\n", qPrintable(file.fileName()), qPrintable(o.kind), yes(o.loaded),
                        yes(o.compiled), yes(o.rendered), qPrintable(firstLine(o.error)));
            std::fflush(stdout);
        }
    }
    std::printf("%lld files, %lld rendered, %d failed\n", static_cast<long long>(files.size()),
                static_cast<long long>(files.size() - failed), failed);
    return failed ? 1 : 0;
}
