#include "outputs/record/LVEncodePlan.h"

#include <gtest/gtest.h>

namespace {

struct UrlCase {
    const char* url;
    bool ok;
    LVEncodeKind kind;
    const char* location;
    const char* secret;
};

TEST(EncodePlan, StreamAddressesSplitIntoServerAndSecret)
{
    const UrlCase cases[] = {
        {"rtmp://127.0.0.1:1935/live/show", true, LVEncodeKind::Rtmp, "rtmp://127.0.0.1:1935/live", "show"},
        {"rtmps://ingest.example.net/app/sub/k3y", true, LVEncodeKind::Rtmp, "rtmps://ingest.example.net/app/sub", "k3y"},
        {"rtmp://host/live/key?token=abc", true, LVEncodeKind::Rtmp, "rtmp://host/live", "key?token=abc"},
        {"srt://10.0.0.2:9000?passphrase=longsecret1&latency=200", true, LVEncodeKind::Srt, "srt://10.0.0.2:9000?latency=200", "longsecret1"},
        {"srt://:9000", true, LVEncodeKind::Srt, "srt://:9000", ""},
        {"/tmp/show/hls", true, LVEncodeKind::Hls, "/tmp/show/hls", ""},
        {"file:///tmp/show/hls/", true, LVEncodeKind::Hls, "/tmp/show/hls", ""},
        {"rtmp://host/live", false, LVEncodeKind::File, "", ""},
        {"rtmp:///live/key", false, LVEncodeKind::File, "", ""},
        {"srt://host", false, LVEncodeKind::File, "", ""},
        {"http://host/live/key", false, LVEncodeKind::File, "", ""},
        {"", false, LVEncodeKind::File, "", ""},
    };
    for (const UrlCase& c : cases) {
        LVEncodeSettings settings;
        QString error;
        EXPECT_EQ(LVParseStreamUrl(QString::fromUtf8(c.url), &settings, &error), c.ok) << c.url << ": " << error.toStdString();
        if (!c.ok) {
            EXPECT_FALSE(error.isEmpty()) << c.url;
            continue;
        }
        EXPECT_EQ(settings.kind, c.kind) << c.url;
        EXPECT_EQ(settings.location.toStdString(), c.location) << c.url;
        EXPECT_EQ(settings.secret.toStdString(), c.secret) << c.url;
    }
}

TEST(EncodePlan, SecretsStayOutOfWhatIsShownAndOfThePipeline)
{
    for (const char* url : {"rtmp://127.0.0.1:1935/live/Sup3rS3cret", "srt://127.0.0.1:9000?passphrase=Sup3rS3cret"}) {
        LVEncodeSettings settings;
        QString error;
        ASSERT_TRUE(LVParseStreamUrl(QString::fromUtf8(url), &settings, &error)) << error.toStdString();
        EXPECT_FALSE(LVRedactedLocation(settings).contains(QStringLiteral("Sup3rS3cret"))) << url;
        EXPECT_FALSE(LVRedacted(settings, QStringLiteral("could not connect to %1").arg(QString::fromUtf8(url)))
                         .contains(QStringLiteral("Sup3rS3cret")))
            << url;
        const QString description = LVEncodePipelineDescription(settings, QStringLiteral("x264enc"), &error);
        ASSERT_FALSE(description.isEmpty()) << error.toStdString();
        EXPECT_FALSE(description.contains(QStringLiteral("Sup3rS3cret"))) << url;
    }
}

TEST(EncodePlan, PipelineFollowsKindContainerEncoderAndSound)
{
    struct Case {
        LVEncodeKind kind;
        const char* container;
        const char* encoder;
        const char* audio;
        std::vector<const char*> present;
        std::vector<const char*> absent;
    };
    const Case cases[] = {
        {LVEncodeKind::File, "mp4", "x264enc", "", {"mp4mux", "fragment-duration=1000", "fdsink name=sink", "key-int-max=60", "speed-preset=veryfast"}, {"audio", "matroskamux"}},
        {LVEncodeKind::File, "mkv", "x264enc", "test", {"matroskamux", "audiotestsrc name=audio", "opusenc"}, {"avenc_aac", "mp4mux"}},
        {LVEncodeKind::File, "mp4", "openh264enc", "default", {"openh264enc", "bitrate=3000000", "gop-size=60", "pulsesrc name=audio", "avenc_aac"}, {"x264enc"}},
        {LVEncodeKind::Rtmp, "mp4", "x264enc", "", {"flvmux name=mux streamable=true", "rtmp2sink name=sink", "config-interval=-1"}, {"fdsink"}},
        {LVEncodeKind::Srt, "mp4", "x264enc", "", {"mpegtsmux name=mux alignment=7", "srtsink name=sink", "wait-for-connection=false"}, {"flvmux"}},
        {LVEncodeKind::Hls, "mp4", "x264enc", "test", {"hlssink2 name=hls target-duration=2", "hls.video", "hls.audio"}, {"sink name=sink"}},
    };
    for (const Case& c : cases) {
        LVEncodeSettings settings;
        settings.kind = c.kind;
        settings.container = QString::fromUtf8(c.container);
        settings.audioInput = QString::fromUtf8(c.audio);
        settings.bitrateKbps = 3000;
        QString error;
        const QString description = LVEncodePipelineDescription(settings, QString::fromUtf8(c.encoder), &error);
        ASSERT_FALSE(description.isEmpty()) << error.toStdString();
        EXPECT_TRUE(description.startsWith(QStringLiteral("appsrc name=video"))) << description.toStdString();
        EXPECT_TRUE(description.contains(QStringLiteral("format=BGRA,width=1280,height=720,framerate=30/1"))) << description.toStdString();
        for (const char* part : c.present) EXPECT_TRUE(description.contains(QString::fromUtf8(part))) << part << " in " << description.toStdString();
        for (const char* part : c.absent) EXPECT_FALSE(description.contains(QString::fromUtf8(part))) << part << " in " << description.toStdString();
    }
}

TEST(EncodePlan, SettingsThatCannotBeEncodedAreRefusedWithTheReason)
{
    struct Case {
        const char* what;
        std::function<void(LVEncodeSettings&, QString&)> change;
        const char* mention;
    };
    const Case cases[] = {
        {"odd width", [](LVEncodeSettings& s, QString&) { s.width = 641; }, "641x720"},
        {"tiny", [](LVEncodeSettings& s, QString&) { s.height = 8; }, "1280x8"},
        {"bitrate", [](LVEncodeSettings& s, QString&) { s.bitrateKbps = 10; }, "bitrate 10"},
        {"keyframes", [](LVEncodeSettings& s, QString&) { s.keyframeSeconds = 0; }, "keyframe interval 0"},
        {"preset", [](LVEncodeSettings& s, QString&) { s.speedPreset = QStringLiteral("warp"); }, "speed preset \"warp\""},
        {"format", [](LVEncodeSettings& s, QString&) { s.container = QStringLiteral("avi"); }, "format \"avi\""},
        {"no encoder", [](LVEncodeSettings&, QString& encoder) { encoder.clear(); }, "no H.264 encoder"},
    };
    for (const Case& c : cases) {
        LVEncodeSettings settings;
        QString encoder = QStringLiteral("x264enc");
        c.change(settings, encoder);
        QString error;
        EXPECT_TRUE(LVEncodePipelineDescription(settings, encoder, &error).isEmpty()) << c.what;
        EXPECT_TRUE(error.contains(QString::fromUtf8(c.mention))) << c.what << ": " << error.toStdString();
    }
}

TEST(EncodePlan, FileNamesFromThePattern)
{
    const QDateTime time(QDate(2026, 3, 7), QTime(9, 5, 2));
    struct Case {
        const char* pattern;
        const char* container;
        const char* name;
    };
    const Case cases[] = {
        {"Lumaveil %Y-%m-%d %H-%M-%S", "mp4", "Lumaveil 2026-03-07 09-05-02.mp4"},
        {"show/%H:%M", "mkv", "show-09:05.mkv"},
        {"100%% live %q", "mp4", "100% live %q.mp4"},
        {"   ", "mp4", "Recording.mp4"},
        {"..", "mkv", "Recording.mkv"},
        {"trailing %", "mp4", "trailing %.mp4"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(LVRecordFileName(QString::fromUtf8(c.pattern), time, QString::fromUtf8(c.container)).toStdString(), c.name)
            << c.pattern;
    }
}

} // namespace
