#pragma once
// Rendering an overlay effect over a black frame and looking for its colours in the result.
#include "core/LVEffect.h"
#include "render/LVContext.h"

#include <QRect>
#include <QTest>

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

// One frame: opaque black, then the effect, read back.
inline LVOverlayFrame lvRenderOverlay(LVContext& ctx, LVEffect& effect, double frameTime = 0)
{
    ctx.makeCurrent();
    ctx.setFrameTime(frameTime);
    ctx.reset(false);
    effect.doit();
    ctx.flush();
    LVOverlayFrame frame{ctx.width(), ctx.height(), {}};
    frame.argb.resize(size_t(ctx.width()) * size_t(ctx.height()) * 4);
    ctx.fetchOpenGLPixels(frame.argb.data(), ctx.width() * 4);
    return frame;
}

// Serves the event loop until done() holds; false when it never did.
inline bool lvWaitFor(const std::function<bool()>& done, std::chrono::seconds limit = std::chrono::seconds(20))
{
    return QTest::qWaitFor(done, int(std::chrono::milliseconds(limit).count()));
}
