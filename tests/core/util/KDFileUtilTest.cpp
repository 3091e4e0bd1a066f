#include "core/util/KDFileUtil.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

TEST(KDFileUtil, QueriesUseLstatAndTheLooseLinkTest)
{
    QTemporaryDir dir;
    const QString file = dir.filePath("file"), folder = dir.filePath("folder"), link = dir.filePath("link"),
                  dangling = dir.filePath("dangling");
    QFile(file).open(QIODevice::WriteOnly);
    QDir().mkdir(folder);
    QFile::link(file, link);
    QFile::link(dir.filePath("nowhere"), dangling);

    struct Case {
        QString path;
        bool exists, isDir, isSymLink;
    };
    // A plain file passes the link test on purpose; a dangling link still exists.
    const Case cases[] = {{file, true, false, true},
                          {folder, true, true, false},
                          {link, true, false, true},
                          {dangling, true, false, true}};
    for (const Case& c : cases) {
        EXPECT_EQ(KDFileUtil::exists(c.path), c.exists) << c.path.toStdString();
        EXPECT_EQ(KDFileUtil::isDir(c.path), c.isDir) << c.path.toStdString();
        EXPECT_EQ(KDFileUtil::isSymLink(c.path), c.isSymLink) << c.path.toStdString();
    }
}

TEST(KDFileUtil, MissingPathAnswersFalseAndSaysUnableToStat)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(KDFileUtil::exists("/nonexistent/lumaveil/path"));
    EXPECT_FALSE(KDFileUtil::isDir("/nonexistent/lumaveil/path"));
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("Unable to stat: No such file or directory"), std::string::npos) << err;
}

TEST(KDFileUtil, MkdirPCreatesEveryMissingFolderAndIsQuietWhenAllExist)
{
    QTemporaryDir dir;
    const QString deep = dir.filePath("a/b/c");
    KDFileUtil::mkdir_p(deep);
    EXPECT_TRUE(QFileInfo(deep).isDir());

    testing::internal::CaptureStderr();
    KDFileUtil::mkdir_p(deep);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(KDFileUtil, ApplicationSupportFollowsXdgDataHome)
{
    qputenv("XDG_DATA_HOME", "/tmp/lv-data");
    EXPECT_EQ(KDFileUtil::findApplicationSupportFor("Lumaveil"), QString("/tmp/lv-data/Lumaveil"));
    qunsetenv("XDG_DATA_HOME");
    EXPECT_EQ(KDFileUtil::findApplicationSupportFor("Lumaveil"), QDir::homePath() + "/.local/share/Lumaveil");
}

} // namespace
