#pragma once
// A small GL context, a folder of compositions and the chain the render loop would run.
#include "core/LVEffectRegistry.h"
#include "effects/composition/LVComposition.h"
#include "effects/composition/LVQCEffect.h"
#include "effects/registration/LVEffectKinds.h"
#include "render/LVContext.h"

#include <gtest/gtest.h>

#include <QColor>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <array>
#include <vector>

using ARGB = std::array<int, 4>;

struct Frame {
    std::vector<uint8_t> bytes;
    int width = 0;
    int height = 0;
    // Row 0 is the top row.
    ARGB at(int x, int row) const
    {
        const uint8_t* p = bytes.data() + (size_t(row) * width + x) * 4;
        return {p[0], p[1], p[2], p[3]};
    }
    QImage image() const
    {
        QImage img(width, height, QImage::Format_ARGB32);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const ARGB p = at(x, y);
                img.setPixel(x, y, qRgba(p[1], p[2], p[3], p[0]));
            }
        return img;
    }
};

inline std::ostream& operator<<(std::ostream& out, const ARGB& p)
{
    return out << "(" << p[0] << "," << p[1] << "," << p[2] << "," << p[3] << ")";
}

class LVEffectsTest : public ::testing::Test {
protected:
    void SetUp() override { makeContext(16, 8); }

    void makeContext(int width, int height)
    {
        chain.clear();
        ctx.reset();
        QString error;
        ctx = LVContext::create(QSize(width, height), &error);
        ASSERT_TRUE(ctx) << error.toStdString();
        LVRegisterEffectKinds();
        LVComposition::clearCache();
        LVQCEffect::setFusionEnabled(true);
    }

    void TearDown() override
    {
        chain.clear();
        registry.reset();
        ctx.reset();
        LVQCEffect::setFusionEnabled(true);
    }

    QString write(const QString& name, const QByteArray& text)
    {
        QFile file(dir.filePath(name));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(text);
        return file.fileName();
    }

    // The catalogue over the test folder (or the bundled Effects folder).
    void scan(const QString& folder = QString())
    {
        LVEffectFolders folders;
        folders.bundled = folder.isEmpty() ? dir.path() : folder;
        folders.systemVersion = -1;
        registry = std::make_unique<LVEffectRegistry>(folders);
        registry->findEffects();
    }

    LVEffectRef make(const QString& name)
    {
        if (!registry) scan();
        for (const auto& factory : registry->transitions())
            if (factory->name() == name) return factory->instantiateWithContext(ctx.get());
        return registry->instantiateNamedEffect(name, ctx.get());
    }

    LVQCEffect* qc(const LVEffectRef& effect) { return dynamic_cast<LVQCEffect*>(effect.get()); }

    // The source: a picture drawn into the frame (a fresh one unless told otherwise).
    void drawPicture(const QImage& picture, bool fresh = true)
    {
        if (fresh) ctx->reset(false);
        ctx->framebuffer();
        GLuint texture = ctx->textureFromImage(picture);
        ctx->drawTexture(LVTexture{texture, picture.width(), picture.height()}, QRectF(0, 0, ctx->width(), ctx->height()),
                         QRectF(0, 0, picture.width(), picture.height()));
        glDeleteTextures(1, &texture);
    }

    QImage solid(QColor color) const
    {
        QImage img(ctx->width(), ctx->height(), QImage::Format_ARGB32);
        img.fill(color);
        return img;
    }

    // One frame as the render loop runs it.
    Frame render(const QImage& picture, double frameTime = 0)
    {
        ctx->setFrameTime(frameTime);
        ctx->reset(false);
        std::optional<LVChainAreas> areas;
        if (drawOnlyWhatIsRead) areas.emplace(chain, QSize(ctx->width(), ctx->height()));
        for (const auto& effect : chain)
            if (effect->isEnabled()) effect->preDoit();
        drawPicture(picture, false);
        for (const auto& effect : chain) {
            if (!effect->isEnabled()) continue;
            effect->doit();
            ctx->flush();
        }
        return read();
    }

    Frame read()
    {
        Frame f;
        f.width = ctx->width();
        f.height = ctx->height();
        f.bytes.assign(size_t(f.width) * f.height * 4, 0);
        ctx->fetchOpenGLPixels(f.bytes.data(), f.width * 4);
        return f;
    }

    static QString bundledEffects() { return QStringLiteral(LV_TEST_BUNDLED_EFFECTS); }

    QTemporaryDir dir;
    std::unique_ptr<LVContext> ctx;
    std::unique_ptr<LVEffectRegistry> registry;
    std::vector<LVEffectRef> chain;
    // Off: every effect draws its whole frame (the reference for drawing only what is read).
    bool drawOnlyWhatIsRead = true;
};
