#include "outputs/record/LVEncodePlan.h"

#include <QDir>
#include <QStringList>
#include <QUrl>
#include <QUrlQuery>

#include <gst/gst.h>

namespace {

const QStringList& speedPresets()
{
    static const QStringList presets{
        QStringLiteral("ultrafast"), QStringLiteral("superfast"), QStringLiteral("veryfast"),
        QStringLiteral("faster"),    QStringLiteral("fast"),      QStringLiteral("medium"),
        QStringLiteral("slow"),      QStringLiteral("slower"),    QStringLiteral("veryslow"),
    };
    return presets;
}

bool elementInstalled(const char* name)
{
    if (!gst_is_initialized()) gst_init(nullptr, nullptr);
    GstElementFactory* factory = gst_element_factory_find(name);
    if (!factory) return false;
    gst_object_unref(factory);
    return true;
}

QString videoEncoderPart(const LVEncodeSettings& settings, const QString& encoder)
{
    const int keyframeFrames = settings.keyframeSeconds * settings.frameRate;
    if (encoder == QStringLiteral("openh264enc")) {
        return QStringLiteral("openh264enc name=encoder bitrate=%1 gop-size=%2").arg(settings.bitrateKbps * 1000).arg(keyframeFrames);
    }
    // zerolatency: no look-ahead, so a frame leaves the encoder as soon as it is coded.
    return QStringLiteral("x264enc name=encoder speed-preset=%1 tune=zerolatency bitrate=%2 key-int-max=%3")
        .arg(settings.speedPreset)
        .arg(settings.bitrateKbps)
        .arg(keyframeFrames);
}

QString audioSourcePart(const QString& input)
{
    if (input == QStringLiteral("test")) return QStringLiteral("audiotestsrc name=audio is-live=true wave=sine volume=0.2");
    // The device, when one is named, is set on the element afterwards: names may hold anything.
    return QStringLiteral("pulsesrc name=audio");
}

} // namespace

bool LVParseStreamUrl(const QString& text, LVEncodeSettings* settings, QString* error)
{
    const QUrl url(text, QUrl::StrictMode);
    const QString scheme = url.scheme().toLower();
    if (scheme == QStringLiteral("rtmp") || scheme == QStringLiteral("rtmps")) {
        QStringList segments = url.path().split(QLatin1Char('/'), Qt::SkipEmptyParts);
        if (url.host().isEmpty() || segments.size() < 2) {
            *error = QStringLiteral("stream address needs a server, an application and a key: %1://host[:port]/app/key")
                         .arg(scheme);
            return false;
        }
        QString key = segments.takeLast();
        if (url.hasQuery()) key += QLatin1Char('?') + url.query(QUrl::FullyEncoded);
        QUrl server = url;
        server.setQuery(QString());
        server.setPath(QLatin1Char('/') + segments.join(QLatin1Char('/')));
        settings->kind = LVEncodeKind::Rtmp;
        settings->location = server.toString(QUrl::FullyEncoded);
        settings->secret = key;
        return true;
    }
    if (scheme == QStringLiteral("srt")) {
        if (url.port() <= 0) {
            *error = QStringLiteral("SRT address needs a port: srt://host:port to call, srt://:port to listen");
            return false;
        }
        QUrlQuery query(url);
        settings->kind = LVEncodeKind::Srt;
        settings->secret = query.queryItemValue(QStringLiteral("passphrase"), QUrl::FullyDecoded);
        query.removeAllQueryItems(QStringLiteral("passphrase"));
        QUrl address = url;
        address.setQuery(query);
        settings->location = address.toString(QUrl::FullyEncoded);
        return true;
    }
    if (scheme == QStringLiteral("file") || (scheme.isEmpty() && !text.isEmpty())) {
        const QString folder = scheme.isEmpty() ? text : url.toLocalFile();
        if (folder.isEmpty()) {
            *error = QStringLiteral("stream address \"%1\" names no folder").arg(text);
            return false;
        }
        settings->kind = LVEncodeKind::Hls;
        settings->location = QDir::cleanPath(QDir(folder).absolutePath());
        settings->secret.clear();
        return true;
    }
    *error = QStringLiteral("stream address with \"%1:\" is not understood; use rtmp://, rtmps://, srt:// or a folder for HLS")
                 .arg(scheme);
    return false;
}

QString LVRedactedLocation(const LVEncodeSettings& settings)
{
    switch (settings.kind) {
    case LVEncodeKind::Rtmp:
        return settings.secret.isEmpty() ? settings.location : settings.location + QStringLiteral("/(key hidden)");
    case LVEncodeKind::Srt:
        return settings.secret.isEmpty() ? settings.location : settings.location + QStringLiteral(" (with passphrase)");
    case LVEncodeKind::File:
    case LVEncodeKind::Hls: break;
    }
    return settings.location;
}

QString LVRedacted(const LVEncodeSettings& settings, QString text)
{
    if (settings.secret.isEmpty()) return text;
    text.replace(settings.secret, QStringLiteral("(hidden)"));
    // GStreamer may quote the address percent-encoded.
    const QString encoded = QString::fromLatin1(QUrl::toPercentEncoding(settings.secret));
    if (encoded != settings.secret) text.replace(encoded, QStringLiteral("(hidden)"));
    return text;
}

QString LVAvailableVideoEncoder()
{
    if (elementInstalled("x264enc")) return QStringLiteral("x264enc");
    if (elementInstalled("openh264enc")) return QStringLiteral("openh264enc");
    return {};
}

QString LVEncodePipelineDescription(const LVEncodeSettings& settings, const QString& videoEncoder, QString* error)
{
    if (settings.width < 16 || settings.height < 16 || settings.width % 2 || settings.height % 2) {
        *error = QStringLiteral("video size %1x%2 cannot be encoded; use even sizes of 16 or more")
                     .arg(settings.width)
                     .arg(settings.height);
        return {};
    }
    if (settings.frameRate < 1 || settings.bitrateKbps < 100 || settings.bitrateKbps > 100000 ||
        settings.keyframeSeconds < 1 || settings.keyframeSeconds > 20) {
        *error = QStringLiteral("bitrate %1 kbit/s or keyframe interval %2 s is not allowed; use 100 to 100000 kbit/s "
                                "and 1 to 20 s")
                     .arg(settings.bitrateKbps)
                     .arg(settings.keyframeSeconds);
        return {};
    }
    if (videoEncoder.isEmpty()) {
        *error = QStringLiteral("no H.264 encoder is installed: install gstreamer1.0-plugins-ugly (x264enc) or "
                                "gstreamer1.0-plugins-bad (openh264enc)");
        return {};
    }
    if (videoEncoder == QStringLiteral("x264enc") && !speedPresets().contains(settings.speedPreset)) {
        *error = QStringLiteral("speed preset \"%1\" is not known; use one of %2")
                     .arg(settings.speedPreset, speedPresets().join(QStringLiteral(", ")));
        return {};
    }
    const bool matroska = settings.kind == LVEncodeKind::File && settings.container == QStringLiteral("mkv");
    if (settings.kind == LVEncodeKind::File && !matroska && settings.container != QStringLiteral("mp4")) {
        *error = QStringLiteral("recording format \"%1\" is not known; use mp4 or mkv").arg(settings.container);
        return {};
    }

    QString muxer;
    QString muxVideoPad = QStringLiteral("mux.");
    QString muxAudioPad = QStringLiteral("mux.");
    switch (settings.kind) {
    case LVEncodeKind::File:
        // Fragments every second: a crash loses at most the last one.
        muxer = matroska ? QStringLiteral("matroskamux name=mux ! fdsink name=sink")
                         : QStringLiteral("mp4mux name=mux fragment-duration=1000 streamable=true ! fdsink name=sink");
        break;
    // Frames come paced by the render loop: network sinks send at once, never wait for the clock.
    case LVEncodeKind::Rtmp: muxer = QStringLiteral("flvmux name=mux streamable=true ! rtmp2sink name=sink sync=false"); break;
    case LVEncodeKind::Srt:
        // A listener must not hold the pipeline until a viewer connects; SRT carries messages
        // of at most 1316 bytes, seven transport-stream packets.
        muxer = QStringLiteral("mpegtsmux name=mux alignment=7 ! srtsink name=sink sync=false wait-for-connection=false");
        break;
    case LVEncodeKind::Hls:
        muxer = QStringLiteral("hlssink2 name=hls target-duration=%1 max-files=10 playlist-length=5").arg(settings.keyframeSeconds);
        muxVideoPad = QStringLiteral("hls.video");
        muxAudioPad = QStringLiteral("hls.audio");
        break;
    }
    // Streams repeat the stream headers at every keyframe, so a viewer can join at any time.
    const QString parser = settings.kind == LVEncodeKind::File ? QStringLiteral("h264parse")
                                                               : QStringLiteral("h264parse config-interval=-1");
    QString description =
        QStringLiteral("appsrc name=video is-live=true format=time do-timestamp=false block=false "
                       "caps=\"video/x-raw,format=BGRA,width=%1,height=%2,framerate=%3/1\" ! videoconvert ! "
                       "video/x-raw,format=I420 ! %4 ! %5 ! %6 %7")
            .arg(settings.width)
            .arg(settings.height)
            .arg(settings.frameRate)
            .arg(videoEncoderPart(settings, videoEncoder), parser, muxVideoPad, muxer);
    if (!settings.audioInput.isEmpty()) {
        const QString encoder = matroska ? QStringLiteral("opusenc bitrate=128000")
                                         : QStringLiteral("avenc_aac bitrate=128000 ! aacparse");
        description += QStringLiteral(" %1 ! audioconvert ! audioresample ! audio/x-raw,rate=48000,channels=2 ! "
                                      "queue max-size-time=1000000000 leaky=downstream ! %2 ! %3")
                           .arg(audioSourcePart(settings.audioInput), encoder, muxAudioPad);
    }
    return description;
}

QString LVRecordFileName(const QString& pattern, const QDateTime& time, const QString& container)
{
    QString name;
    for (qsizetype i = 0; i < pattern.size(); ++i) {
        const QChar c = pattern[i];
        if (c != QLatin1Char('%') || i + 1 == pattern.size()) {
            name += c;
            continue;
        }
        const QChar field = pattern[++i];
        switch (field.unicode()) {
        case 'Y': name += time.toString(QStringLiteral("yyyy")); break;
        case 'm': name += time.toString(QStringLiteral("MM")); break;
        case 'd': name += time.toString(QStringLiteral("dd")); break;
        case 'H': name += time.toString(QStringLiteral("HH")); break;
        case 'M': name += time.toString(QStringLiteral("mm")); break;
        case 'S': name += time.toString(QStringLiteral("ss")); break;
        case '%': name += QLatin1Char('%'); break;
        default: name += c; name += field; break;
        }
    }
    for (QChar& c : name) {
        if (c == QLatin1Char('/') || c.unicode() < 0x20 || c.unicode() == 0x7f) c = QLatin1Char('-');
    }
    name = name.trimmed();
    if (name.isEmpty() || name == QStringLiteral(".") || name == QStringLiteral("..")) name = QStringLiteral("Recording");
    return name + QLatin1Char('.') + container;
}
