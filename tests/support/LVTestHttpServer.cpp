#include "LVTestHttpServer.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>
#include <QUrl>
#include <QUrlQuery>

LVTestHttpServer::LVTestHttpServer() : thread_(std::make_unique<QThread>())
{
    thread_->start();
    moveToThread(thread_.get());
    QMetaObject::invokeMethod(this, [this] {
        server_ = new QTcpServer(this);
        server_->listen(QHostAddress::LocalHost, 0);
        port_ = server_->serverPort();
        connect(server_, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = server_->nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }, Qt::BlockingQueuedConnection);
}

LVTestHttpServer::~LVTestHttpServer()
{
    QMetaObject::invokeMethod(this, [this] {
        delete server_;
        server_ = nullptr;
        moveToThread(nullptr);
    }, Qt::BlockingQueuedConnection);
    thread_->quit();
    thread_->wait();
}

void LVTestHttpServer::answer(const QString& key, Answer answer)
{
    std::lock_guard lock(mutex_);
    answers_.insert(key, std::move(answer));
}

QStringList LVTestHttpServer::requests() const
{
    std::lock_guard lock(mutex_);
    return requests_;
}

void LVTestHttpServer::release(const QString& key)
{
    QMetaObject::invokeMethod(this, [this, key] {
        QList<QTcpSocket*> sockets;
        Answer answer;
        {
            std::lock_guard lock(mutex_);
            sockets = waiting_.take(key);
            answer = answers_.value(key);
        }
        for (QTcpSocket* socket : sockets) send(socket, answer);
    }, Qt::BlockingQueuedConnection);
}

void LVTestHttpServer::serve(QTcpSocket* socket)
{
    if (socket->property("answered").toBool()) return;
    QByteArray request = socket->property("request").toByteArray() + socket->readAll();
    socket->setProperty("request", request);
    if (!request.contains("\r\n\r\n")) return;
    socket->setProperty("answered", true);
    const QList<QByteArray> line = request.left(request.indexOf("\r\n")).split(' ');
    const QString target = line.size() > 1 ? QString::fromLatin1(line[1]) : QString();
    const QUrl url(target);
    const QString method = QUrlQuery(url).queryItemValue(QStringLiteral("method"));
    const QString key = method.isEmpty() ? url.path() : method;
    Answer answer;
    {
        std::lock_guard lock(mutex_);
        requests_.append(target);
        answer = answers_.value(key, Answer{404, "not here", "text/plain"});
        if (answer.held) {
            waiting_[key].append(socket);
            return;
        }
    }
    send(socket, answer);
}

void LVTestHttpServer::send(QTcpSocket* socket, const Answer& answer)
{
    QByteArray head = "HTTP/1.1 " + QByteArray::number(answer.status) + (answer.status == 200 ? " OK" : " Error") + "\r\n";
    head += "Content-Type: " + answer.contentType + "\r\nContent-Length: " + QByteArray::number(answer.body.size()) +
            "\r\nConnection: close\r\n\r\n";
    socket->write(head + answer.body);
    socket->disconnectFromHost();
}
