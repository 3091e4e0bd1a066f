#pragma once
// The timelines and the user menu as the composition root wires them: the controller owns
// the timelines (started at once), the user menu takes the controller's key presses, and the
// control interface gains their commands; the remote control lists the user menu's entries
// as hotkeys.
#include "control/websocket/LVRemoteHotkeys.h"

#include <memory>

class LVControlCommands;
class LVDefaults;
class LVSetupManager;
class LVTimeLineManager;
class LVUserMenu;
class Lumaveil;

class LVAutomationParts : public LVRemoteHotkeys {
public:
    // The setup manager must outlive the parts.
    LVAutomationParts(Lumaveil& app, LVDefaults& defaults, LVSetupManager& setups);
    // Lets go of the key path and the timelines, before the studio goes.
    ~LVAutomationParts() override;

    LVTimeLineManager& timeLines() const { return *timeLines_; }
    LVUserMenu& userMenu() const { return *userMenu_; }
    void addCommands(LVControlCommands& commands);

    // A hotkey is a user menu entry with an action, named by its summary.
    QStringList hotkeyNames() const override;
    bool triggerHotkey(const QString& name) override;

private:
    Lumaveil& app_;
    LVTimeLineManager* timeLines_;
    std::unique_ptr<LVUserMenu> userMenu_;
};
