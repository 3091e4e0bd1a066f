#pragma once
// Serves the remote-control protocol over WebSocket on the main thread. Nothing here blocks
// the render loop: messages are answered a few at a time per turn of the event loop, a
// client that leaves too much unread is dropped, and wrong passwords cost a growing wait
// per address. The password is never logged.
#include "control/websocket/LVRemoteProtocol.h"

#include <QByteArray>
#include <QHostAddress>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>

class LVRemoteRequests;
class LVRemoteWebFront;
class Lumaveil;
class QWebSocket;
class QWebSocketServer;

struct LVRemoteControlLimits {
    // A longer message closes the connection (the WebSocket "too much data" close).
    qint64 maxMessageBytes = 1 << 20;
    // Replies and events a client leaves unread beyond this drop the client.
    qint64 maxQueuedSendBytes = 8 << 20;
    int maxClients = 64;
    // Messages answered per client before the event loop gets a turn.
    int messagesPerTurn = 32;
    // Messages waiting beyond this mean a flood: the client is dropped.
    int maxWaitingMessages = 4096;
    // The wait before the next Identify from an address after its first failure; doubles
    // with each further failure up to the maximum, and is forgotten after quiet time.
    int failureDelayMs = 500;
    int maxFailureDelayMs = 30000;
    int failureMemoryMs = 10 * 60 * 1000;
    // A connection that has not identified by then is closed.
    int identifyTimeoutMs = 30000;
};

class LVRemoteControlServer : public QObject {
    Q_OBJECT
public:
    // app gives the frames a frame-timed batch sleeps on; may be null (those sleeps then
    // fail). requests must outlive the server.
    LVRemoteControlServer(LVRemoteRequests& requests, Lumaveil* app, LVRemoteControlLimits limits = {});
    ~LVRemoteControlServer() override;

    // False with error (the address, port and system's reason) when the port cannot be had.
    bool listen(const QHostAddress& address, quint16 port, QString* error);
    // Tells identified clients ExitStarted first when exiting is true.
    void close(bool exiting = false);
    bool isListening() const;
    quint16 port() const;
    QHostAddress address() const;

    // Empty: clients need no password. A new password applies to the next Identify.
    void setPassword(const QString& password);

    // A folder with the web remote's page: the next listen serves it over HTTP on the same
    // port, and WebSocket clients upgrade from there. Empty: WebSocket only.
    void setPagesFolder(const QString& folder) { pagesFolder_ = folder; }
    bool servesPages() const;
    // A token that hands the password to the one browser opening the link first, within
    // accessTokenLifetimeMs; an empty string unless a password is set.
    QString makeAccessToken();
    static constexpr qint64 accessTokenLifetimeMs = 10 * 60 * 1000;
    // Serves a socket that finished its WebSocket handshake elsewhere; takes it over.
    void adopt(QWebSocket* socket);

    int clientCount() const;
    int identifiedClientCount() const;
    // How long the next Identify from this address waits before it is checked, in ms.
    qint64 identifyDelayMs(const QString& address) const;

    // Sends an event to every identified client whose subscriptions ask for intent.
    void broadcast(const QString& eventType, uint32_t intent, const QJsonObject& data);

signals:
    void clientCountChanged(int clients);

private:
    struct Session;
    struct Batch;
    struct Failures {
        int count = 0;
        qint64 lastMs = 0;
        qint64 notBeforeMs = 0;
    };

    void acceptConnections();
    void received(Session* session, const QString& text);
    void schedulePump();
    void pump();
    // Handles one message; false once the session was closed by it.
    bool handleMessage(Session* session, const QString& text);
    bool identify(Session* session, const QJsonObject& data);
    void answerRequest(Session* session, const QJsonObject& data);
    void startBatch(Session* session, const QJsonObject& data);
    void runBatch(Batch* batch);
    void finishBatch(Batch* batch);
    void frameRendered();
    QJsonObject runOne(Session* session, const QJsonObject& request);
    void send(Session* session, const QByteArray& text);
    void closeSession(Session* session, int code, const QString& reason);
    void dropSession(Session* session, const char* why);
    void scheduleSweep();
    void sweep();
    qint64 nowMs() const;
    Failures* failuresFor(const QString& address);
    void noteFailure(const QString& address);
    std::optional<QString> redeemAccessToken(const QString& token, const QString& address);

    LVRemoteRequests& requests_;
    Lumaveil* app_;
    LVRemoteControlLimits limits_;
    std::unique_ptr<QWebSocketServer> server_;
    QString pagesFolder_;
    std::unique_ptr<LVRemoteWebFront> web_;
    // Unused access tokens and when each expires.
    std::map<QString, qint64> accessTokens_;
    QString password_;
    QByteArray salt_;
    std::list<std::unique_ptr<Session>> sessions_;
    std::map<QString, Failures> failures_;
    bool pumpScheduled_ = false;
    bool sweepScheduled_ = false;
    QMetaObject::Connection frameConnection_;
};
