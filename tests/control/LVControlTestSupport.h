#pragma once
// Helpers for control-socket tests: the server runs on the main thread's event loop while
// a client does blocking socket work on its own thread.
#include "control/socket/LVControlSocket.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QByteArray>
#include <QMetaObject>

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

// Runs work on a thread, serving events until it is done.
template <class Work>
auto runWhileServing(Work work) -> decltype(work())
{
    QEventLoop loop;
    decltype(work()) result{};
    std::thread client([&] {
        result = work();
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    loop.exec();
    client.join();
    return result;
}

// A blocking client end; every send and receive gives up after 20 s so a broken server fails the
// test instead of hanging it.
class LVTestControlClient {
public:
    explicit LVTestControlClient(const QString& path) : LVTestControlClient(LVControlSocket::connectTo(path)) {}
    // Takes over a connected socket (or -1).
    explicit LVTestControlClient(int fd) : fd_(fd)
    {
        if (fd_ < 0) return;
        timeval timeout{20, 0};
        ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
        ::setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    }
    ~LVTestControlClient()
    {
        if (fd_ >= 0) ::close(fd_);
    }
    LVTestControlClient(const LVTestControlClient&) = delete;
    LVTestControlClient& operator=(const LVTestControlClient&) = delete;

    bool send(const QByteArray& bytes)
    {
        qsizetype sent = 0;
        while (sent < bytes.size()) {
            const ssize_t n = ::send(fd_, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return false;
            sent += n;
        }
        return true;
    }

    // The next line without its newline; empty once the server closed (or on timeout).
    QByteArray readLine()
    {
        while (!buffer_.contains('\n')) {
            char chunk[65536];
            const ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return {};
            buffer_.append(chunk, n);
        }
        const qsizetype end = buffer_.indexOf('\n');
        QByteArray line = buffer_.left(end);
        buffer_.remove(0, end + 1);
        return line;
    }

    // A server that refused us may hang up before reading: its farewell line is still read.
    QByteArray request(const QByteArray& line)
    {
        send(line + '\n');
        return readLine();
    }

    // Waits, without reading, until the server hangs up; false after 20 s.
    bool waitForHangUp()
    {
        pollfd waiting{fd_, POLLRDHUP, 0};
        return ::poll(&waiting, 1, 20000) == 1 && (waiting.revents & (POLLRDHUP | POLLHUP | POLLERR));
    }

    // True when the server closed the connection (end of stream or reset).
    bool isClosedByServer()
    {
        char byte;
        const ssize_t n = ::recv(fd_, &byte, 1, 0);
        return n == 0 || (n < 0 && (errno == ECONNRESET || errno == EPIPE));
    }

private:
    int fd_ = -1;
    QByteArray buffer_;
};
