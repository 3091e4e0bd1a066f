// Start-up cost of the setups catalogue: scanning and listing 1,000 saved setups with
// icons, and loading one into a chain, each against `cat` of the same bytes. Wall time,
// since the reference runs in a child process.
#include "core/LVDefaults.h"
#include "gui/setups/LVSavedSetupsWindow.h"
#include "setups/model/LVSetupManager.h"
#include "tests/setups/SetupTestKinds.h"

#include <QApplication>
#include <QPainter>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>

namespace {

struct Catalogue {
    QTemporaryDir dir;
    QString setupDir = dir.filePath("Saved Setups");
    qint64 totalBytes = 0;
    QString oneSetup = setupDir + "/Setup 0500";

    // 1,000 setups of a source and four effects, each with an icon from a frame with detail,
    // so the icons compress like real pictures rather than flat colour.
    Catalogue()
    {
        registerSetupTestKinds();
        for (int i = 0; i < 1000; ++i) {
            std::vector<LVEffectRef> chain{newTestEffect(setupTestSource())};
            for (int e = 0; e < 4; ++e) chain.push_back(newTestEffect(setupTestEffect(), QString("Layer %1").arg(e)));
            LVSavedSetup setup(chain, QString("%1/Setup %2").arg(setupDir).arg(i, 4, 10, QChar('0')));
            QImage frame(320, 240, QImage::Format_ARGB32_Premultiplied);
            QPainter painter(&frame);
            QLinearGradient gradient(0, 0, 320, 240);
            gradient.setColorAt(0, QColor::fromHsv(i * 37 % 360, 200, 220));
            gradient.setColorAt(1, QColor::fromHsv(i * 91 % 360, 180, 60));
            painter.fillRect(frame.rect(), gradient);
            QRandomGenerator noise{quint32(i)};
            for (int n = 0; n < 60; ++n) {
                painter.fillRect(noise.bounded(320), noise.bounded(240), 4 + noise.bounded(40), 4 + noise.bounded(40),
                                 QColor::fromRgb(noise.generate()));
            }
            painter.end();
            setup.setIcon(LVSavedSetup::iconFromFrame(frame));
            setup.setMidiKey(uint32_t(i % 128));
            setup.persist();
            totalBytes += QFileInfo(setup.path()).size();
        }
    }
};

Catalogue& catalogue()
{
    static Catalogue c;
    return c;
}

// The reference: `cat` of every setup file, or of the one loaded, read as its caller would.
void BM_Cat(benchmark::State& state, bool all)
{
    Catalogue& c = catalogue();
    const auto quoted = [](const QString& path) { return "'" + QString(path).replace("'", "'\\''") + "'"; };
    const QString command = all ? "cd " + quoted(c.setupDir) + " && cat -- *" : "cat -- " + quoted(c.oneSetup);
    static char buffer[1 << 16];
    for (auto _ : state) {
        FILE* pipe = popen(command.toLocal8Bit().constData(), "r");
        if (!pipe) continue;
        qint64 total = 0;
        for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) total += qint64(n);
        pclose(pipe);
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(state.iterations() * (all ? c.totalBytes : QFileInfo(c.oneSetup).size()));
}

// What start-up does: the folder scan, every file read and checked, sets restored; then, with
// showWindow, what a user waits for: the saved-setups window drawn with its icons.
void BM_ScanSetups(benchmark::State& state, bool showWindow)
{
    Catalogue& c = catalogue();
    LVDefaults defaults(c.dir.filePath("prefs.json"));
    for (auto _ : state) {
        LVSetupManager manager(defaults, nullptr, c.setupDir);
        manager.startup();
        benchmark::DoNotOptimize(manager.allSetups().size());
        if (!showWindow) continue;
        LVSavedSetupsWindow window(manager, LVSetupsHost{});
        window.resize(420, 720);
        benchmark::DoNotOptimize(window.grab().isNull());
    }
    state.SetBytesProcessed(state.iterations() * c.totalBytes);
}

// Loading a setup by path into a chain: read, check, decode every effect.
void BM_LoadOneSetupIntoChain(benchmark::State& state)
{
    Catalogue& c = catalogue();
    LVDefaults defaults(c.dir.filePath("prefs.json"));
    LVSetupManager manager(defaults, nullptr, c.setupDir);
    for (auto _ : state) benchmark::DoNotOptimize(manager.effectsOfSetupAtPath(c.oneSetup, nullptr)->size());
    state.SetBytesProcessed(state.iterations() * QFileInfo(c.oneSetup).size());
}

BENCHMARK_CAPTURE(BM_Cat, all, true)->Name("BM_CatAllSetups")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_ScanSetups, list, false)->Name("BM_ScanSetups")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_ScanSetups, window, true)->Name("BM_ScanAndShowSetupsWindow")->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(BM_Cat, one, false)->Name("BM_CatOneSetup")->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_LoadOneSetupIntoChain)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
