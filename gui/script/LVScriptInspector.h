#pragma once
// The script effect's editor: every edit reaches the effect at once, so the effect in its
// setup holds what the editor shows; "Compile" runs the interpreter's syntax check and a
// refused script gets a sheet on the window with the failing line selected.
#include "effects/script/AppleScriptEffect.h"

#include <QWidget>

#include <memory>

class QMessageBox;
class QPlainTextEdit;
class QPushButton;

class LVScriptInspector : public QWidget {
    Q_OBJECT
public:
    LVScriptInspector(const std::shared_ptr<AppleScriptEffect>& effect, QWidget* parent = nullptr);

    QPlainTextEdit* editor() const { return editor_; }
    QPushButton* compileButton() const { return compileButton_; }
    // The open error sheet, none when the last compile passed or the sheet was dismissed.
    QMessageBox* errorSheet() const { return sheet_; }

    void compile();

private:
    void showError(const LVScriptError& error);
    void selectLine(int line);

    std::weak_ptr<AppleScriptEffect> effect_;
    QPlainTextEdit* editor_ = nullptr;
    QPushButton* compileButton_ = nullptr;
    QMessageBox* sheet_ = nullptr;
};

// Registers the editor with the settings panel for the script effect.
void LVRegisterScriptInspector();
