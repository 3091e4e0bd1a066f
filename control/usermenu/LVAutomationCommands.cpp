#include "control/usermenu/LVAutomationCommands.h"

#include "automation/LVTimeLineManager.h"
#include "control/remote/LVControlCommands.h"
#include "control/remote/LVControlServer.h"
#include "control/usermenu/LVUserMenu.h"

#include <QJsonArray>

#include <cmath>
#include <functional>

namespace {

using TimeLineChange = std::function<void(LVTimeLine&)>;

LVControlCommands::Command timeLineCommand(LVTimeLineManager& timeLines, TimeLineChange change)
{
    return [&timeLines, change](const QJsonObject& request) {
        QString error;
        const std::optional<QString> name = LVControlCommands::stringArgument(request, QStringLiteral("name"), &error);
        if (!name) return LVControlError(error);
        LVTimeLine* timeLine = timeLines.timeLineWithName(*name);
        if (!timeLine) return LVControlError(QStringLiteral("no timeline named \"%1\"").arg(*name));
        change(*timeLine);
        return LVControlResult(QJsonObject{{QStringLiteral("name"), timeLine->name()},
                                           {QStringLiteral("state"), int(timeLine->state())}});
    };
}

} // namespace

void LVAddAutomationCommands(LVControlCommands& commands, LVTimeLineManager& timeLines, LVUserMenu& userMenu)
{
    commands.addCommand(QStringLiteral("timelines"), [&timeLines](const QJsonObject&) {
        QJsonArray list;
        for (const auto& timeLine : timeLines.allTimeLines()) {
            list.append(QJsonObject{{QStringLiteral("name"), timeLine->name()},
                                    {QStringLiteral("state"), int(timeLine->state())}});
        }
        return LVControlResult(list);
    });
    commands.addCommand(QStringLiteral("startTimeline"),
                        timeLineCommand(timeLines, [](LVTimeLine& timeLine) { timeLine.setRunning(true); }));
    commands.addCommand(QStringLiteral("stopTimeline"),
                        timeLineCommand(timeLines, [](LVTimeLine& timeLine) { timeLine.setRunning(false); }));
    commands.addCommand(QStringLiteral("pauseTimeline"),
                        timeLineCommand(timeLines, [](LVTimeLine& timeLine) { timeLine.setPaused(true); }));

    commands.addCommand(QStringLiteral("userMenu"), [&userMenu](const QJsonObject&) {
        QJsonArray list;
        for (const LVUserMenu::Listing& entry : userMenu.listing()) {
            list.append(QJsonObject{{QStringLiteral("index"), entry.index},
                                    {QStringLiteral("summary"), entry.summary},
                                    {QStringLiteral("shortcut"), entry.shortcut},
                                    {QStringLiteral("exclusive"), entry.exclusive}});
        }
        return LVControlResult(list);
    });
    commands.addCommand(QStringLiteral("invokeUserMenu"), [&userMenu](const QJsonObject& request) {
        const QJsonValue index = request.value(QStringLiteral("index"));
        const double number = index.toDouble(-1);
        if (!index.isDouble() || number != std::floor(number)) {
            return LVControlError(QStringLiteral("invokeUserMenu takes \"index\", a whole number"));
        }
        const int at = int(number);
        const LVUserMenuItem* entry = number >= 0 && number < 1e9 ? userMenu.entryAt(at) : nullptr;
        if (!entry) {
            return LVControlError(QStringLiteral("no user menu entry at index %1 (there are %2)")
                                      .arg(index.toDouble())
                                      .arg(userMenu.entries().size()));
        }
        if (!userMenu.invokeEntry(at)) return LVControlError(QStringLiteral("user menu entry %1 has no action").arg(at));
        return LVControlResult(QJsonObject{{QStringLiteral("index"), at},
                                           {QStringLiteral("summary"), entry->action()->summary()}});
    });
}
