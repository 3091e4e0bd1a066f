#pragma once
// Rendering an overlay effect over a black frame and looking for its colours in the result.
#include "core/LVEffect.h"
#include "effects/registration/LVEffectKinds.h"
#include "render/LVContext.h"

#include <QRect>
#include <QTest>
#include <QVariantMap>

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <vector>

struct LVOverlayFrame {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> argb;  // A,R,G,B, top row first

    // Pixels inside area (GL coordinates, origin bottom-left) for which match answers true.
    int count(const QRect& area, const std::function<bool(int r, int g, int b)>& match) const
    {
        int n = 0;
        const QRect inside = area.intersected(QRect(0, 0, width, height));
        for (int y = inside.top(); y <= inside.bottom(); ++y) {
            const uint8_t* row = argb.data() + size_t(height - 1 - y) * size_t(width) * 4;
            for (int x = inside.left(); x <= inside.right(); ++x) {
                const uint8_t* p = row + size_t(x) * 4;
                if (match(p[1], p[2], p[3])) ++n;
            }
        }
        return n;
    }
    int count(const std::function<bool(int r, int g, int b)>& match) const
    {
        return count(QRect(0, 0, width, height), match);
    }
};

inline bool lvIsRed(int r, int g, int b) { return r > 200 && g < 60 && b < 60; }
inline bool lvIsYellow(int r, int g, int b) { return r > 200 && g > 200 && b < 60; }
inline bool lvIsBlue(int r, int g, int b) { return r < 30 && g < 30 && b > 220; }

// Serves the event loop until done() holds; false when it never did.
inline bool lvWaitFor(const std::function<bool()>& done, std::chrono::seconds limit = std::chrono::seconds(20))
{
    return QTest::qWaitFor(done, int(std::chrono::milliseconds(limit).count()));
}

// An overlay effect of a registered kind, with the given settings.
template <class Effect = LVEffect>
std::shared_ptr<Effect> lvMakeOverlay(const QString& kind, LVContext* ctx, const QVariantMap& settings)
{
    LVRegisterEffectKinds();
    const LVEffectDescriptor* descriptor = LVEffectClasses::classNamed(kind);
    if (!descriptor) return nullptr;
    std::shared_ptr<Effect> effect(static_cast<Effect*>(descriptor->make().release()));
    effect->initWithContext(ctx);
    for (auto it = settings.begin(); it != settings.end(); ++it) effect->setParameterValue(it.key(), it.value());
    return effect;
}

// A GL context of the given size and one overlay effect drawn into it.
template <class Effect>
class LVOverlayTest : public ::testing::Test {
protected:
    void start(QSize size, const QString& kind, const QVariantMap& settings)
    {
        QString error;
        ctx = LVContext::create(size, &error);
        ASSERT_TRUE(ctx) << error.toStdString();
        effect = lvMakeOverlay<Effect>(kind, ctx.get(), settings);
        ASSERT_TRUE(effect);
    }

    void TearDown() override
    {
        // No layout may outlive the fonts of the application.
        if (effect) effect->waitForOverlay();
        effect.reset();
        ctx.reset();
    }

    // One frame: opaque black, then the effect, read back.
    LVOverlayFrame render(double frameTime = 0)
    {
        effect->waitForOverlay();
        ctx->makeCurrent();
        ctx->setFrameTime(frameTime);
        ctx->reset(false);
        effect->doit();
        ctx->flush();
        LVOverlayFrame frame{ctx->width(), ctx->height(), std::vector<uint8_t>(size_t(ctx->width()) * ctx->height() * 4)};
        ctx->fetchOpenGLPixels(frame.argb.data(), ctx->width() * 4);
        return frame;
    }

    std::unique_ptr<LVContext> ctx;
    std::shared_ptr<Effect> effect;
};
