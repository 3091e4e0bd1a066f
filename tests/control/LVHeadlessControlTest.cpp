// The headless job driven by lumaveil-ctl: real processes and a real socket.
#include "control/socket/LVControlSocket.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

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
        stderrText = lvStartUntil(*process, QStringLiteral(LV_LUMAVEIL_PATH),
                                  QStringList{"--headless", "--video-size", "64x48", "--fps", "30"} + extra,
                                  [&](const QString& text) { return text.contains(until); });
        EXPECT_TRUE(stderrText.contains(until)) << qPrintable(stderrText);
        return process;
    }

    LVProcessRun ctl(const QStringList& arguments) const
    {
        return lvRunServed(QStringLiteral(LV_CTL_PATH), arguments, environment);
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
    lvTerminate(*second);
    EXPECT_EQ(ctl({"get", "liveEffects"}).status, 0);

    lvTerminate(*lumaveil);
    EXPECT_FALSE(QFile::exists(socketPath));
    EXPECT_EQ(ctl({"cut"}).status, 2);
}

TEST_F(LVHeadlessControlTest, AHeadlessStudioRunsAsAVisionMixerDrivenByCtl)
{
    const QByteArray source = R"({"encoded": [{"class": "TestPatternSource", "enabled": true}], "midiKey": 0})";
    ASSERT_TRUE(lvWriteFiles(dir.filePath(QStringLiteral("data/Lumaveil/Saved Setups")),
                             {{"Intro", source}, {"Other", source}, {"Empty", R"({"encoded": [], "midiKey": 0})"}}));
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
    lvTerminate(*lumaveil);
}

} // namespace
