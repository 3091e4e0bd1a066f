// A 1920x1080 H.264 file at 30 fps playing as the source of a 1280x720 chain: the CPU each
// movie picture costs from the file to a texture, next to ffmpeg decoding the same file to
// nothing in the same run; how old a picture is when the chain draws it; and how far the
// movie's clock has moved from the wall clock at the end (sound plays into nothing when the
// machine has no sound output, so this is the pipeline clock's drift, not a speaker's).
// Usage: bench_movie [seconds of movie, default 10]
#include "render/LVContext.h"
#include "render/LVGLContext.h"
#include "sources/movie/LVMoviePlayer.h"
#include "sources/webcam/LVCamConverter.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <gst/gst.h>
#include <gst/video/video.h>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

double cpuSeconds(int who)
{
    rusage usage{};
    getrusage(who, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double percentile(std::vector<double> samples, double fraction)
{
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    return samples[std::min(samples.size() - 1, size_t(fraction * double(samples.size() - 1) + 0.5))];
}

double round3(double v)
{
    return double(qRound64(v * 1000.0)) / 1000.0;
}

bool run(const QStringList& arguments, double* wallSeconds)
{
    QProcess process;
    const auto start = Clock::now();
    process.start(QStringLiteral("ffmpeg"), QStringList{"-hide_banner", "-loglevel", "error", "-y"} + arguments);
    const bool ok = process.waitForFinished(-1) && process.exitCode() == 0;
    if (wallSeconds) *wallSeconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (!ok) std::fprintf(stderr, "ffmpeg failed: %s\n", process.readAllStandardError().constData());
    return ok;
}

// Upload and conversion alone: a 1920x1080 I420 picture (what the decoder hands over) turned
// into a texture, median of 30, on a context of its own as the player's streaming thread does.
double convertMs()
{
    double median = 0;
    std::thread([&] {
        QString error;
        auto gl = LVGLContext::makeOffscreenGLContext(&error);
        if (!gl) return;
        gl->makeCurrent();
        auto converter = LVCamConverter::create();
        GstVideoInfo info;
        gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, 1920, 1080);
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
        gst_buffer_memset(buffer, 0, 0x80, info.size);
        std::vector<double> samples;
        for (int i = 0; converter && i < 31; ++i) {
            GstVideoFrame frame;
            if (!gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) break;
            const auto t0 = Clock::now();
            auto picture = converter->convert(frame, 0);
            if (i > 0) samples.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
            gst_video_frame_unmap(&frame);
        }
        gst_buffer_unref(buffer);
        median = percentile(samples, 0.5);
        converter.reset();
        gl->doneCurrent();
    }).join();
    return median;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    gst_init(nullptr, nullptr);
    const int seconds = argc > 1 ? std::max(1, atoi(argv[1])) : 10;
    QTemporaryDir folder;
    const QString movie = folder.filePath("movie.mp4");
    if (!run({"-f", "lavfi", "-i", QStringLiteral("testsrc2=size=1920x1080:rate=30:duration=%1").arg(seconds), "-f", "lavfi", "-i",
              QStringLiteral("sine=frequency=440:duration=%1").arg(seconds), "-c:v", "libx264", "-preset", "veryfast",
              "-pix_fmt", "yuv420p", "-c:a", "aac", movie},
             nullptr))
        return 1;
    const double frames = double(seconds) * 30;

    // The reference: ffmpeg decoding the same file to nothing.
    const double childBefore = cpuSeconds(RUSAGE_CHILDREN);
    double ffmpegWall = 0;
    if (!run({"-i", movie, "-f", "null", "-"}, &ffmpegWall)) return 1;
    const double ffmpegCpu = cpuSeconds(RUSAGE_CHILDREN) - childBefore;

    QString error;
    std::unique_ptr<LVContext> context = LVContext::create(QSize(1280, 720), &error);
    if (!context) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    LVMoviePlayer player(movie);
    if (!player.waitUntilReady(20000)) return 1;
    std::vector<double> drawMs, ageMs;
    const double cpuBefore = cpuSeconds(RUSAGE_SELF);
    const uint64_t picturesBefore = player.picturesDecoded();
    const auto start = Clock::now();
    player.setPlaying(true);
    // The chain at 30 fps: draw the newest picture fitted into the frame.
    auto next = start;
    while (!player.isOver() && Clock::now() - start < std::chrono::seconds(seconds + 10)) {
        next += std::chrono::microseconds(33333);
        std::this_thread::sleep_until(next);
        const auto t0 = Clock::now();
        context->reset(false);
        if (auto picture = player.lastImage()) {
            context->framebuffer();
            LVContext::drawPBuffer(picture->texture(), false, false);
            ageMs.push_back(double(std::chrono::duration_cast<std::chrono::nanoseconds>(t0.time_since_epoch()).count() -
                                   picture->captureTimeNs()) / 1e6);
        }
        context->flush();
        drawMs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
    }
    const double wall = std::chrono::duration<double>(Clock::now() - start).count();
    const double cpu = cpuSeconds(RUSAGE_SELF) - cpuBefore;
    const double pictures = double(player.picturesDecoded() - picturesBefore);

    const double uploadMs = convertMs();
    const QJsonObject result{
        {"upload_convert_1080p_p50_ms", round3(uploadMs)},
        {"ratio_upload_to_ffmpeg_decode", round3(uploadMs / (ffmpegCpu * 1000.0 / frames))},
        {"movie", QStringLiteral("1920x1080 H.264 30 fps, %1 s, AAC sound").arg(seconds)},
        {"chain", "1280x720 at 30 fps"},
        {"pictures_decoded", pictures},
        {"ours_cpu_ms_per_picture", round3(cpu * 1000.0 / std::max(1.0, pictures))},
        {"ffmpeg_null_cpu_ms_per_frame", round3(ffmpegCpu * 1000.0 / frames)},
        {"ffmpeg_null_wall_ms_per_frame", round3(ffmpegWall * 1000.0 / frames)},
        {"ratio_cpu_ours_to_ffmpeg", round3((cpu / std::max(1.0, pictures)) / (ffmpegCpu / frames))},
        {"chain_draw_p50_ms", round3(percentile(drawMs, 0.5))},
        {"picture_age_p50_ms", round3(percentile(ageMs, 0.5))},
        {"picture_age_p99_ms", round3(percentile(ageMs, 0.99))},
        {"playback_wall_s", round3(wall)},
        {"drift_end_ms", round3((wall - double(seconds)) * 1000.0)},
    };
    std::printf("%s\n", QJsonDocument(result).toJson(QJsonDocument::Compact).constData());
    return 0;
}
