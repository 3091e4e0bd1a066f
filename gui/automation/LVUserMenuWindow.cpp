#include "gui/automation/LVUserMenuWindow.h"

#include "control/usermenu/LVUserMenu.h"

#include <QCheckBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

void LVShortcutRecorder::keyPressEvent(QKeyEvent* event)
{
    if (event->key() == Qt::Key_Escape) {
        event->accept();
        return;
    }
    QKeySequenceEdit::keyPressEvent(event);
}

LVUserMenuWindow::LVUserMenuWindow(LVUserMenu& menu, QWidget* parent) : QWidget(parent, Qt::Window), menu_(menu)
{
    setWindowTitle(tr("User Menu"));
    resize(520, 360);
    entries_ = new QListWidget;
    auto* add = new QPushButton(QStringLiteral("+"));
    auto* remove = new QPushButton(QStringLiteral("\u2212"));
    connect(add, &QPushButton::clicked, this, [this] { selectEntry(menu_.addEntry()); });
    connect(remove, &QPushButton::clicked, this, [this] { menu_.removeEntryAt(selectedEntry()); });

    chooser_ = new QToolButton;
    chooser_->setText(tr("Action"));
    chooser_->setPopupMode(QToolButton::InstantPopup);
    auto* actions = new QMenu(this);
    loadMenu_ = actions->addMenu(tr("Load Setup"));
    mergeMenu_ = actions->addMenu(tr("Merge Setup"));
    studioPreviewMenu_ = actions->addMenu(tr("Studio Toggle"));
    studioTransitionMenu_ = actions->addMenu(tr("Studio Transition"));
    for (const auto& [title, operation] : {std::pair{tr("Studio Cut"), LVStudioSelectorMenuAction::cutOperation},
                                           std::pair{tr("Studio Clear"), LVStudioSelectorMenuAction::clearOperation}}) {
        actions->addAction(title, this, [this, title, operation] {
            menu_.setCurrentAction(selectedEntry(), std::make_unique<LVStudioSelectorMenuAction>(title, QString::fromLatin1(operation)));
        });
    }
    timeLineMenu_ = actions->addMenu(tr("Start Automation"));
    stopTimeLineMenu_ = actions->addMenu(tr("Stop Automation"));
    for (const bool start : {true, false}) {
        actions->addAction(start ? tr("Start Recording") : tr("Stop Recording"), this,
                           [this, start] { menu_.setCurrentAction(selectedEntry(), std::make_unique<LVRecordMenuAction>(start)); });
    }
    actions->addAction(tr("Script File\u2026"), this, &LVUserMenuWindow::doSetAppleScript);
    actions->addAction(tr("Clear Telestrator"), this, [this] {
        menu_.setCurrentAction(selectedEntry(), std::make_unique<LVClearTelestratorMenuAction>());
    });
    chooser_->setMenu(actions);

    recorder_ = new LVShortcutRecorder;
    connect(recorder_, &QKeySequenceEdit::editingFinished, this, &LVUserMenuWindow::recordedCombo);
    auto* clear = new QPushButton(tr("No Shortcut"));
    connect(clear, &QPushButton::clicked, this, [this] {
        recorder_->clear();
        menu_.shortcutRecorderKeyComboDidChange(selectedEntry(), {});
    });
    exclusive_ = new QCheckBox(tr("Exclusive"));
    connect(exclusive_, &QCheckBox::toggled, this, [this](bool on) {
        if (!reloading_) menu_.doSetExclusiveAccess(selectedEntry(), on);
    });

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addWidget(chooser_);
    buttons->addStretch();
    auto* shortcut = new QHBoxLayout;
    shortcut->addWidget(new QLabel(tr("Shortcut")));
    shortcut->addWidget(recorder_, 1);
    shortcut->addWidget(clear);
    shortcut->addWidget(exclusive_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(entries_, 1);
    layout->addLayout(buttons);
    layout->addLayout(shortcut);

    connect(entries_, &QListWidget::currentRowChanged, this, [this] {
        if (!reloading_) selectionChanged();
    });
    connect(&menu_, &LVUserMenu::menuRebuilt, this, &LVUserMenuWindow::reloadEntries);
    connect(&menu_, &LVUserMenu::setupsRefreshed, this, &LVUserMenuWindow::refreshSetups);
    connect(&menu_, &LVUserMenu::transitionsRefreshed, this, &LVUserMenuWindow::refreshTransitions);
    connect(&menu_, &LVUserMenu::timeLinesRefreshed, this, &LVUserMenuWindow::refreshTimeLines);
    refreshSetups();
    refreshTransitions();
    refreshTimeLines();
    reloadEntries();
}

void LVUserMenuWindow::show()
{
    QWidget::show();
    raise();
    activateWindow();
}

int LVUserMenuWindow::selectedEntry() const
{
    return entries_->currentRow();
}

void LVUserMenuWindow::selectEntry(int index)
{
    entries_->setCurrentRow(index);
}

void LVUserMenuWindow::reloadEntries()
{
    const int selected = selectedEntry();
    reloading_ = true;
    entries_->clear();
    for (const LVUserMenu::Listing& entry : menu_.listing()) {
        QString text = entry.summary.isEmpty() ? tr("(no action)") : entry.summary;
        if (!entry.shortcut.isEmpty()) text += QStringLiteral("    ") + entry.shortcut;
        entries_->addItem(text);
    }
    const int count = entries_->count();
    entries_->setCurrentRow(count == 0 ? -1 : std::min(std::max(selected, 0), count - 1));
    reloading_ = false;
    selectionChanged();
}

void LVUserMenuWindow::selectionChanged()
{
    const LVUserMenuItem* entry = menu_.entryAt(selectedEntry());
    reloading_ = true;
    recorder_->setKeySequence(entry ? LVKeySequenceForCombo(entry->combo()) : QKeySequence());
    exclusive_->setChecked(entry && entry->isExclusive());
    reloading_ = false;
    for (QWidget* editor : std::initializer_list<QWidget*>{recorder_, exclusive_, chooser_}) editor->setEnabled(entry);
    exclusive_->update();
}

void LVUserMenuWindow::recordedCombo()
{
    const QKeySequence sequence = recorder_->keySequence();
    if (reloading_ || sequence.isEmpty()) return;
    const QKeyCombination first = sequence[0];
    menu_.shortcutRecorderKeyComboDidChange(selectedEntry(), LVKeyComboFromQt(first.key(), first.keyboardModifiers().toInt()));
}

void LVUserMenuWindow::refreshSetups()
{
    loadMenu_->clear();
    mergeMenu_->clear();
    for (const QString& name : menu_.setupNames()) {
        loadMenu_->addAction(name, this, [this, name] {
            menu_.setCurrentAction(selectedEntry(), std::make_unique<LVSavedSetupMenuAction>(name, false));
        });
        mergeMenu_->addAction(name, this, [this, name] {
            menu_.setCurrentAction(selectedEntry(), std::make_unique<LVSavedSetupMenuAction>(name, true));
        });
    }
    buildStudioPreviewMenu();
}

void LVUserMenuWindow::refreshTransitions()
{
    studioTransitionMenu_->clear();
    for (const QString& name : menu_.transitionChoices()) {
        studioTransitionMenu_->addAction(name, this, [this, name] {
            menu_.setCurrentAction(selectedEntry(), std::make_unique<LVStudioTransitionMenuAction>(name));
        });
    }
    buildStudioPreviewMenu();
}

void LVUserMenuWindow::refreshTimeLines()
{
    timeLineMenu_->clear();
    stopTimeLineMenu_->clear();
    for (const QString& name : menu_.timeLineNames()) {
        timeLineMenu_->addAction(name, this, [this, name] {
            menu_.setCurrentAction(selectedEntry(), std::make_unique<LVTimeLineMenuAction>(name));
        });
        stopTimeLineMenu_->addAction(name, this, [this, name] {
            menu_.setCurrentAction(selectedEntry(), std::make_unique<LVStopTimeLineMenuAction>(name));
        });
    }
    buildStudioPreviewMenu();
}

void LVUserMenuWindow::buildStudioPreviewMenu()
{
    studioPreviewMenu_->clear();
    for (const QString& name : menu_.setupNames()) {
        studioPreviewMenu_->addAction(name, this, [this, name] {
            menu_.setCurrentAction(selectedEntry(), std::make_unique<LVStudioToggleMenuAction>(name));
        });
    }
}

void LVUserMenuWindow::doSetAppleScript()
{
    const QString path = QFileDialog::getOpenFileName(this, tr("Choose a Script"), {},
                                                      tr("Scripts (*.sh *.scpt);;All files (*)"));
    if (!path.isEmpty()) menu_.setCurrentAction(selectedEntry(), std::make_unique<LVAppleScriptMenuAction>(path));
}

LVUserMenuMenu::LVUserMenuMenu(LVUserMenu& menu, std::function<void()> editMenu, std::function<void()> showAutomations,
                               QWidget* parent)
    : QMenu(tr("&User"), parent), menu_(menu)
{
    addAction(tr("Edit User Menu\u2026"), this, std::move(editMenu));
    addAction(tr("Automations\u2026"), this, std::move(showAutomations));
    connect(&menu_, &LVUserMenu::menuRebuilt, this, &LVUserMenuMenu::rebuildMenu);
    rebuildMenu();
}

void LVUserMenuMenu::rebuildMenu()
{
    while (actions().size() > LVUserMenu::fixedItems) {
        QAction* last = actions().last();
        removeAction(last);
        delete last;
    }
    for (size_t i = 0; i < menu_.entries().size(); ++i) {
        const auto item = menu_.entries()[i]->menuItem();
        if (!item) continue;
        QAction* action = addAction(item->title);
        action->setShortcut(item->keyEquivalent);
        connect(action, &QAction::triggered, this, [this, index = int(i)] { menu_.invokeEntry(index); });
    }
}
