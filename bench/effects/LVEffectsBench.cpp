// Frame time of the bundled filters at 1280x720 on the render context, against ffmpeg
// filter graphs doing comparable work on the same picture, measured in the same run.
// Counter "x_ffmpeg" is ffmpeg's time per frame over ours: above 1 means we are faster.
#include "bench/support/LVBenchFigures.h"
#include "core/LVEffectRegistry.h"
#include "effects/composition/LVQCEffect.h"
#include "effects/registration/LVEffectKinds.h"
#include "render/LVContext.h"

#include <benchmark/benchmark.h>

#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QTemporaryDir>

#include <map>

namespace {

constexpr int W = 1280;
constexpr int H = 720;

struct Setup {
    std::unique_ptr<LVContext> ctx;
    std::unique_ptr<LVEffectRegistry> registry;
    GLuint picture = 0;
    QTemporaryDir dir;
    QString rawFrame;
    std::map<QString, double> ffmpegMs; // graph -> ms per frame
};
Setup* g_setup = nullptr;

const QString kLowerThird = "drawbox=x=60:y=560:w=420:h=110:color=navy@0.85:t=fill,"
                            "drawtext=fontfile=/usr/share/fonts/truetype/dejavu/DejaVuSans.ttf:text='Jane Doe':"
                            "x=80:y=580:fontsize=32:fontcolor=white";
// What ffmpeg runs for each of ours; "Chain" is kChain's graphs in turn.
const std::map<QString, QString> kGraphs = {
    {"Colour Adjust", "eq=brightness=0.05:contrast=1.1:saturation=1.3:gamma=1.1"},
    {"Blur", "boxblur=8:1"},
    {"Chroma Key", "chromakey=0x00FF00:0.3:0.08"},
    {"Vignette", "vignette"},
    {"Lower Third", kLowerThird},
    {"Sharpen", "unsharp"},
    {"Mirror", "hflip"},
    {"Crop and Zoom", "crop=640:360,scale=1280:720"},
    {"Pixelate", "pixelize"},
    {"Black and White", "colorchannelmixer=.393:.769:.189:0:.349:.686:.168:0:.272:.534:.131"},
    {"Border", "drawbox=t=20:color=white"},
    {"Chain", "eq=brightness=0.05:contrast=1.1:saturation=1.3,boxblur=8:1,chromakey=0x00FF00:0.3:0.08,vignette," + kLowerThird},
};
const QStringList kChain = {"Colour Adjust", "Blur", "Chroma Key", "Vignette", "Lower Third"};

// ffmpeg's time per frame for a graph over the same picture, once per graph: two runs of
// different lengths, so process start and input parsing cancel out.
double ffmpegReference(const QString& key)
{
    const auto cached = g_setup->ffmpegMs.find(key);
    if (cached != g_setup->ffmpegMs.end()) return cached->second;
    const auto graph = kGraphs.find(key);
    double runSeconds[2] = {-1, -1};
    for (int i = 0; graph != kGraphs.end() && i < 2; ++i) {
        lvRunFfmpeg({"-stream_loop", "-1", "-f", "rawvideo", "-pix_fmt", "rgba", "-s", QStringLiteral("%1x%2").arg(W).arg(H),
                     "-i", g_setup->rawFrame, "-vf", graph->second, "-frames:v", i ? "120" : "20", "-pix_fmt", "rgba",
                     "-f", "rawvideo", "/dev/null"},
                    &runSeconds[i]);
    }
    return g_setup->ffmpegMs[key] = runSeconds[0] < 0 || runSeconds[1] < 0 ? 0 : (runSeconds[1] - runSeconds[0]) * 1000 / 100.0;
}

bool init(Setup& s)
{
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
    // Gradients with a green key area.
    QImage picture(W, H, QImage::Format_ARGB32);
    for (int y = 0; y < H; ++y) {
        for (int x = 0; x < W; ++x) {
            const bool key = x > W / 2 && y > H / 3;
            picture.setPixel(x, y, key ? qRgb(20, 230, 40) : qRgb((x * 255) / W, (y * 255) / H, ((x ^ y) & 255)));
        }
    }
    s.picture = s.ctx->textureFromImage(picture);
    s.rawFrame = s.dir.filePath(QStringLiteral("frame.rgba"));
    QFile raw(s.rawFrame);
    const QImage rgba = picture.convertToFormat(QImage::Format_RGBA8888);
    return raw.open(QIODevice::WriteOnly) && raw.write(reinterpret_cast<const char*>(rgba.constBits()), rgba.sizeInBytes()) > 0;
}

// One frame as the render loop draws it, read back for the virtual camera.
void renderFrame(const std::vector<LVEffectRef>& chain, std::vector<uint8_t>& out, double time)
{
    LVContext& ctx = *g_setup->ctx;
    ctx.setFrameTime(time);
    ctx.reset(false);
    ctx.drawTexture(LVTexture{g_setup->picture, W, H}, QRectF(0, 0, W, H), QRectF(0, 0, W, H));
    const LVChainAreas areas(chain, QSize(W, H));
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
        chain.push_back(g_setup->registry->instantiateNamedEffect(name, g_setup->ctx.get()));
        if (!chain.back()) {
            state.SkipWithError("effect missing");
            return;
        }
        chain.back()->setMode(LVModeLive);
    }
    std::vector<uint8_t> out(size_t(W) * H * 4);
    double time = 0;
    renderFrame(chain, out, time);
    const auto start = LVBenchClock::now();
    for (auto _ : state) {
        renderFrame(chain, out, time += 1.0 / 30);
        benchmark::DoNotOptimize(out.data());
    }
    const double ours = lvMsSince(start) / double(std::max<benchmark::IterationCount>(state.iterations(), 1));
    const double theirs = reference.isEmpty() ? 0 : ffmpegReference(reference);
    state.counters["ms_per_frame"] = ours;
    state.counters["ffmpeg_ms"] = theirs;
    if (theirs > 0) state.counters["x_ffmpeg"] = theirs / ours;
    LVQCEffect::setFusionEnabled(true);
}

// Passthrough, one benchmark per filter that has an ffmpeg counterpart, then the chain fused
// and with one pass per effect.
void registerBenchmarks()
{
    const auto add = [](const std::string& name, double minTime, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), run)->Unit(benchmark::kMillisecond)->MinTime(minTime)->UseRealTime();
    };
    add("BM_Passthrough", 1.0, [](benchmark::State& state) { runChain(state, {}, {}, true); });
    for (const auto& [name, graph] : kGraphs) {
        if (name == QLatin1String("Chain")) continue;
        add("BM_Filter/" + name.toStdString(), 1.0, [name = name](benchmark::State& state) { runChain(state, {name}, name, true); });
    }
    add("BM_ChainFused", 2.0, [](benchmark::State& state) { runChain(state, kChain, "Chain", true); });
    add("BM_ChainOnePassPerEffect", 2.0, [](benchmark::State& state) { runChain(state, kChain, "Chain", false); });
}

} // namespace

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    ::benchmark::Initialize(&argc, argv);
    Setup setup;
    if (!init(setup)) return 1;
    g_setup = &setup;
    registerBenchmarks();
    ::benchmark::RunSpecifiedBenchmarks();
    ::benchmark::Shutdown();
    g_setup = nullptr;
    return 0;
}
