#pragma once
// The preference domain "com.marrowkit.Lumaveil": one JSON object in
// $XDG_CONFIG_HOME/lumaveil/com.marrowkit.Lumaveil.json, written through at once and
// atomically. A damaged file is reported once, kept aside and replaced by defaults; a file
// that cannot be read or kept is never written over.
#include <QJsonObject>
#include <QJsonValue>
#include <QObject>
#include <QString>

class LVDefaults : public QObject {
    Q_OBJECT
public:
    static constexpr const char* domainName = "com.marrowkit.Lumaveil";

    // Reads the file at path (missing file: empty domain).
    explicit LVDefaults(QString path, QObject* parent = nullptr);

    // "<config home>/lumaveil/com.marrowkit.Lumaveil.json".
    static QString defaultPath();
    // The process-wide preferences; made at defaultPath() on first use unless the
    // application installed its own.
    static LVDefaults& standardUserDefaults();
    static void setStandardUserDefaults(LVDefaults* defaults);

    // Values answered for keys the file does not hold.
    void registerDefaults(const QJsonObject& defaults);

    QJsonValue valueForKey(const QString& key) const;
    bool hasStoredValue(const QString& key) const { return stored_.contains(key); }
    bool boolForKey(const QString& key) const { return valueForKey(key).toBool(false); }
    int integerForKey(const QString& key) const { return valueForKey(key).toInt(0); }
    double doubleForKey(const QString& key) const { return valueForKey(key).toDouble(0); }
    QString stringForKey(const QString& key) const { return valueForKey(key).toString(); }
    QJsonObject dictionaryForKey(const QString& key) const { return valueForKey(key).toObject(); }

    // Stores and writes the file at once; emits valueChanged(key).
    void setValue(const QString& key, const QJsonValue& value);
    void removeValueForKey(const QString& key);

    const QString& path() const { return path_; }
    // Where a damaged file was moved, empty when the file was fine.
    const QString& damagedFileBackup() const { return damagedBackup_; }
    const QString& lastWriteError() const { return lastWriteError_; }
    // False when the file could not be read or kept aside: changes then live in memory only.
    bool isSaving() const { return saving_; }

signals:
    void valueChanged(const QString& key);

private:
    void load();
    void write();

    QString path_;
    QJsonObject stored_;
    QJsonObject registered_;
    QString damagedBackup_;
    QString lastWriteError_;
    bool saving_ = true;
};
