#pragma once
// A source that needs no device: 75% colour bars, a square that moves a fixed step every
// frame and a running frame counter with timecode, so one glance shows that frames flow, in
// which order, and whether colours survive the way to the consumer.
#include <QImage>
#include <QRect>
#include <QRgb>

#include <array>
#include <chrono>
#include <optional>

#include "core/LVEffect.h"
#include "render/LVGL.h"
#include "sources/testpattern/TestPatternCounter.h"

class TestPatternSource : public LVEffect {
public:
    // White, yellow, cyan, green, magenta, red, blue at 75%.
    static const std::array<QRgb, 7> kBars;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    ~TestPatternSource() override;
    void doit() override;
    bool overwritesFrame() const override { return true; }
    // Frames drawn so far; the next frame shows this number.
    qint64 frameCount() const { return frame_; }

    // Layout at a frame size, in GL coordinates (origin bottom-left). The bars fill the top
    // two thirds; below them the square's track, and under that the counter.
    static QRect barRect(int index, int width, int height);
    static QRect squareRect(qint64 frame, int width, int height);
    static QRect counterRect(int width, int height);
    // "00:01:02.345  #000123"
    static QString counterText(qint64 frame, double seconds);

private:
    qint64 frame_ = 0;
    std::optional<double> firstFrameTime_;
    std::chrono::steady_clock::time_point started_ = std::chrono::steady_clock::now();
    void drawStaticPart(LVContext& ctx);
    void drawCounter(LVContext& ctx);

    TestPatternCounter counter_;
    // The bars and the black strip at one frame size, copied into every frame.
    GLuint staticPart_ = 0;
    QSize staticSize_;
};

// Adds the kind to the effect class table.
void LVRegisterTestPatternSource();
