// Start-up cost of the setups catalogue: scanning and listing 1,000 saved setups with
// icons, and loading one into a chain, each against `cat` of the same bytes. Wall time,
// since the reference runs in a child process.
#include "core/LVDefaults.h"
#include "gui/setups/LVSavedSetupsWindow.h"
#include "setups/model/LVSetupManager.h"
#include "tests/setups/SetupTestKinds.h"

#include <QApplication>
#include <QDir>
#include <QPainter>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <cstdio>

namespace {

constexpr int kSetups = 1000;

// A frame with detail, so the icons compress like real pictures rather than flat colour.
QImage sampleFrame(int seed)
{
    QImage frame(320, 240, QImage::Format_ARGB32_Premultiplied);
    QPainter painter(&frame);
    QLinearGradient gradient(0, 0, 320, 240);
    gradient.setColorAt(0, QColor::fromHsv(seed * 37 % 360, 200, 220));
    gradient.setColorAt(1, QColor::fromHsv(seed * 91 % 360, 180, 60));
    painter.fillRect(frame.rect(), gradient);
    QRandomGenerator noise{quint32(seed)};
    for (int i = 0; i < 60; ++i) {
        painter.fillRect(noise.bounded(320), noise.bounded(240), 4 + noise.bounded(40), 4 + noise.bounded(40),
                         QColor::fromRgb(noise.generate()));
    }
    return frame;
}

struct Catalogue {
    QTemporaryDir dir;
    QString setupDir;
    qint64 totalBytes = 0;
    QString oneSetup;
    qint64 oneSetupBytes = 0;

    Catalogue()
    {
        registerSetupTestKinds();
        setupDir = dir.filePath("Saved Setups");
        for (int i = 0; i < kSetups; ++i) {
            std::vector<LVEffectRef> chain{newTestEffect(setupTestSource())};
            for (int e = 0; e < 4; ++e) chain.push_back(newTestEffect(setupTestEffect(), QString("Layer %1").arg(e)));
            LVSavedSetup setup(chain, QString("%1/Setup %2").arg(setupDir).arg(i, 4, 10, QChar('0')));
            setup.setIcon(LVSavedSetup::iconFromFrame(sampleFrame(i)));
            setup.setMidiKey(uint32_t(i % 128));
            setup.persist();
            totalBytes += QFileInfo(setup.path()).size();
        }
        oneSetup = setupDir + "/Setup 0500";
        oneSetupBytes = QFileInfo(oneSetup).size();
    }
};

Catalogue& catalogue()
{
    static Catalogue c;
    return c;
}

// Reads what the shell command writes, as a caller of `cat` would.
qint64 readCommand(const QString& command)
{
    FILE* pipe = popen(command.toLocal8Bit().constData(), "r");
    if (!pipe) return -1;
    static char buffer[1 << 16];
    qint64 total = 0;
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) total += qint64(n);
    pclose(pipe);
    return total;
}

QString quoted(const QString& path)
{
    return "'" + QString(path).replace("'", "'\\''") + "'";
}

void BM_CatAllSetups(benchmark::State& state)
{
    Catalogue& c = catalogue();
    const QString command = "cd " + quoted(c.setupDir) + " && cat -- *";
    for (auto _ : state) benchmark::DoNotOptimize(readCommand(command));
    state.SetBytesProcessed(state.iterations() * c.totalBytes);
}

// What start-up does: the folder scan, every file read and checked, sets restored; then
// whatever the caller shows of the catalogue.
template <class Show>
void scanSetups(benchmark::State& state, Show show)
{
    Catalogue& c = catalogue();
    LVDefaults defaults(c.dir.filePath("prefs.json"));
    for (auto _ : state) {
        LVSetupManager manager(defaults, nullptr, c.setupDir);
        manager.startup();
        show(manager);
    }
    state.SetBytesProcessed(state.iterations() * c.totalBytes);
}

void BM_ScanSetups(benchmark::State& state)
{
    scanSetups(state, [](LVSetupManager& manager) { benchmark::DoNotOptimize(manager.allSetups().size()); });
}

// What a user waits for: the scan, then the saved-setups window drawn with its icons.
void BM_ScanAndShowSetupsWindow(benchmark::State& state)
{
    scanSetups(state, [](LVSetupManager& manager) {
        LVSavedSetupsWindow window(manager, LVSetupsHost{});
        window.resize(420, 720);
        benchmark::DoNotOptimize(window.grab().isNull());
    });
}

void BM_CatOneSetup(benchmark::State& state)
{
    Catalogue& c = catalogue();
    const QString command = "cat -- " + quoted(c.oneSetup);
    for (auto _ : state) benchmark::DoNotOptimize(readCommand(command));
    state.SetBytesProcessed(state.iterations() * c.oneSetupBytes);
}

// Loading a setup by path into a chain: read, check, decode every effect.
void BM_LoadOneSetupIntoChain(benchmark::State& state)
{
    Catalogue& c = catalogue();
    LVDefaults defaults(c.dir.filePath("prefs.json"));
    LVSetupManager manager(defaults, nullptr, c.setupDir);
    for (auto _ : state) benchmark::DoNotOptimize(manager.effectsOfSetupAtPath(c.oneSetup, nullptr)->size());
    state.SetBytesProcessed(state.iterations() * c.oneSetupBytes);
}

BENCHMARK(BM_CatAllSetups)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ScanSetups)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ScanAndShowSetupsWindow)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_CatOneSetup)->Unit(benchmark::kMicrosecond)->UseRealTime();
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
