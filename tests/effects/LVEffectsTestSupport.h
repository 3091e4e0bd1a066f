#pragma once
// A small GL context, a folder of compositions and the chain the render loop would run.
#include "core/LVEffectRegistry.h"
#include "effects/composition/LVComposition.h"
#include "effects/composition/LVQCEffect.h"
#include "effects/registration/LVEffectKinds.h"
#include "tests/support/LVGLTestSupport.h"

#include <gtest/gtest.h>

#include <QColor>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <vector>

class LVEffectsTest : public LVGLTest {
protected:
    void SetUp() override { makeContext(16, 8); }

    void makeContext(int width, int height)
    {
        chain.clear();
        LVGLTest::makeContext(width, height);
        LVRegisterEffectKinds();
        LVComposition::clearCache();
        LVQCEffect::setFusionEnabled(true);
    }

    void TearDown() override
    {
        chain.clear();
        registry.reset();
        LVGLTest::TearDown();
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

    using Settings = std::vector<std::pair<QString, QVariant>>;
    // The named effects as the chain, live, each given the settings (an effect ignores keys it lacks).
    void liveChain(const QStringList& names, const Settings& settings = {})
    {
        chain.clear();
        for (const QString& name : names) {
            const LVEffectRef effect = make(name);
            ASSERT_TRUE(effect) << name.toStdString();
            effect->setMode(LVModeLive);
            for (const auto& [key, value] : settings) effect->setParameterValue(key, value);
            chain.push_back(effect);
        }
    }

    // The bundled folder copied to dir/bundled, so a test may add compositions beside it.
    QString copyBundled()
    {
        const QString folder = dir.filePath(QStringLiteral("bundled"));
        QDir().mkpath(folder);
        for (const QString& name : QDir(bundledEffects()).entryList({QStringLiteral("*.fs")}))
            QFile::copy(QDir(bundledEffects()).filePath(name), folder + QLatin1Char('/') + name);
        return folder;
    }

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

    static QString bundledEffects() { return QStringLiteral(LV_TEST_BUNDLED_EFFECTS); }

    QTemporaryDir dir;
    std::unique_ptr<LVEffectRegistry> registry;
    std::vector<LVEffectRef> chain;
    // Off: every effect draws its whole frame (the reference for drawing only what is read).
    bool drawOnlyWhatIsRead = true;
};
