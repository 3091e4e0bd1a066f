// The song text in the real lumaveil, run headless on the private session bus of this test.
#include "LVFakeMprisPlayer.h"

#include "effects/registration/LVEffectKinds.h"
#include "effects/song/iTunesSong.h"
#include "tests/effects/LVHeadlessOverlayRun.h"

#include <gtest/gtest.h>

#include <QColor>

namespace {

TEST(iTunesSongProcess, TheHeadlessRunDrawsThePlayingTrackWherePlaced)
{
    LVRegisterEffectKinds();
    LVFakeMprisPlayer player(QStringLiteral("headless"));
    ASSERT_TRUE(player.isRegistered());
    player.play(QStringLiteral("On Air"), {QStringLiteral("Lumaveil")}, QStringLiteral("Tests"));

    LVEffectRef song = LVEffectClasses::classNamed(QStringLiteral("iTunesSong"))->make();
    song->initWithContext(nullptr);
    song->setParameterValue(QStringLiteral("color"), QColor(Qt::red));
    song->setParameterValue(QStringLiteral("position"), 2);
    QString log;
    // The 320x240 frame: the text in the top-left corner, nothing red below the middle.
    const QRect corner(0, 120, 160, 120), lower(0, 0, 320, 120);
    EXPECT_TRUE(lvHeadlessFrameMatches({song},
                                       [&](const LVOverlayFrame& frame) {
                                           return frame.count(corner, lvIsRed) > 50 && frame.count(lower, lvIsRed) == 0;
                                       },
                                       &log))
        << log.toStdString();
}

} // namespace

namespace {

TEST(iTunesSongProcess, TheCatalogueListsSongTextAndTheTicker)
{
    QTemporaryDir home;
    QProcess process;
    process.setProcessEnvironment(lvPrivateEnvironment(home));
    process.start(QStringLiteral(LV_LUMAVEIL_BINARY), {QStringLiteral("--list-effects")});
    ASSERT_TRUE(process.waitForFinished(60000));
    const QString out = QString::fromUtf8(process.readAllStandardOutput());
    EXPECT_TRUE(out.contains(QStringLiteral("Song Text"))) << out.toStdString();
    EXPECT_TRUE(out.contains(QStringLiteral("News Ticker"))) << out.toStdString();
}

} // namespace
