#include "SetupTestKinds.h"
#include "core/LVDefaults.h"
#include "core/util/LVBoundedRead.h"
#include "setups/model/LVSetupManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

namespace {

// The names of setups or of sets, in their order.
template <class List>
QStringList namesOf(const List& items)
{
    QStringList names;
    for (const auto& item : items) names.append(item->name());
    return names;
}

class SetupManager : public testing::Test {
protected:
    void SetUp() override
    {
        registerSetupTestKinds();
        QDir().mkpath(setupDir());
    }

    QString setupDir() const { return dir_.filePath("Lumaveil/Saved Setups"); }
    QString prefsPath() const { return dir_.filePath("prefs.json"); }

    // A fresh start: preferences read from disk, the folder scanned.
    std::unique_ptr<LVSetupManager> start()
    {
        defaults_ = std::make_unique<LVDefaults>(prefsPath());
        auto manager = std::make_unique<LVSetupManager>(*defaults_, nullptr, setupDir());
        manager->startup();
        return manager;
    }

    void save(LVSetupManager& manager, const QString& name, bool withSource = false)
    {
        std::vector<LVEffectRef> effects;
        if (withSource) effects.push_back(newTestEffect(setupTestSource()));
        effects.push_back(newTestEffect(setupTestEffect()));
        ASSERT_TRUE(manager.newSavedSetupWithName(name, effects));
    }

    QTemporaryDir dir_;
    std::unique_ptr<LVDefaults> defaults_;
};

TEST_F(SetupManager, ScanTakesEveryVisibleFileInCaseInsensitiveOrder)
{
    for (const char* name : {"beta", "Alpha", "alpha", "Gamma", ".hidden", ".Gamma.unreadable"}) {
        writeAll(setupDir() + "/" + name, "[]");
    }
    writeAll(setupDir() + "/Damaged", "{\"encoded\": [");
    QDir(setupDir()).mkdir("A folder");

    auto manager = start();
    EXPECT_EQ(namesOf(manager->allSetups()), QStringList({"Alpha", "alpha", "beta", "Damaged", "Gamma"}));
    EXPECT_TRUE(manager->hasSetupWithName("alpha"));
    EXPECT_FALSE(manager->hasSetupWithName("ALPHA"));
    EXPECT_EQ(manager->currentSet(), manager->allSet());
    manager.reset();
    EXPECT_EQ(readAll(setupDir() + "/Damaged"), "{\"encoded\": [") << "start and quit never rewrite a file";
    EXPECT_EQ(readAll(setupDir() + "/beta"), "[]");

    manager = start();
    save(*manager, "Damaged");
    EXPECT_EQ(readAll(setupDir() + "/.Damaged.unreadable"), "{\"encoded\": [") << "saving over it keeps it aside";
    EXPECT_EQ(manager->setupWithName("Damaged")->fileForm(), LVSavedSetup::FileForm::Dictionary);
}

TEST_F(SetupManager, SavingAnExistingNameReplacesItInEverySetAtTheEnd)
{
    auto manager = start();
    for (const char* name : {"A", "B", "C"}) save(*manager, name);
    LVSetupManagerSet* news = manager->addSet("News");
    LVSetupManagerSet* sport = manager->addSet("Sport");
    for (const auto& setup : manager->allSetups()) news->addSetup(setup);
    sport->addSetup(manager->setupWithName("C"));
    const LVSavedSetup* oldA = manager->setupWithName("A").get();

    save(*manager, "A", true);
    EXPECT_EQ(namesOf(manager->allSetups()), QStringList({"B", "C", "A"}));
    EXPECT_EQ(namesOf(news->setups()), QStringList({"B", "C", "A"}));
    EXPECT_EQ(namesOf(sport->setups()), QStringList({"C"})) << "a set without the name does not gain it";
    EXPECT_NE(news->setups().back().get(), oldA);
    EXPECT_EQ(news->setups().back(), manager->setupWithName("A"));
    EXPECT_TRUE(manager->setupWithName("A")->hasVideoSource());
}

TEST_F(SetupManager, TheFirstSaveMakesTheFolderAndJoinsTheCurrentSet)
{
    QDir(setupDir()).removeRecursively();
    auto manager = start();
    EXPECT_TRUE(manager->allSetups().empty());
    manager->addSet("Evening");
    manager->selectSetWithName("Evening");
    save(*manager, "Intro");
    EXPECT_TRUE(QFileInfo(setupDir() + "/Intro").isFile());
    EXPECT_EQ(namesOf(manager->currentSet()->setups()), QStringList({"Intro"}));

    // A name that would leave the folder writes nothing.
    QString error;
    EXPECT_FALSE(manager->newSavedSetupWithName("../a", {}, &error));
    EXPECT_FALSE(error.isEmpty());
    EXPECT_EQ(namesOf(manager->allSetups()), QStringList({"Intro"}));
    EXPECT_FALSE(QFile::exists(dir_.filePath("Lumaveil/a")));
}

TEST_F(SetupManager, RemovingASetupLeavesEverySetButKeepsFileAndHints)
{
    auto manager = start();
    save(*manager, "Keep");
    save(*manager, "Drop");
    LVSetupManagerSet* set = manager->addSet("Show");
    set->addSetup(manager->setupWithName("Drop"));
    set->setPositionHintForSetup("Drop", 2, 3);
    QSignalSpy current(manager.get(), &LVSetupManager::currentSetChanged);

    const LVSavedSetupRef drop = manager->setupWithName("Drop");
    manager->removeSavedSetup(drop.get());
    EXPECT_EQ(namesOf(manager->allSetups()), QStringList({"Keep"}));
    EXPECT_TRUE(set->setups().empty());
    EXPECT_GE(current.count(), 1);
    ASSERT_TRUE(set->positionHintForSetup("Drop"));
    EXPECT_EQ(set->positionHintForSetup("Drop")->col, 3);
    EXPECT_TRUE(QFile::exists(drop->path()));
}

TEST_F(SetupManager, UserRenameKeepsSetMembershipAndHintsAcrossARestart)
{
    {
        auto manager = start();
        save(*manager, "Old");
        save(*manager, "Taken");
        LVSetupManagerSet* set = manager->addSet("Show");
        set->addSetup(manager->setupWithName("Old"));
        set->setPositionHintForSetup("Old", 3, 2);
        manager->allSet()->setPositionHintForSetup("Old", 0, 5);

        QString error;
        EXPECT_FALSE(manager->renameSavedSetup(manager->setupWithName("Old"), "Taken", &error));
        EXPECT_FALSE(error.isEmpty());
        EXPECT_FALSE(manager->renameSavedSetup(manager->setupWithName("Old"), "a/b", &error));
        EXPECT_TRUE(manager->renameSavedSetup(manager->setupWithName("Old"), "old", &error)) << "case differs: free";
        EXPECT_FALSE(set->positionHintForSetup("Old"));
    }
    auto manager = start();
    EXPECT_EQ(namesOf(manager->allSetups()), QStringList({"old", "Taken"}));
    EXPECT_EQ(namesOf(manager->setWithName("Show")->setups()), QStringList({"old"}));
    EXPECT_EQ(manager->setWithName("Show")->positionHintForSetup("old")->row, 3);
    EXPECT_EQ(manager->allSet()->positionHintForSetup("old")->col, 5);
}

TEST_F(SetupManager, SetOperations)
{
    auto manager = start();
    QSignalSpy sets(manager.get(), &LVSetupManager::allSetsChanged);
    QSignalSpy current(manager.get(), &LVSetupManager::currentSetChanged);
    LVSetupManagerSet* a = manager->addSet("A");
    EXPECT_EQ(manager->addSet("A"), a) << "a known name gives the existing set";
    manager->addSet("B");
    EXPECT_EQ(sets.count(), 2);
    EXPECT_EQ(manager->setWithName("a"), nullptr);
    EXPECT_EQ(manager->setWithName(""), nullptr);

    manager->selectSetWithName("A");
    EXPECT_EQ(manager->currentSet(), a);
    current.clear();
    manager->removeSet("A");
    EXPECT_EQ(manager->currentSet(), manager->allSet()) << "removing the current set falls back to all setups";
    EXPECT_EQ(current.count(), 1);
    EXPECT_EQ(namesOf(manager->allSets()), QStringList({"B"}));
    manager->removeSet("Nope");
    manager->selectSetWithName("Nope");
    EXPECT_EQ(manager->currentSet(), manager->allSet());
}

TEST_F(SetupManager, PendingSetsAndHintsAreWrittenAtQuitAndComeBackInTheirOrder)
{
    {
        auto manager = start();
        for (const char* name : {"One", "Two", "Three"}) save(*manager, name);
        LVSetupManagerSet* zulu = manager->addSet("Zulu");
        LVSetupManagerSet* alpha = manager->addSet("Alpha");
        zulu->addSetup(manager->setupWithName("Three"));
        zulu->addSetup(manager->setupWithName("One"));
        zulu->setPositionHintForSetup("One", 1, 4);
        alpha->addSetup(manager->setupWithName("Two"));
        manager->allSet()->setPositionHintForSetup("Two", -1, 7);
        manager->selectSetWithName("Alpha");
        EXPECT_TRUE(manager->needsPersist()) << "the quit writes what is pending";
    }
    QFile::remove(setupDir() + "/Two");

    auto manager = start();
    EXPECT_EQ(namesOf(manager->allSets()), QStringList({"Zulu", "Alpha"}));
    EXPECT_EQ(namesOf(manager->setWithName("Zulu")->setups()), QStringList({"Three", "One"}));
    EXPECT_TRUE(manager->setWithName("Alpha")->setups().empty()) << "a member whose file is gone is dropped";
    const auto hint = manager->setWithName("Zulu")->positionHintForSetup("One");
    ASSERT_TRUE(hint);
    EXPECT_EQ(hint->row, 1);
    EXPECT_EQ(hint->col, 4);
    EXPECT_EQ(manager->allSet()->positionHintForSetup("Two")->row, -1);
    EXPECT_FALSE(manager->setWithName("Zulu")->positionHintForSetup("Three"));
    EXPECT_EQ(manager->currentSet(), manager->allSet()) << "the selected set is not stored";
}

TEST_F(SetupManager, ChangesWithinATenthOfASecondAreSavedOnce)
{
    auto manager = start();
    save(*manager, "S");
    QSignalSpy written(defaults_.get(), &LVDefaults::valueChanged);
    LVSetupManagerSet* set = manager->addSet("Burst");
    set->addSetup(manager->setupWithName("S"));
    set->setPositionHintForSetup("S", 0, 1);
    set->removeSetup(manager->setupWithName("S").get());
    EXPECT_TRUE(manager->needsPersist());
    EXPECT_EQ(written.count(), 0);

    QTRY_VERIFY_WITH_TIMEOUT(!manager->needsPersist(), 2000);
    int setupSetsWrites = 0;
    for (const auto& args : written) setupSetsWrites += args.at(0).toString() == "setupSets";
    EXPECT_EQ(setupSetsWrites, 1);
    const QJsonObject stored = defaults_->dictionaryForKey("setupSets").value("Burst").toObject();
    EXPECT_TRUE(stored.value("setupNames").toArray().isEmpty());
    EXPECT_EQ(stored.value("positionHints").toObject().value("S").toObject().value("col").toInt(), 1);
}

TEST_F(SetupManager, CatalogueLoadsByNameFromTheCurrentSetAndByPath)
{
    auto manager = start();
    save(*manager, "Studio", true);
    save(*manager, "studio");
    auto effects = manager->effectsOfNamedSetup("Studio", nullptr);
    ASSERT_TRUE(effects);
    ASSERT_EQ(effects->size(), 2u);
    EXPECT_EQ(effects->front()->savedSetupName(), "Studio");
    EXPECT_TRUE(effects->front()->isSource());
    EXPECT_EQ(manager->effectsOfNamedSetup("studio", nullptr)->size(), 1u);
    EXPECT_FALSE(manager->effectsOfNamedSetup("STUDIO", nullptr));

    manager->addSet("Empty");
    manager->selectSetWithName("Empty");
    EXPECT_FALSE(manager->effectsOfNamedSetup("Studio", nullptr)) << "only the current set is searched";

    EXPECT_EQ(manager->effectsOfSetupAtPath(setupDir() + "/Studio", nullptr)->size(), 2u);
    writeAll(dir_.filePath("notes.txt"), "shopping list");
    EXPECT_FALSE(manager->effectsOfSetupAtPath(dir_.filePath("notes.txt"), nullptr));
    EXPECT_FALSE(manager->effectsOfSetupAtPath(dir_.filePath("missing"), nullptr));
}

TEST_F(SetupManager, FilesThatCannotBeSetupsAreRefusedWithOneLineEach)
{
    auto manager = start();
    save(*manager, "Good");
    manager.reset();
    ASSERT_TRUE(QFile::link("/dev/zero", setupDir() + "/Zero"));
    {
        QFile huge(setupDir() + "/Huge");
        ASSERT_TRUE(huge.open(QIODevice::WriteOnly));
        ASSERT_TRUE(huge.resize(kLVSetupLimit + 1));
    }
    const QByteArray notUtf8 = QFile::encodeName(setupDir()) + "/Caf\xe9";
    {
        const int fd = ::open(notUtf8.constData(), O_WRONLY | O_CREAT, 0600);
        ASSERT_GE(fd, 0);
        ::close(fd);
    }
    QJsonArray many;
    for (int i = 0; i < 5000; ++i) many.append(QString::fromLatin1(kForeignBlob.toBase64()));
    writeAll(setupDir() + "/Many", QJsonDocument(many).toJson());

    testing::internal::CaptureStderr();
    manager = start();
    std::string log = testing::internal::GetCapturedStderr();
    const std::string expected[] = {"/Zero is a symbolic link; refused", "/Huge is larger than the limit of 16 MB; refused",
                                    "\"Caf%E9\" in " + setupDir().toStdString() + " skipped: its name is not UTF-8"};
    for (const std::string& line : expected) {
        EXPECT_NE(log.find(line), std::string::npos) << line << " not in:\n" << log;
    }
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 3) << log;
    EXPECT_EQ(manager->effectsOfNamedSetup("Good", nullptr)->size(), 1u);

    // By name as by path: a setup that cannot be read is refused, not an empty chain.
    testing::internal::CaptureStderr();
    EXPECT_FALSE(manager->effectsOfNamedSetup("Huge", nullptr));
    EXPECT_FALSE(manager->effectsOfSetupAtPath(setupDir() + "/Huge", nullptr));
    log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2) << log;

    // Five thousand effects of an unknown kind: one line with the count, naming the setup.
    testing::internal::CaptureStderr();
    EXPECT_EQ(manager->effectsOfNamedSetup("Many", nullptr)->size(), 0u);
    log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log, "Saved setup \"Many\": Effect archive names the unknown class \"HoloWarp\"; skipped (5000 times)\n");
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
