#pragma once
// The end of the frame: every output is a driver in one list, called in the frame's order.
// The frame is read back to the CPU at most once, when the first CPU output asks, into pixels
// that every CPU output shares; GPU outputs draw the frame's texture instead. An output that
// throws is logged once and loses only its own frame; a slow one runs on a thread of its own.
#include "render/LVContext.h"

#include <QImage>

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A frame on the CPU: B,G,R,A bytes (QImage::Format_ARGB32_Premultiplied on little-endian
// machines), top row first, rows stride bytes apart.
struct LVFramePixels {
    int width = 0;
    int height = 0;
    int stride = 0;
    std::vector<uint8_t> bytes;

    // The pixels without a copy; valid while this object lives.
    QImage image() const;
};
using LVFramePixelsRef = std::shared_ptr<const LVFramePixels>;

// Where frames are read back: a small pool of buffers (one still held by a slow output or a
// widget is never overwritten) and the count of read-backs.
class LVFrameReadBack {
public:
    LVFramePixelsRef read(LVContext& context);
    // Into the caller's memory instead of a pooled buffer, as A,R,G,B bytes (the camera
    // transport's order).
    void readInto(LVContext& context, void* destination, int rowBytes);
    uint64_t count() const { return count_; }

private:
    std::vector<std::shared_ptr<LVFramePixels>> pool_;
    uint64_t count_ = 0;
};

// One frame as the outputs see it.
class LVOutputFrame {
public:
    LVOutputFrame(LVContext& context, LVFrameReadBack& readBack) : context_(context), readBack_(readBack) {}
    LVContext& context() const { return context_; }
    // For GPU outputs: the frame's texture, stored the GL way up.
    LVTexture texture() const { return context_.texture(); }
    // For CPU outputs: read back on the first ask, the same pixels for every later one.
    const LVFramePixelsRef& pixels();
    // Whether a CPU output has had the pixels already.
    bool hasPixels() const { return pixels_ != nullptr; }
    // For the last CPU output when no other one had the pixels: reads the frame (A,R,G,B, the
    // camera transport's order, top row first) straight into destination, a copy fewer than
    // pixels().
    void readInto(void* destination, int rowBytes);

private:
    LVContext& context_;
    LVFrameReadBack& readBack_;
    LVFramePixelsRef pixels_;
};

class LVOutputDriver {
public:
    virtual ~LVOutputDriver() = default;
    // Names the output in the line logged when it fails.
    virtual std::string outputName() const = 0;
    // False skips the output this frame (a hidden window, a preference that is off).
    virtual bool wantsFrame() const { return true; }
    // May throw: the list logs it once and drops this output's frame only.
    virtual void drawFrame(LVOutputFrame& frame) = 0;
};

// The simple way for a widget to show frames: it gets the shared pixels.
class LVPictureOutput {
public:
    virtual ~LVPictureOutput() = default;
    virtual bool isPreviewVisible() const = 0;
    // mirrored: show the picture turned left to right (the pixels themselves never are).
    virtual void showPicture(const LVFramePixelsRef& picture, bool mirrored) = 0;
};

// A picture output as a driver.
class LVPictureDriver : public LVOutputDriver {
public:
    LVPictureDriver(std::string name, LVPictureOutput& output, std::function<bool()> mirrored)
        : name_(std::move(name)), output_(output), mirrored_(std::move(mirrored))
    {
    }
    std::string outputName() const override { return name_; }
    bool wantsFrame() const override { return output_.isPreviewVisible(); }
    void drawFrame(LVOutputFrame& frame) override { output_.showPicture(frame.pixels(), mirrored_ && mirrored_()); }

private:
    std::string name_;
    LVPictureOutput& output_;
    std::function<bool()> mirrored_;
};

// A CPU output that may take its time: it gets the shared pixels on a thread of its own
// through a one-slot mailbox. A frame that comes while the consumer is busy replaces the one
// waiting, so the render loop never waits and the consumer always gets the newest frame.
class LVThreadedOutput : public LVOutputDriver {
public:
    using Consumer = std::function<void(const LVFramePixels& frame)>;
    LVThreadedOutput(std::string name, Consumer consumer, std::function<bool()> wanted = {});
    // Waits for the frame being consumed, then ends the thread.
    ~LVThreadedOutput() override;

    std::string outputName() const override { return name_; }
    bool wantsFrame() const override { return !wanted_ || wanted_(); }
    void drawFrame(LVOutputFrame& frame) override;
    // Frames replaced in the mailbox before the consumer took them.
    uint64_t framesDropped() const;
    uint64_t framesConsumed() const;

private:
    void run();

    std::string name_;
    Consumer consumer_;
    std::function<bool()> wanted_;
    mutable std::mutex mutex_;
    std::condition_variable wake_;
    LVFramePixelsRef mailbox_;
    bool stopping_ = false;
    bool failureLogged_ = false;
    uint64_t dropped_ = 0;
    uint64_t consumed_ = 0;
    std::thread thread_;
};

// The outputs in the frame's order.
enum class LVOutputSlot {
    ProgramMonitor, // the studio's Program monitor, drawn right after the transition step
    Preview,
    FullScreen,
    SecondOutput, // the frame offered to other programs
    Recording,    // the encoder writing the recording
    Streaming,    // the encoder sending to a media server
    SharedMemory, // the virtual camera, always last
    Count
};

class LVOutputList {
public:
    // Replaces the slot's driver; null empties it.
    void setDriver(LVOutputSlot slot, std::unique_ptr<LVOutputDriver> driver);
    LVOutputDriver* driver(LVOutputSlot slot) const { return entries_[size_t(slot)].driver.get(); }
    // Every driver that wants the frame, in slot order.
    void drawFrame(LVContext& context);
    // Read-backs so far: at most one per frame, none in a frame with no CPU output.
    uint64_t readBacks() const { return readBack_.count(); }

private:
    struct Entry {
        std::unique_ptr<LVOutputDriver> driver;
        bool failureLogged = false;
    };
    std::array<Entry, size_t(LVOutputSlot::Count)> entries_;
    LVFrameReadBack readBack_;
};
