#pragma once
// A controller for a benchmark: preferences in the benchmark's own folder, no user or system
// effects, and only the bundled folder it names (none when empty), so runs compare like with like.
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"

#include <QDir>
#include <QString>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>
#include <memory>

// The size every benchmark's frames have, at frameRate.
inline LVLaunchOptions lvBenchOptions(bool startTimer, int frameRate = 30)
{
    LVLaunchOptions options;
    options.videoSize = QSize(1280, 720);
    options.frameRate = frameRate;
    options.startTimer = startTimer;
    return options;
}

struct LVBenchApp {
    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;

    // Exits when the controller cannot start.
    LVBenchApp(const char* benchName, LVLaunchOptions options, const QString& bundled = {})
        : defaults(std::make_unique<LVDefaults>(dir.filePath("prefs.json")))
    {
        const QString none = dir.filePath(QStringLiteral("none"));
        options.folders.bundled = bundled.isEmpty() ? none : bundled;
        options.folders.user = none;
        options.folders.system = none;
        QString error;
        app = Lumaveil::create(*defaults, options, &error);
        if (!app) {
            std::fprintf(stderr, "%s: %s\n", benchName, qPrintable(error));
            std::exit(1);
        }
        app->awakeFromNib();
    }
};
