#include "control/websocket/LVRemoteControlServer.h"

#include "control/websocket/LVRemoteRequests.h"
#include "control/websocket/LVRemoteWebFront.h"
#include "core/Lumaveil.h"
#include "core/util/LVLog.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTimer>
#include <QWebSocket>
#include <QWebSocketServer>

#include <algorithm>
#include <deque>

using namespace LVRemote;

namespace {

constexpr int kMaxSleepMillis = 50000;
constexpr int kMaxSleepFrames = 10000;
constexpr size_t kMaxRememberedAddresses = 4096;
constexpr size_t kMaxAccessTokens = 64;

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

// IPv4 peers on a dual-stack socket read as ::ffff:a.b.c.d; one address, one record.
QString addressKey(const QHostAddress& address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    return isV4 ? QHostAddress(v4).toString() : address.toString();
}

} // namespace

struct LVRemoteControlServer::Session {
    std::unique_ptr<QWebSocket> socket;
    QString address;
    QByteArray challenge;
    bool identified = false;
    bool dead = false;
    // An Identify waits out the address's failure delay; messages wait behind it.
    bool identifyHeld = false;
    uint32_t subscriptions = SubscribeAll;
    qint64 queuedBytes = 0;
    std::deque<QString> waiting;
    qint64 incoming = 0;
    qint64 outgoing = 0;
    QTimer identifyTimer;
    QTimer holdTimer;
    std::list<std::unique_ptr<Batch>> batches;
};

struct LVRemoteControlServer::Batch {
    Session* session = nullptr;
    QJsonValue requestId;
    bool haltOnFailure = false;
    int executionType = SerialRealtime;
    QJsonArray requests;
    qsizetype next = 0;
    QJsonArray results;
    int framesLeft = 0;
    QTimer sleep;
};

LVRemoteControlServer::LVRemoteControlServer(LVRemoteRequests& requests, Lumaveil* app, LVRemoteControlLimits limits)
    : requests_(requests), app_(app), limits_(limits)
{
}

LVRemoteControlServer::~LVRemoteControlServer()
{
    close();
}

bool LVRemoteControlServer::listen(const QHostAddress& address, quint16 port, QString* error)
{
    close();
    if (!pagesFolder_.isEmpty()) {
        web_ = std::make_unique<LVRemoteWebFront>(
            pagesFolder_, [this](const QString& token, const QString& from) { return redeemAccessToken(token, from); },
            [this](QWebSocket* socket) { adopt(socket); });
        if (!web_->listen(address, port, error)) {
            web_.reset();
            return false;
        }
        if (salt_.isEmpty()) salt_ = randomToken();
        return true;
    }
    server_ = std::make_unique<QWebSocketServer>(QStringLiteral("Lumaveil"), QWebSocketServer::NonSecureMode);
    server_->setSupportedSubprotocols({key(jsonSubprotocol)});
    server_->setHandshakeTimeout(10000);
    server_->setMaxPendingConnections(limits_.maxClients);
    if (!server_->listen(address, port)) {
        *error = QStringLiteral("cannot listen on %1:%2: %3").arg(address.toString()).arg(port).arg(server_->errorString());
        server_.reset();
        return false;
    }
    connect(server_.get(), &QWebSocketServer::newConnection, this, &LVRemoteControlServer::acceptConnections);
    if (salt_.isEmpty()) salt_ = randomToken();
    return true;
}

void LVRemoteControlServer::close(bool exiting)
{
    if (exiting) broadcast(key("ExitStarted"), SubscribeGeneral, {});
    if (server_) {
        server_->disconnect(this);
        server_->close();
    }
    for (auto& session : sessions_) {
        session->batches.clear();
        session->socket->disconnect(this);
        session->socket->close(QWebSocketProtocol::CloseCodeGoingAway, QStringLiteral("Lumaveil stops serving remote control"));
        session->socket->flush();
    }
    const bool hadClients = !sessions_.empty();
    sessions_.clear();
    server_.reset();
    web_.reset();
    if (frameConnection_) disconnect(frameConnection_);
    frameConnection_ = {};
    if (hadClients) emit clientCountChanged(0);
}

bool LVRemoteControlServer::isListening() const
{
    if (web_) return web_->isListening();
    return server_ && server_->isListening();
}

bool LVRemoteControlServer::servesPages() const
{
    return web_ != nullptr;
}

quint16 LVRemoteControlServer::port() const
{
    if (web_) return web_->port();
    return server_ ? server_->serverPort() : 0;
}

QHostAddress LVRemoteControlServer::address() const
{
    if (web_) return web_->address();
    return server_ ? server_->serverAddress() : QHostAddress();
}

QString LVRemoteControlServer::makeAccessToken()
{
    if (password_.isEmpty()) return {};
    const qint64 now = nowMs();
    std::erase_if(accessTokens_, [now](const auto& entry) { return entry.second <= now; });
    if (accessTokens_.size() >= kMaxAccessTokens) {
        accessTokens_.erase(std::min_element(accessTokens_.begin(), accessTokens_.end(),
                                             [](const auto& a, const auto& b) { return a.second < b.second; }));
    }
    // URL-safe, so the link needs no escaping.
    const QString token = QString::fromLatin1(QByteArray::fromBase64(randomToken()).toBase64(
        QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals));
    accessTokens_[token] = now + accessTokenLifetimeMs;
    return token;
}

std::optional<QString> LVRemoteControlServer::redeemAccessToken(const QString& token, const QString& address)
{
    const auto found = accessTokens_.find(token);
    if (found == accessTokens_.end() || found->second <= nowMs() || password_.isEmpty()) {
        if (found != accessTokens_.end()) accessTokens_.erase(found);
        LVLog("Web remote: %s opened a used, expired or unknown access link", qPrintable(address));
        return std::nullopt;
    }
    accessTokens_.erase(found);
    LVLog("Web remote: %s opened an access link", qPrintable(address));
    return password_;
}

void LVRemoteControlServer::setPassword(const QString& password)
{
    if (password == password_) return;
    password_ = password;
    salt_ = randomToken();
}

int LVRemoteControlServer::clientCount() const
{
    return int(std::count_if(sessions_.begin(), sessions_.end(), [](const auto& s) { return !s->dead; }));
}

int LVRemoteControlServer::identifiedClientCount() const
{
    return int(std::count_if(sessions_.begin(), sessions_.end(), [](const auto& s) { return !s->dead && s->identified; }));
}

qint64 LVRemoteControlServer::nowMs() const
{
    return QDateTime::currentMSecsSinceEpoch();
}

LVRemoteControlServer::Failures* LVRemoteControlServer::failuresFor(const QString& address)
{
    const auto found = failures_.find(address);
    if (found == failures_.end()) return nullptr;
    if (nowMs() - found->second.lastMs > limits_.failureMemoryMs) {
        failures_.erase(found);
        return nullptr;
    }
    return &found->second;
}

qint64 LVRemoteControlServer::identifyDelayMs(const QString& address) const
{
    const auto found = failures_.find(address);
    if (found == failures_.end() || nowMs() - found->second.lastMs > limits_.failureMemoryMs) return 0;
    return std::max<qint64>(0, found->second.notBeforeMs - nowMs());
}

void LVRemoteControlServer::noteFailure(const QString& address)
{
    if (!failures_.count(address) && failures_.size() >= kMaxRememberedAddresses) {
        const auto oldest = std::min_element(failures_.begin(), failures_.end(),
                                             [](const auto& a, const auto& b) { return a.second.lastMs < b.second.lastMs; });
        failures_.erase(oldest);
    }
    Failures* known = failuresFor(address);
    Failures& record = known ? *known : failures_[address];
    ++record.count;
    record.lastMs = nowMs();
    const int doublings = std::min(record.count - 1, 20);
    const qint64 delay = std::min<qint64>(qint64(limits_.failureDelayMs) << doublings, limits_.maxFailureDelayMs);
    record.notBeforeMs = record.lastMs + delay;
    LVLog("Remote control: wrong password from %s (%d in a row); its next try waits %lld ms", qPrintable(address),
          record.count, static_cast<long long>(delay));
}

void LVRemoteControlServer::acceptConnections()
{
    while (server_ && server_->hasPendingConnections()) {
        QWebSocket* socket = server_->nextPendingConnection();
        if (!socket) break;
        adopt(socket);
    }
}

void LVRemoteControlServer::adopt(QWebSocket* socket)
{
    if (clientCount() >= limits_.maxClients) {
        socket->close(QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("too many remote-control clients"));
        socket->deleteLater();
        return;
    }
    auto session = std::make_unique<Session>();
    Session* raw = session.get();
    session->socket.reset(socket);
    session->address = addressKey(socket->peerAddress());
    session->challenge = randomToken();
    socket->setMaxAllowedIncomingMessageSize(quint64(limits_.maxMessageBytes));
    socket->setMaxAllowedIncomingFrameSize(quint64(limits_.maxMessageBytes));
    connect(socket, &QWebSocket::textMessageReceived, this, [this, raw](const QString& text) { received(raw, text); });
    connect(socket, &QWebSocket::binaryMessageReceived, this, [this, raw](const QByteArray&) {
        closeSession(raw, MessageDecodeError, QStringLiteral("Lumaveil speaks JSON in text messages only."));
    });
    connect(socket, &QWebSocket::bytesWritten, this,
            [raw](qint64 bytes) { raw->queuedBytes = std::max<qint64>(0, raw->queuedBytes - bytes); });
    connect(socket, &QWebSocket::disconnected, this, [this, raw] { dropSession(raw, nullptr); });
    session->identifyTimer.setSingleShot(true);
    connect(&session->identifyTimer, &QTimer::timeout, this, [this, raw] {
        if (!raw->identified && !raw->identifyHeld) closeSession(raw, NotIdentified, QStringLiteral("No Identify in time."));
    });
    session->identifyTimer.start(limits_.identifyTimeoutMs);
    session->holdTimer.setSingleShot(true);
    connect(&session->holdTimer, &QTimer::timeout, this, [this, raw] {
        raw->identifyHeld = false;
        schedulePump();
    });
    sessions_.push_back(std::move(session));

    QJsonObject hello{{key("obsWebSocketVersion"), key(protocolVersion)}, {key("rpcVersion"), rpcVersion}};
    if (!password_.isEmpty()) {
        hello.insert(key("authentication"), QJsonObject{{key("challenge"), QString::fromLatin1(raw->challenge)},
                                                        {key("salt"), QString::fromLatin1(salt_)}});
    }
    send(raw, message(Hello, hello));
    emit clientCountChanged(clientCount());
}

void LVRemoteControlServer::received(Session* session, const QString& text)
{
    if (session->dead) return;
    ++session->incoming;
    session->waiting.push_back(text);
    if (qsizetype(session->waiting.size()) > limits_.maxWaitingMessages) {
        dropSession(session, "sends faster than it is answered");
        return;
    }
    schedulePump();
}

void LVRemoteControlServer::schedulePump()
{
    if (pumpScheduled_) return;
    pumpScheduled_ = true;
    QTimer::singleShot(0, this, &LVRemoteControlServer::pump);
}

void LVRemoteControlServer::pump()
{
    pumpScheduled_ = false;
    bool more = false;
    // A session closed while answering stays in the list until the sweep, so this walk is safe.
    for (auto& owned : sessions_) {
        Session* session = owned.get();
        for (int handled = 0; handled < limits_.messagesPerTurn; ++handled) {
            if (session->dead || session->identifyHeld || session->waiting.empty()) break;
            const QString text = std::move(session->waiting.front());
            session->waiting.pop_front();
            if (!handleMessage(session, text)) break;
        }
        more = more || (!session->dead && !session->identifyHeld && !session->waiting.empty());
    }
    if (more) schedulePump();
}

bool LVRemoteControlServer::handleMessage(Session* session, const QString& text)
{
    QJsonParseError parseError{};
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8(), &parseError);
    if (!document.isObject()) {
        closeSession(session, MessageDecodeError,
                     parseError.error != QJsonParseError::NoError ? QStringLiteral("The message is not JSON: %1").arg(parseError.errorString())
                                                                 : QStringLiteral("The message is not a JSON object."));
        return false;
    }
    const QJsonObject object = document.object();
    const QJsonValue op = object.value(key("op"));
    if (!op.isDouble()) {
        closeSession(session, UnknownOpCode, QStringLiteral("The message has no numeric `op`."));
        return false;
    }
    const QJsonValue data = object.value(key("d"));
    if (!data.isObject()) {
        closeSession(session, MissingDataField, QStringLiteral("The message has no `d` object."));
        return false;
    }
    const int code = op.toInt(-1);
    if (!session->identified && code != Identify) {
        closeSession(session, NotIdentified, QStringLiteral("Identify before anything else."));
        return false;
    }
    switch (code) {
    case Identify:
        if (session->identified) {
            closeSession(session, AlreadyIdentified, QStringLiteral("Already identified; use Reidentify."));
            return false;
        }
        return identify(session, data.toObject());
    case Reidentify: {
        const QJsonValue subscriptions = data.toObject().value(key("eventSubscriptions"));
        if (!subscriptions.isUndefined()) {
            if (!subscriptions.isDouble()) {
                closeSession(session, InvalidDataFieldType, QStringLiteral("`eventSubscriptions` must be a number."));
                return false;
            }
            session->subscriptions = uint32_t(subscriptions.toInteger());
        }
        send(session, message(Identified, {{key("negotiatedRpcVersion"), rpcVersion}}));
        return true;
    }
    case Request:
        answerRequest(session, data.toObject());
        return !session->dead;
    case RequestBatch:
        startBatch(session, data.toObject());
        return !session->dead;
    default:
        closeSession(session, UnknownOpCode, QStringLiteral("Unknown op %1.").arg(code));
        return false;
    }
}

bool LVRemoteControlServer::identify(Session* session, const QJsonObject& data)
{
    if (const qint64 wait = identifyDelayMs(session->address); wait > 0) {
        // Checked once the wait is over; until then nothing else from this client is read.
        session->identifyHeld = true;
        session->waiting.push_front(QString::fromUtf8(message(Identify, data)));
        session->holdTimer.start(int(wait));
        return false;
    }
    const QJsonValue version = data.value(key("rpcVersion"));
    if (version.isUndefined()) {
        closeSession(session, MissingDataField, QStringLiteral("Identify needs `rpcVersion`."));
        return false;
    }
    if (!version.isDouble()) {
        closeSession(session, InvalidDataFieldType, QStringLiteral("`rpcVersion` must be a number."));
        return false;
    }
    if (version.toInt() != rpcVersion) {
        closeSession(session, UnsupportedRpcVersion, QStringLiteral("Lumaveil speaks rpcVersion %1 only.").arg(rpcVersion));
        return false;
    }
    const QJsonValue subscriptions = data.value(key("eventSubscriptions"));
    if (!subscriptions.isUndefined() && !subscriptions.isDouble()) {
        closeSession(session, InvalidDataFieldType, QStringLiteral("`eventSubscriptions` must be a number."));
        return false;
    }
    if (!password_.isEmpty()) {
        const QByteArray expected = authenticationAnswer(password_, salt_, session->challenge);
        const QByteArray given = data.value(key("authentication")).toString().toUtf8();
        // Compared in full whatever differs, so the time taken tells nothing.
        unsigned char difference = given.size() == expected.size() ? 0 : 1;
        for (qsizetype i = 0; i < std::min(given.size(), expected.size()); ++i) difference |= uchar(given[i] ^ expected[i]);
        if (difference != 0) {
            noteFailure(session->address);
            closeSession(session, AuthenticationFailed, QStringLiteral("Authentication failed."));
            return false;
        }
    }
    failures_.erase(session->address);
    session->identified = true;
    session->identifyTimer.stop();
    if (!subscriptions.isUndefined()) session->subscriptions = uint32_t(subscriptions.toInteger());
    send(session, message(Identified, {{key("negotiatedRpcVersion"), rpcVersion}}));
    return !session->dead;
}

QJsonObject LVRemoteControlServer::runOne(Session* session, const QJsonObject& request)
{
    const QJsonValue type = request.value(key("requestType"));
    const QJsonValue id = request.value(key("requestId"));
    if (!type.isString() || type.toString().isEmpty()) {
        return responseBody(QString(), id, Response::failure(MissingRequestType, QStringLiteral("Your request is missing `requestType`.")));
    }
    const QJsonValue data = request.value(key("requestData"));
    if (!data.isUndefined() && !data.isNull() && !data.isObject()) {
        return responseBody(type.toString(), id,
                            Response::failure(InvalidRequestFieldType, QStringLiteral("`requestData` must be an object.")));
    }
    Response response = requests_.handle(type.toString(), data.toObject());
    if (response.ok() && type.toString() == QLatin1String("GetStats")) {
        response.data.insert(key("webSocketSessionIncomingMessages"), session->incoming);
        response.data.insert(key("webSocketSessionOutgoingMessages"), session->outgoing);
    }
    return responseBody(type.toString(), id, response);
}

void LVRemoteControlServer::answerRequest(Session* session, const QJsonObject& data)
{
    if (!data.value(key("requestId")).isString()) {
        closeSession(session, MissingDataField, QStringLiteral("A request needs a string `requestId`."));
        return;
    }
    send(session, message(RequestResponse, runOne(session, data)));
}

void LVRemoteControlServer::startBatch(Session* session, const QJsonObject& data)
{
    if (!data.value(key("requestId")).isString()) {
        closeSession(session, MissingDataField, QStringLiteral("A batch needs a string `requestId`."));
        return;
    }
    const QJsonValue requests = data.value(key("requests"));
    if (!requests.isArray()) {
        closeSession(session, requests.isUndefined() ? MissingDataField : InvalidDataFieldType,
                     QStringLiteral("A batch needs a `requests` array."));
        return;
    }
    const QJsonValue type = data.value(key("executionType"));
    const int executionType = type.isUndefined() ? int(SerialRealtime) : type.toInt(-99);
    if (executionType != SerialRealtime && executionType != SerialFrame && executionType != Parallel) {
        closeSession(session, InvalidDataFieldValue, QStringLiteral("Unknown `executionType`."));
        return;
    }
    auto batch = std::make_unique<Batch>();
    batch->session = session;
    batch->requestId = data.value(key("requestId"));
    batch->haltOnFailure = data.value(key("haltOnFailure")).toBool(false);
    batch->executionType = executionType;
    batch->requests = requests.toArray();
    batch->sleep.setSingleShot(true);
    // A coarse timer may fire a little early; a sleep must never be shorter than asked.
    batch->sleep.setTimerType(Qt::PreciseTimer);
    Batch* raw = batch.get();
    connect(&batch->sleep, &QTimer::timeout, this, [this, raw] { runBatch(raw); });
    session->batches.push_back(std::move(batch));
    runBatch(raw);
}

void LVRemoteControlServer::runBatch(Batch* batch)
{
    Session* session = batch->session;
    while (!session->dead && batch->next < batch->requests.size()) {
        const QJsonObject request = batch->requests.at(batch->next++).toObject();
        const QString type = request.value(key("requestType")).toString();
        if (type != QLatin1String("Sleep")) {
            const QJsonObject result = runOne(session, request);
            batch->results.append(result);
            const bool failed = !result.value(key("requestStatus")).toObject().value(key("result")).toBool();
            if (failed && batch->haltOnFailure) break;
            continue;
        }
        const QJsonObject data = request.value(key("requestData")).toObject();
        const QJsonValue id = request.value(key("requestId"));
        Response response = Response::success();
        int millis = 0;
        int frames = 0;
        if (batch->executionType == SerialRealtime) {
            const QJsonValue value = data.value(key("sleepMillis"));
            if (!value.isDouble()) {
                response = Response::failure(value.isUndefined() ? MissingRequestField : InvalidRequestFieldType,
                                             QStringLiteral("Sleep needs a number `sleepMillis`."));
            } else if (value.toDouble() < 0 || value.toDouble() > kMaxSleepMillis) {
                response = Response::failure(RequestFieldOutOfRange, QStringLiteral("`sleepMillis` must be from 0 to %1.").arg(kMaxSleepMillis));
            } else {
                millis = int(value.toDouble());
            }
        } else if (batch->executionType == SerialFrame && app_) {
            const QJsonValue value = data.value(key("sleepFrames"));
            if (!value.isDouble()) {
                response = Response::failure(value.isUndefined() ? MissingRequestField : InvalidRequestFieldType,
                                             QStringLiteral("Sleep needs a number `sleepFrames`."));
            } else if (value.toDouble() < 0 || value.toDouble() > kMaxSleepFrames) {
                response = Response::failure(RequestFieldOutOfRange, QStringLiteral("`sleepFrames` must be from 0 to %1.").arg(kMaxSleepFrames));
            } else {
                frames = int(value.toDouble());
            }
        } else {
            response = Response::failure(UnsupportedRequestBatchExecutionType,
                                         QStringLiteral("Sleep runs only in serial batches (frame-timed ones need the render loop)."));
        }
        batch->results.append(responseBody(type, id, response));
        if (!response.ok()) {
            if (batch->haltOnFailure) break;
            continue;
        }
        if (millis > 0) {
            batch->sleep.start(millis);
            return;
        }
        if (frames > 0) {
            batch->framesLeft = frames;
            // Followed only while a batch waits, so frames cost nothing otherwise.
            if (!frameConnection_) {
                frameConnection_ = connect(app_, &Lumaveil::frameRendered, this, &LVRemoteControlServer::frameRendered);
            }
            return;
        }
    }
    finishBatch(batch);
}

void LVRemoteControlServer::frameRendered()
{
    // Counted here, at the end of a frame; the batch itself runs after it.
    bool stillWaiting = false;
    for (auto& session : sessions_) {
        for (auto& batch : session->batches) {
            if (batch->framesLeft > 0 && --batch->framesLeft == 0) batch->sleep.start(0);
            stillWaiting = stillWaiting || batch->framesLeft > 0;
        }
    }
    if (!stillWaiting) {
        disconnect(frameConnection_);
        frameConnection_ = {};
    }
}

void LVRemoteControlServer::finishBatch(Batch* batch)
{
    Session* session = batch->session;
    if (!session->dead) {
        send(session, message(RequestBatchResponse, {{key("requestId"), batch->requestId}, {key("results"), batch->results}}));
    }
    session->batches.remove_if([batch](const std::unique_ptr<Batch>& owned) { return owned.get() == batch; });
}

void LVRemoteControlServer::broadcast(const QString& eventType, uint32_t intent, const QJsonObject& data)
{
    QByteArray text;
    for (auto& session : sessions_) {
        if (session->dead || !session->identified || !(session->subscriptions & intent)) continue;
        if (text.isEmpty()) {
            QJsonObject event{{key("eventType"), eventType}, {key("eventIntent"), qint64(intent)}};
            if (!data.isEmpty()) event.insert(key("eventData"), data);
            text = message(Event, event);
        }
        send(session.get(), text);
    }
}

void LVRemoteControlServer::send(Session* session, const QByteArray& text)
{
    if (session->dead) return;
    session->queuedBytes += text.size();
    if (session->queuedBytes > limits_.maxQueuedSendBytes) {
        dropSession(session, "leaves too much unread");
        return;
    }
    ++session->outgoing;
    session->socket->sendTextMessage(QString::fromUtf8(text));
}

void LVRemoteControlServer::closeSession(Session* session, int code, const QString& reason)
{
    if (session->dead) return;
    session->dead = true;
    session->batches.clear();
    session->socket->close(QWebSocketProtocol::CloseCode(code), reason);
    // A peer that never answers the close is let go after a while.
    QTimer::singleShot(5000, session->socket.get(), &QWebSocket::abort);
    scheduleSweep();
}

void LVRemoteControlServer::dropSession(Session* session, const char* why)
{
    if (why && !session->dead) LVLog("Remote control: dropped the client at %s: it %s", qPrintable(session->address), why);
    const bool wasDead = session->dead;
    session->dead = true;
    session->batches.clear();
    if (!wasDead && why) session->socket->abort();
    scheduleSweep();
}

void LVRemoteControlServer::scheduleSweep()
{
    if (sweepScheduled_) return;
    sweepScheduled_ = true;
    QTimer::singleShot(0, this, &LVRemoteControlServer::sweep);
}

void LVRemoteControlServer::sweep()
{
    sweepScheduled_ = false;
    const auto before = sessions_.size();
    for (auto it = sessions_.begin(); it != sessions_.end();) {
        Session* session = it->get();
        // A closed socket is kept until the peer has seen the close frame, then let go.
        if (session->dead && session->socket->state() != QAbstractSocket::ConnectedState) {
            session->socket->disconnect(this);
            session->socket.release()->deleteLater();
            it = sessions_.erase(it);
        } else {
            ++it;
        }
    }
    if (sessions_.size() != before) emit clientCountChanged(clientCount());
}
