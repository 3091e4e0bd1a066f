#pragma once
// A controller with a studio over a private setups folder; a benchmark adds the setups it
// shows and drives the studio from inside or outside (control socket, remote control).
#include "bench/support/LVBenchApp.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"

#include <algorithm>
#include <utility>
#include <vector>

struct LVBenchStudio : LVBenchApp {
    std::unique_ptr<LVSetupManager> setups;
    LVStudio* studio = nullptr;

    LVBenchStudio(const char* benchName, const LVLaunchOptions& options, const QString& bundled = {})
        : LVBenchApp(benchName, options, bundled)
    {
        // No first-run offer: a window bench measures the window, not a dialog over it.
        defaults->setValue("seenStudio", true);
        setups = std::make_unique<LVSetupManager>(*defaults, app->context(), dir.filePath("Saved Setups"));
        setups->startup();
        app->setSetupCatalog(setups.get());
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

    // Saves a setup of that chain; its button, or exits when there is none.
    LVStudioButtonRef addSetup(const QString& name, const std::vector<LVEffectRef>& chain)
    {
        setups->newSavedSetupWithName(name, chain);
        LVStudioButtonRef button = studio->buttonHavingName(name);
        if (!button || std::count(chain.begin(), chain.end(), nullptr) || button->effects().size() != chain.size()) {
            std::fprintf(stderr, "setup %s could not be made\n", qPrintable(name));
            std::exit(1);
        }
        return button;
    }

    // A setup of the Test Pattern (when withSource) followed by the named effects.
    LVStudioButtonRef addNamedSetup(const QString& name, bool withSource, const QStringList& effects)
    {
        std::vector<LVEffectRef> chain;
        if (withSource) chain.push_back(app->instantiateNamedSource(QStringLiteral("Test Pattern")));
        for (const QString& effect : effects) chain.push_back(app->instantiateNamedEffect(effect));
        return addSetup(name, chain);
    }
};
