#pragma once
// A remote-control client written from the protocol's documentation: it connects with
// QtWebSockets on this thread's event loop, identifies (answering the challenge), sends
// requests and batches and collects events. Every wait gives up after 20 s, so a broken
// server fails the test instead of hanging it. Beside it, the studio fixture that serves it.
#include "control/websocket/LVRemoteControlService.h"
#include "control/websocket/LVRemoteProtocol.h"
#include "effects/composition/LVQCEffect.h"
#include "tests/studio/LVStudioTestSupport.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QWebSocket>

#include <algorithm>
#include <deque>

class LVRemoteTestClient {
public:
    LVRemoteTestClient()
    {
        QObject::connect(&socket_, &QWebSocket::textMessageReceived, [this](const QString& text) {
            messages_.push_back(QJsonDocument::fromJson(text.toUtf8()).object());
        });
        QObject::connect(&socket_, &QWebSocket::disconnected, [this] {
            closed_ = true;
            closeCode_ = int(socket_.closeCode());
        });
    }

    // Connects and waits for Hello; false when none came.
    bool open(quint16 port)
    {
        socket_.open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port)));
        const QJsonObject hello = next(matching(LVRemote::Hello));
        hello_ = hello.value("d").toObject();
        return !hello.isEmpty();
    }

    // The documented answer: base64(sha256(base64(sha256(password + salt)) + challenge)).
    static QString answer(const QString& password, const QJsonObject& authentication)
    {
        auto hash = [](const QByteArray& bytes) { return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toBase64(); };
        const QByteArray secret = hash(password.toUtf8() + authentication.value("salt").toString().toUtf8());
        return QString::fromLatin1(hash(secret + authentication.value("challenge").toString().toUtf8()));
    }

    // Sends Identify; true once Identified came, false when the server closed instead.
    bool identify(const QString& password, int subscriptions = -1, int version = LVRemote::rpcVersion)
    {
        QJsonObject data{{"rpcVersion", version}};
        if (hello_.contains("authentication")) data.insert("authentication", answer(password, hello_.value("authentication").toObject()));
        if (subscriptions >= 0) data.insert("eventSubscriptions", subscriptions);
        sendJson(LVRemote::Identify, data);
        return !next(matching(LVRemote::Identified)).isEmpty();
    }

    // Changes the subscriptions; true once the server confirmed.
    bool reidentify(int subscriptions)
    {
        sendJson(LVRemote::Reidentify, {{"eventSubscriptions", subscriptions}});
        return !next(matching(LVRemote::Identified)).isEmpty();
    }

    void sendJson(int op, const QJsonObject& data)
    {
        sendText(QString::fromUtf8(QJsonDocument(QJsonObject{{"op", op}, {"d", data}}).toJson(QJsonDocument::Compact)));
    }
    void sendText(const QString& text) { socket_.sendTextMessage(text); }
    void sendBinary(const QByteArray& bytes) { socket_.sendBinaryMessage(bytes); }

    // One request's response body ("d"); empty when the connection closed first.
    QJsonObject request(const QString& type, const QJsonObject& data = {})
    {
        const QString id = QStringLiteral("r%1").arg(++lastId_);
        QJsonObject body{{"requestType", type}, {"requestId", id}};
        if (!data.isEmpty()) body.insert("requestData", data);
        sendJson(LVRemote::Request, body);
        return next(matching(LVRemote::RequestResponse, "requestId", id)).value("d").toObject();
    }

    // Sends a batch without waiting; batchResponse() waits for its answer.
    QString sendBatch(const QJsonArray& requests, int executionType, bool haltOnFailure = false)
    {
        const QString id = QStringLiteral("b%1").arg(++lastId_);
        sendJson(LVRemote::RequestBatch, {{"requestId", id}, {"requests", requests}, {"executionType", executionType},
                                          {"haltOnFailure", haltOnFailure}});
        return id;
    }
    QJsonArray batchResponse(const QString& id)
    {
        return next(matching(LVRemote::RequestBatchResponse, "requestId", id)).value("d").toObject().value("results").toArray();
    }
    // True when a batch answer is already here (nothing is waited for).
    bool hasBatchResponse(const QString& id) const
    {
        return std::any_of(messages_.begin(), messages_.end(), matching(LVRemote::RequestBatchResponse, "requestId", id));
    }

    // The next event of that type, as {"eventType", "eventIntent", "eventData"}; empty on close or time-out.
    QJsonObject event(const QString& type) { return next(matching(LVRemote::Event, "eventType", type)).value("d").toObject(); }
    // Event types received so far and not yet taken, in order.
    QStringList pendingEventTypes() const
    {
        QStringList types;
        for (const QJsonObject& m : messages_)
            if (m.value("op").toInt(-1) == LVRemote::Event) types.append(m.value("d").toObject().value("eventType").toString());
        return types;
    }

    // The close code once the server closed (waiting for it); -1 when it stayed open.
    int closeCode() { return wait([this] { return closed_; }) ? closeCode_ : -1; }
    bool isClosed() const { return closed_; }
    const QJsonObject& hello() const { return hello_; }

    // Serves events until done() holds or 20 s pass.
    static bool wait(const std::function<bool()>& done, int limitMs = 20000)
    {
        if (done()) return true;
        QEventLoop loop;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            if (done()) loop.quit();
        });
        poll.start(1);
        QTimer::singleShot(limitMs, &loop, &QEventLoop::quit);
        loop.exec();
        return done();
    }

private:
    using Matcher = std::function<bool(const QJsonObject&)>;
    // Messages of that op, and when a field is named, whose "d" carries that value in it.
    static Matcher matching(int op, const char* field = nullptr, const QString& value = {})
    {
        return [=](const QJsonObject& m) {
            return m.value("op").toInt(-1) == op && (!field || m.value("d").toObject().value(field) == value);
        };
    }

    // The first message (taken from the queue) that matches; others stay, in order.
    QJsonObject next(const Matcher& matches)
    {
        QJsonObject found;
        wait([&] {
            const auto it = std::find_if(messages_.begin(), messages_.end(), matches);
            if (it == messages_.end()) return closed_;
            found = *it;
            messages_.erase(it);
            return true;
        });
        return found;
    }

    QWebSocket socket_;
    QJsonObject hello_;
    std::deque<QJsonObject> messages_;
    bool closed_ = false;
    int closeCode_ = -1;
    int lastId_ = 0;
};

inline int remoteCode(const QJsonObject& response) { return response.value("requestStatus").toObject().value("code").toInt(); }

// A studio of a red and a blue setup, the remote control served on a free port of 127.0.0.1.
class LVRemoteServiceTest : public LVStudioTest {
protected:
    static void SetUpTestSuite()
    {
        LVStudioTest::SetUpTestSuite();
        // Transitions are compositions; the catalogue needs their kind to make them.
        LVQCEffectFactory::setCompositionEffectMaker(&LVQCEffect::makeForFile);
    }

    void SetUp() override
    {
        LVStudioTest::SetUp();
        red = addSetup("Red", Qt::red);
        blue = addSetup("Blue", Qt::blue);
        ASSERT_TRUE(red && blue);
        defaults->setValue("remoteControlPassword", "s3cret");
    }

    void TearDown() override
    {
        service.reset();
        LVStudioTest::TearDown();
    }

    LVRemoteControlServer& serve(LVRemoteControlService::Options options = {})
    {
        options.forceEnabled = true;
        options.port = 0;
        service = std::make_unique<LVRemoteControlService>(*app, studio, options);
        EXPECT_TRUE(service->isServing()) << service->status().toStdString();
        return service->server();
    }

    quint16 port() const { return service->server().port(); }

    // A client past Identify.
    std::unique_ptr<LVRemoteTestClient> identified(int subscriptions = -1)
    {
        auto client = std::make_unique<LVRemoteTestClient>();
        EXPECT_TRUE(client->open(port()));
        EXPECT_TRUE(client->identify("s3cret", subscriptions));
        return client;
    }

    std::unique_ptr<LVRemoteControlService> service;
    LVStudioButtonRef red, blue;
};
