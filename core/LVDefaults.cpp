#include "core/LVDefaults.h"

#include "core/util/KDFileUtil.h"
#include "core/util/LVAtomicFile.h"
#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

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

namespace {

// Moves path to the first free name of base, base-2, base-3, ...; never replaces a file.
QString moveAside(const QString& path, const QString& base, QString* error)
{
    const QByteArray from = QFile::encodeName(path);
    for (int n = 1; n <= 100; ++n) {
        const QString candidate = n == 1 ? base : QStringLiteral("%1-%2").arg(base).arg(n);
        if (renameat2(AT_FDCWD, from.constData(), AT_FDCWD, QFile::encodeName(candidate).constData(),
                      RENAME_NOREPLACE) == 0)
            return candidate;
        if (errno != EEXIST) {
            *error = QStringLiteral("rename to %1: %2").arg(candidate, QString::fromLocal8Bit(strerror(errno)));
            return {};
        }
    }
    *error = QStringLiteral("every backup name up to %1-100 is taken").arg(base);
    return {};
}

} // namespace

void LVDefaults::load()
{
    struct stat st {};
    if (lstat(QFile::encodeName(path_).constData(), &st) != 0 && errno == ENOENT) return;
    QByteArray bytes;
    QString readError;
    if (!LVReadRegularFile(path_, kLVPreferencesLimit, &bytes, &readError)) {
        // Whatever is there stays: nothing is written over it this run.
        saving_ = false;
        LVLog("Preferences %s %s; using defaults without saving", qPrintable(path_), qPrintable(readError));
        return;
    }
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error == QJsonParseError::NoError && document.isObject()) {
        stored_ = document.object();
        return;
    }
    // Keep the damaged file for the user; never delete it, never write over it.
    const QString reason = error.error != QJsonParseError::NoError ? error.errorString()
                                                                   : QStringLiteral("not a JSON object");
    QString moveError;
    damagedBackup_ = moveAside(path_, path_ + QStringLiteral(".damaged-") +
                                          QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")),
                               &moveError);
    if (!damagedBackup_.isEmpty()) {
        LVLog("Preferences %s are damaged (%s); moved to %s and using defaults", qPrintable(path_),
              qPrintable(reason), qPrintable(damagedBackup_));
    } else {
        saving_ = false;
        LVLog("Preferences %s are damaged (%s) and could not be moved aside (%s); using defaults without saving, "
              "so the file is kept",
              qPrintable(path_), qPrintable(reason), qPrintable(moveError));
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
    if (!saving_) return;
    QString error;
    const QByteArray bytes = QJsonDocument(stored_).toJson(QJsonDocument::Indented);
    // Owner-only: the preferences hold the remote-control password.
    if (!LVWritePrivateFileAtomically(path_, bytes, &error)) {
        if (error != lastWriteError_) LVLog("Preferences not saved: %s", qPrintable(error));
        lastWriteError_ = error;
    } else {
        lastWriteError_.clear();
    }
}
