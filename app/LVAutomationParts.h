#pragma once
// The timelines and the user menu as the composition root wires them: the controller owns
// the timelines (started at once), the user menu takes the controller's key presses, and the
// control interface gains their commands.
#include <memory>

class LVControlCommands;
class LVDefaults;
class LVSetupManager;
class LVTimeLineManager;
class LVUserMenu;
class Lumaveil;

class LVAutomationParts {
public:
    // The setup manager must outlive the parts.
    LVAutomationParts(Lumaveil& app, LVDefaults& defaults, LVSetupManager& setups);
    // Lets go of the key path and the timelines, before the studio goes.
    ~LVAutomationParts();

    LVTimeLineManager& timeLines() const { return *timeLines_; }
    LVUserMenu& userMenu() const { return *userMenu_; }
    void addCommands(LVControlCommands& commands);

private:
    Lumaveil& app_;
    LVTimeLineManager* timeLines_;
    std::unique_ptr<LVUserMenu> userMenu_;
};
