#pragma once
// Set-up the tests share: one Qt application per test binary, a private home for a child
// lumaveil, and waiting on the frames a child publishes.
#include "transport/LVShmem.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <sys/mman.h>

#include <chrono>
#include <functional>
#include <initializer_list>
#include <memory>
#include <thread>
#include <utility>

// GoogleTest's main makes no Qt application; event loops, sockets and timers need one.
template <class Application = QCoreApplication>
inline void lvEnsureApplication()
{
    static int argc = 1;
    static char name[] = "test";
    static char* argv[] = {name, nullptr};
    if (!QCoreApplication::instance()) new Application(argc, argv);
}

// A child's environment with its settings, setups and (when asked) runtime folder under home,
// so a test never reads or writes the user's own.
inline QProcessEnvironment lvPrivateEnvironment(const QTemporaryDir& home, bool withRuntime = false)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), home.filePath(QStringLiteral("config")));
    environment.insert(QStringLiteral("XDG_DATA_HOME"), home.filePath(QStringLiteral("data")));
    if (withRuntime) {
        const QString runtime = home.filePath(QStringLiteral("runtime"));
        QDir().mkpath(runtime);
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime);
    }
    return environment;
}

struct LVProcessRun {
    int status = -1; // -1 when it did not exit normally
    QString out;
    QString err;
};

// Runs a program to its end while this thread's event loop keeps serving, so a socket the
// program talks to may live in the test itself.
inline LVProcessRun lvRunServed(const QString& program, const QStringList& arguments,
                                const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment())
{
    QProcess process;
    process.setProcessEnvironment(environment);
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    QObject::connect(&process, &QProcess::errorOccurred, &loop, &QEventLoop::quit);
    process.start(program, arguments);
    loop.exec();
    return {process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
            QString::fromUtf8(process.readAllStandardOutput()), QString::fromUtf8(process.readAllStandardError())};
}

// Writes each (name, contents) pair as a file in folder, making the folder first; false when
// one cannot be written.
inline bool lvWriteFiles(const QString& folder, std::initializer_list<std::pair<const char*, QByteArray>> files)
{
    if (!QDir().mkpath(folder)) return false;
    for (const auto& [name, contents] : files) {
        QFile file(folder + QLatin1Char('/') + QString::fromUtf8(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size()) return false;
    }
    return true;
}

// Starts a program and serves this thread's event loop until its stderr so far satisfies
// seen(), it ends, or a minute passes; answers the stderr read by then.
inline QString lvStartUntil(QProcess& process, const QString& program, const QStringList& arguments,
                            const std::function<bool(const QString& stderrText)>& seen)
{
    QEventLoop loop;
    QString text;
    QObject::connect(&process, &QProcess::readyReadStandardError, &loop, [&] {
        text += QString::fromUtf8(process.readAllStandardError());
        if (seen(text)) loop.quit();
    });
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    process.start(program, arguments);
    loop.exec();
    QObject::disconnect(&process, nullptr, &loop, nullptr);
    return text;
}

// Asks a program to end (SIGTERM) and serves the event loop until it has.
inline void lvTerminate(QProcess& process)
{
    QEventLoop loop;
    QObject::connect(&process, &QProcess::finished, &loop, &QEventLoop::quit);
    process.terminate();
    if (process.state() != QProcess::NotRunning) loop.exec();
}

// Polls the frames published after `since` (so none an earlier run left) until accept() takes
// one; false once the producer has ended or the time is up. Pixels are A,R,G,B rows, top first.
inline bool lvWatchFrames(const QProcess& producer, uint64_t since,
                          const std::function<bool(const LVShmemReadResult&, const uint8_t* argb)>& accept,
                          std::chrono::seconds limit = std::chrono::seconds(30))
{
    LVShmem reader(LVShmemRole::Reader);
    std::unique_ptr<uint8_t[]> data;
    uint64_t length = 0, last = 0;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline && producer.state() != QProcess::NotRunning) {
        const LVShmemReadResult read = reader.getData(data, length, last);
        if (read.status == 0 && read.timestamp > since) {
            last = read.timestamp;
            if (accept(read, data.get())) return true;
        }
        // Another process writes the frames; there is no event to wait on.
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// Removes the frame segments a producer in this test left behind, so the next test starts clean.
inline void lvUnlinkFrameSegments()
{
    shm_unlink(LVShmem::segmentName("com.marrowkit.LVCtrl3").c_str());
    for (int block : {0, 1}) shm_unlink(LVShmem::imageBlockName(block).c_str());
}
