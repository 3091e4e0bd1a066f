#pragma once
// What an encoder makes and where it goes, and the GStreamer pipeline that does it. The
// pipeline's text never holds a stream key, a passphrase or a path: those are set on the
// named elements afterwards, so the text can be logged and compared as it is.
#include <QDateTime>
#include <QString>

enum class LVEncodeKind { File, Rtmp, Srt, Hls };

struct LVEncodeSettings {
    LVEncodeKind kind = LVEncodeKind::File;
    // File: the file; Rtmp: the server's application URL (rtmp[s]://host[:port]/app);
    // Srt: srt://host:port (no host: we listen); Hls: the folder for segments and playlist.
    QString location;
    // Rtmp: the stream key; Srt: the passphrase. Never logged.
    QString secret;
    // File: "mp4" (fragmented, so a crash leaves a playable file) or "mkv".
    QString container = QStringLiteral("mp4");
    int width = 1280;
    int height = 720;
    int frameRate = 30;
    int bitrateKbps = 6000;
    int keyframeSeconds = 2;
    QString speedPreset = QStringLiteral("veryfast");
    // Empty: no sound; "test": a tone (for checks without a sound card); "default": the
    // default input; anything else names an input device.
    QString audioInput;
};

// Reads a --stream URL into kind, location and secret: rtmp[s]://host/app/key, srt://host:port
// (srt://:port listens; "passphrase" in the query becomes the secret), or an HLS folder
// (a plain path or file://). False, with error, for anything else.
bool LVParseStreamUrl(const QString& url, LVEncodeSettings* settings, QString* error);

// The location as logs and the window show it: the stream key and passphrase left out.
QString LVRedactedLocation(const LVEncodeSettings& settings);
// text with every occurrence of the settings' secret replaced, for error texts from GStreamer.
QString LVRedacted(const LVEncodeSettings& settings, QString text);

// Which H.264 encoder is installed: "x264enc", else "openh264enc", else empty.
QString LVAvailableVideoEncoder();

// The pipeline for gst_parse_launch, with the video encoder given. Elements named "video"
// (the appsrc), "encoder", "sink" (where the secret and path go; HLS: "hls") and "audio" (the sound
// source, when there is one). Empty, with error, when the settings cannot be encoded.
QString LVEncodePipelineDescription(const LVEncodeSettings& settings, const QString& videoEncoder, QString* error);

// A recording's file name: pattern with strftime-like fields (%Y %m %d %H %M %S) filled
// from time, characters a file name cannot hold replaced, the container as extension.
QString LVRecordFileName(const QString& pattern, const QDateTime& time, const QString& container);
