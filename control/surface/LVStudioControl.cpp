#include "control/surface/LVStudioControl.h"

#include "control/remote/LVControlCommands.h"
#include "control/remote/LVControlServer.h"
#include "studio/LVStudio.h"

#include <QJsonArray>

#include <algorithm>
#include <cmath>

namespace {

using ButtonAction = void (LVStudioButton::*)();

const std::pair<const char*, ButtonAction> buttonActions[] = {
    {"toggle", &LVStudioButton::doNormalToggle},
    {"selectForAir", &LVStudioButton::selectForAir},
    {"selectForOffAir", &LVStudioButton::selectForOffAir},
    {"punchToAir", &LVStudioButton::punchToAir},
    {"punchToOffAir", &LVStudioButton::punchToOffAir},
};

QStringList buttonActionNames()
{
    QStringList names;
    for (const auto& [name, action] : buttonActions) names.append(QLatin1String(name));
    return names;
}

// Grid order, so a panel can lay the list out as it comes.
QJsonArray buttonList(const LVStudio& studio)
{
    QJsonArray list;
    for (const LVStudioButton* button : studio.buttonsInGridOrder()) {
        list.append(QJsonObject{
            {QStringLiteral("name"), button->name()},
            {QStringLiteral("uid"), button->uid()},
            {QStringLiteral("state"), int(button->state())},
            {QStringLiteral("row"), button->row()},
            {QStringLiteral("col"), button->col()},
            {QStringLiteral("hasVideoSource"), button->hasVideoSource()},
        });
    }
    return list;
}

LVControlCommands::Command plainCommand(LVStudio& studio, void (LVStudio::*operation)())
{
    return [&studio, operation](const QJsonObject&) {
        (studio.*operation)();
        return LVControlResult(QJsonValue::Undefined);
    };
}

} // namespace

void LVAddStudioCommands(LVControlCommands& commands, LVStudio& studio)
{
    commands.addCommand(QStringLiteral("cut"), plainCommand(studio, &LVStudio::doCut));
    commands.addCommand(QStringLiteral("startTransition"), plainCommand(studio, &LVStudio::doTransition));
    commands.addCommand(QStringLiteral("studioDissolve"), plainCommand(studio, &LVStudio::doDissolve));
    commands.addCommand(QStringLiteral("button"), [&studio](const QJsonObject& request) {
        QString error;
        const auto name = LVControlCommands::stringArgument(request, QStringLiteral("name"), &error);
        if (!name) return LVControlError(error);
        const auto actionName = LVControlCommands::stringArgument(request, QStringLiteral("action"), &error);
        if (!actionName) return LVControlError(error);
        const auto action = std::find_if(std::begin(buttonActions), std::end(buttonActions),
                                         [&](const auto& entry) { return *actionName == QLatin1String(entry.first); });
        if (action == std::end(buttonActions)) {
            return LVControlError(QStringLiteral("unknown button action \"%1\"; one of: %2")
                                      .arg(*actionName, buttonActionNames().join(QStringLiteral(", "))));
        }
        const LVStudioButtonRef button = studio.buttonHavingName(*name);
        if (!button) return LVControlError(QStringLiteral("no studio button named \"%1\"").arg(*name));
        ((*button).*(action->second))();
        return LVControlResult(QJsonValue::Undefined);
    });

    commands.addProperty(QStringLiteral("studioButtons"), [&studio] { return QJsonValue(buttonList(studio)); });
    commands.addProperty(
        QStringLiteral("studioSwapMode"), [&studio] { return QJsonValue(studio.isSwapMode()); },
        [&studio](const QJsonValue& value) {
            if (!value.isBool()) return QStringLiteral("studioSwapMode takes true or false");
            studio.setSwapMode(value.toBool());
            return QString();
        });
    commands.addProperty(
        QStringLiteral("studioNamedTransition"), [&studio] { return QJsonValue(studio.namedTransition()); },
        [&studio](const QJsonValue& value) {
            if (!value.isString()) return QStringLiteral("studioNamedTransition takes a transition's name");
            if (!studio.setNamedTransition(value.toString())) {
                return QStringLiteral("no transition named \"%1\"; known transitions: %2")
                    .arg(value.toString(), studio.transitionNames().join(QStringLiteral(", ")));
            }
            return QString();
        });
    commands.addProperty(
        QStringLiteral("studioTransitionTime"), [&studio] { return QJsonValue(studio.transitionTime()); },
        [&studio](const QJsonValue& value) {
            if (!value.isDouble() || !studio.setTransitionTime(value.toDouble())) {
                return QStringLiteral("studioTransitionTime takes a number of seconds above zero");
            }
            return QString();
        });
    commands.addProperty(QStringLiteral("studioTransitions"),
                         [&studio] { return QJsonValue(QJsonArray::fromStringList(studio.transitionNames())); });
    commands.addProperty(QStringLiteral("studioPreviewButtons"),
                         [&studio] { return QJsonValue(QJsonArray::fromStringList(studio.previewButtonNames())); });
    commands.addProperty(QStringLiteral("studioProgramButtons"),
                         [&studio] { return QJsonValue(QJsonArray::fromStringList(studio.programButtonNames())); });
    commands.addProperty(QStringLiteral("studioTransition"), [&studio] {
        return QJsonValue(QJsonObject{
            {QStringLiteral("running"), studio.isTransitionRunning()},
            {QStringLiteral("fraction"), studio.transitionFraction()},
        });
    });
}
