#pragma once
// One recording or stream: a GStreamer pipeline fed with the frame's shared pixels. The
// render thread only hands frames over (never waiting: a frame the encoder cannot take is
// counted as dropped); building, watching, reconnecting and finishing the pipeline happen
// on the encoder's own thread, encoding on GStreamer's.
#include "outputs/record/LVEncodePlan.h"
#include "render/LVOutputDriver.h"

#include <QString>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

typedef struct _GstAppSrc GstAppSrc;
typedef struct _GstClock GstClock;
typedef struct _GstElement GstElement;

enum class LVEncoderState { Stopped, Starting, Running, Reconnecting, Stopping, Failed };
// "stopped", "starting", "running", "reconnecting", "stopping", "failed".
QString LVEncoderStateName(LVEncoderState state);

struct LVEncoderStatus {
    LVEncoderState state = LVEncoderState::Stopped;
    // The last failure, with the key and passphrase hidden.
    QString problem;
    uint64_t framesSent = 0;
    uint64_t framesDropped = 0;
    // Compressed video bytes out of the encoder, and their rate over the last second.
    uint64_t bytesEncoded = 0;
    double bitrateKbps = 0;
    // Since the first pipeline started (a stream: its time live, reconnects included).
    double secondsActive = 0;
    int reconnects = 0;
    // Frames were waiting when the last one came: the encoder or the connection is behind.
    bool congested = false;
    // Seconds until the next attempt while reconnecting.
    double retryInSeconds = 0;
};

class LVEncoder {
public:
    struct Options {
        // A stream retries a lost connection after these delays, doubling; a file stops.
        double firstRetrySeconds = 1;
        double longestRetrySeconds = 30;
        // Frames waiting for the encoder before new ones are dropped.
        int queueFrames = 8;
        // How long a stop waits for the file's end to be written.
        double finishSeconds = 5;
    };
    // Called on the encoder's thread after each change of state.
    using Observer = std::function<void()>;

    LVEncoder(LVEncodeSettings settings, Options options, Observer observer = {});
    // Stops as stop() does and waits for the end (at most finishSeconds and a teardown).
    ~LVEncoder();
    LVEncoder(const LVEncoder&) = delete;
    LVEncoder& operator=(const LVEncoder&) = delete;

    // Checks the settings and, for a file, makes it (0600, never over an existing file or a
    // link), then starts the pipeline on the encoder's thread. False, with error, otherwise.
    bool start(QString* error);
    // Ends the recording or stream: the file gets its end, the connection is closed. Returns
    // at once; the state becomes Stopped when done.
    void stop();
    // Render thread: hands the frame over at frameTime (seconds of the frame clock).
    void pushFrame(const LVFramePixelsRef& pixels, double frameTime);

    LVEncoderStatus status() const;
    const LVEncodeSettings& settings() const { return settings_; }
    // Whether the encoder's thread has ended (stopped or failed).
    bool isFinished() const;
    // Waits for the thread's end, at most seconds; true when it ended.
    bool waitFinished(double seconds);

private:
    void run();
    // One pipeline's life; true when it ended because it was asked to stop.
    bool runPipeline(QString* problem);
    GstElement* buildPipeline(QString* problem);
    void publish(GstElement* pipeline);
    void retract();
    void setState(LVEncoderState state, const QString& problem = {});
    void updateRate();

    const LVEncodeSettings settings_;
    const Options options_;
    Observer observer_;
    QString description_;
    int fileDescriptor_ = -1;

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    bool stopRequested_ = false;
    bool finished_ = false;
    LVEncoderStatus status_;
    double firstStart_ = -1;
    double retryAt_ = 0;
    // Fed by the render thread while a pipeline runs.
    GstAppSrc* appsrc_ = nullptr;
    GstElement* pipeline_ = nullptr;
    GstClock* clock_ = nullptr;
    bool haveFirstFrame_ = false;
    double firstFrameTime_ = 0;
    double firstRunningTime_ = 0;
    double lastPts_ = -1;
    // Updated from GStreamer's streaming thread.
    std::shared_ptr<std::atomic<uint64_t>> encodedBytes_;
    uint64_t rateBytes_ = 0;
    double rateTime_ = 0;
    std::thread thread_;
};

// The encoder as an output of the frame: takes the shared pixels and the frame time.
class LVEncoderOutput : public LVOutputDriver {
public:
    LVEncoderOutput(std::string name, std::shared_ptr<LVEncoder> encoder)
        : name_(std::move(name)), encoder_(std::move(encoder))
    {
    }
    std::string outputName() const override { return name_; }
    void drawFrame(LVOutputFrame& frame) override { encoder_->pushFrame(frame.pixels(), frame.context().frameTime()); }

private:
    std::string name_;
    std::shared_ptr<LVEncoder> encoder_;
};
