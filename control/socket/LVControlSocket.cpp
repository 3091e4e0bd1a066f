#include "control/socket/LVControlSocket.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace LVControlSocket {

QString folderPath()
{
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!runtime.isEmpty()) return runtime + QStringLiteral("/lumaveil");
    return QDir::tempPath() + QStringLiteral("/lumaveil-%1").arg(getuid());
}

QString socketPath()
{
    return folderPath() + QStringLiteral("/control.sock");
}

bool prepareFolder(const QString& folder, QString* error)
{
    const QByteArray path = QFile::encodeName(folder);
    if (::mkdir(path.constData(), 0700) != 0 && errno != EEXIST) {
        *error = QStringLiteral("cannot create %1: %2").arg(folder, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    struct stat info {};
    if (::lstat(path.constData(), &info) != 0) {
        *error = QStringLiteral("cannot inspect %1: %2").arg(folder, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    if (!S_ISDIR(info.st_mode)) {
        *error = QStringLiteral("%1 is not a folder (a link or a file is never used)").arg(folder);
        return false;
    }
    if (info.st_uid != getuid()) {
        *error = QStringLiteral("%1 belongs to another user (uid %2)").arg(folder).arg(info.st_uid);
        return false;
    }
    if ((info.st_mode & 077) != 0 && ::chmod(path.constData(), 0700) != 0) {
        *error = QStringLiteral("cannot make %1 private: %2").arg(folder, QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    return true;
}

int connectTo(const QString& path)
{
    const QByteArray encoded = QFile::encodeName(path);
    sockaddr_un address {};
    if (size_t(encoded.size()) >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, encoded.constData(), size_t(encoded.size()));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) return -1;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        const int saved = errno;
        ::close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

} // namespace LVControlSocket
