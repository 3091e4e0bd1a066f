#include "control/remote/LVControlCommands.h"

#include "control/remote/LVControlServer.h"
#include "core/Lumaveil.h"

#include <QJsonArray>

namespace {

QString typeName(const QJsonValue& value)
{
    switch (value.type()) {
    case QJsonValue::Null: return QStringLiteral("null");
    case QJsonValue::Bool: return QStringLiteral("a boolean");
    case QJsonValue::Double: return QStringLiteral("a number");
    case QJsonValue::String: return QStringLiteral("a string");
    case QJsonValue::Array: return QStringLiteral("an array");
    case QJsonValue::Object: return QStringLiteral("an object");
    case QJsonValue::Undefined: break;
    }
    return QStringLiteral("nothing");
}

QJsonObject effectEntry(const LVEffect& effect)
{
    return QJsonObject{
        {QStringLiteral("name"), effect.displayName()},
        {QStringLiteral("class"), effect.descriptor().className},
        {QStringLiteral("enabled"), effect.isEnabled()},
        {QStringLiteral("source"), effect.isSource()},
    };
}

// A command taking one "name" that answers "no <noun> named ..." when apply refuses it.
LVControlCommands::Command namedCommand(std::function<bool(const QString&)> apply, const QString& noun)
{
    return [apply = std::move(apply), noun](const QJsonObject& request) {
        QString error;
        const auto name = LVControlCommands::stringArgument(request, QStringLiteral("name"), &error);
        if (!name) return LVControlError(error);
        if (!apply(*name)) return LVControlError(QStringLiteral("no %1 named \"%2\"").arg(noun, *name));
        return LVControlResult(QJsonValue::Undefined);
    };
}

} // namespace

LVControlCommands::LVControlCommands(Lumaveil& app)
{
    addCommand(QStringLiteral("get"), [this](const QJsonObject& request) { return get(request); });
    addCommand(QStringLiteral("set"), [this](const QJsonObject& request) { return set(request); });
    addProperty(QStringLiteral("liveEffects"), [&app] {
        QJsonArray effects;
        for (const LVEffectRef& effect : app.liveEffects()) effects.append(effectEntry(*effect));
        return QJsonValue(effects);
    });
    addCommand(QStringLiteral("addEffect"),
               namedCommand([&app](const QString& name) { return app.addNamedEffect(name); }, QStringLiteral("effect")));
    addCommand(QStringLiteral("setSource"),
               namedCommand([&app](const QString& name) { return app.setNamedSource(name); }, QStringLiteral("source")));
    addCommand(QStringLiteral("loadSetup"), [&app](const QJsonObject& request) {
        QString error;
        const auto name = stringArgument(request, QStringLiteral("name"), &error);
        if (!name) return LVControlError(error);
        const auto merge = flagArgument(request, QStringLiteral("merge"), &error);
        if (!merge) return LVControlError(error);
        if (!app.loadNamedSetup(*name, *merge)) {
            return LVControlError(QStringLiteral("no saved setup named \"%1\" could be loaded").arg(*name));
        }
        return LVControlResult(QJsonValue::Undefined);
    });
}

void LVControlCommands::addCommand(const QString& name, Command command)
{
    commands_[name] = std::move(command);
}

void LVControlCommands::addProperty(const QString& name, Getter getter, Setter setter)
{
    properties_[name] = Property{std::move(getter), std::move(setter)};
}

QStringList LVControlCommands::commandNames() const
{
    QStringList names;
    for (const auto& [name, command] : commands_) names.append(name);
    return names;
}

QStringList LVControlCommands::propertyNames() const
{
    QStringList names;
    for (const auto& [name, property] : properties_) names.append(name);
    return names;
}

std::optional<QString> LVControlCommands::stringArgument(const QJsonObject& request, const QString& key,
                                                         QString* error)
{
    const QJsonValue value = request.value(key);
    if (value.isUndefined()) {
        *error = QStringLiteral("missing \"%1\" (a string)").arg(key);
        return std::nullopt;
    }
    if (!value.isString()) {
        *error = QStringLiteral("\"%1\" must be a string, not %2").arg(key, typeName(value));
        return std::nullopt;
    }
    return value.toString();
}

std::optional<bool> LVControlCommands::flagArgument(const QJsonObject& request, const QString& key, QString* error)
{
    const QJsonValue value = request.value(key);
    if (value.isUndefined()) return false;
    if (!value.isBool()) {
        *error = QStringLiteral("\"%1\" must be a boolean, not %2").arg(key, typeName(value));
        return std::nullopt;
    }
    return value.toBool();
}

QJsonObject LVControlCommands::handle(const QJsonObject& request) const
{
    QString error;
    const auto name = stringArgument(request, QStringLiteral("command"), &error);
    if (!name) return LVControlError(error);
    const auto command = commands_.find(*name);
    if (command == commands_.end()) {
        return LVControlError(QStringLiteral("unknown command \"%1\"; known commands: %2")
                                  .arg(*name, commandNames().join(QStringLiteral(", "))));
    }
    return command->second(request);
}

const LVControlCommands::Property* LVControlCommands::findProperty(const QJsonObject& request,
                                                                   QJsonObject* failure) const
{
    QString error;
    const auto name = stringArgument(request, QStringLiteral("property"), &error);
    if (!name) {
        *failure = LVControlError(error);
        return nullptr;
    }
    const auto property = properties_.find(*name);
    if (property == properties_.end()) {
        *failure = LVControlError(QStringLiteral("unknown property \"%1\"; known properties: %2")
                                      .arg(*name, propertyNames().join(QStringLiteral(", "))));
        return nullptr;
    }
    return &property->second;
}

QJsonObject LVControlCommands::get(const QJsonObject& request) const
{
    QJsonObject failure;
    const Property* property = findProperty(request, &failure);
    if (!property) return failure;
    return LVControlResult(property->getter());
}

QJsonObject LVControlCommands::set(const QJsonObject& request) const
{
    QJsonObject failure;
    const Property* property = findProperty(request, &failure);
    if (!property) return failure;
    if (!property->setter) {
        return LVControlError(QStringLiteral("property \"%1\" is read-only")
                                  .arg(request.value(QStringLiteral("property")).toString()));
    }
    const QJsonValue value = request.value(QStringLiteral("value"));
    if (value.isUndefined()) return LVControlError(QStringLiteral("\"set\" needs a \"value\""));
    const QString error = property->setter(value);
    if (!error.isEmpty()) return LVControlError(error);
    return LVControlResult(property->getter());
}
