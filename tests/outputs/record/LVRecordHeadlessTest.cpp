// Recording and streaming of the headless job, driven by its command line and lumaveil-ctl:
// real processes, a real nginx, files read back by ffprobe.
#include "tests/outputs/record/LVRecordTestSupport.h"
#include "tests/support/LVTestSupport.h"

namespace {

class RecordHeadlessTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        environment = lvPrivateEnvironment(dir, true);
        environment.insert(QStringLiteral("LUMAVEIL_SHM_PREFIX"),
                           QStringLiteral("lvtest.record.%1.").arg(QCoreApplication::applicationPid()));
    }

    // Starts a headless Lumaveil and waits until it serves control requests.
    std::unique_ptr<QProcess> startLumaveil(const QStringList& extra)
    {
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(environment);
        log = lvStartUntil(*process, QStringLiteral(LV_LUMAVEIL_PATH),
                           QStringList{"--headless", "--video-size", "320x240", "--fps", "30"} + extra,
                           [](const QString& text) { return text.contains(QStringLiteral("Control: serving")); });
        EXPECT_TRUE(log.contains(QStringLiteral("Control: serving"))) << log.toStdString();
        return process;
    }

    LVProcessRun ctl(const QStringList& arguments) const { return lvRunServed(QStringLiteral(LV_CTL_PATH), arguments, environment); }

    // Frames sent so far, from recordStatus.
    int framesRecorded()
    {
        const QString out = ctl({QStringLiteral("--json"), QStringLiteral("get"), QStringLiteral("recordStatus")}).out;
        return QJsonDocument::fromJson(out.toUtf8()).object().value(QStringLiteral("result")).toObject().value(QStringLiteral("framesSent")).toInt();
    }

    QTemporaryDir dir;
    QProcessEnvironment environment;
    QString log;
};

// A clean stop through the control commands is BroadcastControlTest's; here the job is killed.
TEST_F(RecordHeadlessTest, RecordingStartedEitherWayAndCutByKillStillPlays)
{
    for (const char* name : {"cut.mp4", "cut.mkv"}) {
        const QString path = dir.filePath(QString::fromUtf8(name));
        // The mp4 from the command line, the mkv through lumaveil-ctl.
        const bool byCtl = path.endsWith(QStringLiteral(".mkv"));
        const auto lumaveil = startLumaveil(byCtl ? QStringList{} : QStringList{QStringLiteral("--record"), path});
        if (byCtl) {
            const LVProcessRun started = ctl({QStringLiteral("startRecord"), path});
            ASSERT_EQ(started.status, 0) << started.err.toStdString();
            EXPECT_EQ(started.out.trimmed(), path);
        }
        ASSERT_TRUE(lvWaitFor([&] { return framesRecorded() >= 90; }, 60)) << name;
        lumaveil->kill();
        lumaveil->waitForFinished();
        QProcess decode;
        decode.start(QStringLiteral("ffmpeg"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"), path,
                                                QStringLiteral("-f"), QStringLiteral("null"), QStringLiteral("-")});
        ASSERT_TRUE(decode.waitForFinished(60000));
        EXPECT_EQ(decode.exitCode(), 0) << name << ": " << decode.readAllStandardError().toStdString();
        // Up to the last second or so before the kill.
        EXPECT_GE(lvProbe(path).value(QStringLiteral("frames")).toInt(), 30) << name;
    }
}

TEST_F(RecordHeadlessTest, HeadlessStreamPlaysBackFromALocalServer)
{
    const quint16 port = lvFreePort();
    LVNginxRtmp server(port);
    ASSERT_TRUE(server.start());
    const auto lumaveil = startLumaveil({QStringLiteral("--stream"), server.url(QStringLiteral("show"))});
    const auto streamStatus = [&] { return ctl({QStringLiteral("get"), QStringLiteral("streamStatus")}).out; };
    ASSERT_TRUE(lvWaitFor([&] { return streamStatus().contains(QStringLiteral("state=running")); }, 30));
    const QJsonObject live = lvProbe(server.url(QStringLiteral("show")), 30000, false);
    const QString status = streamStatus();
    EXPECT_TRUE(status.contains(QStringLiteral("target=rtmp://127.0.0.1:%1/live/(key hidden)").arg(port))) << status.toStdString();
    ASSERT_EQ(ctl({QStringLiteral("stopStream")}).status, 0);
    lvTerminate(*lumaveil);
    log += QString::fromUtf8(lumaveil->readAllStandardError());
    EXPECT_EQ(live.value(QStringLiteral("width")).toInt(), 320);
    EXPECT_EQ(live.value(QStringLiteral("height")).toInt(), 240);
    // Frames carry the render loop's own times, so the rate read back is the loop's: 30 or a
    // little under on a busy machine.
    const QStringList rate = live.value(QStringLiteral("r_frame_rate")).toString().split(QLatin1Char('/'));
    ASSERT_EQ(rate.size(), 2);
    EXPECT_NEAR(rate[0].toDouble() / rate[1].toDouble(), 30.0, 1.5);
    EXPECT_TRUE(log.contains(QStringLiteral("Streaming to rtmp://127.0.0.1:%1/live/(key hidden)").arg(port))) << log.toStdString();
}

} // namespace
