// Lumaveil's composition root: builds every object, wires the interfaces, runs.
#include "app/LVAutomationParts.h"
#include "app/LVCommandLine.h"
#include "app/LVHeadlessJob.h"
#include "app/LVKindRegistration.h"
#include "app/LVPipeWireSecondOutput.h"
#include "app/LVQuitOnSignal.h"
#include "app/LVRestart.h"
#include "automation/LVTimeLineItems.h"
#include "control/broadcast/LVBroadcastCommands.h"
#include "control/broadcast/LVBroadcastRemote.h"
#include "control/surface/LVControlSurface.h"
#include "control/websocket/LVRemoteControlService.h"
#include "control/websocket/LVRemoteWebFront.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "core/LVEffectRegistry.h"
#include "outputs/record/LVBroadcaster.h"
#include "effects/pip/PIPEffect.h"
#include "gui/automation/LVTimeLineWindow.h"
#include "gui/automation/LVUserMenuWindow.h"
#include "gui/broadcast/LVBroadcastBar.h"
#include "gui/main/LVMainWindow.h"
#include "gui/script/LVScriptInspector.h"
#include "gui/sources/LVPlaylistModel.h"
#include "gui/studio/LVStudioController.h"
#include "setups/model/LVSetupManager.h"
#include "sources/webcam/LVCamDevice.h"
#include "studio/LVStudio.h"

#include <QApplication>
#include <QCoreApplication>
#include <QGuiApplication>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QIcon>
#include <QMenuBar>
#include <QMessageBox>
#include <QProcess>
#include <QStatusBar>
#include <QStringList>

#include <cstdio>

namespace {

LVEffectFolders effectFolders()
{
    LVEffectFolders folders = LVEffectFolders::standard();
    if (!qEnvironmentVariableIsEmpty("LUMAVEIL_EFFECTS_DIR")) return folders;
    // Run from the build tree: the source tree's bundled Effects folder. A copy of the binary
    // elsewhere must not quietly depend on a source tree that may change or vanish.
    if (QFileInfo(QCoreApplication::applicationDirPath()) == QFileInfo(QStringLiteral(LV_BUILD_APP_DIR))) {
        folders.bundled = QStringLiteral(LV_BUILD_EFFECTS_DIR);
    } else if (!QFileInfo(folders.bundled).isDir()) {
        std::fprintf(stderr,
                     "lumaveil: no bundled Effects folder at %s; install with \"cmake --install\" or set "
                     "LUMAVEIL_EFFECTS_DIR\n",
                     qPrintable(folders.bundled));
    }
    return folders;
}

// Qt aborts when it cannot reach a display; say what to do instead.
bool hasDisplay()
{
    return !qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") || !qEnvironmentVariableIsEmpty("DISPLAY") ||
           !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
}

void printCatalogue(const char* title, const LVEffectRegistry::FactoryList& list)
{
    std::printf("%s (%zu)\n", title, list.size());
    for (const auto& factory : list) {
        const QString origin = LVEffectOriginName(factory->origin());
        if (factory->path().isEmpty()) {
            std::printf("  %-28s %s\n", qPrintable(factory->name()), qPrintable(origin));
        } else {
            std::printf("  %-28s %s: %s\n", qPrintable(factory->name()), qPrintable(origin),
                        qPrintable(factory->path()));
        }
    }
}

int listEffects()
{
    LVEffectRegistry registry(effectFolders());
    registry.findEffects();
    printCatalogue("Sources", registry.allSources());
    printCatalogue("Effects", registry.allEffects());
    printCatalogue("Transitions", registry.transitions());
    return 0;
}

QStringList rawArguments(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i) arguments.append(QString::fromLocal8Bit(argv[i]));
    return arguments;
}

int runMainWindow(const LVCommandLine& commandLine, const LVEffectFolders& folders)
{
    LVDefaults& defaults = LVDefaults::standardUserDefaults();
    LVLaunchOptions options;
    options.videoSize = commandLine.videoSize;
    options.frameRate = commandLine.frameRate;
    options.noPublish = commandLine.noPublish;
    options.folders = folders;
    QString error;
    std::unique_ptr<Lumaveil> lumaveil = Lumaveil::create(defaults, options, &error);
    if (!lumaveil) {
        std::fprintf(stderr, "lumaveil: %s\n", qPrintable(error));
        return 1;
    }
    lumaveil->setSecondOutputMaker([] { return std::make_unique<LVPipeWireSecondOutput>(); });
    // Outlives everything that can start or stop a recording; ends it properly at quit.
    LVBroadcaster broadcaster(*lumaveil, defaults);
    LVStartProgramBuilder();
    LVSetupManager setupManager(defaults, lumaveil->context());
    setupManager.startup();
    lumaveil->setSetupCatalog(&setupManager);
    // The picture-in-picture's own swap button acts on the chain through the controller.
    PIPEffect::setSwapHandler([&lumaveil = *lumaveil](PIPEffect& pip) {
        for (const LVEffectRef& effect : lumaveil.liveEffects()) {
            if (effect.get() == &pip) return lumaveil.doSwap(effect);
        }
    });
    LVRegisterSourceInspectors();
    LVRegisterScriptInspector();
    // The timelines and the user menu outlive the windows that show them.
    LVAutomationParts automation(*lumaveil, defaults, setupManager);
    LVMainWindow window(*lumaveil);
    window.setSetupManager(&setupManager);
    LVTimeLineWindow timeLineWindow(automation.timeLines());
    LVUserMenuWindow userMenuWindow(automation.userMenu());
    window.menuBar()->addMenu(new LVUserMenuMenu(
        automation.userMenu(), [&] { userMenuWindow.show(); }, [&] { timeLineWindow.show(); }, &window));
    // --source/--effect, else --setup, else the auto-load setup, else the embedded default.
    if (!LVBuildChain(*lumaveil, commandLine, &error)) {
        lumaveil->applicationWillTerminate();
        std::fprintf(stderr, "lumaveil: %s\n", qPrintable(error));
        return LVStopProgramBuilder(2);
    }
    bool restart = false;
    window.setRestartHandler([&] {
        QString why;
        if (!LVSaveChainForRestart(*lumaveil, LVRestartChainPath(), &why)) {
            QMessageBox::warning(&window, QStringLiteral("Lumaveil"),
                                 QStringLiteral("Lumaveil cannot keep the chain for the restart: %1").arg(why));
            return;
        }
        restart = true;
        QCoreApplication::quit();
    });
    // The studio refers to the setup manager: it goes first, however this run ends.
    auto ownedStudio = std::make_unique<LVStudio>(*lumaveil, setupManager);
    LVStudio& studio = *ownedStudio;
    lumaveil->setStudio(std::move(ownedStudio));
    struct StudioRemover {
        Lumaveil& app;
        ~StudioRemover() { app.setStudio(nullptr); }
    } studioRemover{*lumaveil};
    studio.startup();
    LVStudioController studioWindow(*lumaveil, studio);
    const auto openStudio = [&studioWindow] {
        studioWindow.show();
        studioWindow.raise();
        studioWindow.activateWindow();
    };
    LVStudioController::addMenuEntry(window, openStudio);
    const std::unique_ptr<LVControlSurface> control = LVControlSurface::start(*lumaveil, LVStudio::of(*lumaveil));
    automation.addCommands(control->commands());
    LVRemoteControlService::Options remoteOptions;
    remoteOptions.pagesFolder = LVRemoteWebFront::standardFolder();
    LVRemoteControlService remoteControl(*lumaveil, LVStudio::of(*lumaveil), remoteOptions);
    remoteControl.setHotkeys(&automation);
    window.setRemoteControlStatus([&remoteControl] { return remoteControl.status(); });
    window.setRemoteControlLink([&remoteControl] { return remoteControl.accessLink(); });
    LVAddBroadcastCommands(control->commands(), broadcaster);
    LVAddBroadcastRequests(remoteControl.requests(), broadcaster);
    LVTimeLineRecord::setSwitch([&broadcaster](bool start, QString* why) {
        return start ? broadcaster.startRecord(why) : broadcaster.stopRecord(why);
    });
    struct SwitchRemover {
        ~SwitchRemover() { LVTimeLineRecord::setSwitch(nullptr); }
    } switchRemover;
    window.statusBar()->addPermanentWidget(new LVBroadcastBar(broadcaster));
    window.show();
    window.showBetaNagIfNeeded();
    if (commandLine.studio) openStudio();
    LVQuitOnSignal quitOnSignal;
    const int status = QApplication::exec();
    PIPEffect::setSwapHandler(nullptr);
    lumaveil->applicationWillTerminate();
    const int result = LVStopProgramBuilder(status);
    // Started once this run has let go of the frames, so the two never publish together.
    if (restart && !QProcess::startDetached(QCoreApplication::applicationFilePath(),
                                            {QStringLiteral("--restore-chain"), LVRestartChainPath()})) {
        std::fprintf(stderr, "lumaveil: could not start again; start it yourself for the new video size\n");
    }
    return result;
}

int runApplication(int& argc, char** argv, const LVCommandLine& commandLine, const QElapsedTimer& sinceStart)
{
    if (commandLine.headless || commandLine.listEffects) {
        // Text overlays need Qt's fonts, which need a GUI application; offscreen needs no display.
        if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
        QGuiApplication app(argc, argv);
        QCoreApplication::setApplicationName(QStringLiteral("Lumaveil"));
        if (commandLine.listEffects) return listEffects();
        return LVRunHeadless(commandLine, effectFolders(), sinceStart);
    }
    if (!hasDisplay()) {
        std::fprintf(stderr, "lumaveil: no display: use --headless\n");
        return 2;
    }
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Lumaveil"));
    QApplication::setApplicationVersion(QStringLiteral(LV_VERSION));
    QApplication::setDesktopFileName(QStringLiteral("lumaveil"));
    QApplication::setWindowIcon(QIcon::fromTheme(QStringLiteral("lumaveil")));
    return runMainWindow(commandLine, effectFolders());
}

} // namespace

int main(int argc, char** argv)
{
    QElapsedTimer sinceStart;
    sinceStart.start();
    LVCommandLine commandLine;
    QString error;
    if (!LVParseCommandLine(rawArguments(argc, argv), &commandLine, &error)) {
        std::fprintf(stderr, "lumaveil: %s\n%s", qPrintable(error), qPrintable(LVCommandLineUsage()));
        return 2;
    }
    if (commandLine.help) {
        std::printf("%s", qPrintable(LVCommandLineUsage()));
        return 0;
    }
    if (commandLine.version) {
        std::printf("lumaveil %s\n", LV_VERSION);
        return 0;
    }
    LVRegisterAllKinds();
    const int status = runApplication(argc, argv, commandLine, sinceStart);
    // The application object is gone, and every capture pipeline with it: GStreamer's pooled
    // threads end now instead of running into the process exit.
    LVCamShutdownGStreamer();
    return status;
}
