// The headless job driven by lumaveil-ctl: real processes, a real socket, a killed
// instance's socket taken over by the next one.
#include "control/socket/LVControlSocket.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <cstring>
#include <memory>

namespace {

class LVHeadlessControlTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        environment = lvPrivateEnvironment(dir, true);
        socketPath = dir.filePath(QStringLiteral("runtime/lumaveil/control.sock"));
    }

    // Starts a headless Lumaveil and waits until its stderr shows `until`.
    std::unique_ptr<QProcess> startLumaveil(const QString& until, const QStringList& extra = {})
    {
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(environment);
        QEventLoop loop;
        QString seen;
        QObject::connect(process.get(), &QProcess::readyReadStandardError, &loop, [&] {
            seen += QString::fromUtf8(process->readAllStandardError());
            if (seen.contains(until)) loop.quit();
        });
        QObject::connect(process.get(), &QProcess::finished, &loop, &QEventLoop::quit);
        QTimer::singleShot(60000, &loop, &QEventLoop::quit);
        process->start(QStringLiteral(LV_LUMAVEIL_PATH),
                       QStringList{"--headless", "--video-size", "64x48", "--fps", "30"} + extra);
        loop.exec();
        QObject::disconnect(process.get(), nullptr, &loop, nullptr);
        stderrText = seen;
        EXPECT_TRUE(seen.contains(until)) << qPrintable(seen);
        return process;
    }

    LVProcessRun ctl(const QStringList& arguments) const
    {
        return lvRunServed(QStringLiteral(LV_CTL_PATH), arguments, environment);
    }

    static void stop(QProcess& process)
    {
        QEventLoop loop;
        QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
        process.terminate();
        if (process.state() != QProcess::NotRunning) loop.exec();
    }

    QTemporaryDir dir;
    QProcessEnvironment environment;
    QString socketPath;
    QString stderrText;
};

TEST_F(LVHeadlessControlTest, CtlDrivesTheChainOfARunningHeadlessJob)
{
    environment.insert(QStringLiteral("LUMAVEIL_SHM_PREFIX"), QStringLiteral("lvtest.headlessctl.a."));
    const auto lumaveil = startLumaveil(QStringLiteral("Control: serving ") + socketPath);
    EXPECT_TRUE(stderrText.contains(QLatin1String("MIDI: no MIDI input available")) ||
                QFile::exists(QStringLiteral("/dev/snd/seq")));

    struct Step {
        QStringList arguments;
        int status;
        const char* out;
        const char* err;
    };
    const Step steps[] = {
        {{"setSource", "Test Pattern"}, 0, "", ""},
        // The source leads the chain; the default overlay may follow it.
        {{"get", "liveEffects"}, 0, "class=TestPatternSource enabled=true name=Test Pattern source=true\n", ""},
        {{"addEffect", "No Such Effect"}, 1, "", "lumaveil-ctl: no effect named \"No Such Effect\"\n"},
        {{"loadSetup", "Nothing Saved", "--merge"}, 1, "", "lumaveil-ctl: no saved setup named \"Nothing Saved\" could be loaded\n"},
    };
    for (const Step& step : steps) {
        const LVProcessRun run = ctl(step.arguments);
        EXPECT_EQ(run.status, step.status) << qPrintable(step.arguments.join(' '));
        EXPECT_EQ(run.out.left(qsizetype(std::strlen(step.out))), QString::fromUtf8(step.out))
            << qPrintable(step.arguments.join(' ') + ": " + run.out);
        EXPECT_EQ(run.err, QString::fromUtf8(step.err)) << qPrintable(step.arguments.join(' '));
    }

    // A second instance finds the socket taken and runs on without one.
    environment.insert(QStringLiteral("LUMAVEIL_SHM_PREFIX"), QStringLiteral("lvtest.headlessctl.b."));
    const auto second = startLumaveil(QStringLiteral("Control: no control socket: another Lumaveil already serves"));
    stop(*second);
    EXPECT_EQ(ctl({"get", "liveEffects"}).status, 0);

    stop(*lumaveil);
    EXPECT_FALSE(QFile::exists(socketPath));
    EXPECT_EQ(ctl({"cut"}).status, 2);
}

TEST_F(LVHeadlessControlTest, TheSocketOfAKilledInstanceIsTakenOver)
{
    environment.insert(QStringLiteral("LUMAVEIL_SHM_PREFIX"), QStringLiteral("lvtest.headlessctl.c."));
    auto killed = startLumaveil(QStringLiteral("Control: serving"));
    killed->kill();
    killed->waitForFinished();
    ASSERT_TRUE(QFile::exists(socketPath));
    EXPECT_EQ(ctl({"cut"}).status, 2);

    const auto next = startLumaveil(QStringLiteral("Control: serving"));
    EXPECT_TRUE(stderrText.contains(QStringLiteral("Control: removed stale socket ") + socketPath)) << qPrintable(stderrText);
    EXPECT_EQ(ctl({"get", "liveEffects"}).status, 0);
    stop(*next);
}

TEST_F(LVHeadlessControlTest, AHeadlessStudioRunsAsAVisionMixerDrivenByCtl)
{
    const QString setups = dir.filePath(QStringLiteral("data/Lumaveil/Saved Setups"));
    ASSERT_TRUE(QDir().mkpath(setups));
    const char* const source = R"({"encoded": [{"class": "TestPatternSource", "enabled": true}], "midiKey": 0})";
    const char* const files[][2] = {{"Intro", source}, {"Other", source}, {"Empty", R"({"encoded": [], "midiKey": 0})"}};
    for (const auto& [name, contents] : files) {
        QFile file(setups + QLatin1Char('/') + QString::fromLatin1(name));
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(contents);
    }
    environment.insert(QStringLiteral("LUMAVEIL_SHM_PREFIX"), QStringLiteral("lvtest.headlessctl.d."));
    const auto lumaveil = startLumaveil(QStringLiteral("Control: serving"), {"--studio"});
    EXPECT_TRUE(stderrText.contains(QLatin1String("chain: studio with 3 buttons (set: all setups)"))) << qPrintable(stderrText);

    auto read = [&](const char* property) { return ctl({"get", QString::fromLatin1(property)}).out.trimmed(); };
    struct Step {
        QStringList command;
        QString preview;
        QString program;
    };
    const Step steps[] = {
        {{"button", "Intro", "selectForAir"}, "Intro", ""},
        {{"cut"}, "", "Intro"},
        {{"button", "Other", "selectForAir"}, "Other", "Intro"},
        {{"set", "studioSwapMode", "true"}, "Other", "Intro"},
        {{"cut"}, "Intro", "Other"},
        {{"cut"}, "Other", "Intro"},  // two cuts in swap mode: back where it started
        {{"set", "studioSwapMode", "false"}, "Other", "Intro"},
    };
    for (const Step& step : steps) {
        const LVProcessRun run = ctl(step.command);
        EXPECT_EQ(run.status, 0) << qPrintable(step.command.join(' ') + ": " + run.err);
        EXPECT_EQ(read("studioPreviewButtons"), step.preview) << qPrintable(step.command.join(' '));
        EXPECT_EQ(read("studioProgramButtons"), step.program) << qPrintable(step.command.join(' '));
    }

    ASSERT_EQ(ctl({"set", "studioTransitionTime", "0.3"}).out, QStringLiteral("0.3\n"));
    ASSERT_EQ(ctl({"studioDissolve"}).status, 0);
    EXPECT_TRUE(read("studioTransition").startsWith(QLatin1String("fraction=")));
    // The studio's own frames end the transition; each query is a real round trip.
    QString transition;
    for (int query = 0; query < 1000; ++query) {
        transition = read("studioTransition");
        if (transition.endsWith(QLatin1String("running=false"))) break;
    }
    EXPECT_EQ(transition, QStringLiteral("fraction=0 running=false"));
    EXPECT_EQ(read("studioProgramButtons"), QStringLiteral("Other"));
    EXPECT_EQ(read("studioPreviewButtons"), QString());
    stop(*lumaveil);
}

} // namespace
