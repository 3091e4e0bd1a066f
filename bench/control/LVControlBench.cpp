// Control-interface figures, each against a reference measured in the same run:
//   roundtrip: "get studioButtons" with 100 buttons over the control socket, against a plain
//              Unix-socket echo that answers with a line of the same size;
//   cut:       from sending "cut" to the first published frame that shows the new Program,
//              against the frame period.
// Prints one JSON object per figure.
#include "bench/support/LVBenchFigures.h"
#include "bench/support/LVBenchStudio.h"
#include "control/midi/LVMIDIPort.h"
#include "control/surface/LVControlSurface.h"
#include "transport/LVShmem.h"

#include <QEventLoop>
#include <QFile>
#include <QGuiApplication>
#include <QJsonObject>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

class LVSilentMIDIPort : public LVMIDIPort {
public:
    void start(Sink) override {}
    bool isAvailable() const override { return false; }
};

double msSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

int connectUnix(const QString& path)
{
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path - 1);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        std::perror("connect");
        std::exit(1);
    }
    return fd;
}

// Reads up to a newline; the bytes after it stay in buffer.
QByteArray readLine(int fd, QByteArray& buffer)
{
    char chunk[65536];
    while (!buffer.contains('\n')) {
        const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
        if (n <= 0) return {};
        buffer.append(chunk, n);
    }
    const qsizetype end = buffer.indexOf('\n');
    QByteArray line = buffer.left(end);
    buffer.remove(0, end + 1);
    return line;
}

// One connection: warm-up requests first, then the timed ones.
std::vector<double> roundTrips(const QString& path, const QByteArray& request, int warmUp, int count,
                               qsizetype* replyBytes)
{
    const int fd = connectUnix(path);
    QByteArray buffer;
    std::vector<double> ms;
    for (int i = 0; i < warmUp + count; ++i) {
        const auto start = Clock::now();
        ::send(fd, request.constData(), size_t(request.size()), MSG_NOSIGNAL);
        const QByteArray reply = readLine(fd, buffer);
        if (i >= warmUp) ms.push_back(msSince(start));
        *replyBytes = reply.size();
    }
    ::close(fd);
    return ms;
}

// The reference: a blocking echo thread that answers each line with `answer`.
class PlainEchoServer {
public:
    PlainEchoServer(const QString& path, QByteArray answer) : answer_(std::move(answer))
    {
        listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, QFile::encodeName(path).constData(), sizeof address.sun_path - 1);
        if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(listener_, 4) != 0) {
            std::perror("echo listen");
            std::exit(1);
        }
        thread_ = std::thread([this] {
            const int fd = ::accept(listener_, nullptr, nullptr);
            QByteArray buffer;
            while (!readLine(fd, buffer).isNull()) ::send(fd, answer_.constData(), size_t(answer_.size()), MSG_NOSIGNAL);
            ::close(fd);
        });
    }
    ~PlainEchoServer()
    {
        thread_.join();
        ::close(listener_);
    }

private:
    QByteArray answer_;
    int listener_ = -1;
    std::thread thread_;
};

template <class Work>
void runWhileServing(Work work)
{
    QEventLoop loop;
    std::thread client([&] {
        work();
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    loop.exec();
    client.join();
}

// The studio served on a control socket.
struct Rig : LVBenchStudio {
    std::unique_ptr<LVControlSurface> control;

    Rig(const std::vector<std::pair<QString, QString>>& namedKinds, bool timer, int frameRate)
        : LVBenchStudio("bench_control", namedKinds, launchOptions(timer, frameRate), true)
    {
        control = std::make_unique<LVControlSurface>(*app, studio, std::make_unique<LVSilentMIDIPort>(),
                                                     dir.filePath("run/control.sock"));
    }
    ~Rig() { control.reset(); }

    static LVLaunchOptions launchOptions(bool timer, int frameRate)
    {
        LVLaunchOptions options;
        options.videoSize = QSize(1280, 720);
        options.frameRate = frameRate;
        options.startTimer = timer;
        return options;
    }
};

void benchRoundTrip(int count)
{
    std::vector<std::pair<QString, QString>> kinds;
    for (int i = 0; i < 100; ++i) {
        kinds.emplace_back(QStringLiteral("Setup %1").arg(i, 3, 10, QLatin1Char('0')),
                           i % 2 ? QStringLiteral("Marker") : QStringLiteral("RedSource"));
    }
    Rig rig(kinds, false, 30);
    const QByteArray request = "{\"command\":\"get\",\"property\":\"studioButtons\"}\n";
    qsizetype replyBytes = 0;
    std::vector<double> control;
    runWhileServing([&] {
        control = roundTrips(rig.control->server().path(), request, 100, count, &replyBytes);
    });
    // The main thread's share: parsing, reading the studio, writing the reply.
    std::vector<double> handling;
    const QByteArray line = request.trimmed();
    for (int i = 0; i < count; ++i) {
        const auto start = Clock::now();
        const QByteArray reply = rig.control->server().replyToLine(line);
        handling.push_back(msSince(start));
    }
    std::vector<double> echo;
    {
        const QString echoPath = rig.dir.filePath("echo.sock");
        PlainEchoServer server(echoPath, QByteArray(replyBytes, 'x') + '\n');
        qsizetype echoBytes = 0;
        echo = roundTrips(echoPath, request, 100, count, &echoBytes);
    }
    const double p99 = lvPercentile(control, 0.99);
    const double echoP99 = lvPercentile(echo, 0.99);
    lvPrintJson(QJsonObject{
        {"figure", "get studioButtons round trip"},
        {"buttons", int(rig.studio->studioButtons().size())},
        {"reply_bytes", replyBytes},
        {"requests", count},
        {"p50_ms", lvRound3(lvPercentile(control, 0.5))},
        {"p99_ms", lvRound3(p99)},
        {"echo_p50_ms", lvRound3(lvPercentile(echo, 0.5))},
        {"echo_p99_ms", lvRound3(echoP99)},
        {"p99_ratio_to_echo", lvRound3(echoP99 > 0 ? p99 / echoP99 : 0)},
        {"handling_p50_ms", lvRound3(lvPercentile(handling, 0.5))},
    });
}

void paintButton(LVStudio& studio, const char* name, QColor color)
{
    for (const LVEffectRef& effect : studio.buttonHavingName(QString::fromLatin1(name))->effects()) {
        if (auto* recording = dynamic_cast<LVRecordingEffect*>(effect.get())) {
            recording->paint = [color](LVContext& context) {
                fillFrameRect(context, 0, 0, context.width(), context.height(), color);
            };
        }
    }
}

void benchCutToFrame(int count, int frameRate)
{
    Rig rig({{"Red", "RedSource"}, {"Blue", "BlueSource"}}, true, frameRate);
    paintButton(*rig.studio, "Red", Qt::red);
    paintButton(*rig.studio, "Blue", Qt::blue);
    rig.studio->setSwapMode(true);
    rig.studio->buttonHavingName("Red")->punchToAir();
    rig.studio->buttonHavingName("Blue")->selectForAir();
    const double periodMs = 1000.0 / frameRate;
    std::vector<double> toReply;
    std::vector<double> toFrame;
    std::vector<int> staleFrames;
    runWhileServing([&] {
        LVShmem reader(LVShmemRole::Reader);
        uint64_t lastTimestamp = 0;
        std::unique_ptr<uint8_t[]> pixels;
        // The red byte of the first pixel (A,R,G,B) tells which setup is on air. Answers how
        // many frames still showed the old one.
        auto waitForRed = [&](bool red) {
            for (int stale = 0;; ) {
                uint64_t length = 0;
                const LVShmemReadResult result = reader.getData(pixels, length, lastTimestamp);
                if (result.status == 0) {
                    lastTimestamp = result.timestamp;
                    if ((pixels[1] > 128) == red) return stale;
                    ++stale;
                }
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        };
        waitForRed(true);
        const int fd = connectUnix(rig.control->server().path());
        QByteArray buffer;
        bool red = true;
        for (int i = 0; i < count; ++i) {
            // Spread the requests over the frame's phase.
            std::this_thread::sleep_for(std::chrono::microseconds(int(periodMs * 1000 * ((i * 7) % 10) / 10.0)));
            const auto start = Clock::now();
            ::send(fd, "{\"command\":\"cut\"}\n", 18, MSG_NOSIGNAL);
            readLine(fd, buffer);
            toReply.push_back(msSince(start));
            red = !red;
            staleFrames.push_back(waitForRed(red));
            toFrame.push_back(msSince(start));
        }
        ::close(fd);
    });
    lvPrintJson(QJsonObject{
        {"figure", "cut request to first changed frame in shared memory"},
        {"size", "1280x720"},
        {"frame_rate", frameRate},
        {"frame_period_ms", lvRound3(periodMs)},
        {"cuts", count},
        {"reply_p50_ms", lvRound3(lvPercentile(toReply, 0.5))},
        {"p50_ms", lvRound3(lvPercentile(toFrame, 0.5))},
        {"p99_ms", lvRound3(lvPercentile(toFrame, 0.99))},
        {"max_ms", lvRound3(lvPercentile(toFrame, 1.0))},
        {"max_in_frame_periods", lvRound3(lvPercentile(toFrame, 1.0) / periodMs)},
        {"measured_fps", lvRound3(rig.app->measuredFps())},
        // Frames published after the request was sent that still showed the old Program.
        {"old_frames_max", *std::max_element(staleFrames.begin(), staleFrames.end())},
    });
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    // Every rig publishes under its own name, beside any Lumaveil the user runs.
    qputenv("LUMAVEIL_SHM_PREFIX", QByteArray("lvbench.control.") + QByteArray::number(::getpid()) + '.');
    QGuiApplication application(argc, argv);
    LVRegisterTestKinds();
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    const bool all = arguments.isEmpty();
    if (all || arguments.contains("roundtrip")) benchRoundTrip(2000);
    if (all || arguments.contains("cut")) benchCutToFrame(40, 30);
    return 0;
}
