#pragma once
// The saved-setups list of the current set, in name order, with icons. Double-click
// loads; with Alt held it merges. The auto-load setup is drawn bold. Icons are decoded
// only for the rows the list draws, so a long catalogue opens at once.
#include "gui/setups/LVSetupsWindows.h"
#include "setups/model/LVSavedSetup.h"

#include <QWidget>

#include <memory>

class LVSavedSetupsModel;
class QListView;

class LVSavedSetupsWindow : public QWidget {
    Q_OBJECT
public:
    static constexpr const char* removeQuestion = "Are you sure you want to remove the selected setup(s)?";

    LVSavedSetupsWindow(LVSetupManager& manager, const LVSetupsHost& host, QWidget* parent = nullptr);

    QListView* list() const { return list_; }
    // The setups shown, in row order.
    const std::vector<LVSavedSetupRef>& shownSetups() const { return shown_; }
    std::vector<LVSavedSetupRef> selectedSetups() const;
    void selectSetupNamed(const QString& name);

    void doSelectSetup();
    void doMergeSetup();
    // Merges when Alt is among modifiers, loads otherwise.
    void doSelectOrMergeSetup(Qt::KeyboardModifiers modifiers);
    void doSaveSetup();
    void doRenameSetup();
    // Asks first: "No" comes first and is the default; only "Yes" removes.
    void doRemoveSetup();
    // Makes the first selected setup the auto-load setup, or clears it when it already is.
    void doSelectAutoLoad();
    void doShowSets();
    void refresh();

private:
    void showProblem(const QString& text);

    LVSetupManager& manager_;
    LVSetupsHost host_;
    QListView* list_;
    LVSavedSetupsModel* model_;
    std::vector<LVSavedSetupRef> shown_;
    // Connections to the shown setups, dropped at each refresh.
    std::unique_ptr<QObject> setupWatch_;
};
