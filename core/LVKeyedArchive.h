#pragma once
// The persisted form of an effect: one self-describing JSON object whose top-level
// keys are the effect's keys ("class", "enabled", "name", then each kind's own).
// Data blobs are stored as base64 strings.
#include <QByteArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>

class LVContext;

class LVKeyedArchiver {
public:
    void encodeValue(const QString& key, const QJsonValue& value);
    void encodeString(const QString& key, const QString& value) { encodeValue(key, value); }
    void encodeBool(const QString& key, bool value) { encodeValue(key, value); }
    void encodeInt(const QString& key, qint64 value) { encodeValue(key, value); }
    void encodeDouble(const QString& key, double value) { encodeValue(key, value); }
    void encodeData(const QString& key, const QByteArray& value);

    const QJsonObject& object() const { return object_; }
    // The keys in the order they were first encoded: the order they are written in.
    const QStringList& keys() const { return order_; }
    // Finishes encoding: the compact JSON bytes, keys in encoding order (a key encoded again
    // keeps its first place), so a setup file reads in each kind's own order.
    QByteArray finishEncoding() const;

private:
    QJsonObject object_;
    QStringList order_;
};

class LVKeyedUnarchiver {
public:
    // Parses data; isValid() tells whether it was a JSON object, error() why not.
    explicit LVKeyedUnarchiver(const QByteArray& data);
    explicit LVKeyedUnarchiver(QJsonObject object);

    bool isValid() const { return valid_; }
    const QString& error() const { return error_; }

    void setContext(LVContext* context) { context_ = context; }
    LVContext* context() const { return context_; }

    bool containsValueForKey(const QString& key) const { return object_.contains(key); }
    QJsonValue decodeValue(const QString& key) const { return object_.value(key); }
    QString decodeString(const QString& key) const { return object_.value(key).toString(); }
    // Absent or not a boolean reads as false.
    bool decodeBool(const QString& key) const { return object_.value(key).toBool(false); }
    qint64 decodeInt(const QString& key, qint64 fallback = 0) const;
    double decodeDouble(const QString& key, double fallback = 0) const { return object_.value(key).toDouble(fallback); }
    QByteArray decodeData(const QString& key) const;

    const QJsonObject& object() const { return object_; }

private:
    QJsonObject object_;
    LVContext* context_ = nullptr;
    bool valid_ = false;
    QString error_;
};
