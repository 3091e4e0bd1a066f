#include "app/LVAutomationParts.h"

#include "automation/LVTimeLineManager.h"
#include "control/usermenu/LVAutomationCommands.h"
#include "control/usermenu/LVUserMenu.h"
#include "core/Lumaveil.h"

LVAutomationParts::LVAutomationParts(Lumaveil& app, LVDefaults& defaults, LVSetupManager& setups) : app_(app)
{
    auto timeLines = std::make_unique<LVTimeLineManager>(defaults, &app, &setups);
    timeLines_ = timeLines.get();
    app.setTimeLineManager(std::move(timeLines));
    userMenu_ = std::make_unique<LVUserMenu>(defaults, LVUserMenuTargets{&app, timeLines_}, &setups);
    userMenu_->awakeFromNib();
    userMenu_->bootstrap();
    app.setKeyDispatcher(userMenu_.get());
}

LVAutomationParts::~LVAutomationParts()
{
    app_.setKeyDispatcher(nullptr);
    userMenu_.reset();
    app_.setTimeLineManager(nullptr);
}

void LVAutomationParts::addCommands(LVControlCommands& commands)
{
    LVAddAutomationCommands(commands, *timeLines_, *userMenu_);
}
