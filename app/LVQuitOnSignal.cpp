#include "app/LVQuitOnSignal.h"

#include "core/util/LVLog.h"

#include <QCoreApplication>
#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {

int signalPipe[2] = {-1, -1};
volatile sig_atomic_t lastSignal = 0;

void onSignal(int number)
{
    lastSignal = number;
    const char byte = 1;
    // Only async-signal-safe calls here; the event loop does the rest.
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
}

} // namespace

LVQuitOnSignal::LVQuitOnSignal(QObject* parent) : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalPipe) != 0) {
        LVLogSystemError("socketpair");
        return;
    }
    notifier_ = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
    connect(notifier_, &QSocketNotifier::activated, this, [] {
        char byte = 0;
        [[maybe_unused]] const ssize_t got = ::read(signalPipe[0], &byte, 1);
        QCoreApplication::quit();
    });
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    if (::sigaction(SIGINT, &action, nullptr) != 0) LVLogSystemError("sigaction");
    if (::sigaction(SIGTERM, &action, nullptr) != 0) LVLogSystemError("sigaction");
}

LVQuitOnSignal::~LVQuitOnSignal()
{
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    delete notifier_;
    for (int& fd : signalPipe) {
        if (fd >= 0) ::close(fd);
        fd = -1;
    }
}

int LVQuitOnSignal::receivedSignal()
{
    return lastSignal;
}
