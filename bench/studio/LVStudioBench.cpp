// The studio's cost per frame at 1280x720: Program alone against Program with Preview
// rendered, and with a dissolve running as well, two setups of two effects each. The
// second setup alone on Program, less the frame's fixed cost, is the reference for what
// Preview should cost. With LP_NUM_THREADS=0 llvmpipe draws on the calling thread, so the
// CPU column is the whole rendering work, steadier than wall time on a busy machine.
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

#include <cstdio>
#include <memory>

namespace {

struct Studio {
    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;
    std::unique_ptr<LVSetupManager> manager;
    LVStudio* studio = nullptr;
    LVStudioButtonRef a, b;

    bool start()
    {
        LVRegisterAllKinds();
        defaults = std::make_unique<LVDefaults>(dir.filePath("prefs.json"));
        LVLaunchOptions options;
        options.startTimer = false;
        options.videoSize = QSize(1280, 720);
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
    ::benchmark::Initialize(&argc, argv);
    Studio studio;
    if (!studio.start()) return 1;
    g_studio = &studio;
    ::benchmark::RunSpecifiedBenchmarks();
    ::benchmark::Shutdown();
    studio.stop();
    return 0;
}
