#include "control/websocket/LVRemoteWebFront.h"

#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrlQuery>
#include <QWebSocket>

namespace {

QByteArray contentTypeFor(const QString& name)
{
    static const std::pair<const char*, const char*> types[] = {
        {".html", "text/html; charset=utf-8"}, {".css", "text/css; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"}, {".svg", "image/svg+xml"},
        {".png", "image/png"}, {".json", "application/json"},
    };
    for (const auto& [suffix, type] : types) {
        if (name.endsWith(QLatin1String(suffix))) return type;
    }
    return "application/octet-stream";
}

LVRemoteWebFront::Reply textReply(int status, const char* text)
{
    return {status, "text/plain; charset=utf-8", QByteArray(text) + '\n'};
}

// IPv4 peers on a dual-stack socket read as ::ffff:a.b.c.d; one address, one name.
QString addressText(const QHostAddress& address)
{
    bool isV4 = false;
    const quint32 v4 = address.toIPv4Address(&isV4);
    return isV4 ? QHostAddress(v4).toString() : address.toString();
}

bool isWebSocketUpgrade(const QHttpServerRequest& request)
{
    return request.value("Upgrade").compare("websocket", Qt::CaseInsensitive) == 0;
}

} // namespace

LVRemoteWebFront::LVRemoteWebFront(QString folder, Redeem redeem, Adopt adopt)
    : folder_(std::move(folder)), redeem_(std::move(redeem))
{
    connect(this, &QAbstractHttpServer::newWebSocketConnection, this, [this, adopt = std::move(adopt)] {
        while (hasPendingWebSocketConnections()) {
            std::unique_ptr<QWebSocket> socket = nextPendingWebSocketConnection();
            if (socket) adopt(socket.release());
        }
    });
}

LVRemoteWebFront::~LVRemoteWebFront() = default;

QString LVRemoteWebFront::standardFolder()
{
    QString folder = qEnvironmentVariable("LUMAVEIL_WEB_DIR");
    if (!folder.isEmpty()) return folder;
    const QString appDir = QCoreApplication::instance() ? QCoreApplication::applicationDirPath() : QString();
    folder = QDir::cleanPath(appDir + QStringLiteral("/../share/lumaveil/web"));
    // Run from the build tree, the page comes from the source tree it was built from.
    if (!QFileInfo(folder).isDir() && QFileInfo(appDir) == QFileInfo(QStringLiteral(LV_BUILD_APP_DIR))) {
        folder = QStringLiteral(LV_SOURCE_WEB_DIR);
    }
    return folder;
}

bool LVRemoteWebFront::listen(const QHostAddress& address, quint16 port, QString* error)
{
    auto tcp = std::make_unique<QTcpServer>(this);
    if (!tcp->listen(address, port)) {
        *error = QStringLiteral("cannot listen on %1:%2: %3").arg(address.toString()).arg(port).arg(tcp->errorString());
        return false;
    }
    tcp_ = tcp.release();
    bind(tcp_);
    return true;
}

quint16 LVRemoteWebFront::port() const
{
    return tcp_ ? tcp_->serverPort() : 0;
}

QHostAddress LVRemoteWebFront::address() const
{
    return tcp_ ? tcp_->serverAddress() : QHostAddress();
}

bool LVRemoteWebFront::isListening() const
{
    return tcp_ && tcp_->isListening();
}

LVRemoteWebFront::Reply LVRemoteWebFront::fileReply(const QString& name) const
{
    // Plain names only: no folders, no dot files, nothing that could climb out.
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_-][A-Za-z0-9_.-]*$"));
    if (!plain.match(name).hasMatch() || name.contains(QLatin1String(".."))) return textReply(404, "Not found");
    const QString path = folder_ + QLatin1Char('/') + name;
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink()) return textReply(404, "Not found");
    QByteArray bytes;
    QString error;
    if (!LVReadRegularFile(path, maxFileBytes, &bytes, &error)) {
        LVLog("Web remote: %s %s", qPrintable(path), qPrintable(error));
        return textReply(404, "Not found");
    }
    return {200, contentTypeFor(name), bytes};
}

LVRemoteWebFront::Reply LVRemoteWebFront::answer(const QString& path, const QString& query, const QString& address) const
{
    if (path == QLatin1String("/")) return fileReply(QStringLiteral("index.html"));
    if (path == QLatin1String("/access")) {
        const QString token = QUrlQuery(query).queryItemValue(QStringLiteral("token"));
        const std::optional<QString> password = token.isEmpty() || !redeem_ ? std::nullopt : redeem_(token, address);
        if (!password) return textReply(403, "This link has been used or has expired; ask for a new one.");
        return {200, "application/json", QJsonDocument(QJsonObject{{QStringLiteral("password"), *password}}).toJson(QJsonDocument::Compact)};
    }
    if (!path.startsWith(QLatin1Char('/'))) return textReply(404, "Not found");
    return fileReply(path.mid(1));
}

bool LVRemoteWebFront::handleRequest(const QHttpServerRequest& request, QTcpSocket* socket)
{
    // Taken, yet unanswered: the HTTP server then upgrades the socket for the remote control.
    if (isWebSocketUpgrade(request)) return true;
    QHttpServerResponder responder = makeResponder(request, socket);
    if (request.method() != QHttpServerRequest::Method::Get) {
        const Reply refused = textReply(405, "Only GET is served");
        responder.write(refused.body, refused.contentType, QHttpServerResponder::StatusCode::MethodNotAllowed);
        return true;
    }
    const Reply reply = answer(request.url().path(), request.url().query(), addressText(socket->peerAddress()));
    responder.write(reply.body,
                    {{"Content-Type", reply.contentType},
                     // The page and the password it may carry are never kept by caches.
                     {"Cache-Control", "no-store"},
                     {"X-Content-Type-Options", "nosniff"},
                     {"Referrer-Policy", "no-referrer"},
                     {"Content-Security-Policy",
                      "default-src 'self'; img-src 'self' data:; connect-src 'self' ws: wss:; frame-ancestors 'none'"}},
                    QHttpServerResponder::StatusCode(reply.status));
    return true;
}

void LVRemoteWebFront::missingHandler(const QHttpServerRequest& request, QTcpSocket* socket)
{
    makeResponder(request, socket).write(QHttpServerResponder::StatusCode::NotFound);
}
