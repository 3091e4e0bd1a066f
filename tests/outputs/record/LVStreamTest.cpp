#include "tests/outputs/record/LVRecordTestSupport.h"
#include "tests/support/LVTestSupport.h"

namespace {

LVEncodeSettings streamSettings(const QString& url)
{
    LVEncodeSettings settings;
    QString error;
    EXPECT_TRUE(LVParseStreamUrl(url, &settings, &error)) << error.toStdString();
    settings.width = 320;
    settings.height = 240;
    settings.frameRate = 30;
    settings.bitrateKbps = 800;
    settings.keyframeSeconds = 1;
    settings.speedPreset = QStringLiteral("ultrafast");
    return settings;
}

LVEncoder::Options quickRetries()
{
    LVEncoder::Options options;
    options.firstRetrySeconds = 0.2;
    options.longestRetrySeconds = 1;
    return options;
}

class StreamTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }
};

TEST_F(StreamTest, RtmpStreamReachesTheServerWithItsSizeRateAndFrames)
{
    const quint16 port = lvFreePort();
    LVNginxRtmp server(port);
    ASSERT_TRUE(server.start());
    LVEncoder encoder(streamSettings(server.url(QStringLiteral("show"))), quickRetries());
    QString error;
    ASSERT_TRUE(encoder.start(&error)) << error.toStdString();
    std::unique_ptr<QProcess> player;
    // A second in, a player reads the live stream back from the server.
    lvPushPaced(encoder, 180, 30, [&](int index) {
        if (index == 30) player = lvStartProbe(server.url(QStringLiteral("show")), false);
    });
    encoder.stop();
    const QJsonObject live = lvProbeResult(*player, 30000);
    ASSERT_TRUE(encoder.waitFinished(30));
    const LVEncoderStatus status = encoder.status();
    EXPECT_EQ(status.state, LVEncoderState::Stopped) << status.problem.toStdString();
    EXPECT_EQ(status.framesSent + status.framesDropped, 180u);
    EXPECT_EQ(live.value(QStringLiteral("width")).toInt(), 320);
    EXPECT_EQ(live.value(QStringLiteral("height")).toInt(), 240);
    EXPECT_EQ(live.value(QStringLiteral("r_frame_rate")).toString(), QStringLiteral("30/1"));

    const QStringList recordings = server.recordings();
    ASSERT_EQ(recordings.size(), 1);
    const QJsonObject received = lvProbe(recordings.front());
    EXPECT_EQ(received.value(QStringLiteral("width")).toInt(), 320);
    EXPECT_EQ(received.value(QStringLiteral("frames")).toInt(), int(status.framesSent));
}

TEST_F(StreamTest, LostServerIsRetriedAndTheStreamResumes)
{
    const quint16 port = lvFreePort();
    auto server = std::make_unique<LVNginxRtmp>(port);
    ASSERT_TRUE(server->start());
    LVEncoder encoder(streamSettings(server->url(QStringLiteral("show"))), quickRetries());
    QString error;
    ASSERT_TRUE(encoder.start(&error)) << error.toStdString();
    bool sawReconnecting = false;
    uint64_t sentBeforeReturn = 0;
    lvPushPaced(encoder, 300, 30, [&](int index) {
        if (index == 60) server->stop();
        if (index > 60 && !sawReconnecting && encoder.status().state == LVEncoderState::Reconnecting) {
            sawReconnecting = true;
            ASSERT_TRUE(server->start());
            sentBeforeReturn = encoder.status().framesSent;
        }
    });
    const LVEncoderStatus status = encoder.status();
    encoder.stop();
    ASSERT_TRUE(encoder.waitFinished(30));
    EXPECT_TRUE(sawReconnecting);
    EXPECT_GE(status.reconnects, 1);
    EXPECT_EQ(status.state, LVEncoderState::Running) << status.problem.toStdString();
    EXPECT_GT(status.framesSent, sentBeforeReturn + 30);
    EXPECT_EQ(status.framesSent + status.framesDropped, 300u);
    // The server records the stream anew once it is back.
    const QStringList recordings = server->recordings();
    ASSERT_GE(recordings.size(), 1);
    EXPECT_GT(lvProbe(recordings.back()).value(QStringLiteral("frames")).toInt(), 30);
}

TEST_F(StreamTest, StreamKeyNeverReachesTheLog)
{
    const quint16 port = lvFreePort(); // nobody listens: every attempt fails and is logged
    testing::internal::CaptureStderr();
    {
        LVEncoder encoder(streamSettings(QStringLiteral("rtmp://127.0.0.1:%1/live/Sup3rS3cretKey").arg(port)), quickRetries());
        QString error;
        ASSERT_TRUE(encoder.start(&error)) << error.toStdString();
        lvPushPaced(encoder, 30, 30);
        ASSERT_TRUE(lvWaitFor([&] { return encoder.status().reconnects >= 2; }, 20));
        EXPECT_FALSE(encoder.status().problem.isEmpty());
        EXPECT_FALSE(encoder.status().problem.contains(QStringLiteral("Sup3rS3cretKey")));
    }
    const QString log = QString::fromStdString(testing::internal::GetCapturedStderr());
    EXPECT_TRUE(log.contains(QStringLiteral("Stream to rtmp://127.0.0.1:%1/live/(key hidden) lost").arg(port))) << log.toStdString();
    EXPECT_FALSE(log.contains(QStringLiteral("Sup3rS3cretKey"))) << log.toStdString();
}

TEST_F(StreamTest, SrtCallerReachesAnFfmpegListener)
{
    QTemporaryDir dir;
    const quint16 port = lvFreePort();
    const QString received = dir.filePath(QStringLiteral("received.ts"));
    QProcess listener;
    listener.setProcessChannelMode(QProcess::ForwardedChannels);
    listener.start(QStringLiteral("ffmpeg"), {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-i"),
                                              QStringLiteral("srt://127.0.0.1:%1?mode=listener").arg(port),
                                              QStringLiteral("-c"), QStringLiteral("copy"), QStringLiteral("-f"),
                                              QStringLiteral("mpegts"), received});
    ASSERT_TRUE(listener.waitForStarted());
    // Calls until the listener is up: the first attempts may find nobody.
    LVEncoder encoder(streamSettings(QStringLiteral("srt://127.0.0.1:%1").arg(port)), quickRetries());
    QString error;
    ASSERT_TRUE(encoder.start(&error)) << error.toStdString();
    ASSERT_TRUE(lvWaitFor([&] { return encoder.status().state == LVEncoderState::Running; }, 20));
    lvPushPaced(encoder, 90, 30);
    encoder.stop();
    ASSERT_TRUE(encoder.waitFinished(30));
    if (!listener.waitForFinished(15000)) {
        listener.terminate();
        listener.waitForFinished();
    }
    const LVEncoderStatus status = encoder.status();
    EXPECT_EQ(status.framesSent + status.framesDropped, 90u);
    const QJsonObject probe = lvProbe(received);
    EXPECT_EQ(probe.value(QStringLiteral("width")).toInt(), 320);
    EXPECT_EQ(probe.value(QStringLiteral("height")).toInt(), 240);
    // A caller that connected late misses the frames before; the rest arrive.
    EXPECT_GE(probe.value(QStringLiteral("frames")).toInt(), 60);
}

TEST_F(StreamTest, HlsFolderGetsAPlaylistAndSegments)
{
    QTemporaryDir dir;
    LVEncodeSettings settings = streamSettings(dir.path());
    settings.audioInput = QStringLiteral("test");
    LVEncoder encoder(settings, quickRetries());
    QString error;
    ASSERT_TRUE(encoder.start(&error)) << error.toStdString();
    // Frames pushed while the pipeline still starts are not taken: a loaded machine lost half a second.
    ASSERT_TRUE(lvWaitFor([&] { return encoder.status().state == LVEncoderState::Running; }, 20));
    lvPushPaced(encoder, 90, 30);
    encoder.stop();
    ASSERT_TRUE(encoder.waitFinished(30));
    const LVEncoderStatus status = encoder.status();
    EXPECT_EQ(status.state, LVEncoderState::Stopped) << status.problem.toStdString();
    QFile playlist(dir.filePath(QStringLiteral("playlist.m3u8")));
    ASSERT_TRUE(playlist.open(QIODevice::ReadOnly));
    EXPECT_TRUE(playlist.readAll().contains("segment00000.ts"));
    // The first segment holds two seconds (key frames every second); the one cut short by the
    // stop may be left out of the playlist.
    EXPECT_GE(lvProbe(dir.filePath(QStringLiteral("playlist.m3u8"))).value(QStringLiteral("frames")).toInt(),
              60 - int(status.framesDropped));
}

} // namespace
