// The test pattern rendered on the GPU, published through the frame transport, bridged by
// lumaveil-vcam to standard output and decoded by ffmpeg.
#include "render/LVContext.h"
#include "render/LVShmemOutput.h"
#include "transport/LVShmem.h"
#include "sources/testpattern/TestPatternSource.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QProcess>

#include <vector>

namespace {

struct Rgb {
    int r, g, b;
};

// A frame read back as A,R,G,B bytes, top row first.
struct Frame {
    int w = 0, h = 0;
    std::vector<uint8_t> bytes;
    // GL coordinates: y counts from the bottom.
    Rgb atGL(int x, int y) const
    {
        const uint8_t* p = bytes.data() + (size_t(h - 1 - y) * w + x) * 4;
        return {p[1], p[2], p[3]};
    }
};

Frame render(LVContext& ctx, TestPatternSource& src)
{
    ctx.reset(false);
    src.doit();
    Frame f{ctx.width(), ctx.height(), std::vector<uint8_t>(size_t(ctx.width()) * ctx.height() * 4)};
    ctx.fetchOpenGLPixels(f.bytes.data(), ctx.width() * 4);
    return f;
}

bool operator==(Rgb a, QRgb b)
{
    return a.r == qRed(b) && a.g == qGreen(b) && a.b == qBlue(b);
}

// A test pattern drawing into a GL context of its own.
class TestPatternTest : public ::testing::Test {
protected:
    void start(QSize size)
    {
        QString error;
        ctx = LVContext::create(size, &error);
        ASSERT_TRUE(ctx) << error.toStdString();
        source = TestPatternSource::classDescriptor().make();
        source->initWithContext(ctx.get());
    }
    TestPatternSource& pattern() { return static_cast<TestPatternSource&>(*source); }

    std::unique_ptr<LVContext> ctx;
    std::unique_ptr<LVEffect> source;
};

TEST_F(TestPatternTest, BarsAreExactAndTheSquareMovesOneStepPerFrame)
{
    const int w = 70, h = 30; // bars 10 px wide, strip 10 px high, square 5 px
    ASSERT_NO_FATAL_FAILURE(start(QSize(w, h)));
    pattern().setParameterValue(QStringLiteral("showCounter"), false);

    for (qint64 frame = 0; frame < 3; ++frame) {
        SCOPED_TRACE(frame);
        const Frame f = render(*ctx, pattern());
        for (int i = 0; i < 7; ++i)
            for (int x = i * 10; x < i * 10 + 10; ++x)
                for (int y = 10; y < h; ++y)
                    ASSERT_TRUE(f.atGL(x, y) == TestPatternSource::kBars[size_t(i)]) << "bar " << i << " at " << x << "," << y;
        // Square: x frame..frame+5, y 5..10; everything else in the strip black.
        for (int x = 0; x < w; ++x)
            for (int y = 0; y < 10; ++y) {
                const bool inSquare = x >= frame && x < frame + 5 && y >= 5;
                ASSERT_TRUE(f.atGL(x, y) == (inSquare ? qRgb(255, 255, 255) : qRgb(0, 0, 0))) << x << "," << y;
            }
    }
    EXPECT_EQ(pattern().frameCount(), 3);

    pattern().setParameterValue(QStringLiteral("moving"), false);
    EXPECT_TRUE(render(*ctx, pattern()).atGL(0, 7) == qRgb(255, 255, 255)); // held at the start
}

TEST_F(TestPatternTest, CounterIsDrawnUnderTheSquare)
{
    ASSERT_NO_FATAL_FAILURE(start(QSize(640, 360)));
    for (bool show : {true, false}) {
        pattern().setParameterValue(QStringLiteral("showCounter"), show);
        const Frame f = render(*ctx, pattern());
        const QRect area = TestPatternSource::counterRect(640, 360);
        int lit = 0;
        for (int y = area.top(); y <= area.bottom(); ++y)
            for (int x = area.left(); x <= area.right(); ++x)
                lit += f.atGL(x, y).r > 128;
        if (show)
            EXPECT_GT(lit, 200);
        else
            EXPECT_EQ(lit, 0);
    }
    EXPECT_EQ(TestPatternSource::counterText(0, 0), QStringLiteral("00:00:00.000  #000000"));
    EXPECT_EQ(TestPatternSource::counterText(123, 3723.4567), QStringLiteral("01:02:03.457  #000123"));
}

// 100 frames at 1280x720: render, publish, lumaveil-vcam --stdout, ffmpeg decode. Every
// decoded frame shows the bars and the square further along than in the frame before.
TEST_F(TestPatternTest, HundredFramesThroughVcamIntoFfmpegKeepBarsAndOrder)
{
    lvUnlinkFrameSegments();
    const int w = 1280, h = 720;
    ASSERT_NO_FATAL_FAILURE(start(QSize(w, h)));
    LVShmem producer(LVShmemRole::Producer);
    producer.setAppRunning();
    LVFrameReadBack readBack;
    auto publish = [&] {
        ctx->reset(false);
        pattern().doit();
        LVShmemOutput::publish(producer, *readBack.read(*ctx), 30);
    };
    publish();

    // Decoded at a quarter size with nearest-neighbour scaling: bar colours stay whole and
    // the square's 8-pixel step becomes 2 pixels.
    const int dw = w / 4, dh = h / 4;
    QProcess vcam, ffmpeg;
    vcam.setStandardOutputProcess(&ffmpeg);
    ffmpeg.start(QStringLiteral("ffmpeg"),
                 {"-loglevel", "error", "-f", "rawvideo", "-pix_fmt", "yuyv422", "-s", "1280x720", "-r", "30", "-i", "-",
                  "-vf", "scale=320:180:flags=neighbor", "-f", "rawvideo", "-pix_fmt", "rgb24", "-"});
    // A repeat only after a second, so a repeated frame would mean a stalled producer.
    vcam.start(QStringLiteral(LV_VCAM_PATH), {"--stdout", "--frames", "100", "--rate", "1"});
    ASSERT_TRUE(vcam.waitForStarted());
    QByteArray decoded;
    for (int i = 0; i < 1000 && vcam.state() != QProcess::NotRunning; ++i) {
        publish();
        vcam.waitForFinished(25);
        ffmpeg.waitForReadyRead(1);
        decoded += ffmpeg.readAllStandardOutput();
    }
    producer.setAppNotRunning();
    ASSERT_TRUE(ffmpeg.waitForFinished(30000));
    decoded += ffmpeg.readAllStandardOutput();
    lvUnlinkFrameSegments();

    EXPECT_EQ(vcam.exitCode(), 0);
    const QString firstLine = QString::fromUtf8(vcam.readAllStandardError()).section(QLatin1Char('\n'), 0, 0);
    EXPECT_EQ(firstLine, QStringLiteral("lumaveil-vcam: 1280x720 yuyv422 1 fps -> standard output"));
    EXPECT_EQ(ffmpeg.exitCode(), 0) << ffmpeg.readAllStandardError().toStdString();

    const int frameBytes = dw * dh * 3;
    ASSERT_EQ(decoded.size(), 100 * frameBytes);
    const int side = (h - h * 2 / 3) / 2;
    const int squareRow = (h * 2 / 3 + side / 2) / 4; // top-down, in the decoded frame
    const int travelFrames = (w - side) / 8;
    int previous = -1;
    for (int n = 0; n < 100; ++n) {
        SCOPED_TRACE(n);
        const auto* px = reinterpret_cast<const uint8_t*>(decoded.constData()) + size_t(n) * frameBytes;
        for (int i = 0; i < 7; ++i) {
            const int x = (i * w / 7 + w / 14) / 4;
            const uint8_t* p = px + (size_t(h / 6 / 4) * dw + x) * 3;
            const QRgb want = TestPatternSource::kBars[size_t(i)];
            EXPECT_NEAR(p[0], qRed(want), 6) << "bar " << i;
            EXPECT_NEAR(p[1], qGreen(want), 6) << "bar " << i;
            EXPECT_NEAR(p[2], qBlue(want), 6) << "bar " << i;
        }
        int left = -1;
        for (int x = 0; x < dw && left < 0; ++x)
            if (px[(size_t(squareRow) * dw + x) * 3 + 1] > 200)
                left = x;
        ASSERT_GE(left, 0) << "no square";
        ASSERT_EQ(left % 2, 0);
        const int index = left / 2; // frame number modulo the travel
        if (previous >= 0) {
            const int advance = (index - previous + travelFrames) % travelFrames;
            // A busy machine may starve the bridge and lose frames (it always shows the newest);
            // a step back shows up as an advance of more than half the travel.
            EXPECT_GE(advance, 1) << "frame repeated";
            EXPECT_LT(advance, travelFrames / 2) << "frame out of order";
        }
        previous = index;
    }
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
