#include "gui/script/LVScriptInspector.h"

#include "gui/main/LVSettingsPanel.h"

#include <QFontDatabase>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTextBlock>
#include <QVBoxLayout>

LVScriptInspector::LVScriptInspector(const std::shared_ptr<AppleScriptEffect>& effect, QWidget* parent)
    : QWidget(parent), effect_(effect)
{
    setObjectName(QStringLiteral("scriptInspector"));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    editor_ = new QPlainTextEdit(this);
    editor_->setObjectName(QStringLiteral("scriptEditor"));
    editor_->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    editor_->setLineWrapMode(QPlainTextEdit::NoWrap);
    editor_->setPlainText(effect->scriptText());
    layout->addWidget(editor_);
    compileButton_ = new QPushButton(tr("Compile"), this);
    compileButton_->setObjectName(QStringLiteral("compileButton"));
    layout->addWidget(compileButton_, 0, Qt::AlignRight);

    connect(editor_, &QPlainTextEdit::textChanged, this, [this] {
        if (const auto effect = effect_.lock()) effect->setScriptText(editor_->toPlainText());
    });
    connect(compileButton_, &QPushButton::clicked, this, &LVScriptInspector::compile);
}

void LVScriptInspector::compile()
{
    const auto effect = effect_.lock();
    if (!effect) return;
    if (const std::optional<LVScriptError> error = effect->compile()) showError(*error);
}

void LVScriptInspector::showError(const LVScriptError& error)
{
    selectLine(error.line);
    delete sheet_;
    // A sheet on the editor's window: the rest of the studio keeps running behind it.
    sheet_ = new QMessageBox(QMessageBox::Warning, tr("Script"), error.briefMessage, QMessageBox::Ok, window());
    sheet_->setObjectName(QStringLiteral("scriptErrorSheet"));
    sheet_->setInformativeText(error.fullMessage);
    sheet_->button(QMessageBox::Ok)->setText(tr("OK"));
    sheet_->setWindowModality(Qt::WindowModal);
    connect(sheet_, &QDialog::finished, sheet_, &QObject::deleteLater);
    connect(sheet_, &QObject::destroyed, this, [this, sheet = sheet_] {
        if (sheet_ == sheet) sheet_ = nullptr;
    });
    sheet_->open();
}

void LVScriptInspector::selectLine(int line)
{
    if (line <= 0) return;
    QTextBlock block = editor_->document()->findBlockByNumber(line - 1);
    // "End of file unexpected" names the line after the last one: point at the last words.
    if (!block.isValid()) block = editor_->document()->lastBlock();
    while (block.length() <= 1 && block.previous().isValid()) block = block.previous();
    QTextCursor cursor(block);
    cursor.movePosition(QTextCursor::EndOfBlock, QTextCursor::KeepAnchor);
    editor_->setTextCursor(cursor);
    editor_->setFocus();
}

void LVRegisterScriptInspector()
{
    LVSettingsPanel::registerInspector(AppleScriptEffect::classDescriptor().className,
                                       [](const LVEffectRef& effect, QWidget* parent) -> QWidget* {
                                           return new LVScriptInspector(std::static_pointer_cast<AppleScriptEffect>(effect), parent);
                                       });
}
