#pragma once
// A controller for a benchmark: preferences in the benchmark's own folder, no user or system
// effects, and only the bundled folder it names (none when empty), so runs compare like with like.
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"

#include <QDir>
#include <QString>

#include <cstdio>
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

inline std::unique_ptr<Lumaveil> lvStartBenchApp(LVDefaults& defaults, const QDir& dir, LVLaunchOptions options,
                                                 const char* benchName, const QString& bundled = {})
{
    const QString none = dir.filePath(QStringLiteral("none"));
    options.folders.bundled = bundled.isEmpty() ? none : bundled;
    options.folders.user = none;
    options.folders.system = none;
    QString error;
    std::unique_ptr<Lumaveil> app = Lumaveil::create(defaults, options, &error);
    if (!app) {
        std::fprintf(stderr, "%s: %s\n", benchName, qPrintable(error));
        return nullptr;
    }
    app->awakeFromNib();
    return app;
}
