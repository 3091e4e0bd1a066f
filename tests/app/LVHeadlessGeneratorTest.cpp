// The real lumaveil executable, headless, with a generator composition as its source and the
// telestrator over it: the bars arrive in shared memory, untouched by a telestrator with no strokes.
#include "transport/LVShmem.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>

TEST(LVHeadlessGeneratorTest, ColorBarsAsTheSourcePublishExactBars)
{
    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    QProcess process;
    QProcessEnvironment environment = lvPrivateEnvironment(home);
    environment.insert(QStringLiteral("LUMAVEIL_EFFECTS_DIR"), QStringLiteral(LV_BUNDLED_EFFECTS_DIR));
    process.setProcessEnvironment(environment);
    process.setProgram(QStringLiteral(LV_LUMAVEIL_BINARY));
    process.setArguments({QStringLiteral("--headless"), QStringLiteral("--source"), QStringLiteral("Color Bars"),
                          QStringLiteral("--effect"), QStringLiteral("Telestrator"), QStringLiteral("--fps"),
                          QStringLiteral("30"), QStringLiteral("--video-size"), QStringLiteral("70x30")});
    process.start();
    ASSERT_TRUE(process.waitForStarted());

    struct Probe {
        int x, row;
        uint8_t a, r, g, b;
    };
    // Upper two thirds: white, then yellow at 75%; lower third: blue under white, black under yellow.
    const Probe probes[] = {{5, 5, 255, 191, 191, 191}, {15, 5, 255, 191, 191, 0}, {65, 5, 255, 0, 0, 191},
                            {5, 25, 255, 0, 0, 191},    {15, 25, 255, 0, 0, 0},     {65, 25, 255, 191, 191, 191}};
    std::string last;
    const bool seen = lvWatchFrames(process, LVShmem::currentHostTime(), [&](const LVShmemReadResult&, const uint8_t* argb) {
        last.clear();
        for (const Probe& p : probes) {
            const uint8_t* px = argb + (size_t(p.row) * 70 + size_t(p.x)) * 4;
            if (px[0] != p.a || px[1] != p.r || px[2] != p.g || px[3] != p.b) {
                last = "pixel " + std::to_string(p.x) + "," + std::to_string(p.row) + " is " + std::to_string(px[0]) +
                       "," + std::to_string(px[1]) + "," + std::to_string(px[2]) + "," + std::to_string(px[3]);
                return false;
            }
        }
        return true;
    });
    EXPECT_TRUE(seen) << last << "\n" << process.readAllStandardError().toStdString();
    process.terminate();
    ASSERT_TRUE(process.waitForFinished(30000));
}
