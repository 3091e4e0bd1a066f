#include "effects/composition/LVAnimatedImage.h"

#include "core/util/LVBoundedRead.h"

#include <QBuffer>
#include <QImageReader>
#include <QThreadPool>

#include <cmath>

std::unique_ptr<LVAnimatedImage> LVAnimatedImage::animatedImageFromFile(const QString& path)
{
    QByteArray bytes;
    if (!LVReadRegularFile(path, kLVImageLimit, &bytes, nullptr)) return nullptr;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    if (!reader.supportsAnimation() || reader.imageCount() == 1) return nullptr;
    auto animation = std::unique_ptr<LVAnimatedImage>(new LVAnimatedImage);
    animation->path_ = path;
    // Long animations are capped so a huge file cannot eat the memory.
    constexpr int kMaxFrames = 1000;
    qint64 decodedBytes = 0;
    while (int(animation->frames_.size()) < kMaxFrames) {
        QImage frame = reader.read();
        if (frame.isNull()) break;
        decodedBytes += frame.sizeInBytes();
        if (decodedBytes > kMaxDecodedBytes) break;
        // Browsers treat delays under 20 ms as 100 ms; so do we.
        int delay = reader.nextImageDelay();
        if (delay < 20) delay = 100;
        animation->frames_.push_back({frame, animation->duration_});
        animation->duration_ += delay / 1000.0;
    }
    if (animation->frames_.size() < 2) return nullptr;
    return animation;
}

bool LVAnimatedImage::advance(double time)
{
    double t = std::fmod(time, duration_);
    if (t < 0) t += duration_;
    size_t frame = 0;
    while (frame + 1 < frames_.size() && frames_[frame + 1].start <= t) ++frame;
    const bool changed = frame != current_;
    current_ = frame;
    return changed;
}

std::shared_ptr<LVAnimatedImageLoad> LVAnimatedImageLoad::start(const QString& path)
{
    auto load = std::make_shared<LVAnimatedImageLoad>();
    // The job holds the load, so a renderer that lets go early costs nothing but the decode.
    QThreadPool::globalInstance()->start([load, path] {
        std::unique_ptr<LVAnimatedImage> animation = LVAnimatedImage::animatedImageFromFile(path);
        const std::lock_guard lock(load->mutex_);
        load->animation_ = std::move(animation);
        load->finished_ = true;
        load->finishedChanged_.notify_all();
    });
    return load;
}

bool LVAnimatedImageLoad::isFinished() const
{
    const std::lock_guard lock(mutex_);
    return finished_;
}

void LVAnimatedImageLoad::waitForFinished() const
{
    std::unique_lock lock(mutex_);
    finishedChanged_.wait(lock, [this] { return finished_; });
}

std::unique_ptr<LVAnimatedImage> LVAnimatedImageLoad::take()
{
    const std::lock_guard lock(mutex_);
    return std::move(animation_);
}
