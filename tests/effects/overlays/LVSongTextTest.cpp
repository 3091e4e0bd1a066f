// The song text: MPRIS metadata and player choice, the overlay's layout, and the effect
// following fake players on a private session bus, drawn into a real GL context.
#include "LVFakeMprisPlayer.h"
#include "LVOverlayTestSupport.h"

#include "core/LVEffectRegistry.h"
#include "effects/song/LVMprisPlayers.h"
#include "effects/song/iTunesSong.h"

#include <QColor>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>
#include <QUrl>

namespace {

const QString kPrefix = QStringLiteral("org.mpris.MediaPlayer2.");

TEST(LVMprisPlayers, MetadataBecomesATrack)
{
    struct Case {
        const char* what;
        QVariantMap metadata;
        LVSongTrack expected;
    };
    const Case cases[] = {
        {"every field",
         {{"xesam:title", "Blue"}, {"xesam:artist", QStringList{"Ann"}}, {"xesam:album", "Sky"}, {"mpris:artUrl", "file:///c.png"}},
         {"Blue", "Ann", "Sky", "file:///c.png"}},
        {"several artists are joined, blanks dropped",
         {{"xesam:title", "Duet"}, {"xesam:artist", QStringList{"Ann", " ", " Bob "}}},
         {"Duet", "Ann, Bob", {}, {}}},
        {"an artist sent as one string", {{"xesam:artist", "Solo"}}, {{}, "Solo", {}, {}}},
        {"text of the wrong type is left empty",
         {{"xesam:title", 42}, {"xesam:album", QStringList{"x"}}, {"xesam:artist", 7}},
         {}},
    };
    for (const Case& c : cases) EXPECT_EQ(LVSongTrackFromMetadata(c.metadata), c.expected) << c.what;
}

TEST(LVMprisPlayers, APlayerIsChosenByItsShortName)
{
    struct Case {
        QString busName;
        QString chosen;
        bool matches;
    };
    const Case cases[] = {
        {kPrefix + "vlc", "", true},
        {kPrefix + "vlc", "vlc", true},
        {kPrefix + "vlc", " VLC ", true},
        {kPrefix + "vlc.instance42", "vlc", true},
        {kPrefix + "vlc.instance42", "vlc.instance42", true},
        {kPrefix + "vlcx", "vlc", false},
        {kPrefix + "vlc", "vlc.instance42", false},
        {kPrefix + "mpv", "vlc", false},
        {"org.freedesktop.Notifications", "", false},
        {"org.mpris.MediaPlayer2", "", false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(LVMprisPlayerMatches(c.busName, c.chosen), c.matches) << (c.busName + " / " + c.chosen).toStdString();
}

TEST(LVMprisPlayers, TheFirstPlayingMatchingPlayerIsShown)
{
    const LVSongTrack a{"A", "", "", ""}, b{"B", "", "", ""};
    struct Case {
        const char* what;
        std::map<QString, LVMprisPlayer> players;
        QString chosen;
        std::optional<LVSongTrack> expected;
    };
    const Case cases[] = {
        {"no players", {}, "", std::nullopt},
        {"first by bus name", {{kPrefix + "b", {"Playing", b}}, {kPrefix + "a", {"Playing", a}}}, "", a},
        {"paused players are passed over", {{kPrefix + "a", {"Paused", a}}, {kPrefix + "b", {"Playing", b}}}, "", b},
        {"nothing playing", {{kPrefix + "a", {"Paused", a}}, {kPrefix + "b", {"Stopped", b}}}, "", std::nullopt},
        {"the chosen one", {{kPrefix + "a", {"Playing", a}}, {kPrefix + "b", {"Playing", b}}}, "b", b},
        {"the chosen one paused shows nothing", {{kPrefix + "a", {"Playing", a}}, {kPrefix + "b", {"Paused", b}}}, "b",
         std::nullopt},
        {"a track without text counts as nothing", {{kPrefix + "a", {"Playing", {}}}, {kPrefix + "b", {"Playing", b}}},
         "", b},
    };
    for (const Case& c : cases) EXPECT_EQ(LVChooseSong(c.players, c.chosen), c.expected) << c.what;
}

TEST(iTunesSongCatalogue, SongTextKeepsItsBuiltInPlaceAndTheTickerFollows)
{
    LVRegisterEffectKinds();
    LVEffectRegistry registry(LVEffectFolders{});
    registry.findBuiltInEffects();
    QStringList names;
    for (const auto& factory : registry.allEffects()) names.append(factory->name());
    ASSERT_GE(names.size(), 4) << names.join(", ").toStdString();
    EXPECT_EQ(names.mid(0, 3), QStringList({"Song Text", "Telestrator", "Script"}))
        << "iTunesSong comes before Telestrator and AppleScriptEffect";
    EXPECT_GT(names.indexOf("News Ticker"), 2) << "kinds outside the built-in list follow it";
}

LVSongStyle redStyle()
{
    LVSongStyle style;
    style.fontName = QStringLiteral("DejaVu Sans");
    style.fontSize = 20;
    style.color = Qt::red;
    style.shadowColor = Qt::transparent;
    return style;
}

TEST(iTunesSongLayout, TheOverlayHoldsTheChosenLinesBesideTheCover)
{
    const LVSongTrack track{"Title", "Artist", "Album", ""};
    QImage cover(40, 40, QImage::Format_RGB32);
    cover.fill(Qt::green);
    LVSongStyle style = redStyle();
    const QImage full = iTunesSong::composeOverlay(track, QImage(), style);
    ASSERT_FALSE(full.isNull());
    const QImage withCover = iTunesSong::composeOverlay(track, cover, style);
    EXPECT_EQ(withCover.height(), full.height());
    EXPECT_GE(withCover.width(), full.width() + full.height()) << "a square cover as tall as the text, beside it";

    style.showArtist = style.showAlbum = false;
    EXPECT_LT(iTunesSong::composeOverlay(track, QImage(), style).height(), full.height()) << "fewer lines, lower picture";
    style.showTitle = false;
    EXPECT_TRUE(iTunesSong::composeOverlay(track, cover, style).isNull()) << "a cover alone is not drawn";
}

class iTunesSongBusTest : public LVOverlayTest<iTunesSong> {
protected:
    void SetUp() override
    {
        start(QSize(200, 120), QStringLiteral("iTunesSong"),
              {{"color", QColor(Qt::red)}, {"shadowColor", QColor(Qt::transparent)}, {"fontSize", 16}, {"position", 2}});
    }

    bool shows(const QString& title)
    {
        return lvWaitFor([&] { return song->shownTrack() && song->shownTrack()->title == title; });
    }

    QRect topLeft() const { return QRect(0, ctx->height() / 2, ctx->width() / 2, ctx->height() / 2); }
    QRect bottomRight() const { return QRect(ctx->width() / 2, 0, ctx->width() / 2, ctx->height() / 2); }

    std::shared_ptr<iTunesSong>& song = effect;
};

TEST_F(iTunesSongBusTest, ThePlayingTrackIsDrawnWherePlacedAndFollowsThePlayer)
{
    EXPECT_EQ(song->statusNote(), QStringLiteral("No media player found"));
    EXPECT_EQ(render().count(lvIsRed), 0);
    auto owned = std::make_unique<LVFakeMprisPlayer>(QStringLiteral("alpha"));
    LVFakeMprisPlayer& player = *owned;
    ASSERT_TRUE(player.isRegistered());
    ASSERT_TRUE(lvWaitFor([&] { return song->statusNote() == QStringLiteral("Nothing is playing"); }))
        << song->statusNote().toStdString();
    EXPECT_EQ(render().count(lvIsRed), 0);
    player.play(QStringLiteral("Hello"), {QStringLiteral("Ann"), QStringLiteral("Bob")}, QStringLiteral("First"));
    ASSERT_TRUE(shows(QStringLiteral("Hello")));
    EXPECT_EQ(song->shownTrack()->artist, QStringLiteral("Ann, Bob"));
    EXPECT_EQ(song->shownTrack()->album, QStringLiteral("First"));
    EXPECT_TRUE(song->statusNote().isEmpty());

    Frame frame = render();
    EXPECT_GT(frame.count(topLeft(), lvIsRed), 20);
    EXPECT_EQ(frame.count(lvIsRed), frame.count(topLeft(), lvIsRed)) << "nothing outside its corner";

    player.play(QStringLiteral("Next"), {QStringLiteral("Cy")}, QString());
    ASSERT_TRUE(shows(QStringLiteral("Next")));
    EXPECT_TRUE(song->shownTrack()->album.isEmpty());

    song->setParameterValue(QStringLiteral("position"), 1);
    frame = render();
    EXPECT_GT(frame.count(bottomRight(), lvIsRed), 20);
    EXPECT_EQ(frame.count(topLeft(), lvIsRed), 0);

    player.setStatus(QStringLiteral("Paused"));
    ASSERT_TRUE(lvWaitFor([&] { return !song->shownTrack(); }));
    EXPECT_EQ(render().count(lvIsRed), 0);
    EXPECT_EQ(song->statusNote(), QStringLiteral("Nothing is playing"));

    player.setStatus(QStringLiteral("Playing"));
    ASSERT_TRUE(shows(QStringLiteral("Next")));
    EXPECT_GT(render().count(lvIsRed), 20);

    owned.reset();
    ASSERT_TRUE(lvWaitFor([&] { return !song->shownTrack(); })) << "a player that leaves takes its track along";
    EXPECT_EQ(song->statusNote(), QStringLiteral("No media player found"));
    EXPECT_EQ(render().count(lvIsRed), 0);
}

TEST_F(iTunesSongBusTest, OnlyTheChosenPlayerIsShown)
{
    LVFakeMprisPlayer alpha(QStringLiteral("alpha"));
    LVFakeMprisPlayer beta(QStringLiteral("beta.instance7"));
    alpha.play(QStringLiteral("From Alpha"), {}, QString());
    beta.play(QStringLiteral("From Beta"), {}, QString());
    ASSERT_TRUE(shows(QStringLiteral("From Alpha"))) << "the first playing one by default";
    ASSERT_TRUE(lvWaitFor([&] { return song->inspectorNotes().join("").contains("alpha, beta.instance7"); }))
        << "the panel names the players to choose from: " << song->inspectorNotes().join("").toStdString();

    song->setParameterValue(QStringLiteral("player"), QStringLiteral("BETA"));
    EXPECT_TRUE(shows(QStringLiteral("From Beta")));
    song->setParameterValue(QStringLiteral("player"), QStringLiteral("gamma"));
    EXPECT_FALSE(song->shownTrack());
    EXPECT_EQ(song->statusNote(), QStringLiteral("No player named gamma"));
    song->setParameterValue(QStringLiteral("player"), QString());
    EXPECT_TRUE(shows(QStringLiteral("From Alpha")));
}

TEST_F(iTunesSongBusTest, CoverArtIsReadFromLocalRegularFilesOnly)
{
    QTemporaryDir dir;
    QImage cover(32, 32, QImage::Format_RGB32);
    cover.fill(QColor(0, 255, 0));
    const QString path = dir.filePath(QStringLiteral("cover.png"));
    ASSERT_TRUE(cover.save(path));
    const QString link = dir.filePath(QStringLiteral("link.png"));
    ASSERT_TRUE(QFile::link(path, link));
    const auto isGreen = [](int r, int g, int b) { return r < 40 && g > 220 && b < 40; };

    struct Case {
        const char* what;
        QString artUrl;
        bool coverShown;
    };
    const Case cases[] = {
        {"a local file", QUrl::fromLocalFile(path).toString(), true},
        {"a symbolic link is refused", QUrl::fromLocalFile(link).toString(), false},
        {"a missing file", QUrl::fromLocalFile(dir.filePath(QStringLiteral("none.png"))).toString(), false},
        {"a web address is not fetched", QStringLiteral("http://127.0.0.1:9/cover.png"), false},
    };
    LVFakeMprisPlayer player(QStringLiteral("covers"));
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const QString title = QStringLiteral("Track %1").arg(++n);
        player.play(title, {}, QString(), c.artUrl);
        ASSERT_TRUE(shows(title));
        const Frame frame = render();
        EXPECT_EQ(frame.count(topLeft(), isGreen) > 100, c.coverShown);
        EXPECT_GT(frame.count(topLeft(), lvIsRed), 20) << "the text is drawn either way";
    }
    song->setParameterValue(QStringLiteral("showCover"), false);
    player.play(QStringLiteral("No Cover"), {}, QString(), QUrl::fromLocalFile(path).toString());
    ASSERT_TRUE(shows(QStringLiteral("No Cover")));
    EXPECT_EQ(render().count(isGreen), 0);
}

} // namespace
