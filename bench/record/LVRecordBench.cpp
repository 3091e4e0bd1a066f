// What recording and streaming cost the render loop, at 1280x720 and 30 fps, each figure next
// to its reference from the same run:
//   frame time (renderFrame) with a recording and an RTMP stream running  vs  with neither
//   process CPU with both running                                         vs  with neither
//   delay from a frame handed to the encoder to the same frame decoded from the local server
// Needs nginx with the RTMP module and ffmpeg; prints one JSON object.
#include "bench/support/LVBenchApp.h"
#include "bench/support/LVBenchFigures.h"
#include "app/LVKindRegistration.h"
#include "outputs/record/LVBroadcaster.h"
#include "tests/outputs/record/LVRecordTestSupport.h"

#include <QGuiApplication>

#include <map>
#include <mutex>

namespace {

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
    const double cpuStart = lvCpuSeconds();
    const auto start = LVBenchClock::now();
    for (int i = 0; i < frames; ++i) {
        std::this_thread::sleep_until(start + std::chrono::microseconds(int64_t(i) * 1000000 / 30));
        const auto before = LVBenchClock::now();
        app.renderFrame();
        phase.frameMs.push_back(lvMsSince(before));
        QCoreApplication::processEvents();
    }
    phase.cpuPercent = 100.0 * (lvCpuSeconds() - cpuStart) / (lvMsSince(start) / 1000.0);
    return phase;
}

// Serves the event loop until ready() holds, checked at each change of either encoder, or
// the time is up.
void waitForEncoders(LVBroadcaster& broadcaster, const std::function<bool()>& ready)
{
    QEventLoop loop;
    const auto check = [&] {
        if (ready()) loop.quit();
    };
    QObject::connect(&broadcaster, &LVBroadcaster::recordStateChanged, &loop, check);
    QObject::connect(&broadcaster, &LVBroadcaster::streamStateChanged, &loop, check);
    QTimer::singleShot(30000, &loop, &QEventLoop::quit);
    if (!ready()) loop.exec();
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
    std::map<int, LVBenchClock::time_point> pushed;
    std::mutex mutex;
    std::vector<double> delays;
    std::atomic<bool> reading{true};
    std::thread reader([&] {
        const QByteArray command =
            QStringLiteral("timeout 20 ffmpeg -v quiet -fflags nobuffer -flags low_delay -i %1 -vf crop=128:16:0:0,format=gray "
                           "-f rawvideo - 2>/dev/null").arg(url).toUtf8();
        FILE* pipe = popen(command.constData(), "r");
        if (!pipe) return;
        std::vector<uint8_t> picture(128 * 16);
        while (reading && fread(picture.data(), 1, picture.size(), pipe) == picture.size()) {
            const auto now = LVBenchClock::now();
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
    for (int i = 0; i < 450; ++i) frames.push_back(lvPatternFrame(1280, 720, i + 1));
    const auto start = LVBenchClock::now();
    for (int i = 0; i < 450; ++i) {
        std::this_thread::sleep_until(start + std::chrono::microseconds(int64_t(i) * 1000000 / 30));
        {
            std::lock_guard lock(mutex);
            pushed[i + 1] = LVBenchClock::now();
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
    LVNginxRtmp nginx(lvFreePort());
    if (!nginx.start()) {
        std::fprintf(stderr, "bench_record: nginx with the RTMP module did not start\n");
        return 1;
    }
    const QString url = nginx.url("bench");
    LVLaunchOptions options = lvBenchOptions(false);
    options.noPublish = true;
    LVBenchApp bench("bench_record", options);
    Lumaveil& app = *bench.app;
    app.setNamedSource(QStringLiteral("Test Pattern"));
    std::vector<double> offMs, onMs;
    double offCpu = 0, onCpu = 0;
    {
        LVBroadcaster broadcaster(app, *bench.defaults);
        renderPaced(app, 30);
        // Off, on, off, on: drift in the machine's load falls on both alike.
        for (int round = 0; round < 2; ++round) {
            const Phase off = renderPaced(app, 300);
            offMs.insert(offMs.end(), off.frameMs.begin(), off.frameMs.end());
            offCpu += off.cpuPercent / 2;
            QString error;
            if (!broadcaster.startRecord(&error, bench.dir.filePath(QStringLiteral("bench%1.mp4").arg(round))) ||
                !broadcaster.startStream(&error, url)) {
                std::fprintf(stderr, "bench_record: %s\n", qPrintable(error));
                return 1;
            }
            waitForEncoders(broadcaster, [&] { return broadcaster.streamStatus().state == LVEncoderState::Running; });
            const Phase on = renderPaced(app, 300);
            onMs.insert(onMs.end(), on.frameMs.begin(), on.frameMs.end());
            onCpu += on.cpuPercent / 2;
            const LVEncoderStatus recorded = broadcaster.recordStatus();
            const LVEncoderStatus streamed = broadcaster.streamStatus();
            std::fprintf(stderr, "round %d: recording %llu sent %llu dropped, stream %llu sent %llu dropped\n", round,
                         (unsigned long long)recorded.framesSent, (unsigned long long)recorded.framesDropped,
                         (unsigned long long)streamed.framesSent, (unsigned long long)streamed.framesDropped);
            broadcaster.stopRecord(&error);
            broadcaster.stopStream(&error);
            waitForEncoders(broadcaster, [&] { return !broadcaster.isRecording() && !broadcaster.isStreaming(); });
        }
    }
    const auto p = [](const std::vector<double>& samples, double fraction) { return lvPercentile(samples, fraction); };
    // The render figures first: they stand on their own if the delay cannot be measured.
    std::fprintf(stderr, "frame p50 off %.2f ms on %.2f ms, p99 off %.2f on %.2f, cpu off %.1f%% on %.1f%%\n",
                 p(offMs, 0.5), p(onMs, 0.5), p(offMs, 0.99), p(onMs, 0.99), offCpu, onCpu);
    const std::vector<double> delays = measureDelay(url);
    bench.app.reset();
    lvPrintJson({
        {"size", "1280x720"},
        {"fps", 30},
        {"frame_p50_ms_off", round2(p(offMs, 0.5))},
        {"frame_p50_ms_on", round2(p(onMs, 0.5))},
        {"frame_p99_ms_off", round2(p(offMs, 0.99))},
        {"frame_p99_ms_on", round2(p(onMs, 0.99))},
        {"frame_p50_ratio_on_to_off", round2(p(onMs, 0.5) / std::max(1e-6, p(offMs, 0.5)))},
        {"process_cpu_percent_off", round2(offCpu)},
        {"process_cpu_percent_on", round2(onCpu)},
        {"encoders_cpu_percent", round2(onCpu - offCpu)},
        {"delay_frames_measured", int(delays.size())},
        {"delay_p50_ms", round2(p(delays, 0.5))},
        {"delay_p90_ms", round2(p(delays, 0.9))},
        {"frame_period_ms", round2(1000.0 / 30)},
    });
    return 0;
}
