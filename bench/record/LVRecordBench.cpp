// What recording and streaming cost the render loop, at 1280x720 and 30 fps, each figure next
// to its reference from the same run:
//   frame time (renderFrame) with a recording and an RTMP stream running  vs  with neither
//   process CPU with both running                                         vs  with neither
//   delay from a frame handed to the encoder to the same frame decoded from the local server
// Needs nginx with the RTMP module and ffmpeg; prints one JSON object.
#include "app/LVKindRegistration.h"
#include "bench/support/LVBenchApp.h"
#include "outputs/record/LVBroadcaster.h"
#include "render/LVContext.h"

#include <QFile>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double cpuSeconds()
{
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

double percentile(std::vector<double> samples, double fraction)
{
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    return samples[std::min(samples.size() - 1, size_t(fraction * double(samples.size() - 1) + 0.5))];
}

double round2(double value)
{
    return double(qRound64(value * 100)) / 100;
}

struct Phase {
    std::vector<double> frameMs;
    double cpuPercent = 0;
};

// Renders frames at 30 fps, as the timer would, timing each frame.
Phase renderPaced(Lumaveil& app, int frames)
{
    Phase phase;
    const double cpuStart = cpuSeconds();
    const auto start = Clock::now();
    for (int i = 0; i < frames; ++i) {
        std::this_thread::sleep_until(start + std::chrono::microseconds(int64_t(i) * 1000000 / 30));
        const auto before = Clock::now();
        app.renderFrame();
        phase.frameMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - before).count());
        QCoreApplication::processEvents();
    }
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    phase.cpuPercent = 100.0 * (cpuSeconds() - cpuStart) / wall;
    return phase;
}

bool waitFor(const std::function<bool()>& ready, double seconds)
{
    const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    while (!ready()) {
        if (Clock::now() > deadline) return false;
        QCoreApplication::processEvents();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

// Frame numbers in 16 bars of 8 pixels across the top-left corner.
LVFramePixelsRef numberedFrame(int width, int height, int number)
{
    auto frame = std::make_shared<LVFramePixels>();
    frame->width = width;
    frame->height = height;
    frame->stride = width * 4;
    frame->bytes.assign(size_t(frame->stride) * size_t(height), 96);
    for (int y = 0; y < 16; ++y) {
        for (int x = 0; x < 128; ++x) {
            const uint8_t value = (number >> (x / 8)) & 1 ? 255 : 0;
            uint8_t* pixel = &frame->bytes[size_t(y) * size_t(frame->stride) + size_t(x) * 4];
            pixel[0] = pixel[1] = pixel[2] = value;
        }
    }
    return frame;
}

// Pushes numbered frames to the server and reads them back with ffmpeg; the delays, ms.
std::vector<double> measureDelay(const QString& url)
{
    LVEncodeSettings settings;
    QString error;
    LVParseStreamUrl(url, &settings, &error);
    settings.width = 1280;
    settings.height = 720;
    settings.bitrateKbps = 4500;
    settings.keyframeSeconds = 1;
    LVEncoder encoder(settings, {});
    if (!encoder.start(&error)) return {};
    std::map<int, Clock::time_point> pushed;
    std::mutex mutex;
    std::vector<double> delays;
    std::atomic<bool> reading{true};
    std::thread reader([&] {
        const QByteArray command =
            QStringLiteral("timeout 20 ffmpeg -v quiet -fflags nobuffer -flags low_delay -i %1 -vf crop=128:16:0:0,format=gray "
                           "-f rawvideo - 2>/dev/null")
                .arg(url)
                .toUtf8();
        FILE* pipe = popen(command.constData(), "r");
        if (!pipe) return;
        std::vector<uint8_t> picture(128 * 16);
        while (reading && fread(picture.data(), 1, picture.size(), pipe) == picture.size()) {
            const auto now = Clock::now();
            int number = 0;
            for (int bit = 0; bit < 16; ++bit) {
                if (picture[8 * 128 + size_t(bit) * 8 + 4] > 128) number |= 1 << bit;
            }
            std::lock_guard lock(mutex);
            const auto found = pushed.find(number);
            if (found != pushed.end() && number > 60) delays.push_back(std::chrono::duration<double, std::milli>(now - found->second).count());
        }
        pclose(pipe);
    });
    std::vector<LVFramePixelsRef> frames;
    for (int i = 0; i < 450; ++i) frames.push_back(numberedFrame(1280, 720, i + 1));
    const auto start = Clock::now();
    for (int i = 0; i < 450; ++i) {
        std::this_thread::sleep_until(start + std::chrono::microseconds(int64_t(i) * 1000000 / 30));
        {
            std::lock_guard lock(mutex);
            pushed[i + 1] = Clock::now();
        }
        encoder.pushFrame(frames[size_t(i)], double(i) / 30);
    }
    encoder.stop();
    encoder.waitFinished(30);
    reading = false;
    reader.join();
    return delays;
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication application(argc, argv);
    LVRegisterAllKinds();
    QTemporaryDir dir;
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    const quint16 port = probe.serverPort();
    probe.close();
    QFile conf(dir.filePath(QStringLiteral("nginx.conf")));
    if (!conf.open(QIODevice::WriteOnly)) return 1;
    conf.write(QStringLiteral("load_module /usr/lib/nginx/modules/ngx_rtmp_module.so;\ndaemon off;\nmaster_process off;\n"
                              "error_log stderr crit;\npid nginx.pid;\nevents { worker_connections 64; }\n"
                              "rtmp { server { listen 127.0.0.1:%1; application live { live on; } } }\n")
                   .arg(port)
                   .toUtf8());
    conf.close();
    QProcess nginx;
    nginx.start(QStringLiteral("nginx"), {QStringLiteral("-p"), dir.path(), QStringLiteral("-c"), QStringLiteral("nginx.conf")});
    if (!waitFor(
            [&] {
                QTcpSocket socket;
                socket.connectToHost(QHostAddress::LocalHost, port);
                return socket.waitForConnected(200);
            },
            10)) {
        std::fprintf(stderr, "bench_record: nginx with the RTMP module did not start\n");
        return 1;
    }
    const QString url = QStringLiteral("rtmp://127.0.0.1:%1/live/bench").arg(port);

    LVDefaults defaults(dir.filePath(QStringLiteral("prefs.json")));
    LVLaunchOptions options;
    options.videoSize = QSize(1280, 720);
    options.frameRate = 30;
    options.startTimer = false;
    options.noPublish = true;
    std::unique_ptr<Lumaveil> app = lvStartBenchApp(defaults, QDir(dir.path()), options, "bench_record");
    if (!app) return 1;
    app->setNamedSource(QStringLiteral("Test Pattern"));
    std::vector<double> offMs;
    std::vector<double> onMs;
    double offCpu = 0;
    double onCpu = 0;
    {
        LVBroadcaster broadcaster(*app, defaults);
        renderPaced(*app, 30);
        // Off, on, off, on: drift in the machine's load falls on both alike.
        for (int round = 0; round < 2; ++round) {
            const Phase off = renderPaced(*app, 300);
            offMs.insert(offMs.end(), off.frameMs.begin(), off.frameMs.end());
            offCpu += off.cpuPercent / 2;
            QString error;
            if (!broadcaster.startRecord(&error, dir.filePath(QStringLiteral("bench%1.mp4").arg(round))) ||
                !broadcaster.startStream(&error, url)) {
                std::fprintf(stderr, "bench_record: %s\n", qPrintable(error));
                return 1;
            }
            waitFor([&] { return broadcaster.streamStatus().state == LVEncoderState::Running; }, 10);
            const Phase on = renderPaced(*app, 300);
            onMs.insert(onMs.end(), on.frameMs.begin(), on.frameMs.end());
            onCpu += on.cpuPercent / 2;
            const LVEncoderStatus recorded = broadcaster.recordStatus();
            const LVEncoderStatus streamed = broadcaster.streamStatus();
            std::fprintf(stderr, "round %d: recording %llu sent %llu dropped, stream %llu sent %llu dropped\n", round,
                         (unsigned long long)recorded.framesSent, (unsigned long long)recorded.framesDropped,
                         (unsigned long long)streamed.framesSent, (unsigned long long)streamed.framesDropped);
            broadcaster.stopRecord(&error);
            broadcaster.stopStream(&error);
            waitFor([&] { return !broadcaster.isRecording() && !broadcaster.isStreaming(); }, 30);
        }
    }
    // The render figures first: they stand on their own if the delay cannot be measured.
    std::fprintf(stderr, "frame p50 off %.2f ms on %.2f ms, p99 off %.2f on %.2f, cpu off %.1f%% on %.1f%%\n",
                 percentile(offMs, 0.5), percentile(onMs, 0.5), percentile(offMs, 0.99), percentile(onMs, 0.99), offCpu, onCpu);
    const std::vector<double> delays = measureDelay(url);
    app.reset();
    nginx.terminate();
    nginx.waitForFinished();
    const QJsonObject result{
        {QStringLiteral("size"), QStringLiteral("1280x720")},
        {QStringLiteral("fps"), 30},
        {QStringLiteral("frame_p50_ms_off"), round2(percentile(offMs, 0.5))},
        {QStringLiteral("frame_p50_ms_on"), round2(percentile(onMs, 0.5))},
        {QStringLiteral("frame_p99_ms_off"), round2(percentile(offMs, 0.99))},
        {QStringLiteral("frame_p99_ms_on"), round2(percentile(onMs, 0.99))},
        {QStringLiteral("frame_p50_ratio_on_to_off"), round2(percentile(onMs, 0.5) / std::max(1e-6, percentile(offMs, 0.5)))},
        {QStringLiteral("process_cpu_percent_off"), round2(offCpu)},
        {QStringLiteral("process_cpu_percent_on"), round2(onCpu)},
        {QStringLiteral("encoders_cpu_percent"), round2(onCpu - offCpu)},
        {QStringLiteral("delay_frames_measured"), int(delays.size())},
        {QStringLiteral("delay_p50_ms"), round2(percentile(delays, 0.5))},
        {QStringLiteral("delay_p90_ms"), round2(percentile(delays, 0.9))},
        {QStringLiteral("frame_period_ms"), round2(1000.0 / 30)},
    };
    std::printf("%s\n", QJsonDocument(result).toJson(QJsonDocument::Compact).constData());
    return 0;
}
