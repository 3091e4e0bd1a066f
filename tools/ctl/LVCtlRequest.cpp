#include "tools/ctl/LVCtlRequest.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

const QStringList buttonActions = {
    QStringLiteral("toggle"),     QStringLiteral("selectForAir"),  QStringLiteral("selectForOffAir"),
    QStringLiteral("punchToAir"), QStringLiteral("punchToOffAir"),
};
const QStringList plainCommands = {QStringLiteral("cut"), QStringLiteral("startTransition"),
                                   QStringLiteral("studioDissolve"), QStringLiteral("timelines"),
                                   QStringLiteral("userMenu"), QStringLiteral("stopRecord"),
                                   QStringLiteral("stopStream")};
const QStringList namedCommands = {QStringLiteral("addEffect"), QStringLiteral("setSource"),
                                   QStringLiteral("startTimeline"), QStringLiteral("stopTimeline"),
                                   QStringLiteral("pauseTimeline")};

// "2.5" a number, "true" a boolean, "\"x\"" a string; anything that is not JSON is the text itself.
QJsonValue valueFromArgument(const QString& argument)
{
    const QJsonDocument document = QJsonDocument::fromJson(QByteArrayLiteral("[") + argument.toUtf8() + ']');
    if (document.isArray() && document.array().size() == 1) return document.array().first();
    return argument;
}

QString scalarText(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Bool: return value.toBool() ? QStringLiteral("true") : QStringLiteral("false");
    case QJsonValue::Double: return QString::number(value.toDouble());
    case QJsonValue::String: return value.toString();
    case QJsonValue::Null: return QStringLiteral("null");
    default: return QString::fromUtf8(QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact)).mid(1).chopped(1);
    }
}

// One line per element; objects as key=value pairs.
QString resultText(const QJsonValue& result)
{
    if (result.isUndefined()) return {};
    if (!result.isArray() && !result.isObject()) return scalarText(result) + QLatin1Char('\n');
    const QJsonArray items = result.isArray() ? result.toArray() : QJsonArray{result};
    QString text;
    for (const QJsonValue& item : items) {
        if (item.isObject()) {
            QStringList pairs;
            const QJsonObject object = item.toObject();
            for (auto it = object.begin(); it != object.end(); ++it) {
                pairs.append(it.key() + QLatin1Char('=') + scalarText(it.value()));
            }
            text += pairs.join(QLatin1Char(' '));
        } else {
            text += scalarText(item);
        }
        text += QLatin1Char('\n');
    }
    return text;
}

} // namespace

QString LVCtlUsage()
{
    return QStringLiteral(
        "usage: lumaveil-ctl [--json] COMMAND [ARGUMENTS]\n"
        "  get PROPERTY                 liveEffects, studioButtons, studioSwapMode, studioNamedTransition,\n"
        "                               studioTransitionTime, studioPreviewButtons, studioProgramButtons,\n"
        "                               studioTransition, studioTransitions\n"
        "  set PROPERTY VALUE           e.g. set studioTransitionTime 2.5\n"
        "  addEffect NAME | setSource NAME | loadSetup NAME [--merge]\n"
        "  cut | startTransition | studioDissolve\n"
        "  button NAME toggle|selectForAir|selectForOffAir|punchToAir|punchToOffAir\n"
        "  timelines | startTimeline NAME | stopTimeline NAME | pauseTimeline NAME\n"
        "  userMenu | invokeUserMenu INDEX\n"
        "  startRecord [FILE] | stopRecord | get recordStatus\n"
        "  startStream [URL] | stopStream | get streamStatus\n"
        "  --json                       print the raw reply\n"
        "exit status: 0 done, 1 the command failed, 2 no Lumaveil is running\n");
}

std::optional<LVCtlInvocation> LVCtlParseArguments(const QStringList& arguments, QString* error)
{
    LVCtlInvocation invocation;
    QStringList words;
    bool merge = false;
    for (const QString& argument : arguments) {
        if (argument == QLatin1String("--json")) {
            invocation.rawJson = true;
        } else if (argument == QLatin1String("--merge")) {
            merge = true;
        } else {
            words.append(argument);
        }
    }
    if (words.isEmpty()) {
        *error = QStringLiteral("no command given");
        return std::nullopt;
    }
    const QString command = words.takeFirst();
    auto expect = [&](qsizetype count, const char* shape) {
        if (words.size() == count) return true;
        *error = QStringLiteral("%1 takes %2").arg(command, QLatin1String(shape));
        return false;
    };
    QJsonObject& request = invocation.request;
    request.insert(QStringLiteral("command"), command);
    if (merge && command != QLatin1String("loadSetup")) {
        *error = QStringLiteral("--merge belongs to loadSetup");
        return std::nullopt;
    }
    if (command == QLatin1String("get")) {
        if (!expect(1, "one property name")) return std::nullopt;
        request.insert(QStringLiteral("property"), words[0]);
    } else if (command == QLatin1String("set")) {
        if (!expect(2, "a property name and a value")) return std::nullopt;
        request.insert(QStringLiteral("property"), words[0]);
        request.insert(QStringLiteral("value"), valueFromArgument(words[1]));
    } else if (command == QLatin1String("loadSetup")) {
        if (!expect(1, "one setup name (and --merge)")) return std::nullopt;
        request.insert(QStringLiteral("name"), words[0]);
        request.insert(QStringLiteral("merge"), merge);
    } else if (namedCommands.contains(command)) {
        if (!expect(1, "one name")) return std::nullopt;
        request.insert(QStringLiteral("name"), words[0]);
    } else if (plainCommands.contains(command)) {
        if (!expect(0, "no arguments")) return std::nullopt;
    } else if (command == QLatin1String("startRecord") || command == QLatin1String("startStream")) {
        // Without an argument the preferences say where.
        if (words.size() > 1) {
            *error = QStringLiteral("%1 takes at most one %2").arg(command, command == QLatin1String("startRecord") ? "file" : "URL");
            return std::nullopt;
        }
        if (!words.isEmpty()) request.insert(command == QLatin1String("startRecord") ? QStringLiteral("path") : QStringLiteral("url"), words[0]);
    } else if (command == QLatin1String("invokeUserMenu")) {
        if (!expect(1, "one entry index")) return std::nullopt;
        bool number = false;
        const int index = words[0].toInt(&number);
        if (!number || index < 0) {
            *error = QStringLiteral("invokeUserMenu takes an entry index (0, 1, ...), not \"%1\"").arg(words[0]);
            return std::nullopt;
        }
        request.insert(QStringLiteral("index"), index);
    } else if (command == QLatin1String("button")) {
        if (!expect(2, "a button name and an action")) return std::nullopt;
        if (!buttonActions.contains(words[1])) {
            *error = QStringLiteral("unknown button action \"%1\"; one of: %2")
                         .arg(words[1], buttonActions.join(QStringLiteral(", ")));
            return std::nullopt;
        }
        request.insert(QStringLiteral("name"), words[0]);
        request.insert(QStringLiteral("action"), words[1]);
    } else {
        *error = QStringLiteral("unknown command \"%1\"").arg(command);
        return std::nullopt;
    }
    return invocation;
}

LVCtlOutcome LVCtlInterpretReply(const QByteArray& reply, bool rawJson)
{
    LVCtlOutcome outcome;
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(reply, &parseError);
    if (parseError.error != QJsonParseError::NoError || !document.isObject() ||
        !document.object().value(QStringLiteral("ok")).isBool()) {
        outcome.err = QStringLiteral("lumaveil-ctl: unreadable reply from Lumaveil\n");
        outcome.status = LVCtlFailed;
        return outcome;
    }
    const QJsonObject object = document.object();
    const bool ok = object.value(QStringLiteral("ok")).toBool();
    outcome.status = ok ? LVCtlSuccess : LVCtlFailed;
    if (rawJson) {
        outcome.out = QString::fromUtf8(reply.trimmed()) + QLatin1Char('\n');
    } else if (ok) {
        outcome.out = resultText(object.value(QStringLiteral("result")));
    } else {
        outcome.err = QStringLiteral("lumaveil-ctl: %1\n").arg(object.value(QStringLiteral("error")).toString());
    }
    return outcome;
}
