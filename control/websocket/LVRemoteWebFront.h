#pragma once
// The remote control's one listener: HTTP for the web remote's page and, on the same port,
// the WebSocket upgrade that the remote-control server takes over. Only plain files of the
// page's folder are served (no subfolders, no links), read bounded; a one-time access token
// from a link hands the password to one browser.
#include <QAbstractHttpServer>
#include <QByteArray>
#include <QHostAddress>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

class QTcpServer;
class QWebSocket;

class LVRemoteWebFront : public QAbstractHttpServer {
    Q_OBJECT
public:
    // What GET /access?token=... answers: the password for a token still valid, else nothing.
    using Redeem = std::function<std::optional<QString>(const QString& token, const QString& address)>;
    // What a socket that upgraded to WebSocket is given to; the callee owns it.
    using Adopt = std::function<void(QWebSocket* socket)>;

    LVRemoteWebFront(QString folder, Redeem redeem, Adopt adopt);
    ~LVRemoteWebFront() override;

    // $LUMAVEIL_WEB_DIR, else the page folder beside the installed program, else the source
    // tree's when the program runs from this build.
    static QString standardFolder();

    // False with error (the address, port and system's reason) when the port cannot be had.
    bool listen(const QHostAddress& address, quint16 port, QString* error);
    quint16 port() const;
    QHostAddress address() const;
    bool isListening() const;

    struct Reply {
        int status = 200;
        QByteArray contentType;
        QByteArray body;
    };
    // The answer to a GET of path (with its query) from address; the HTTP handling aside.
    Reply answer(const QString& path, const QString& query, const QString& address) const;

    static constexpr qint64 maxFileBytes = 1 << 20;

protected:
    bool handleRequest(const QHttpServerRequest& request, QTcpSocket* socket) override;
    void missingHandler(const QHttpServerRequest& request, QTcpSocket* socket) override;

private:
    Reply fileReply(const QString& name) const;

    QString folder_;
    Redeem redeem_;
    // Owned through Qt: the HTTP server may make itself the listener's parent.
    QTcpServer* tcp_ = nullptr;
};
