#pragma once
// Where the bridge's frames go: a v4l2loopback device or a byte stream.
#include <QString>

#include <cstdint>
#include <memory>

#include "tools/vcam/LVFrameConverter.h"

class LVVideoOutput {
public:
    virtual ~LVVideoOutput() = default;
    // Asks for layout and rate; on success layout holds what the consumer accepted.
    virtual bool open(LVVcamLayout& layout, int rate, QString* error) = 0;
    // False when the consumer has gone away.
    virtual bool writeFrame(const uint8_t* data, size_t bytes) = 0;
    // Asks an open output for another layout or rate; false (nothing changed) when the
    // consumer cannot follow, for example while a client is streaming.
    virtual bool reconfigure(LVVcamLayout& /*layout*/, int /*rate*/) { return false; }
    // "standard output", "/dev/video4 (Lumaveil)"
    virtual QString description() const = 0;
};

// Raw frames on a file descriptor, back to back.
class LVFdOutput : public LVVideoOutput {
public:
    explicit LVFdOutput(int fd, QString description) : fd_(fd), description_(std::move(description)) {}
    bool open(LVVcamLayout& layout, int rate, QString* error) override;
    bool writeFrame(const uint8_t* data, size_t bytes) override;
    QString description() const override { return description_; }

private:
    int fd_;
    QString description_;
};

struct LVV4L2Device {
    QString path;
    QString card;
};

// A v4l2loopback device, fed with write().
class LVV4L2Output : public LVVideoOutput {
public:
    // The loopback devices under devDir ("/dev"), in device-number order.
    static std::vector<LVV4L2Device> loopbackDevices(const QString& devDir);
    // The one labelled "Lumaveil", else the first that takes video output; empty when none.
    static QString chooseDevice(const std::vector<LVV4L2Device>& devices);

    explicit LVV4L2Output(QString path) : path_(std::move(path)) {}
    ~LVV4L2Output() override;
    bool open(LVVcamLayout& layout, int rate, QString* error) override;
    bool writeFrame(const uint8_t* data, size_t bytes) override;
    bool reconfigure(LVVcamLayout& layout, int rate) override;
    QString description() const override { return path_; }

private:
    bool setFormat(LVVcamLayout& layout, int rate, QString* error);

    QString path_;
    int fd_ = -1;
};

extern const char* const kLVModprobeHint;
// How to get a camera device, or do without one; follows "no device found" and the like.
QString LVLoopbackHelp();
