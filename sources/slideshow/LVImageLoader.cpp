#include "sources/slideshow/LVImageLoader.h"

#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"

#include <QBuffer>
#include <QImageReader>

QImage LVDecodeImageToFit(const QByteArray& bytes, QSize fit, QString* error)
{
    QBuffer buffer;
    buffer.setData(bytes);
    buffer.open(QIODevice::ReadOnly);
    QImageReader reader(&buffer);
    reader.setAutoTransform(true);
    const QSize size = reader.size();
    if (size.isValid() && fit.isValid() && (size.width() > fit.width() || size.height() > fit.height()))
        reader.setScaledSize(size.scaled(fit, Qt::KeepAspectRatio));
    QImage image = reader.read();
    if (image.isNull()) {
        *error = reader.errorString();
        return {};
    }
    // Decoders that cannot scale on load hand the whole picture back.
    if (fit.isValid() && (image.width() > fit.width() || image.height() > fit.height()))
        image = image.scaled(fit, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    return image;
}

LVImageLoader::LVImageLoader(QSize fit) : fit_(fit), thread_([this] { run(); }) {}

LVImageLoader::~LVImageLoader()
{
    {
        std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void LVImageLoader::request(const QString& path)
{
    {
        std::lock_guard lock(mutex_);
        if (done_.count(path) || busy_ == path || std::find(queue_.begin(), queue_.end(), path) != queue_.end()) return;
        queue_.push_back(path);
    }
    wake_.notify_one();
}

bool LVImageLoader::take(const QString& path, QImage* image)
{
    std::lock_guard lock(mutex_);
    const auto it = done_.find(path);
    if (it == done_.end()) return false;
    *image = it->second;
    return true;
}

void LVImageLoader::keepOnly(const QStringList& paths)
{
    std::lock_guard lock(mutex_);
    for (auto it = done_.begin(); it != done_.end();) it = paths.contains(it->first) ? std::next(it) : done_.erase(it);
    std::erase_if(queue_, [&](const QString& p) { return !paths.contains(p); });
}

void LVImageLoader::waitIdle()
{
    std::unique_lock lock(mutex_);
    idle_.wait(lock, [this] { return queue_.empty() && busy_.isEmpty(); });
}

void LVImageLoader::run()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return quit_ || !queue_.empty(); });
        if (quit_) return;
        busy_ = queue_.front();
        queue_.pop_front();
        const QString path = busy_;
        lock.unlock();
        QByteArray bytes;
        QString error;
        QImage image;
        if (LVReadRegularFile(path, kLVImageLimit, &bytes, &error)) image = LVDecodeImageToFit(bytes, fit_, &error);
        lock.lock();
        if (image.isNull() && reported_.insert(path).second)
            LVLog("Image %s cannot be shown: %s", qPrintable(path), qPrintable(error));
        done_[path] = image;
        busy_.clear();
        if (queue_.empty()) idle_.notify_all();
    }
}
