// Restarting for a new video size keeps the chain: saved to a private file, read back once.
#include "app/LVKindRegistration.h"
#include "app/LVRestart.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QGuiApplication>
#include <QTemporaryDir>

namespace {

class LVRestartTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication<QGuiApplication>(); }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        LVRegisterAllKinds();
        defaults = std::make_unique<LVDefaults>(dir.filePath(QStringLiteral("prefs.json")));
        app = makeApp();
        ASSERT_TRUE(app);
    }

    std::unique_ptr<Lumaveil> makeApp()
    {
        LVLaunchOptions options;
        options.startTimer = false;
        options.folders.bundled = QStringLiteral(LV_BUNDLED_EFFECTS_DIR);
        QString error;
        auto made = Lumaveil::create(*defaults, options, &error);
        EXPECT_TRUE(made) << error.toStdString();
        if (made) made->awakeFromNib();
        return made;
    }

    QStringList chainNames(const Lumaveil& from) const
    {
        QStringList names;
        for (const LVEffectRef& effect : from.liveEffects()) names << effect->name();
        return names;
    }

    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;
};

} // namespace

TEST_F(LVRestartTest, TheChainComesBackOnceWithItsSettings)
{
    ASSERT_TRUE(app->setNamedSource(QStringLiteral("Test Pattern")));
    ASSERT_TRUE(app->addNamedEffect(QStringLiteral("PIP")));
    ASSERT_TRUE(app->setOtherSourceNamed(app->liveEffects().back(), QStringLiteral("Test Pattern")));
    app->liveEffects().back()->setParameterValue(QStringLiteral("size"), 0.6);
    const QStringList before = chainNames(*app);
    const QString path = dir.filePath(QStringLiteral("data/restart-chain.json"));
    QString error;
    ASSERT_TRUE(LVSaveChainForRestart(*app, path, &error)) << error.toStdString();
    const QFile::Permissions others = QFile::ReadGroup | QFile::WriteGroup | QFile::ExeGroup | QFile::ReadOther |
                                      QFile::WriteOther | QFile::ExeOther;
    EXPECT_EQ(QFile::permissions(path) & others, QFile::Permissions()) << "only the user reads it";

    app.reset();
    app = makeApp();
    ASSERT_TRUE(LVRestoreChain(*app, path, &error)) << error.toStdString();
    EXPECT_EQ(chainNames(*app), before);
    EXPECT_DOUBLE_EQ(app->liveEffects().back()->parameterValue(QStringLiteral("size")).toDouble(), 0.6);
    EXPECT_FALSE(QFile::exists(path)) << "read back once";
}

TEST_F(LVRestartTest, RefusesWhatIsNotAChainFileAndKeepsTheChain)
{
    ASSERT_TRUE(lvWriteFiles(dir.path(), {{"notes.json", "{\"chain\": "}}));
    ASSERT_TRUE(QFile::link(dir.filePath(QStringLiteral("notes.json")), dir.filePath(QStringLiteral("link.json"))));
    const struct {
        const char* file;
        const char* says;
    } cases[] = {
        {"link.json", "is not a regular file"},
        {"missing.json", "is not a regular file"},
        {"notes.json", "is not a saved chain"},
    };
    ASSERT_TRUE(app->setNamedSource(QStringLiteral("Test Pattern")));
    for (const auto& c : cases) {
        QString error;
        EXPECT_FALSE(LVRestoreChain(*app, dir.filePath(QString::fromLatin1(c.file)), &error)) << c.file;
        EXPECT_TRUE(error.contains(QString::fromLatin1(c.says))) << error.toStdString();
        EXPECT_EQ(chainNames(*app), QStringList{QStringLiteral("Test Pattern")}) << c.file;
    }
}
