#include "control/websocket/LVRemoteThumbnails.h"

#include "transport/LVShmem.h"

#include <QBuffer>
#include <QImageWriter>

#include <chrono>

namespace {

int64_t steadyMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

} // namespace

LVRemoteThumbnails::LVRemoteThumbnails() : thread_([this] { run(); }) {}

LVRemoteThumbnails::~LVRemoteThumbnails()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

std::shared_ptr<const LVRemoteThumbnails::Picture> LVRemoteThumbnails::latest()
{
    std::lock_guard lock(mutex_);
    const bool wasIdle = !asked(steadyMs());
    lastAskMs_ = steadyMs();
    if (wasIdle) wake_.notify_all();
    return latest_;
}

void LVRemoteThumbnails::run()
{
    LVShmem reader(LVShmemRole::Reader);
    std::unique_ptr<uint8_t[]> data;
    uint64_t length = 0;
    uint64_t last = 0;
    std::unique_lock lock(mutex_);
    while (!stopping_) {
        if (!asked(steadyMs())) {
            wake_.wait(lock, [this] { return stopping_ || asked(steadyMs()); });
            continue;
        }
        lock.unlock();
        const LVShmemReadResult read = reader.getData(data, length, last);
        std::shared_ptr<const Picture> picture;
        if (read.status == 0 && read.width > 0 && read.height > 0) {
            last = read.timestamp;
            picture = std::make_shared<const Picture>(pictureOf(fromTransport(data.get(), read.width, read.height)));
        }
        lock.lock();
        if (picture) latest_ = std::move(picture);
        // Paced, not polled for: a few pictures a second are all a remote panel shows.
        wake_.wait_for(lock, std::chrono::milliseconds(intervalMs), [this] { return stopping_; });
    }
}

QImage LVRemoteThumbnails::fromTransport(const uint8_t* argb, int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    for (int y = 0; y < height; ++y) {
        const uint8_t* in = argb + size_t(y) * size_t(width) * 4;
        auto* out = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x, in += 4) out[x] = qRgb(in[1], in[2], in[3]);
    }
    return image;
}

QByteArray LVRemoteThumbnails::encode(const QImage& image, const char* format, int quality)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format);
    if (quality >= 0) writer.setQuality(quality);
    if (!writer.write(image)) return {};
    return bytes;
}

LVRemoteThumbnails::Picture LVRemoteThumbnails::pictureOf(const QImage& frame)
{
    Picture picture;
    const QImage scaled = frame.width() > maxSide || frame.height() > maxSide
                              ? frame.scaled(maxSide, maxSide, Qt::KeepAspectRatio, Qt::SmoothTransformation)
                              : frame;
    picture.image = scaled.convertToFormat(QImage::Format_RGB888);
    picture.jpeg = encode(picture.image, "jpeg", jpegQuality);
    return picture;
}
