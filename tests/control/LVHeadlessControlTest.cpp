// The headless job as a process, driven by lumaveil-ctl over the control socket and by an
// independent remote-control client library (Debian's python3-simpleobsws): our reading of the
// protocol checked by someone else's.
#include "control/socket/LVControlSocket.h"
#include "tests/control/LVLumaveilProcessTest.h"

#include <cstring>

namespace {

using LVHeadlessControlTest = LVLumaveilProcessTest;

TEST_F(LVHeadlessControlTest, CtlDrivesTheChainOfARunningHeadlessJob)
{
    const QString socketPath = dir.filePath(QStringLiteral("runtime/lumaveil/control.sock"));
    const QString serving = QStringLiteral("Control: serving ") + socketPath;
    ASSERT_TRUE(start({"--video-size", "64x48", "--fps", "30"}, QRegularExpression(QRegularExpression::escape(serving))).hasMatch())
        << qPrintable(log);
    EXPECT_TRUE(log.contains(QLatin1String("MIDI: no MIDI input available")) || QFile::exists(QStringLiteral("/dev/snd/seq")));

    struct Step {
        QStringList arguments;
        int status;
        const char* out; // prefix: the default overlay may follow the source
        const char* err;
    };
    const Step steps[] = {
        {{"setSource", "Test Pattern"}, 0, "", ""},
        {{"get", "liveEffects"}, 0, "class=TestPatternSource enabled=true name=Test Pattern source=true\n", ""},
        {{"addEffect", "No Such Effect"}, 1, "", "lumaveil-ctl: no effect named \"No Such Effect\"\n"},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.arguments.join(' ').toStdString());
        const LVProcessRun run = ctl(step.arguments);
        EXPECT_EQ(run.status, step.status);
        EXPECT_EQ(run.out.left(qsizetype(std::strlen(step.out))), QString::fromUtf8(step.out)) << qPrintable(run.out);
        EXPECT_EQ(run.err, QString::fromUtf8(step.err));
    }
    const LVProcessRun unknown = ctl({"frobnicate"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_TRUE(unknown.err.startsWith(QLatin1String("lumaveil-ctl: unknown command \"frobnicate\"\nusage:"))) << qPrintable(unknown.err);

    // A second instance finds the socket taken and runs on without one.
    QProcess second;
    QProcessEnvironment secondEnvironment = environment;
    secondEnvironment.insert(QStringLiteral("LUMAVEIL_SHM_PREFIX"), environment.value(QStringLiteral("LUMAVEIL_SHM_PREFIX")) + "second.");
    second.setProcessEnvironment(secondEnvironment);
    const QString taken = QStringLiteral("Control: no control socket: another Lumaveil already serves");
    const QString secondLog = lvStartUntil(second, QStringLiteral(LV_LUMAVEIL_PATH), {"--headless", "--video-size", "64x48"},
                                           [&](const QString& text) { return text.contains(taken); });
    EXPECT_TRUE(secondLog.contains(taken)) << qPrintable(secondLog);
    lvTerminate(second);
    EXPECT_EQ(ctl({"get", "liveEffects"}).status, 0);

    lvTerminate(lumaveil);
    EXPECT_FALSE(QFile::exists(socketPath));
    const LVProcessRun absent = ctl({"cut"});
    EXPECT_EQ(absent.status, 2);
    EXPECT_EQ(absent.err, QStringLiteral("lumaveil-ctl: no Lumaveil is running (nothing serves %1)\n").arg(socketPath));
}

TEST_F(LVHeadlessControlTest, AStockRemoteControlClientSwitchesScenesAndTheFramesFollow)
{
    writeSetupsAndPassword();
    const quint16 port = startRemoteControl({"--video-size", "160x120"}, R"(Remote control: serving ws://127\.0\.0\.1:(\d+))");
    ASSERT_NE(port, 0) << qPrintable(log);
    EXPECT_TRUE(log.contains(QLatin1String("chain: studio with 2 buttons (set: all setups)"))) << qPrintable(log);

    uint64_t since = 0;
    ASSERT_TRUE(waitForFrame(since, false)) << "nothing on air should publish black frames";
    auto client = [&](const QString& password) {
        return lvRunServed(QStringLiteral("/usr/bin/python3"),
                           {QStringLiteral(LV_REMOTE_CLIENT_SCRIPT), QString::number(port), password}, environment);
    };
    const LVProcessRun wrong = client(QStringLiteral("not it"));
    EXPECT_EQ(wrong.status, 3) << qPrintable(wrong.out + wrong.err);
    EXPECT_TRUE(wrong.out.contains("refused")) << qPrintable(wrong.out);

    const LVProcessRun run = client(password);
    ASSERT_EQ(run.status, 0) << qPrintable(run.out + run.err);
    EXPECT_EQ(run.out, "{\"scenes\": [\"Intro\", \"Empty\"]}\n{\"preview\": \"Intro\"}\n{\"program\": \"Intro\"}\n");
    EXPECT_TRUE(waitForFrame(since, true)) << "the test pattern never reached the frames";
}

} // namespace
