#pragma once
// The automation window: the timelines (add, delete, rename, start, pause, stop), the
// selected timeline's steps with their status arrow, name and description, the add-step
// menu, and the inspector of the selected step.
#include <QWidget>

class LVTimeLine;
class LVTimeLineManager;
class QFormLayout;
class QGroupBox;
class QListWidget;
class QMenu;
class QPushButton;
class QTableWidget;
class QToolButton;

class LVTimeLineWindow : public QWidget {
    Q_OBJECT
public:
    explicit LVTimeLineWindow(LVTimeLineManager& manager, QWidget* parent = nullptr);

    // Shows the window in front.
    void show();

    void doAdd();
    void doDelete();
    // Adds a step of that action to the selected timeline and selects it.
    void addStep(const QString& actionName);
    void removeSelectedStep();
    void doUpdateInspector();

    LVTimeLine* selectedTimeLine() const;
    int selectedStep() const;
    void selectTimeLine(int index);
    void selectStep(int index);

    QListWidget* timeLinesList() const { return timeLines_; }
    QTableWidget* itemsTable() const { return items_; }
    QGroupBox* inspectorBox() const { return inspectorBox_; }
    QMenu* actionMenu() const { return actionMenu_; }

private:
    void reloadTimeLines();
    void reloadItems();
    void refreshRow(int row);
    void refreshButtons();
    void watchTimeLine(LVTimeLine* timeLine);

    LVTimeLineManager& manager_;
    QListWidget* timeLines_;
    QTableWidget* items_;
    QGroupBox* inspectorBox_;
    QWidget* inspector_ = nullptr;
    QMenu* actionMenu_;
    QToolButton* addStep_;
    QPushButton* removeStep_;
    QPushButton* start_;
    QPushButton* pause_;
    QPushButton* stop_;
    LVTimeLine* watched_ = nullptr;
    QObject* rowContext_ = nullptr;
    bool reloading_ = false;
};
