// Desktop capture of a whole 1920x1080 display on an X server started here: the read plus the
// texture upload of one frame next to a plain memcpy of the same bytes, the reads an idle screen
// costs, and the grabber thread's CPU while the screen changes at 30 fps. All in the same run.
#include "../../tests/sources/desktop/LVXvfb.h"
#include "bench/support/LVBenchFigures.h"
#include "render/LVContext.h"
#include "sources/desktop/LVDesktopDrawer.h"
#include "sources/desktop/LVDesktopGrabber.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <fstream>
#include <string>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

// User plus system time of another process, from /proc.
double serverCpuSeconds(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t nameEnd = line.rfind(')');
    if (nameEnd == std::string::npos) return 0;
    unsigned long utime = 0, stime = 0;
    // Fields 14 and 15; the first after the name's closing parenthesis is field 3.
    std::sscanf(line.c_str() + nameEnd + 2, "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &utime, &stime);
    return double(utime + stime) / double(sysconf(_SC_CLK_TCK));
}

struct Setup {
    Setup() : server(kWidth, kHeight)
    {
        server.makeCurrent();
        client = std::make_unique<LVXClient>(server.name());
        window = client->createWindow(QRect(0, 0, kWidth, kHeight), "Bench", "Bench");
        client->fill(window, QRect(0, 0, kWidth, kHeight), 0x336699);
        const auto list = LVDesktopScreenList(nullptr);
        QString error;
        if (!list.empty()) grabber = LVDesktopGrabber::create(list.front(), &error);
        ctx = LVContext::create(QSize(kWidth, kHeight), &error);
    }
    LVXvfb server;
    std::unique_ptr<LVXClient> client;
    unsigned long window = 0;
    std::unique_ptr<LVDesktopGrabber> grabber;
    std::unique_ptr<LVContext> ctx;
};

Setup& setup()
{
    static Setup s;
    return s;
}

void BM_FrameMemcpy(benchmark::State& state)
{
    std::vector<uint8_t> from(size_t(kWidth) * kHeight * 4, 7), to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(from.size()));
}

// Each iteration makes a change (the whole display refreshed, or a 64x64 square inside it:
// the read is still whole, the upload only the change), waits for the grabber to read it and
// uploads the picture on the render thread; the upload's share goes into "upload_ms".
void BM_CaptureAndUpload(benchmark::State& state, bool whole)
{
    Setup& s = setup();
    if (!s.grabber || !s.ctx) {
        state.SkipWithError("no X server or no GL");
        return;
    }
    LVDesktopGrabber& grabber = *s.grabber;
    grabber.setMinimumFrameTime(0ns);
    grabber.start();
    LVDesktopDrawer drawer;
    s.ctx->makeCurrent();
    grabber.waitFor([&] { return grabber.last() != nullptr; }, 5s);
    drawer.update(grabber.last());
    double uploadMs = 0;
    for (int frame = 1; auto _ : state) {
        const uint64_t reads = grabber.readCount();
        if (whole) grabber.refresh();
        else s.client->fill(s.window, QRect(100 + (frame % 16) * 64, 300, 64, 64), uint32_t(0x0A0B0C * (frame % 20)));
        ++frame;
        grabber.waitFor([&] { return grabber.readCount() > reads; }, 5s);
        const auto t0 = LVBenchClock::now();
        drawer.update(grabber.last());
        glFinish();
        uploadMs += lvMsSince(t0);
    }
    grabber.stop();
    drawer.release(s.ctx.get());
    state.counters["upload_ms"] = benchmark::Counter(uploadMs / double(state.iterations()));
    if (whole) state.SetBytesProcessed(int64_t(state.iterations()) * kWidth * kHeight * 4);
}

// The grabber running at most 30 times a second for about 2 s, the screen still or changing
// 30 times a second inside the rectangle: reads per second (aim 0 when still), the process's
// CPU when still, the grabber's when changing (the process's minus this thread's own drawing
// requests), and the X server's, which does the shared-memory copy itself.
void BM_Screen(benchmark::State& state, bool changing)
{
    Setup& s = setup();
    if (!s.grabber) {
        state.SkipWithError("no X server");
        return;
    }
    LVDesktopGrabber& grabber = *s.grabber;
    grabber.setMinimumFrameTime(33ms);
    // Starting reads once; the idle time is measured after that read.
    const uint64_t before = grabber.readCount();
    grabber.start();
    if (!changing) grabber.waitFor([&] { return grabber.readCount() > before; }, 5s);
    for (auto _ : state) {
        const uint64_t reads = grabber.readCount();
        const double process0 = lvCpuSeconds(), own0 = lvCpuSeconds(CLOCK_THREAD_CPUTIME_ID);
        const double server0 = serverCpuSeconds(s.server.pid());
        const auto start = LVBenchClock::now();
        for (int frame = 0; frame < 60; ++frame) {
            if (changing) s.client->fill(s.window, QRect(frame * 10, 500, 10, 10), uint32_t(0x010101 * frame));
            std::this_thread::sleep_until(start + frame * 33ms + 33ms);
        }
        const double seconds = 60 * 0.033;
        const double processCpu = lvCpuSeconds() - process0;
        state.counters["reads_per_s"] = double(grabber.readCount() - reads) / seconds;
        if (!changing) state.counters["cpu_percent"] = processCpu / seconds * 100.0;
        const double grabberCpu = processCpu - (lvCpuSeconds(CLOCK_THREAD_CPUTIME_ID) - own0);
        if (changing) state.counters["grabber_cpu_percent"] = grabberCpu / seconds * 100.0;
        state.counters["xserver_cpu_percent"] = (serverCpuSeconds(s.server.pid()) - server0) / seconds * 100.0;
    }
    grabber.stop();
}

} // namespace

BENCHMARK(BM_FrameMemcpy)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_CaptureAndUpload, whole, true)->Name("BM_CaptureAndUpload")->Iterations(60)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CaptureAndUpload, small, false)->Name("BM_SmallChangeCaptureAndUpload")->Iterations(60)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Screen, idle, false)->Name("BM_IdleScreen")->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Screen, changing, true)->Name("BM_ChangingScreenAt30fps")->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
