#pragma once
// The user menu as the window shows it: the editor (entries, action choosers, shortcut
// recorder, exclusive check box) and the application menu whose items carry the entries'
// shortcuts after two fixed items.
#include <QKeySequenceEdit>
#include <QMenu>
#include <QWidget>

#include <functional>

class LVUserMenu;
class QCheckBox;
class QListWidget;
class QToolButton;

// Records one key combination; keys without modifiers count, Escape is never recorded.
class LVShortcutRecorder : public QKeySequenceEdit {
    Q_OBJECT
public:
    using QKeySequenceEdit::QKeySequenceEdit;

protected:
    void keyPressEvent(QKeyEvent* event) override;
};

class LVUserMenuWindow : public QWidget {
    Q_OBJECT
public:
    explicit LVUserMenuWindow(LVUserMenu& menu, QWidget* parent = nullptr);
    void show();

    int selectedEntry() const;
    void selectEntry(int index);

    QListWidget* entriesList() const { return entries_; }
    LVShortcutRecorder* shortcutRecorder() const { return recorder_; }
    QCheckBox* exclusiveButton() const { return exclusive_; }
    QMenu* loadMenu() const { return loadMenu_; }
    QMenu* mergeMenu() const { return mergeMenu_; }
    QMenu* studioPreviewMenu() const { return studioPreviewMenu_; }
    QMenu* studioTransitionMenu() const { return studioTransitionMenu_; }
    QMenu* timeLineMenu() const { return timeLineMenu_; }
    QMenu* stopTimeLineMenu() const { return stopTimeLineMenu_; }

    void refreshSetups();
    void refreshTransitions();
    void refreshTimeLines();
    void buildStudioPreviewMenu();

private:
    void reloadEntries();
    void selectionChanged();
    void recordedCombo();
    void doSetAppleScript();

    LVUserMenu& menu_;
    QListWidget* entries_;
    LVShortcutRecorder* recorder_;
    QCheckBox* exclusive_;
    QToolButton* chooser_;
    QMenu* loadMenu_;
    QMenu* mergeMenu_;
    QMenu* studioPreviewMenu_;
    QMenu* studioTransitionMenu_;
    QMenu* timeLineMenu_;
    QMenu* stopTimeLineMenu_;
    bool reloading_ = false;
};

// The application's user menu: "Edit User Menu…" and "Automations…", then every entry
// with an action, its shortcut as the item's key equivalent.
class LVUserMenuMenu : public QMenu {
    Q_OBJECT
public:
    LVUserMenuMenu(LVUserMenu& menu, std::function<void()> editMenu, std::function<void()> showAutomations,
                   QWidget* parent = nullptr);
    void rebuildMenu();

private:
    LVUserMenu& menu_;
};
