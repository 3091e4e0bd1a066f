#pragma once
// An animated image (GIF, animated PNG/WebP) that plays its frames by time.
#include <QImage>
#include <QString>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

class LVAnimatedImage {
public:
    // Decoded frames stop at this many bytes, so a huge animation cannot eat the memory.
    static constexpr qint64 kMaxDecodedBytes = qint64(256) << 20;

    // The animation in the file, or null when it is a still image or unreadable.
    static std::unique_ptr<LVAnimatedImage> animatedImageFromFile(const QString& path);

    // Moves to the frame showing at time seconds (looping); answers whether it changed.
    bool advance(double time);
    const QImage& currentImage() const { return frames_[current_].image; }
    int frameCount() const { return int(frames_.size()); }
    double duration() const { return duration_; }
    const QString& path() const { return path_; }

private:
    struct Frame {
        QImage image;
        double start = 0;  // seconds from the start of the loop
    };
    std::vector<Frame> frames_;
    size_t current_ = 0;
    double duration_ = 0;
    QString path_;
};

// An animation decoded on the shared thread pool, so the render loop never waits for it.
class LVAnimatedImageLoad {
public:
    static std::shared_ptr<LVAnimatedImageLoad> start(const QString& path);

    bool isFinished() const;
    void waitForFinished() const;
    // The animation once decoded, handed out once; null while decoding or for a still image.
    std::unique_ptr<LVAnimatedImage> take();

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable finishedChanged_;
    bool finished_ = false;
    std::unique_ptr<LVAnimatedImage> animation_;
};
