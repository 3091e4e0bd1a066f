// Whole frames at 1280x720 as the render loop draws them: the test pattern, the chain, one
// read-back and the publish into shared memory. Beside them, in the same run:
//   floor       a fresh target read back and published, nothing drawn
//   ffmpeg      a generator and three negate filters to BGRA, against ours with three
//               inverting compositions (x_ffmpeg = ffmpeg ms / ours, above 1 is faster)
// Every effect runs with settings that change the picture. The build machine is shared, so
// besides wall-clock medians the counters give CPU time per frame over every thread of the
// process (the rasteriser's included), and ffmpeg's CPU time likewise.
#include "core/LVEffectRegistry.h"
#include "effects/composition/LVQCEffect.h"
#include "effects/composition/SimpleQCRenderer.h"
#include "effects/registration/LVEffectKinds.h"
#include "render/LVContext.h"
#include "render/LVOutputDriver.h"
#include "render/LVShmemOutput.h"
#include "sources/testpattern/TestPatternSource.h"
#include "transport/LVShmem.h"

#include <benchmark/benchmark.h>

#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QProcess>
#include <QTemporaryDir>
#include <QVariantList>

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <optional>
#include <vector>

namespace {

constexpr int W = 1280;
constexpr int H = 720;

struct FfmpegCost {
    double wallMs = 0;
    double cpuMs = 0;
};

struct Setup {
    std::unique_ptr<LVContext> ctx;
    std::unique_ptr<LVEffectRegistry> registry;
    std::unique_ptr<LVShmem> shmem;
    std::unique_ptr<LVShmemOutput> camera; // the only CPU output, as in a plain live loop
    LVFrameReadBack readBack;
    QTemporaryDir dir;
    std::optional<FfmpegCost> ffmpeg;
};

Setup& setup()
{
    static Setup s;
    return s;
}

double processCpuMs()
{
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) * 1e3 + double(t.tv_nsec) / 1e6;
}

double childrenCpuMs()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    auto ms = [](const timeval& t) { return double(t.tv_sec) * 1e3 + double(t.tv_usec) / 1e3; };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

double median(std::vector<double> samples)
{
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    return samples[samples.size() / 2];
}

// Non-default settings for each effect the chain uses.
const std::vector<std::pair<QString, std::vector<std::pair<QString, QVariant>>>>& settings()
{
    static const std::vector<std::pair<QString, std::vector<std::pair<QString, QVariant>>>> list = {
        {"Colour Adjust", {{"brightness", 0.05}, {"contrast", 1.1}, {"saturation", 1.3}, {"gamma", 1.1}}},
        {"Sharpen", {{"amount", 1.2}}},
        {"Chroma Key", {{"similarity", 0.3}, {"smoothness", 0.1}}},
        {"Crop and Zoom", {{"zoom", 1.25}, {"cropLeft", 0.05}, {"cropRight", 0.05}}},
        {"Ticker", {{"Message", QStringLiteral("Lumaveil: five filters at 720p")}, {"speed", 0.2}}},
        {"Mirror", {{"mode", 0}}},
        {"Negate", {}},
    };
    return list;
}

LVEffectRef makeEffect(const QString& name)
{
    LVEffectRef effect = name == QLatin1String("Test Pattern") ? LVEffectRef(TestPatternSource::classDescriptor().make())
                                                                : setup().registry->instantiateNamedEffect(name, setup().ctx.get());
    if (!effect) return nullptr;
    if (name == QLatin1String("Test Pattern")) effect->initWithContext(setup().ctx.get());
    for (const auto& [effectName, values] : settings())
        if (effectName == name)
            for (const auto& [key, value] : values) effect->setParameterValue(key, value);
    effect->setMode(LVModeLive);
    return effect;
}

// The frame pool ages idle targets by this clock, one frame period a frame: an instrumented
// run takes seconds a frame, and the pool would otherwise free and remake targets each frame.
std::chrono::steady_clock::time_point poolTime;

// One frame as the render loop draws it; an empty chain is the floor.
void renderFrame(const std::vector<LVEffectRef>& chain, double time)
{
    poolTime += std::chrono::microseconds(33333);
    LVContext& ctx = *setup().ctx;
    ctx.setFrameTime(time);
    ctx.reset(false, LVChainOverwritesFrame(chain));
    {
        const LVChainAreas areas(chain, QSize(ctx.width(), ctx.height()));
        for (const auto& effect : chain) effect->preDoit();
        for (const auto& effect : chain) {
            effect->doit();
            ctx.flush();
        }
    }
    LVOutputFrame frame(ctx, setup().readBack);
    setup().camera->drawFrame(frame);
}

// The measured frames only, after the warm-up ones: instruction counters
// (valgrind --tool=callgrind --toggle-collect='*measuredFrame*') count these alone.
[[gnu::noinline]] void measuredFrame(const std::vector<LVEffectRef>& chain, double time)
{
    renderFrame(chain, time);
    // Not a tail jump, which the counters would not see as this function's own.
    benchmark::ClobberMemory();
}

// ffmpeg's time per frame: a generator, three negate filters, BGRA out; two run lengths so
// process start cancels out.
FfmpegCost ffmpegPerFrame()
{
    auto run = [](int frames) {
        QElapsedTimer timer;
        timer.start();
        const double cpuBefore = childrenCpuMs();
        QProcess ffmpeg;
        ffmpeg.start(QStringLiteral("ffmpeg"),
                     {"-hide_banner", "-loglevel", "error", "-f", "lavfi", "-i",
                      QStringLiteral("testsrc2=size=%1x%2:rate=30").arg(W).arg(H), "-vf", "negate,negate,negate",
                      "-frames:v", QString::number(frames), "-pix_fmt", "bgra", "-f", "rawvideo", "-y", "/dev/null"});
        ffmpeg.waitForFinished(-1);
        if (ffmpeg.exitCode() != 0) return FfmpegCost{-1, -1};
        return FfmpegCost{double(timer.nsecsElapsed()) / 1e6, childrenCpuMs() - cpuBefore};
    };
    const FfmpegCost shortRun = run(30);
    const FfmpegCost longRun = run(180);
    if (shortRun.wallMs < 0 || longRun.wallMs < 0) return {};
    return {(longRun.wallMs - shortRun.wallMs) / 150.0, (longRun.cpuMs - shortRun.cpuMs) / 150.0};
}

bool init()
{
    Setup& s = setup();
    QString error;
    s.ctx = LVContext::create(QSize(W, H), &error);
    if (!s.ctx) {
        std::fprintf(stderr, "LVContext::create: %s\n", qPrintable(error));
        return false;
    }
    // The inverting filter ffmpeg's negate is compared with.
    QFile negate(s.dir.filePath(QStringLiteral("Negate.fs")));
    if (!negate.open(QIODevice::WriteOnly)) return false;
    negate.write("/*{\"INPUTS\": [{\"NAME\": \"inputImage\", \"TYPE\": \"image\"}]}*/\n"
                 "void main() { vec4 c = IMG_THIS_PIXEL(inputImage); gl_FragColor = vec4(1.0 - c.rgb, c.a); }\n");
    negate.close();
    LVRegisterEffectKinds();
    LVEffectFolders folders;
    folders.bundled = QStringLiteral(LV_BENCH_BUNDLED_EFFECTS);
    folders.user = s.dir.path();
    s.registry = std::make_unique<LVEffectRegistry>(folders);
    s.registry->findEffects();
    LVSetFramePoolClock([] { return poolTime; });
    qputenv("LUMAVEIL_SHM_PREFIX", "lvbench.chain.");
    s.shmem = std::make_unique<LVShmem>(LVShmemRole::Producer);
    s.shmem->setAppRunning();
    s.camera = std::make_unique<LVShmemOutput>(*s.shmem, [] { return true; }, [] { return 30; });
    return true;
}

void runChain(benchmark::State& state, const QStringList& names, bool withFfmpeg)
{
    std::vector<LVEffectRef> chain;
    for (const QString& name : names) {
        chain.push_back(makeEffect(name));
        if (!chain.back()) {
            state.SkipWithError("effect missing");
            return;
        }
    }
    double time = 0;
    // The first frames compile the programs (the variants for settings held still follow
    // kLVSteadyFrames later); three more make the pool's targets and both shared-memory
    // blocks, so the measured frames are steady ones.
    for (int warmUp = 0; warmUp < kLVSteadyFrames + 3; ++warmUp) renderFrame(chain, time += 1.0 / 30);
    std::vector<double> frameMs, cpuMs;
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        const double cpuStart = processCpuMs();
        measuredFrame(chain, time += 1.0 / 30);
        cpuMs.push_back(processCpuMs() - cpuStart);
        frameMs.push_back(double(timer.nsecsElapsed()) / 1e6);
    }
    if (frameMs.empty()) return;
    state.counters["p50_ms"] = median(frameMs);
    state.counters["max_ms"] = *std::max_element(frameMs.begin(), frameMs.end());
    state.counters["cpu_ms"] = median(cpuMs);
    if (!withFfmpeg) return;
    if (!setup().ffmpeg) setup().ffmpeg = ffmpegPerFrame();
    state.counters["ffmpeg_ms"] = setup().ffmpeg->wallMs;
    state.counters["ffmpeg_cpu_ms"] = setup().ffmpeg->cpuMs;
    if (setup().ffmpeg->wallMs > 0) state.counters["x_ffmpeg"] = setup().ffmpeg->wallMs / median(frameMs);
    if (setup().ffmpeg->cpuMs > 0) state.counters["x_ffmpeg_cpu"] = setup().ffmpeg->cpuMs / median(cpuMs);
}

void registerAll()
{
    auto add = [](const std::string& name, QStringList chain, bool withFfmpeg) {
        benchmark::RegisterBenchmark(("BM_Frame/" + name).c_str(),
                                     [chain, withFfmpeg](benchmark::State& state) { runChain(state, chain, withFfmpeg); })
            ->Unit(benchmark::kMillisecond)
            ->MinTime(1.5)
            ->UseRealTime();
    };
    add("Floor", {}, false);
    add("TestPattern", {"Test Pattern"}, false);
    for (const char* effect : {"Colour Adjust", "Sharpen", "Chroma Key", "Crop and Zoom", "Ticker", "Mirror", "Clock", "Border"})
        add(std::string("TestPattern+") + effect, {"Test Pattern", effect}, false);
    add("Chain5", {"Test Pattern", "Colour Adjust", "Sharpen", "Chroma Key", "Crop and Zoom", "Ticker"}, false);
    add("Negate3", {"Test Pattern", "Negate", "Negate", "Negate"}, true);
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    ::benchmark::Initialize(&argc, argv);
    if (!init()) return 1;
    registerAll();
    ::benchmark::RunSpecifiedBenchmarks();
    ::benchmark::Shutdown();
    Setup& s = setup();
    s.shmem->setAppNotRunning();
    s.shmem->removeSegments();
    // GL objects go while the context and the application are still there.
    s.registry.reset();
    s.ctx.reset();
    return 0;
}
