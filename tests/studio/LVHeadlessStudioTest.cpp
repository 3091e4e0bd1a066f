// lumaveil --headless --studio: the real executable with setups on disk.
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

namespace {

TEST(LVHeadlessStudio, StartsWithTheCurrentSetsButtons)
{
    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    const QString setups = home.filePath(QStringLiteral("data/Lumaveil/Saved Setups"));
    ASSERT_TRUE(QDir().mkpath(setups));
    const struct {
        const char* name;
        const char* contents;
    } files[] = {
        {"Intro", R"({"encoded": [{"class": "TestPatternSource", "enabled": true}], "midiKey": 0})"},
        {"Empty", R"({"encoded": [], "midiKey": 0})"},
    };
    for (const auto& f : files) {
        QFile file(setups + QLatin1Char('/') + QString::fromLatin1(f.name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(f.contents);
    }
    QProcess process;
    process.setProcessEnvironment(lvPrivateEnvironment(home));
    process.start(QStringLiteral(LV_LUMAVEIL_BINARY),
                  {"--headless", "--studio", "--frames", "3", "--fps", "60", "--video-size", "64x48"});
    ASSERT_TRUE(process.waitForFinished(60000));
    const QString err = QString::fromUtf8(process.readAllStandardError());
    EXPECT_EQ(process.exitCode(), 0) << err.toStdString();
    EXPECT_TRUE(err.contains(QStringLiteral("chain: studio with 2 buttons (set: all setups)"))) << err.toStdString();
    EXPECT_TRUE(QString::fromUtf8(process.readAllStandardOutput()).contains(QStringLiteral("\"frames\":3")));
}

} // namespace
