// The setups windows over a real setup manager on disk: the save sheet, the list, its
// confirmations and renames, and the sets editor.
#include "gui/setups/LVSaveSetupDialog.h"
#include "gui/setups/LVSavedSetupsWindow.h"
#include "gui/setups/LVSetupManagerController.h"
#include "setups/model/LVSetupManager.h"
#include "tests/gui/LVGuiTestSupport.h"
#include "tests/setups/SetupTestKinds.h"

#include <QCheckBox>
#include <QInputDialog>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QPushButton>
#include <QTableWidget>

namespace {

QString rowText(const LVSavedSetupsWindow& window, int row)
{
    return window.list()->model()->index(row, 0).data().toString();
}

bool rowIsBold(const LVSavedSetupsWindow& window, int row)
{
    return window.list()->model()->index(row, 0).data(Qt::FontRole).value<QFont>().bold();
}

int rowCount(const LVSavedSetupsWindow& window)
{
    return window.list()->model()->rowCount();
}

// Stands in for the controller's chain.
struct Chain {
    std::vector<LVEffectRef> effects;
    std::vector<int> selected;
    std::vector<std::pair<std::vector<LVEffectRef>, bool>> added;
};

class SetupsWindows : public testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication<QApplication>(); }

    void SetUp() override
    {
        registerSetupTestKinds();
        defaults_ = std::make_unique<LVDefaults>(dir_.filePath("prefs.json"));
        manager_ = std::make_unique<LVSetupManager>(*defaults_, nullptr, dir_.filePath("Saved Setups"));
        manager_->startup();
        host_.liveEffects = [this] { return chain_.effects; };
        host_.selectedRows = [this] { return chain_.selected; };
        host_.addEffectsFrom = [this](const std::vector<LVEffectRef>& effects, bool merge) {
            chain_.added.emplace_back(effects, merge);
        };
        host_.defaults = defaults_.get();
    }

    void saveSetup(const QString& name)
    {
        ASSERT_TRUE(manager_->newSavedSetupWithName(name, {newTestEffect(setupTestEffect())}));
    }

    QTemporaryDir dir_;
    std::unique_ptr<LVDefaults> defaults_;
    std::unique_ptr<LVSetupManager> manager_;
    Chain chain_;
    LVSetupsHost host_;
};

TEST_F(SetupsWindows, SaveSheetCheckBoxes)
{
    const struct {
        const char* label;
        bool source;
        int effects;
        std::vector<int> selected;
        bool selectionOnlyEnabled, omitSourceOn, omitSourceEnabled;
    } cases[] = {
        {"only a source is saved whole", true, 0, {0}, false, false, false},
        {"source and effects", true, 2, {}, false, true, true},
        {"source and effects, one selected", true, 2, {1}, true, true, true},
        {"effects only", false, 2, {0}, true, true, false},
        {"one effect", false, 1, {0}, false, true, false},
        {"empty chain", false, 0, {}, false, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        chain_.effects.clear();
        if (c.source) chain_.effects.push_back(newTestEffect(setupTestSource()));
        for (int i = 0; i < c.effects; ++i) chain_.effects.push_back(newTestEffect(setupTestEffect()));
        chain_.selected = c.selected;
        LVSaveSetupDialog dialog(*manager_, host_, "Prefilled");
        EXPECT_EQ(dialog.nameField()->text(), "Prefilled");
        EXPECT_FALSE(dialog.selectionOnlyButton()->isChecked());
        EXPECT_EQ(dialog.selectionOnlyButton()->isEnabled(), c.selectionOnlyEnabled);
        EXPECT_EQ(dialog.saveIncludeSourceButton()->isChecked(), c.omitSourceOn);
        EXPECT_EQ(dialog.saveIncludeSourceButton()->isEnabled(), c.omitSourceEnabled);
    }
}

TEST_F(SetupsWindows, WhatASaveKeeps)
{
    const auto s = newTestEffect(setupTestSource()), a = newTestEffect(setupTestEffect()),
               b = newTestEffect(setupTestEffect());
    const std::vector<LVEffectRef> chain{s, a, b};
    using V = std::vector<LVEffectRef>;
    EXPECT_EQ(LVSaveSetupDialog::effectsToSave(chain, {}, false, true), V({a, b}));
    EXPECT_EQ(LVSaveSetupDialog::effectsToSave(chain, {}, false, false), V({s, a, b}));
    EXPECT_EQ(LVSaveSetupDialog::effectsToSave(chain, {2, 0}, true, true), V({s, b})) << "selection keeps its source";
    EXPECT_EQ(LVSaveSetupDialog::effectsToSave({a, b}, {}, false, true), V({a, b}));
    EXPECT_EQ(LVSaveSetupDialog::effectsToSave({s}, {}, false, false), V({s}));
}

TEST_F(SetupsWindows, SaveWritesTheSetupWithTheFrameAsIcon)
{
    chain_.effects = {newTestEffect(setupTestSource()), newTestEffect(setupTestEffect())};
    manager_->setFrameGrabber([] {
        QImage frame(320, 240, QImage::Format_ARGB32_Premultiplied);
        frame.fill(Qt::blue);
        return frame;
    });
    LVSavedSetupsWindow window(*manager_, host_);

    LVSaveSetupDialog dialog(*manager_, host_, "");
    dialog.doSaveOk();
    EXPECT_TRUE(manager_->allSetups().empty()) << "an empty name saves nothing";

    dialog.nameField()->setText("bad/name");
    dialog.doSaveOk();
    EXPECT_TRUE(manager_->allSetups().empty());
    EXPECT_NE(dialog.findChild<QMessageBox*>(), nullptr) << "the reason is shown";

    dialog.nameField()->setText("Live Show");
    dialog.doSaveOk();
    EXPECT_EQ(dialog.result(), QDialog::Accepted);
    const LVSavedSetup stored(nullptr, manager_->savedSetupPathForName("Live Show"));
    EXPECT_EQ(stored.numEffects(), 1) << "the source is left out by default";
    EXPECT_EQ(stored.icon().pixel(32, 32), qRgb(0, 0, 255));
    ASSERT_EQ(rowCount(window), 1);
    EXPECT_EQ(rowText(window, 0), "Live Show");
    EXPECT_FALSE(window.list()->model()->index(0, 0).data(Qt::DecorationRole).value<QIcon>().isNull());
}

TEST_F(SetupsWindows, ListIsInNameOrderAndLoadsOrMerges)
{
    for (const char* name : {"beta", "Alpha", "Gamma"}) saveSetup(name);
    LVSavedSetupsWindow window(*manager_, host_);
    QStringList shown;
    for (int row = 0; row < rowCount(window); ++row) shown.append(rowText(window, row));
    EXPECT_EQ(shown, QStringList({"Alpha", "beta", "Gamma"}));

    window.selectSetupNamed("beta");
    window.doSelectOrMergeSetup(Qt::NoModifier);
    window.doSelectOrMergeSetup(Qt::AltModifier);
    window.doMergeSetup();
    ASSERT_EQ(chain_.added.size(), 3u);
    EXPECT_FALSE(chain_.added[0].second);
    EXPECT_TRUE(chain_.added[1].second);
    EXPECT_TRUE(chain_.added[2].second);
    EXPECT_EQ(chain_.added[0].first.front()->savedSetupName(), "beta");
}

TEST_F(SetupsWindows, RemoveAsksNoThenYes)
{
    saveSetup("Keep");
    saveSetup("Gone");
    LVSavedSetupsWindow window(*manager_, host_);
    const QString path = manager_->savedSetupPathForName("Gone");

    for (const char* answer : {"No", "Yes"}) {
        window.selectSetupNamed("Gone");
        window.doRemoveSetup();
        auto* box = window.findChild<QMessageBox*>("removeConfirmation");
        ASSERT_NE(box, nullptr);
        EXPECT_EQ(lvButtonTexts(*box), QStringList({"No", "Yes"}));
        EXPECT_EQ(box->defaultButton()->text(), "No");
        ASSERT_TRUE(lvAnswer(box, answer));
        EXPECT_EQ(QFile::exists(path), QString(answer) == "No");
        EXPECT_EQ(manager_->hasSetupWithName("Gone"), QString(answer) == "No");
    }
    EXPECT_EQ(rowCount(window), 1);
}

TEST_F(SetupsWindows, RenameRefusesATakenNameAndAutoLoadIsBold)
{
    saveSetup("One");
    saveSetup("Two");
    LVSavedSetupsWindow window(*manager_, host_);

    window.selectSetupNamed("One");
    window.doRenameSetup();
    auto* rename = window.findChild<QInputDialog*>("renameSetup");
    ASSERT_NE(rename, nullptr);
    rename->setTextValue("Two");
    rename->accept();
    EXPECT_NE(window.findChild<QMessageBox*>("setupProblem"), nullptr);
    EXPECT_TRUE(manager_->hasSetupWithName("One"));

    window.selectSetupNamed("One");
    window.doRenameSetup();
    rename = window.findChildren<QInputDialog*>("renameSetup").last();
    rename->setTextValue("Uno");
    rename->accept();
    EXPECT_TRUE(manager_->hasSetupWithName("Uno"));
    EXPECT_EQ(rowText(window, 1), "Uno");

    window.selectSetupNamed("Uno");
    window.doSelectAutoLoad();
    EXPECT_EQ(defaults_->stringForKey("autoload"), "Uno");
    EXPECT_TRUE(rowIsBold(window, 1));
    EXPECT_FALSE(rowIsBold(window, 0));
    window.doSelectAutoLoad();
    EXPECT_TRUE(defaults_->stringForKey("autoload").isEmpty());
    EXPECT_FALSE(rowIsBold(window, 1));
}

TEST_F(SetupsWindows, SetsEditorMenuTableAndPrompts)
{
    saveSetup("A");
    saveSetup("B");
    LVSetupManagerController editor(*manager_);
    const int fixed = LVSetupManagerController::fixedMenuItems;

    for (const char* typed : {"  Evening  ", "   "}) {
        editor.doAddSet();
        auto* dialog = editor.findChildren<QDialog*>("newSet").last();
        dialog->findChild<QLineEdit*>()->setText(typed);
        dialog->accept();
    }
    EXPECT_EQ(manager_->allSets().size(), 1u) << "a blank name makes no set";
    EXPECT_EQ(manager_->allSets().front()->name(), "Evening");
    manager_->addSet("Morning");
    ASSERT_EQ(editor.setsMenu()->actions().size(), fixed + 2);
    EXPECT_EQ(editor.setsMenu()->actions().at(fixed)->text(), "Evening");
    ASSERT_EQ(editor.setsTable()->columnCount(), 3);
    EXPECT_EQ(editor.setsTable()->horizontalHeaderItem(2)->text(), "Morning");

    editor.setsTable()->item(1, 2)->setCheckState(Qt::Checked);
    EXPECT_EQ(manager_->setWithName("Morning")->setups().size(), 1u);
    EXPECT_EQ(manager_->setWithName("Morning")->setups().front()->name(), "B");
    editor.setsTable()->item(1, 2)->setCheckState(Qt::Unchecked);
    EXPECT_TRUE(manager_->setWithName("Morning")->setups().empty());

    editor.doPickSet("Morning");
    EXPECT_EQ(manager_->currentSet()->name(), "Morning");
    EXPECT_TRUE(editor.setsMenu()->actions().at(fixed + 1)->isChecked());
    editor.doSelectAll();
    editor.doRefresh();
    EXPECT_EQ(manager_->currentSet(), manager_->allSet());
    for (int i = fixed; i < editor.setsMenu()->actions().size(); ++i) {
        EXPECT_FALSE(editor.setsMenu()->actions().at(i)->isChecked());
    }

    editor.setsTable()->clearSelection();
    editor.doRemoveSet();
    auto* prompt = editor.findChild<QMessageBox*>("selectColumn");
    ASSERT_NE(prompt, nullptr);
    EXPECT_EQ(manager_->allSets().size(), 2u);

    editor.setsTable()->setCurrentCell(0, 1);
    editor.doRemoveSet();
    ASSERT_EQ(manager_->allSets().size(), 1u);
    EXPECT_EQ(manager_->allSets().front()->name(), "Morning");
    EXPECT_EQ(editor.setsMenu()->actions().size(), fixed + 1);
}

} // namespace
