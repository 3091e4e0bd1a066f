#pragma once
// A private PipeWire daemon for one test: its own runtime folder and D-Bus session, the
// pipewire daemon and the wireplumber session manager, stopped with the whole process group.
// While it lives, this process (and every child started with environment()) talks to it.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QTemporaryDir>

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <thread>
#include <vector>

class LVPipeWireDaemon {
public:
    // The programs it needs; the first one missing, or empty when all are there.
    static QString missingProgram()
    {
        for (const char* program : {"pipewire", "wireplumber", "dbus-run-session", "pw-cli"}) {
            if (QStandardPaths::findExecutable(QLatin1String(program)).isEmpty()) return QLatin1String(program);
        }
        return {};
    }

    LVPipeWireDaemon()
    {
        for (const char* name : kVariables) saved_.push_back({name, qgetenv(name), qEnvironmentVariableIsSet(name)});
        qputenv("XDG_RUNTIME_DIR", runtime_.path().toUtf8());
        qputenv("PIPEWIRE_RUNTIME_DIR", runtime_.path().toUtf8());
        qunsetenv("PIPEWIRE_REMOTE");
        start();
    }

    ~LVPipeWireDaemon()
    {
        stop();
        for (const Saved& s : saved_) {
            if (s.set) qputenv(s.name, s.value);
            else qunsetenv(s.name);
        }
    }

    LVPipeWireDaemon(const LVPipeWireDaemon&) = delete;
    LVPipeWireDaemon& operator=(const LVPipeWireDaemon&) = delete;

    // Empty when the daemon answers on its socket; otherwise why not.
    QString error() const { return error_; }
    QString runtimeDir() const { return runtime_.path(); }
    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), runtime_.path());
        environment.insert(QStringLiteral("PIPEWIRE_RUNTIME_DIR"), runtime_.path());
        environment.remove(QStringLiteral("PIPEWIRE_REMOTE"));
        return environment;
    }

    // Ends the daemon and everything it started; waits until they are gone.
    void stop()
    {
        if (process_.state() == QProcess::NotRunning) return;
        ::kill(-pid_t(process_.processId()), SIGTERM);
        if (!process_.waitForFinished(5000)) {
            ::kill(-pid_t(process_.processId()), SIGKILL);
            process_.waitForFinished(5000);
        }
        QFile::remove(runtime_.filePath(QStringLiteral("pipewire-0")));
    }

private:
    static constexpr const char* kVariables[] = {"XDG_RUNTIME_DIR", "PIPEWIRE_RUNTIME_DIR", "PIPEWIRE_REMOTE"};
    struct Saved {
        const char* name;
        QByteArray value;
        bool set;
    };

    void start()
    {
        if (!runtime_.isValid()) {
            error_ = QStringLiteral("no temporary runtime folder");
            return;
        }
        process_.setProcessEnvironment(environment());
        process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        process_.setStandardOutputFile(QProcess::nullDevice());
        // Its own process group, so stop() reaches the daemons the shell started.
        process_.setChildProcessModifier([] { ::setsid(); });
        // The session manager gives up ("Failed to connect to PipeWire") if it starts before
        // the daemon answers, which two tests starting at once made happen about one time in 20.
        process_.start(QStringLiteral("dbus-run-session"),
                       {QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"),
                        QStringLiteral("pipewire & until pw-cli info 0 >/dev/null 2>&1; do sleep 0.02; done; "
                                       "wireplumber 2>\"$XDG_RUNTIME_DIR/wireplumber.log\" & wait")});
        if (!process_.waitForStarted(5000)) {
            error_ = QStringLiteral("dbus-run-session did not start: %1").arg(process_.errorString());
            return;
        }
        // Another process makes the socket; there is no event to wait on.
        const QString socket = runtime_.filePath(QStringLiteral("pipewire-0"));
        // A loaded machine starts the session manager slowly.
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(15);
        while (!QFileInfo::exists(socket)) {
            if (std::chrono::steady_clock::now() > until || process_.state() == QProcess::NotRunning) {
                error_ = QStringLiteral("pipewire made no socket in %1").arg(runtime_.path());
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        // The session manager links readers to nodes; its "default" metadata says it is up.
        while (!sessionManagerReady()) {
            if (std::chrono::steady_clock::now() > until || process_.state() == QProcess::NotRunning) {
                QFile log(runtime_.filePath(QStringLiteral("wireplumber.log")));
                error_ = QStringLiteral("wireplumber did not come up: %1")
                             .arg(log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.read(4096)) : log.errorString());
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }

    bool sessionManagerReady() const
    {
        QProcess list;
        list.setProcessEnvironment(environment());
        list.start(QStringLiteral("pw-cli"), {QStringLiteral("ls"), QStringLiteral("Metadata")});
        if (!list.waitForFinished(5000)) return false;
        return list.readAllStandardOutput().contains("metadata.name = \"default\"");
    }

    QTemporaryDir runtime_;
    QProcess process_;
    QString error_;
    std::vector<Saved> saved_;
};

// Starts the daemon in a test, or skips the test when the programs are not installed.
#define LV_START_PIPEWIRE(daemon)                                                                              \
    if (const QString missing = LVPipeWireDaemon::missingProgram(); !missing.isEmpty())                       \
        GTEST_SKIP() << qPrintable(missing) << " is not installed: no private PipeWire daemon can be started"; \
    daemon = std::make_unique<LVPipeWireDaemon>();                                                             \
    ASSERT_TRUE(daemon->error().isEmpty()) << qPrintable(daemon->error())
