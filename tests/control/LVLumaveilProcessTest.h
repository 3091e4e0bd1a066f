#pragma once
// A headless Lumaveil as a child process with private folders: saved setups and the
// remote-control password written before it starts, its log kept, and at the end the check
// that the password never reached that log.
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include <algorithm>

class LVLumaveilProcessTest : public ::testing::Test {
protected:
    static inline const QString password = QStringLiteral("open sesame");

    static void SetUpTestSuite() { lvEnsureApplication(); }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        environment = lvPrivateEnvironment(dir, true);
    }

    void TearDown() override
    {
        if (lumaveil.state() != QProcess::NotRunning) lvTerminate(lumaveil);
        log += QString::fromUtf8(lumaveil.readAllStandardError());
        // The password is the user's secret: it is never written to the log.
        EXPECT_FALSE(log.contains(password)) << qPrintable(log);
        lvUnlinkFrameSegments();
    }

    // The setups "Intro" (the test pattern) and "Empty", and the remote-control password.
    void writeSetupsAndPassword()
    {
        ASSERT_TRUE(lvWriteFiles(dir.filePath(QStringLiteral("data/Lumaveil/Saved Setups")),
                                 {{"Intro", R"({"encoded": [{"class": "TestPatternSource", "enabled": true}], "midiKey": 0})"},
                                  {"Empty", R"({"encoded": [], "midiKey": 0})"}}));
        const QString config = dir.filePath(QStringLiteral("config/lumaveil"));
        ASSERT_TRUE(lvWriteFiles(config, {{"com.marrowkit.Lumaveil.json",
                                           QJsonDocument(QJsonObject{{"remoteControlPassword", password}}).toJson()}}));
        QFile(config + QStringLiteral("/com.marrowkit.Lumaveil.json")).setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    }

    // Starts `lumaveil --headless` with these arguments and waits until its log matches.
    QRegularExpressionMatch start(const QStringList& arguments, const QRegularExpression& until)
    {
        lumaveil.setProcessEnvironment(environment);
        log = lvStartUntil(lumaveil, QStringLiteral(LV_LUMAVEIL_PATH), QStringList{"--headless"} + arguments,
                           [&](const QString& text) { return until.match(text).hasMatch(); });
        return until.match(log);
    }

    // The port of a `--remote-control=0` run, 0 when it never said it serves.
    quint16 startRemoteControl(const QStringList& arguments, const QString& servingPattern)
    {
        const QRegularExpressionMatch serving = start(QStringList{"--studio", "--remote-control=0", "--fps", "30"} + arguments,
                                                      QRegularExpression(servingPattern));
        return quint16(serving.captured(1).toUInt());
    }

    LVProcessRun ctl(const QStringList& arguments) const
    {
        return lvRunServed(QStringLiteral(LV_CTL_PATH), arguments, environment);
    }

    // The brightest colour channel of a frame: an empty Program is black, the test pattern is not.
    static int brightest(const LVShmemReadResult& frame, const uint8_t* argb)
    {
        int most = 0;
        const size_t pixels = size_t(frame.width) * size_t(frame.height);
        for (size_t i = 0; i < pixels; ++i) most = std::max({most, int(argb[i * 4 + 1]), int(argb[i * 4 + 2]), int(argb[i * 4 + 3])});
        return most;
    }

    // Waits for a published frame after `since` that is dark (or bright), moving `since` on to it.
    bool waitForFrame(uint64_t& since, bool bright)
    {
        return lvWatchFrames(lumaveil, since, [&](const LVShmemReadResult& frame, const uint8_t* argb) {
            since = frame.timestamp;
            return bright ? brightest(frame, argb) > 64 : brightest(frame, argb) < 16;
        });
    }

    QTemporaryDir dir;
    QProcessEnvironment environment;
    QProcess lumaveil;
    QString log;
};
