#include "control/broadcast/LVBroadcastCommands.h"

#include "control/remote/LVControlCommands.h"
#include "control/remote/LVControlServer.h"
#include "outputs/record/LVBroadcaster.h"

namespace {

// An optional string argument: absent reads empty.
bool optionalString(const QJsonObject& request, const QString& key, QString* value, QString* error)
{
    if (!request.contains(key)) return true;
    const auto given = LVControlCommands::stringArgument(request, key, error);
    if (!given) return false;
    *value = *given;
    return true;
}

} // namespace

void LVAddBroadcastCommands(LVControlCommands& commands, LVBroadcaster& broadcaster)
{
    commands.addCommand(QStringLiteral("startRecord"), [&broadcaster](const QJsonObject& request) {
        QString path;
        QString error;
        if (!optionalString(request, QStringLiteral("path"), &path, &error) || !broadcaster.startRecord(&error, path)) {
            return LVControlError(error);
        }
        return LVControlResult(broadcaster.recordPath());
    });
    commands.addCommand(QStringLiteral("stopRecord"), [&broadcaster](const QJsonObject&) {
        QString error;
        if (!broadcaster.stopRecord(&error)) return LVControlError(error);
        return LVControlResult(broadcaster.recordPath());
    });
    commands.addCommand(QStringLiteral("startStream"), [&broadcaster](const QJsonObject& request) {
        QString url;
        QString error;
        if (!optionalString(request, QStringLiteral("url"), &url, &error) || !broadcaster.startStream(&error, url)) {
            return LVControlError(error);
        }
        return LVControlResult(broadcaster.streamTarget());
    });
    commands.addCommand(QStringLiteral("stopStream"), [&broadcaster](const QJsonObject&) {
        QString error;
        if (!broadcaster.stopStream(&error)) return LVControlError(error);
        return LVControlResult(QJsonValue::Undefined);
    });
    commands.addProperty(QStringLiteral("recordStatus"), [&broadcaster] { return QJsonValue(broadcaster.recordStatusObject()); });
    commands.addProperty(QStringLiteral("streamStatus"), [&broadcaster] { return QJsonValue(broadcaster.streamStatusObject()); });
}
