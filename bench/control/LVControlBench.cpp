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
#include "tests/app/LVTestKinds.h"
#include "tests/control/LVControlTestSupport.h"
#include "transport/LVShmem.h"

#include <QGuiApplication>

#include <cstring>
#include <string_view>
#include <sys/un.h>

namespace {

class LVSilentMIDIPort : public LVMIDIPort {
public:
    void start(Sink) override {}
    bool isAvailable() const override { return false; }
};

// One connection: 100 warm-up requests first, then the timed ones.
std::vector<double> roundTrips(const QString& path, const QByteArray& request, int count, qsizetype* replyBytes)
{
    LVTestControlClient client(path);
    std::vector<double> ms;
    for (int i = 0; i < 100 + count; ++i) {
        const auto start = LVBenchClock::now();
        *replyBytes = client.request(request).size();
        if (i >= 100) ms.push_back(lvMsSince(start));
    }
    return ms;
}

// The studio served on a control socket; each setup one test effect.
struct Rig : LVBenchStudio {
    std::unique_ptr<LVControlSurface> control;

    Rig(const std::vector<std::pair<QString, QString>>& namedKinds, bool timer, int frameRate)
        : LVBenchStudio("bench_control", lvBenchOptions(timer, frameRate))
    {
        for (const auto& [name, kind] : namedKinds) addSetup(name, {makeTestEffect(kind, app->context())});
        control = std::make_unique<LVControlSurface>(*app, studio, std::make_unique<LVSilentMIDIPort>(),
                                                     dir.filePath("run/control.sock"));
    }
    ~Rig() { control.reset(); }
};

void benchRoundTrip(int count)
{
    std::vector<std::pair<QString, QString>> kinds;
    for (int i = 0; i < 100; ++i) {
        kinds.emplace_back(QStringLiteral("Setup %1").arg(i, 3, 10, QLatin1Char('0')), i % 2 ? "Marker" : "RedSource");
    }
    Rig rig(kinds, false, 30);
    const QByteArray request = "{\"command\":\"get\",\"property\":\"studioButtons\"}";
    qsizetype replyBytes = 0;
    const std::vector<double> control =
        runWhileServing([&] { return roundTrips(rig.control->server().path(), request, count, &replyBytes); });
    // The main thread's share: parsing, reading the studio, writing the reply.
    std::vector<double> handling;
    for (int i = 0; i < count; ++i) {
        const auto start = LVBenchClock::now();
        rig.control->server().replyToLine(request);
        handling.push_back(lvMsSince(start));
    }
    // The reference: a blocking echo thread that answers each line with as many bytes.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, QFile::encodeName(rig.dir.filePath("echo.sock")).constData(), sizeof address.sun_path - 1);
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 || ::listen(listener, 4) != 0) {
        std::perror("echo listen");
        std::exit(1);
    }
    std::thread echoServer([&, answer = QByteArray(replyBytes, 'x') + '\n'] {
        const int fd = ::accept(listener, nullptr, nullptr);
        char chunk[65536];
        for (ssize_t n; (n = ::recv(fd, chunk, sizeof chunk, 0)) > 0;) {
            for (const char byte : std::string_view(chunk, size_t(n))) {
                if (byte == '\n') ::send(fd, answer.constData(), size_t(answer.size()), MSG_NOSIGNAL);
            }
        }
        ::close(fd);
    });
    qsizetype echoBytes = 0;
    const std::vector<double> echo = roundTrips(address.sun_path, request, count, &echoBytes);
    echoServer.join();
    ::close(listener);
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

void benchCutToFrame(int count, int frameRate)
{
    Rig rig({{"Red", "RedSource"}, {"Blue", "BlueSource"}}, true, frameRate);
    for (const auto& [name, color] : {std::pair{"Red", QColor(Qt::red)}, std::pair{"Blue", QColor(Qt::blue)}}) {
        for (const LVEffectRef& effect : rig.studio->buttonHavingName(name)->effects()) {
            if (auto* recording = dynamic_cast<LVRecordingEffect*>(effect.get())) {
                recording->paint = [color](LVContext& context) {
                    fillFrameRect(context, 0, 0, context.width(), context.height(), color);
                };
            }
        }
    }
    rig.studio->setSwapMode(true);
    rig.studio->buttonHavingName("Red")->punchToAir();
    rig.studio->buttonHavingName("Blue")->selectForAir();
    const double periodMs = 1000.0 / frameRate;
    std::vector<double> toReply, toFrame;
    const int oldFramesMax = runWhileServing([&] {
        LVShmem reader(LVShmemRole::Reader);
        uint64_t lastTimestamp = 0;
        std::unique_ptr<uint8_t[]> pixels;
        // The red byte of the first pixel (A,R,G,B) tells which setup is on air. Answers how
        // many frames still showed the old one.
        auto waitForRed = [&](bool red) {
            for (int stale = 0;;) {
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
        LVTestControlClient client(rig.control->server().path());
        int oldFrames = 0;
        for (int i = 0; i < count; ++i) {
            // Spread the requests over the frame's phase.
            std::this_thread::sleep_for(std::chrono::microseconds(int(periodMs * 1000 * ((i * 7) % 10) / 10.0)));
            const auto start = LVBenchClock::now();
            client.request("{\"command\":\"cut\"}");
            toReply.push_back(lvMsSince(start));
            oldFrames = std::max(oldFrames, waitForRed(i % 2 != 0));
            toFrame.push_back(lvMsSince(start));
        }
        return oldFrames;
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
        {"old_frames_max", oldFramesMax},
    });
}

} // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    // Every rig publishes under its own name, beside any Lumaveil the user runs.
    qputenv("LUMAVEIL_SHM_PREFIX", QByteArray("lvbench.control.") + QByteArray::number(::getpid()) + '.');
    // Qt's and the controller's runtime files stay in a private folder, set before Qt looks.
    QTemporaryDir runtime;
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    QGuiApplication application(argc, argv);
    LVRegisterTestKinds();
    const QStringList arguments = QCoreApplication::arguments().mid(1);
    if (arguments.isEmpty() || arguments.contains("roundtrip")) benchRoundTrip(2000);
    if (arguments.isEmpty() || arguments.contains("cut")) benchCutToFrame(40, 30);
    return 0;
}
