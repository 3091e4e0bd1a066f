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

// A frame with detail, so the JPEG encoder has real work: A,R,G,B bars and a gradient.
const std::vector<uint8_t>& testFrame()
{
    static const std::vector<uint8_t> argb = [] {
        std::vector<uint8_t> bytes(size_t(kWidth) * kHeight * 4);
        for (size_t i = 0; i < size_t(kWidth) * kHeight; ++i) {
            const size_t x = i % kWidth, y = i / kWidth;
            const uint8_t pixel[4] = {255, uint8_t((x / 160) * 36), uint8_t(y * 255 / kHeight), uint8_t((x + y) & 255)};
            std::memcpy(&bytes[i * 4], pixel, 4);
        }
        return bytes;
    }();
    return argb;
}

void BM_FrameCopy(benchmark::State& state)
{
    std::vector<uint8_t> copy(testFrame().size());
    for (auto _ : state) {
        std::memcpy(copy.data(), testFrame().data(), copy.size());
        benchmark::DoNotOptimize(copy.data());
    }
}
BENCHMARK(BM_FrameCopy)->Unit(benchmark::kMillisecond);

void BM_ProgramPicture(benchmark::State& state)
{
    size_t bytes = 0;
    for (auto _ : state) {
        bytes = size_t(LVRemoteThumbnails::pictureOf(LVRemoteThumbnails::fromTransport(testFrame().data(), kWidth, kHeight)).jpeg.size());
        benchmark::DoNotOptimize(bytes);
    }
    state.counters["jpegBytes"] = double(bytes);
}
BENCHMARK(BM_ProgramPicture)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
