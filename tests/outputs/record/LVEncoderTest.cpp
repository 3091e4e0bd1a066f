#include "tests/outputs/record/LVRecordTestSupport.h"

#include <QFileInfo>

#include <sys/stat.h>
#include <unistd.h>

namespace {

LVEncodeSettings fileSettings(const QString& path, const char* container, int width = 320, int height = 240)
{
    LVEncodeSettings settings;
    settings.kind = LVEncodeKind::File;
    settings.location = path;
    settings.container = QString::fromUtf8(container);
    settings.width = width;
    settings.height = height;
    settings.frameRate = 30;
    settings.bitrateKbps = 1000;
    settings.speedPreset = QStringLiteral("ultrafast");
    return settings;
}

// A file encoder, started and running, that lets every frame wait rather than drop it.
std::unique_ptr<LVEncoder> startUnpaced(const LVEncodeSettings& settings)
{
    LVEncoder::Options options;
    options.queueFrames = 1000;
    auto encoder = std::make_unique<LVEncoder>(settings, options);
    QString error;
    EXPECT_TRUE(encoder->start(&error)) << error.toStdString();
    EXPECT_TRUE(lvWaitFor([&] { return encoder->status().state == LVEncoderState::Running; }));
    return encoder;
}

TEST(Encoder, FiveSecondRecordingHasItsDurationFramesAndPrivateMode)
{
    for (const char* container : {"mp4", "mkv"}) {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("show.") + QString::fromUtf8(container));
        const auto encoder = startUnpaced(fileSettings(path, container));
        for (int i = 0; i < 150; ++i) encoder->pushFrame(lvPatternFrame(320, 240, i), 1000.0 + i / 30.0);
        encoder->stop();
        ASSERT_TRUE(encoder->waitFinished(60)) << container;
        const LVEncoderStatus status = encoder->status();
        EXPECT_EQ(status.state, LVEncoderState::Stopped) << status.problem.toStdString();
        EXPECT_EQ(status.framesSent, 150u) << container;
        EXPECT_EQ(status.framesDropped, 0u) << container;
        EXPECT_GT(status.bytesEncoded, 0u) << container;

        struct stat info {};
        ASSERT_EQ(::lstat(path.toLocal8Bit().constData(), &info), 0);
        EXPECT_EQ(info.st_mode & 0777, 0600u) << container;
        const QJsonObject probe = lvProbe(path);
        EXPECT_EQ(probe.value(QStringLiteral("width")).toInt(), 320) << container;
        EXPECT_EQ(probe.value(QStringLiteral("height")).toInt(), 240) << container;
        EXPECT_EQ(probe.value(QStringLiteral("r_frame_rate")).toString(), QStringLiteral("30/1")) << container;
        EXPECT_EQ(probe.value(QStringLiteral("frames")).toInt(), 150) << container;
        EXPECT_NEAR(probe.value(QStringLiteral("duration")).toDouble(), 5.0, 0.15) << container;
    }
}

TEST(Encoder, NeverWritesOverAFileOrThroughALink)
{
    QTemporaryDir dir;
    const QString existing = dir.filePath(QStringLiteral("existing.mp4"));
    QFile file(existing);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("keep me");
    file.close();
    const QString link = dir.filePath(QStringLiteral("link.mp4"));
    ASSERT_EQ(::symlink(dir.filePath(QStringLiteral("elsewhere.mp4")).toLocal8Bit().constData(), link.toLocal8Bit().constData()), 0);
    struct Case {
        QString path;
        const char* why;
    };
    const Case cases[] = {
        {existing, "File exists"},
        {link, "File exists"},
        {dir.filePath(QStringLiteral("missing/show.mp4")), "No such file"},
    };
    for (const Case& c : cases) {
        LVEncoder encoder(fileSettings(c.path, "mp4"), {});
        QString error;
        EXPECT_FALSE(encoder.start(&error)) << c.path.toStdString();
        EXPECT_TRUE(error.contains(c.path) && error.contains(QString::fromUtf8(c.why))) << error.toStdString();
    }
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    EXPECT_EQ(file.readAll(), QByteArray("keep me"));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(QStringLiteral("elsewhere.mp4"))));
}

TEST(Encoder, FramesItCannotTakeAreCountedAsDropped)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("busy.mkv"));
    LVEncoder::Options options;
    options.queueFrames = 2;
    LVEncoder encoder(fileSettings(path, "mkv", 1280, 720), options);
    // Before the start nothing can be taken.
    encoder.pushFrame(lvPatternFrame(1280, 720, 0), 0);
    QString error;
    ASSERT_TRUE(encoder.start(&error)) << error.toStdString();
    ASSERT_TRUE(lvWaitFor([&] { return encoder.status().state == LVEncoderState::Running; }));
    const LVFramePixelsRef frame = lvPatternFrame(1280, 720, 1);
    // Far faster than 720p can be encoded here: the queue fills and frames are dropped, never waited for.
    for (int i = 1; i <= 200; ++i) encoder.pushFrame(frame, i / 30.0);
    // A frame of another size is never handed over.
    encoder.pushFrame(lvPatternFrame(320, 240, 2), 201 / 30.0);
    encoder.stop();
    ASSERT_TRUE(encoder.waitFinished(60));
    const LVEncoderStatus status = encoder.status();
    EXPECT_EQ(status.framesSent + status.framesDropped, 202u);
    EXPECT_GT(status.framesDropped, 2u);
    EXPECT_GE(status.framesSent, 2u);
    EXPECT_EQ(lvProbe(path).value(QStringLiteral("frames")).toInt(), int(status.framesSent));
}

TEST(Encoder, FrameClockGoingBackKeepsTimestampsRising)
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("clock.mp4"));
    const auto encoder = startUnpaced(fileSettings(path, "mp4"));
    // A wall-clock step back by an hour in the middle, then a repeated time, then two frames
    // a tenth of a millisecond apart.
    const double times[] = {5000.0, 5000.0 + 1 / 30.0, 1400.0, 1400.0, 1400.0 + 1 / 30.0, 1400.0 + 1 / 30.0 + 0.0001, 1400.0 + 2 / 30.0};
    int index = 0;
    for (double time : times) encoder->pushFrame(lvPatternFrame(320, 240, index++), time);
    encoder->stop();
    ASSERT_TRUE(encoder->waitFinished(60));
    EXPECT_EQ(encoder->status().framesSent, 7u);
    const QJsonObject probe = lvProbe(path);
    EXPECT_EQ(probe.value(QStringLiteral("frames")).toInt(), 7);
    EXPECT_NEAR(probe.value(QStringLiteral("duration")).toDouble(), 0.2, 0.05);
}

} // namespace
