#pragma once
// Serves the control socket on the main thread: one JSON request and one JSON reply per
// line. Nothing here blocks: a slow, silent, greedy or flooding client is cut off instead.
#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>

#include <sys/types.h>

#include <functional>
#include <memory>
#include <vector>

class QLocalServer;
class QLocalSocket;
class QTimer;

struct LVControlLimits {
    // A longer request line is refused and the connection closed.
    qsizetype maxLineBytes = 1 << 20;
    // A client silent for this long is told so and closed.
    int idleMs = 30000;
    int maxClients = 64;
    // Replies a client leaves unread beyond this close its connection.
    qsizetype maxUnreadReplyBytes = 16 << 20;
    // Requests answered per client before the event loop gets a turn.
    int linesPerTurn = 32;
};

class LVControlServer : public QObject {
    Q_OBJECT
public:
    // Answers one parsed request; the server adds nothing but framing and the "id".
    using Handler = std::function<QJsonObject(const QJsonObject& request)>;

    explicit LVControlServer(Handler handler, LVControlLimits limits = {});
    ~LVControlServer() override;

    // Prepares the folder, removes a socket left by a process that died, and listens.
    // Refuses when another live process serves the path. False with error.
    bool listen(const QString& path, QString* error);
    void close();

    QString path() const { return path_; }
    int clientCount() const { return int(clients_.size()); }

    // The reply to one request line (parse errors included), without the newline.
    QByteArray replyToLine(const QByteArray& line) const;

private:
    struct Client;
    void acceptClients();
    void readFrom(Client* client);
    void answerLines(Client* client);
    void sendAndClose(Client* client, const QString& error);
    void drop(Client* client);

    Handler handler_;
    LVControlLimits limits_;
    QString path_;
    ino_t socketInode_ = 0;
    std::unique_ptr<QLocalServer> server_;
    std::vector<std::unique_ptr<Client>> clients_;
};

// {"ok": false, "error": text}, with the request's "id" when it had one.
QJsonObject LVControlError(const QString& text);
QJsonObject LVControlResult(const QJsonValue& result);
