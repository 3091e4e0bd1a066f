#pragma once
// Checking a request's fields: one failure response per missing or mistyped field.
#include "control/websocket/LVRemoteProtocol.h"

#include <QJsonObject>
#include <QJsonValue>

namespace LVRemote {

// A required field of a type; a failure response when it is missing or of another type.
template <class Check>
inline bool requireField(const QJsonObject& data, const char* field, Check isType, const char* typeName,
                         Response* failure)
{
    const QJsonValue value = data.value(QString::fromLatin1(field));
    if (value.isUndefined() || value.isNull()) {
        *failure = Response::failure(MissingRequestField, QStringLiteral("Your request is missing the `%1` field.").arg(QString::fromLatin1(field)));
        return false;
    }
    if (!isType(value)) {
        *failure = Response::failure(InvalidRequestFieldType,
                                     QStringLiteral("The field `%1` must be %2.").arg(QString::fromLatin1(field), QString::fromLatin1(typeName)));
        return false;
    }
    return true;
}

inline bool isString(const QJsonValue& value) { return value.isString(); }
inline bool isNumber(const QJsonValue& value) { return value.isDouble(); }
inline bool isBool(const QJsonValue& value) { return value.isBool(); }

} // namespace LVRemote
