// What the studio window costs the render loop: the same show (one source and a title on
// Program, another source in Preview) run by the real render timer with the window open,
// both monitors visible, and with it closed, in alternating rounds of the same run. Reports
// frames per second and process CPU time per frame; with LP_NUM_THREADS=0 llvmpipe draws
// on the main thread, so CPU time is the whole cost, drawing and painting included.
// `--screenshot FILE` saves the window with four buttons in four states instead (docs/studio.png).
#include "bench/support/LVBenchFigures.h"
#include "bench/support/LVBenchStudio.h"
#include "app/LVKindRegistration.h"
#include "gui/studio/LVMonitorView.h"
#include "gui/studio/LVStudioController.h"

#include <QApplication>
#include <QPixmap>

#include <cstring>

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
    // The bench's frames never meet a running Lumaveil's.
    qputenv("LUMAVEIL_SHM_PREFIX", QByteArray("lvbench.") + QByteArray::number(getpid()) + ".");
    QApplication application(argc, argv);
    LVRegisterAllKinds();
    LVBenchStudio rig("bench_studio_window", lvBenchOptions(true), QStringLiteral(LV_BENCH_BUNDLED_EFFECTS));
    LVStudioButtonRef bars = rig.addNamedSetup("Bars", true, {});
    LVStudioButtonRef mono = rig.addNamedSetup("Mono", true, {"Black and White"});
    LVStudioButtonRef title = rig.addNamedSetup("Title", false, {"Title"});
    rig.addNamedSetup("Clock", false, {"Clock"});
    LVStudioController window(*rig.app, *rig.studio);
    window.resize(1180, 640);
    window.show();
    bars->punchToAir();
    title->punchToAir();
    mono->doNormalToggle();
    for (const LVStudioButtonRef& button : {bars, mono, title}) button->snapshot();

    if (!screenshot.isEmpty()) {
        // Four states: Title on air, Bars marked to leave (a new source waits in Preview),
        // Mono in Preview, Clock idle.
        lvServeFor(1.5);
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
    lvServeFor(1.0);
    for (int round = 0; round < rounds * 3; ++round) {
        const int kind = round % 3;
        window.setVisible(kind != 0);
        window.previewMonitor()->setVisible(kind != 2);
        lvServeFor(0.5);
        const qint64 frames = rig.app->framesRendered();
        const double cpu = lvCpuSeconds();
        lvServeFor(seconds);
        const double rendered = double(rig.app->framesRendered() - frames);
        fps[kind].push_back(rendered / seconds);
        cpuMs[kind].push_back(rendered > 0 ? (lvCpuSeconds() - cpu) * 1000.0 / rendered : 0);
        std::printf("round %d, window %s: %.1f fps, %.1f ms CPU per frame\n", round / 3 + 1, names[kind],
                    fps[kind].back(), cpuMs[kind].back());
    }
    std::printf("1280x720 at 30 fps, medians of %d rounds of %.0f s:\n", rounds, seconds);
    for (int kind = 0; kind < 3; ++kind) {
        const double cpu = lvPercentile(cpuMs[kind], 0.5);
        std::printf("  window %-20s %5.1f fps, %5.1f ms CPU per frame, %.2fx closed\n", names[kind],
                    lvPercentile(fps[kind], 0.5), cpu, cpu / std::max(1e-9, lvPercentile(cpuMs[0], 0.5)));
    }
    return 0;
}
