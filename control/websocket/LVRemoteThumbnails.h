#pragma once
// Program pictures for remote clients: small JPEGs made on a thread of their own from the frame
// already read back and published to shared memory (never a read-back of their own, nothing
// on the render thread), a few per second and only while a client keeps asking.
#include <QByteArray>
#include <QImage>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>

class LVRemoteThumbnails {
public:
    struct Picture {
        QImage image; // at most maxSide wide and high, RGB
        QByteArray jpeg;
    };
    static constexpr int maxSide = 640;
    static constexpr int jpegQuality = 75;
    static constexpr int64_t intervalMs = 200;
    // Pictures stop being made this long after the last ask.
    static constexpr int64_t idleAfterMs = 3000;

    LVRemoteThumbnails();
    // Ends the thread, waiting for the picture being made.
    ~LVRemoteThumbnails();

    // The newest picture, or null before the first; asking keeps pictures coming.
    std::shared_ptr<const Picture> latest();

    // A published frame (A,R,G,B bytes, top row first) as an image.
    static QImage fromTransport(const uint8_t* argb, int width, int height);
    // A frame's picture, scaled to fit maxSide and encoded.
    static Picture pictureOf(const QImage& frame);
    // JPEG (quality -1 for the default) or PNG bytes of an image.
    static QByteArray encode(const QImage& image, const char* format, int quality);

private:
    void run();
    bool asked(int64_t now) const { return now - lastAskMs_ <= idleAfterMs; }

    std::mutex mutex_;
    std::condition_variable wake_;
    bool stopping_ = false;
    int64_t lastAskMs_ = -idleAfterMs - 1;
    std::shared_ptr<const Picture> latest_;
    std::thread thread_;
};
