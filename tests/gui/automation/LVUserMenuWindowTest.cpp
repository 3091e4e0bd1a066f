// The user menu in the main window: a shortcut recorded in the editor (Escape never
// recorded) becomes the menu item's key equivalent, and pressing it loads the setup.
#include "control/usermenu/LVUserMenu.h"
#include "gui/automation/LVUserMenuWindow.h"
#include "setups/model/LVSetupManager.h"
#include "sources/testpattern/TestPatternSource.h"
#include "tests/gui/LVGuiTestSupport.h"

#include <QCheckBox>
#include <QListWidget>
#include <QMenuBar>
#include <QSignalSpy>

namespace {

TEST(LVUserMenuWindowTest, ARecordedShortcutLoadsASetupInTheWindow)
{
    lvEnsureApplication<QApplication>();
    LVRegisterTestPatternSource();
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    const QString setups = dir.filePath(QStringLiteral("Saved Setups"));
    ASSERT_TRUE(lvWriteFiles(setups, {{"Intro", R"({"encoded": [{"class": "TestPatternSource", "enabled": true}], "midiKey": 0})"}}));

    LVDefaults defaults(dir.filePath(QStringLiteral("prefs.json")));
    std::unique_ptr<Lumaveil> app;
    std::unique_ptr<LVMainWindow> window;
    lvStartMainWindow(defaults, QStringLiteral(LV_TEST_BUNDLED_EFFECTS), app, window);
    LVSetupManager setupManager(defaults, app->context(), setups);
    setupManager.startup();
    app->setSetupCatalog(&setupManager);
    window->setSetupManager(&setupManager);

    LVUserMenu menu(defaults, {app.get(), nullptr}, &setupManager);
    menu.awakeFromNib();
    menu.bootstrap();
    app->setKeyDispatcher(&menu);
    LVUserMenuWindow editor(menu);
    window->menuBar()->addMenu(new LVUserMenuMenu(menu, [] {}, [] {}, window.get()));
    editor.show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(&editor));

    // The chooser offers the catalogue's setups; choosing one gives the selected entry its action.
    editor.selectEntry(menu.addEntry());
    ASSERT_EQ(editor.loadMenu()->actions().size(), 1);
    editor.loadMenu()->actions().first()->trigger();
    ASSERT_NE(menu.entryAt(0)->action(), nullptr);
    EXPECT_EQ(menu.entryAt(0)->action()->summary(), QStringLiteral("Load setup \"Intro\""));

    // Escape is not recorded; Ctrl+L is, once the recorder finishes.
    QSignalSpy rebuilt(&menu, &LVUserMenu::menuRebuilt);
    editor.shortcutRecorder()->setFocus();
    QTest::keyClick(editor.shortcutRecorder(), Qt::Key_Escape);
    EXPECT_TRUE(editor.shortcutRecorder()->keySequence().isEmpty());
    QTest::keyClick(editor.shortcutRecorder(), Qt::Key_L, Qt::ControlModifier);
    ASSERT_TRUE(rebuilt.wait(5000));
    EXPECT_EQ(menu.entryAt(0)->combo(), (LVKeyCombo{0x40000, Qt::Key_L}));
    EXPECT_FALSE(editor.exclusiveButton()->isChecked());
    editor.close();

    // The application menu: two fixed items, then the entry with its key equivalent.
    QMenu* userMenu = window->menuBar()->actions().last()->menu();
    ASSERT_NE(userMenu, nullptr);
    ASSERT_EQ(userMenu->actions().size(), 3);
    EXPECT_EQ(userMenu->actions()[2]->text(), QStringLiteral("Load setup \"Intro\""));
    EXPECT_EQ(userMenu->actions()[2]->shortcut(), QKeySequence(Qt::CTRL | Qt::Key_L));

    ASSERT_TRUE(app->liveEffects().empty());
    window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(window.get()));
    QTest::keyClick(window.get(), Qt::Key_L, Qt::ControlModifier);
    ASSERT_EQ(app->liveEffects().size(), 1u);
    EXPECT_EQ(app->liveEffects().front()->name(), QStringLiteral("Test Pattern"));

    app->setKeyDispatcher(nullptr);
    window.reset();
    app.reset();
}

} // namespace
