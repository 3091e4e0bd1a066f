#pragma once
// The control interface's vocabulary: named commands and properties, each forwarding to
// the application controller (or, once added, the studio). Requests are JSON objects:
//   {"command": "get", "property": "liveEffects"}
//   {"command": "set", "property": "studioTransitionTime", "value": 2.5}
//   {"command": "loadSetup", "name": "Intro", "merge": true}
// and every reply is {"ok": true, "result": ...} or {"ok": false, "error": "..."}.
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <optional>

class Lumaveil;

class LVControlCommands {
public:
    using Command = std::function<QJsonObject(const QJsonObject& request)>;
    using Getter = std::function<QJsonValue()>;
    // Answers an error text, or an empty string once the value is applied.
    using Setter = std::function<QString(const QJsonValue& value)>;

    // The chain's commands and properties: liveEffects, addEffect, setSource, loadSetup.
    explicit LVControlCommands(Lumaveil& app);

    void addCommand(const QString& name, Command command);
    void addProperty(const QString& name, Getter getter, Setter setter = {});

    QJsonObject handle(const QJsonObject& request) const;

    QStringList commandNames() const;
    QStringList propertyNames() const;

    // A string argument; nothing, with error set, when it is missing or not a string.
    static std::optional<QString> stringArgument(const QJsonObject& request, const QString& key, QString* error);
    // An optional boolean argument (absent reads false); nothing, with error, for another type.
    static std::optional<bool> flagArgument(const QJsonObject& request, const QString& key, QString* error);

private:
    struct Property {
        Getter getter;
        Setter setter;
    };
    // The property a request names; nothing, with the error reply in failure, when it names none.
    const Property* findProperty(const QJsonObject& request, QJsonObject* failure) const;
    QJsonObject get(const QJsonObject& request) const;
    QJsonObject set(const QJsonObject& request) const;

    std::map<QString, Command> commands_;
    std::map<QString, Property> properties_;
};
