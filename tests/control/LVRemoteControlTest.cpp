// The remote-control server on a real controller, setup manager and studio, driven by our
// own protocol client over real WebSocket connections.
#include "control/websocket/LVRemoteHotkeys.h"
#include "tests/control/LVControlTestSupport.h"
#include "tests/control/LVRemoteTestClient.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QTcpServer>

#include <arpa/inet.h>
#include <atomic>
#include <future>
#include <netinet/in.h>

namespace {

class LVTestHotkeys : public LVRemoteHotkeys {
public:
    QStringList hotkeyNames() const override { return {"Intro Music", "Lower Third"}; }
    bool triggerHotkey(const QString& name) override
    {
        if (!hotkeyNames().contains(name)) return false;
        triggered.append(name);
        return true;
    }
    QStringList triggered;
};

class LVRemoteControlTest : public LVRemoteServiceTest {
protected:
    void SetUp() override
    {
        LVRemoteServiceTest::SetUp();
        fx = addSetup("Marker FX", {}, 2);
        ASSERT_TRUE(fx);
    }

    LVRemoteControlServer& serveWith(LVRemoteControlLimits limits = {})
    {
        LVRemoteControlService::Options options;
        options.limits = limits;
        LVRemoteControlServer& server = serve(options);
        service->setHotkeys(&hotkeys);
        return server;
    }

    // Runs frames on the studio's clock until the running transition has ended.
    void finishTransition()
    {
        for (int frame = 0; frame < 100 && studio->isTransitionRunning(); ++frame) frameAfter(0.1);
        ASSERT_FALSE(studio->isTransitionRunning());
    }

    LVTestHotkeys hotkeys;
    LVStudioButtonRef fx;
};

QJsonObject data(const QJsonObject& response)
{
    return response.value("responseData").toObject();
}

QStringList names(const QJsonArray& list, const char* field)
{
    QStringList result;
    for (const QJsonValue& item : list) result.append(item.toObject().value(field).toString());
    return result;
}

TEST_F(LVRemoteControlTest, IdentifyAnswersTheChallengeOrClosesWithTheProtocolsCode)
{
    serveWith();
    struct Case {
        const char* what;
        std::function<void(LVRemoteTestClient&)> identify;
        int closeCode; // -1: identified and left open
    };
    const Case cases[] = {
        {"right password", [](LVRemoteTestClient& c) { EXPECT_TRUE(c.identify("s3cret")); }, -1},
        {"wrong password", [](LVRemoteTestClient& c) { EXPECT_FALSE(c.identify("guess")); }, LVRemote::AuthenticationFailed},
        {"no answer", [](LVRemoteTestClient& c) { c.sendJson(LVRemote::Identify, {{"rpcVersion", 1}}); }, LVRemote::AuthenticationFailed},
        {"newer rpc version", [](LVRemoteTestClient& c) { EXPECT_FALSE(c.identify("s3cret", -1, 2)); }, LVRemote::UnsupportedRpcVersion},
        {"no rpc version", [](LVRemoteTestClient& c) { c.sendJson(LVRemote::Identify, {}); }, LVRemote::MissingDataField},
        {"rpc version as text", [](LVRemoteTestClient& c) { c.sendJson(LVRemote::Identify, {{"rpcVersion", "1"}}); }, LVRemote::InvalidDataFieldType},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        LVRemoteTestClient client;
        ASSERT_TRUE(client.open(port()));
        const QJsonObject authentication = client.hello().value("authentication").toObject();
        EXPECT_EQ(client.hello().value("rpcVersion").toInt(), 1);
        EXPECT_FALSE(authentication.value("challenge").toString().isEmpty());
        EXPECT_FALSE(authentication.value("salt").toString().isEmpty());
        test.identify(client);
        if (test.closeCode < 0) {
            EXPECT_EQ(remoteCode(client.request("GetVersion")), LVRemote::Success);
            EXPECT_FALSE(client.isClosed());
        } else {
            EXPECT_EQ(client.closeCode(), test.closeCode);
        }
        // Failures from this address would hold the next case; each case starts afresh.
        service.reset();
        serveWith();
    }
}

TEST_F(LVRemoteControlTest, EachWrongPasswordFromAnAddressMakesItsNextTryWaitLonger)
{
    testing::internal::CaptureStderr();
    LVRemoteControlLimits limits;
    limits.failureDelayMs = 300;
    LVRemoteControlServer& server = serveWith(limits);
    auto tryPassword = [&](const QString& password) {
        LVRemoteTestClient client;
        EXPECT_TRUE(client.open(port()));
        QElapsedTimer answered;
        answered.start();
        // Read once the clock runs: the answer cannot come sooner than this (1 ms: the clocks' rounding).
        const qint64 pending = server.identifyDelayMs("127.0.0.1");
        const bool identified = client.identify(password);
        EXPECT_GE(answered.elapsed() + 1, pending);
        if (!identified) {
            EXPECT_EQ(client.closeCode(), LVRemote::AuthenticationFailed);
        }
        return identified;
    };
    for (int failure = 1; failure <= 3; ++failure) EXPECT_FALSE(tryPassword("guess"));
    // The right password waits too, then succeeds and clears the record.
    EXPECT_TRUE(tryPassword("s3cret"));
    EXPECT_EQ(server.identifyDelayMs("127.0.0.1"), 0);
    const QString log = QString::fromStdString(testing::internal::GetCapturedStderr());
    for (int failure = 1; failure <= 3; ++failure) {
        EXPECT_TRUE(log.contains(QStringLiteral("wrong password from 127.0.0.1 (%1 in a row); its next try waits %2 ms")
                                     .arg(failure)
                                     .arg(limits.failureDelayMs << (failure - 1))))
            << qPrintable(log);
    }
}

TEST_F(LVRemoteControlTest, EveryRequestActsOnTheStudio)
{
    serveWith();
    auto client = identified();
    const QString blueUid = blue->uid();
    using Check = std::function<void(const QJsonObject& data)>;
    struct Step { const char* type; QJsonObject data; int code; Check check; };
    const Step steps[] = {
        {"GetVersion", {}, 100, [](const QJsonObject& d) {
             EXPECT_EQ(d.value("platform").toString(), "linux");
             EXPECT_EQ(d.value("rpcVersion").toInt(), 1);
             const QJsonArray requests = d.value("availableRequests").toArray();
             for (const char* type : {"GetSceneList", "TriggerStudioModeTransition", "Sleep", "GetHotkeyList"})
                 EXPECT_TRUE(requests.contains(QString::fromLatin1(type))) << type;
         }},
        {"GetSceneList", {}, 100, [](const QJsonObject& d) {
             // Grid order: setups with a source on row 0, then the rest.
             EXPECT_EQ(names(d.value("scenes").toArray(), "sceneName"), QStringList({"Red", "Blue", "Marker FX"}));
             EXPECT_EQ(d.value("scenes").toArray().at(2).toObject().value("sceneIndex").toInt(), 2);
             EXPECT_TRUE(d.value("currentProgramSceneName").isNull());
         }},
        {"SetCurrentProgramScene", {{"sceneName", "Red"}}, 100, {}},
        {"GetCurrentProgramScene", {}, 100, [](const QJsonObject& d) { EXPECT_EQ(d.value("sceneName").toString(), "Red"); }},
        {"SetCurrentProgramScene", {{"sceneName", "Blue"}}, 100, {}},
        {"GetCurrentProgramScene", {}, 100, [&](const QJsonObject& d) {
             EXPECT_EQ(d.value("currentProgramSceneUuid").toString(), blueUid);
             EXPECT_EQ(studio->programButtonNames(), QStringList({"Blue"}));
         }},
        {"SetCurrentProgramScene", {{"sceneName", "Nope"}}, 600, {}},
        {"SetCurrentProgramScene", {}, 300, {}},
        {"SetCurrentProgramScene", {{"sceneName", 5}}, 401, {}},
        {"SetCurrentPreviewScene", {{"sceneUuid", red->uid()}}, 100, {}},
        {"GetCurrentPreviewScene", {}, 100, [](const QJsonObject& d) { EXPECT_EQ(d.value("sceneName").toString(), "Red"); }},
        {"SetCurrentPreviewScene", {{"sceneUuid", "no-such-uid"}}, 600, {}},
        {"GetStudioModeEnabled", {}, 100, [](const QJsonObject& d) { EXPECT_TRUE(d.value("studioModeEnabled").toBool()); }},
        {"SetStudioModeEnabled", {{"studioModeEnabled", true}}, 100, {}},
        {"SetStudioModeEnabled", {{"studioModeEnabled", false}}, 703, {}},
        {"GetTransitionKindList", {}, 100, [](const QJsonObject& d) {
             EXPECT_TRUE(d.value("transitionKinds").toArray().contains(QStringLiteral("Dissolve")));
         }},
        {"GetSceneTransitionList", {}, 100, [&](const QJsonObject& d) {
             EXPECT_EQ(names(d.value("transitions").toArray(), "transitionName"), studio->transitionNames());
         }},
        {"SetCurrentSceneTransition", {{"transitionName", "Wipe"}}, 100, {}},
        {"SetCurrentSceneTransition", {{"transitionName", "Nope"}}, 600, {}},
        {"SetCurrentSceneTransitionDuration", {{"transitionDuration", 2500}}, 100, {}},
        {"SetCurrentSceneTransitionDuration", {{"transitionDuration", 10}}, 402, {}},
        {"SetCurrentSceneTransitionDuration", {{"transitionDuration", "long"}}, 401, {}},
        {"GetCurrentSceneTransition", {}, 100, [&](const QJsonObject& d) {
             EXPECT_EQ(d.value("transitionName").toString(), "Wipe");
             EXPECT_EQ(d.value("transitionDuration").toInt(), 2500);
             EXPECT_EQ(studio->namedTransition(), "Wipe");
             EXPECT_DOUBLE_EQ(studio->transitionTime(), 2.5);
         }},
        {"GetSceneItemList", {{"sceneName", "Marker FX"}}, 100, [](const QJsonObject& d) {
             const QJsonArray items = d.value("sceneItems").toArray();
             ASSERT_EQ(items.size(), 2);
             EXPECT_EQ(items.at(1).toObject().value("inputKind").toString(), "Marker");
             EXPECT_EQ(items.at(1).toObject().value("sceneItemIndex").toInt(), 1);
         }},
        {"GetSceneItemList", {{"sceneName", "Red"}}, 100, [](const QJsonObject& d) {
             const QJsonObject item = d.value("sceneItems").toArray().at(0).toObject();
             EXPECT_EQ(item.value("inputKind").toString(), "RedSource");
             EXPECT_EQ(item.value("sourceType").toString(), "OBS_SOURCE_TYPE_INPUT");
         }},
        {"GetInputList", {}, 100, [&](const QJsonObject& d) {
             EXPECT_EQ(d.value("inputs").toArray().size(), qsizetype(app->sources().size()));
         }},
        {"GetHotkeyList", {}, 100, [](const QJsonObject& d) {
             EXPECT_EQ(d.value("hotkeys").toArray(), QJsonArray({"Intro Music", "Lower Third"}));
         }},
        {"TriggerHotkeyByName", {{"hotkeyName", "Lower Third"}}, 100, [&](const QJsonObject&) {
             EXPECT_EQ(hotkeys.triggered, QStringList({"Lower Third"}));
         }},
        {"TriggerHotkeyByName", {{"hotkeyName", "Nope"}}, 600, {}},
        {"Sleep", {{"sleepMillis", 10}}, 206, {}},
        {"Frobnicate", {}, 204, {}},
        {"GetStats", {}, 100, [](const QJsonObject& d) {
             for (const char* field : {"activeFps", "averageFrameRenderTime", "renderSkippedFrames", "renderTotalFrames"})
                 EXPECT_TRUE(d.contains(QString::fromLatin1(field))) << field;
             EXPECT_GT(d.value("webSocketSessionIncomingMessages").toInt(), 30);
         }},
        {"TriggerStudioModeTransition", {{"transitionName", "Dissolve"}, {"transitionDuration", 400}}, 100, [&](const QJsonObject&) {
             EXPECT_TRUE(studio->isTransitionRunning());
             EXPECT_DOUBLE_EQ(studio->transitionTime(), 0.4);
         }},
        {"TriggerStudioModeTransition", {}, 604, {}},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.type);
        const QJsonObject response = client->request(QString::fromLatin1(step.type), step.data);
        ASSERT_FALSE(response.isEmpty()) << "no response; the connection closed";
        EXPECT_EQ(response.value("requestType").toString(), QString::fromLatin1(step.type));
        EXPECT_EQ(remoteCode(response), step.code) << response.value("requestStatus").toObject().value("comment").toString().toStdString();
        EXPECT_EQ(response.value("requestStatus").toObject().value("result").toBool(), step.code == 100);
        if (step.check) step.check(data(response));
    }
    // The override lasts one transition; the studio's own time comes back.
    finishTransition();
    EXPECT_EQ(studio->programButtonNames(), QStringList({"Red"}));
    ASSERT_TRUE(LVRemoteTestClient::wait([&] { return studio->transitionTime() == 2.5; }));
}

TEST_F(LVRemoteControlTest, BatchesRunInOrderAndSleepInMillisecondsOrFrames)
{
    serveWith();
    auto client = identified();
    auto request = [](const char* type, QJsonObject data = {}) {
        QJsonObject body{{"requestType", type}};
        if (!data.isEmpty()) body.insert("requestData", data);
        return body;
    };
    QElapsedTimer timer;
    timer.start();
    const QJsonArray realtime = client->batchResponse(client->sendBatch(
        {request("SetCurrentPreviewScene", {{"sceneName", "Red"}}), request("Sleep", {{"sleepMillis", 120}}),
         request("GetCurrentPreviewScene")},
        LVRemote::SerialRealtime));
    EXPECT_GE(timer.elapsed(), 120);
    ASSERT_EQ(realtime.size(), 3);
    EXPECT_EQ(names(realtime, "requestType"), QStringList({"SetCurrentPreviewScene", "Sleep", "GetCurrentPreviewScene"}));
    EXPECT_EQ(data(realtime.at(2).toObject()).value("sceneName").toString(), "Red");

    struct Case { const char* what; QJsonArray requests; int executionType; bool halt; std::vector<int> codes; };
    const Case cases[] = {
        {"halt on failure stops the batch", {request("GetSceneList"), request("Nope"), request("GetSceneList")}, LVRemote::SerialRealtime, true, {100, 204}},
        {"without halting every request runs", {request("Nope"), request("GetSceneList")}, LVRemote::SerialRealtime, false, {204, 100}},
        {"sleep needs its field", {request("Sleep", {{"sleepFrames", 1}})}, LVRemote::SerialRealtime, false, {300}},
        {"sleep is bounded", {request("Sleep", {{"sleepMillis", 60000}})}, LVRemote::SerialRealtime, false, {402}},
        {"no sleeping in parallel", {request("Sleep", {{"sleepMillis", 1}}), request("GetStats")}, LVRemote::Parallel, false, {206, 100}},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const QJsonArray results = client->batchResponse(client->sendBatch(test.requests, test.executionType, test.halt));
        std::vector<int> codes;
        for (const QJsonValue& result : results) codes.push_back(remoteCode(result.toObject()));
        EXPECT_EQ(codes, test.codes);
    }

    // A frame-timed sleep goes on only as the studio renders frames.
    const QString frames = client->sendBatch({request("Sleep", {{"sleepFrames", 2}}), request("GetCurrentPreviewScene")},
                                             LVRemote::SerialFrame);
    EXPECT_EQ(remoteCode(client->request("GetVersion")), 100); // the batch was read and is waiting
    EXPECT_FALSE(client->hasBatchResponse(frames));
    frameAfter(0.04);
    EXPECT_EQ(remoteCode(client->request("GetVersion")), 100);
    EXPECT_FALSE(client->hasBatchResponse(frames));
    frameAfter(0.04);
    EXPECT_EQ(client->batchResponse(frames).size(), 2);
}

TEST_F(LVRemoteControlTest, ClientsGetTheEventsTheySubscribedToAfterACutAndATransition)
{
    serveWith();
    auto scenes = identified(LVRemote::SubscribeScenes | LVRemote::SubscribeTransitions);
    auto none = identified(LVRemote::SubscribeNone);

    blue->selectForAir();
    EXPECT_EQ(scenes->event("CurrentPreviewSceneChanged").value("eventData").toObject().value("sceneName").toString(), "Blue");
    studio->doCut();
    const QJsonObject cut = scenes->event("CurrentProgramSceneChanged");
    EXPECT_EQ(cut.value("eventIntent").toInt(), int(LVRemote::SubscribeScenes));
    EXPECT_EQ(cut.value("eventData").toObject().value("sceneName").toString(), "Blue");
    EXPECT_EQ(cut.value("eventData").toObject().value("sceneUuid").toString(), blue->uid());
    EXPECT_TRUE(scenes->event("CurrentPreviewSceneChanged").value("eventData").toObject().value("sceneName").isNull());

    ASSERT_TRUE(studio->setNamedTransition("Dissolve"));
    studio->setTransitionTime(0.3);
    red->selectForAir();
    studio->doTransition();
    EXPECT_EQ(scenes->event("SceneTransitionStarted").value("eventData").toObject().value("transitionName").toString(), "Dissolve");
    finishTransition();
    EXPECT_EQ(scenes->event("SceneTransitionEnded").value("eventData").toObject().value("transitionName").toString(), "Dissolve");
    EXPECT_EQ(scenes->event("CurrentProgramSceneChanged").value("eventData").toObject().value("sceneName").toString(), "Red");

    ASSERT_TRUE(manager->newSavedSetupWithName("Green", {}));
    EXPECT_EQ(scenes->event("SceneCreated").value("eventData").toObject().value("sceneName").toString(), "Green");
    EXPECT_EQ(names(scenes->event("SceneListChanged").value("eventData").toObject().value("scenes").toArray(), "sceneName").size(), 4);

    // The unsubscribed client saw none of it: its next message is its own answer.
    EXPECT_EQ(remoteCode(none->request("GetVersion")), 100);
    EXPECT_TRUE(none->pendingEventTypes().isEmpty()) << none->pendingEventTypes().join(", ").toStdString();

    // Subscriptions change on the way: now only the general events, and quitting is one.
    ASSERT_TRUE(none->reidentify(LVRemote::SubscribeGeneral));
    ASSERT_TRUE(scenes->reidentify(LVRemote::SubscribeScenes));
    blue->selectForAir();
    EXPECT_FALSE(scenes->event("CurrentPreviewSceneChanged").isEmpty());
    service->server().close(true);
    EXPECT_FALSE(none->event("ExitStarted").isEmpty());
    EXPECT_EQ(none->closeCode(), int(QWebSocketProtocol::CloseCodeGoingAway));
    EXPECT_EQ(none->pendingEventTypes(), QStringList());
    EXPECT_EQ(scenes->closeCode(), int(QWebSocketProtocol::CloseCodeGoingAway));
    EXPECT_FALSE(scenes->pendingEventTypes().contains("ExitStarted"));
}

TEST_F(LVRemoteControlTest, BadMessagesCloseTheConnectionWithTheProtocolsCode)
{
    LVRemoteControlLimits limits;
    limits.maxClients = 4;
    serveWith(limits);
    struct Case {
        const char* what;
        bool identifyFirst;
        std::function<void(LVRemoteTestClient&)> send;
        int closeCode;
    };
    const QString oversize = QStringLiteral("{\"op\":6,\"d\":{\"requestType\":\"GetVersion\",\"requestId\":\"%1\"}}")
                                 .arg(QString(1 << 20, QLatin1Char('x')));
    const Case cases[] = {
        {"not JSON", true, [](LVRemoteTestClient& c) { c.sendText("{op: 6"); }, LVRemote::MessageDecodeError},
        {"not an object", true, [](LVRemoteTestClient& c) { c.sendText("[6, {}]"); }, LVRemote::MessageDecodeError},
        {"binary", true, [](LVRemoteTestClient& c) { c.sendBinary("{\"op\":6}"); }, LVRemote::MessageDecodeError},
        {"no op", true, [](LVRemoteTestClient& c) { c.sendText("{\"d\":{}}"); }, LVRemote::UnknownOpCode},
        {"unknown op", true, [](LVRemoteTestClient& c) { c.sendJson(4, {}); }, LVRemote::UnknownOpCode},
        {"no data", true, [](LVRemoteTestClient& c) { c.sendText("{\"op\":6}"); }, LVRemote::MissingDataField},
        {"request without id", true, [](LVRemoteTestClient& c) { c.sendJson(LVRemote::Request, {{"requestType", "GetVersion"}}); }, LVRemote::MissingDataField},
        {"identify twice", true, [](LVRemoteTestClient& c) { c.sendJson(LVRemote::Identify, {{"rpcVersion", 1}}); }, LVRemote::AlreadyIdentified},
        {"request before identify", false, [](LVRemoteTestClient& c) { c.request("GetSceneList"); }, LVRemote::NotIdentified},
        {"over 1 MiB", true, [&](LVRemoteTestClient& c) { c.sendText(oversize); }, int(QWebSocketProtocol::CloseCodeTooMuchData)},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        LVRemoteTestClient client;
        ASSERT_TRUE(client.open(port()));
        if (test.identifyFirst) {
            ASSERT_TRUE(client.identify("s3cret"));
        }
        test.send(client);
        EXPECT_EQ(client.closeCode(), test.closeCode);
    }
    // Nothing was left behind, and the server still serves.
    ASSERT_TRUE(LVRemoteTestClient::wait([&] { return service->server().clientCount() == 0; }));
    auto client = identified();
    EXPECT_EQ(remoteCode(client->request("GetSceneList")), 100);

    // Beyond the most clients at once, the next is turned away.
    std::vector<std::unique_ptr<LVRemoteTestClient>> others;
    for (int i = 0; i < 3; ++i) others.push_back(identified());
    LVRemoteTestClient extra;
    extra.open(port());
    EXPECT_EQ(extra.closeCode(), int(QWebSocketProtocol::CloseCodePolicyViolated));
}

// A WebSocket client of our own making at the byte level, with a small receive buffer: past
// the handshake it never reads, so replies pile up. Null when the handshake failed.
std::unique_ptr<LVTestControlClient> unreadingClient(quint16 port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int small = 4096;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return nullptr;
    }
    auto client = std::make_unique<LVTestControlClient>(fd);
    const QByteArray upgrade = "GET / HTTP/1.1\r\nHost: 127.0.0.1:" + QByteArray::number(port) +
                               "\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                               "Sec-WebSocket-Version: 13\r\n\r\n";
    if (!client->send(upgrade) || !client->readLine().startsWith("HTTP/1.1 101")) return nullptr;
    return client;
}

// A masked text frame shorter than 64 KiB, as clients must send.
QByteArray maskedTextFrame(const QByteArray& text)
{
    QByteArray frame("\x81", 1);
    if (text.size() < 126) {
        frame.append(char(0x80 | text.size()));
    } else {
        frame.append(char(0x80 | 126)).append(char(text.size() >> 8)).append(char(text.size() & 0xff));
    }
    const char mask[4] = {0x11, 0x22, 0x33, 0x44};
    frame.append(mask, 4);
    for (qsizetype i = 0; i < text.size(); ++i) frame.append(char(text[i] ^ mask[i % 4]));
    return frame;
}

TEST_F(LVRemoteControlTest, AClientThatLeavesRepliesUnreadIsDroppedAndTheOthersGoOn)
{
    testing::internal::CaptureStderr();
    LVRemoteControlLimits limits;
    limits.maxQueuedSendBytes = 64 << 10;
    // Every request is read and queued; only the unread replies can end this client.
    limits.maxWaitingMessages = 1 << 20;
    serveWith(limits);
    auto reader = identified();
    const quint16 serverPort = port();
    // The server has a password; this client answers the challenge it cannot read back
    // after the handshake, so it is served without one.
    service->server().setPassword({});
    std::atomic<bool> gone{false};
    std::promise<void> dropped;
    QObject watching;
    QObject::connect(&service->server(), &LVRemoteControlServer::clientCountChanged, &watching, [&](int clients) {
        if (clients == 1 && !gone.exchange(true)) dropped.set_value();
    });
    const bool wasDropped = runWhileServing([&] {
        const auto slow = unreadingClient(serverPort);
        if (!slow) return false;
        slow->send(maskedTextFrame(R"({"op":1,"d":{"rpcVersion":1}})"));
        const QByteArray request = maskedTextFrame(R"({"op":6,"d":{"requestType":"GetVersion","requestId":"x"}})");
        // Far more replies than the kernel's buffers and the limit hold; sending fails once dropped.
        for (int i = 0; i < 20000 && !gone; ++i) slow->send(request);
        // Kept open, unread, until the server has let it go.
        return dropped.get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    });
    EXPECT_TRUE(wasDropped);
    EXPECT_EQ(remoteCode(reader->request("GetSceneList")), 100);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("Remote control: dropped the client at 127.0.0.1: it leaves too much unread"), std::string::npos) << log;
}

TEST_F(LVRemoteControlTest, ThePreferencesTurnTheServerOnAndMoveIt)
{
    testing::internal::CaptureStderr();
    defaults->setValue("remoteControlPassword", "");
    // A port free right now: the usual one may be taken by a Lumaveil or a test running beside this one.
    QTcpServer probe;
    ASSERT_TRUE(probe.listen(QHostAddress::LocalHost, 0));
    defaults->setValue("remoteControlPort", int(probe.serverPort()));
    probe.close();
    service = std::make_unique<LVRemoteControlService>(*app, studio, LVRemoteControlService::Options{});
    struct Step { const char* key; QJsonValue value; bool serving; QHostAddress address; };
    const Step steps[] = {
        {"remoteControlEnabled", false, false, QHostAddress()},
        {"remoteControlEnabled", true, true, QHostAddress(QHostAddress::LocalHost)},
        {"remoteControlAllInterfaces", true, true, QHostAddress(QHostAddress::Any)},
        {"remoteControlAllInterfaces", false, true, QHostAddress(QHostAddress::LocalHost)},
        {"remoteControlEnabled", false, false, QHostAddress()},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.key);
        defaults->setValue(QString::fromLatin1(step.key), step.value);
        ASSERT_TRUE(LVRemoteTestClient::wait([&] { return service->isServing() == step.serving; }));
        if (step.serving) {
            ASSERT_TRUE(LVRemoteTestClient::wait([&] { return service->server().address().isLoopback() == step.address.isLoopback(); }));
            EXPECT_TRUE(service->status().startsWith("Serving ws://")) << service->status().toStdString();
        } else {
            EXPECT_EQ(service->status(), "Off");
        }
    }
    // Made on first enable, kept where only its owner can read it, and never said.
    const QString password = defaults->stringForKey("remoteControlPassword");
    EXPECT_EQ(password.size(), 16);
    const QFileDevice::Permissions permissions = QFileInfo(defaults->path()).permissions();
    EXPECT_TRUE(permissions.testFlags(QFileDevice::ReadOwner | QFileDevice::WriteOwner));
    EXPECT_FALSE(permissions & (QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ReadOther | QFileDevice::WriteOther));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(log.find(password.toStdString()), std::string::npos);
    EXPECT_NE(log.find("Remote control: serving ws://127.0.0.1:"), std::string::npos) << log;
}

TEST_F(LVRemoteControlTest, APortThatIsTakenIsReportedAndNothingElseStops)
{
    QTcpServer taken;
    ASSERT_TRUE(taken.listen(QHostAddress::LocalHost, 0));
    LVRemoteControlService::Options options;
    options.forceEnabled = true;
    options.port = taken.serverPort();
    service = std::make_unique<LVRemoteControlService>(*app, studio, options);
    EXPECT_FALSE(service->isServing());
    EXPECT_TRUE(service->status().startsWith(QStringLiteral("Not serving: cannot listen on 127.0.0.1:%1: ").arg(taken.serverPort())))
        << service->status().toStdString();
}

TEST_F(LVRemoteControlTest, WithoutTheStudioItsRequestsSaySo)
{
    red = blue = fx = nullptr;
    app->setStudio(nullptr);
    studio = nullptr;
    serveWith();
    auto client = identified();
    EXPECT_EQ(remoteCode(client->request("GetSceneList")), LVRemote::NotReady);
    EXPECT_FALSE(data(client->request("GetStudioModeEnabled")).value("studioModeEnabled").toBool());
    EXPECT_EQ(remoteCode(client->request("GetVersion")), 100);
}

} // namespace
