// What the studio window costs the render loop: the same show (one source and a title on
// Program, another source in Preview) run by the real render timer with the window open,
// both monitors visible, and with it closed, in alternating rounds of the same run. Reports
// frames per second and process CPU time per frame; with LP_NUM_THREADS=0 llvmpipe draws
// on the main thread, so CPU time is the whole cost, drawing and painting included.
// `--screenshot FILE` saves the window with four buttons in four states instead.
#include "app/LVKindRegistration.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "gui/studio/LVMonitorView.h"
#include "gui/studio/LVStudioController.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"

#include <QApplication>
#include <QEventLoop>
#include <QPixmap>
#include <QTemporaryDir>
#include <QTimer>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

namespace {

double cpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

void runFor(double seconds)
{
    QEventLoop loop;
    QTimer::singleShot(int(seconds * 1000), &loop, &QEventLoop::quit);
    loop.exec();
}

struct Round {
    double fps = 0;
    double cpuMsPerFrame = 0;
};

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

} // namespace

int main(int argc, char** argv)
{
    QString screenshot;
    double seconds = 4;
    int rounds = 3;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (!std::strcmp(argv[i], "--screenshot")) screenshot = QString::fromLocal8Bit(argv[i + 1]);
        if (!std::strcmp(argv[i], "--seconds")) seconds = std::atof(argv[i + 1]);
        if (!std::strcmp(argv[i], "--rounds")) rounds = std::atoi(argv[i + 1]);
    }
    QTemporaryDir dir;
    // The bench's frames never meet a running Lumaveil's.
    qputenv("LUMAVEIL_SHM_PREFIX", QByteArray("lvbench.") + QByteArray::number(QCoreApplication::applicationPid()) + ".");
    QApplication application(argc, argv);
    LVRegisterAllKinds();
    LVDefaults defaults(dir.filePath(QStringLiteral("prefs.json")));
    defaults.setValue(QStringLiteral("seenStudio"), true);
    LVLaunchOptions options;
    options.frameRate = 30;
    options.videoSize = QSize(1280, 720);
    options.folders.bundled = QStringLiteral(LV_BENCH_BUNDLED_EFFECTS);
    options.folders.user = dir.filePath(QStringLiteral("none"));
    options.folders.system = dir.filePath(QStringLiteral("none"));
    QString error;
    std::unique_ptr<Lumaveil> app = Lumaveil::create(defaults, options, &error);
    if (!app) {
        std::fprintf(stderr, "bench_studio_window: %s\n", qPrintable(error));
        return 1;
    }
    app->awakeFromNib();
    LVSetupManager manager(defaults, app->context(), dir.filePath(QStringLiteral("setups")));
    manager.startup();
    app->setSetupCatalog(&manager);
    auto owned = std::make_unique<LVStudio>(*app, manager);
    LVStudio& studio = *owned;
    app->setStudio(std::move(owned));
    struct StudioRemover {
        Lumaveil& app;
        ~StudioRemover() { app.setStudio(nullptr); }
    } remover{*app};
    studio.startup();

    const auto make = [&](const char* name, std::vector<const char*> effects, bool source) {
        std::vector<LVEffectRef> chain;
        if (source) chain.push_back(app->instantiateNamedSource(QStringLiteral("Test Pattern")));
        for (const char* effect : effects) chain.push_back(app->instantiateNamedEffect(QString::fromLatin1(effect)));
        manager.newSavedSetupWithName(QString::fromLatin1(name), chain);
        return studio.buttonHavingName(QString::fromLatin1(name));
    };
    const LVStudioButtonRef bars = make("Bars", {}, true);
    const LVStudioButtonRef mono = make("Mono", {"Black and White"}, true);
    const LVStudioButtonRef title = make("Title", {"Title"}, false);
    const LVStudioButtonRef clock = make("Clock", {"Clock"}, false);
    if (!bars || !mono || !title || !clock) {
        std::fprintf(stderr, "bench_studio_window: the setups could not be made\n");
        return 1;
    }
    LVStudioController window(*app, studio);
    window.resize(1180, 640);
    window.show();
    bars->punchToAir();
    title->punchToAir();
    mono->doNormalToggle();
    for (const LVStudioButtonRef& button : {bars, mono, title}) button->snapshot();

    if (!screenshot.isEmpty()) {
        // Four states: Title on air, Bars marked to leave (a new source waits in Preview),
        // Mono in Preview, Clock idle.
        runFor(1.5);
        if (!window.grab().save(screenshot)) {
            std::fprintf(stderr, "bench_studio_window: cannot write %s\n", qPrintable(screenshot));
            return 1;
        }
        std::printf("saved %s\n", qPrintable(screenshot));
        return 0;
    }

    // Closed; open; open with the Preview monitor hidden, so Preview is not rendered (what
    // the window costs besides rendering Preview).
    const char* names[] = {"closed", "open", "open, Preview hidden"};
    std::vector<double> fps[3], cpuMs[3];
    runFor(1.0);
    for (int round = 0; round < rounds * 3; ++round) {
        const int kind = round % 3;
        window.setVisible(kind != 0);
        window.previewMonitor()->setVisible(kind != 2);
        runFor(0.5);
        const qint64 frames = app->framesRendered();
        const double cpu = cpuSeconds();
        runFor(seconds);
        const double rendered = double(app->framesRendered() - frames);
        fps[kind].push_back(rendered / seconds);
        cpuMs[kind].push_back(rendered > 0 ? (cpuSeconds() - cpu) * 1000.0 / rendered : 0);
        std::printf("round %d, window %s: %.1f fps, %.1f ms CPU per frame\n", round / 3 + 1, names[kind],
                    fps[kind].back(), cpuMs[kind].back());
    }
    std::printf("1280x720 at 30 fps, medians of %d rounds of %.0f s:\n", rounds, seconds);
    for (int kind = 0; kind < 3; ++kind) {
        std::printf("  window %-20s %5.1f fps, %5.1f ms CPU per frame, %.2fx closed\n", names[kind], median(fps[kind]),
                    median(cpuMs[kind]), median(cpuMs[kind]) / std::max(1e-9, median(cpuMs[0])));
    }
    return 0;
}
