// The script effect with real processes: one run per real mode change with the right role
// word, scripts that run for seconds reaped without a zombie, the syntax check, and the
// default script back after a reload.
#include "core/LVDefaults.h"
#include "effects/script/AppleScriptEffect.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <set>

#include <sys/wait.h>

namespace {

class AppleScriptEffectTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        defaults = std::make_unique<LVDefaults>(dir.filePath(QStringLiteral("prefs.json")));
        LVDefaults::setStandardUserDefaults(defaults.get());
        LVEffectClasses::registerClass(&AppleScriptEffect::classDescriptor());
    }
    void TearDown() override { LVDefaults::setStandardUserDefaults(nullptr); }

    std::shared_ptr<AppleScriptEffect> makeEffect()
    {
        auto effect = std::make_shared<AppleScriptEffect>();
        effect->initWithContext(nullptr);
        return effect;
    }

    // Waits on the runner's own reports until every child is collected.
    static bool waitForAllReaped()
    {
        LVScriptRunner& runner = LVScriptRunner::shared();
        if (runner.pendingChildren() == 0) return true;
        QEventLoop loop;
        QObject::connect(&runner, &LVScriptRunner::childReaped, &loop, [&] {
            if (runner.pendingChildren() == 0) loop.quit();
        });
        QTimer::singleShot(60000, &loop, &QEventLoop::quit); // a guard, not the synchronisation
        loop.exec();
        return runner.pendingChildren() == 0;
    }

    QStringList linesOf(const QString& path) const
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) return {};
        QStringList lines = QString::fromUtf8(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
        lines.sort();
        return lines;
    }

    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
};

TEST_F(AppleScriptEffectTest, RunsOncePerRealModeChangeAndLeavesNoZombie)
{
    const QString log = dir.filePath(QStringLiteral("roles.txt"));
    auto effect = makeEffect();
    ASSERT_TRUE(effect->isCompiled());
    // Each run lasts seconds, far longer than the effect is willing to wait.
    effect->setScriptText(QStringLiteral("sleep 2\necho \"$1\" >> '%1'\n").arg(log));
    ASSERT_FALSE(effect->compile().has_value());

    LVScriptRunner& runner = LVScriptRunner::shared();
    const size_t pollsBefore = runner.pollsSoFar();
    std::set<pid_t> started;
    QObject::connect(&runner, &LVScriptRunner::childReaped, &runner,
                     [&](pid_t pid, int status) {
                         started.insert(pid);
                         EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
                     });
    const struct { int32_t mode; bool changed; } steps[] = {
        {1, true}, {1, false}, {2, true}, {2, false}, {3, true}, {0, true}, {0, false}, {9, true}};
    for (const auto& step : steps) EXPECT_EQ(effect->setMode(step.mode), step.changed) << step.mode;
    EXPECT_EQ(runner.pendingChildren(), 5u);

    ASSERT_TRUE(waitForAllReaped());
    QObject::disconnect(&runner, &LVScriptRunner::childReaped, nullptr, nullptr);
    EXPECT_EQ(linesOf(log), (QStringList{"Idle", "Preview", "Program", "Transition", "Unknown"}));
    // Polled once a second while they ran: a first look at start, then at least two more each.
    EXPECT_GE(runner.pollsSoFar() - pollsBefore, 5u * 3u);
    ASSERT_EQ(started.size(), 5u);
    for (pid_t pid : started) {
        errno = 0;
        EXPECT_EQ(::waitpid(pid, nullptr, WNOHANG), -1) << pid;
        EXPECT_EQ(errno, ECHILD) << pid; // already collected: no zombie left
    }
}

TEST_F(AppleScriptEffectTest, TheSyntaxCheckRefusesBrokenScriptsAndRunsNothing)
{
    const struct { const char* script; bool compiles; int line; } rows[] = {
        {"echo fine\n", true, 0},
        {"if true; then\n  echo never closed\n", false, 3},
        {"echo a\nfi\necho b\n", false, 2},
    };
    auto effect = makeEffect();
    for (const auto& row : rows) {
        effect->setScriptText(QString::fromLatin1(row.script));
        const auto error = effect->compile();
        EXPECT_EQ(!error.has_value(), row.compiles) << row.script;
        EXPECT_EQ(effect->isCompiled(), row.compiles);
        if (!error) continue;
        EXPECT_EQ(error->line, row.line) << qPrintable(error->fullMessage);
        EXPECT_FALSE(error->briefMessage.isEmpty());
        EXPECT_TRUE(effect->statusNote().contains(error->fullMessage));
    }
    // Still broken: the mode changes, nothing runs.
    EXPECT_TRUE(effect->setMode(1));
    EXPECT_EQ(LVScriptRunner::shared().pendingChildren(), 0u);
}

TEST_F(AppleScriptEffectTest, AReloadedEffectHasTheDefaultScript)
{
    auto effect = makeEffect();
    EXPECT_EQ(effect->scriptText(), QString::fromUtf8(AppleScriptEffect::defaultScript));
    effect->setScriptText(QStringLiteral("echo edited\n"));
    effect->compile();
    const QByteArray data = LVEffect::dataFromEffect(*effect);
    const LVEffectRef back = LVEffect::effectFromData(data, nullptr);
    ASSERT_NE(back, nullptr);
    auto* script = dynamic_cast<AppleScriptEffect*>(back.get());
    ASSERT_NE(script, nullptr);
    EXPECT_EQ(script->scriptText(), QString::fromUtf8(AppleScriptEffect::defaultScript));
    EXPECT_TRUE(script->isCompiled());
    EXPECT_FALSE(data.contains("echo edited"));
}

TEST_F(AppleScriptEffectTest, AMissingInterpreterFromThePreferencesRunsNothing)
{
    defaults->setValue(QStringLiteral("scriptInterpreter"), dir.filePath(QStringLiteral("no-such-sh")));
    EXPECT_EQ(LVScriptRunner::shared().run(LVScriptRunner::interpreter(), "echo x\n", {}), -1);
    EXPECT_EQ(LVScriptRunner::shared().pendingChildren(), 0u);
}

} // namespace
