// Frame time of the bundled filters at 1280x720 on the render context, against ffmpeg
// filter graphs doing comparable work on the same picture, measured in the same run.
// Counter "x_ffmpeg" is ffmpeg's time per frame over ours: above 1 means we are faster.
#include "core/LVEffectRegistry.h"
#include "effects/composition/LVQCEffect.h"
#include "effects/registration/LVEffectKinds.h"
#include "render/LVContext.h"

#include <benchmark/benchmark.h>

#include <QElapsedTimer>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>

#include <map>
#include <memory>
#include <vector>

namespace {

constexpr int W = 1280;
constexpr int H = 720;

struct Setup {
    std::unique_ptr<LVContext> ctx;
    std::unique_ptr<LVEffectRegistry> registry;
    GLuint picture = 0;
    QTemporaryDir dir;
    QString rawFrame;
    std::map<QString, double> ffmpegMs;  // graph -> ms per frame
};

Setup& setup()
{
    static Setup s;
    return s;
}

QImage testPicture()
{
    QImage img(W, H, QImage::Format_ARGB32);
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
            const bool key = x > W / 2 && y > H / 3;
            img.setPixel(x, y, key ? qRgb(20, 230, 40) : qRgb((x * 255) / W, (y * 255) / H, ((x ^ y) & 255)));
        }
    return img;
}

// ffmpeg's time per frame for a graph over the same picture: two runs of different
// lengths, so process start and input parsing cancel out.
double ffmpegMsPerFrame(const QString& graph)
{
    auto run = [&](int frames) {
        QElapsedTimer timer;
        timer.start();
        QProcess ffmpeg;
        ffmpeg.start(QStringLiteral("ffmpeg"),
                     {"-hide_banner", "-loglevel", "error", "-stream_loop", "-1", "-f", "rawvideo", "-pix_fmt", "rgba",
                      "-s", QStringLiteral("%1x%2").arg(W).arg(H), "-i", setup().rawFrame, "-vf", graph, "-frames:v",
                      QString::number(frames), "-pix_fmt", "rgba", "-f", "rawvideo", "-y", "/dev/null"});
        ffmpeg.waitForFinished(-1);
        if (ffmpeg.exitCode() != 0) {
            std::fprintf(stderr, "ffmpeg %s: %s\n", qPrintable(graph), ffmpeg.readAllStandardError().constData());
            return -1.0;
        }
        return double(timer.nsecsElapsed()) / 1e6;
    };
    const double shortRun = run(20);
    const double longRun = run(120);
    return shortRun < 0 || longRun < 0 ? 0 : (longRun - shortRun) / 100.0;
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
    LVRegisterEffectKinds();
    LVEffectFolders folders;
    folders.bundled = QStringLiteral(LV_BENCH_BUNDLED_EFFECTS);
    s.registry = std::make_unique<LVEffectRegistry>(folders);
    s.registry->findEffects();
    const QImage picture = testPicture();
    s.picture = s.ctx->textureFromImage(picture);
    s.rawFrame = s.dir.filePath(QStringLiteral("frame.rgba"));
    QFile raw(s.rawFrame);
    if (!raw.open(QIODevice::WriteOnly)) return false;
    const QImage rgba = picture.convertToFormat(QImage::Format_RGBA8888);
    raw.write(reinterpret_cast<const char*>(rgba.constBits()), rgba.sizeInBytes());
    return true;
}

// What ffmpeg runs for each of ours.
const std::map<QString, QString>& ffmpegGraphs()
{
    static const std::map<QString, QString> graphs = {
        {"Colour Adjust", "eq=brightness=0.05:contrast=1.1:saturation=1.3:gamma=1.1"},
        {"Blur", "boxblur=8:1"},
        {"Chroma Key", "chromakey=0x00FF00:0.3:0.08"},
        {"Vignette", "vignette"},
        {"Lower Third", "drawbox=x=60:y=560:w=420:h=110:color=navy@0.85:t=fill,"
                        "drawtext=fontfile=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf:text='Jane Doe':"
                        "x=80:y=580:fontsize=32:fontcolor=white"},
        {"Sharpen", "unsharp"},
        {"Mirror", "hflip"},
        {"Crop and Zoom", "crop=640:360,scale=1280:720"},
        {"Pixelate", "pixelize"},
        {"Black and White", "colorchannelmixer=.393:.769:.189:0:.349:.686:.168:0:.272:.534:.131"},
        {"Border", "drawbox=t=20:color=white"},
        {"Chain", "eq=brightness=0.05:contrast=1.1:saturation=1.3,boxblur=8:1,chromakey=0x00FF00:0.3:0.08,vignette,"
                  "drawbox=x=60:y=560:w=420:h=110:color=navy@0.85:t=fill,"
                  "drawtext=fontfile=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf:text='Jane Doe':"
                  "x=80:y=580:fontsize=32:fontcolor=white"},
    };
    return graphs;
}

double ffmpegReference(const QString& key)
{
    auto& cache = setup().ffmpegMs;
    const auto it = cache.find(key);
    if (it != cache.end()) return it->second;
    const auto graph = ffmpegGraphs().find(key);
    return cache[key] = graph == ffmpegGraphs().end() ? 0 : ffmpegMsPerFrame(graph->second);
}

// One frame as the render loop draws it, read back for the virtual camera.
void renderFrame(const std::vector<LVEffectRef>& chain, std::vector<uint8_t>& out, double time)
{
    LVContext& ctx = *setup().ctx;
    ctx.setFrameTime(time);
    ctx.reset(false);
    ctx.drawTexture(LVTexture{setup().picture, W, H}, QRectF(0, 0, W, H), QRectF(0, 0, W, H));
    for (const auto& effect : chain) effect->preDoit();
    for (const auto& effect : chain) {
        effect->doit();
        ctx.flush();
    }
    ctx.fetchOpenGLPixels(out.data(), W * 4);
}

void runChain(benchmark::State& state, const QStringList& names, const QString& reference, bool fused)
{
    LVQCEffect::setFusionEnabled(fused);
    std::vector<LVEffectRef> chain;
    for (const QString& name : names) {
        chain.push_back(setup().registry->instantiateNamedEffect(name, setup().ctx.get()));
        if (!chain.back()) {
            state.SkipWithError("effect missing");
            return;
        }
        chain.back()->setMode(LVModeLive);
    }
    std::vector<uint8_t> out(size_t(W) * H * 4);
    double time = 0;
    renderFrame(chain, out, time);
    QElapsedTimer timer;
    timer.start();
    int64_t frames = 0;
    for (auto _ : state) {
        renderFrame(chain, out, time += 1.0 / 30);
        benchmark::DoNotOptimize(out.data());
        ++frames;
    }
    const double ours = double(timer.nsecsElapsed()) / 1e6 / double(std::max<int64_t>(frames, 1));
    const double theirs = ffmpegReference(reference);
    state.counters["ms_per_frame"] = ours;
    state.counters["ffmpeg_ms"] = theirs;
    if (theirs > 0) state.counters["x_ffmpeg"] = theirs / ours;
    LVQCEffect::setFusionEnabled(true);
}

void BM_Passthrough(benchmark::State& state)
{
    runChain(state, {}, QString(), true);
}

// One benchmark per filter that has an ffmpeg counterpart.
void registerFilters()
{
    for (const auto& [name, graph] : ffmpegGraphs()) {
        if (name == QLatin1String("Chain")) continue;
        benchmark::RegisterBenchmark(("BM_Filter/" + name.toStdString()).c_str(),
                                     [name = name](benchmark::State& state) { runChain(state, {name}, name, true); })
            ->Unit(benchmark::kMillisecond)
            ->MinTime(1.0)
            ->UseRealTime();
    }
}

const QStringList kChain = {"Colour Adjust", "Blur", "Chroma Key", "Vignette", "Lower Third"};

void BM_ChainFused(benchmark::State& state)
{
    runChain(state, kChain, QStringLiteral("Chain"), true);
}

void BM_ChainOnePassPerEffect(benchmark::State& state)
{
    runChain(state, kChain, QStringLiteral("Chain"), false);
}

} // namespace

BENCHMARK(BM_Passthrough)->Unit(benchmark::kMillisecond)->MinTime(1.0)->UseRealTime();
BENCHMARK(BM_ChainFused)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_ChainOnePassPerEffect)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    ::benchmark::Initialize(&argc, argv);
    if (!init()) return 1;
    registerFilters();
    ::benchmark::RunSpecifiedBenchmarks();
    ::benchmark::Shutdown();
    return 0;
}
