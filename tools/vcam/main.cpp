// lumaveil-vcam: feeds Lumaveil's frames to a v4l2loopback camera device, or to standard output.
#include <QCommandLineParser>
#include <QGuiApplication>

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "core/LVDefaults.h"
#include "tools/vcam/LVVcamBridge.h"

namespace {

std::atomic<bool> gStop{false};

void onSignal(int)
{
    gStop.store(true);
}

// Collects what goes to standard error while starting up (Qt, opening the transport), so
// that the line stating the output comes first.
class StderrHold {
public:
    StderrHold()
    {
        std::fflush(stderr);
        saved_ = dup(STDERR_FILENO);
        held_ = memfd_create("lumaveil-vcam-log", 0);
        if (saved_ >= 0 && held_ >= 0)
            dup2(held_, STDERR_FILENO);
    }
    // Restores standard error, prints first, then what was held.
    void release(const QString& first)
    {
        std::fflush(stderr);
        if (saved_ >= 0) {
            dup2(saved_, STDERR_FILENO);
            ::close(saved_);
            saved_ = -1;
        }
        if (!first.isEmpty())
            std::fprintf(stderr, "%s\n", qPrintable(first));
        std::fflush(stderr);
        if (held_ >= 0) {
            lseek(held_, 0, SEEK_SET);
            char buf[4096];
            ssize_t n;
            while ((n = read(held_, buf, sizeof buf)) > 0)
                if (::write(STDERR_FILENO, buf, size_t(n)) < 0)
                    break;
            ::close(held_);
            held_ = -1;
        }
    }
    ~StderrHold() { release({}); }

private:
    int saved_ = -1;
    int held_ = -1;
};

bool parseSize(const QString& text, QSize* size)
{
    const QStringList parts = text.split(QLatin1Char('x'));
    bool okW = false, okH = false;
    if (parts.size() == 2)
        *size = QSize(parts[0].toInt(&okW), parts[1].toInt(&okH));
    return okW && okH && size->width() > 0 && size->height() > 0 && size->width() <= 8192 && size->height() <= 8192;
}

} // namespace

int main(int argc, char** argv)
{
    StderrHold hold;
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("lumaveil-vcam"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Feeds Lumaveil's output to a v4l2loopback camera device."));
    parser.addHelpOption();
    const QCommandLineOption toStdout(QStringLiteral("stdout"), QStringLiteral("Write raw frames to standard output."));
    const QCommandLineOption device(QStringLiteral("device"), QStringLiteral("The loopback device to feed."),
                                    QStringLiteral("/dev/videoN"));
    const QCommandLineOption format(QStringLiteral("format"), QStringLiteral("yuyv (default), i420, nv12 or bgra."),
                                    QStringLiteral("format"), QStringLiteral("yuyv"));
    const QCommandLineOption size(QStringLiteral("size"),
                                  QStringLiteral("Output size; default: the size Lumaveil renders at."),
                                  QStringLiteral("WxH"));
    const QCommandLineOption rate(QStringLiteral("rate"),
                                  QStringLiteral("Frames per second; default: Lumaveil's frame rate."),
                                  QStringLiteral("fps"));
    const QCommandLineOption frames(QStringLiteral("frames"), QStringLiteral("Stop after this many frames."),
                                    QStringLiteral("count"));
    parser.addOptions({toStdout, device, format, size, rate, frames});
    auto fail = [&hold](const QString& message) {
        hold.release(QStringLiteral("lumaveil-vcam: ") + message);
        return 1;
    };
    if (!parser.parse(QCoreApplication::arguments()))
        return fail(parser.errorText());
    if (parser.isSet(QStringLiteral("help"))) {
        hold.release({});
        parser.showHelp();
    }

    LVVcamOptions options;
    options.preferencesPath = LVDefaults::defaultPath();
    const std::optional<LVVcamFormat> fmt = LVVcamFormatFromName(parser.value(format));
    if (!fmt)
        return fail(QStringLiteral("unknown format \"%1\" (use yuyv, i420, nv12 or bgra)").arg(parser.value(format)));
    options.format = *fmt;
    if (parser.isSet(size) && !parseSize(parser.value(size), &options.size))
        return fail(QStringLiteral("bad size \"%1\" (use WxH, for example 1280x720)").arg(parser.value(size)));
    if (parser.isSet(rate)) {
        bool ok = false;
        options.rate = parser.value(rate).toInt(&ok);
        if (!ok || options.rate <= 0 || options.rate > 240)
            return fail(QStringLiteral("bad rate \"%1\" (1 to 240)").arg(parser.value(rate)));
    }
    if (parser.isSet(frames)) {
        bool ok = false;
        options.frames = parser.value(frames).toLong(&ok);
        if (!ok || options.frames <= 0)
            return fail(QStringLiteral("bad frame count \"%1\"").arg(parser.value(frames)));
    }
    if ((options.format == LVVcamFormat::I420 || options.format == LVVcamFormat::NV12) && options.size.isValid() &&
        (options.size.width() % 2 || options.size.height() % 2))
        return fail(QStringLiteral("%1 needs an even width and height").arg(parser.value(format)));

    std::unique_ptr<LVVideoOutput> output;
    if (parser.isSet(toStdout)) {
        output = std::make_unique<LVFdOutput>(STDOUT_FILENO, QStringLiteral("standard output"));
    } else {
        QString path = parser.value(device);
        if (path.isEmpty()) {
            const QString devDir = qEnvironmentVariable("LUMAVEIL_DEV_DIR", QStringLiteral("/dev"));
            path = LVV4L2Output::chooseDevice(LVV4L2Output::loopbackDevices(devDir));
            if (path.isEmpty())
                return fail(QStringLiteral("no v4l2loopback device found. %1").arg(LVLoopbackHelp()));
        }
        output = std::make_unique<LVV4L2Output>(path);
    }

    signal(SIGPIPE, SIG_IGN);
    signal(SIGINT, onSignal);
    signal(SIGTERM, onSignal);

    LVShmem shmem(LVShmemRole::Reader);
    LVVcamBridge bridge(shmem, *output, options);
    QString error;
    if (!bridge.open(&error))
        return fail(error);
    const LVVcamLayout& l = bridge.layout();
    hold.release(QStringLiteral("lumaveil-vcam: %1x%2 %3 %4 fps -> %5")
                     .arg(l.width)
                     .arg(l.height)
                     .arg(QLatin1String(LVVcamFfmpegPixelFormat(l.format)))
                     .arg(bridge.rate())
                     .arg(output->description()));
    bridge.run(gStop);
    return 0;
}
