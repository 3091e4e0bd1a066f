// Desktop capture of a whole 1920x1080 display on an X server started here: the read plus the
// texture upload of one frame next to a plain memcpy of the same bytes, the reads an idle screen
// costs, and the grabber thread's CPU while the screen changes at 30 fps. All in the same run.
#include "../../tests/sources/desktop/LVXvfb.h"

#include "render/LVContext.h"
#include "sources/desktop/LVDesktopDrawer.h"
#include "sources/desktop/LVDesktopGrabber.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <thread>
#include <vector>

namespace {

using namespace std::chrono_literals;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;

double cpuSeconds(clockid_t clock)
{
    timespec ts{};
    clock_gettime(clock, &ts);
    return double(ts.tv_sec) + double(ts.tv_nsec) / 1e9;
}

// User plus system time of another process, from /proc.
double serverCpuSeconds(pid_t pid)
{
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(stat, line);
    std::istringstream fields(line.substr(line.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    // Fields 14 and 15 (utime, stime); the first after the name is field 3.
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i >= 14) ticks += std::stod(field);
    }
    return ticks / double(sysconf(_SC_CLK_TCK));
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

// Each iteration makes a change, waits for the grabber to read it and uploads the picture on
// the render thread; the upload's share goes into "upload_ms".
template <class Change>
void captureAndUpload(benchmark::State& state, Change change)
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
    double uploadSeconds = 0;
    for (int frame = 1; auto _ : state) {
        const uint64_t reads = grabber.readCount();
        change(frame++);
        grabber.waitFor([&] { return grabber.readCount() > reads; }, 5s);
        const auto t0 = std::chrono::steady_clock::now();
        drawer.update(grabber.last());
        glFinish();
        uploadSeconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
    grabber.stop();
    drawer.release(s.ctx.get());
    state.counters["upload_ms"] = benchmark::Counter(uploadSeconds * 1e3 / double(state.iterations()));
}

// One refresh: the grabber reads the whole display through shared memory, then the render
// thread uploads it.
void BM_CaptureAndUpload(benchmark::State& state)
{
    captureAndUpload(state, [](int) { setup().grabber->refresh(); });
    state.SetBytesProcessed(int64_t(state.iterations()) * kWidth * kHeight * 4);
}

// A 64x64 change inside the whole-display rectangle: the read is still whole, the upload only
// the change.
void BM_SmallChangeCaptureAndUpload(benchmark::State& state)
{
    captureAndUpload(state, [](int frame) {
        setup().client->fill(setup().window, QRect(100 + (frame % 16) * 64, 300, 64, 64), uint32_t(0x0A0B0C * (frame % 20)));
    });
}

// A still screen with the grabber running: reads per second (aim 0) and the process's CPU.
void BM_IdleScreen(benchmark::State& state)
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
    grabber.waitFor([&] { return grabber.readCount() > before; }, 5s);
    for (auto _ : state) {
        const uint64_t reads = grabber.readCount();
        const double cpu0 = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID), server0 = serverCpuSeconds(s.server.pid());
        std::this_thread::sleep_for(2s);
        state.counters["reads_per_s"] = double(grabber.readCount() - reads) / 2.0;
        state.counters["cpu_percent"] = (cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - cpu0) / 2.0 * 100.0;
        state.counters["xserver_cpu_percent"] = (serverCpuSeconds(s.server.pid()) - server0) / 2.0 * 100.0;
    }
    grabber.stop();
}

// The screen changes 30 times a second inside the rectangle: the grabber thread's CPU (the
// process's CPU minus this thread's own drawing requests).
void BM_ChangingScreenAt30fps(benchmark::State& state)
{
    Setup& s = setup();
    if (!s.grabber) {
        state.SkipWithError("no X server");
        return;
    }
    LVDesktopGrabber& grabber = *s.grabber;
    grabber.setMinimumFrameTime(33ms);
    grabber.start();
    for (auto _ : state) {
        const uint64_t reads = grabber.readCount();
        const double process0 = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID), own0 = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
        const double server0 = serverCpuSeconds(s.server.pid());
        auto next = std::chrono::steady_clock::now();
        for (int frame = 0; frame < 60; ++frame) {
            s.client->fill(s.window, QRect(frame * 10, 500, 10, 10), uint32_t(0x010101 * frame));
            next += 33ms;
            std::this_thread::sleep_until(next);
        }
        const double seconds = 60 * 0.033;
        const double grabberCpu = (cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - process0) - (cpuSeconds(CLOCK_THREAD_CPUTIME_ID) - own0);
        state.counters["reads_per_s"] = double(grabber.readCount() - reads) / seconds;
        state.counters["grabber_cpu_percent"] = grabberCpu / seconds * 100.0;
        // The shared-memory copy itself is done by the X server.
        state.counters["xserver_cpu_percent"] = (serverCpuSeconds(s.server.pid()) - server0) / seconds * 100.0;
    }
    grabber.stop();
}

} // namespace

BENCHMARK(BM_FrameMemcpy)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CaptureAndUpload)->Iterations(60)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_SmallChangeCaptureAndUpload)->Iterations(60)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IdleScreen)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ChangingScreenAt30fps)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
