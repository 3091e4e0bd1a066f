#include "core/LVKeyedArchive.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>

namespace {

// One value as compact JSON text, escaped as the JSON writer escapes it.
QByteArray jsonText(const QJsonValue& value)
{
    const QByteArray array = QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact);
    return array.mid(1, array.size() - 2);
}

} // namespace

void LVKeyedArchiver::encodeValue(const QString& key, const QJsonValue& value)
{
    if (!object_.contains(key)) order_.append(key);
    object_.insert(key, value);
}

void LVKeyedArchiver::encodeData(const QString& key, const QByteArray& value)
{
    encodeValue(key, QString::fromLatin1(value.toBase64()));
}

QByteArray LVKeyedArchiver::finishEncoding() const
{
    // QJsonObject sorts its keys; the object is written by hand to keep the encoding order.
    QByteArray bytes("{");
    for (const QString& key : order_) {
        if (bytes.size() > 1) bytes += ',';
        bytes += jsonText(key);
        bytes += ':';
        bytes += jsonText(object_.value(key));
    }
    bytes += '}';
    return bytes;
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
