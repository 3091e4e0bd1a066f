#pragma once
// A controller with a studio of one-effect setups in a private folder, for the benchmarks
// that drive the studio from outside (control socket, remote control).
#include "bench/support/LVBenchApp.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"
#include "tests/app/LVTestKinds.h"

#include <QFile>
#include <QTemporaryDir>

#include <cstdlib>
#include <utility>
#include <vector>

struct LVBenchStudio {
    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;
    std::unique_ptr<LVSetupManager> setups;
    LVStudio* studio = nullptr;

    // namedKinds: (setup name, test kind of its one effect); privateRuntime: XDG_RUNTIME_DIR is
    // this folder from before the controller starts. Exits when the controller cannot start.
    LVBenchStudio(const char* benchName, const std::vector<std::pair<QString, QString>>& namedKinds,
                  const LVLaunchOptions& options, bool privateRuntime = false)
    {
        if (privateRuntime) qputenv("XDG_RUNTIME_DIR", QFile::encodeName(dir.path()));
        defaults = std::make_unique<LVDefaults>(dir.filePath("prefs.json"));
        app = lvStartBenchApp(*defaults, QDir(dir.path()), options, benchName);
        if (!app) std::exit(1);
        setups = std::make_unique<LVSetupManager>(*defaults, app->context(), dir.filePath("Saved Setups"));
        setups->startup();
        app->setSetupCatalog(setups.get());
        for (const auto& [name, className] : namedKinds) {
            setups->newSavedSetupWithName(name, {makeTestEffect(className, app->context())});
        }
        auto owned = std::make_unique<LVStudio>(*app, *setups);
        studio = owned.get();
        app->setStudio(std::move(owned));
        studio->startup();
    }

    ~LVBenchStudio()
    {
        app->applicationWillTerminate();
        app->setStudio(nullptr);
        setups.reset();
        app.reset();
    }
};
