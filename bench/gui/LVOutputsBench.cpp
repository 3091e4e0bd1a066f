// The end of the frame at 1280x720 with a test pattern: shared memory alone (the reference)
// against the main window's preview, the full-screen output and the second output all on.
// Each iteration is one frame and the paints it causes, all on the main thread. The counter
// "readbacks" is read-backs per frame. Run under the offscreen platform.
#include "bench/support/LVBenchApp.h"
#include "app/LVKindRegistration.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "gui/main/LVFullScreenOutput.h"
#include "gui/main/LVMainWindow.h"

#include <QApplication>
#include <QScreen>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace {

// Another program taking the frame: touches every row, as a copy out would.
class CopyingSecondOutput : public LVSecondOutput {
public:
    void pushFrame(const unsigned char* bgra, int width, int height, int stride) override
    {
        copy_.resize(size_t(width) * size_t(height) * 4);
        for (int y = 0; y < height; ++y)
            std::memcpy(copy_.data() + size_t(y) * size_t(width) * 4, bgra + size_t(y) * size_t(stride), size_t(width) * 4);
    }

private:
    std::vector<unsigned char> copy_;
};

struct Bench {
    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;
    std::unique_ptr<LVMainWindow> window;

    bool start()
    {
        LVRegisterAllKinds();
        defaults = std::make_unique<LVDefaults>(dir.filePath("prefs.json"));
        LVLaunchOptions options;
        options.startTimer = false;
        options.frameRate = 30;
        options.videoSize = QSize(1280, 720);
        app = lvStartBenchApp(*defaults, QDir(dir.path()), options, "bench_outputs", QStringLiteral(LV_BENCH_BUNDLED_EFFECTS));
        if (!app) return false;
        if (!app->setNamedSource(QStringLiteral("Test Pattern"))) {
            std::fprintf(stderr, "bench_outputs: no Test Pattern source\n");
            return false;
        }
        window = std::make_unique<LVMainWindow>(*app);
        window->resize(1000, 600);
        window->show();
        app->setSecondOutputMaker([] { return std::make_unique<CopyingSecondOutput>(); });
        return true;
    }

    void allOutputs(bool on)
    {
        window->setVisible(on);
        app->setSyphonServerEnabled(on);
        window->doSelectScreen(on ? 0 : -1);
        QCoreApplication::processEvents();
    }
};

Bench* g_bench = nullptr;

void runFrames(benchmark::State& state)
{
    const uint64_t readBacksBefore = g_bench->app->outputs().readBacks();
    for (auto _ : state) {
        g_bench->app->renderFrame();
        // The paints the frame asked for.
        QCoreApplication::processEvents();
    }
    state.counters["readbacks"] = benchmark::Counter(
        double(g_bench->app->outputs().readBacks() - readBacksBefore), benchmark::Counter::kAvgIterations);
}

void BM_SharedMemoryAlone(benchmark::State& state)
{
    g_bench->allOutputs(false);
    runFrames(state);
}

void BM_PreviewSharedMemoryFullScreenSecond(benchmark::State& state)
{
    g_bench->allOutputs(true);
    runFrames(state);
}

BENCHMARK(BM_SharedMemoryAlone)->Unit(benchmark::kMillisecond)->MinTime(3.0);
BENCHMARK(BM_PreviewSharedMemoryFullScreenSecond)->Unit(benchmark::kMillisecond)->MinTime(3.0);
BENCHMARK(BM_SharedMemoryAlone)->Name("BM_SharedMemoryAlone/again")->Unit(benchmark::kMillisecond)->MinTime(3.0);

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("LUMAVEIL_SHM_PREFIX")) qputenv("LUMAVEIL_SHM_PREFIX", "lvbench.");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    Bench bench;
    if (!bench.start()) return 1;
    g_bench = &bench;
    benchmark::RunSpecifiedBenchmarks();
    g_bench = nullptr;
    benchmark::Shutdown();
    return 0;
}
