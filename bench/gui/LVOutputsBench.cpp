// The end of the frame at 1280x720 with a test pattern: shared memory alone (the reference)
// against the main window's preview, the full-screen output and the second output all on.
// Each iteration is one frame and the paints it causes, all on the main thread. The counter
// "readbacks" is read-backs per frame. Run under the offscreen platform.
#include "bench/support/LVBenchApp.h"
#include "app/LVKindRegistration.h"
#include "gui/main/LVFullScreenOutput.h"
#include "gui/main/LVMainWindow.h"

#include <QApplication>

#include <benchmark/benchmark.h>

#include <cstring>
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

Lumaveil* g_app = nullptr;
LVMainWindow* g_window = nullptr;

void runFrames(benchmark::State& state, bool allOutputs)
{
    g_window->setVisible(allOutputs);
    g_app->setSyphonServerEnabled(allOutputs);
    g_window->doSelectScreen(allOutputs ? 0 : -1);
    QCoreApplication::processEvents();
    const uint64_t readBacksBefore = g_app->outputs().readBacks();
    for (auto _ : state) {
        g_app->renderFrame();
        // The paints the frame asked for.
        QCoreApplication::processEvents();
    }
    state.counters["readbacks"] =
        benchmark::Counter(double(g_app->outputs().readBacks() - readBacksBefore), benchmark::Counter::kAvgIterations);
}

} // namespace

BENCHMARK_CAPTURE(runFrames, SharedMemoryAlone, false)->Name("BM_SharedMemoryAlone")->Unit(benchmark::kMillisecond)->MinTime(3.0);
BENCHMARK_CAPTURE(runFrames, PreviewSharedMemoryFullScreenSecond, true)
    ->Name("BM_PreviewSharedMemoryFullScreenSecond")->Unit(benchmark::kMillisecond)->MinTime(3.0);
BENCHMARK_CAPTURE(runFrames, SharedMemoryAloneAgain, false)->Name("BM_SharedMemoryAlone/again")->Unit(benchmark::kMillisecond)->MinTime(3.0);

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    if (qEnvironmentVariableIsEmpty("LUMAVEIL_SHM_PREFIX")) qputenv("LUMAVEIL_SHM_PREFIX", "lvbench.");
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    LVRegisterAllKinds();
    LVBenchApp bench("bench_outputs", lvBenchOptions(false), QStringLiteral(LV_BENCH_BUNDLED_EFFECTS));
    Lumaveil* app = bench.app.get();
    if (!app->setNamedSource(QStringLiteral("Test Pattern"))) {
        std::fprintf(stderr, "bench_outputs: no Test Pattern source\n");
        return 1;
    }
    LVMainWindow window(*app);
    window.resize(1000, 600);
    window.show();
    app->setSecondOutputMaker([] { return std::make_unique<CopyingSecondOutput>(); });
    g_app = app;
    g_window = &window;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
