#pragma once
// The setups windows and what the main window calls to show them.
//
//   LVSetupsHost host;
//   host.liveEffects = [&] { return app.liveEffects(); };
//   host.selectedRows = [&] { return chainView.selectedRows(); };
//   host.addEffectsFrom = [&](auto effects, bool merge) { app.addEffectsFrom(effects, merge, false); };
//   host.context = app.context();
//   host.defaults = &app.defaults();
//   LVShowSavedSetupsWindow(setupManager, host, mainWindow);
#include "core/LVProxy.h"

#include <QString>

#include <functional>
#include <vector>

class LVContext;
class LVDefaults;
class LVSavedSetup;
class LVSavedSetupsWindow;
class LVSetupManager;
class LVSetupManagerController;
class QWidget;

// What the setups windows need from the application: the live chain, which of its rows
// are selected, and the way to put effects into it.
struct LVSetupsHost {
    std::function<std::vector<LVEffectRef>()> liveEffects;
    std::function<std::vector<int>()> selectedRows;
    // The controller's addEffectsFrom(effects, merge, ignoreSources = false).
    std::function<void(const std::vector<LVEffectRef>& effects, bool merge)> addEffectsFrom;
    LVContext* context = nullptr;
    // Holds "autoload".
    LVDefaults* defaults = nullptr;

    // Instantiates the setup with the render context and adds its effects.
    void loadSetup(const LVSavedSetup& setup, bool merge) const;
};

// Shows the saved-setups list (made on first call, then raised): load, merge, save,
// rename, remove, auto-load and the sets editor.
LVSavedSetupsWindow* LVShowSavedSetupsWindow(LVSetupManager& manager, const LVSetupsHost& host,
                                             QWidget* parent = nullptr);
// Opens the save dialog over parent, its name field holding prefillName.
void LVShowSaveSetupDialog(LVSetupManager& manager, const LVSetupsHost& host, QWidget* parent,
                           const QString& prefillName = {});
// Shows the sets editor (made on first call, then raised).
LVSetupManagerController* LVShowSetupSetsEditor(LVSetupManager& manager, QWidget* parent = nullptr);
