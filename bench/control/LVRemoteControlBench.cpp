// Remote-control figures, each against a reference measured in the same run: the studio
// renders 1280x720 at 30 fps while 10 WebSocket clients (on their own thread) send 100
// requests a second in total. Prints one JSON object:
//   frame-start lateness p50/p99 and frame interval p99 with the clients, against the same
//   figures over an equal stretch without them;
//   request round trip p50/p99 as the clients measure it.
#include "bench/support/LVBenchFigures.h"
#include "bench/support/LVBenchStudio.h"
#include "control/websocket/LVRemoteControlService.h"
#include "tests/app/LVTestKinds.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QThread>
#include <QWebSocket>

#include <atomic>
#include <map>

namespace {

constexpr int kClients = 10;
constexpr int kRequestsPerSecond = 100;
const QString kPassword = QStringLiteral("bench password");

QByteArray sha256(const QByteArray& bytes)
{
    return QCryptographicHash::hash(bytes, QCryptographicHash::Sha256).toBase64();
}

// The clients' thread: identifies every client (then quits `identifying`), then sends
// requests round-robin at the total rate, timing each from send to answer.
class ClientThread : public QThread {
public:
    ClientThread(quint16 port, int seconds, QEventLoop& identifying) : port_(port), seconds_(seconds), identifying_(identifying) {}
    std::vector<double> roundTripsMs;
    std::atomic<int> identified{0};
    int failures = 0;

protected:
    void run() override
    {
        std::vector<std::unique_ptr<QWebSocket>> sockets;
        std::map<QString, qint64> sentAt;
        QElapsedTimer clock;
        clock.start();
        QEventLoop loop;
        const auto send = [](QWebSocket& socket, int op, const QJsonObject& d) {
            socket.sendTextMessage(QString::fromUtf8(QJsonDocument(QJsonObject{{"op", op}, {"d", d}}).toJson(QJsonDocument::Compact)));
        };
        for (int i = 0; i < kClients; ++i) {
            QWebSocket* socket = sockets.emplace_back(std::make_unique<QWebSocket>()).get();
            QObject::connect(socket, &QWebSocket::textMessageReceived, socket, [&, socket](const QString& text) {
                const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
                const QJsonObject d = message.value("d").toObject();
                const int op = message.value("op").toInt();
                if (op == 0) {
                    const QJsonObject auth = d.value("authentication").toObject();
                    const QByteArray secret = sha256(kPassword.toUtf8() + auth.value("salt").toString().toUtf8());
                    const QByteArray answer = sha256(secret + auth.value("challenge").toString().toUtf8());
                    send(*socket, 1, {{"rpcVersion", 1}, {"authentication", QString::fromLatin1(answer)}});
                } else if (op == 2 && ++identified == kClients) {
                    loop.quit();
                } else if (const auto sent = sentAt.find(d.value("requestId").toString()); op == 7 && sent != sentAt.end()) {
                    roundTripsMs.push_back(double(clock.nsecsElapsed() - sent->second) / 1e6);
                    if (!d.value("requestStatus").toObject().value("result").toBool()) ++failures;
                    sentAt.erase(sent);
                }
            });
            socket->open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port_)));
        }
        QTimer giveUp;
        giveUp.setSingleShot(true);
        QObject::connect(&giveUp, &QTimer::timeout, &loop, &QEventLoop::quit);
        giveUp.start(30000);
        loop.exec();
        giveUp.stop();
        QMetaObject::invokeMethod(&identifying_, &QEventLoop::quit, Qt::QueuedConnection);
        if (identified != kClients) return;

        int next = 0;
        QTimer sender;
        sender.setTimerType(Qt::PreciseTimer);
        QObject::connect(&sender, &QTimer::timeout, &loop, [&] {
            const QString id = QString::number(next);
            // Mostly reads, and every tenth a Preview change, so events go out to all clients too.
            QJsonObject request{{"requestType", next % 2 ? "GetCurrentProgramScene" : "GetSceneList"}, {"requestId", id}};
            if (next % 10 == 0) {
                request = {{"requestType", "SetCurrentPreviewScene"}, {"requestId", id},
                           {"requestData", QJsonObject{{"sceneName", (next / 10) % 2 ? "B" : "C"}}}};
            }
            sentAt[id] = clock.nsecsElapsed();
            send(*sockets[size_t(next++ % kClients)], 6, request);
        });
        sender.start(1000 / kRequestsPerSecond);
        QTimer::singleShot(seconds_ * 1000, &loop, &QEventLoop::quit);
        loop.exec();
        sender.stop();
        for (auto& socket : sockets) socket->close();
    }

private:
    quint16 port_;
    int seconds_;
    QEventLoop& identifying_;
};

struct Slice {
    std::vector<double> lateness;
    std::vector<double> intervals;
};

// Runs the render loop for seconds, collecting how late each frame started and the time
// between frames; work runs alongside on other threads.
Slice renderFor(Lumaveil& app, int seconds)
{
    Slice slice;
    const size_t first = app.frameStartLateness().size();
    QElapsedTimer clock;
    clock.start();
    qint64 last = -1;
    const auto connection = QObject::connect(&app, &Lumaveil::frameRendered, [&] {
        const qint64 now = clock.nsecsElapsed();
        if (last >= 0) slice.intervals.push_back(double(now - last) / 1e6);
        last = now;
    });
    lvServeFor(seconds);
    QObject::disconnect(connection);
    const auto& lateness = app.frameStartLateness();
    for (size_t i = first; i < lateness.size(); ++i) slice.lateness.push_back(std::abs(double(lateness[i])));
    return slice;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    qputenv("LUMAVEIL_SHM_PREFIX", QByteArray("lvbench.remote.") + QByteArray::number(getpid()) + '.');
    // Qt's and the controller's runtime files stay in a private folder, set before Qt looks.
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    QGuiApplication application(argc, argv);
    LVRegisterTestKinds();
    const int seconds = argc > 1 ? std::max(2, atoi(argv[1])) : 10;
    LVBenchStudio rig("bench_remote_control", lvBenchOptions(true));
    for (const char* name : {"A", "B", "C"}) rig.addSetup(name, {makeTestEffect("RedSource", rig.app->context())});
    rig.defaults->setValue("remoteControlPassword", kPassword);
    rig.studio->buttonHavingName("A")->punchToAir();

    LVRemoteControlService::Options serviceOptions;
    serviceOptions.forceEnabled = true;
    serviceOptions.port = 0;
    LVRemoteControlService service(*rig.app, rig.studio, serviceOptions);
    // Settle, then the reference stretch with no client at all.
    renderFor(*rig.app, 2);
    const Slice quiet = renderFor(*rig.app, seconds);
    QEventLoop identifying;
    ClientThread clients(service.server().port(), seconds, identifying);
    clients.start();
    identifying.exec();
    const Slice busy = renderFor(*rig.app, seconds);
    clients.wait();

    const double quietP99 = lvPercentile(quiet.lateness, 0.99);
    const double busyP99 = lvPercentile(busy.lateness, 0.99);
    lvPrintJson({
        {"figure", "frame timer and request round trip with 10 remote-control clients"},
        {"size", "1280x720"},
        {"frame_rate", 30},
        {"clients", kClients},
        {"requests_per_second", kRequestsPerSecond},
        {"seconds_each", seconds},
        {"requests_answered", qint64(clients.roundTripsMs.size())},
        {"requests_failed", clients.failures},
        {"late_p50_ms_without_clients", lvRound3(lvPercentile(quiet.lateness, 0.5))},
        {"late_p99_ms_without_clients", lvRound3(quietP99)},
        {"late_p50_ms_with_clients", lvRound3(lvPercentile(busy.lateness, 0.5))},
        {"late_p99_ms_with_clients", lvRound3(busyP99)},
        {"late_p99_ratio", lvRound3(quietP99 > 0 ? busyP99 / quietP99 : 0)},
        {"interval_p99_ms_without_clients", lvRound3(lvPercentile(quiet.intervals, 0.99))},
        {"interval_p99_ms_with_clients", lvRound3(lvPercentile(busy.intervals, 0.99))},
        {"fps_without_clients", lvRound3(double(quiet.intervals.size()) / seconds)},
        {"fps_with_clients", lvRound3(double(busy.intervals.size()) / seconds)},
        {"round_trip_p50_ms", lvRound3(lvPercentile(clients.roundTripsMs, 0.5))},
        {"round_trip_p99_ms", lvRound3(lvPercentile(clients.roundTripsMs, 0.99))},
    });
    return clients.identified == kClients ? 0 : 1;
}
