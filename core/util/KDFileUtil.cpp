#include "core/util/KDFileUtil.h"

#include "core/util/LVLog.h"

#include <QDir>
#include <QStringList>

#include <sys/stat.h>

namespace {

QString xdgFolder(const char* variable, const char* fallbackUnderHome)
{
    const QByteArray value = qgetenv(variable);
    if (!value.isEmpty()) return QString::fromLocal8Bit(value);
    return QDir::homePath() + QLatin1Char('/') + QLatin1String(fallbackUnderHome);
}

} // namespace

QString KDFileUtil::findApplicationSupportFor(const QString& name)
{
    return QStringLiteral("%1/%2").arg(xdgFolder("XDG_DATA_HOME", ".local/share"), name);
}

QString KDFileUtil::configHome()
{
    return xdgFolder("XDG_CONFIG_HOME", ".config");
}

int KDFileUtil::fileMode(const QString& path)
{
    struct stat info {};
    if (lstat(QFile::encodeName(path).constData(), &info) != 0) {
        LVLogSystemError("Unable to stat");
        return -1;
    }
    return int(info.st_mode);
}

bool KDFileUtil::exists(const QString& path)
{
    return fileMode(path) > 0;
}

bool KDFileUtil::isDir(const QString& path)
{
    const int mode = fileMode(path);
    return mode >= 1 && (mode & 0x4000) != 0;
}

bool KDFileUtil::isSymLink(const QString& path)
{
    const int mode = fileMode(path);
    return mode >= 1 && ((mode >> 8) & 0xA0) != 0;
}

void KDFileUtil::mkdir_p(const QString& path)
{
    const QStringList components = path.split(QLatin1Char('/'));
    QString built;
    for (int i = 0; i < components.size(); ++i) {
        if (i > 0) built += QLatin1Char('/');
        built += components[i];
        if (components[i].isEmpty()) continue;
        struct stat info {};
        if (lstat(QFile::encodeName(built).constData(), &info) != 0) {
            ::mkdir(QFile::encodeName(built).constData(), 0777);
        }
    }
}
