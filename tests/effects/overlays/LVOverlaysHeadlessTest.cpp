// Both overlays in the real lumaveil, run headless on a saved setup: the song text follows this
// test's player on the private session bus, the ticker reads this test's HTTP server.
#include "LVFakeMprisPlayer.h"
#include "LVOverlayTestSupport.h"
#include "LVTestHttpServer.h"

#include "setups/model/LVSavedSetup.h"
#include "tests/support/LVTestSupport.h"

#include <QColor>
#include <QProcess>
#include <QTemporaryDir>

namespace {

TEST(LVOverlaysHeadless, TheRunDrawsThePlayingTrackAndTheFeedsBandWherePlaced)
{
    LVFakeMprisPlayer player(QStringLiteral("headless"));
    ASSERT_TRUE(player.isRegistered());
    player.play(QStringLiteral("On Air"), {QStringLiteral("Lumaveil")}, QStringLiteral("Tests"));
    LVTestHttpServer server;
    server.answer(QStringLiteral("/news.xml"), {200,
                                                "<rss version=\"2.0\"><channel><item><title>Lumaveil ticks</title></item>"
                                                "</channel></rss>",
                                                "application/rss+xml"});

    const auto song = lvMakeOverlay(QStringLiteral("iTunesSong"), nullptr, {{"color", QColor(Qt::red)}, {"position", 1}});
    const auto ticker = lvMakeOverlay(QStringLiteral("NewsTicker"), nullptr,
                                      {{"feedAddress", server.address() + QStringLiteral("/news.xml")},
                                       {"color", QColor(255, 255, 0)},
                                       {"backgroundColor", QColor(0, 0, 255)},
                                       {"position", 1}});
    ASSERT_TRUE(song && ticker);
    QTemporaryDir home;
    const QString setup = home.filePath(QStringLiteral("Overlays.json"));
    ASSERT_TRUE(LVSavedSetup({song, ticker}, setup).persist());

    QProcess process;
    process.setProcessEnvironment(lvPrivateEnvironment(home));
    process.start(QStringLiteral(LV_LUMAVEIL_BINARY),
                  {QStringLiteral("--headless"), QStringLiteral("--setup"), setup, QStringLiteral("--video-size"),
                   QStringLiteral("320x240"), QStringLiteral("--fps"), QStringLiteral("30")});
    ASSERT_TRUE(process.waitForStarted());
    // The 320x240 frame: the band along the top with the headline on it, the track in the
    // bottom-right quarter, and neither anywhere else.
    const QRect band(0, 220, 320, 20), lower(0, 0, 320, 120), bottomRight(160, 0, 160, 120);
    const bool seen = lvWatchFrames(process, 0, [&](const LVShmemReadResult& read, const uint8_t* argb) {
        const Frame frame{{argb, argb + size_t(read.width) * size_t(read.height) * 4}, int(read.width), int(read.height),
                          int(read.width) * 4};
        return frame.count(band, lvIsBlue) > 320 * 10 && frame.count(band, lvIsYellow) > 30 &&
               frame.count(lower, lvIsBlue) == 0 && frame.count(bottomRight, lvIsRed) > 50 &&
               frame.count(lvIsRed) == frame.count(bottomRight, lvIsRed);
    });
    process.terminate();
    process.waitForFinished(30000);
    lvUnlinkFrameSegments();
    EXPECT_TRUE(seen) << process.readAllStandardError().toStdString();
}

} // namespace
