// The MIDI key recorder's states with messages from a test port, and the button editor:
// its palette, adding, wrapping and removing effects, renaming, a key bound through the
// port that then toggles the button, and the setup written when the editor closes.
#include "tests/gui/studio/LVStudioGuiTestSupport.h"

#include "control/surface/LVStudioMIDIKeys.h"
#include "gui/main/LVSettingsPanel.h"
#include "gui/studio/LVButtonEditController.h"
#include "gui/studio/LVMIDIKeyRecorder.h"
#include "tests/control/LVTestMIDIPort.h"

#include <QLineEdit>
#include <QListWidget>
#include <QPointer>

namespace {

uint32_t key(uint8_t status, uint8_t data1)
{
    return lvMIDIMessage(status, data1, 1).encodedKeyValue();
}

class LVMIDIKeyRecorderTest : public LVStudioGuiTest {
protected:
    void SetUp() override
    {
        LVStudioGuiTest::SetUp();
        auto owned = std::make_unique<LVTestMIDIPort>();
        port = owned.get();
        hub = std::make_unique<LVMIDI>(std::move(owned));
    }

    void TearDown() override
    {
        hub.reset();
        LVStudioGuiTest::TearDown();
    }

    // As a port's delivery would: the hub hops onto the main thread through the event queue.
    void send(uint8_t status, uint8_t data1, uint8_t data2)
    {
        port->send({lvMIDIMessage(status, data1, data2)});
        QCoreApplication::sendPostedEvents();
    }

    LVTestMIDIPort* port = nullptr;
    std::unique_ptr<LVMIDI> hub;
};

TEST_F(LVMIDIKeyRecorderTest, RecordsTheFirstNoteOrControllerAndClearsWithX)
{
    LVMIDIKeyRecorder recorder(hub.get());
    recorder.resize(240, 28);
    recorder.show();
    std::vector<uint32_t> told;
    recorder.setAction([&](LVMIDIKeyRecorder* sender) { told.push_back(sender->recordedData()); });
    const QColor normal = recorder.palette().color(QPalette::Text);
    const QString note60 = LVMIDIMessage::voiceMessageWithEncodedKeyValue(key(0x90, 60)).displayText();
    const QString control7 = LVMIDIMessage::voiceMessageWithEncodedKeyValue(key(0xB1, 7)).displayText();

    enum Act { Look, Click, Send, ClearButton };
    struct Step {
        const char* what;
        Act act;
        uint8_t status, data1, data2;
        QString text;
        QColor colour;
        uint32_t recorded;
        size_t toldCount, listeners;
    };
    const Step steps[] = {
        {"empty", Look, 0, 0, 0, "Click to record", Qt::gray, 0, 0, 0},
        {"a click records", Click, 0, 0, 0, "Press MIDI Key now", Qt::blue, 0, 0, 1},
        {"note 60", Send, 0x90, 60, 100, note60, normal, key(0x90, 60), 1, 0},
        {"a later note", Send, 0x90, 62, 100, note60, normal, key(0x90, 60), 1, 0},
        {"a click on a held key", Click, 0, 0, 0, note60, normal, key(0x90, 60), 1, 0},
        {"X clears", ClearButton, 0, 0, 0, "Click to record", Qt::gray, 0, 2, 0},
        {"records again", Click, 0, 0, 0, "Press MIDI Key now", Qt::blue, 0, 2, 1},
        {"a controller on channel 2", Send, 0xB1, 7, 0, control7, normal, key(0xB1, 7), 3, 0},
        {"X clears the controller", ClearButton, 0, 0, 0, "Click to record", Qt::gray, 0, 4, 0},
        {"a click", Click, 0, 0, 0, "Press MIDI Key now", Qt::blue, 0, 4, 1},
        {"X while recording stops it", ClearButton, 0, 0, 0, "Click to record", Qt::gray, 0, 5, 0},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        switch (step.act) {
        case Look: break;
        case Click: QTest::mouseClick(&recorder, Qt::LeftButton, Qt::NoModifier, QPoint(20, 14)); break;
        case Send: send(step.status, step.data1, step.data2); break;
        case ClearButton: QTest::mouseClick(recorder.findChild<QWidget*>(QStringLiteral("midiKeyClear")), Qt::LeftButton); break;
        }
        EXPECT_EQ(recorder.text(), step.text);
        EXPECT_EQ(recorder.textColour(), step.colour);
        EXPECT_EQ(recorder.recordedData(), step.recorded);
        EXPECT_EQ(recorder.isClearButtonShown(), recorder.isRecording() || step.recorded != 0);
        EXPECT_EQ(told.size(), step.toldCount);
        EXPECT_EQ(hub->listenerCount(), step.listeners);
    }
    QTest::mouseClick(&recorder, Qt::LeftButton, Qt::NoModifier, QPoint(20, 14));
    ASSERT_TRUE(recorder.isRecording());
    {
        LVMIDIKeyRecorder gone(hub.get());
        gone.startRecording();
        EXPECT_EQ(hub->listenerCount(), 2u);
    }
    EXPECT_EQ(hub->listenerCount(), 1u) << "a recorder that goes stops listening";
}

TEST_F(LVMIDIKeyRecorderTest, TheEditorAddsWrapsAndRemovesEffectsAndBindsAKey)
{
    const LVStudioButtonRef button = addSetup(QStringLiteral("Intro"), kGridRed, 1);
    ASSERT_TRUE(button);
    LVStudioMIDIKeys keys(*studio, *hub);
    QPointer<LVButtonEditController> editor = new LVButtonEditController(button, *app);
    editor->show();

    // The palette: every source, then every effect.
    QStringList expected;
    for (const auto& factory : app->sources()) expected.append(factory->name());
    for (const auto& factory : app->effects()) expected.append(factory->name());
    QStringList palette;
    for (int i = 0; i < editor->palette()->count(); ++i) palette.append(editor->palette()->item(i)->text());
    EXPECT_EQ(palette, expected);

    const auto names = [&] {
        QStringList list;
        for (const LVEffectRef& effect : button->effects()) list.append(effect->name());
        return list;
    };
    const auto listed = [&] {
        QStringList list;
        for (int i = 0; i < editor->effectsList()->count(); ++i) list.append(editor->effectsList()->item(i)->text());
        return list;
    };
    const auto add = [&](const char* entry) { return editor->selectPaletteEntry(QLatin1String(entry)) && editor->doAdd(); };
    const struct { const char* what; std::function<bool()> act; QStringList effects; } steps[] = {
        {"as stored", [] { return true; }, {"Red Source", "Marker"}},
        {"an effect goes last", [&] { return add("Marker"); }, {"Red Source", "Marker", "Marker"}},
        {"a source replaces the source", [&] { return add("Blue Source"); }, {"Blue Source", "Marker", "Marker"}},
        {"PIP wraps the chosen source", [&] { return editor->selectPaletteEntry("Red Source") && editor->doPIP(); },
         {"Blue Source", "Marker", "Marker", "PIP"}},
        {"remove the selected effect", [&] { editor->effectsList()->setCurrentRow(1); return editor->doRemoveEffect(); },
         {"Blue Source", "Marker", "PIP"}},
        {"nothing selected in the palette adds nothing", [&] { editor->palette()->setCurrentRow(-1); return !editor->doAdd(); },
         {"Blue Source", "Marker", "PIP"}},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        EXPECT_TRUE(step.act());
        EXPECT_EQ(names(), step.effects);
        EXPECT_EQ(listed().size(), step.effects.size());
    }
    auto* holder = dynamic_cast<LVOtherSourceHolder*>(button->effects().back().get());
    ASSERT_TRUE(holder);
    ASSERT_TRUE(holder->getOtherEffect());
    EXPECT_EQ(holder->getOtherEffect()->name(), QStringLiteral("Red Source"));
    editor->effectsList()->setCurrentRow(0);
    EXPECT_EQ(editor->settingsPanel()->effect(), button->effects().front()) << "the selected effect's settings";

    // The title follows the name.
    editor->nameField()->setText(QStringLiteral("Opening"));
    emit editor->nameField()->editingFinished();
    EXPECT_EQ(button->name(), QStringLiteral("Opening"));
    EXPECT_EQ(editor->windowTitle(), QStringLiteral("Opening"));

    // A key recorded through the port is the button's at once, and then toggles it.
    editor->keyRecorder()->startRecording();
    send(0x90, 48, 90);
    QCoreApplication::sendPostedEvents(); // the recorder hands the key on from the event queue
    EXPECT_EQ(button->midiKey(), key(0x90, 48));
    EXPECT_EQ(button->state(), uint32_t(LVButtonIdle)) << "the recording note itself toggles nothing";
    send(0x90, 48, 64);
    EXPECT_EQ(button->state(), uint32_t(LVButtonPreview));

    editor->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(editor.isNull());
    LVSavedSetup reread(app->context(), button->setup()->path());
    EXPECT_EQ(reread.numEffects(), 3) << "written when the editor closed";
    EXPECT_EQ(reread.midiKey(), key(0x90, 48));
}

} // namespace
