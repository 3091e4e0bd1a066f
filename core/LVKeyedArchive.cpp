#include "core/LVKeyedArchive.h"

#include <QJsonDocument>
#include <QJsonParseError>

void LVKeyedArchiver::encodeData(const QString& key, const QByteArray& value)
{
    object_.insert(key, QString::fromLatin1(value.toBase64()));
}

QByteArray LVKeyedArchiver::finishEncoding() const
{
    return QJsonDocument(object_).toJson(QJsonDocument::Compact);
}

LVKeyedUnarchiver::LVKeyedUnarchiver(const QByteArray& data)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        error_ = QStringLiteral("not JSON (%1 at offset %2)").arg(parseError.errorString()).arg(parseError.offset);
    } else if (!document.isObject()) {
        error_ = QStringLiteral("not a JSON object");
    } else {
        object_ = document.object();
        valid_ = true;
    }
}

LVKeyedUnarchiver::LVKeyedUnarchiver(QJsonObject object) : object_(std::move(object)), valid_(true) {}

qint64 LVKeyedUnarchiver::decodeInt(const QString& key, qint64 fallback) const
{
    const QJsonValue value = object_.value(key);
    return value.isDouble() ? qint64(value.toDouble()) : fallback;
}

QByteArray LVKeyedUnarchiver::decodeData(const QString& key) const
{
    return QByteArray::fromBase64(object_.value(key).toString().toLatin1());
}
