// lumaveil-ctl: sends one control request to the running Lumaveil and prints its reply.
#include "control/socket/LVControlSocket.h"
#include "tools/ctl/LVCtlRequest.h"

#include <QJsonDocument>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int replyTimeoutMs = 10000;
constexpr qsizetype maxReplyBytes = 64 << 20;

bool sendAll(int fd, const QByteArray& bytes)
{
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.constData() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        sent += n;
    }
    return true;
}

// Up to the first newline; false on timeout, a closed connection or an oversized reply.
bool receiveLine(int fd, QByteArray* line, QString* error)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(replyTimeoutMs);
    char chunk[65536];
    while (!line->contains('\n')) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        pollfd waiting{fd, POLLIN, 0};
        const int ready = left.count() > 0 ? ::poll(&waiting, 1, int(left.count())) : 0;
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) {
            *error = QStringLiteral("no reply within %1 s").arg(replyTimeoutMs / 1000);
            return false;
        }
        const ssize_t n = ready < 0 ? -1 : ::recv(fd, chunk, sizeof chunk, 0);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *error = QStringLiteral("Lumaveil closed the connection without a reply");
            return false;
        }
        line->append(chunk, n);
        if (line->size() > maxReplyBytes) {
            *error = QStringLiteral("reply longer than %1 bytes").arg(maxReplyBytes);
            return false;
        }
    }
    line->truncate(line->indexOf('\n'));
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    QStringList arguments;
    for (int i = 1; i < argc; ++i) arguments.append(QString::fromLocal8Bit(argv[i]));
    if (arguments.contains(QLatin1String("--help")) || arguments.contains(QLatin1String("-h"))) {
        std::fputs(qPrintable(LVCtlUsage()), stdout);
        return LVCtlSuccess;
    }
    QString error;
    const auto invocation = LVCtlParseArguments(arguments, &error);
    if (!invocation) {
        std::fprintf(stderr, "lumaveil-ctl: %s\n%s", qPrintable(error), qPrintable(LVCtlUsage()));
        return LVCtlFailed;
    }
    const QString path = LVControlSocket::socketPath();
    const int fd = LVControlSocket::connectTo(path);
    if (fd < 0) {
        const int cause = errno;
        if (cause == ENOENT || cause == ECONNREFUSED) {
            std::fprintf(stderr, "lumaveil-ctl: no Lumaveil is running (nothing serves %s)\n", qPrintable(path));
            return LVCtlNotRunning;
        }
        std::fprintf(stderr, "lumaveil-ctl: connect %s: %s\n", qPrintable(path), std::strerror(cause));
        return LVCtlFailed;
    }
    QByteArray reply;
    const QByteArray request = QJsonDocument(invocation->request).toJson(QJsonDocument::Compact) + '\n';
    // Sent or not, a reply may be waiting: a busy Lumaveil says why it hung up.
    const bool sent = sendAll(fd, request);
    const int sendError = errno;
    if (!receiveLine(fd, &reply, &error) && !sent) {
        error = QStringLiteral("send: %1").arg(QString::fromLocal8Bit(std::strerror(sendError)));
    }
    ::close(fd);
    if (!error.isEmpty()) {
        std::fprintf(stderr, "lumaveil-ctl: %s\n", qPrintable(error));
        return LVCtlFailed;
    }
    const LVCtlOutcome outcome = LVCtlInterpretReply(reply, invocation->rawJson);
    std::fputs(outcome.out.toUtf8().constData(), stdout);
    std::fputs(outcome.err.toUtf8().constData(), stderr);
    return outcome.status;
}
