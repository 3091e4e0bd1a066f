#pragma once
// The device side of the webcam source: what a capture device offers (formats, frame-rate
// ranges) and where devices come from. The grabber only talks to these interfaces, so tests
// can plug in fake devices built on real GStreamer elements.
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

typedef struct _GstElement GstElement;
typedef struct _GstCaps GstCaps;

// A rational time in seconds, value / timescale. A timescale of 0 marks it invalid.
struct LVCamTime {
    int64_t value = 0;
    int32_t timescale = 0;

    bool isValid() const { return timescale != 0; }
    bool operator==(const LVCamTime&) const = default;
};

inline LVCamTime LVCamTimeMake(int64_t value, int32_t timescale) { return {value, timescale}; }
// Compares the magnitudes |a - t| and |b - t| exactly: -1, 0 or 1.
int LVCamCompareDistances(LVCamTime a, LVCamTime b, LVCamTime t);

// One supported frame-rate range of a format. A discrete rate has min == max.
struct LVCamRateRange {
    double minFrameRate = 0;
    double maxFrameRate = 0;
    LVCamTime minFrameDuration; // 1 / maxFrameRate
    LVCamTime maxFrameDuration; // 1 / minFrameRate
};

// One capture format of a device.
struct LVCamFormat {
    QString mediaType;   // "video/x-raw" or "image/jpeg"
    QString pixelFormat; // GStreamer format name ("YUY2", "NV12"...), "MJPG" for JPEG
    int32_t width = 0;
    int32_t height = 0;
    std::vector<LVCamRateRange> rates;

    // "YUY2 1280x720 5-30 fps", for the log.
    QString description() const;
    // Caps that select this format at the given frame duration (none when invalid).
    GstCaps* caps(LVCamTime frameDuration) const;
};

// The formats of a device's caps, in caps order; sizes given as ranges use their maximum,
// kinds that cannot be shown (compressed video other than JPEG) are left out.
std::vector<LVCamFormat> LVCamFormatsFromCaps(const GstCaps* caps);

// The format nearest the target by the grabber's rules: the first format is best; a later one
// replaces a best that is short of the target when it is wider or taller, or else only when
// it is above the target in both dimensions and below the best in both. Answers its index,
// -1 for an empty list.
int LVCamChooseFormat(const std::vector<LVCamFormat>& formats, int32_t targetWidth, int32_t targetHeight);
// The frame duration for frameRate: 1/frameRate from the first range that holds it, else the
// far end of the range whose end lies nearest. Invalid when there are no ranges.
LVCamTime LVCamChooseFrameDuration(const std::vector<LVCamRateRange>& ranges, int32_t frameRate);
// The name a new device is listed under, given the device names already listed.
QString LVCamDisplayName(const QString& deviceName, const QStringList& namesInList);

class LVCamDevice {
public:
    virtual ~LVCamDevice() = default;
    // Stable across unplugging and plugging back in.
    virtual QString uniqueID() const = 0;
    virtual QString localizedName() const = 0;
    virtual std::vector<LVCamFormat> formats() const = 0;
    // A new capture element (floating reference); null with the reason in error.
    virtual GstElement* createElement(QString* error) const = 0;
};

using LVCamDeviceRef = std::shared_ptr<const LVCamDevice>;

class LVCamDeviceProvider {
public:
    virtual ~LVCamDeviceProvider() = default;
    // The devices present now, in the order to list them.
    virtual std::vector<LVCamDeviceRef> devices() = 0;
    // Called, on any thread, whenever a device comes or goes.
    virtual void setChangeHandler(std::function<void()> handler) = 0;
};

// Initialises GStreamer once; false with the reason logged when it cannot.
bool LVCamInitGStreamer();
// At process end, after every pipeline is down: joins GStreamer's pooled streaming threads so
// none is still running while the process exits. Nothing may use GStreamer afterwards.
void LVCamShutdownGStreamer();
