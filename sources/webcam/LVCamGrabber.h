#pragma once
// One grabber per capture device, shared by every source that shows that device. It runs the
// device's GStreamer pipeline, chooses the capture format and rate, and keeps the latest picture
// as a texture. The render loop asks for pictures with last(): it gets the one finished for an
// earlier request and never waits; the grabber's thread makes at most one picture per request.
#include "sources/webcam/LVCamDevice.h"

#include "transport/KDLock.h"

#include <QJsonObject>
#include <QSize>
#include <QString>

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

class LVCamPicture;
class LVCamConverter;
class LVGLContext;
typedef struct _GstElement GstElement;
typedef struct _GstBus GstBus;
typedef struct _GstMessage GstMessage;

// One capture size a device offers.
struct LVCamResolution {
    int32_t width = 0;
    int32_t height = 0;
    QString description; // "%dx%d"
};

class LVCamGrabber {
public:
    using Ref = std::shared_ptr<LVCamGrabber>;

    // The cameras present, in the device provider's order, our own "Lumaveil" camera left out.
    // Built on first use; cameras plugged in later are appended, unplugged ones leave it (their
    // grabber lives on and is listed again, under the same name, when the camera comes back).
    static const std::vector<Ref>& deviceList();
    // Where devices come from. Without one, the first deviceList() installs the GStreamer
    // device monitor, or the fake cameras of LUMAVEIL_TEST_CAMERAS when that is set.
    // Installing one drops the current list.
    static void setDeviceProvider(std::unique_ptr<LVCamDeviceProvider> provider);
    static LVCamDeviceProvider* deviceProvider();
    // Changes whenever a camera joins or leaves the list.
    static uint64_t listGeneration();
    // Stops every grabber and forgets the list.
    static void releaseDeviceList();
    // At exit: stops every grabber and the device monitor, so no capture thread outlives it.
    static void shutdown();
    // Writes "deviceSettings": every grabber's prefsDict under its device's identifier.
    static void persistPrefs();

    LVCamGrabber(LVCamDeviceRef device, QString displayName);
    ~LVCamGrabber();
    LVCamGrabber(const LVCamGrabber&) = delete;
    LVCamGrabber& operator=(const LVCamGrabber&) = delete;

    QString uniqueID() const { return uniqueID_; }
    QString deviceName() const { return deviceName_; }
    QString displayName() const { return displayName_; }
    // Whether the camera is plugged in.
    bool isPresent() const { return present_; }

    std::vector<LVCamResolution> resolutions() const;
    std::optional<QSize> forceResolution() const { return forceResolution_; }
    void setForceResolution(std::optional<QSize> size);
    // {"forceResolution": {"width", "height"}}, or empty when nothing is forced.
    QJsonObject prefsDict() const;

    // Counted use: the pipeline runs while at least one user holds the grabber.
    void start();
    void stop();
    uint32_t refCnt() const { return refCnt_; }
    // A capture session exists (it may be waiting for its camera to come back).
    bool hasSession() const { return sessionWanted_; }

    bool acquireChannel();
    void releaseChannel();
    // Works out the target size and rate and has the grabber's thread (re)configure the
    // pipeline; false when there is no session.
    bool dealWithGettingFrames();
    void frameRateChanged();

    // The latest finished picture, or none; asks for the next one.
    std::shared_ptr<const LVCamPicture> last();

    // The device left or came back. The device list calls these; so do sources that keep a
    // grabber of their own for a device that list does not hold.
    void deviceRemoved();
    void deviceReturned(LVCamDeviceRef device);

    void routeAudioTo(const QString& device) { (void)device; }
    void unrouteAudio() {}

    // The caps of the running pipeline ("" when none), as chosen by the format rules.
    QString activeFormat() const;

    // How long a lost camera's last picture stays before it turns black.
    static constexpr int kLostPictureHoldMs = 1000;
    // How often a camera whose pipeline failed is tried again while it is still listed.
    static constexpr int kRetryIntervalMs = 1000;
    // Nanoseconds the two delays above are measured by; tests step a clock of their own. A
    // grabber waiting for a retry looks at the clock again whenever it is asked for a picture.
    // None restores the steady clock.
    static void setDelayClock(int64_t (*nowNs)());

private:
    struct Config {
        int32_t width = 0;
        int32_t height = 0;
        int32_t frameRate = 0;
    };

    static void _addToDevice(const LVCamDeviceRef& device, std::vector<Ref>& list);
    static void _devicesChanged();

    // The grabber's serial queue.
    void post(std::function<void()> task);
    void run();
    void renderJob();
    void configureTask(Config config);
    void choose();
    void buildPipeline();
    enum class Start { Started, Refused, Failed };
    // Refused: the device would not take these caps; Failed is logged and retried later.
    Start startPipeline(const QString& caps);
    void handleLoss(const QString& text);
    void teardownPipeline();
    // refused: the device would not give the chosen format.
    void pipelineFailed(uint64_t generation, const QString& text, bool refused);
    bool ensureGL();
    static int busSyncHandler(GstBus* bus, GstMessage* message, void* self);

    // Set at creation.
    const QString uniqueID_;
    const QString deviceName_;
    const QString displayName_;

    // Main thread.
    uint32_t refCnt_ = 0;
    bool sessionWanted_ = false;
    bool present_ = true;
    std::optional<QSize> forceResolution_;

    // Guarded by buffmtx.
    mutable KDLock buffmtx;
    bool bNeedFrame = false;
    std::shared_ptr<const LVCamPicture> last_;
    std::deque<std::function<void()>> tasks_;
    bool quit_ = false;
    int64_t retryAtNs_ = 0; // steady clock; 0 when no retry is due
    LVCamDeviceRef device_;
    QString activeFormat_;
    QString failureText_;

    // The grabber's thread only.
    std::thread queue_;
    std::unique_ptr<LVGLContext> oglCtx_;
    std::unique_ptr<LVCamConverter> converter_;
    bool glFailed_ = false;
    GstElement* pipeline_ = nullptr;
    GstElement* appsink_ = nullptr;
    Config config_;
    bool wantRunning_ = false;
    bool devicePresent_ = true;
    QString caps_;  // what the format rules chose, "" for whatever the device gives
    bool jpeg_ = false;
    QString activeCaps_; // caps of the running pipeline
    int64_t lostSinceNs_ = 0;
    QString lastFailure_;
    std::atomic<uint64_t> generation_{0};
};
