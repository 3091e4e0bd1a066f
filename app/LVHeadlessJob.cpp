#include "app/LVHeadlessJob.h"

#include "app/LVAutomationParts.h"
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
#include "core/util/LVLog.h"
#include "effects/composition/LVISFProgram.h"
#include "outputs/record/LVBroadcaster.h"
#include "render/LVContext.h"
#include "render/LVShmemOutput.h"
#include "transport/LVShmem.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <cstdio>
#include <vector>

#include <unistd.h>

namespace {

QStringList factoryNames(const LVEffectRegistry::FactoryList& list)
{
    QStringList names;
    for (const auto& factory : list) names.append(factory->name());
    return names;
}

double percentile(std::vector<double> samples, double fraction)
{
    if (samples.empty()) return 0;
    std::sort(samples.begin(), samples.end());
    const size_t index = std::min(samples.size() - 1, size_t(fraction * double(samples.size() - 1) + 0.5));
    return samples[index];
}

double round3(double value)
{
    return double(qRound64(value * 1000.0)) / 1000.0;
}

using Clock = std::chrono::steady_clock;

double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

void printJson(const QJsonObject& object)
{
    std::printf("%s\n", QJsonDocument(object).toJson(QJsonDocument::Compact).constData());
    std::fflush(stdout);
}

// The frame again, stage by stage, each finished before the next starts: what each costs
// alone (the whole frame overlaps them a little). Median milliseconds per stage.
QJsonObject timeStages(Lumaveil& app, qint64 frames)
{
    LVContext& context = *app.context();
    LVFrameReadBack readBack;
    std::vector<double> source, effects, read, publish;
    for (qint64 i = 0; i < frames; ++i) {
        context.setFrameTime(context.frameTime() + 1.0 / app.frameRate());
        auto start = Clock::now();
        const std::vector<LVEffectRef> chain = app.liveEffects();
        context.reset(false, LVChainOverwritesFrame(chain));
        const LVChainAreas areas(chain, QSize(context.width(), context.height()));
        for (const LVEffectRef& effect : chain)
            if (effect->isEnabled()) effect->preDoit();
        bool inSources = true;
        for (const LVEffectRef& effect : chain) {
            if (!effect->isEnabled()) continue;
            if (inSources && !effect->descriptor().isSource()) {
                glFinish();
                source.push_back(millisecondsSince(start));
                start = Clock::now();
                inSources = false;
            }
            effect->doit();
            context.flush();
        }
        // Pending filter output is drawn when the frame is first used.
        context.framebuffer();
        glFinish();
        if (inSources) source.push_back(millisecondsSince(start));
        else effects.push_back(millisecondsSince(start));
        start = Clock::now();
        const LVFramePixelsRef pixels = readBack.read(context);
        read.push_back(millisecondsSince(start));
        start = Clock::now();
        LVShmemOutput::publish(app.shmem(), *pixels, app.frameRate());
        publish.push_back(millisecondsSince(start));
    }
    return QJsonObject{
        {QStringLiteral("source"), round3(percentile(source, 0.5))},
        {QStringLiteral("effects"), round3(percentile(effects, 0.5))},
        {QStringLiteral("read_back"), round3(percentile(read, 0.5))},
        {QStringLiteral("publish"), round3(percentile(publish, 0.5))},
    };
}

// Renders as fast as possible: the whole frame, then the read-back + publish floor alone.
QJsonObject runBench(Lumaveil& app, qint64 frames)
{
    constexpr int warmUp = 10;
    std::vector<double> frameMs;
    frameMs.reserve(size_t(frames));
    for (int i = 0; i < warmUp; ++i) app.renderFrame();
    const auto benchStart = Clock::now();
    for (qint64 i = 0; i < frames; ++i) {
        const auto start = Clock::now();
        app.renderFrame();
        frameMs.push_back(millisecondsSince(start));
    }
    const double totalMs = millisecondsSince(benchStart);

    LVContext& context = *app.context();
    std::vector<double> floorMs;
    floorMs.reserve(size_t(frames));
    LVFrameReadBack readBack;
    for (qint64 i = 0; i < frames; ++i) {
        const auto start = Clock::now();
        context.reset(false);
        LVShmemOutput::publish(app.shmem(), *readBack.read(context), app.frameRate());
        floorMs.push_back(millisecondsSince(start));
    }
    // The plain copy of the same bytes, for scale.
    const size_t frameBytes = size_t(context.width()) * size_t(context.height()) * 4;
    std::vector<uint8_t> from(frameBytes, 0x5A);
    std::vector<uint8_t> to(frameBytes);
    std::vector<double> copyMs;
    for (qint64 i = 0; i < frames; ++i) {
        const auto start = Clock::now();
        std::memcpy(to.data(), from.data(), frameBytes);
        copyMs.push_back(millisecondsSince(start));
    }
    double floorTotal = 0;
    for (double ms : floorMs) floorTotal += ms;
    const QJsonObject stages = timeStages(app, frames);

    const double p50 = percentile(frameMs, 0.5);
    const double floorP50 = percentile(floorMs, 0.5);
    QJsonObject result{
        {QStringLiteral("width"), context.width()},
        {QStringLiteral("height"), context.height()},
        {QStringLiteral("chain"), LVChainDescription(app)},
        {QStringLiteral("floor_fps"), round3(double(frames) * 1000.0 / floorTotal)},
        {QStringLiteral("floor_p50_ms"), round3(floorP50)},
        {QStringLiteral("floor_p99_ms"), round3(percentile(floorMs, 0.99))},
        {QStringLiteral("memcpy_p50_ms"), round3(percentile(copyMs, 0.5))},
        {QStringLiteral("ratio_to_floor"), round3(floorP50 > 0 ? p50 / floorP50 : 0)},
        {QStringLiteral("frames"), frames},
        {QStringLiteral("fps"), round3(double(frames) * 1000.0 / totalMs)},
        {QStringLiteral("p50_ms"), round3(p50)},
        {QStringLiteral("p99_ms"), round3(percentile(frameMs, 0.99))},
        {QStringLiteral("stages_p50_ms"), stages},
    };
    return result;
}

} // namespace

void LVLoadEmbeddedDefault(Lumaveil& app)
{
    app.setNamedSource(QStringLiteral("Test Pattern"));
    const QStringList effects = factoryNames(app.effects());
    for (const QString& overlay : {QStringLiteral("Clock"), QStringLiteral("Title")}) {
        if (effects.contains(overlay)) {
            app.addNamedEffect(overlay);
            break;
        }
    }
}

bool LVSourceForFiles(Lumaveil& app, const QStringList& files, LVEffectRef* source, QString* error)
{
    for (const QString& path : files) {
        const QFileInfo file(path);
        if (!file.exists()) {
            *error = QStringLiteral("file %1 does not exist").arg(path);
            return false;
        }
        if (!file.isFile()) {
            *error = QStringLiteral("%1 is not a regular file").arg(path);
            return false;
        }
    }
    QStringList absolute;
    for (const QString& path : files) absolute.append(QFileInfo(path).absoluteFilePath());
    *source = app.quickEffectFromFiles(absolute, true);
    if (!*source) {
        *error = QStringLiteral("--play takes movies or images, not both and nothing else (%1)").arg(files.join(QStringLiteral(", ")));
        return false;
    }
    return true;
}

QString LVChainDescription(const Lumaveil& app)
{
    QStringList names;
    for (const auto& effect : app.liveEffects()) names.append(effect->displayName());
    return names.isEmpty() ? QStringLiteral("(empty)") : names.join(QStringLiteral(" > "));
}

bool LVBuildChain(Lumaveil& app, const LVCommandLine& commandLine, QString* error)
{
    if (!commandLine.restoreChain.isEmpty()) {
        QString why;
        if (LVRestoreChain(app, commandLine.restoreChain, &why)) return true;
        // The restart itself went well; only the old chain is lost, so start as usual.
        std::fprintf(stderr, "lumaveil: the chain before the restart is lost: %s\n", qPrintable(why));
    }
    if (!commandLine.play.isEmpty() || !commandLine.source.isEmpty() || !commandLine.effects.isEmpty()) {
        // Every name is checked before anything is added, so a typo starts nothing.
        LVEffectRef played;
        if (!commandLine.play.isEmpty() && !LVSourceForFiles(app, commandLine.play, &played, error)) return false;
        const QStringList sources = factoryNames(app.sources());
        const QStringList effects = factoryNames(app.effects());
        if (!commandLine.source.isEmpty() && !sources.contains(commandLine.source)) {
            *error = LVUnknownNameMessage(QStringLiteral("source"), commandLine.source, sources);
            return false;
        }
        for (const QString& name : commandLine.effects) {
            if (!effects.contains(name)) {
                *error = LVUnknownNameMessage(QStringLiteral("effect"), name, effects);
                return false;
            }
        }
        if (played) app.setSource(played);
        if (!commandLine.source.isEmpty() && !app.setNamedSource(commandLine.source)) {
            *error = QStringLiteral("source \"%1\" could not be made").arg(commandLine.source);
            return false;
        }
        for (const QString& name : commandLine.effects) {
            if (!app.addNamedEffect(name)) {
                *error = QStringLiteral("effect \"%1\" could not be made").arg(name);
                app.clearEffects(true);
                return false;
            }
        }
        return true;
    }
    if (!commandLine.setup.isEmpty()) {
        const QString& setup = commandLine.setup;
        const QFileInfo file(setup);
        // Setup names never hold a slash; a path that is not there is a missing file, not a name.
        const bool looksLikePath = setup.contains(QLatin1Char('/')) || setup.endsWith(QStringLiteral(".json"));
        if (!file.exists() && looksLikePath) {
            *error = QStringLiteral("setup file %1 does not exist").arg(setup);
            return false;
        }
        if (file.exists() && !file.isFile()) {
            *error = QStringLiteral("setup file %1 is not a regular file").arg(setup);
            return false;
        }
        if (!file.isFile()) {
            if (app.loadNamedSetup(setup, false)) return true;
            *error = QStringLiteral("no readable saved setup named \"%1\"").arg(setup);
            return false;
        }
        if (!app.loadSetupAtPath(setup, false)) {
            *error = QStringLiteral("setup file %1 could not be loaded: it is not a saved setup").arg(setup);
            return false;
        }
        if (app.liveEffects().empty()) {
            *error = QStringLiteral("setup file %1 holds no effects: it is not a saved setup, or an empty one").arg(setup);
            return false;
        }
        return true;
    }
    app.applicationDidFinishLaunching();
    if (app.liveEffects().empty()) LVLoadEmbeddedDefault(app);
    return true;
}

int LVRunHeadless(const LVCommandLine& commandLine, const LVEffectFolders& folders, const QElapsedTimer& sinceStart)
{
    // From the start, so a signal during start-up still ends the run cleanly once the loop runs.
    LVQuitOnSignal quitOnSignal;
    LVDefaults& defaults = LVDefaults::standardUserDefaults();
    LVLaunchOptions options;
    options.videoSize = commandLine.videoSize;
    options.frameRate = commandLine.frameRate;
    options.startTimer = !commandLine.bench;
    options.noPublish = commandLine.noPublish;
    options.folders = folders;
    QString error;
    std::unique_ptr<Lumaveil> app = Lumaveil::create(defaults, options, &error);
    if (!app) {
        std::fprintf(stderr, "lumaveil: %s\n", qPrintable(error));
        return 1;
    }
    app->setSecondOutputMaker([] { return std::make_unique<LVPipeWireSecondOutput>(); });
    // Compositions compile beside the render loop; a benchmark times drawing, not compiling.
    if (!commandLine.bench) LVStartProgramBuilder();
    app->awakeFromNib();
    LVSetupManager setupManager(defaults, app->context());
    setupManager.startup();
    app->setSetupCatalog(&setupManager);
    // The studio refers to the setup manager: it goes first, however the job ends.
    struct StudioRemover {
        Lumaveil& app;
        ~StudioRemover() { app.setStudio(nullptr); }
    } studioRemover{*app};
    if (commandLine.studio) {
        auto studio = std::make_unique<LVStudio>(*app, setupManager);
        LVStudio* studioModel = studio.get();
        app->setStudio(std::move(studio));
        studioModel->startup();
    } else if (!LVBuildChain(*app, commandLine, &error)) {
        app->applicationWillTerminate();
        std::fprintf(stderr, "lumaveil: %s\n", qPrintable(error));
        return LVStopProgramBuilder(2);
    }

    const QString problem = app->publishingProblem();
    const QString destination =
        app->isNoVirtualDriver() ? QStringLiteral("nowhere (\"noVirtualDriver\" is on)")
        : !problem.isEmpty()     ? QStringLiteral("nowhere (%1)").arg(problem)
                                 : QStringLiteral("shared memory %1").arg(QString::fromStdString(app->shmem().names().control));
    const QString chain = commandLine.studio
                              ? QStringLiteral("studio with %1 buttons (set: %2)")
                                    .arg(LVStudio::of(*app)->studioButtons().size())
                                    .arg(setupManager.currentSet()->name().isEmpty() ? QStringLiteral("all setups")
                                                                                      : setupManager.currentSet()->name())
                              : LVChainDescription(*app);
    std::fprintf(stderr, "lumaveil: headless %dx%d at %d fps, chain: %s, frames to %s\n", app->context()->width(),
                 app->context()->height(), app->frameRate(), qPrintable(chain), qPrintable(destination));

    if (commandLine.bench) {
        const QJsonObject result = runBench(*app, commandLine.frames.value_or(300));
        app->applicationWillTerminate();
        printJson(result);
        return 0;
    }

    // Recording and streaming end properly (the file gets its end) before the controller goes,
    // and outlive everything that can start or stop them.
    LVBroadcaster broadcaster(*app, defaults);
    // Timelines and the user menu go before the studio they act on.
    LVAutomationParts automation(*app, defaults, setupManager);
    // Driven from outside by lumaveil-ctl and MIDI, like the window application.
    const std::unique_ptr<LVControlSurface> control = LVControlSurface::start(*app, LVStudio::of(*app));
    automation.addCommands(control->commands());
    LVRemoteControlService::Options remoteOptions;
    remoteOptions.forceEnabled = commandLine.remoteControl;
    remoteOptions.port = commandLine.remoteControlPort;
    remoteOptions.pagesFolder = LVRemoteWebFront::standardFolder();
    LVRemoteControlService remoteControl(*app, LVStudio::of(*app), remoteOptions);
    remoteControl.setHotkeys(&automation);
    LVAddBroadcastCommands(control->commands(), broadcaster);
    LVAddBroadcastRequests(remoteControl.requests(), broadcaster);
    LVTimeLineRecord::setSwitch([&broadcaster](bool start, QString* error) {
        return start ? broadcaster.startRecord(error) : broadcaster.stopRecord(error);
    });
    struct SwitchRemover {
        ~SwitchRemover() { LVTimeLineRecord::setSwitch(nullptr); }
    } switchRemover;
    if (!commandLine.record.isEmpty() && !broadcaster.startRecord(&error, commandLine.record)) {
        app->applicationWillTerminate();
        std::fprintf(stderr, "lumaveil: cannot record: %s\n", qPrintable(error));
        return LVStopProgramBuilder(2);
    }
    if (!commandLine.stream.isEmpty() && !broadcaster.startStream(&error, commandLine.stream)) {
        app->applicationWillTerminate();
        std::fprintf(stderr, "lumaveil: cannot stream: %s\n", qPrintable(error));
        return LVStopProgramBuilder(2);
    }

    qint64 firstFrameMs = -1;
    const qint64 limit = commandLine.frames.value_or(0);
    const auto runStart = Clock::now();
    QObject::connect(app.get(), &Lumaveil::frameRendered, app.get(), [&](qint64 index) {
        if (firstFrameMs < 0) firstFrameMs = sinceStart.elapsed();
        if (limit > 0 && index >= limit) QCoreApplication::quit();
    });
    QCoreApplication::exec();
    const double seconds = millisecondsSince(runStart) / 1000.0;
    app->applicationWillTerminate();

    std::vector<double> lateness;
    for (float ms : app->frameStartLateness()) lateness.push_back(std::abs(double(ms)));
    QJsonObject summary{
        {QStringLiteral("frames"), app->framesRendered()},
        {QStringLiteral("seconds"), round3(seconds)},
        {QStringLiteral("fps"), round3(seconds > 0 ? double(app->framesRendered()) / seconds : 0)},
        {QStringLiteral("first_frame_ms"), firstFrameMs},
        {QStringLiteral("late_p50_ms"), round3(percentile(lateness, 0.5))},
        {QStringLiteral("late_p99_ms"), round3(percentile(lateness, 0.99))},
    };
    if (LVQuitOnSignal::receivedSignal() != 0) summary.insert(QStringLiteral("signal"), LVQuitOnSignal::receivedSignal());
    printJson(summary);
    return LVStopProgramBuilder(0);
}

void LVStartProgramBuilder()
{
    QString error;
    if (!LVISFProgramBuilder::startWorker(&error)) LVLog("Compositions compile on the render thread: %s", qPrintable(error));
}

int LVStopProgramBuilder(int status)
{
    // A shader the driver is still compiling cannot be interrupted; quitting must not wait
    // for it, and nothing may tear the driver down under it.
    if (!LVISFProgramBuilder::stopWorker(2.0)) {
        LVLog("A composition was still compiling at quit; left unfinished");
        std::fflush(stdout);
        std::fflush(stderr);
        _exit(status);
    }
    return status;
}
