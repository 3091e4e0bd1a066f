#pragma once
// Reads the frame transport as a camera driver would and keeps a video output fed at a steady
// rate: new frames as they come, the last frame again while none come, and a "no signal" card
// once none have come for a while.
#include <QSize>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "transport/LVShmem.h"
#include "tools/vcam/LVFrameConverter.h"
#include "tools/vcam/LVVideoOutput.h"

struct LVVcamOptions {
    LVVcamFormat format = LVVcamFormat::YUYV;
    QSize size;           // invalid: the producer's frames, else the stored video size, else 320x240
    int rate = 0;         // 0: the producer's frame rate, else the stored one, else 15
    QString preferencesPath; // Lumaveil's preferences, for the size it renders at next
    long frames = 0;      // stop after this many frames written; 0: run until stopped
    double noSignalAfter = 3.0; // seconds without a new frame before the card
};

class LVVcamBridge {
public:
    using Clock = std::chrono::steady_clock;

    LVVcamBridge(LVShmem& shmem, LVVideoOutput& output, LVVcamOptions options);
    // Settles size and rate (asking the transport when the options leave them open) and
    // opens the output; false with the reason in error.
    bool open(QString* error);
    const LVVcamLayout& layout() const { return layout_; }
    int rate() const { return rate_; }

    // One turn: takes a new frame if there is one and writes what is due at now.
    // False when the output has gone away or the frame count is reached.
    bool step(Clock::time_point now);
    // Turns until stop is set or step answers false.
    void run(const std::atomic<bool>& stop);

    long framesWritten() const { return framesWritten_; }
    bool showingNoSignal() const { return showingCard_; }

    // The card as a transport frame (A,R,G,B bytes) of the given size.
    static std::vector<uint8_t> noSignalCard(int width, int height);

    struct StoredVideo {
        QSize size;
        int rate = 0;
    };
    // The video size and frame rate in Lumaveil's preferences file; parts it does not hold
    // (or a file that cannot be read) are left empty.
    static StoredVideo storedVideo(const QString& preferencesPath);

private:
    bool write(const std::vector<uint8_t>& frame, Clock::time_point now);
    // Settles on a layout and rate: the converter and the card follow.
    void adopt(const LVVcamLayout& layout, int rate);
    // Asks the output to follow a producer's new size or rate where the options leave them open.
    void followProducer(int width, int height, int rate);

    LVShmem& shmem_;
    LVVideoOutput& output_;
    LVVcamOptions options_;
    const bool rateGiven_;
    LVVcamLayout layout_;
    int rate_ = 15;
    std::unique_ptr<LVFrameConverter> converter_;
    std::vector<uint8_t> lastFrame_; // converted, ready to write again
    std::vector<uint8_t> card_;      // converted
    uint64_t lastTimestamp_ = 0;
    Clock::time_point lastNewFrame_{};
    Clock::time_point lastWrite_{};
    bool haveFrame_ = false;
    bool showingCard_ = false;
    bool wroteAny_ = false;
    long framesWritten_ = 0;
};
