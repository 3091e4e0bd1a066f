#include "control/remote/LVControlServer.h"

#include "control/socket/LVControlSocket.h"
#include "core/util/LVLog.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocalServer>
#include <QLocalSocket>
#include <QPointer>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr qint64 readChunk = 64 * 1024;

QString systemError()
{
    return QString::fromLocal8Bit(std::strerror(errno));
}

ino_t inodeOf(const QByteArray& path)
{
    struct stat info {};
    return ::lstat(path.constData(), &info) == 0 ? info.st_ino : 0;
}

} // namespace

QJsonObject LVControlError(const QString& text)
{
    return QJsonObject{{QStringLiteral("ok"), false}, {QStringLiteral("error"), text}};
}

QJsonObject LVControlResult(const QJsonValue& result)
{
    QJsonObject reply{{QStringLiteral("ok"), true}};
    if (!result.isUndefined()) reply.insert(QStringLiteral("result"), result);
    return reply;
}

struct LVControlServer::Client {
    QPointer<QLocalSocket> socket;
    QTimer* idle = nullptr;  // a child of the socket, so both go together
    QByteArray buffer;
    bool closing = false;
    bool answerQueued = false;
};

LVControlServer::LVControlServer(Handler handler, LVControlLimits limits)
    : handler_(std::move(handler)), limits_(limits)
{
}

LVControlServer::~LVControlServer()
{
    close();
}

bool LVControlServer::listen(const QString& path, QString* error)
{
    close();
    if (!LVControlSocket::prepareFolder(QFileInfo(path).absolutePath(), error)) return false;
    const QByteArray encoded = QFile::encodeName(path);
    sockaddr_un address {};
    if (size_t(encoded.size()) >= sizeof(address.sun_path)) {
        *error = QStringLiteral("control socket path too long: %1").arg(path);
        return false;
    }
    struct stat existing {};
    if (::lstat(encoded.constData(), &existing) == 0) {
        if (!S_ISSOCK(existing.st_mode)) {
            *error = QStringLiteral("%1 exists and is not a socket; not replacing it").arg(path);
            return false;
        }
        const int probe = LVControlSocket::connectTo(path);
        if (probe >= 0) {
            ::close(probe);
            *error = QStringLiteral("another Lumaveil already serves %1").arg(path);
            return false;
        }
        if (errno != ECONNREFUSED) {
            *error = QStringLiteral("cannot probe %1: %2").arg(path, systemError());
            return false;
        }
        // Left by a process that died without cleaning up.
        if (::unlink(encoded.constData()) != 0) {
            *error = QStringLiteral("cannot remove stale %1: %2").arg(path, systemError());
            return false;
        }
        LVLog("Control: removed stale socket %s", encoded.constData());
    }

    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        *error = QStringLiteral("socket: %1").arg(systemError());
        return false;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, encoded.constData(), size_t(encoded.size()));
    // The folder is private, so nobody can reach the socket before chmod narrows it.
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::chmod(encoded.constData(), 0600) != 0 || ::listen(fd, 128) != 0) {
        *error = QStringLiteral("cannot listen on %1: %2").arg(path, systemError());
        ::close(fd);
        ::unlink(encoded.constData());
        return false;
    }
    server_ = std::make_unique<QLocalServer>();
    if (!server_->listen(qintptr(fd))) {
        *error = QStringLiteral("cannot serve %1: %2").arg(path, server_->errorString());
        server_.reset();
        ::close(fd);
        ::unlink(encoded.constData());
        return false;
    }
    path_ = path;
    socketInode_ = inodeOf(encoded);
    connect(server_.get(), &QLocalServer::newConnection, this, &LVControlServer::acceptClients);
    return true;
}

void LVControlServer::close()
{
    // Not inside a socket's signal here, so sockets can go at once.
    for (const auto& client : clients_) {
        if (QLocalSocket* socket = client->socket) {
            disconnect(socket, nullptr, this, nullptr);
            socket->abort();
            delete socket;
        }
    }
    clients_.clear();
    if (!server_) return;
    server_->close();
    server_.reset();
    // Only our own socket: a later instance may have taken the path over.
    const QByteArray encoded = QFile::encodeName(path_);
    if (socketInode_ != 0 && inodeOf(encoded) == socketInode_) ::unlink(encoded.constData());
    socketInode_ = 0;
    path_.clear();
}

void LVControlServer::acceptClients()
{
    while (QLocalSocket* socket = server_->nextPendingConnection()) {
        auto client = std::make_unique<Client>();
        Client* raw = client.get();
        client->socket = socket;
        socket->setReadBufferSize(readChunk);
        client->idle = new QTimer(socket);
        client->idle->setSingleShot(true);
        connect(client->idle, &QTimer::timeout, this, [this, raw] {
            if (raw->closing) return drop(raw);
            sendAndClose(raw, QStringLiteral("no request within %1 s; closing").arg(limits_.idleMs / 1000.0));
        });
        connect(socket, &QLocalSocket::readyRead, this, [this, raw] { readFrom(raw); });
        connect(socket, &QLocalSocket::disconnected, this, [this, raw] { drop(raw); });
        const auto active = std::count_if(clients_.begin(), clients_.end(), [](const auto& c) { return !c->closing; });
        clients_.push_back(std::move(client));
        client.reset();
        raw->idle->start(limits_.idleMs);
        if (active >= limits_.maxClients) {
            sendAndClose(raw, QStringLiteral("too many control clients (at most %1); try again").arg(limits_.maxClients));
        }
    }
}

void LVControlServer::readFrom(Client* client)
{
    QLocalSocket* socket = client->socket;
    if (!socket) return;
    if (client->closing) {
        socket->readAll();
        return;
    }
    // Reads stop while a full line's worth waits, so a flood cannot grow the buffer.
    while (client->buffer.size() <= limits_.maxLineBytes && socket->bytesAvailable() > 0) {
        client->buffer += socket->read(readChunk);
    }
    answerLines(client);
}

void LVControlServer::answerLines(Client* client)
{
    client->answerQueued = false;
    QLocalSocket* socket = client->socket;
    if (!socket || client->closing) return;
    for (int answered = 0; answered < limits_.linesPerTurn; ++answered) {
        const qsizetype end = client->buffer.indexOf('\n');
        if (end < 0) break;
        QByteArray line = client->buffer.left(end);
        client->buffer.remove(0, end + 1);
        if (line.endsWith('\r')) line.chop(1);
        if (line.trimmed().isEmpty()) continue;
        socket->write(replyToLine(line) + '\n');
        // Out now rather than on the next turn of the loop; never blocks.
        socket->flush();
        client->idle->start(limits_.idleMs);
        if (socket->bytesToWrite() > limits_.maxUnreadReplyBytes) {
            LVLog("Control: a client left %lld bytes of replies unread; closing it", qlonglong(socket->bytesToWrite()));
            return drop(client);
        }
    }
    if (client->buffer.indexOf('\n') >= 0 || socket->bytesAvailable() > 0) {
        // More waits: let the frame run first.
        if (!client->answerQueued) {
            client->answerQueued = true;
            QPointer<QLocalSocket> guard = socket;
            QTimer::singleShot(0, this, [this, guard] {
                for (const auto& c : clients_) {
                    if (guard && c->socket == guard) return readFrom(c.get());
                }
            });
        }
        return;
    }
    if (client->buffer.size() > limits_.maxLineBytes) {
        sendAndClose(client, QStringLiteral("request longer than %1 bytes; closing").arg(limits_.maxLineBytes));
    }
}

QByteArray LVControlServer::replyToLine(const QByteArray& line) const
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(line, &parseError);
    QJsonObject reply;
    if (parseError.error != QJsonParseError::NoError) {
        // A lone string or number is JSON too, just not a request.
        const QJsonDocument wrapped = QJsonDocument::fromJson('[' + line + ']');
        if (wrapped.isArray() && wrapped.array().size() == 1) {
            reply = LVControlError(QStringLiteral("request must be a JSON object"));
        } else {
            reply = LVControlError(QStringLiteral("request is not JSON: %1 at byte %2")
                                   .arg(parseError.errorString())
                                   .arg(parseError.offset));
        }
    } else if (!document.isObject()) {
        reply = LVControlError(QStringLiteral("request must be a JSON object"));
    } else {
        const QJsonObject request = document.object();
        reply = handler_(request);
        if (request.contains(QStringLiteral("id"))) reply.insert(QStringLiteral("id"), request.value(QStringLiteral("id")));
    }
    return QJsonDocument(reply).toJson(QJsonDocument::Compact);
}

void LVControlServer::sendAndClose(Client* client, const QString& error)
{
    QLocalSocket* socket = client->socket;
    if (!socket || client->closing) return;
    client->closing = true;
    client->buffer.clear();
    socket->write(QJsonDocument(LVControlError(error)).toJson(QJsonDocument::Compact) + '\n');
    // A client that never reads the farewell is aborted when the timer fires again.
    client->idle->start(limits_.idleMs);
    socket->disconnectFromServer();
}

void LVControlServer::drop(Client* client)
{
    const auto it = std::find_if(clients_.begin(), clients_.end(), [&](const auto& c) { return c.get() == client; });
    if (it == clients_.end()) return;
    // Often called from the socket's own signal: it may only go later.
    if (QLocalSocket* socket = client->socket) {
        disconnect(socket, nullptr, this, nullptr);
        client->idle->stop();
        socket->abort();
        socket->deleteLater();
    }
    clients_.erase(it);
}
