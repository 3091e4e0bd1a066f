// The news ticker in the real lumaveil, run headless against this test's HTTP server.
#include "LVTestHttpServer.h"

#include "effects/registration/LVEffectKinds.h"
#include "tests/effects/LVHeadlessOverlayRun.h"

#include <gtest/gtest.h>

#include <QColor>

namespace {

TEST(NewsTickerProcess, TheHeadlessRunDrawsTheBandWithTheFeedsHeadlines)
{
    LVRegisterEffectKinds();
    LVTestHttpServer server;
    server.answer(QStringLiteral("/news.xml"),
                  {200, "<rss version=\"2.0\"><channel><item><title>Lumaveil ticks</title></item>"
                        "<item><title>Second headline</title></item></channel></rss>",
                   "application/rss+xml"});
    LVEffectRef ticker = LVEffectClasses::classNamed(QStringLiteral("NewsTicker"))->make();
    ticker->initWithContext(nullptr);
    ticker->setParameterValue(QStringLiteral("feedAddress"), server.address() + QStringLiteral("/news.xml"));
    ticker->setParameterValue(QStringLiteral("color"), QColor(255, 255, 0));
    ticker->setParameterValue(QStringLiteral("backgroundColor"), QColor(0, 0, 255));
    ticker->setParameterValue(QStringLiteral("position"), 1);
    QString log;
    // The 320x240 frame: the band along the top, nothing of it in the lower half.
    const QRect top(0, 220, 320, 20), lower(0, 0, 320, 120);
    EXPECT_TRUE(lvHeadlessFrameMatches({ticker},
                                       [&](const LVOverlayFrame& frame) {
                                           return frame.count(top, lvIsBlue) > 320 * 10 &&
                                                  frame.count(top, lvIsYellow) > 30 && frame.count(lower, lvIsBlue) == 0;
                                       },
                                       &log))
        << log.toStdString();
}

} // namespace
