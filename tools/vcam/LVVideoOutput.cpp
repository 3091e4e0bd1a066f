#include "tools/vcam/LVVideoOutput.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <string.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <QDir>
#include <QRegularExpression>

#include <algorithm>

#include "core/util/LVLog.h"

const char* const kLVModprobeHint = "sudo modprobe v4l2loopback exclusive_caps=1 card_label=Lumaveil";

QString LVLoopbackHelp()
{
    return QStringLiteral("Install the v4l2loopback-dkms package and create one with:\n  %1\n"
                          "or write raw frames to standard output with --stdout.")
        .arg(QLatin1String(kLVModprobeHint));
}

bool LVFdOutput::open(LVVcamLayout&, int, QString*)
{
    return true;
}

bool LVFdOutput::writeFrame(const uint8_t* data, size_t bytes)
{
    while (bytes > 0) {
        const ssize_t n = ::write(fd_, data, bytes);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            if (errno != EPIPE)
                LVLogSystemError("write");
            return false;
        }
        data += n;
        bytes -= size_t(n);
    }
    return true;
}

namespace {

int xioctl(int fd, unsigned long request, void* arg)
{
    int r;
    do {
        r = ioctl(fd, request, arg);
    } while (r < 0 && errno == EINTR);
    return r;
}

QString sysError(const char* call)
{
    return QStringLiteral("%1: %2").arg(QLatin1String(call), QString::fromLocal8Bit(strerror(errno)));
}

} // namespace

std::vector<LVV4L2Device> LVV4L2Output::loopbackDevices(const QString& devDir)
{
    std::vector<std::pair<int, LVV4L2Device>> found;
    static const QRegularExpression videoN(QStringLiteral("^video(\\d+)$"));
    const QStringList names = QDir(devDir).entryList(QDir::System | QDir::Files);
    for (const QString& name : names) {
        const QRegularExpressionMatch m = videoN.match(name);
        if (!m.hasMatch())
            continue;
        const QString path = devDir + QLatin1Char('/') + name;
        const int fd = ::open(path.toLocal8Bit().constData(), O_RDWR | O_NONBLOCK);
        if (fd < 0)
            continue;
        v4l2_capability cap{};
        const bool ok = xioctl(fd, VIDIOC_QUERYCAP, &cap) == 0;
        ::close(fd);
        if (!ok || strncmp(reinterpret_cast<const char*>(cap.driver), "v4l2 loopback", sizeof cap.driver) != 0)
            continue;
        const uint32_t caps = (cap.capabilities & V4L2_CAP_DEVICE_CAPS) ? cap.device_caps : cap.capabilities;
        if (!(caps & V4L2_CAP_VIDEO_OUTPUT))
            continue;
        found.push_back({m.captured(1).toInt(), {path, QString::fromUtf8(reinterpret_cast<const char*>(cap.card))}});
    }
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<LVV4L2Device> devices;
    for (auto& f : found)
        devices.push_back(std::move(f.second));
    return devices;
}

QString LVV4L2Output::chooseDevice(const std::vector<LVV4L2Device>& devices)
{
    for (const LVV4L2Device& d : devices)
        if (d.card == QLatin1String("Lumaveil"))
            return d.path;
    return devices.empty() ? QString() : devices.front().path;
}

LVV4L2Output::~LVV4L2Output()
{
    if (fd_ >= 0)
        ::close(fd_);
}

bool LVV4L2Output::open(LVVcamLayout& layout, int rate, QString* error)
{
    fd_ = ::open(path_.toLocal8Bit().constData(), O_RDWR | O_CLOEXEC);
    if (fd_ < 0) {
        *error = sysError("open") + QStringLiteral(" (%1)").arg(path_);
        return false;
    }
    v4l2_capability cap{};
    const bool isVideo = xioctl(fd_, VIDIOC_QUERYCAP, &cap) == 0;
    const uint32_t caps = (cap.capabilities & V4L2_CAP_DEVICE_CAPS) ? cap.device_caps : cap.capabilities;
    if (!isVideo || !(caps & V4L2_CAP_VIDEO_OUTPUT)) {
        *error = QStringLiteral("%1 is not a v4l2loopback camera device. %2").arg(path_, LVLoopbackHelp());
        return false;
    }
    return setFormat(layout, rate, error);
}

bool LVV4L2Output::reconfigure(LVVcamLayout& layout, int rate)
{
    LVVcamLayout wanted = layout;
    QString error;
    if (fd_ < 0 || !setFormat(wanted, rate, &error)) return false;
    layout = wanted;
    return true;
}

bool LVV4L2Output::setFormat(LVVcamLayout& layout, int rate, QString* error)
{
    v4l2_format fmt{};
    fmt.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    fmt.fmt.pix.width = uint32_t(layout.width);
    fmt.fmt.pix.height = uint32_t(layout.height);
    fmt.fmt.pix.pixelformat = LVVcamFourcc(layout.format);
    fmt.fmt.pix.field = V4L2_FIELD_NONE;
    fmt.fmt.pix.bytesperline = uint32_t(layout.bytesPerLine);
    fmt.fmt.pix.sizeimage = uint32_t(layout.frameBytes);
    fmt.fmt.pix.colorspace = layout.format == LVVcamFormat::BGRA ? V4L2_COLORSPACE_SRGB : V4L2_COLORSPACE_SMPTE170M;
    if (xioctl(fd_, VIDIOC_S_FMT, &fmt) < 0) {
        *error = sysError("VIDIOC_S_FMT") + QStringLiteral(" (%1)").arg(path_);
        return false;
    }
    // The driver's answer is what consumers see: follow it.
    const std::optional<LVVcamFormat> answered = LVVcamFormatFromFourcc(fmt.fmt.pix.pixelformat);
    if (!answered) {
        *error = QStringLiteral("VIDIOC_S_FMT: the device answered an unsupported pixel format");
        return false;
    }
    layout.format = *answered;
    layout.width = int(fmt.fmt.pix.width);
    layout.height = int(fmt.fmt.pix.height);
    layout.bytesPerLine = fmt.fmt.pix.bytesperline ? int(fmt.fmt.pix.bytesperline)
                                                   : LVVcamLayout::packed(layout.format, layout.width, layout.height).bytesPerLine;
    layout.computeFrameBytes();
    layout.frameBytes = std::max(layout.frameBytes, size_t(fmt.fmt.pix.sizeimage));

    v4l2_streamparm parm{};
    parm.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    parm.parm.output.timeperframe.numerator = 1;
    parm.parm.output.timeperframe.denominator = uint32_t(rate);
    if (xioctl(fd_, VIDIOC_S_PARM, &parm) < 0)
        LVLogSystemError("VIDIOC_S_PARM");
    return true;
}

bool LVV4L2Output::writeFrame(const uint8_t* data, size_t bytes)
{
    const ssize_t n = ::write(fd_, data, bytes);
    if (n < 0) {
        LVLogSystemError("write");
        return false;
    }
    return true;
}
