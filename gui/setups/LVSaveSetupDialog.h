#pragma once
// The save dialog: a name, "only the selected effects" and "leave out the source".
#include "gui/setups/LVSetupsWindows.h"

#include <QDialog>

class QCheckBox;
class QLineEdit;

class LVSaveSetupDialog : public QDialog {
    Q_OBJECT
public:
    LVSaveSetupDialog(LVSetupManager& manager, const LVSetupsHost& host, const QString& prefillName,
                      QWidget* parent = nullptr);

    // The part of the chain a save keeps. With selectionOnly the selected rows, in chain
    // order and never dropping the first; otherwise the chain, from row 1 when omitSource
    // and row 0 is a source.
    static std::vector<LVEffectRef> effectsToSave(const std::vector<LVEffectRef>& chain,
                                                  const std::vector<int>& selectedRows, bool selectionOnly,
                                                  bool omitSource);

    QLineEdit* nameField() const { return nameField_; }
    QCheckBox* selectionOnlyButton() const { return selectionOnly_; }
    QCheckBox* saveIncludeSourceButton() const { return omitSource_; }

    void doSaveOk();
    void doSaveCancel() { reject(); }

signals:
    void setupSaved(const QString& name);

private:
    LVSetupManager& manager_;
    LVSetupsHost host_;
    QLineEdit* nameField_;
    QCheckBox* selectionOnly_;
    QCheckBox* omitSource_;
};
