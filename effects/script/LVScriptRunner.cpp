#include "effects/script/LVScriptRunner.h"

#include "core/LVDefaults.h"
#include "core/util/LVLog.h"

#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTimer>

#include <cerrno>
#include <cstring>
#include <csignal>
#include <ctime>
#include <vector>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

constexpr int syntaxCheckTimeoutMs = 5000;

bool isShell(const QString& interpreter)
{
    static const QStringList shells = {"sh", "dash", "bash", "zsh", "ksh", "mksh", "busybox"};
    return shells.contains(QFileInfo(interpreter).fileName());
}

// Shells read a script from standard input with -s; most other interpreters with "-".
QStringList stdinArguments(const QString& interpreter, const QStringList& arguments)
{
    return QStringList{isShell(interpreter) ? QStringLiteral("-s") : QStringLiteral("-")} + arguments;
}

// A child that exits before reading must not take this process down with SIGPIPE.
bool writeAllIgnoringPipeSignal(int fd, const QByteArray& bytes)
{
    sigset_t pipeSignal, previous;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    qsizetype written = 0;
    bool ok = true;
    while (written < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.constData() + written, size_t(bytes.size() - written));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            ok = false;
            break;
        }
        written += n;
    }
    if (!ok && errno == EPIPE) {
        const timespec none{0, 0};
        sigtimedwait(&pipeSignal, nullptr, &none);
    }
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return ok;
}

} // namespace

LVScriptRunner& LVScriptRunner::shared()
{
    static LVScriptRunner* runner = new LVScriptRunner; // outlives every effect and timer
    return *runner;
}

QString LVScriptRunner::interpreter()
{
    const QString chosen = LVDefaults::standardUserDefaults().stringForKey(QString::fromLatin1(interpreterKey));
    return chosen.isEmpty() ? QString::fromLatin1(defaultInterpreter) : chosen;
}

pid_t LVScriptRunner::run(const QString& interpreter, const QByteArray& script, const QStringList& arguments)
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        LVLogSystemError("pipe2");
        return -1;
    }
    // The script goes into the pipe in one piece: the child may read it whenever it likes.
    const int capacity = ::fcntl(fds[1], F_SETPIPE_SZ, 1 << 20);
    if (script.size() > (capacity > 0 ? capacity : 65536)) {
        LVLog("Script: %lld bytes do not fit the pipe to the interpreter; not run", (long long)script.size());
        ::close(fds[0]);
        ::close(fds[1]);
        return -1;
    }
    const QByteArray program = interpreter.toLocal8Bit();
    std::vector<QByteArray> words{program};
    for (const QString& argument : stdinArguments(interpreter, arguments)) words.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[0], 0);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    pid_t pid = -1;
    const int failed = posix_spawn(&pid, program.constData(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(fds[0]);
    if (failed != 0) {
        errno = failed;
        LVLog("Script: posix_spawn %s: %s", program.constData(), strerror(failed));
        ::close(fds[1]);
        return -1;
    }
    writeAllIgnoringPipeSignal(fds[1], script);
    ::close(fds[1]);
    pending_.insert(pid);
    reap(pid);
    return pid;
}

void LVScriptRunner::reap(pid_t pid)
{
    ++polls_;
    int status = 0;
    const pid_t done = ::waitpid(pid, &status, WNOHANG);
    if (done == 0) {
        QTimer::singleShot(reapIntervalMs, this, [this, pid] { reap(pid); });
        return;
    }
    if (done < 0 && errno != ECHILD) LVLogSystemError("waitpid");
    pending_.erase(pid);
    emit childReaped(pid, status);
}

std::optional<LVScriptError> LVScriptRunner::checkSyntax(const QString& interpreter, const QString& script)
{
    if (!isShell(interpreter)) return std::nullopt;
    QProcess check;
    check.start(interpreter, {QStringLiteral("-n")});
    if (!check.waitForStarted(syntaxCheckTimeoutMs)) {
        return LVScriptError{QStringLiteral("The script cannot be checked"),
                             QStringLiteral("%1 did not start: %2").arg(interpreter, check.errorString()), 0};
    }
    check.write(script.toUtf8());
    check.closeWriteChannel();
    if (!check.waitForFinished(syntaxCheckTimeoutMs)) {
        check.kill();
        check.waitForFinished(syntaxCheckTimeoutMs);
        return LVScriptError{QStringLiteral("The script cannot be checked"),
                             QStringLiteral("%1 -n took longer than %2 s").arg(interpreter).arg(syntaxCheckTimeoutMs / 1000),
                             0};
    }
    if (check.exitStatus() == QProcess::NormalExit && check.exitCode() == 0) return std::nullopt;
    const QString full = QString::fromLocal8Bit(check.readAllStandardError()).trimmed();
    // Shells say "sh: 3: Syntax error: ..." or "bash: line 3: syntax error ...".
    const QRegularExpressionMatch where = QRegularExpression(QStringLiteral("(?:line )?(\\d+): (.*)$"),
                                                             QRegularExpression::MultilineOption)
                                              .match(full);
    LVScriptError error{QStringLiteral("Syntax error"), full, 0};
    if (where.hasMatch()) {
        error.line = where.captured(1).toInt();
        error.briefMessage = where.captured(2);
    }
    return error;
}
