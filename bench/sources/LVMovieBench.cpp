// A 1920x1080 H.264 file at 30 fps playing as the source of a 1280x720 chain, its pictures
// converted at the movie's size and then at the chain's: how many the chain shows, the CPU each
// costs from the file to a texture, next to ffmpeg decoding the same file to nothing in the
// same run; how old a picture is when the chain draws it; and how far the
// movie's clock has moved from the wall clock at the end (sound plays into nothing when the
// machine has no sound output, so this is the pipeline clock's drift, not a speaker's).
// Usage: bench_movie [seconds of movie, default 10]
#include "bench/support/LVBenchFigures.h"
#include "render/LVContext.h"
#include "render/LVGLContext.h"
#include "sources/movie/LVMoviePlayer.h"
#include "sources/webcam/LVCamConverter.h"

#include <QTemporaryDir>

#include <gst/gst.h>
#include <gst/video/video.h>
#include <libyuv/scale.h>

#include <sys/resource.h>

namespace {

double childrenCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) + double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// Upload and conversion alone, median of 30 on a context of its own as the player's streaming
// thread does: a 1920x1080 I420 picture (what the decoder hands over) turned into a texture
// at its own size, scaled to the chain's 1280x720 in the conversion pass, or scaled first on
// the CPU (libyuv, the alternative of scaling on the decoder's thread) and converted at 1280x720.
struct ConvertCosts {
    double fullMs = 0;
    double gpuScaledMs = 0;
    double cpuScaledMs = 0;
};

ConvertCosts convertCosts()
{
    ConvertCosts costs;
    std::thread([&] {
        QString error;
        auto gl = LVGLContext::makeOffscreenGLContext(&error);
        if (!gl) return;
        gl->makeCurrent();
        auto converter = LVCamConverter::create();
        GstVideoInfo info, small;
        gst_video_info_set_format(&info, GST_VIDEO_FORMAT_I420, 1920, 1080);
        gst_video_info_set_format(&small, GST_VIDEO_FORMAT_I420, 1280, 720);
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
        GstBuffer* scaledBuffer = gst_buffer_new_allocate(nullptr, small.size, nullptr);
        gst_buffer_memset(buffer, 0, 0x80, info.size);
        const auto measure = [&](int outWidth, bool cpuScale) {
            std::vector<double> samples;
            converter->setOutputSize(outWidth, outWidth * 9 / 16);
            for (int i = 0; converter && i < 31; ++i) {
                GstVideoFrame frame, scaled;
                if (!gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) break;
                const auto t0 = LVBenchClock::now();
                if (cpuScale && gst_video_frame_map(&scaled, &small, scaledBuffer, GST_MAP_WRITE)) {
                    auto plane = [](GstVideoFrame& f, int i) { return static_cast<uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&f, i)); };
                    auto stride = [](GstVideoFrame& f, int i) { return GST_VIDEO_FRAME_PLANE_STRIDE(&f, i); };
                    libyuv::I420Scale(plane(frame, 0), stride(frame, 0), plane(frame, 1), stride(frame, 1), plane(frame, 2),
                                      stride(frame, 2), 1920, 1080, plane(scaled, 0), stride(scaled, 0), plane(scaled, 1),
                                      stride(scaled, 1), plane(scaled, 2), stride(scaled, 2), 1280, 720, libyuv::kFilterBilinear);
                    auto picture = converter->convert(scaled, 0);
                    gst_video_frame_unmap(&scaled);
                } else {
                    auto picture = converter->convert(frame, 0);
                }
                if (i > 0) samples.push_back(lvMsSince(t0));
                gst_video_frame_unmap(&frame);
            }
            return lvPercentile(samples, 0.5);
        };
        costs.fullMs = measure(0, false);
        costs.gpuScaledMs = measure(1280, false);
        costs.cpuScaledMs = measure(0, true);
        gst_buffer_unref(scaledBuffer);
        gst_buffer_unref(buffer);
        converter.reset();
        gl->doneCurrent();
    }).join();
    return costs;
}

// Plays the movie as the source of a 1280x720 chain at 30 fps, drawing the newest picture into
// the frame each period, and describes the run against ffmpeg's CPU per frame. outputWidth 0
// converts at the movie's own size. An empty object when the movie does not open.
QJsonObject play(const QString& movie, LVContext& context, int outputWidth, int seconds, double ffmpegMs)
{
    LVMoviePlayer player(movie);
    player.setOutputSize(outputWidth, outputWidth * 9 / 16);
    if (!player.waitUntilReady(20000)) return {};
    std::vector<double> drawMs, ageMs;
    const double cpuBefore = lvCpuSeconds();
    const uint64_t picturesBefore = player.picturesDecoded();
    const auto start = LVBenchClock::now();
    player.setPlaying(true);
    const LVCamPicture* last = nullptr;
    auto next = start;
    while (!player.isOver() && LVBenchClock::now() - start < std::chrono::seconds(seconds + 10)) {
        next += std::chrono::microseconds(33333);
        std::this_thread::sleep_until(next);
        const auto t0 = LVBenchClock::now();
        context.reset(false);
        if (auto picture = player.lastImage()) {
            context.framebuffer();
            LVContext::drawPBuffer(picture->texture(), false, false);
            if (picture.get() != last) {
                last = picture.get();
                ageMs.push_back(double(std::chrono::duration_cast<std::chrono::nanoseconds>(t0.time_since_epoch()).count() -
                                       picture->captureTimeNs()) / 1e6);
            }
        }
        context.flush();
        drawMs.push_back(lvMsSince(t0));
    }
    const double wallS = lvMsSince(start) / 1000.0;
    const double pictures = double(player.picturesDecoded() - picturesBefore);
    const double cpuMsPerPicture = (lvCpuSeconds() - cpuBefore) * 1000.0 / std::max(1.0, pictures);
    return {
        {"pictures_converted", pictures},
        {"pictures_shown", double(ageMs.size())},
        {"pictures_shown_per_60s", lvRound3(double(ageMs.size()) * 60.0 / std::max(1e-9, wallS))},
        {"cpu_ms_per_picture", lvRound3(cpuMsPerPicture)},
        {"ratio_cpu_to_ffmpeg_decode", lvRound3(cpuMsPerPicture / ffmpegMs)},
        {"chain_draw_p50_ms", lvRound3(lvPercentile(drawMs, 0.5))},
        {"picture_age_p50_ms", lvRound3(lvPercentile(ageMs, 0.5))},
        {"picture_age_p99_ms", lvRound3(lvPercentile(ageMs, 0.99))},
        {"playback_wall_s", lvRound3(wallS)},
        {"drift_end_ms", lvRound3((wallS - double(seconds)) * 1000.0)},
    };
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    gst_init(nullptr, nullptr);
    const int seconds = argc > 1 ? std::max(1, atoi(argv[1])) : 10;
    QTemporaryDir folder;
    const QString movie = folder.filePath("movie.mp4");
    if (!lvRunFfmpeg({"-f", "lavfi", "-i", QStringLiteral("testsrc2=size=1920x1080:rate=30:duration=%1").arg(seconds), "-f",
                      "lavfi", "-i", QStringLiteral("sine=frequency=440:duration=%1").arg(seconds), "-c:v", "libx264",
                      "-preset", "veryfast", "-pix_fmt", "yuv420p", "-c:a", "aac", movie}))
        return 1;
    const double frames = double(seconds) * 30;

    // The reference: ffmpeg decoding the same file to nothing.
    const double childBefore = childrenCpuSeconds();
    double ffmpegWall = 0;
    if (!lvRunFfmpeg({"-i", movie, "-f", "null", "-"}, &ffmpegWall)) return 1;
    const double ffmpegMs = (childrenCpuSeconds() - childBefore) * 1000.0 / frames;

    QString error;
    std::unique_ptr<LVContext> context = LVContext::create(QSize(1280, 720), &error);
    if (!context) {
        std::fprintf(stderr, "%s\n", qPrintable(error));
        return 1;
    }
    // Before: pictures converted at the movie's size; after: at the chain's.
    const QJsonObject full = play(movie, *context, 0, seconds, ffmpegMs);
    const QJsonObject scaled = play(movie, *context, 1280, seconds, ffmpegMs);
    if (full.isEmpty() || scaled.isEmpty()) return 1;
    const ConvertCosts costs = convertCosts();
    lvPrintJson({
        {"movie", QStringLiteral("1920x1080 H.264 30 fps, %1 s, AAC sound").arg(seconds)},
        {"chain", "1280x720 at 30 fps"},
        {"ffmpeg_null_cpu_ms_per_frame", lvRound3(ffmpegMs)},
        {"ffmpeg_null_wall_ms_per_frame", lvRound3(ffmpegWall * 1000.0 / frames)},
        {"convert_full_1080p_p50_ms", lvRound3(costs.fullMs)},
        {"convert_gpu_scaled_720p_p50_ms", lvRound3(costs.gpuScaledMs)},
        {"convert_libyuv_scaled_then_720p_p50_ms", lvRound3(costs.cpuScaledMs)},
        {"ratio_gpu_scaled_to_ffmpeg_decode", lvRound3(costs.gpuScaledMs / ffmpegMs)},
        {"converted_at_movie_size", full},
        {"converted_at_chain_size", scaled},
    });
    return 0;
}
