// The user menu: the exclusive raw-key rule, the actions' summaries and archive, saving on
// every rebuild, and actions that find their timeline by name; the control interface's
// timeline and user-menu commands.
#include "automation/LVTimeLineManager.h"
#include "control/remote/LVControlCommands.h"
#include "control/usermenu/LVAutomationCommands.h"
#include "control/usermenu/LVUserMenu.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>

namespace {

class LVUserMenuTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        defaults = std::make_unique<LVDefaults>(dir.filePath(QStringLiteral("prefs.json")));
        timeLines = std::make_unique<LVTimeLineManager>(*defaults, nullptr, nullptr);
        timeLines->startup();
        menu = std::make_unique<LVUserMenu>(*defaults, LVUserMenuTargets{nullptr, timeLines.get()});
        menu->awakeFromNib();
        // Script actions read the interpreter from these, never the user's own.
        LVDefaults::setStandardUserDefaults(defaults.get());
    }
    void TearDown() override { LVDefaults::setStandardUserDefaults(nullptr); }
    QJsonArray stored() const { return defaults->valueForKey(QStringLiteral("userMenu")).toArray(); }

    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<LVTimeLineManager> timeLines;
    std::unique_ptr<LVUserMenu> menu;
};

TEST_F(LVUserMenuTest, OnlyAnExclusiveEntryWithTheFullFlagWordTakesARawKey)
{
    LVTimeLine* show = timeLines->newTimeLine();
    show->setName(QStringLiteral("Show"));
    const int F5 = Qt::Key_F5;
    const struct {
        const char* name;
        bool exclusive;
        uint64_t flags;
        int64_t code;
        int eventKey, eventModifiers;
        bool taken;
    } rows[] = {
        {"all five bits stored, exclusive", true, 0x9E0000, F5, F5, 0, true},
        {"the event's own modifiers are not compared", true, 0x9E0000, F5, F5, Qt::ShiftModifier, true},
        {"not exclusive", false, 0x9E0000, F5, F5, 0, false},
        {"another key", true, 0x9E0000, F5, Qt::Key_F6, 0, false},
        {"four bits without Function", true, 0x1E0000, F5, F5, 0, false},
        {"more than the five bits", true, 0x9E0000 | 0x10000, F5, F5, 0, false},
        {"a plain key", true, 0, Qt::Key_A, Qt::Key_A, 0, false},
        {"no shortcut", true, 0x9E0000, -1, F5, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        show->setRunning(false);
        while (!menu->entries().empty()) menu->removeEntryAt(0);
        const int index = menu->addEntry();
        menu->setCurrentAction(index, std::make_unique<LVTimeLineMenuAction>(*show));
        menu->shortcutRecorderKeyComboDidChange(index, {row.flags, row.code});
        menu->doSetExclusiveAccess(index, row.exclusive);
        EXPECT_EQ(menu->dispatchWithEvent(row.eventKey, row.eventModifiers), row.taken);
        EXPECT_EQ(show->isRunning(), row.taken);
    }
}

TEST_F(LVUserMenuTest, KeyCombinationsAreStoredWithTheDocumentedBits)
{
    const struct { int key, modifiers; uint64_t flags; } rows[] = {
        {Qt::Key_A, 0, 0},
        {Qt::Key_A, Qt::ShiftModifier, 0x20000},
        {Qt::Key_A, Qt::ControlModifier, 0x40000},
        {Qt::Key_A, Qt::AltModifier, 0x80000},
        {Qt::Key_A, Qt::MetaModifier, 0x100000},
        {Qt::Key_F5, 0, 0x800000},
        {Qt::Key_Left, Qt::ControlModifier, 0x840000},
        {Qt::Key_F5, Qt::ShiftModifier | Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier, 0x9E0000},
    };
    for (const auto& row : rows) {
        const LVKeyCombo combo = LVKeyComboFromQt(row.key, row.modifiers);
        EXPECT_EQ(combo.flags, row.flags) << std::hex << row.key << " " << row.modifiers;
        EXPECT_EQ(combo.code, row.key);
        EXPECT_EQ(LVQtModifiersFromFlags(combo.flags), row.modifiers);
    }
}

TEST_F(LVUserMenuTest, ActionsSumUpAndComeBackFromTheArchive)
{
    QFile script(dir.filePath(QStringLiteral("lights.sh")));
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write("echo lights\n");
    script.close();
    std::vector<std::pair<std::unique_ptr<LVUserMenuAction>, QString>> rows;
    rows.emplace_back(std::make_unique<LVSavedSetupMenuAction>("Intro", false), "Load setup \"Intro\"");
    rows.emplace_back(std::make_unique<LVSavedSetupMenuAction>("Intro", true), "Merge setup \"Intro\"");
    rows.emplace_back(std::make_unique<LVStudioToggleMenuAction>("Cam"), "Studio Toggle \"Cam\"");
    rows.emplace_back(std::make_unique<LVStudioTransitionMenuAction>("<default>"), "Studio Transition");
    rows.emplace_back(std::make_unique<LVStudioTransitionMenuAction>("Wipe"), "Studio Transition \"Wipe\"");
    rows.emplace_back(std::make_unique<LVTimeLineMenuAction>("Show"), "Start Automation \"Show\"");
    rows.emplace_back(std::make_unique<LVStopTimeLineMenuAction>("Show"), "Stop Automation \"Show\"");
    rows.emplace_back(std::make_unique<LVStudioSelectorMenuAction>("Cut", "doCut:"), "Cut");
    rows.emplace_back(std::make_unique<LVAppleScriptMenuAction>(script.fileName()), "AppleScript \"lights.sh\"");
    for (auto& [action, summary] : rows) {
        EXPECT_EQ(action->summary(), summary);
        const QJsonObject archived = action->encode();
        const auto back = LVUserMenuAction::decode(archived);
        ASSERT_NE(back, nullptr) << qPrintable(summary);
        EXPECT_EQ(back->summary(), summary);
        EXPECT_EQ(back->encode(), archived);
    }
    EXPECT_EQ(rows[1].first->encode().value(QStringLiteral("merge")), QJsonValue(true));
    EXPECT_EQ(rows[7].first->encode().value(QStringLiteral("action")), QJsonValue(QStringLiteral("doCut:")));
    EXPECT_TRUE(static_cast<LVAppleScriptMenuAction*>(rows[8].first.get())->hasScript());
    EXPECT_FALSE(LVAppleScriptMenuAction(dir.filePath(QStringLiteral("missing.sh"))).hasScript());
}

TEST_F(LVUserMenuTest, EveryRebuildSavesAndAnEntryWithoutActionKeepsItsShortcut)
{
    QSignalSpy rebuilt(menu.get(), &LVUserMenu::menuRebuilt);
    const int bare = menu->addEntry();
    menu->shortcutRecorderKeyComboDidChange(bare, LVKeyComboFromQt(Qt::Key_B, Qt::ControlModifier));
    const int load = menu->addEntry();
    menu->setCurrentAction(load, std::make_unique<LVSavedSetupMenuAction>("Intro", false));
    EXPECT_EQ(rebuilt.count(), 4);
    EXPECT_FALSE(menu->entryAt(bare)->menuItem().has_value());
    ASSERT_TRUE(menu->entryAt(load)->menuItem().has_value());
    EXPECT_EQ(menu->entryAt(load)->menuItem()->title, QStringLiteral("Load setup \"Intro\""));
    ASSERT_EQ(stored().size(), 2);
    EXPECT_EQ(stored()[0].toObject().value(QStringLiteral("code")).toInt(), int(Qt::Key_B));
    EXPECT_EQ(stored()[0].toObject().value(QStringLiteral("flags")).toInt(), 0x40000);

    // Exclusivity waits for the next rebuild to be saved.
    menu->doSetExclusiveAccess(load, true);
    EXPECT_FALSE(stored()[1].toObject().value(QStringLiteral("exclusive")).toBool());
    menu->rebuildMenu();
    EXPECT_TRUE(stored()[1].toObject().value(QStringLiteral("exclusive")).toBool());

    LVUserMenu reread(*defaults, {});
    reread.awakeFromNib();
    ASSERT_EQ(reread.entries().size(), 2u);
    EXPECT_EQ(reread.entryAt(0)->action(), nullptr);
    EXPECT_EQ(reread.entryAt(0)->shortcutString(), menu->entryAt(0)->shortcutString());
    EXPECT_TRUE(reread.entryAt(1)->isExclusive());
}

TEST_F(LVUserMenuTest, ATimelineActionFindsItsTimelineByName)
{
    LVTimeLine* show = timeLines->newTimeLine();
    show->setName(QStringLiteral("Show"));
    menu->setCurrentAction(menu->addEntry(), std::make_unique<LVTimeLineMenuAction>(*show));
    show->setName(QStringLiteral("Renamed"));
    EXPECT_TRUE(menu->invokeEntry(0));
    EXPECT_FALSE(show->isRunning());
}

QString compact(const QJsonObject& object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

TEST(LVAutomationCommandsTest, TimelinesAndTheUserMenuAreDrivenByName)
{
    lvEnsureApplication();
    QTemporaryDir dir;
    LVDefaults defaults(dir.filePath(QStringLiteral("prefs.json")));
    LVLaunchOptions options;
    options.startTimer = false;
    options.noPublish = true;
    options.folders.bundled = dir.filePath(QStringLiteral("none"));
    QString error;
    const std::unique_ptr<Lumaveil> app = Lumaveil::create(defaults, options, &error);
    ASSERT_TRUE(app) << error.toStdString();

    LVTimeLineManager timeLines(defaults, app.get(), nullptr);
    timeLines.startup();
    LVTimeLine* show = timeLines.newTimeLine();
    show->setName(QStringLiteral("Show"));
    show->addItemNamed(QStringLiteral("Pause"));
    timeLines.newTimeLine()->setName(QStringLiteral("Show")); // the second of a name is never reached
    LVUserMenu menu(defaults, {app.get(), &timeLines});
    menu.awakeFromNib();
    menu.addEntry();
    menu.setCurrentAction(menu.addEntry(), std::make_unique<LVStopTimeLineMenuAction>(*show));
    menu.shortcutRecorderKeyComboDidChange(1, LVKeyComboFromQt(Qt::Key_S, Qt::ControlModifier));
    LVControlCommands commands(*app);
    LVAddAutomationCommands(commands, timeLines, menu);

    const struct { const char* request, *reply; } rows[] = {
        {R"({"command":"timelines"})", R"({"ok":true,"result":[{"name":"Show","state":0},{"name":"Show","state":0}]})"},
        {R"({"command":"startTimeline","name":"Show"})", R"({"ok":true,"result":{"name":"Show","state":1}})"},
        {R"({"command":"pauseTimeline","name":"Show"})", R"({"ok":true,"result":{"name":"Show","state":3}})"},
        {R"({"command":"startTimeline","name":"Nope"})", R"({"error":"no timeline named \"Nope\"","ok":false})"},
        {R"({"command":"stopTimeline"})", nullptr},
        {R"({"command":"userMenu"})",
         R"({"ok":true,"result":[{"exclusive":false,"index":0,"shortcut":"","summary":""},)"
         R"({"exclusive":false,"index":1,"shortcut":"Ctrl+S","summary":"Stop Automation \"Show\""}]})"},
        {R"({"command":"invokeUserMenu","index":0})", R"({"error":"user menu entry 0 has no action","ok":false})"},
        {R"({"command":"invokeUserMenu","index":2})", R"j({"error":"no user menu entry at index 2 (there are 2)","ok":false})j"},
        {R"({"command":"invokeUserMenu","index":0.5})", R"({"error":"invokeUserMenu takes \"index\", a whole number","ok":false})"},
        {R"({"command":"invokeUserMenu","index":1})", R"({"ok":true,"result":{"index":1,"summary":"Stop Automation \"Show\""}})"},
        {R"({"command":"timelines"})", R"({"ok":true,"result":[{"name":"Show","state":0},{"name":"Show","state":0}]})"},
    };
    for (const auto& row : rows) {
        const QJsonObject reply = commands.handle(QJsonDocument::fromJson(row.request).object());
        if (!row.reply) {
            EXPECT_FALSE(reply.value(QStringLiteral("ok")).toBool()) << row.request;
            continue;
        }
        EXPECT_EQ(compact(reply), QString::fromUtf8(row.reply)) << row.request;
    }
}

} // namespace
