#include "LVCamTestSupport.h"

#include <QJsonObject>

namespace {

const char* kYUY2 = "video/x-raw,format=YUY2,width=640,height=480,framerate=30/1; "
                    "video/x-raw,format=YUY2,width=320,height=240,framerate=30/1";
const char* kNV12 = "video/x-raw,format=NV12,width=320,height=240,framerate={30/1,15/1}; "
                    "video/x-raw,format=NV12,width=1280,height=720,framerate={30/1,15/1}";
const char* kJPEG = "image/jpeg,width=320,height=240,framerate=30/1";
const char* kI420 = "video/x-raw,format=I420,width=160,height=120,framerate=[5/1,60/1]";

class LVCamGrabberTest : public LVCamFixture {
protected:
    void SetUp() override
    {
        install({
            {"test:a", "Fake Cam", kYUY2, "white"},
            {"test:l", "Lumaveil", kYUY2, "white"},
            {"test:b", "Fake Cam", kNV12, "white"},
            {"test:j", "Jpeg Cam", kJPEG, "white"},
            {"test:i", "Planar Cam", kI420, "white"},
        });
    }

    static LVCamGrabber::Ref grabber(const QString& id)
    {
        for (const auto& g : LVCamGrabber::deviceList()) {
            if (g->uniqueID() == id) return g;
        }
        return nullptr;
    }

    static QStringList names()
    {
        QStringList list;
        for (const auto& g : LVCamGrabber::deviceList()) list << g->displayName();
        return list;
    }

    LVPictureReader reader;
    LVSteppedDelayClock delays;
};

TEST_F(LVCamGrabberTest, ListsCamerasInOrderNumbersTwinsAndFollowsHotPlug)
{
    EXPECT_EQ(names(), QStringList({"Fake Cam", "Fake Cam 2", "Jpeg Cam", "Planar Cam"}));
    const LVCamGrabber::Ref second = grabber("test:b");

    provider_->addDevice({"test:c", "Fake Cam", kYUY2});
    provider_->addDevice({"test:m", "Lumaveil", kYUY2});
    EXPECT_EQ(names(), QStringList({"Fake Cam", "Fake Cam 2", "Jpeg Cam", "Planar Cam", "Fake Cam 3"}));

    provider_->removeDevice("test:b");
    EXPECT_EQ(names(), QStringList({"Fake Cam", "Jpeg Cam", "Planar Cam", "Fake Cam 3"}));
    EXPECT_FALSE(second->isPresent());

    // Back in its place, under its name, as the same grabber its users hold.
    provider_->addDevice({"test:b", "Fake Cam", kNV12});
    EXPECT_EQ(names(), QStringList({"Fake Cam", "Fake Cam 2", "Jpeg Cam", "Planar Cam", "Fake Cam 3"}));
    EXPECT_EQ(grabber("test:b"), second);
    EXPECT_TRUE(second->isPresent());
}

TEST_F(LVCamGrabberTest, EveryKindOfCameraDeliversUprightPicturesInTheChosenFormat)
{
    const struct {
        const char* id;
        int width, height;
        const char* caps; // part of the chosen caps
        int white;        // what the test pattern's white comes out as
        int tolerance;
    } cases[] = {
        // Video size 320x240: an exact match does not replace the larger first format.
        {"test:a", 640, 480, "format=(string)YUY2, framerate=(fraction)30/1", 255, 1},
        {"test:b", 320, 240, "format=(string)NV12, framerate=(fraction)30/1", 255, 1},
        // JPEG is full range: the pattern's studio-range white (Y 235) is decoded as 235.
        {"test:j", 320, 240, "image/jpeg, width=(int)320", 235, 4},
        {"test:i", 160, 120, "format=(string)I420, framerate=(fraction)30/1", 255, 1},
    };
    for (const auto& c : cases) {
        const LVCamGrabber::Ref g = grabber(c.id);
        ASSERT_TRUE(g) << c.id;
        g->start();
        const auto picture = LVNextPicture(*g);
        ASSERT_TRUE(picture) << c.id;
        EXPECT_EQ(picture->width(), c.width) << c.id;
        EXPECT_EQ(picture->height(), c.height) << c.id;
        EXPECT_TRUE(g->activeFormat().contains(QLatin1String(c.caps))) << c.id << ": " << qPrintable(g->activeFormat());
        for (auto [x, row] : {std::pair{0, 0}, std::pair{c.width / 2, c.height / 2}, std::pair{c.width - 1, c.height - 1}}) {
            const RGBA p = reader.at(*picture, x, row);
            for (int i = 0; i < 3; ++i) EXPECT_NEAR(p[i], c.white, c.tolerance) << c.id << " at " << x << "," << row;
            EXPECT_EQ(p[3], 255);
        }
        g->stop();
        EXPECT_FALSE(g->hasSession());
    }
}

TEST_F(LVCamGrabberTest, UsersShareOneSessionAndKeepCamsWarmKeepsItRunning)
{
    const LVCamGrabber::Ref g = grabber("test:a");
    g->stop();
    EXPECT_EQ(g->refCnt(), 0u) << "stopping a camera never started";
    g->start();
    g->start();
    ASSERT_TRUE(LVNextPicture(*g));
    const QString format = g->activeFormat();
    g->stop();
    EXPECT_EQ(g->refCnt(), 1u);
    EXPECT_TRUE(g->hasSession());
    g->stop();
    EXPECT_FALSE(g->hasSession());
    EXPECT_TRUE(lvWaitFor([&] { return g->activeFormat().isEmpty(); }));

    defaults_->setValue(QStringLiteral("keepCamsWarm"), true);
    g->start();
    auto first = LVNextPicture(*g);
    ASSERT_TRUE(first);
    g->stop();
    EXPECT_TRUE(g->hasSession());
    // Still capturing with no user: new pictures keep coming, in the same format.
    EXPECT_TRUE(LVNextPicture(*g, first));
    g->start();
    EXPECT_EQ(g->activeFormat(), format);
}

TEST_F(LVCamGrabberTest, ForcedSizeAndFrameRatePickTheFormatAndArePersisted)
{
    const LVCamGrabber::Ref g = grabber("test:b");
    std::vector<QString> sizes;
    for (const auto& r : g->resolutions()) sizes.push_back(r.description);
    EXPECT_EQ(sizes, std::vector<QString>({"320x240", "1280x720"}));

    g->start();
    ASSERT_TRUE(LVNextPicture(*g));
    const struct {
        std::optional<QSize> force;
        int frameRate;
        const char* caps;
    } steps[] = {
        {QSize(1280, 720), 30, "width=(int)1280, height=(int)720, format=(string)NV12, framerate=(fraction)30/1"},
        {QSize(1280, 720), 15, "width=(int)1280, height=(int)720, format=(string)NV12, framerate=(fraction)15/1"},
        {std::nullopt, 25, "width=(int)320, height=(int)240, format=(string)NV12, framerate=(fraction)30/1"},
    };
    for (const auto& s : steps) {
        if (g->forceResolution() != s.force) g->setForceResolution(s.force);
        defaults_->setValue(QStringLiteral("frameRate"), s.frameRate);
        EXPECT_TRUE(lvWaitFor([&] { return g->activeFormat().contains(QLatin1String(s.caps)); }))
            << s.caps << " vs " << qPrintable(g->activeFormat());
    }
    const auto picture = LVNextPicture(*g);
    ASSERT_TRUE(picture);

    g->setForceResolution(QSize(1280, 720));
    const QJsonObject stored = defaults_->dictionaryForKey("deviceSettings").value("test:b").toObject();
    EXPECT_EQ(stored, g->prefsDict());
    EXPECT_EQ(stored.value("forceResolution").toObject(), (QJsonObject{{"width", 1280}, {"height", 720}}));
    g->stop();

    // A new run reads the forced size back.
    LVCamGrabber::setDeviceProvider(std::make_unique<LVCamTestProvider>(
        std::vector<LVCamTestDeviceConfig>{{"test:b", "Fake Cam", kNV12, "white"}}));
    ASSERT_EQ(LVCamGrabber::deviceList().size(), 1u);
    EXPECT_EQ(LVCamGrabber::deviceList()[0]->forceResolution(), QSize(1280, 720));
}

TEST_F(LVCamGrabberTest, UnpluggedCameraShowsItsLastPictureThenBlackAndIsPickedUpAgain)
{
    const LVCamGrabber::Ref g = grabber("test:a");
    g->start();
    const auto live = LVNextPicture(*g);
    ASSERT_TRUE(live);

    provider_->removeDevice("test:a");
    EXPECT_FALSE(g->isPresent());
    EXPECT_TRUE(lvWaitFor([&] { return g->activeFormat().isEmpty(); }));
    // Right after the loss the last picture is still what the source shows.
    const auto kept = g->last();
    ASSERT_TRUE(kept);
    EXPECT_FALSE(kept->isBlack());
    delays.advance(LVCamGrabber::kLostPictureHoldMs);
    const auto black = LVNextPicture(*g, kept);
    ASSERT_TRUE(black);
    EXPECT_TRUE(black->isBlack());
    EXPECT_EQ(reader.at(*black, 5, 5), (RGBA{0, 0, 0, 255}));
    EXPECT_EQ(black->width(), live->width());

    provider_->addDevice({"test:a", "Fake Cam", kYUY2, "white"});
    const auto back = LVNextPicture(*g, black);
    ASSERT_TRUE(back);
    EXPECT_FALSE(back->isBlack());
    EXPECT_NEAR(reader.at(*back, 1, 1)[0], 255, 1);
    g->stop();
}

TEST_F(LVCamGrabberTest, FailedPipelineIsRetriedWhileTheCameraStaysListed)
{
    const LVCamGrabber::Ref g = grabber("test:j");
    g->start();
    ASSERT_TRUE(LVNextPicture(*g));
    provider_->failDevice("test:j");
    EXPECT_TRUE(lvWaitFor([&] { return g->activeFormat().isEmpty(); }));
    EXPECT_TRUE(g->isPresent());
    // Retried after a second: capture resumes in the same format.
    delays.advance(LVCamGrabber::kRetryIntervalMs);
    EXPECT_TRUE(lvWaitFor([&] {
        g->last();
        return !g->activeFormat().isEmpty();
    }));
    auto resumed = LVNextPicture(*g, g->last());
    ASSERT_TRUE(resumed);
    EXPECT_FALSE(resumed->isBlack());
    g->stop();
}

TEST_F(LVCamGrabberTest, CameraRefusingTheChosenFormatRunsWithWhatItGives)
{
    // Lists YUY2 but really gives I420, as some drivers do.
    provider_->addDevice({"test:s", "Stubborn Cam", "video/x-raw,format=YUY2,width=160,height=120,framerate=30/1", "white",
                          "video/x-raw,format=I420,width=160,height=120"});
    const LVCamGrabber::Ref g = grabber("test:s");
    ASSERT_TRUE(g);
    g->start();
    EXPECT_TRUE(lvWaitFor([&] { return g->activeFormat() == "video/x-raw"; })) << qPrintable(g->activeFormat());
    const auto picture = LVNextPicture(*g);
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->width(), 160);
    EXPECT_NEAR(reader.at(*picture, 10, 10)[1], 255, 1);
    g->stop();
}

TEST_F(LVCamGrabberTest, ReleasingTheListWhileCapturingStopsCleanly)
{
    LVCamGrabber::Ref g = grabber("test:b");
    g->start();
    ASSERT_TRUE(LVNextPicture(*g));
    LVCamGrabber::releaseDeviceList();
    g.reset();
    EXPECT_FALSE(LVCamGrabber::deviceList().empty());
}

} // namespace
