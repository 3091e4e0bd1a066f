#pragma once
// Plays one movie file: GStreamer decodes on its own threads, each due picture goes to the GPU
// as it comes (YUV planes converted there) through a GL context shared with the render
// context, and the render loop takes the newest one without waiting. Sound plays through the
// chosen audio output device. Every call is made on the thread that owns the player (the
// render loop's); bus messages are read there too, on each query, so nothing calls back.
#include <QRectF>
#include <QString>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class LVCamConverter;
class LVCamPicture;
class LVGLContext;
struct LVTexture;
typedef struct _GstElement GstElement;
typedef struct _GstAppSink GstAppSink;

class LVMoviePlayer {
public:
    // Opens path and prerolls it paused at its start. A file that cannot be opened or decoded
    // gives a player without pictures, titled "Unknown title", and one log line.
    // audioDevice: an output device's name; empty for the system's default.
    explicit LVMoviePlayer(const QString& path, const QString& audioDevice = {});
    ~LVMoviePlayer();
    LVMoviePlayer(const LVMoviePlayer&) = delete;
    LVMoviePlayer& operator=(const LVMoviePlayer&) = delete;

    static constexpr const char* kUnknownTitle = "Unknown title";

    // The newest decoded picture, or none yet (bus messages are read by the other calls).
    std::shared_ptr<const LVCamPicture> lastImage() const;
    // Pictures are converted at no more than this size (the chain's); 0 keeps the movie's own.
    void setOutputSize(int width, int height);
    // How many pictures have reached the GPU (benchmarks).
    uint64_t picturesDecoded() const;
    // (0, 0, width, height) of the movie's pictures; empty before the first one.
    QRectF imageRect() const;

    // Playing means the rate is not 0: stopping sets rate 0, starting the stored rate.
    void setPlaying(bool playing);
    bool getPlaying();
    void setRate(float rate);
    float rate() const { return rate_; }
    void setVolume(float volume);
    void setMuted(bool muted);
    bool isMuted() const { return muted_; }
    void setAudioDevice(const QString& device);
    // Playback ends at this position (thousandths of the length).
    void stopAt(int32_t position);
    // Thousandths of the movie's length; seeks land on the exact frame.
    void setMoviePosition(int32_t position);
    int32_t getMoviePosition();
    int64_t moviePositionSeconds();
    int64_t movieEndSeconds();
    // Started, stored rate not 0, and the movie stopped by itself (its end or out point), or
    // it could not be played at all.
    bool isOver();
    QString getMovieTitle();
    // Whether the file could not be opened or decoded.
    bool hasFailed();
    // Waits (up to timeoutMs) until the movie is ready to play or has failed; tests and the
    // benchmark use it, never the render loop.
    bool waitUntilReady(int timeoutMs);
    // Waits (up to timeoutMs) until playback stops by itself or fails (tests).
    bool waitForEnd(int timeoutMs);
    const QString& path() const { return path_; }

private:
    struct Shared;
    void build(const QString& audioDevice);
    void teardown();
    // Reads the pipeline's pending bus messages.
    void poll();
    // Reads bus messages as they come until done() or the time is up.
    void waitFor(int timeoutMs, const std::function<bool()>& done);
    void handleMessage(struct _GstMessage* message);
    // Seeks to position (nanoseconds) with the stored rate and out point.
    void seekTo(int64_t positionNs);
    int64_t durationNs();
    int64_t positionNs();
    int64_t unitsToNs(int32_t units);
    static GstElement* makeAudioSink(const QString& device);

    QString path_;
    GstElement* pipeline_ = nullptr;
    std::shared_ptr<Shared> shared_;
    float rate_ = 1.0f;
    float volume_ = 1.0f;
    bool muted_ = false;
    bool playing_ = false;
    bool started_ = false;
    bool ended_ = false;
    bool failed_ = false;
    bool prerolled_ = false;
    bool seeking_ = false;
    bool startSeek_ = false; // the seek to the in point after opening
    int32_t outPoint_ = 1000;
    std::optional<int32_t> pendingPosition_;
    int64_t durationNs_ = -1;
    QString title_;
    QString audioDevice_;
};
