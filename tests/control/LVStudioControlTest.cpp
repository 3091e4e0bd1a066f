// The studio's commands as the control socket forwards them, and studio buttons answering
// their MIDI keys, on a real controller, setup manager and studio.
#include "control/surface/LVControlSurface.h"
#include "control/surface/LVStudioMIDIKeys.h"
#include "core/util/KDDelayedDispatcher.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"
#include "tests/app/LVControllerFixture.h"
#include "tests/control/LVTestMIDIPort.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

LVMIDIMessage note(uint8_t number, uint8_t velocity, uint8_t status = LVMIDIMessage::noteOn)
{
    return lvMIDIMessage(status, number, velocity);
}

class LVStudioControlTest : public LVControllerTest {
protected:
    void SetUp() override
    {
        LVControllerTest::SetUp();
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(dir.path()));
        setups = std::make_unique<LVSetupManager>(*defaults, app->context(), dir.filePath(QStringLiteral("Saved Setups")));
        setups->startup();
        app->setSetupCatalog(setups.get());
        makeSetup("Red", "RedSource");
        makeSetup("Blue", "BlueSource");
        makeSetup("Marker FX", "Marker");
        auto owned = std::make_unique<LVStudio>(*app, *setups, &clock);
        studio = owned.get();
        app->setStudio(std::move(owned));
        studio->startup();
    }

    void TearDown() override
    {
        surface.reset();
        app->setStudio(nullptr);
        setups.reset();
        LVControllerTest::TearDown();
    }

    void makeSetup(const char* name, const char* className)
    {
        ASSERT_TRUE(setups->newSavedSetupWithName(QString::fromLatin1(name), {make(className)}));
    }

    LVControlSurface& control(LVStudio* withStudio)
    {
        surface = std::make_unique<LVControlSurface>(*app, withStudio, std::make_unique<LVTestMIDIPort>(),
                                                     dir.filePath(QStringLiteral("run/control.sock")));
        return *surface;
    }

    QJsonObject send(const char* request)
    {
        const QJsonObject reply = surface->commands().handle(QJsonDocument::fromJson(request).object());
        KDDelayedDispatcher::flush();
        return reply;
    }

    uint32_t stateOf(const char* name) const { return studio->buttonHavingName(QString::fromLatin1(name))->state(); }

    std::unique_ptr<LVSetupManager> setups;
    LVStudio* studio = nullptr;
    std::unique_ptr<LVControlSurface> surface;
};

TEST_F(LVStudioControlTest, CommandsDriveTheStudioAndReadsFollowIt)
{
    control(studio);
    struct Step { const char* request; const char* reply; };
    const Step steps[] = {
        {R"({"command":"button","name":"Red","action":"selectForAir"})", R"({"ok":true})"},
        {R"({"command":"get","property":"studioPreviewButtons"})", R"({"ok":true,"result":["Red"]})"},
        {R"({"command":"cut"})", R"({"ok":true})"},
        {R"({"command":"get","property":"studioProgramButtons"})", R"({"ok":true,"result":["Red"]})"},
        {R"({"command":"get","property":"liveEffects"})",
         R"json({"ok":true,"result":[{"class":"RedSource","enabled":true,"name":"Red Source (Red)","source":true}]})json"},
        {R"({"command":"button","name":"Blue","action":"punchToAir"})", R"({"ok":true})"},
        {R"({"command":"get","property":"studioProgramButtons"})", R"({"ok":true,"result":["Red","Blue"]})"},
        {R"({"command":"button","name":"Red","action":"toggle"})", R"({"ok":true})"},
        {R"({"command":"button","name":"Marker FX","action":"selectForAir"})", R"({"ok":true})"},
        {R"({"command":"button","name":"Marker FX","action":"selectForOffAir"})", R"({"ok":true})"},
        {R"({"command":"button","name":"Blue","action":"punchToOffAir"})", R"({"ok":true})"},
        {R"({"command":"get","property":"studioProgramButtons"})", R"({"ok":true,"result":["Red"]})"},
        {R"({"command":"set","property":"studioTransitionTime","value":2.5})", R"({"ok":true,"result":2.5})"},
        {R"({"command":"set","property":"studioSwapMode","value":true})", R"({"ok":true,"result":true})"},
        {R"({"command":"get","property":"studioTransition"})", R"({"ok":true,"result":{"fraction":0,"running":false}})"},
        {R"({"command":"button","name":"Blue","action":"selectForAir"})", R"({"ok":true})"},
        {R"({"command":"startTransition"})", R"({"ok":true})"},
        {R"({"command":"get","property":"studioTransition"})", R"({"ok":true,"result":{"fraction":0,"running":true}})"},
        {R"({"command":"studioDissolve"})", R"({"ok":true})"},
    };
    for (const Step& step : steps) {
        const QJsonObject reply = send(step.request);
        EXPECT_EQ(reply, QJsonDocument::fromJson(step.reply).object())
            << step.request << " -> " << QJsonDocument(reply).toJson(QJsonDocument::Compact).constData();
    }
    // Blue selected while Red was on air turned Red amber, to leave at the transition's cut.
    EXPECT_EQ(stateOf("Red"), 2u);
    EXPECT_EQ(stateOf("Blue"), 1u);
    EXPECT_EQ(stateOf("Marker FX"), 0u);
    EXPECT_DOUBLE_EQ(studio->transitionTime(), 2.5);
    EXPECT_TRUE(studio->isSwapMode());
}

TEST_F(LVStudioControlTest, StudioButtonsListEveryButtonInGridOrder)
{
    control(studio);
    studio->buttonHavingName(QStringLiteral("Blue"))->setState(4);
    const QJsonArray buttons = send(R"({"command":"get","property":"studioButtons"})").value("result").toArray();
    ASSERT_EQ(buttons.size(), 3);
    QStringList rows;
    for (const QJsonValue& value : buttons) {
        const QJsonObject button = value.toObject();
        EXPECT_EQ(button.value("uid").toString(), studio->buttonHavingName(button.value("name").toString())->uid());
        rows.append(QStringLiteral("%1 %2,%3 state %4 source %5")
                        .arg(button.value("name").toString())
                        .arg(button.value("row").toInt())
                        .arg(button.value("col").toInt())
                        .arg(button.value("state").toInt())
                        .arg(button.value("hasVideoSource").toBool() ? "yes" : "no"));
    }
    EXPECT_EQ(rows.join(" | "), "Red 0,0 state 0 source yes | Blue 0,1 state 4 source yes | Marker FX 1,0 state 0 source no");
}

TEST_F(LVStudioControlTest, BadStudioRequestsSayWhatIsWrongAndChangeNothing)
{
    control(studio);
    struct Case { const char* request; const char* error; };
    const Case cases[] = {
        {R"({"command":"button","name":"Nope","action":"toggle"})", "no studio button named \"Nope\""},
        {R"({"command":"button","name":"Red","action":"explode"})",
         "unknown button action \"explode\"; one of: toggle, selectForAir, selectForOffAir, punchToAir, punchToOffAir"},
        {R"({"command":"button","name":"Red"})", "missing \"action\" (a string)"},
        {R"({"command":"button","name":3,"action":"toggle"})", "\"name\" must be a string, not a number"},
        {R"({"command":"set","property":"studioTransitionTime","value":-1})",
         "studioTransitionTime takes a number of seconds above zero"},
        {R"({"command":"set","property":"studioTransitionTime","value":"2"})",
         "studioTransitionTime takes a number of seconds above zero"},
        {R"({"command":"set","property":"studioSwapMode","value":1})", "studioSwapMode takes true or false"},
        {R"({"command":"set","property":"studioNamedTransition","value":"Nope"})",
         "no transition named \"Nope\"; known transitions: "},
        {R"({"command":"set","property":"studioNamedTransition","value":null})",
         "studioNamedTransition takes a transition's name"},
        {R"({"command":"set","property":"studioButtons","value":[]})", "property \"studioButtons\" is read-only"},
        {R"({"command":"set","property":"studioSwapMode"})", "\"set\" needs a \"value\""},
        {R"({"command":"get","property":"studioFrame"})", "unknown property \"studioFrame\"; known properties: "},
        {R"({"command":"get"})", "missing \"property\" (a string)"},
        {R"({"command":"fade"})", "unknown command \"fade\"; known commands: "},
        {R"({"cmd":"cut"})", "missing \"command\" (a string)"},
        {R"({"command":["cut"]})", "\"command\" must be a string, not an array"},
        {R"({"command":"addEffect","name":"Nope"})", "no effect named \"Nope\""},
        {R"({"command":"setSource","name":"Nope"})", "no source named \"Nope\""},
        {R"({"command":"loadSetup","name":"Nope"})", "no saved setup named \"Nope\" could be loaded"},
        {R"({"command":"loadSetup","name":"Red","merge":"yes"})", "\"merge\" must be a boolean, not a string"},
    };
    for (const Case& c : cases) {
        const QJsonObject reply = send(c.request);
        EXPECT_EQ(reply.value("ok"), QJsonValue(false)) << c.request;
        EXPECT_TRUE(reply.value("error").toString().startsWith(QString::fromUtf8(c.error)))
            << c.request << " -> " << qPrintable(reply.value("error").toString());
    }
    for (const auto& button : studio->studioButtons()) EXPECT_EQ(button->state(), 0u) << qPrintable(button->name());
    EXPECT_DOUBLE_EQ(studio->transitionTime(), 1.0);
    EXPECT_TRUE(app->liveEffects().empty());
}

TEST_F(LVStudioControlTest, ChainCommandsReachTheController)
{
    control(studio);
    struct Step { const char* request; const char* chain; };
    const Step steps[] = {
        {R"({"command":"setSource","name":"Red Source"})", "Red Source"},
        {R"({"command":"addEffect","name":"Marker"})", "Red Source,Marker"},
        {R"({"command":"loadSetup","name":"Blue","merge":true})", "Blue Source,Marker"},
        {R"({"command":"loadSetup","name":"Marker FX"})", "Blue Source,Marker"},
    };
    for (const Step& step : steps) {
        EXPECT_EQ(send(step.request).value("ok"), QJsonValue(true)) << step.request;
        EXPECT_EQ(chain(), step.chain) << step.request;
    }
}

TEST_F(LVStudioControlTest, WithoutAStudioItsCommandsSayHowToGetOne)
{
    control(nullptr);
    for (const char* request : {R"({"command":"cut"})", R"({"command":"button","name":"Red","action":"toggle"})",
                                R"({"command":"set","property":"studioSwapMode","value":true})"}) {
        EXPECT_EQ(send(request).value("error").toString(),
                  QStringLiteral("this Lumaveil runs without the studio (start it with --studio)"))
            << request;
    }
    EXPECT_EQ(send(R"({"command":"get","property":"studioButtons"})"), QJsonObject({{"ok", true}, {"result", QJsonValue::Null}}));
}

TEST_F(LVStudioControlTest, KeysFollowChangesAndButtonsThatLeave)
{
    LVMIDI& hub = control(studio).midi();
    const LVStudioButtonRef red = studio->buttonHavingName(QStringLiteral("Red"));
    const LVStudioButtonRef blue = studio->buttonHavingName(QStringLiteral("Blue"));
    const uint32_t c4 = note(60, 1).encodedKeyValue();
    const uint32_t d4 = note(62, 1).encodedKeyValue();

    red->setMIDIKey(c4);
    red->setMIDIKey(d4);  // one registration, compared against the current key
    EXPECT_EQ(hub.listenerCount(), 1u);
    // The old key, and the controller of the key's number, toggle nothing; the key toggles it like a click.
    hub.takeMIDIMessages({note(60, 100), note(62, 100, LVMIDIMessage::controlChange)});
    EXPECT_EQ(red->state(), 0u);
    hub.takeMIDIMessages({note(62, 100)});
    EXPECT_EQ(red->state(), 4u);

    red->setMIDIKey(0);
    EXPECT_EQ(hub.listenerCount(), 0u);
    hub.takeMIDIMessages({note(62, 100)});
    EXPECT_EQ(red->state(), 4u);
    red->setMIDIKey(d4);  // set again: a fresh registration
    hub.takeMIDIMessages({note(62, 100)});
    EXPECT_EQ(red->state(), 0u);

    // Two buttons on one key both answer, in the order they registered: Red goes into
    // Preview, then Blue, whose selection returns the pending Red to idle.
    blue->setMIDIKey(d4);
    hub.takeMIDIMessages({note(62, 100)});
    EXPECT_EQ(red->state(), 0u);
    EXPECT_EQ(blue->state(), 4u);
    EXPECT_EQ(hub.listenerCount(), 2u);

    red->doDelete();
    KDDelayedDispatcher::flush();
    EXPECT_EQ(studio->buttonHavingName(QStringLiteral("Red")), nullptr);
    EXPECT_EQ(hub.listenerCount(), 1u);
}

} // namespace
