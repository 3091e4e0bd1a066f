#pragma once
// Frames, a real media server and ffprobe for the recording and streaming tests.
#include "outputs/record/LVEncoder.h"
#include "tests/support/LVWaitFor.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

// A frame whose first 16 columns of 8-pixel bars carry index in binary, over a grey that
// changes with it, so every frame differs.
inline LVFramePixelsRef lvPatternFrame(int width, int height, int index)
{
    auto frame = std::make_shared<LVFramePixels>();
    frame->width = width;
    frame->height = height;
    frame->stride = width * 4;
    frame->bytes.assign(size_t(frame->stride) * size_t(height), uint8_t(40 + index % 150));
    for (int y = 0; y < height; ++y) {
        for (int bit = 0; bit < 16; ++bit) {
            const uint8_t value = (index >> bit) & 1 ? 255 : 0;
            for (int x = bit * 8; x < bit * 8 + 8 && x < width; ++x) {
                uint8_t* pixel = &frame->bytes[size_t(y) * size_t(frame->stride) + size_t(x) * 4];
                pixel[0] = pixel[1] = pixel[2] = value;
                pixel[3] = 255;
            }
        }
    }
    return frame;
}

// Pushes frames at the frame rate, as the render loop would (the pause paces a live source;
// nothing waits on the encoder). between runs before each frame, with its index.
inline void lvPushPaced(LVEncoder& encoder, int frames, int frameRate, const std::function<void(int)>& between = {})
{
    std::vector<LVFramePixelsRef> pool;
    for (int i = 0; i < 30; ++i) pool.push_back(lvPatternFrame(encoder.settings().width, encoder.settings().height, i));
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < frames; ++i) {
        if (between) between(i);
        std::this_thread::sleep_until(start + std::chrono::microseconds(int64_t(i) * 1000000 / frameRate));
        encoder.pushFrame(pool[size_t(i) % pool.size()], double(i) / frameRate);
    }
}

// A loopback TCP port nobody listens on right now.
inline quint16 lvFreePort()
{
    QTcpServer server;
    server.listen(QHostAddress::LocalHost, 0);
    return server.serverPort();
}

// Starts ffprobe on a file or stream: its first video stream's width, height, r_frame_rate,
// nb_read_frames (when counted: a live stream is not, it has no end), and the container's
// duration. Read the answer with lvProbeResult.
inline std::unique_ptr<QProcess> lvStartProbe(const QString& what, bool countFrames = true)
{
    QStringList arguments{QStringLiteral("-v"), QStringLiteral("error")};
    // A live stream is looked at for a second, not the five ffprobe takes by default.
    if (countFrames) arguments << QStringLiteral("-count_frames");
    else arguments << QStringLiteral("-analyzeduration") << QStringLiteral("1000000");
    arguments << QStringLiteral("-select_streams") << QStringLiteral("v:0") << QStringLiteral("-show_entries")
              << QStringLiteral("stream=width,height,r_frame_rate,nb_read_frames:format=duration") << QStringLiteral("-of")
              << QStringLiteral("json") << what;
    auto probe = std::make_unique<QProcess>();
    probe->start(QStringLiteral("ffprobe"), arguments);
    return probe;
}

inline QJsonObject lvProbeResult(QProcess& probe, int timeoutMs = 60000)
{
    if (!probe.waitForFinished(timeoutMs)) {
        probe.kill();
        probe.waitForFinished();
        return {};
    }
    const QJsonObject all = QJsonDocument::fromJson(probe.readAllStandardOutput()).object();
    QJsonObject stream = all.value(QStringLiteral("streams")).toArray().at(0).toObject();
    stream.insert(QStringLiteral("duration"), all.value(QStringLiteral("format")).toObject().value(QStringLiteral("duration")).toString().toDouble());
    stream.insert(QStringLiteral("frames"), stream.value(QStringLiteral("nb_read_frames")).toString().toInt());
    return stream;
}

inline QJsonObject lvProbe(const QString& what, int timeoutMs = 60000, bool countFrames = true)
{
    const auto probe = lvStartProbe(what, countFrames);
    return lvProbeResult(*probe, timeoutMs);
}

// nginx with the RTMP module on a loopback port, run as the current user in a folder of
// its own; it records every stream it receives into that folder.
class LVNginxRtmp {
public:
    explicit LVNginxRtmp(quint16 port) : port_(port)
    {
        QFile conf(dir_.filePath(QStringLiteral("nginx.conf")));
        if (!conf.open(QIODevice::WriteOnly)) return;
        conf.write(QStringLiteral("load_module /usr/lib/nginx/modules/ngx_rtmp_module.so;\n"
                                  "daemon off;\nmaster_process off;\nerror_log stderr warn;\npid nginx.pid;\n"
                                  "events { worker_connections 64; }\n"
                                  "rtmp { server { listen 127.0.0.1:%1; application live { live on; record all; "
                                  "record_path %2; record_unique on; } } }\n")
                       .arg(port)
                       .arg(dir_.path())
                       .toUtf8());
    }
    ~LVNginxRtmp() { stop(); }

    // Starts the server and waits until it accepts connections.
    bool start()
    {
        process_.setProcessChannelMode(QProcess::ForwardedChannels);
        process_.start(QStringLiteral("nginx"), {QStringLiteral("-p"), dir_.path(), QStringLiteral("-c"), QStringLiteral("nginx.conf")});
        if (!process_.waitForStarted()) return false;
        return lvWaitFor([this] {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, port_);
            return socket.waitForConnected(200) || process_.state() == QProcess::NotRunning;
        }) && process_.state() == QProcess::Running;
    }
    void stop()
    {
        if (process_.state() == QProcess::NotRunning) return;
        process_.terminate();
        if (!process_.waitForFinished(5000)) {
            process_.kill();
            process_.waitForFinished();
        }
    }
    QString url(const QString& key) const { return QStringLiteral("rtmp://127.0.0.1:%1/live/%2").arg(port_).arg(key); }
    // The recordings of the streams received, oldest first.
    QStringList recordings() const
    {
        QStringList files;
        for (const QFileInfo& file : QDir(dir_.path()).entryInfoList({QStringLiteral("*.flv")}, QDir::Files, QDir::Time | QDir::Reversed)) {
            files.append(file.absoluteFilePath());
        }
        return files;
    }

private:
    quint16 port_;
    QTemporaryDir dir_;
    QProcess process_;
};
