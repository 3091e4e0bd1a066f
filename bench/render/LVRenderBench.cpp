// Per-frame costs of the output path, each next to a reference measured in the same run:
//   read-back + publish into shared memory   vs  memcpy of the same bytes (the floor)
//   BGRA -> YUYV with libyuv (lumaveil-vcam)  vs  ffmpeg's swscale doing the same conversion
#include "render/LVContext.h"
#include "render/LVShmemOutput.h"
#include "transport/LVShmem.h"
#include "sources/testpattern/TestPatternSource.h"
#include "tools/vcam/LVFrameConverter.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

const std::vector<std::pair<int, int>> kSizes = {{640, 480}, {1280, 720}, {1920, 1080}};

void sizeArgs(benchmark::internal::Benchmark* b)
{
    for (const auto& [w, h] : kSizes) b->Args({w, h});
}

void BM_Memcpy(benchmark::State& state)
{
    const size_t bytes = size_t(state.range(0)) * size_t(state.range(1)) * 4;
    std::vector<uint8_t> from(bytes, 0x5A), to(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
}
BENCHMARK(BM_Memcpy)->Apply(sizeArgs);

// The frame is drawn once; each iteration is the output path alone: the shared read-back, the
// copy into the mapped image block, header, swap.
void BM_ReadBackAndPublish(benchmark::State& state)
{
    const int w = int(state.range(0)), h = int(state.range(1));
    qputenv("LUMAVEIL_SHM_PREFIX", "lvbench.");
    QString error;
    auto ctx = LVContext::create(QSize(w, h), &error);
    if (!ctx) {
        state.SkipWithError(error.toStdString().c_str());
        return;
    }
    auto source = TestPatternSource::classDescriptor().make();
    source->initWithContext(ctx.get());
    LVShmem shmem(LVShmemRole::Producer);
    shmem.setAppRunning();
    ctx->reset(false);
    source->doit();
    LVFrameReadBack readBack;
    for (auto _ : state)
        LVShmemOutput::publish(shmem, *readBack.read(*ctx), 30);
    shmem.setAppNotRunning();
    state.SetBytesProcessed(int64_t(state.iterations()) * w * h * 4);
}
BENCHMARK(BM_ReadBackAndPublish)->Apply(sizeArgs)->Unit(benchmark::kMillisecond);

// The alternative read-back: into a pixel-buffer object, mapped, then copied into the block.
// It would let the read overlap the next frame on a GPU; kept here to show what it costs.
void BM_ReadBackThroughPBO(benchmark::State& state)
{
    const int w = int(state.range(0)), h = int(state.range(1));
    QString error;
    auto ctx = LVContext::create(QSize(w, h), &error);
    if (!ctx) {
        state.SkipWithError(error.toStdString().c_str());
        return;
    }
    auto source = TestPatternSource::classDescriptor().make();
    source->initWithContext(ctx.get());
    ctx->reset(false);
    source->doit();
    const size_t bytes = size_t(w) * h * 4;
    std::vector<uint8_t> block(bytes);
    GLuint pbo = 0;
    glGenBuffers(1, &pbo);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, pbo);
    glBufferData(GL_PIXEL_PACK_BUFFER, GLsizeiptr(bytes), nullptr, GL_STREAM_READ);
    for (auto _ : state) {
        // Rows turned over into top-first order, as the direct path reads them.
        ctx->framebuffer();
        if (ctx->packInvert()) {
            glPixelStorei(GL_PACK_INVERT_MESA, GL_TRUE);
            glReadPixels(0, 0, w, h, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8, nullptr);
            glPixelStorei(GL_PACK_INVERT_MESA, GL_FALSE);
        } else {
            for (int y = 0; y < h; ++y)
                glReadPixels(0, y, w, 1, GL_BGRA, GL_UNSIGNED_INT_8_8_8_8,
                             reinterpret_cast<void*>(size_t(h - 1 - y) * size_t(w) * 4));
        }
        const void* mapped = glMapBufferRange(GL_PIXEL_PACK_BUFFER, 0, GLsizeiptr(bytes), GL_MAP_READ_BIT);
        std::memcpy(block.data(), mapped, bytes);
        glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
        benchmark::DoNotOptimize(block.data());
    }
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    glDeleteBuffers(1, &pbo);
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
}
BENCHMARK(BM_ReadBackThroughPBO)->Apply(sizeArgs)->Unit(benchmark::kMillisecond);

void BM_RenderTestPatternOnly(benchmark::State& state)
{
    const int w = int(state.range(0)), h = int(state.range(1));
    QString error;
    auto ctx = LVContext::create(QSize(w, h), &error);
    if (!ctx) {
        state.SkipWithError(error.toStdString().c_str());
        return;
    }
    auto source = TestPatternSource::classDescriptor().make();
    source->initWithContext(ctx.get());
    source->setParameterValue(QStringLiteral("showCounter"), state.range(2) != 0);
    for (auto _ : state) {
        ctx->reset(false);
        source->doit();
        glFinish();
    }
}
// The third argument turns the frame counter on (1) or off (0), to show what the text costs.
BENCHMARK(BM_RenderTestPatternOnly)
    ->Args({1280, 720, 1})
    ->Args({1280, 720, 0})
    ->Args({1920, 1080, 1})
    ->Unit(benchmark::kMillisecond);

std::vector<uint8_t> testFrame(int w, int h)
{
    std::vector<uint8_t> argb(size_t(w) * h * 4);
    for (size_t i = 0; i < argb.size(); i += 4) {
        argb[i] = 0xFF;
        argb[i + 1] = uint8_t(i * 7);
        argb[i + 2] = uint8_t(i / 4096);
        argb[i + 3] = uint8_t(i * 13);
    }
    return argb;
}

void BM_LibyuvToYUYV(benchmark::State& state)
{
    const int w = int(state.range(0)), h = int(state.range(1));
    const auto frame = testFrame(w, h);
    LVFrameConverter converter(LVVcamLayout::packed(LVVcamFormat::YUYV, w, h));
    std::vector<uint8_t> out(converter.layout().frameBytes);
    for (auto _ : state) {
        converter.convert(frame.data(), w, h, out.data());
        benchmark::DoNotOptimize(out.data());
    }
}
BENCHMARK(BM_LibyuvToYUYV)->Apply(sizeArgs)->Unit(benchmark::kMillisecond);

// ffmpeg converting 60 BGRA frames to yuyv422, minus the same run with no conversion
// (bgra -> bgra), so process start, file reading and output cost cancel out.
double ffmpegSeconds(const QString& input, int w, int h, const char* pixFmt)
{
    QElapsedTimer timer;
    timer.start();
    QProcess ffmpeg;
    ffmpeg.start("ffmpeg", {"-loglevel", "error", "-threads", "1", "-f", "rawvideo", "-pix_fmt", "bgra", "-s",
                            QStringLiteral("%1x%2").arg(w).arg(h), "-i", input, "-sws_flags", "fast_bilinear",
                            "-pix_fmt", pixFmt, "-f", "null", "-"});
    ffmpeg.waitForFinished(-1);
    return ffmpeg.exitCode() == 0 ? timer.nsecsElapsed() / 1e9 : -1;
}

void BM_FfmpegSwscaleToYUYV(benchmark::State& state)
{
    const int w = int(state.range(0)), h = int(state.range(1));
    const int frames = 60;
    QTemporaryDir dir;
    const QString input = dir.filePath("frames.bgra");
    {
        QFile file(input);
        file.open(QIODevice::WriteOnly);
        const auto frame = testFrame(w, h);
        for (int i = 0; i < frames; ++i) file.write(reinterpret_cast<const char*>(frame.data()), qint64(frame.size()));
    }
    for (auto _ : state) {
        const double convert = ffmpegSeconds(input, w, h, "yuyv422");
        const double copy = ffmpegSeconds(input, w, h, "bgra");
        if (convert < 0 || copy < 0) {
            state.SkipWithError("ffmpeg failed");
            return;
        }
        state.SetIterationTime(std::max(0.0, convert - copy) / frames);
    }
}
BENCHMARK(BM_FfmpegSwscaleToYUYV)->Apply(sizeArgs)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    // The test pattern draws its counter with Qt's fonts.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
