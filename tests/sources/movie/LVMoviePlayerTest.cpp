// The player on real generated files: exact pictures at in points and after seeks, titles,
// out points, and files that cannot be played.
#include "LVMovieTestSupport.h"

#include "sources/movie/LVMoviePlayer.h"
#include "sources/webcam/LVCamConverter.h"

#include <QFile>

namespace {

class LVMoviePlayerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        folder = new QTemporaryDir;
        QString error;
        ASSERT_TRUE(lvMakeQuarterMovie(path("quarters.mp4"), &error)) << error.toStdString();
        ASSERT_TRUE(lvMakeSolidMovie("red", 0.3, path("titled.mp4"), &error, "Holding Slide")) << error.toStdString();
    }
    static void TearDownTestSuite()
    {
        delete folder;
        folder = nullptr;
    }
    static QString path(const char* name) { return folder->filePath(QLatin1String(name)); }

    void SetUp() override
    {
        QString error;
        context = LVContext::create(QSize(64, 48), &error);
        ASSERT_TRUE(context) << error.toStdString();
    }

    // What the player shows now, drawn into the frame.
    char shown(LVMoviePlayer& player)
    {
        context->reset(false);
        const auto picture = player.lastImage();
        if (!picture) return '-';
        context->framebuffer();
        LVContext::drawPBuffer(picture->texture(), false, false);
        return lvColourName(lvCentrePixel(*context));
    }

    static QTemporaryDir* folder;
    std::unique_ptr<LVContext> context;
};

QTemporaryDir* LVMoviePlayerTest::folder = nullptr;

TEST_F(LVMoviePlayerTest, SeeksLandOnTheExactPicture)
{
    const struct {
        int32_t position; // thousandths of two seconds
        char colour;
    } cases[] = {{0, 'r'}, {240, 'r'}, {260, 'g'}, {499, 'g'}, {501, 'b'}, {740, 'b'}, {760, 'w'}, {990, 'w'}, {100, 'r'}};
    LVMoviePlayer player(path("quarters.mp4"));
    ASSERT_TRUE(player.waitUntilReady(10000));
    EXPECT_EQ(player.movieEndSeconds(), 2);
    EXPECT_EQ(player.imageRect(), QRectF(0, 0, 64, 48));
    for (const auto& c : cases) {
        player.setMoviePosition(c.position);
        ASSERT_TRUE(player.waitUntilReady(10000)) << c.position;
        EXPECT_EQ(shown(player), c.colour) << "at " << c.position;
        EXPECT_NEAR(player.getMoviePosition(), c.position, 20) << c.position;
    }
}

TEST_F(LVMoviePlayerTest, AnInPointSetBeforeOpeningShowsItsPictureFirst)
{
    for (const auto& [position, colour] : {std::pair{0, 'r'}, std::pair{600, 'b'}, std::pair{900, 'w'}}) {
        LVMoviePlayer player(path("quarters.mp4"));
        player.setMoviePosition(position);
        ASSERT_TRUE(player.waitUntilReady(10000));
        EXPECT_EQ(shown(player), colour) << position;
    }
}

TEST_F(LVMoviePlayerTest, PlaybackEndsAtTheOutPoint)
{
    LVMoviePlayer player(path("quarters.mp4"));
    player.setMoviePosition(400);
    player.stopAt(550);
    ASSERT_TRUE(player.waitUntilReady(10000));
    EXPECT_FALSE(player.isOver()) << "never started";
    player.setPlaying(true);
    EXPECT_TRUE(player.getPlaying());
    ASSERT_TRUE(player.waitForEnd(10000));
    EXPECT_TRUE(player.isOver());
    EXPECT_FALSE(player.getPlaying());
    // Stopped inside the third quarter, never at the end of the file.
    EXPECT_EQ(shown(player), 'b');
    EXPECT_LE(player.getMoviePosition(), 560);
}

TEST_F(LVMoviePlayerTest, TitlesComeFromTheFileOrReadUnknown)
{
    const struct {
        const char* file;
        const char* title;
        bool fails;
    } cases[] = {{"titled.mp4", "Holding Slide", false}, {"quarters.mp4", "Unknown title", false},
                 {"missing.mp4", "Unknown title", true}, {"garbage.mp4", "Unknown title", true}};
    QFile garbage(path("garbage.mp4"));
    ASSERT_TRUE(garbage.open(QIODevice::WriteOnly));
    garbage.write(QByteArray(4096, 'x'));
    garbage.close();
    for (const auto& c : cases) {
        LVMoviePlayer player(path(c.file));
        EXPECT_EQ(player.waitUntilReady(10000), !c.fails) << c.file;
        EXPECT_EQ(player.hasFailed(), c.fails) << c.file;
        EXPECT_EQ(player.getMovieTitle(), QString::fromLatin1(c.title)) << c.file;
        if (!c.fails) continue;
        EXPECT_FALSE(player.lastImage()) << c.file;
        // A failed file counts as over once it is started, so a playlist moves on.
        EXPECT_FALSE(player.isOver());
        player.setPlaying(true);
        EXPECT_TRUE(player.isOver()) << c.file;
    }
}

} // namespace
