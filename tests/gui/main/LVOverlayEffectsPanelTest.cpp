// The song text and the news ticker in the main window: their settings panels are made
// from their parameter lists and say why they show nothing yet.
#include "effects/registration/LVEffectKinds.h"
#include "gui/main/LVSettingsPanel.h"
#include "tests/gui/main/LVWindowTestSupport.h"

#include <gtest/gtest.h>

#include <QLabel>

namespace {

class LVOverlayEffectsPanelTest : public LVWindowTest {
protected:
    static void SetUpTestSuite()
    {
        LVWindowTest::SetUpTestSuite();
        LVRegisterEffectKinds();
    }
};

TEST_F(LVOverlayEffectsPanelTest, EachEffectGetsItsEditorsAndItsNote)
{
    start(dir.filePath(QStringLiteral("no-effects")));
    const struct {
        const char* effect;
        QStringList editors;
        QString notePrefix;
    } cases[] = {
        {"Song Text",
         {"Player", "Position", "Font", "Font Size", "Color", "Shadow", "Title", "Artist", "Album", "Cover Art"},
         ""},
        {"News Ticker",
         {"Feed Address", "Refresh Minutes", "Items", "Scroll Speed", "Position", "Font", "Font Size", "Color",
          "Background"},
         "No feed address"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.effect);
        ASSERT_TRUE(app->addNamedEffect(QString::fromLatin1(c.effect)));
        const LVEffectRef effect = app->liveEffects().back();
        app->setSelectedEffect(effect);
        LVSettingsPanel* panel = window->settingsPanel();
        ASSERT_EQ(panel->effect(), effect);
        for (const QString& name : c.editors) EXPECT_TRUE(panel->editorFor(name)) << name.toStdString();
        auto* note = panel->findChild<QLabel*>(QStringLiteral("settingsNote"));
        ASSERT_TRUE(note);
        // The song text's note depends on this machine's session bus and players.
        EXPECT_TRUE(note->text().startsWith(c.notePrefix)) << note->text().toStdString();
    }
}

} // namespace
