// Webcam path at 1280x720, 30 fps: what a delivered picture costs from the capture thread to a
// texture, how old it is when the render loop takes it, and the plane upload next to a plain
// memcpy of the same frame, all measured in the same run.
#include "bench/support/LVBenchFigures.h"
#include "core/LVDefaults.h"
#include "render/LVGLContext.h"
#include "sources/webcam/LVCamConverter.h"
#include "sources/webcam/LVCamGrabber.h"
#include "sources/webcam/LVCamTestProvider.h"

#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <cstring>

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr int kRate = 30;
const char* kCaps = "video/x-raw,format=YUY2,width=1280,height=720,framerate=30/1";

double nowNs()
{
    return double(std::chrono::duration_cast<std::chrono::nanoseconds>(LVBenchClock::now().time_since_epoch()).count());
}

// The reference: one plain copy of a 1280x720 YUY2 frame, median of 200.
double memcpyNs()
{
    static const double median = [] {
        std::vector<uint8_t> from(size_t(kWidth) * kHeight * 2, 7), to(from.size());
        std::vector<double> samples;
        for (int i = 0; i < 200; ++i) {
            const double t0 = nowNs();
            std::memcpy(to.data(), from.data(), from.size());
            benchmark::DoNotOptimize(to.data());
            benchmark::ClobberMemory();
            samples.push_back(nowNs() - t0);
        }
        return lvPercentile(samples, 0.5);
    }();
    return median;
}

// Uploading the frame's planes to the GPU, alone or with the shader conversion into an RGBA
// texture; finished either way.
void BM_Upload(benchmark::State& state, bool convert)
{
    LVCamInitGStreamer();
    QString error;
    const std::unique_ptr<LVGLContext> gl = LVGLContext::makeOffscreenGLContext(&error);
    if (!gl) {
        state.SkipWithError("no GL");
        return;
    }
    gl->makeCurrent();
    std::unique_ptr<LVCamConverter> converter = LVCamConverter::create();
    GstVideoInfo info;
    gst_video_info_set_format(&info, GST_VIDEO_FORMAT_YUY2, kWidth, kHeight);
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
    gst_buffer_memset(buffer, 0, 0x80, info.size);
    GstVideoFrame frame;
    gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ);
    const double t0 = nowNs();
    for (auto _ : state) {
        if (convert) {
            benchmark::DoNotOptimize(converter->convert(frame, 0));
        } else {
            converter->upload(frame);
            glFinish();
        }
    }
    state.counters["vs_memcpy"] = (nowNs() - t0) / double(state.iterations()) / memcpyNs();
    gst_video_frame_unmap(&frame);
    gst_buffer_unref(buffer);
}

// The fake camera alone (videotestsrc at 1280x720, 30 fps into a fakesink): its CPU cost is
// taken off the capture path's.
double producerCpuNsPerFrame(int frames)
{
    GstElement* pipeline = gst_parse_launch(
        "videotestsrc is-live=true ! video/x-raw,format=YUY2,width=1280,height=720,framerate=30/1 ! fakesink sync=false",
        nullptr);
    const double cpu0 = lvCpuSeconds();
    gst_element_set_state(pipeline, GST_STATE_PLAYING);
    std::this_thread::sleep_for(std::chrono::milliseconds(1000 * frames / kRate));
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
    return (lvCpuSeconds() - cpu0) * 1e9 / frames;
}

// A render loop at 30 fps taking pictures from a grabber on the fake 1280x720 camera.
void BM_CaptureToTexture(benchmark::State& state)
{
    LVCamInitGStreamer();
    QTemporaryDir dir;
    LVDefaults defaults(dir.filePath("prefs.json"));
    defaults.setValue("frameRate", kRate);
    LVDefaults::setStandardUserDefaults(&defaults);
    LVCamGrabber::setDeviceProvider(std::make_unique<LVCamTestProvider>(
        std::vector<LVCamTestDeviceConfig>{{"bench:0", "Bench Cam", kCaps, "smpte"}}));
    const LVCamGrabber::Ref grabber = LVCamGrabber::deviceList().at(0);
    grabber->setForceResolution(QSize(kWidth, kHeight));
    grabber->start();
    // Warm up: the first pictures pay for pipeline and GL start-up.
    for (int i = 0; i < 30 && !grabber->last(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(33));

    const double period = 1e9 / kRate;
    std::shared_ptr<const LVCamPicture> previous = grabber->last();
    double ages = 0, maxAge = 0;
    int delivered = 0;
    double tick = nowNs();
    const double cpu0 = lvCpuSeconds();
    for (auto _ : state) {
        tick += period;
        std::this_thread::sleep_for(std::chrono::nanoseconds(int64_t(std::max(0.0, tick - nowNs()))));
        std::shared_ptr<const LVCamPicture> picture = grabber->last();
        if (picture && picture != previous) {
            const double age = nowNs() - double(picture->captureTimeNs());
            ages += age;
            maxAge = std::max(maxAge, age);
            ++delivered;
            previous = std::move(picture);
        }
    }
    const double cpu = (lvCpuSeconds() - cpu0) * 1e9;
    grabber->stop();
    previous.reset();
    LVCamGrabber::setDeviceProvider(nullptr);
    LVDefaults::setStandardUserDefaults(nullptr);

    const double producer = producerCpuNsPerFrame(int(state.iterations()));
    const double perFrame = delivered ? cpu / delivered : 0;
    state.counters["delivered"] = delivered;
    state.counters["cpu_ms_per_frame"] = perFrame / 1e6;
    state.counters["camera_cpu_ms_per_frame"] = producer / 1e6;
    state.counters["path_cpu_ms_per_frame"] = (perFrame - producer) / 1e6;
    state.counters["path_vs_memcpy"] = (perFrame - producer) / memcpyNs();
    state.counters["age_ms_mean"] = delivered ? ages / delivered / 1e6 : 0;
    state.counters["age_ms_max"] = maxAge / 1e6;
    state.counters["age_vs_period"] = delivered ? ages / delivered / period : 0;
}

} // namespace

BENCHMARK_CAPTURE(BM_Upload, YUY2, false)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_Upload, YUY2_and_convert, true)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CaptureToTexture)->Iterations(150)->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
