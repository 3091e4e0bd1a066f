#pragma once
// A remote-control client written from the protocol's documentation: it connects with
// QtWebSockets on this thread's event loop, identifies (answering the challenge), sends
// requests and batches and collects events. Every wait gives up after 20 s, so a broken
// server fails the test instead of hanging it.
#include "control/websocket/LVRemoteProtocol.h"

#include <QCryptographicHash>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimer>
#include <QWebSocket>

#include <deque>
#include <functional>

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
        const QJsonObject hello = next([](const QJsonObject& m) { return m.value("op").toInt(-1) == LVRemote::Hello; });
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
        return !next([](const QJsonObject& m) { return m.value("op").toInt(-1) == LVRemote::Identified; }).isEmpty();
    }

    // Changes the subscriptions; true once the server confirmed.
    bool reidentify(int subscriptions)
    {
        sendJson(LVRemote::Reidentify, {{"eventSubscriptions", subscriptions}});
        return !next([](const QJsonObject& m) { return m.value("op").toInt(-1) == LVRemote::Identified; }).isEmpty();
    }

    void sendJson(int op, const QJsonObject& data)
    {
        socket_.sendTextMessage(QString::fromUtf8(QJsonDocument(QJsonObject{{"op", op}, {"d", data}}).toJson(QJsonDocument::Compact)));
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
        return next([&](const QJsonObject& m) {
                   return m.value("op").toInt(-1) == LVRemote::RequestResponse && m.value("d").toObject().value("requestId") == id;
               }).value("d").toObject();
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
        return next([&](const QJsonObject& m) {
                   return m.value("op").toInt(-1) == LVRemote::RequestBatchResponse && m.value("d").toObject().value("requestId") == id;
               }).value("d").toObject().value("results").toArray();
    }
    // True when a batch answer is already here (nothing is waited for).
    bool hasBatchResponse(const QString& id) const
    {
        for (const QJsonObject& m : seen_)
            if (m.value("op").toInt(-1) == LVRemote::RequestBatchResponse && m.value("d").toObject().value("requestId") == id) return true;
        for (const QJsonObject& m : messages_)
            if (m.value("op").toInt(-1) == LVRemote::RequestBatchResponse && m.value("d").toObject().value("requestId") == id) return true;
        return false;
    }

    // The next event of that type, as {"eventType", "eventIntent", "eventData"}; empty on close or time-out.
    QJsonObject event(const QString& type)
    {
        return next([&](const QJsonObject& m) {
                   return m.value("op").toInt(-1) == LVRemote::Event && m.value("d").toObject().value("eventType") == type;
               }).value("d").toObject();
    }
    // Event types received so far and not yet taken, in order.
    QStringList pendingEventTypes() const
    {
        QStringList types;
        for (const QJsonObject& m : messages_)
            if (m.value("op").toInt(-1) == LVRemote::Event) types.append(m.value("d").toObject().value("eventType").toString());
        return types;
    }

    // The close code once the server closed (waiting for it); -1 when it stayed open.
    int closeCode()
    {
        wait([this] { return closed_; });
        return closed_ ? closeCode_ : -1;
    }
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
    // The first message (taken from the queue) that matches; others stay, in order.
    QJsonObject next(const std::function<bool(const QJsonObject&)>& matches)
    {
        QJsonObject found;
        wait([&] {
            for (auto it = messages_.begin(); it != messages_.end(); ++it) {
                if (matches(*it)) {
                    found = *it;
                    seen_.push_back(*it);
                    messages_.erase(it);
                    return true;
                }
            }
            return closed_;
        });
        return found;
    }

    QWebSocket socket_;
    QJsonObject hello_;
    std::deque<QJsonObject> messages_;
    std::deque<QJsonObject> seen_;
    bool closed_ = false;
    int closeCode_ = -1;
    int lastId_ = 0;
};
