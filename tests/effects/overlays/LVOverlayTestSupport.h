#pragma once
// Rendering an overlay effect over a black frame and looking for its colours in the result.
#include "core/LVEffect.h"
#include "effects/registration/LVEffectKinds.h"
#include "tests/support/LVGLTestSupport.h"
#include "tests/support/LVWaitFor.h"

#include <QTest>
#include <QVariantMap>

#include <gtest/gtest.h>

inline bool lvIsRed(int r, int g, int b) { return r > 200 && g < 60 && b < 60; }
inline bool lvIsYellow(int r, int g, int b) { return r > 200 && g > 200 && b < 60; }
inline bool lvIsBlue(int r, int g, int b) { return r < 30 && g < 30 && b > 220; }

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
class LVOverlayTest : public LVGLTest {
protected:
    void start(QSize size, const QString& kind, const QVariantMap& settings)
    {
        makeContext(size.width(), size.height());
        effect = lvMakeOverlay<Effect>(kind, ctx.get(), settings);
        ASSERT_TRUE(effect);
    }

    void TearDown() override
    {
        // No layout may outlive the fonts of the application.
        if (effect) effect->waitForOverlay();
        effect.reset();
        LVGLTest::TearDown();
    }

    // One frame: opaque black, then the effect, read back.
    Frame render(double frameTime = 0)
    {
        effect->waitForOverlay();
        ctx->makeCurrent();
        ctx->setFrameTime(frameTime);
        ctx->reset(false);
        effect->doit();
        ctx->flush();
        return read();
    }

    std::shared_ptr<Effect> effect;
};
