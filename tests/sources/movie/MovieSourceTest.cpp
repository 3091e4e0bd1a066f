// The movie player and the Movie source on real generated clips: exact pictures after seeks
// and at in and out points, titles, loop modes, shuffle, the time overlay, the at-end
// timeline, the hot folder, the archive with its older forms, and the real lumaveil's `--play`.
#include "LVMovieTestSupport.h"

#include "sources/movie/LVMoviePlayer.h"
#include "sources/webcam/LVCamConverter.h"
#include "sources/movie/MovieSource.h"
#include "tests/sources/LVHeadlessRun.h"
#include "tests/support/LVWaitFor.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>

#include <set>

namespace {

class MovieSourceTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lvEnsureApplication<QGuiApplication>();
        LVRegisterMovieKinds();
        folder = new QTemporaryDir;
        QString error;
        for (const char* colour : {"red", "lime", "blue"})
            ASSERT_TRUE(lvMakeSolidMovie(colour, 0.3, path(colour), &error)) << error.toStdString();
        ASSERT_TRUE(lvMakeQuarterMovie(path("quarters"), &error)) << error.toStdString();
        ASSERT_TRUE(lvMakeSolidMovie("red", 0.3, path("titled"), &error, "Holding Slide")) << error.toStdString();
        ASSERT_TRUE(lvWriteFiles(folder->path(), {{"garbage.mp4", QByteArray(4096, 'x')}}));
    }
    static void TearDownTestSuite()
    {
        delete folder;
        folder = nullptr;
    }
    static QString path(const char* name) { return folder->filePath(QLatin1String(name) + QStringLiteral(".mp4")); }

    void SetUp() override
    {
        QString error;
        context = LVContext::create(QSize(64, 48), &error);
        ASSERT_TRUE(context) << error.toStdString();
    }
    // Frames a lumaveil run left would be read by the next.
    void TearDown() override { lvUnlinkFrameSegments(); }

    std::unique_ptr<MovieSource> makeSource(const QStringList& files)
    {
        auto source = std::make_unique<MovieSource>();
        source->initWithContext(context.get());
        for (const QString& file : files) source->addMoviePathToPlayList(file);
        return source;
    }

    LVEffectRef decode(QJsonObject archive)
    {
        archive.insert(QStringLiteral("class"), QStringLiteral("MovieSource"));
        archive.insert(QStringLiteral("enabled"), true);
        return LVEffect::effectFromData(QJsonDocument(archive).toJson(), context.get());
    }

    // Plays the current entry to its end and lets the source handle it.
    void playToEnd(MovieSource& source)
    {
        ASSERT_TRUE(source.player());
        ASSERT_TRUE(source.player()->waitForEnd(10000));
        source.doit();
    }

    // What the player shows now, drawn into the frame.
    char drawn(LVMoviePlayer& player)
    {
        context->reset(false);
        const auto picture = player.lastImage();
        if (!picture) return '-';
        context->framebuffer();
        LVContext::drawPBuffer(picture->texture(), false, false);
        return lvColourName(lvCentrePixel(*context));
    }

    // Moves the playing movie to position (thousandths of its length) and draws a frame there.
    static void seek(MovieSource& source, int32_t position)
    {
        source.player()->setMoviePosition(position);
        ASSERT_TRUE(source.player()->waitUntilReady(10000));
        source.doit();
    }

    char shown(MovieSource& source)
    {
        if (source.player()) source.player()->waitUntilReady(10000);
        context->reset(false);
        source.doit();
        return lvColourName(lvCentrePixel(*context));
    }

    static QTemporaryDir* folder;
    std::unique_ptr<LVContext> context;
};

QTemporaryDir* MovieSourceTest::folder = nullptr;

TEST_F(MovieSourceTest, PlayerSeeksLandOnTheExactPictureAndPlaybackEndsAtTheOutPoint)
{
    const struct {
        int32_t position; // thousandths of two seconds
        char colour;
    } cases[] = {{0, 'r'}, {240, 'r'}, {260, 'g'}, {499, 'g'}, {501, 'b'}, {740, 'b'}, {760, 'w'}, {990, 'w'}, {100, 'r'}};
    LVMoviePlayer player(path("quarters"));
    ASSERT_TRUE(player.waitUntilReady(10000));
    EXPECT_EQ(player.movieEndSeconds(), 2);
    EXPECT_EQ(player.imageRect(), QRectF(0, 0, 64, 48));
    for (const auto& c : cases) {
        player.setMoviePosition(c.position);
        ASSERT_TRUE(player.waitUntilReady(10000)) << c.position;
        EXPECT_EQ(drawn(player), c.colour) << "at " << c.position;
        EXPECT_NEAR(player.getMoviePosition(), c.position, 20) << c.position;
    }

    // Played from there, it ends at the out point.
    player.setMoviePosition(400);
    player.stopAt(550);
    ASSERT_TRUE(player.waitUntilReady(10000));
    EXPECT_FALSE(player.isOver()) << "never started";
    player.setPlaying(true);
    ASSERT_TRUE(player.waitForEnd(10000));
    EXPECT_TRUE(player.isOver());
    EXPECT_FALSE(player.getPlaying());
    // Stopped inside the third quarter, never at the end of the file.
    EXPECT_EQ(drawn(player), 'b');
    EXPECT_LE(player.getMoviePosition(), 560);
}

TEST_F(MovieSourceTest, PlayerTitlesComeFromTheFileOrReadUnknown)
{
    const struct {
        const char* file;
        const char* title;
        bool fails;
    } cases[] = {{"titled", "Holding Slide", false}, {"quarters", "Unknown title", false},
                 {"missing", "Unknown title", true}, {"garbage", "Unknown title", true}};
    for (const auto& c : cases) {
        LVMoviePlayer player(path(c.file));
        EXPECT_EQ(player.waitUntilReady(10000), !c.fails) << c.file;
        EXPECT_EQ(player.hasFailed(), c.fails) << c.file;
        EXPECT_EQ(player.getMovieTitle(), QString::fromLatin1(c.title)) << c.file;
    }
}

TEST_F(MovieSourceTest, EachLoopModeDoesItsThingAtTheEndOfAnEntry)
{
    const struct {
        int32_t mode;
        int64_t start;
        int64_t after;
        bool playing;
        char colour;
    } cases[] = {
        {0, 0, 1, true, 'g'},  {0, 2, 2, false, 'b'}, {1, 1, 1, true, 'g'}, {2, 1, 1, false, 'g'},
        {3, 2, 0, true, 'r'},  {3, 0, 1, true, 'g'},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "mode " << c.mode << " from " << c.start);
        auto source = makeSource({path("red"), path("lime"), path("blue")});
        source->setLoopMode(c.mode);
        source->setMode(LVModeLive);
        source->playFromPlaylist(c.start);
        playToEnd(*source);
        EXPECT_EQ(source->playlistFile(), c.after);
        EXPECT_EQ(source->isPlaying(), c.playing);
        EXPECT_EQ(shown(*source), c.colour);
        if (!c.playing) {
            EXPECT_LE(source->player()->getMoviePosition(), 10) << "rewound to the in point";
        }
        source->destruct();
    }
}

TEST_F(MovieSourceTest, AutoPlayFromAnInPointNeverShowsTheStartOfTheFile)
{
    for (int round = 0; round < 3; ++round) {
        auto source = makeSource({});
        LVMovieFile entry;
        entry.path = path("quarters");
        entry.inPoint = 600;
        source->setPlaylist({entry});
        source->setMode(LVModeLive);
        std::string seen;
        // Frame after frame from the open on, as the render loop would draw them.
        for (int frame = 0; frame < 400 && seen.find('b') == std::string::npos; ++frame) {
            context->reset(false);
            source->doit();
            const char colour = lvColourName(lvCentrePixel(*context));
            if (colour != 'k' && (seen.empty() || seen.back() != colour)) seen += colour;
            if (seen.empty()) source->player()->waitUntilReady(5);
        }
        EXPECT_EQ(seen.substr(0, 1), "b") << "round " << round << ": " << seen;
        source->destruct();
    }
}

TEST_F(MovieSourceTest, ShuffleReplaysASingleEntryAndWalksAPermutation)
{
    auto single = makeSource({path("red")});
    single->setLoopMode(4);
    single->setMode(LVModeLive);
    playToEnd(*single);
    EXPECT_EQ(single->playlistFile(), 0);
    EXPECT_TRUE(single->isPlaying());

    auto several = makeSource({path("red"), path("lime"), path("blue")});
    several->setLoopMode(4);
    several->setMode(LVModeLive);
    playToEnd(*several);
    const std::vector<int64_t> order = several->shuffleOrder();
    ASSERT_EQ(order.size(), 3u);
    EXPECT_EQ(std::set<int64_t>(order.begin(), order.end()), (std::set<int64_t>{0, 1, 2}));
    const size_t at = size_t(std::find(order.begin(), order.end(), 0) - order.begin());
    EXPECT_EQ(several->playlistFile(), order[(at + 1) % 3]);

    // A new entry makes a new order at the next end.
    several->addMoviePathToPlayList(path("quarters"));
    playToEnd(*several);
    EXPECT_EQ(several->shuffleOrder().size(), 4u);
}

TEST_F(MovieSourceTest, TimeTextShowsHoursOnlyFromTheFirstHourOn)
{
    const struct {
        int64_t seconds;
        const char* text;
    } cases[] = {{0, "00:00"}, {59, "00:59"}, {61, "01:01"}, {3599, "59:59"}, {3600, "01:00:00"}, {3661, "01:01:01"}, {86399, "23:59:59"}};
    for (const auto& c : cases) EXPECT_EQ(MovieSource::timeString(c.seconds), QLatin1String(c.text)) << c.seconds;
}

TEST_F(MovieSourceTest, OverlaysSitFivePointsFromTheEdges)
{
    const struct {
        int position, width, frame, x;
    } cases[] = {{1, 40, 320, 5}, {2, 40, 320, 140}, {3, 40, 320, 275}, {2, 41, 320, 139}};
    for (const auto& c : cases) EXPECT_EQ(MovieSource::overlayX(c.position, c.width, c.frame), c.x) << c.position;
}

TEST_F(MovieSourceTest, TimeCountsUpOrDownInWholeSeconds)
{
    for (const auto& [direction, text] : {std::pair{0, "00:00"}, std::pair{1, "00:02"}}) {
        auto source = makeSource({path("quarters")});
        source->setParameterValue(QStringLiteral("timePosition"), 1);
        source->setParameterValue(QStringLiteral("timeDirection"), direction);
        source->selectMovieFromPlaylist(0);
        seek(*source, 0);
        EXPECT_EQ(source->timeText(), QLatin1String(text)) << direction;
        // A second on, counting either way.
        seek(*source, 600);
        EXPECT_EQ(source->timeText(), "00:01") << direction;
    }
}

TEST_F(MovieSourceTest, AtEndTimelineFiresOnceInModeZeroAndEveryFrameInModeTwo)
{
    const struct {
        int32_t mode;
        int afterTwoFrames; // runs asked for after two frames past the point
    } cases[] = {{0, 1}, {2, 2}, {1, 0}};
    for (const auto& c : cases) {
        int runs = 0;
        MovieSource::setTimeLineRunner([&](const QString& name) {
            EXPECT_EQ(name, QStringLiteral("Wrap Up"));
            ++runs;
            return true;
        });
        auto source = makeSource({path("quarters")});
        source->setLoopMode(c.mode);
        source->setParameterValue(QStringLiteral("atEndTimeOffset"), 1);
        source->setParameterValue(QStringLiteral("autoPlay"), false);
        source->setAtEndTimeLine(QStringLiteral("Wrap Up"));
        source->setMode(LVModeLive);
        source->selectMovieFromPlaylist(0);
        seek(*source, 0);
        EXPECT_EQ(runs, 0) << "two seconds before the end";
        seek(*source, 800);
        source->doit();
        EXPECT_EQ(runs, c.afterTwoFrames) << "mode " << c.mode;
        if (c.mode == 0) {
            // Back before the point clears the mark; past it again fires again.
            seek(*source, 0);
            seek(*source, 800);
            EXPECT_EQ(runs, 2);
        }
    }
    MovieSource::setTimeLineRunner(nullptr);
}

TEST_F(MovieSourceTest, ArchiveKeepsEveryKeyAndReadsTheOlderForms)
{
    const QString red = path("red"), lime = path("lime");
    const QJsonObject entry{{"path", red}, {"inPoint", 100}, {"outPoint", 900}, {"caption", "Opening"}};
    const struct {
        const char* what;
        QJsonObject archive;
        int32_t loopMode;
        QStringList paths;
    } cases[] = {
        {"nothing", {}, 0, {}},
        {"old loop on", {{"loop", true}}, 1, {}},
        {"old loop off", {{"loop", false}}, 0, {}},
        {"loopMode wins", {{"loop", true}, {"loopMode", 3}}, 3, {}},
        {"old single movie", {{"movie", red}}, 0, {red}},
        {"movie already listed", {{"movie", red}, {"playlist", QJsonArray{entry}}}, 0, {red}},
        {"movie after the list", {{"movie", lime}, {"playlist", QJsonArray{entry}}}, 0, {red, lime}},
        {"entry without path", {{"playlist", QJsonArray{QJsonObject{{"caption", "x"}}, entry}}}, 0, {red}},
    };
    for (const auto& c : cases) {
        const LVEffectRef decoded = decode(c.archive);
        ASSERT_TRUE(decoded) << c.what;
        auto& source = static_cast<MovieSource&>(*decoded);
        EXPECT_EQ(source.loopMode(), c.loopMode) << c.what;
        QStringList paths;
        for (const LVMovieFile& file : source.playlist()) paths << file.path;
        EXPECT_EQ(paths, c.paths) << c.what;
        EXPECT_EQ(source.playlistFile(), c.paths.isEmpty() ? MovieSource::kNoEntry : 0) << "first entry selected: " << c.what;
    }

    // Everything written comes back as it was.
    auto source = makeSource({});
    LVMovieFile first = *LVMovieFile::decode(entry);
    LVMovieFile second;
    second.path = lime;
    source->setPlaylist({first, second});
    source->setLoopMode(4);
    source->setParameterValue("autoStop", false);
    source->setParameterValue("hideWhenStopped", true);
    source->setParameterValue("volume", 0.25);
    source->setParameterValue("captionPosition", 3);
    source->setParameterValue("captionSize", 40);
    source->setAtEndTimeLine("Wrap Up");
    const QByteArray data = LVEffect::dataFromEffect(*source);
    const LVEffectRef back = LVEffect::effectFromData(data, context.get());
    ASSERT_TRUE(back);
    auto& restored = static_cast<MovieSource&>(*back);
    EXPECT_EQ(LVEffect::dataFromEffect(restored), data);
    ASSERT_EQ(restored.playlist().size(), 2u);
    EXPECT_EQ(restored.playlist()[0].caption(), "Opening");
    EXPECT_EQ(restored.playlist()[0].inPoint, 100);
    EXPECT_EQ(restored.playlist()[0].outPoint, 900);
    EXPECT_EQ(restored.playlist()[1].caption(), "lime.mp4") << "no caption reads as the file name";
    EXPECT_EQ(restored.atEndTimeLine(), "Wrap Up");
    EXPECT_EQ(restored.captionText(), "Opening");
    source->destruct();
}

TEST_F(MovieSourceTest, HotFolderFollowsTheFolderAndKeepsInAndOutPoints)
{
    QTemporaryDir hot;
    const auto put = [&](const char* from, const char* name) { return QFile::copy(path(from), hot.filePath(QLatin1String(name))); };
    ASSERT_TRUE(put("red", "a.mp4") && put("lime", "b.mp4"));
    auto source = makeSource({});
    source->setHotFolder(hot.path());
    ASSERT_EQ(source->playlist().size(), 2u);
    std::vector<LVMovieFile> files = source->playlist();
    files[0].inPoint = 200;
    files[0].outPoint = 800;
    source->setPlaylist(files);
    source->setMode(LVModeLive);
    source->playFromPlaylist(1);

    // A new file arrives: the watcher tells the source.
    ASSERT_TRUE(put("blue", "c.mp4"));
    ASSERT_TRUE(lvWaitFor([&] { return source->playlist().size() == 3; }));
    EXPECT_EQ(source->playlist()[0].inPoint, 200);
    EXPECT_EQ(source->playlist()[0].outPoint, 800);
    EXPECT_EQ(source->playlistFile(), 1);

    // The playing entry keeps playing at its new index.
    ASSERT_TRUE(QFile::remove(hot.filePath("a.mp4")));
    source->hotFolderChanged();
    EXPECT_EQ(source->playlistFile(), 0);
    EXPECT_EQ(QFileInfo(source->player()->path()).fileName(), "b.mp4");
    // When it is gone, playback starts at the first entry.
    ASSERT_TRUE(QFile::remove(hot.filePath("b.mp4")));
    source->hotFolderChanged();
    ASSERT_EQ(source->playlist().size(), 1u);
    EXPECT_EQ(source->playlistFile(), 0);
    EXPECT_EQ(QFileInfo(source->player()->path()).fileName(), "c.mp4");
    EXPECT_TRUE(source->isPlaying());
    source->destruct();
}

TEST_F(MovieSourceTest, BadAndVanishedEntriesAreSkippedAndTheSourceGoesOn)
{
    const QString garbage = path("garbage");
    auto source = makeSource({garbage, path("vanished"), path("blue")});
    source->setMode(LVModeLive);
    ASSERT_EQ(source->playlistFile(), 0);
    EXPECT_FALSE(source->player()->waitUntilReady(10000));
    EXPECT_EQ(source->getMovieTitle(), "Unknown title");
    EXPECT_EQ(source->statusNote(), "garbage.mp4 cannot be played");
    EXPECT_EQ(shown(*source), 'k') << "nothing drawn";
    EXPECT_EQ(source->playlistFile(), 2) << "the vanished file is passed over in the same frame";
    EXPECT_EQ(shown(*source), 'b');

    // A playlist of nothing playable is given up, not reopened every frame.
    auto hopeless = makeSource({garbage});
    hopeless->setLoopMode(3);
    hopeless->setMode(LVModeLive);
    playToEnd(*hopeless);
    EXPECT_FALSE(hopeless->player());
    source->destruct();
}

TEST_F(MovieSourceTest, ModesFollowAutoPlayAutoStopAndMutedInPreview)
{
    auto source = makeSource({path("quarters")});
    source->setParameterValue("mutedInPreview", true);
    EXPECT_FALSE(source->player());
    source->setMode(LVModeLive);
    ASSERT_TRUE(source->player()) << "program starts the first entry";
    EXPECT_TRUE(source->isPlaying());
    EXPECT_FALSE(source->player()->isMuted());
    source->setMode(LVModePreview);
    EXPECT_FALSE(source->isPlaying()) << "auto-stop";
    EXPECT_TRUE(source->player()->isMuted());
    source->setMode(LVModeTransition);
    EXPECT_TRUE(source->isPlaying());
    EXPECT_FALSE(source->player()->isMuted());
    source->setMode(LVModeOff);
    EXPECT_FALSE(source->isPlaying());
    EXPECT_EQ(source->playlistFile(), 0);
    source->selectMovieFromPlaylist(5);
    EXPECT_FALSE(source->player()) << "past the end clears the movie";
    EXPECT_EQ(source->getMovieTitle(), "- no movie selected -");
}

TEST_F(MovieSourceTest, PlayInTheApplicationPublishesEachClipInOrder)
{
    // A second each: long enough for every clip to reach a published frame.
    QTemporaryDir home;
    QStringList clips;
    QString error;
    for (const char* colour : {"red", "lime", "blue"}) {
        clips << home.filePath(QLatin1String(colour) + QStringLiteral(".mp4"));
        ASSERT_TRUE(lvMakeSolidMovie(colour, 1.0, clips.last(), &error)) << error.toStdString();
    }
    // The colours the published frames show, repeats folded.
    std::string seen;
    const LVHeadlessRun run = lvRunHeadless(
        LV_LUMAVEIL_BINARY, lvPrivateEnvironment(home),
        QStringList{"--video-size", "64x48", "--fps", "15", "--frames", "400", "--play"} + clips,
        [&](const LVShmemReadResult& r, const uint8_t* argb) {
            const size_t at = (size_t(r.height / 2) * size_t(r.width) + size_t(r.width / 2)) * 4;
            const char colour = lvColourName(qRgb(argb[at + 1], argb[at + 2], argb[at + 3]));
            if (colour != 'k' && colour != '?' && (seen.empty() || seen.back() != colour)) seen += colour;
            return seen.size() >= 3;
        },
        std::chrono::seconds(40));
    EXPECT_EQ(seen.substr(0, 3), "rgb") << run.log;
}

TEST_F(MovieSourceTest, PlayInTheApplicationRefusesWhatItCannotPlay)
{
    QTemporaryDir home;
    const struct {
        QStringList arguments;
        const char* message;
    } cases[] = {
        {{"--play"}, "--play needs at least one file"},
        {{"--play", "/no/such/clip.mp4"}, "file /no/such/clip.mp4 does not exist"},
        {{"--play", "/tmp"}, "/tmp is not a regular file"},
        {{"--play", "--source", "Movie", "x.mp4"}, "--play cannot be combined"},
    };
    for (const auto& c : cases) {
        const LVProcessRun run = lvRunServed(LV_LUMAVEIL_BINARY, QStringList{"--headless", "--frames", "1"} + c.arguments,
                                             lvPrivateEnvironment(home));
        EXPECT_NE(run.status, 0) << c.message;
        EXPECT_TRUE(run.err.contains(QLatin1String(c.message))) << run.err.toStdString();
    }
}

} // namespace
