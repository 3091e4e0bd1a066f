#pragma once
// The mix/effects bus: derives from the states of its buttons which setups make up Preview
// and which make up Program, keeps one source per bus, files buttons into grid rows and
// changes every button's state at once for a cut or a transition.
#include "studio/LVStudioButton.h"

#include <QObject>

#include <functional>
#include <vector>

class Lumaveil;
class LVSetupManager;

class LVMEBus : public QObject {
    Q_OBJECT
public:
    // app and setupManager may be null (the bus alone in tests): then no chain is pushed
    // and no position hints are stored.
    LVMEBus(Lumaveil* app, LVSetupManager* setupManager);
    ~LVMEBus() override;

    // Button bookkeeping.
    const std::vector<LVStudioButtonRef>& buttons() const { return buttons_; }
    void addButton(const LVStudioButtonRef& button, bool bestPlacement);
    void removeButton(const LVStudioButtonRef& button);
    void placeButton(LVStudioButton& button);
    // The first free column of a row: 0 for a missing or empty row, the row's length for a
    // packed row, else the first column not taken.
    int32_t _findFreeCellOnRow(int32_t row) const;
    // Rows as filed, each in ascending column order.
    const std::vector<std::vector<LVStudioButtonRef>>& rows() const { return rows_; }

    // Observation callbacks (public so the grid and tests can drive them).
    void stateMoved(LVStudioButton& button);
    void hasSourceChanged(LVStudioButton& button);
    void stateChanged(LVStudioButton& button);
    void wantsPreviewChanged(LVStudioButton& button);

    // The lists, recollected lazily once per burst of changes.
    void setDirty();
    bool isDirty() const { return bSetupsDirty_; }
    void checkDirty();
    const std::vector<LVStudioButtonRef>& previewButtons();
    const std::vector<LVStudioButtonRef>& programButtons();
    bool hasPreviewSetups() { return !previewButtons().empty(); }
    void collectPreviewSetups();
    void collectProgramSetups();

    // Program's effects onto the application's live chain (merged, sources kept).
    void pushProgramEffects();
    // preDoit on every effect of every button, then doit with a flush after each.
    void runChain(const std::vector<LVStudioButtonRef>& buttons);
    void runPreview();
    void runProgram();

    // A cut: 1/4 -> 3 and 2 -> 0; with swap, 1/4 -> 2 and 2 -> 4.
    void executeCut(bool swap);
    // Preview starts its way to Program: 4 -> 1.
    void startTransition();

signals:
    void buttonAdded(LVStudioButton* button);
    void buttonRemoved(LVStudioButton* button);
    // Once per burst, from the deferred dispatcher.
    void hasPreviewSetupsChanged();

private:
    // One bus's chain drawn with the context marked for preview or program, as it was after.
    void runBusChain(bool preview);
    bool contains(const LVStudioButton& button) const;
    void takeOutOfRows(const LVStudioButton& button);
    void fireDelayedHasPreviewKVO();
    LVStudioButtonRef refOf(const LVStudioButton& button) const;

    Lumaveil* app_;
    LVSetupManager* setupManager_;
    std::vector<LVStudioButtonRef> buttons_;
    std::vector<std::vector<LVStudioButtonRef>> rows_;
    bool bSetupsDirty_ = false;
    std::vector<LVStudioButtonRef> previewButtons_;
    std::vector<LVStudioButtonRef> programButtons_;
    // Deferred calls hold this, so a call still queued when the bus goes does nothing.
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};
