#include "core/util/LVBoundedRead.h"

#include <QBuffer>
#include <QFile>
#include <QImageReader>

#include <algorithm>

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

QString LVByteLimitText(qint64 limit)
{
    if (limit >= (1 << 20) && limit % (1 << 20) == 0) return QStringLiteral("%1 MB").arg(limit >> 20);
    if (limit >= 1024 && limit % 1024 == 0) return QStringLiteral("%1 KB").arg(limit >> 10);
    return QStringLiteral("%1 bytes").arg(limit);
}

bool LVReadRegularFile(const QString& path, qint64 limit, QByteArray* bytes, QString* error)
{
    auto fail = [&](const QString& why) {
        if (error) *error = why;
        return false;
    };
    // O_NONBLOCK: a FIFO in the file's place must not hang the open.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ELOOP) return fail(QStringLiteral("is a symbolic link; refused"));
        return fail(QStringLiteral("could not be opened: %1").arg(QString::fromLocal8Bit(strerror(errno))));
    }
    struct stat st {};
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return fail(QStringLiteral("is not a regular file; refused"));
    }
    const QString tooLarge = QStringLiteral("is larger than the limit of %1; refused").arg(LVByteLimitText(limit));
    if (st.st_size > limit) {
        ::close(fd);
        return fail(tooLarge);
    }
    // The file may grow while it is read: never take more than the limit.
    QByteArray data;
    data.resize(qsizetype(st.st_size) + 1);
    qint64 filled = 0;
    for (;;) {
        if (filled == data.size()) {
            if (filled > limit) break;
            data.resize(qsizetype(std::min<qint64>(limit + 1, filled * 2 + 4096)));
        }
        const ssize_t n = ::read(fd, data.data() + filled, size_t(data.size() - filled));
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const QString why = QString::fromLocal8Bit(strerror(errno));
            ::close(fd);
            return fail(QStringLiteral("could not be read: %1").arg(why));
        }
        if (n == 0) break;
        filled += n;
    }
    ::close(fd);
    if (filled > limit) return fail(tooLarge);
    data.truncate(qsizetype(filled));
    *bytes = std::move(data);
    return true;
}

QImage LVReadImageFile(const QString& path, QString* error, const char* format)
{
    QByteArray bytes;
    if (!LVReadRegularFile(path, kLVImageLimit, &bytes, error)) return {};
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer, format);
    const QImage image = reader.read();
    if (image.isNull() && error) *error = QStringLiteral("could not be decoded: %1").arg(reader.errorString());
    return image;
}
