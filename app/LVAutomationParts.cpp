#include "app/LVAutomationParts.h"

#include "automation/LVTimeLine.h"
#include "automation/LVTimeLineManager.h"
#include "control/usermenu/LVAutomationCommands.h"
#include "control/usermenu/LVUserMenu.h"
#include "core/Lumaveil.h"
#include "sources/movie/MovieSource.h"

LVAutomationParts::LVAutomationParts(Lumaveil& app, LVDefaults& defaults, LVSetupManager& setups) : app_(app)
{
    auto timeLines = std::make_unique<LVTimeLineManager>(defaults, &app, &setups);
    timeLines_ = timeLines.get();
    app.setTimeLineManager(std::move(timeLines));
    userMenu_ = std::make_unique<LVUserMenu>(defaults, LVUserMenuTargets{&app, timeLines_}, &setups);
    userMenu_->awakeFromNib();
    userMenu_->bootstrap();
    app.setKeyDispatcher(userMenu_.get());
    // A movie playlist that ends can start a timeline by name.
    MovieSource::setTimeLineRunner([timeLines = timeLines_](const QString& name) {
        LVTimeLine* timeLine = timeLines->timeLineWithName(name);
        if (timeLine) timeLine->setRunning(true);
        return timeLine != nullptr;
    });
}

LVAutomationParts::~LVAutomationParts()
{
    MovieSource::setTimeLineRunner(nullptr);
    app_.setKeyDispatcher(nullptr);
    userMenu_.reset();
    app_.setTimeLineManager(nullptr);
}

void LVAutomationParts::addCommands(LVControlCommands& commands)
{
    LVAddAutomationCommands(commands, *timeLines_, *userMenu_);
}

QStringList LVAutomationParts::hotkeyNames() const
{
    QStringList names;
    for (const LVUserMenu::Listing& entry : userMenu_->listing()) {
        if (!entry.summary.isEmpty()) names << entry.summary;
    }
    return names;
}

bool LVAutomationParts::triggerHotkey(const QString& name)
{
    for (const LVUserMenu::Listing& entry : userMenu_->listing()) {
        if (!entry.summary.isEmpty() && entry.summary == name) return userMenu_->invokeEntry(entry.index);
    }
    return false;
}
