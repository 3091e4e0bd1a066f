// Recording and streaming as the application drives them: control commands, remote-control
// requests and events, user-menu actions and the window's bar, on a real controller.
#include "control/broadcast/LVBroadcastCommands.h"
#include "control/broadcast/LVBroadcastRemote.h"
#include "control/remote/LVControlCommands.h"
#include "control/usermenu/LVUserMenuActions.h"
#include "control/websocket/LVRemoteRequests.h"
#include "automation/LVTimeLineItems.h"
#include "gui/broadcast/LVBroadcastBar.h"
#include "outputs/record/LVBroadcaster.h"
#include "tests/app/LVControllerFixture.h"
#include "tests/outputs/record/LVRecordTestSupport.h"

#include <QApplication>
#include <QLabel>
#include <QPushButton>

namespace {

class BroadcastControlTest : public LVControllerTest {
protected:
    static void SetUpTestSuite()
    {
        // The window's bar needs widgets.
        lvEnsureApplication<QApplication>();
        LVControllerTest::SetUpTestSuite();
    }

    void SetUp() override
    {
        LVControllerTest::SetUp();
        defaults->setValue(QLatin1String(LVBroadcaster::recordFolderKey), dir.filePath(QStringLiteral("videos")));
        LVEncoder::Options options;
        options.firstRetrySeconds = 0.2;
        options.longestRetrySeconds = 0.5;
        // Frames here come as fast as they render: none may be dropped.
        options.queueFrames = 64;
        broadcaster = std::make_unique<LVBroadcaster>(*app, *defaults, options);
    }
    void TearDown() override
    {
        broadcaster.reset();
        LVControllerTest::TearDown();
    }

    void renderFrames(int count)
    {
        for (int i = 0; i < count; ++i) {
            clock.advance(1.0 / 30);
            app->renderFrame();
        }
    }

    std::unique_ptr<LVBroadcaster> broadcaster;
};

TEST_F(BroadcastControlTest, ControlCommandsStartReportAndStopARecording)
{
    LVControlCommands commands(*app);
    LVAddBroadcastCommands(commands, *broadcaster);
    const QString path = dir.filePath(QStringLiteral("control.mkv"));
    struct Step {
        QJsonObject request;
        bool ok;
        QString mention; // in the error, or in the result's JSON text
    };
    const Step before[] = {
        {{{"command", "stopRecord"}}, false, "not recording"},
        {{{"command", "stopStream"}}, false, "not streaming"},
        {{{"command", "startRecord"}, {"path", 5}}, false, "path"},
        {{{"command", "startRecord"}, {"path", path}}, true, path},
        {{{"command", "startRecord"}}, false, "already recording"},
        {{{"command", "get"}, {"property", "recordStatus"}}, true, "\"active\":true"},
        {{{"command", "get"}, {"property", "streamStatus"}}, true, "\"active\":false"},
    };
    for (const Step& step : before) {
        const QJsonObject reply = commands.handle(step.request);
        EXPECT_EQ(reply.value("ok").toBool(), step.ok) << QJsonDocument(step.request).toJson().toStdString();
        const QString text = step.ok ? QString::fromUtf8(QJsonDocument(QJsonArray{reply.value("result")}).toJson(QJsonDocument::Compact))
                                     : reply.value("error").toString();
        EXPECT_TRUE(text.contains(step.mention)) << text.toStdString();
    }
    ASSERT_TRUE(lvWaitFor([&] { return broadcaster->recordStatus().state == LVEncoderState::Running; }, 20));
    renderFrames(30);
    EXPECT_TRUE(commands.handle({{"command", "stopRecord"}}).value("ok").toBool());
    ASSERT_TRUE(lvWaitFor([&] { return !broadcaster->isRecording(); }, 30));
    const QJsonObject status = commands.handle({{"command", "get"}, {"property", "recordStatus"}}).value("result").toObject();
    EXPECT_EQ(status.value("state").toString(), QStringLiteral("stopped"));
    EXPECT_EQ(status.value("framesSent").toInt(), 30);
    EXPECT_EQ(lvProbe(path).value("frames").toInt(), 30);
    // The encoder left the output list with its recording.
    EXPECT_EQ(app->outputs().driver(LVOutputSlot::Recording), nullptr);
}

TEST_F(BroadcastControlTest, RemoteRequestsAnswerAndTellStateChanges)
{
    LVRemoteRequests requests(*app, nullptr);
    LVAddBroadcastRequests(requests, *broadcaster);
    QStringList events;
    requests.setEventSink([&](const QString& type, uint32_t, const QJsonObject& data) {
        events.append(type + QLatin1Char(' ') + data.value("outputState").toString());
    });
    const QJsonArray available = requests.handle("GetVersion", {}).data.value("availableRequests").toArray();
    for (const char* type : {"StartRecord", "StopRecord", "ToggleRecord", "GetRecordStatus", "StartStream", "StopStream",
                             "ToggleStream", "GetStreamStatus"}) {
        EXPECT_TRUE(available.contains(QString::fromLatin1(type))) << type;
    }
    struct Step {
        const char* type;
        int code;
        const char* field;
        QJsonValue value;
    };
    const Step steps[] = {
        {"StopRecord", LVRemote::OutputNotRunning, nullptr, {}},
        {"GetRecordStatus", LVRemote::Success, "outputActive", false},
        {"ToggleRecord", LVRemote::Success, "outputActive", true},
        {"StartRecord", LVRemote::OutputRunning, nullptr, {}},
        {"GetRecordStatus", LVRemote::Success, "outputActive", true},
        {"StopStream", LVRemote::OutputNotRunning, nullptr, {}},
        {"GetStreamStatus", LVRemote::Success, "outputReconnecting", false},
    };
    for (const Step& step : steps) {
        const LVRemote::Response response = requests.handle(QString::fromLatin1(step.type), {});
        EXPECT_EQ(response.code, step.code) << step.type << ": " << response.comment.toStdString();
        if (step.field) {
            EXPECT_EQ(response.data.value(QString::fromLatin1(step.field)), step.value) << step.type;
        }
    }
    ASSERT_TRUE(lvWaitFor([&] { return broadcaster->recordStatus().state == LVEncoderState::Running; }, 20));
    renderFrames(5);
    const LVRemote::Response stopped = requests.handle("StopRecord", {});
    EXPECT_EQ(stopped.code, LVRemote::Success);
    EXPECT_EQ(stopped.data.value("outputPath").toString(), broadcaster->recordPath());
    // Each state once, in order; a state passed while the main thread was busy may be skipped.
    const QStringList order{"RecordStateChanged OBS_WEBSOCKET_OUTPUT_STARTING", "RecordStateChanged OBS_WEBSOCKET_OUTPUT_STARTED",
                            "RecordStateChanged OBS_WEBSOCKET_OUTPUT_STOPPING", "RecordStateChanged OBS_WEBSOCKET_OUTPUT_STOPPED"};
    // The end reaches the main thread as a queued call after the encoder has finished.
    ASSERT_TRUE(lvWaitFor([&] { return events.contains(order[3]); }, 30)) << events.join(", ").toStdString();
    EXPECT_TRUE(events.contains(order[1])) << events.join(", ").toStdString();
    EXPECT_EQ(events.last(), order[3]);
    for (qsizetype i = 1; i < events.size(); ++i) EXPECT_LT(order.indexOf(events[i - 1]), order.indexOf(events[i])) << events.join(", ").toStdString();
    EXPECT_TRUE(broadcaster->recordPath().startsWith(dir.filePath(QStringLiteral("videos/Lumaveil "))));
}

TEST_F(BroadcastControlTest, UserMenuRecordActionsGoThroughTheSwitchAndSurviveSaving)
{
    QString error;
    EXPECT_FALSE(LVTimeLineRecord::setRecording(true, &error));
    EXPECT_TRUE(error.contains("not available"));
    LVTimeLineRecord::setSwitch([this](bool start, QString* why) {
        return start ? broadcaster->startRecord(why) : broadcaster->stopRecord(why);
    });
    for (const bool start : {true, false}) {
        const LVRecordMenuAction action(start);
        const auto decoded = LVUserMenuAction::decode(static_cast<const LVUserMenuAction&>(action).encode());
        ASSERT_TRUE(decoded);
        EXPECT_EQ(decoded->summary(), start ? QStringLiteral("Start Recording") : QStringLiteral("Stop Recording"));
        decoded->invoke({app.get(), nullptr});
        // Started: a second start is refused. Stopped: a second stop is.
        EXPECT_FALSE(start ? broadcaster->startRecord(&error) : broadcaster->stopRecord(&error));
        EXPECT_TRUE(error.contains(start ? QStringLiteral("already recording") : QStringLiteral("not recording"))) << error.toStdString();
    }
    ASSERT_TRUE(lvWaitFor([&] { return !broadcaster->isRecording(); }, 30));
    LVTimeLineRecord::setSwitch(nullptr);
}

TEST_F(BroadcastControlTest, WindowBarShowsRecordingAndStreamState)
{
    LVBroadcastBar bar(*broadcaster);
    bar.show();
    EXPECT_EQ(bar.recordButton()->text(), QStringLiteral("Record"));
    EXPECT_FALSE(bar.recordIndicator()->isVisible());
    EXPECT_FALSE(bar.streamState()->isVisible());

    bar.recordButton()->click();
    ASSERT_TRUE(lvWaitFor([&] { return broadcaster->recordStatus().state == LVEncoderState::Running; }, 20));
    EXPECT_EQ(bar.recordButton()->text(), QStringLiteral("Stop Recording"));
    EXPECT_TRUE(bar.recordIndicator()->isVisible());
    EXPECT_TRUE(bar.recordIndicator()->text().startsWith(QStringLiteral("\u25CF REC 00:00:0"))) << bar.recordIndicator()->text().toStdString();
    EXPECT_TRUE(bar.recordIndicator()->styleSheet().contains(QStringLiteral("color: #e0162b")));

    // Nobody listens on the stream's port: the bar says it is trying again.
    defaults->setValue(QLatin1String(LVBroadcaster::streamAddressKey), QStringLiteral("rtmp://127.0.0.1:%1/live").arg(lvFreePort()));
    defaults->setValue(QLatin1String(LVBroadcaster::streamKeyKey), QStringLiteral("Sup3rS3cret"));
    bar.streamButton()->click();
    EXPECT_EQ(bar.streamButton()->text(), QStringLiteral("Stop Streaming"));
    ASSERT_TRUE(lvWaitFor([&] { return bar.streamState()->text().startsWith(QStringLiteral("Connection lost, trying again in")); }, 20))
        << bar.streamState()->text().toStdString();
    EXPECT_FALSE(bar.streamState()->toolTip().contains(QStringLiteral("Sup3rS3cret")));

    bar.recordButton()->click();
    bar.streamButton()->click();
    // The bar follows the encoders' ends on a later turn of the event loop: wait for what it shows.
    EXPECT_TRUE(lvWaitFor(
        [&] {
            return bar.recordButton()->text() == QStringLiteral("Record") && !bar.recordIndicator()->isVisible() &&
                   bar.streamButton()->text() == QStringLiteral("Stream");
        },
        30))
        << bar.recordButton()->text().toStdString() << " / " << bar.streamButton()->text().toStdString();
    EXPECT_FALSE(broadcaster->isRecording() || broadcaster->isStreaming());
}

} // namespace
