#include "core/util/LVBoundedRead.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QImage>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <unistd.h>

namespace {

TEST(LVBoundedReadTest, ReadsOnlyRegularFilesUnderTheLimit)
{
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("file"));
    {
        QFile f(file);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("0123456789");
    }
    ASSERT_TRUE(QFile::link(file, dir.filePath(QStringLiteral("link"))));
    ASSERT_TRUE(QFile::link(QStringLiteral("/dev/zero"), dir.filePath(QStringLiteral("zero"))));
    ASSERT_EQ(mkfifo(QFile::encodeName(dir.filePath(QStringLiteral("fifo"))).constData(), 0600), 0);
    ASSERT_TRUE(QDir(dir.path()).mkdir(QStringLiteral("folder")));

    const struct {
        const char* name;
        qint64 limit;
        const char* error; // null: read
    } cases[] = {
        {"file", 10, nullptr},
        {"file", 9, "is larger than the limit of 9 bytes; refused"},
        {"link", 100, "is a symbolic link; refused"},
        {"zero", 100, "is a symbolic link; refused"},
        {"fifo", 100, "is not a regular file; refused"}, // and does not wait for a writer
        {"folder", 100, "is not a regular file; refused"},
        {"missing", 100, "could not be opened: No such file or directory"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QByteArray bytes = "untouched";
        QString error;
        const bool read = LVReadRegularFile(dir.filePath(QString::fromLatin1(c.name)), c.limit, &bytes, &error);
        EXPECT_EQ(read, c.error == nullptr);
        if (c.error) {
            EXPECT_EQ(error, QString::fromLatin1(c.error));
            EXPECT_EQ(bytes, "untouched");
        } else {
            EXPECT_EQ(bytes, "0123456789");
        }
    }
    QString error;
    EXPECT_TRUE(LVReadImageFile(file, &error).isNull());
    EXPECT_TRUE(error.startsWith(QStringLiteral("could not be decoded"))) << error.toStdString();
    EXPECT_EQ(LVByteLimitText(16 << 20), QStringLiteral("16 MB"));
    EXPECT_EQ(LVByteLimitText(512 << 10), QStringLiteral("512 KB"));
}

} // namespace
