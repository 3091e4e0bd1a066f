#pragma once
// An animated image (GIF, animated PNG/WebP) that plays its frames by time.
#include <QImage>
#include <QString>

#include <memory>
#include <vector>

class LVAnimatedImage {
public:
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
