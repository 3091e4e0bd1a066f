#pragma once
// The user menu: entries pairing an action with an optional keyboard shortcut, saved under
// "userMenu" on every rebuild. Windows show the entries as menu items whose shortcuts are
// the stored combinations; an exclusive entry is also matched against raw key presses
// before the window sees them. Main thread only.
#include "control/usermenu/LVUserMenuActions.h"
#include "core/LVControllerInterfaces.h"

#include <QJsonObject>
#include <QKeySequence>
#include <QObject>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

class LVDefaults;
class LVSetupManager;

// Stored modifier bits, as archived menus have always had them.
namespace LVKeyFlags {
inline constexpr uint64_t shift = 0x20000;
inline constexpr uint64_t control = 0x40000;
inline constexpr uint64_t option = 0x80000;
inline constexpr uint64_t command = 0x100000;
inline constexpr uint64_t function = 0x800000;
// The only stored word with which an exclusive entry answers a raw key press.
inline constexpr uint64_t exclusiveRaw = shift | control | option | command | function;
} // namespace LVKeyFlags

struct LVKeyCombo {
    uint64_t flags = 0;
    int64_t code = -1; // a Qt key code; -1 is no shortcut
    bool operator==(const LVKeyCombo&) const = default;
};

// Qt's modifiers and key as stored bits (function keys, arrows and the like carry the
// Function bit), and back.
LVKeyCombo LVKeyComboFromQt(int key, int modifiers);
int LVQtModifiersFromFlags(uint64_t flags);
// The menu item's shortcut for a combination; empty without one.
QKeySequence LVKeySequenceForCombo(const LVKeyCombo& combo);

class LVUserMenuItem {
public:
    LVUserMenuItem() = default;

    // Takes a raw key press only as the exclusive rule says; then runs the action.
    bool dispatchWithEvent(int key, int modifiers, const LVUserMenuTargets& targets);
    const QString& shortcutString() const { return shortcutString_; }
    void setShortcutString(const QString& text) { shortcutString_ = text; }
    bool hasShortcut() const { return combo_.code != -1; }
    const LVKeyCombo& combo() const { return combo_; }
    // Also rebuilds the display text.
    void setCombo(const LVKeyCombo& combo);
    bool isExclusive() const { return exclusive_; }
    void setExclusive(bool exclusive) { exclusive_ = exclusive; }
    LVUserMenuAction* action() const { return action_.get(); }
    void setAction(std::unique_ptr<LVUserMenuAction> action) { action_ = std::move(action); }

    // The menu item: its title and shortcut; none without action.
    struct MenuItem {
        QString title;
        QKeySequence keyEquivalent;
    };
    std::optional<MenuItem> menuItem() const;

    QJsonObject encode() const;
    static std::unique_ptr<LVUserMenuItem> decode(const QJsonObject& archive);

private:
    QString shortcutString_;
    std::unique_ptr<LVUserMenuAction> action_;
    LVKeyCombo combo_;
    bool exclusive_ = false;
};

class LVUserMenu : public QObject, public LVKeyDispatcher {
    Q_OBJECT
public:
    static constexpr const char* defaultsKey = "userMenu";
    // The number of fixed items at the head of a window's user menu.
    static constexpr int fixedItems = 2;

    LVUserMenu(LVDefaults& defaults, LVUserMenuTargets targets, LVSetupManager* setups = nullptr);

    // Reads the saved entries (missing or unreadable: none), then rebuilds.
    void awakeFromNib();
    // Follows the setups and timelines from now on, and refreshes the choosers once.
    void bootstrap();

    const std::vector<std::unique_ptr<LVUserMenuItem>>& entries() const { return entries_; }
    LVUserMenuItem* entryAt(int index) const;
    // A fresh entry (no action, no shortcut) at the end; answers its index.
    int addEntry();
    void removeEntryAt(int index);

    // Saves the entries and tells windows to rebuild their menus.
    void rebuildMenu();
    // The chosen action for the entry at index, then a rebuild.
    void setCurrentAction(int index, std::unique_ptr<LVUserMenuAction> action);
    // The recorder's new combination, then a rebuild.
    void shortcutRecorderKeyComboDidChange(int index, const LVKeyCombo& combo);
    // Saved with the next rebuild, not at once.
    void doSetExclusiveAccess(int index, bool exclusive);

    bool dispatchWithEvent(int key, int modifiers) override;
    // Runs the entry's action as its menu item would; false when there is none.
    bool invokeEntry(int index);

    // What other control surfaces list: every entry, in order.
    struct Listing {
        int index = 0;
        QString summary; // empty for an entry without action
        QString shortcut;
        bool exclusive = false;
    };
    std::vector<Listing> listing() const;

    // The choosers' lists.
    QStringList setupNames() const;
    // "<default>" first, then the transitions by name.
    QStringList transitionChoices() const;
    QStringList timeLineNames() const;

    const LVUserMenuTargets& targets() const { return targets_; }

signals:
    void menuRebuilt();
    void setupsRefreshed();
    void transitionsRefreshed();
    void timeLinesRefreshed();

private:
    LVDefaults& defaults_;
    LVUserMenuTargets targets_;
    LVSetupManager* setups_;
    std::vector<std::unique_ptr<LVUserMenuItem>> entries_;
};
