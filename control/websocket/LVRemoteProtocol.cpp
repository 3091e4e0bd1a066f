#include "control/websocket/LVRemoteProtocol.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QRandomGenerator>

namespace LVRemote {

namespace {

QByteArray base64Sha256(const QByteArray& bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toBase64();
}

} // namespace

QByteArray authenticationAnswer(const QString& password, const QByteArray& salt, const QByteArray& challenge)
{
    const QByteArray secret = base64Sha256(password.toUtf8() + salt);
    return base64Sha256(secret + challenge);
}

QByteArray randomToken()
{
    QByteArray bytes(32, Qt::Uninitialized);
    QRandomGenerator::system()->generate(reinterpret_cast<quint32*>(bytes.data()),
                                         reinterpret_cast<quint32*>(bytes.data() + bytes.size()));
    return bytes.toBase64();
}

QByteArray message(OpCode op, const QJsonObject& data)
{
    return QJsonDocument(QJsonObject{{QStringLiteral("op"), int(op)}, {QStringLiteral("d"), data}})
        .toJson(QJsonDocument::Compact);
}

QJsonObject statusObject(const Response& response)
{
    QJsonObject status{{QStringLiteral("result"), response.ok()}, {QStringLiteral("code"), response.code}};
    if (!response.comment.isEmpty()) status.insert(QStringLiteral("comment"), response.comment);
    return status;
}

QJsonObject responseBody(const QString& requestType, const QJsonValue& requestId, const Response& response)
{
    QJsonObject body{
        {QStringLiteral("requestType"), requestType},
        {QStringLiteral("requestStatus"), statusObject(response)},
    };
    if (!requestId.isUndefined()) body.insert(QStringLiteral("requestId"), requestId);
    if (response.ok() && !response.data.isEmpty()) body.insert(QStringLiteral("responseData"), response.data);
    return body;
}

} // namespace LVRemote
