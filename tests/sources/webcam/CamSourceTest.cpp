#include "LVCamTestSupport.h"

#include "render/LVContext.h"
#include "sources/webcam/CamSource.h"
#include "tests/sources/LVHeadlessRun.h"

#include <QJsonDocument>

namespace {

const char* kWhite = "video/x-raw,format=YUY2,width=320,height=240,framerate=30/1";

class CamSourceTest : public LVCamFixture {
protected:
    void SetUp() override
    {
        install({
            {"test:a", "Fake Cam", kWhite, "white"},
            {"test:b", "Fake Cam", kWhite, "white"},
            {"test:c", "Other Cam", kWhite, "white"},
        });
        LVRegisterWebcamKinds();
        QString error;
        // 4:3 like the cameras, so the picture covers the whole frame.
        context = LVContext::create(QSize(8, 6), &error);
        ASSERT_TRUE(context) << error.toStdString();
    }

    LVEffectRef decode(const QJsonObject& keys)
    {
        QJsonObject archive = keys;
        archive.insert("class", "CamSource");
        archive.insert("enabled", true);
        return LVEffect::effectFromData(QJsonDocument(archive).toJson(), context.get());
    }

    static CamSource& cam(const LVEffectRef& effect) { return static_cast<CamSource&>(*effect); }

    LVCamGrabber::Ref grabber(int index) { return LVCamGrabber::deviceList().at(size_t(index)); }

    std::unique_ptr<LVContext> context;
};

TEST_F(CamSourceTest, ArchivedCameraIsFoundByIdentifierThenByName)
{
    const struct {
        const char* what;
        QJsonObject keys;
        int expected; // index in the device list, -1 for none
    } cases[] = {
        {"identifier wins over name", {{"camID", "test:b"}, {"selectedCamera", "Other Cam"}}, 1},
        {"unknown identifier falls back to the name", {{"camID", "gone"}, {"selectedCamera", "Other Cam"}}, 2},
        {"numbered twin by name", {{"selectedCamera", "Fake Cam 2"}}, 1},
        {"older name with a bracketed detail", {{"selectedCamera", "Other Cam [USB 2.0]"}}, 2},
        {"only the last bracket is cut", {{"selectedCamera", "Fake Cam [a] [b]"}}, -1},
        {"a camera not present: none, not the first", {{"camID", "gone"}, {"selectedCamera", "Gone Cam"}}, -1},
        {"nothing stored: none", {}, -1},
    };
    for (const auto& c : cases) {
        LVEffectRef effect = decode(c.keys);
        ASSERT_TRUE(effect) << c.what;
        const LVCamGrabber::Ref expected = c.expected < 0 ? nullptr : grabber(c.expected);
        EXPECT_EQ(cam(effect).selectedCamera(), expected) << c.what;
    }
}

TEST_F(CamSourceTest, ArchivedCameraPluggedInLaterIsTakenUp)
{
    LVEffectRef effect = decode({{"camID", "test:z"}, {"selectedCamera", "Late Cam"}});
    ASSERT_TRUE(effect);
    CamSource& source = cam(effect);
    source.setMode(LVModeLive);
    context->reset(false);
    source.doit();
    EXPECT_FALSE(source.selectedCamera());
    // Saved again meanwhile, the setup still names its camera.
    const QJsonObject saved = QJsonDocument::fromJson(LVEffect::dataFromEffect(source)).object();
    EXPECT_EQ(saved.value("camID").toString(), "test:z");
    EXPECT_EQ(saved.value("selectedCamera").toString(), "Late Cam");

    provider_->addDevice({"test:z", "Late Cam", kWhite, "white"});
    context->reset(false);
    source.doit();
    ASSERT_TRUE(source.selectedCamera());
    EXPECT_EQ(source.selectedCamera()->uniqueID(), "test:z");
    EXPECT_EQ(source.selectedCamera()->refCnt(), 1u);
    source.setMode(LVModeOff);
}

TEST_F(CamSourceTest, EncodesCameraNameAndIdentifierOnly)
{
    CamSource source;
    source.initWithContext(context.get());
    source.setSelectedCamera(grabber(1));
    LVKeyedArchiver archiver;
    source.encodeWithCoder(archiver);
    const QJsonObject keys = archiver.object();
    EXPECT_EQ(keys.value("class").toString(), "CamSource");
    EXPECT_EQ(keys.value("selectedCamera").toString(), "Fake Cam 2");
    EXPECT_EQ(keys.value("camID").toString(), "test:b");
    EXPECT_FALSE(keys.contains(CamSource::kCameraKey));
    EXPECT_FALSE(keys.contains(CamSource::kResolutionKey));
    LVEffectRef back = LVEffect::effectFromData(archiver.finishEncoding(), context.get());
    ASSERT_TRUE(back);
    EXPECT_EQ(cam(back).selectedCamera(), grabber(1));
}

TEST_F(CamSourceTest, ModesStartAndStopTheCamera)
{
    const LVCamGrabber::Ref g = grabber(0);
    CamSource source;
    source.initWithContext(context.get());
    const struct {
        int32_t mode;
        bool changed;
        uint32_t refCnt;
    } steps[] = {
        {LVModeOff, false, 0}, {LVModeLive, true, 1},  {LVModePreview, true, 1}, {LVModeOff, true, 0},
        {5, true, 0},          {LVModeOff, true, 0},   {LVModeTransition, true, 1}, {LVModeOff, true, 0},
    };
    for (const auto& s : steps) {
        EXPECT_EQ(source.setMode(s.mode), s.changed) << s.mode;
        EXPECT_EQ(g->refCnt(), s.refCnt) << s.mode;
    }
    // A camera chosen in mode 3 is not started; in modes 1 and 2 it is.
    source.setMode(LVModeTransition);
    source.setSelectedCamera(grabber(1));
    EXPECT_EQ(g->refCnt(), 0u);
    EXPECT_EQ(grabber(1)->refCnt(), 0u);
    source.setMode(LVModeLive);
    source.setSelectedCamera(grabber(2));
    EXPECT_EQ(grabber(2)->refCnt(), 1u);
    source.destruct();
    EXPECT_EQ(grabber(2)->refCnt(), 0u);
}

TEST_F(CamSourceTest, SettingsPanelChoicesSelectCameraAndForcedSize)
{
    CamSource source;
    source.initWithContext(context.get());
    EXPECT_EQ(source.selectedCamera(), grabber(0)) << "a new source picks the first camera";
    const LVParameterList parameters = source.effectProperties();
    ASSERT_EQ(parameters.size(), 2u);
    EXPECT_EQ(parameters[0].choiceLabels, QStringList({"Fake Cam", "Fake Cam 2", "Other Cam"}));
    EXPECT_EQ(parameters[1].choiceLabels, QStringList({"Automatic", "320x240"}));

    source.setParameterValue(CamSource::kCameraKey, 2);
    EXPECT_EQ(source.selectedCamera(), grabber(2));
    source.setParameterValue(CamSource::kResolutionKey, 0);
    EXPECT_EQ(grabber(2)->forceResolution(), QSize(320, 240));
    source.setParameterValue(CamSource::kResolutionKey, -1);
    EXPECT_EQ(grabber(2)->forceResolution(), std::nullopt);
    source.setSelectedCamera(grabber(1));
    EXPECT_EQ(source.parameterValue(CamSource::kCameraKey).toInt(), 1);
}

TEST_F(CamSourceTest, DrawsTheCameraPictureAndNothingWithoutOne)
{
    CamSource source;
    source.initWithContext(context.get());
    source.setMode(LVModeLive);
    const auto read = [&] {
        std::vector<uint8_t> argb(8 * 6 * 4);
        context->fetchOpenGLPixels(argb.data(), 8 * 4);
        return argb;
    };
    ASSERT_TRUE(lvWaitFor([&] {
        context->reset(false);
        source.doit();
        return read()[1] == 255; // the picture has arrived when the frame turns white
    }));
    const auto argb = read();
    for (size_t i = 0; i < argb.size(); ++i) EXPECT_NEAR(argb[i], 255, 1) << "byte " << i;

    LVEffectRef gone = decode({{"selectedCamera", "Gone Cam"}});
    context->reset(false);
    cam(gone).doit();
    const auto black = read();
    EXPECT_EQ(black[0], 255);
    EXPECT_EQ(black[1], 0);
    source.setMode(LVModeOff);
}

TEST_F(CamSourceTest, SaysNoCameraFoundOnlyWhenThereIsNone)
{
    CamSource withCamera;
    withCamera.initWithContext(context.get());
    EXPECT_EQ(withCamera.statusNote(), QString());
    install({});
    CamSource without;
    without.initWithContext(context.get());
    EXPECT_EQ(without.statusNote(), QStringLiteral("No camera found"));
    provider_->addDevice({"test:late", "Late Cam", kWhite, "white"});
    EXPECT_EQ(without.statusNote(), QString()) << "a camera plugged in later can be chosen";
}

TEST(CamSourceInTheApplication, PublishesTheFirstCamerasPictures)
{
    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    QProcessEnvironment environment = lvPrivateEnvironment(home);
    // Both show SMPTE bars; the second camera's wide picture would leave the top rows black.
    environment.insert("LUMAVEIL_TEST_CAMERAS",
                       "Bars Cam=video/x-raw,format=YUY2,width=320,height=240,framerate=15/1|"
                       "Wide Cam=video/x-raw,format=NV12,width=320,height=120,framerate=15/1");
    bool sized = true;
    const LVHeadlessRun run = lvRunHeadless(
        LV_LUMAVEIL_BINARY, environment, {"--source", "Webcam", "--video-size", "320x240", "--fps", "15", "--frames", "150"},
        [&](const LVShmemReadResult& r, const uint8_t* argb) {
            sized = sized && r.width == 320 && r.height == 240;
            // A white bar, then a yellow one, once the camera's picture is in.
            const uint8_t* white = argb;
            const uint8_t* yellow = argb + 68 * 4;
            return !sized || (white[0] == 255 && white[1] >= 253 && white[2] >= 253 && white[3] >= 253 &&
                              yellow[1] >= 253 && yellow[2] >= 253 && yellow[3] <= 2);
        });
    EXPECT_TRUE(sized) << "frames are the asked size";
    EXPECT_TRUE(run.seen) << run.log;
    lvUnlinkFrameSegments();
}

} // namespace
