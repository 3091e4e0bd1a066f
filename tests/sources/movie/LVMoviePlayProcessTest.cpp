// The real lumaveil executable playing generated clips: `--play` gives a Movie playlist whose
// pictures are published in order, and refuses what it cannot play.
#include "LVMovieTestSupport.h"

#include "tests/sources/LVHeadlessRun.h"

namespace {

class LVMoviePlayProcessTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        lvEnsureApplication();
        ASSERT_TRUE(home.isValid());
    }
    void TearDown() override { lvUnlinkFrameSegments(); }

    QString clip(const char* colour) const { return home.filePath(QLatin1String(colour) + QStringLiteral(".mp4")); }

    QTemporaryDir home;
};

TEST_F(LVMoviePlayProcessTest, PlayPublishesEachClipInOrder)
{
    QString error;
    for (const char* colour : {"red", "lime", "blue"})
        ASSERT_TRUE(lvMakeSolidMovie(colour, 1.0, clip(colour), &error)) << error.toStdString();
    // The colours the published frames show, repeats folded.
    std::string seen;
    const LVHeadlessRun run = lvRunHeadless(
        LV_LUMAVEIL_BINARY, lvPrivateEnvironment(home),
        {"--video-size", "64x48", "--fps", "15", "--frames", "400", "--play", clip("red"), clip("lime"), clip("blue")},
        [&](const LVShmemReadResult& r, const uint8_t* argb) {
            const size_t at = (size_t(r.height / 2) * size_t(r.width) + size_t(r.width / 2)) * 4;
            const char colour = lvColourName(qRgb(argb[at + 1], argb[at + 2], argb[at + 3]));
            if (colour != 'k' && colour != '?' && (seen.empty() || seen.back() != colour)) seen += colour;
            return seen.size() >= 3;
        },
        std::chrono::seconds(40));
    EXPECT_EQ(seen.substr(0, 3), "rgb") << run.log;
}

TEST_F(LVMoviePlayProcessTest, PlayRefusesWhatItCannotPlay)
{
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
