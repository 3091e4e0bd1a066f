// What a Program picture for the web remote costs on its own thread: a published 1280x720 frame
// turned into the JPEG clients get, against copying that frame once (what the transport reader
// does anyway) as the reference measured in the same run.
#include "control/websocket/LVRemoteThumbnails.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;

// A frame with detail, so the JPEG encoder has real work (bars and a gradient).
std::vector<uint8_t> testFrame()
{
    std::vector<uint8_t> argb(size_t(kWidth) * kHeight * 4);
    for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
            uint8_t* p = &argb[(size_t(y) * kWidth + x) * 4];
            p[0] = 255;
            p[1] = uint8_t((x / 160) * 36);
            p[2] = uint8_t(y * 255 / kHeight);
            p[3] = uint8_t((x + y) & 255);
        }
    }
    return argb;
}

void BM_FrameCopy(benchmark::State& state)
{
    const std::vector<uint8_t> frame = testFrame();
    std::vector<uint8_t> copy(frame.size());
    for (auto _ : state) {
        std::memcpy(copy.data(), frame.data(), frame.size());
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(BM_FrameCopy)->Unit(benchmark::kMillisecond);

void BM_ProgramPicture(benchmark::State& state)
{
    const std::vector<uint8_t> frame = testFrame();
    size_t bytes = 0;
    for (auto _ : state) {
        const LVRemoteThumbnails::Picture picture =
            LVRemoteThumbnails::pictureOf(LVRemoteThumbnails::fromTransport(frame.data(), kWidth, kHeight));
        bytes = size_t(picture.jpeg.size());
        benchmark::DoNotOptimize(bytes);
    }
    state.counters["jpegBytes"] = double(bytes);
}
BENCHMARK(BM_ProgramPicture)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
