#pragma once
// A small HTTP/1.1 server on 127.0.0.1 with canned answers, on a thread of its own so that
// code under test may block on it. Answers are looked up by the REST "method" parameter or,
// without one, by the path; a held answer waits until released.
#include <QByteArray>
#include <QHash>
#include <QObject>
#include <QStringList>

#include <memory>
#include <mutex>

class QTcpServer;
class QTcpSocket;
class QThread;

class LVTestHttpServer : public QObject {
    Q_OBJECT
public:
    struct Answer {
        int status = 200;
        QByteArray body;
        QByteArray contentType = "text/xml; charset=utf-8";
        bool held = false;
    };

    LVTestHttpServer();
    ~LVTestHttpServer() override;

    quint16 port() const { return port_; }
    QString address() const { return QStringLiteral("http://127.0.0.1:%1").arg(port_); }
    // key: a REST method ("flickr.people.findByUsername") or a path ("/farm1/1/2_s.jpg").
    void answer(const QString& key, Answer answer);
    // Sends the answers held for key.
    void release(const QString& key);
    // Every request's path and query, in arrival order.
    QStringList requests() const;

private:
    void serve(QTcpSocket* socket);
    void send(QTcpSocket* socket, const Answer& answer);

    std::unique_ptr<QThread> thread_;
    QTcpServer* server_ = nullptr;
    quint16 port_ = 0;
    mutable std::mutex mutex_;
    QHash<QString, Answer> answers_;
    QHash<QString, QList<QTcpSocket*>> waiting_;
    QStringList requests_;
};
