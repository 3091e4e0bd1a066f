// `lumaveil --headless --studio --remote-control` driven by an independent client library
// (Debian's python3-simpleobsws): our reading of the protocol checked by someone else's.
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <algorithm>

namespace {

const QString kPassword = QStringLiteral("open sesame");

class LVRemoteClientLibraryTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        environment = lvPrivateEnvironment(dir, true);
        ASSERT_TRUE(lvWriteFiles(dir.filePath(QStringLiteral("data/Lumaveil/Saved Setups")),
                                 {{"Intro", R"({"encoded": [{"class": "TestPatternSource", "enabled": true}], "midiKey": 0})"},
                                  {"Empty", R"({"encoded": [], "midiKey": 0})"}}));
        const QString config = dir.filePath(QStringLiteral("config/lumaveil"));
        ASSERT_TRUE(QDir().mkpath(config));
        QFile prefs(config + QStringLiteral("/com.marrowkit.Lumaveil.json"));
        ASSERT_TRUE(prefs.open(QIODevice::WriteOnly));
        prefs.write(QJsonDocument(QJsonObject{{"remoteControlPassword", kPassword}}).toJson());
        prefs.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    // Starts the headless studio and answers the port it serves remote control on (0: none).
    quint16 startLumaveil()
    {
        lumaveil.setProcessEnvironment(environment);
        const QRegularExpression serving(QStringLiteral("Remote control: serving ws://127\\.0\\.0\\.1:(\\d+)"));
        log = lvStartUntil(lumaveil, QStringLiteral(LV_LUMAVEIL_PATH),
                           {"--headless", "--studio", "--remote-control=0", "--video-size", "160x120", "--fps", "30"},
                           [&](const QString& text) { return serving.match(text).hasMatch(); });
        return quint16(serving.match(log).captured(1).toUInt());
    }

    void TearDown() override
    {
        if (lumaveil.state() != QProcess::NotRunning) {
            lumaveil.terminate();
            lumaveil.waitForFinished(30000);
        }
        log += QString::fromUtf8(lumaveil.readAllStandardError());
        // The password is the user's secret: it is never written to the log.
        EXPECT_FALSE(log.contains(kPassword)) << qPrintable(log);
        lvUnlinkFrameSegments();
    }

    LVProcessRun client(quint16 port, const QString& password)
    {
        return lvRunServed(QStringLiteral("/usr/bin/python3"),
                           {QStringLiteral(LV_REMOTE_CLIENT_SCRIPT), QString::number(port), password}, environment);
    }

    // The brightest channel of a frame: the empty Program is black, the test pattern is not.
    static int brightest(const LVShmemReadResult& frame, const uint8_t* argb)
    {
        int most = 0;
        const size_t pixels = size_t(frame.width) * size_t(frame.height);
        for (size_t i = 0; i < pixels; ++i) most = std::max({most, int(argb[i * 4 + 1]), int(argb[i * 4 + 2]), int(argb[i * 4 + 3])});
        return most;
    }

    QTemporaryDir dir;
    QProcessEnvironment environment;
    QProcess lumaveil;
    QString log;
};

TEST_F(LVRemoteClientLibraryTest, AStockClientSwitchesScenesAndTheFramesFollow)
{
    const quint16 port = startLumaveil();
    ASSERT_NE(port, 0) << qPrintable(log);

    uint64_t before = 0;
    ASSERT_TRUE(lvWatchFrames(lumaveil, 0, [&](const LVShmemReadResult& frame, const uint8_t* argb) {
        before = frame.timestamp;
        return brightest(frame, argb) < 16;
    })) << "nothing on air should publish black frames";

    const LVProcessRun wrong = client(port, QStringLiteral("not it"));
    EXPECT_EQ(wrong.status, 3) << qPrintable(wrong.out + wrong.err);
    EXPECT_TRUE(wrong.out.contains("refused")) << qPrintable(wrong.out);

    const LVProcessRun run = client(port, kPassword);
    ASSERT_EQ(run.status, 0) << qPrintable(run.out + run.err);
    const QStringList lines = run.out.trimmed().split('\n');
    ASSERT_EQ(lines.size(), 3) << qPrintable(run.out);
    EXPECT_EQ(lines[0], R"({"scenes": ["Intro", "Empty"]})");
    EXPECT_EQ(lines[1], R"({"preview": "Intro"})");
    EXPECT_EQ(lines[2], R"({"program": "Intro"})");

    EXPECT_TRUE(lvWatchFrames(lumaveil, before, [&](const LVShmemReadResult& frame, const uint8_t* argb) {
        return brightest(frame, argb) > 64;
    })) << "the test pattern never reached the frames";
}

} // namespace
