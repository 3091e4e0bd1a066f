// The studio's cost per frame at 1280x720: Program alone against Program with Preview
// rendered, and with a dissolve running as well, two setups of two effects each. The
// second setup alone on Program, less the frame's fixed cost, is the reference for what
// Preview should cost. With LP_NUM_THREADS=0 llvmpipe draws on the calling thread, so the
// CPU column is the whole rendering work, steadier than wall time on a busy machine.
// `bench_studio --cut-latency` measures instead how long a cut takes to reach the published
// frames with the render timer running.
#include "bench/support/LVBenchApp.h"
#include "app/LVKindRegistration.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "core/util/KDDelayedDispatcher.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"

#include <QGuiApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <QRandomGenerator>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

struct Studio {
    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;
    std::unique_ptr<LVSetupManager> manager;
    LVStudio* studio = nullptr;
    LVStudioButtonRef a, b;

    // timedRate: run the render timer at that rate; 0 leaves frames to the caller.
    bool start(int timedRate = 0, QSize size = QSize(1280, 720))
    {
        LVRegisterAllKinds();
        defaults = std::make_unique<LVDefaults>(dir.filePath("prefs.json"));
        LVLaunchOptions options;
        options.startTimer = timedRate > 0;
        if (timedRate > 0) options.frameRate = timedRate;
        options.videoSize = size;
        app = lvStartBenchApp(*defaults, QDir(dir.path()), options, "bench_studio", QStringLiteral(LV_BENCH_BUNDLED_EFFECTS));
        if (!app) return false;
        manager = std::make_unique<LVSetupManager>(*defaults, app->context(), dir.filePath("setups"));
        manager->startup();
        app->setSetupCatalog(manager.get());
        auto owned = std::make_unique<LVStudio>(*app, *manager);
        studio = owned.get();
        app->setStudio(std::move(owned));
        studio->startup();
        const auto chain = [this](const char* effect) {
            return std::vector<LVEffectRef>{app->instantiateNamedSource("Test Pattern"),
                                            app->instantiateNamedEffect(effect)};
        };
        manager->newSavedSetupWithName("A", chain("Colour Adjust"));
        manager->newSavedSetupWithName("B", chain("Mirror"));
        a = studio->buttonHavingName("A");
        b = studio->buttonHavingName("B");
        if (!a || !b || a->effects().size() != 2 || b->effects().size() != 2) {
            std::fprintf(stderr, "bench_studio: the setups could not be made\n");
            return false;
        }
        return true;
    }

    void stop()
    {
        // The buttons' effects need the render context to go.
        a.reset();
        b.reset();
        app->setStudio(nullptr);
        manager.reset();
        app.reset();
        defaults.reset();
    }

    // Everything idle, then the given buttons on air or into Preview.
    void arrange(LVStudioButton* onAir, LVStudioButton* inPreview, bool transition)
    {
        for (const auto& button : studio->studioButtons()) button->punchToOffAir();
        if (onAir) onAir->punchToAir();
        if (inPreview) inPreview->selectForAir();
        studio->setTransitionTime(1e9); // never ends during the run
        if (transition) studio->doDissolve();
        KDDelayedDispatcher::flush();
        for (int i = 0; i < 5; ++i) app->renderFrame();
    }
};

Studio* g_studio = nullptr;

void runFrames(benchmark::State& state)
{
    for (auto _ : state) g_studio->app->renderFrame();
}

// The frame's fixed cost: a cleared target read back and published.
void BM_NothingOnAir(benchmark::State& state)
{
    g_studio->arrange(nullptr, nullptr, false);
    runFrames(state);
}

void BM_ProgramAlone(benchmark::State& state)
{
    g_studio->arrange(g_studio->a.get(), nullptr, false);
    runFrames(state);
}

void BM_SecondSetupAlone(benchmark::State& state)
{
    g_studio->arrange(g_studio->b.get(), nullptr, false);
    runFrames(state);
}

void BM_ProgramAndPreview(benchmark::State& state)
{
    g_studio->arrange(g_studio->a.get(), g_studio->b.get(), false);
    runFrames(state);
}

void BM_ProgramPreviewAndDissolve(benchmark::State& state)
{
    g_studio->arrange(g_studio->a.get(), g_studio->b.get(), true);
    runFrames(state);
    if (!g_studio->studio->isTransitionRunning()) state.SkipWithError("the dissolve ended during the run");
}

double percentile(std::vector<double> samples, double fraction)
{
    std::sort(samples.begin(), samples.end());
    return samples[std::min(samples.size() - 1, size_t(fraction * double(samples.size() - 1) + 0.5))];
}

// From a cut to the end of the first frame that publishes the new Program, with the render
// timer running and the cut arriving at a random point of the frame period.
int measureCutLatency(QSize size, int kRate)
{
    constexpr int kCuts = 30;
    Studio s;
    if (!s.start(kRate, size)) return 1;
    s.studio->setSwapMode(true);
    s.a->punchToAir();
    s.b->selectForAir();
    std::vector<double> latencyMs;
    std::vector<double> frameMs;
    using Clock = std::chrono::steady_clock;
    Clock::time_point cutAt;
    Clock::time_point lastFrame = Clock::now();
    LVEffectRef expected;
    QRandomGenerator random(14);
    const auto cutLater = [&] {
        QTimer::singleShot(int(random.bounded(1000 / kRate)), [&] {
            LVStudioButton* incoming = s.a->state() == LVButtonPreview ? s.a.get() : s.b.get();
            expected = incoming->effects().front();
            cutAt = Clock::now();
            s.studio->doCut();
        });
    };
    QObject::connect(s.app.get(), &Lumaveil::frameRendered, [&](qint64 index) {
        const auto now = Clock::now();
        if (index > 5) frameMs.push_back(std::chrono::duration<double, std::milli>(now - lastFrame).count());
        lastFrame = now;
        if (index == 5) cutLater();
        if (!expected || s.app->liveEffects().empty() || s.app->liveEffects().front() != expected) return;
        latencyMs.push_back(std::chrono::duration<double, std::milli>(now - cutAt).count());
        expected.reset();
        if (int(latencyMs.size()) == kCuts) QCoreApplication::quit();
        else cutLater();
    });
    QCoreApplication::exec();
    std::printf("cut to published frame, %dx%d at %d fps (period %.1f ms, frame interval p50 %.1f ms): p50 %.1f ms, "
                "p99 %.1f ms, max %.1f ms over %d cuts\n",
                size.width(), size.height(), kRate, 1000.0 / kRate, percentile(frameMs, 0.5), percentile(latencyMs, 0.5),
                percentile(latencyMs, 0.99), percentile(latencyMs, 1.0), kCuts);
    s.stop();
    return 0;
}

} // namespace

BENCHMARK(BM_NothingOnAir)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_ProgramAlone)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_SecondSetupAlone)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_ProgramAndPreview)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_ProgramPreviewAndDissolve)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    // --cut-latency [WIDTHxHEIGHT [RATE]]: one size per process, the video size is process-wide.
    if (argc > 1 && std::strcmp(argv[1], "--cut-latency") == 0) {
        int width = 1280, height = 720, rate = 10;
        if (argc > 2 && std::sscanf(argv[2], "%dx%d", &width, &height) != 2) return 2;
        if (argc > 3) rate = std::atoi(argv[3]);
        if (width < 16 || height < 16 || rate < 1 || rate > 120) return 2;
        return measureCutLatency(QSize(width, height), rate);
    }
    ::benchmark::Initialize(&argc, argv);
    Studio studio;
    if (!studio.start()) return 1;
    g_studio = &studio;
    ::benchmark::RunSpecifiedBenchmarks();
    ::benchmark::Shutdown();
    studio.stop();
    return 0;
}
