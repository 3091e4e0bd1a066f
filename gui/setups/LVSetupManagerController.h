#pragma once
// The sets editor: a menu to pick the current set and a table with one row per setup
// and one column of check boxes per named set.
#include <QWidget>

class LVSetupManager;
class QMenu;
class QTableWidget;
class QToolButton;

class LVSetupManagerController : public QWidget {
    Q_OBJECT
public:
    static constexpr const char* newSetPrompt = "Please name the new set";
    static constexpr const char* selectColumnPrompt = "Please select a set column";
    // The fixed entries at the head of the sets menu.
    static constexpr int fixedMenuItems = 3;

    explicit LVSetupManagerController(LVSetupManager& manager, QWidget* parent = nullptr);

    QTableWidget* setsTable() const { return setsTable_; }
    QMenu* setsMenu() const { return setsMenu_; }

    void doRefresh();
    void doPickSet(const QString& name);
    void doSelectAll();
    // Asks for the new set's name; a name that is empty once trimmed makes nothing.
    void doAddSet();
    // Removes the set of the selected column, without asking.
    void doRemoveSet();
    // Shows the selected setup's file in the file manager.
    void doShowInFinder();

private:
    void checkMenuItem(const QString& title);
    void membershipToggled(int row, int column);

    LVSetupManager& manager_;
    QMenu* setsMenu_;
    QTableWidget* setsTable_;
    bool refreshing_ = false;
};
