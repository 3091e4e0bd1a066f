// Remote-control figures, each against a reference measured in the same run: the studio
// renders 1280x720 at 30 fps while 10 WebSocket clients (on their own thread) send 100
// requests a second in total. Prints one JSON object:
//   frame-start lateness p50/p99 and frame interval p99 with the clients, against the same
//   figures over an equal stretch without them;
//   request round trip p50/p99 as the clients measure it.
#include "bench/support/LVBenchFigures.h"
#include "bench/support/LVBenchStudio.h"
#include "control/websocket/LVRemoteControlService.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>
#include <QWebSocket>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <memory>
#include <vector>

namespace {

constexpr int kClients = 10;
constexpr int kRequestsPerSecond = 100;
const QString kPassword = QStringLiteral("bench password");

// The clients' thread: identifies every client, then sends requests round-robin at the
// total rate, timing each from send to answer.
class ClientThread : public QThread {
public:
    ClientThread(quint16 port, int seconds) : port_(port), seconds_(seconds) {}
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
        for (int i = 0; i < kClients; ++i) {
            auto socket = std::make_unique<QWebSocket>();
            QWebSocket* raw = socket.get();
            QObject::connect(raw, &QWebSocket::textMessageReceived, raw, [&, raw](const QString& text) {
                const QJsonObject message = QJsonDocument::fromJson(text.toUtf8()).object();
                const QJsonObject d = message.value("d").toObject();
                switch (message.value("op").toInt()) {
                case 0: {
                    const QJsonObject auth = d.value("authentication").toObject();
                    auto hash = [](const QByteArray& b) { return QCryptographicHash::hash(b, QCryptographicHash::Sha256).toBase64(); };
                    const QByteArray secret = hash(kPassword.toUtf8() + auth.value("salt").toString().toUtf8());
                    const QByteArray answer = hash(secret + auth.value("challenge").toString().toUtf8());
                    raw->sendTextMessage(QString::fromUtf8(QJsonDocument(QJsonObject{
                        {"op", 1}, {"d", QJsonObject{{"rpcVersion", 1}, {"authentication", QString::fromLatin1(answer)}}}})
                                                              .toJson(QJsonDocument::Compact)));
                    break;
                }
                case 2:
                    ++identified;
                    break;
                case 7: {
                    const auto sent = sentAt.find(d.value("requestId").toString());
                    if (sent == sentAt.end()) break;
                    roundTripsMs.push_back(double(clock.nsecsElapsed() - sent->second) / 1e6);
                    if (!d.value("requestStatus").toObject().value("result").toBool()) ++failures;
                    sentAt.erase(sent);
                    break;
                }
                default:
                    break;
                }
            });
            raw->open(QUrl(QStringLiteral("ws://127.0.0.1:%1").arg(port_)));
            sockets.push_back(std::move(socket));
        }
        QTimer waitForAll;
        QObject::connect(&waitForAll, &QTimer::timeout, &loop, [&] {
            if (identified == kClients) loop.quit();
        });
        waitForAll.start(5);
        QTimer::singleShot(30000, &loop, &QEventLoop::quit);
        loop.exec();
        waitForAll.stop();

        int next = 0;
        QTimer sender;
        sender.setTimerType(Qt::PreciseTimer);
        QObject::connect(&sender, &QTimer::timeout, &loop, [&] {
            QWebSocket& socket = *sockets[size_t(next % kClients)];
            const QString id = QString::number(next);
            // Mostly reads, and every tenth a Preview change, so events go out to all clients too.
            QJsonObject request{{"requestType", next % 2 ? "GetCurrentProgramScene" : "GetSceneList"}, {"requestId", id}};
            if (next % 10 == 0) {
                request = {{"requestType", "SetCurrentPreviewScene"}, {"requestId", id},
                           {"requestData", QJsonObject{{"sceneName", (next / 10) % 2 ? "B" : "C"}}}};
            }
            sentAt[id] = clock.nsecsElapsed();
            socket.sendTextMessage(QString::fromUtf8(QJsonDocument(QJsonObject{{"op", 6}, {"d", request}}).toJson(QJsonDocument::Compact)));
            ++next;
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
    QEventLoop loop;
    QTimer::singleShot(seconds * 1000, &loop, &QEventLoop::quit);
    loop.exec();
    QObject::disconnect(connection);
    const auto& lateness = app.frameStartLateness();
    for (size_t i = first; i < lateness.size(); ++i) slice.lateness.push_back(std::abs(double(lateness[i])));
    return slice;
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    // Everything this run writes stays in one private folder, set before Qt looks.
    QTemporaryDir dir;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(dir.path()));
    QGuiApplication application(argc, argv);
    LVRegisterTestKinds();
    const int seconds = argc > 1 ? std::max(2, atoi(argv[1])) : 10;

    qputenv("LUMAVEIL_SHM_PREFIX", QByteArray("lvbench.remote.") + QByteArray::number(QCoreApplication::applicationPid()) + '.');
    LVLaunchOptions options;
    options.videoSize = QSize(1280, 720);
    options.frameRate = 30;
    LVBenchStudio rig("bench_remote_control", {{"A", "RedSource"}, {"B", "RedSource"}, {"C", "RedSource"}}, options);
    rig.defaults->setValue("remoteControlPassword", kPassword);
    Lumaveil* app = rig.app.get();
    LVStudio* studio = rig.studio;
    studio->buttonHavingName("A")->punchToAir();

    int result = 0;
    {
        LVRemoteControlService::Options serviceOptions;
        serviceOptions.forceEnabled = true;
        serviceOptions.port = 0;
        LVRemoteControlService service(*app, studio, serviceOptions);
        // Settle, then the reference stretch with no client at all.
        renderFor(*app, 2);
        const Slice quiet = renderFor(*app, seconds);

        ClientThread clients(service.server().port(), seconds);
        clients.start();
        QEventLoop identifying;
        QTimer poll;
        QObject::connect(&poll, &QTimer::timeout, &identifying, [&] {
            if (clients.identified == kClients || clients.isFinished()) identifying.quit();
        });
        poll.start(5);
        identifying.exec();
        poll.stop();
        const Slice busy = renderFor(*app, seconds);
        QEventLoop finishing;
        QObject::connect(&clients, &QThread::finished, &finishing, &QEventLoop::quit);
        if (!clients.isFinished()) finishing.exec();

        const double quietP99 = lvPercentile(quiet.lateness, 0.99);
        const double busyP99 = lvPercentile(busy.lateness, 0.99);
        const QJsonObject figures{
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
            {"fps_without_clients", lvRound3(quiet.intervals.empty() ? 0 : 1000.0 * double(quiet.intervals.size()) / (double(seconds) * 1000.0))},
            {"fps_with_clients", lvRound3(busy.intervals.empty() ? 0 : 1000.0 * double(busy.intervals.size()) / (double(seconds) * 1000.0))},
            {"round_trip_p50_ms", lvRound3(lvPercentile(clients.roundTripsMs, 0.5))},
            {"round_trip_p99_ms", lvRound3(lvPercentile(clients.roundTripsMs, 0.99))},
        };
        lvPrintJson(figures);
        if (clients.identified != kClients) result = 1;
    }
    return result;
}
