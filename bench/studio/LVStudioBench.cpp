// The studio's cost per frame at 1280x720: Program alone against Program with Preview
// rendered, and with a dissolve running as well, two setups of two effects each. The
// second setup alone on Program, less the frame's fixed cost, is the reference for what
// Preview should cost. With LP_NUM_THREADS=0 llvmpipe draws on the calling thread, so the
// CPU column is the whole rendering work, steadier than wall time on a busy machine.
#include "bench/support/LVBenchStudio.h"
#include "app/LVKindRegistration.h"
#include "core/util/KDDelayedDispatcher.h"

#include <QGuiApplication>

#include <benchmark/benchmark.h>

namespace {

LVBenchStudio* g_rig = nullptr;
LVStudioButtonRef g_a, g_b;

// Everything idle, then setup A on air (nothing on air leaves the frame's fixed cost: a cleared
// target read back and published), B on air instead, or A with B in Preview.
enum class Show { NothingOnAir, ProgramAlone, SecondSetupAlone, ProgramAndPreview, ProgramPreviewAndDissolve };

void runFrames(benchmark::State& state, Show show)
{
    for (const auto& button : g_rig->studio->studioButtons()) button->punchToOffAir();
    if (show == Show::SecondSetupAlone) g_b->punchToAir();
    else if (show != Show::NothingOnAir) g_a->punchToAir();
    if (show >= Show::ProgramAndPreview) g_b->selectForAir();
    g_rig->studio->setTransitionTime(1e9); // never ends during the run
    if (show == Show::ProgramPreviewAndDissolve) g_rig->studio->doDissolve();
    KDDelayedDispatcher::flush();
    for (int i = 0; i < 5; ++i) g_rig->app->renderFrame();
    for (auto _ : state) g_rig->app->renderFrame();
    if (show == Show::ProgramPreviewAndDissolve && !g_rig->studio->isTransitionRunning()) {
        state.SkipWithError("the dissolve ended during the run");
    }
}

} // namespace

#define LV_STUDIO_BENCH(show) \
    BENCHMARK_CAPTURE(runFrames, show, Show::show)->Name("BM_" #show)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime()
LV_STUDIO_BENCH(NothingOnAir);
LV_STUDIO_BENCH(ProgramAlone);
LV_STUDIO_BENCH(SecondSetupAlone);
LV_STUDIO_BENCH(ProgramAndPreview);
LV_STUDIO_BENCH(ProgramPreviewAndDissolve);

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    ::benchmark::Initialize(&argc, argv);
    LVRegisterAllKinds();
    LVBenchStudio rig("bench_studio", lvBenchOptions(false), QStringLiteral(LV_BENCH_BUNDLED_EFFECTS));
    g_rig = &rig;
    g_a = rig.addNamedSetup("A", true, {"Colour Adjust"});
    g_b = rig.addNamedSetup("B", true, {"Mirror"});
    ::benchmark::RunSpecifiedBenchmarks();
    ::benchmark::Shutdown();
    // The buttons' effects need the render context to go.
    g_a.reset();
    g_b.reset();
    return 0;
}
