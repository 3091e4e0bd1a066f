// The script effect's editor in the settings panel, with the real syntax check: edits reach
// the effect and come back when the panel shows it again, and a refused script opens the
// error sheet on the window with the failing line selected.
#include "core/LVDefaults.h"
#include "gui/main/LVSettingsPanel.h"
#include "gui/script/LVScriptInspector.h"
#include "tests/support/LVTestSupport.h"

#include <QApplication>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>

namespace {

class LVScriptInspectorTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lvEnsureApplication<QApplication>();
        LVRegisterScriptInspector();
    }
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        defaults = std::make_unique<LVDefaults>(dir.filePath(QStringLiteral("prefs.json")));
        LVDefaults::setStandardUserDefaults(defaults.get());
        effect = std::make_shared<AppleScriptEffect>();
        effect->initWithContext(nullptr);
        window.resize(400, 500);
        window.show();
        showEffect();
    }
    void TearDown() override
    {
        if (inspector() && inspector()->errorSheet()) delete inspector()->errorSheet();
        LVDefaults::setStandardUserDefaults(nullptr);
    }

    void showEffect()
    {
        panel->setEffect(effect);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    LVScriptInspector* inspector() const { return panel->findChild<LVScriptInspector*>(); }
    QPlainTextEdit* editor() const { return panel->findChild<QPlainTextEdit*>(QStringLiteral("scriptEditor")); }
    void compile() const { QTest::mouseClick(panel->findChild<QPushButton*>(QStringLiteral("compileButton")), Qt::LeftButton); }

    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::shared_ptr<AppleScriptEffect> effect;
    QWidget window;
    LVSettingsPanel* panel = new LVSettingsPanel(&window);
};

TEST_F(LVScriptInspectorTest, EditsReachTheEffectAndComeBackWithThePanel)
{
    ASSERT_TRUE(editor());
    EXPECT_EQ(editor()->toPlainText(), QString::fromUtf8(AppleScriptEffect::defaultScript));

    const QString scripts[] = {QStringLiteral("for word in a b; do\n  echo \"$word $1\"\ndone\n"), QString()};
    for (const QString& script : scripts) {
        editor()->setPlainText(script);
        EXPECT_EQ(effect->scriptText(), script);
        compile();
        EXPECT_TRUE(effect->isCompiled()) << script.toStdString();
        EXPECT_FALSE(inspector()->errorSheet()) << script.toStdString();
        showEffect();
        EXPECT_EQ(editor()->toPlainText(), script);
    }

    // Typing goes through the same path as a pasted text.
    editor()->setFocus();
    QTest::keyClicks(editor(), QStringLiteral("echo typed"));
    EXPECT_EQ(effect->scriptText(), QStringLiteral("echo typed"));
}

TEST_F(LVScriptInspectorTest, ARefusedScriptOpensTheSheetWithTheFailingLineSelected)
{
    const struct { const char* script, *selected; } rows[] = { // selected: the failing line's text
        {"echo a\n\ndone\necho b\n", "done"},
        {"echo a\necho \"b\n", "echo \"b"},
        // The end of the file is unexpected: its last words are selected.
        {"echo a\nif true; then\n  echo b\n\n", "  echo b"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script);
        editor()->setPlainText(QString::fromUtf8(row.script));
        compile();
        EXPECT_FALSE(effect->isCompiled());
        ASSERT_TRUE(effect->lastError());
        QMessageBox* sheet = inspector()->errorSheet();
        ASSERT_TRUE(sheet);
        EXPECT_TRUE(sheet->isVisible());
        EXPECT_EQ(sheet->window()->parentWidget(), &window);
        EXPECT_EQ(sheet->windowModality(), Qt::WindowModal);
        EXPECT_EQ(sheet->text(), effect->lastError()->briefMessage);
        EXPECT_FALSE(sheet->text().isEmpty());
        EXPECT_EQ(sheet->informativeText(), effect->lastError()->fullMessage);
        ASSERT_EQ(sheet->buttons().size(), 1);
        EXPECT_EQ(sheet->buttons().first()->text(), QStringLiteral("OK"));
        EXPECT_EQ(editor()->textCursor().selectedText().toStdString(), row.selected);
        // Nothing typed is lost to the error.
        EXPECT_EQ(editor()->toPlainText(), QString::fromUtf8(row.script));

        QTest::mouseClick(sheet->buttons().first(), Qt::LeftButton);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        EXPECT_FALSE(inspector()->errorSheet());
    }

    editor()->setPlainText(QStringLiteral("echo fixed\n"));
    compile();
    EXPECT_TRUE(effect->isCompiled());
    EXPECT_FALSE(inspector()->errorSheet());
}

TEST_F(LVScriptInspectorTest, AnErrorWithoutALineKeepsTheCursorWhereItWas)
{
    // A shell that cannot start cannot check the script: the sheet says so, no line is picked.
    defaults->setValue(QString::fromLatin1(LVScriptRunner::interpreterKey), QStringLiteral("/nonexistent/sh"));
    editor()->setPlainText(QStringLiteral("echo a\necho b\n"));
    QTextCursor cursor = editor()->textCursor();
    cursor.setPosition(3);
    editor()->setTextCursor(cursor);
    compile();
    ASSERT_TRUE(inspector()->errorSheet());
    EXPECT_EQ(effect->lastError()->line, 0);
    EXPECT_EQ(inspector()->errorSheet()->text(), effect->lastError()->briefMessage);
    EXPECT_FALSE(editor()->textCursor().hasSelection());
    EXPECT_EQ(editor()->textCursor().position(), 3);
}

} // namespace
