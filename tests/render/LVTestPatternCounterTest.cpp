// The test pattern's counter composed from cells gives the painter's pixels exactly, frame
// after frame and size after size, and paints whatever does not have the usual shape.
#include "sources/testpattern/TestPatternCounter.h"
#include "sources/testpattern/TestPatternSource.h"

#include <gtest/gtest.h>


namespace {

QImage painted(QSize size, const QString& text)
{
    return TestPatternCounter::paint(size, text).convertToFormat(QImage::Format_RGBA8888).mirrored(false, true);
}

} // namespace

TEST(TestPatternCounter, ComposedLinesAreThePaintersPixels)
{
    struct Case {
        QSize size;
        QString text;
        bool composed;
    };
    // Counter sizes of 1080p, 720p, 360p and a tiny frame; the last shapes outgrow the cells.
    const Case cases[] = {
        {{1920, 180}, TestPatternSource::counterText(123, 4.1), true},
        {{1280, 120}, TestPatternSource::counterText(0, 0), true},
        {{1280, 120}, TestPatternSource::counterText(999999, 359999.999), true},
        {{1280, 120}, TestPatternSource::counterText(88, 12.5), true},
        {{640, 60}, TestPatternSource::counterText(4567, 152.3), true},
        {{1280, 120}, TestPatternSource::counterText(1000000, 1.0), false},
        {{1280, 120}, TestPatternSource::counterText(5, 360000.0), false},
        {{160, 20}, TestPatternSource::counterText(42, 1.4), false},
        {{640, 60}, TestPatternSource::counterText(4568, 152.34), true},
    };
    TestPatternCounter counter; // one for all: cells carry over from line to line
    for (const Case& c : cases) {
        const std::string what = c.text.toStdString() + " at " + std::to_string(c.size.width());
        EXPECT_EQ(counter.picture(c.size, c.text), painted(c.size, c.text)) << what;
        if (c.size.width() >= 640) {
            EXPECT_EQ(counter.composed(), c.composed) << what;
        }
    }
    // A running counter changes a few cells each frame; every frame stays exact.
    TestPatternCounter running;
    for (qint64 frame = 95; frame < 125; ++frame) {
        const QString text = TestPatternSource::counterText(frame, frame / 30.0);
        ASSERT_EQ(running.picture(QSize(1280, 120), text), painted(QSize(1280, 120), text)) << text.toStdString();
        EXPECT_TRUE(running.composed());
    }
}
