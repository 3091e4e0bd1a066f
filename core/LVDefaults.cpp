#include "core/LVDefaults.h"

#include "core/util/KDFileUtil.h"
#include "core/util/LVAtomicFile.h"
#include "core/util/LVLog.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>

#include <memory>

namespace {
LVDefaults* installedDefaults = nullptr;
}

LVDefaults::LVDefaults(QString path, QObject* parent) : QObject(parent), path_(std::move(path))
{
    load();
}

QString LVDefaults::defaultPath()
{
    return KDFileUtil::configHome() + QStringLiteral("/lumaveil/") + QLatin1String(domainName) +
           QStringLiteral(".json");
}

LVDefaults& LVDefaults::standardUserDefaults()
{
    if (!installedDefaults) {
        static std::unique_ptr<LVDefaults> lazy;
        lazy = std::make_unique<LVDefaults>(defaultPath());
        installedDefaults = lazy.get();
    }
    return *installedDefaults;
}

void LVDefaults::setStandardUserDefaults(LVDefaults* defaults)
{
    installedDefaults = defaults;
}

void LVDefaults::load()
{
    QFile file(path_);
    if (!file.exists()) return;
    if (!file.open(QIODevice::ReadOnly)) {
        LVLog("Preferences %s could not be read: %s", qPrintable(path_), qPrintable(file.errorString()));
        return;
    }
    const QByteArray bytes = file.readAll();
    file.close();
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error == QJsonParseError::NoError && document.isObject()) {
        stored_ = document.object();
        return;
    }
    // Keep the damaged file for the user; never delete it.
    damagedBackup_ = path_ + QStringLiteral(".damaged-") +
                     QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss"));
    const QString reason = error.error != QJsonParseError::NoError ? error.errorString()
                                                                   : QStringLiteral("not a JSON object");
    if (QFile::rename(path_, damagedBackup_)) {
        LVLog("Preferences %s are damaged (%s); moved to %s and using defaults", qPrintable(path_),
              qPrintable(reason), qPrintable(damagedBackup_));
    } else {
        LVLog("Preferences %s are damaged (%s) and could not be moved aside; using defaults", qPrintable(path_),
              qPrintable(reason));
        damagedBackup_.clear();
    }
}

void LVDefaults::registerDefaults(const QJsonObject& defaults)
{
    for (auto it = defaults.begin(); it != defaults.end(); ++it) registered_.insert(it.key(), it.value());
}

QJsonValue LVDefaults::valueForKey(const QString& key) const
{
    const auto it = stored_.constFind(key);
    if (it != stored_.constEnd()) return it.value();
    return registered_.value(key);
}

void LVDefaults::setValue(const QString& key, const QJsonValue& value)
{
    if (value.isUndefined() || value.isNull()) {
        stored_.remove(key);
    } else {
        stored_.insert(key, value);
    }
    write();
    emit valueChanged(key);
}

void LVDefaults::removeValueForKey(const QString& key)
{
    setValue(key, QJsonValue());
}

void LVDefaults::write()
{
    QString error;
    const QByteArray bytes = QJsonDocument(stored_).toJson(QJsonDocument::Indented);
    if (!LVWriteFileAtomically(path_, bytes, &error)) {
        if (error != lastWriteError_) LVLog("Preferences not saved: %s", qPrintable(error));
        lastWriteError_ = error;
    } else {
        lastWriteError_.clear();
    }
}
