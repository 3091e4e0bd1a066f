#include "core/util/LVAtomicFile.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>

namespace {

bool writeAtomically(const QString& path, const QByteArray& bytes, QString* error, bool ownerOnly)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    const bool opened = file.open(QIODevice::WriteOnly) &&
                        (!ownerOnly || file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    if (!opened || file.write(bytes) != bytes.size() || !file.commit()) {
        if (error) *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

} // namespace

bool LVWriteFileAtomically(const QString& path, const QByteArray& bytes, QString* error)
{
    return writeAtomically(path, bytes, error, false);
}

bool LVWritePrivateFileAtomically(const QString& path, const QByteArray& bytes, QString* error)
{
    return writeAtomically(path, bytes, error, true);
}
