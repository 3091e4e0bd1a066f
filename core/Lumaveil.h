#pragma once
// The application controller: owns the render context, the frame transport, the
// preferences and the catalogues, holds the live chain and runs the render loop.
#include "core/LVControllerInterfaces.h"
#include "core/LVEffect.h"
#include "core/LVEffectRegistry.h"

#include <QObject>
#include <QSize>
#include <QStringList>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class LVContext;
class LVDefaults;
class LVShmem;
class LVSetupCatalog;

// What a launch may set for this run only (never stored).
struct LVLaunchOptions {
    std::optional<QSize> videoSize;
    std::optional<int> frameRate;
    // Benchmarks and tests drive frames themselves.
    bool startTimer = true;
    // Run without publishing frames, for example beside another Lumaveil that does.
    bool noPublish = false;
    LVEffectFolders folders;
};

class Lumaveil : public QObject {
    Q_OBJECT
public:
    static constexpr const char* betaNagText =
        "This version of Lumaveil is a BETA build.  You should expect problems with it.  I welcome feedback and "
        "bug reports but I'll most likely not be able to reply.  To offer the picture as a camera to other "
        "programs, make the camera device once: install the package v4l2loopback-dkms, run \"sudo modprobe "
        "v4l2loopback exclusive_caps=1 card_label=Lumaveil\", then start lumaveil-vcam.  This dialog will not "
        "appear again.";
    static constexpr const char* betaNagButton = "OK, got it";

    // Start-up: records the instance, registers the preference defaults, makes the context
    // and the shared-memory transport, applies the stored frame rate (starting the timer),
    // driver output, second output and mirroring. Null, with error set, when the render
    // context cannot be made or another live Lumaveil already publishes (unless noPublish).
    static std::unique_ptr<Lumaveil> create(LVDefaults& defaults, LVLaunchOptions options, QString* error,
                                            LVClock* clock = nullptr);
    ~Lumaveil() override;
    static Lumaveil* instance();

    // Interface set-up: builds the catalogues.
    void awakeFromNib();
    // Merges the auto-load setup, if one is named.
    void applicationDidFinishLaunching();
    // Marks the producer not running first, then stores the window frames and tells the studio.
    void applicationWillTerminate();

    // Parts above plug in here; a missing one is skipped in the frame.
    void setStudio(std::unique_ptr<LVStudioHooks> studio) { studio_ = std::move(studio); }
    // The main window's preview: the frame's shared pixels, mirrored when asked.
    void setPreview(LVPictureOutput* preview);
    // Only one full-screen output at a time; a new one replaces (and so releases) the old.
    void setPreviewFullScreen(std::unique_ptr<LVFullScreenOutput> output);
    LVFullScreenOutput* previewFullScreen() const { return previewFullScreen_; }
    void unSelectScreen() { setPreviewFullScreen(nullptr); }
    // Makes the second output on the first frame with "syphonServerEnabled" on; never made
    // while the preference stays off.
    void setSecondOutputMaker(std::function<std::unique_ptr<LVSecondOutput>()> maker);
    // Every output of the frame, in the frame's order.
    LVOutputList& outputs() { return outputs_; }
    void setKeyDispatcher(LVKeyDispatcher* dispatcher) { keyDispatcher_ = dispatcher; }
    // Takes the timelines and starts them; null lets them go.
    void setTimeLineManager(std::unique_ptr<LVTimeLineOwner> manager)
    {
        timeLineManager_ = std::move(manager);
        if (timeLineManager_) timeLineManager_->startup();
    }
    LVTimeLineOwner* timeLineManager() const { return timeLineManager_.get(); }
    void setSetupCatalog(LVSetupCatalog* catalog) { setupCatalog_ = catalog; }
    LVSetupCatalog* setupManager() const { return setupCatalog_; }
    LVStudioHooks* studio() const { return studio_.get(); }
    struct WindowFrames {
        QString windowFrame;
        QString previewOrigin;
    };
    void setWindowFrameSource(std::function<WindowFrames()> source) { windowFrames_ = std::move(source); }

    LVContext* context() const { return context_.get(); }
    LVShmem& shmem() const { return *shmem_; }
    LVDefaults& defaults() const { return defaults_; }
    LVEffectRegistry& registry() { return registry_; }
    const LVEffectRegistry::FactoryList& effects() const { return registry_.allEffects(); }
    const LVEffectRegistry::FactoryList& sources() const { return registry_.allSources(); }
    const LVEffectRegistry::FactoryList& transitions() const { return registry_.transitions(); }

    // Preferences that apply at once.
    int frameRate() const { return frameRate_; }
    void setFrameRate(int rate);
    bool isNoVirtualDriver() const { return bNoVirtualDriver_; }
    void setNoVirtualDriver(bool off);
    // Why frames do not reach the camera although driver output is on (a refused segment,
    // another Lumaveil publishing, --no-publish); empty while they do.
    QString publishingProblem() const;
    bool syphonServerEnabled() const { return syphonServerEnabled_; }
    void setSyphonServerEnabled(bool enabled);
    bool isMirrorImagePreview() const { return bMirrorImagePreview_; }
    void setMirrorImagePreview(bool mirror);
    QString audioOutputDevice() const;
    void setAudioOutputDevice(const QString& device);

    // The video size, applied at the next start.
    QSize videoSize() const;
    int videoSizeMenuIndex() const;
    // A menu entry stores its size; "Custom" stores the fields' values.
    void chooseVideoSizeItem(int index, int customWidth = 0, int customHeight = 0);

    // The one-time pre-release notice: true until betaNagShown().
    bool needsBetaNag() const;
    void betaNagShown();

    // The live chain.
    const std::vector<LVEffectRef>& liveEffects() const { return myEffects_; }
    bool firstEffectIsSource() const;
    LVEffectRef source() const;
    void setSource(const LVEffectRef& effect);
    void addOneEffect(const LVEffectRef& effect);
    void removeEffect(const LVEffectRef& effect);
    void removeOneEffect(int index);
    void clearEffects(bool includingSource);
    // The Clear command: the effects go, the source stays.
    void doClear() { clearEffects(false); }
    void doSwap(const LVEffectRef& pipEffect);
    // Gives a picture-in-picture a new source of the named kind (none for an empty name);
    // false when the effect holds no second source or the kind cannot be made.
    bool setOtherSourceNamed(const LVEffectRef& holderEffect, const QString& sourceName);
    void addEffectsFrom(const std::vector<LVEffectRef>& effects, bool merge, bool ignoreSources);
    void setEffectEnabled(int index, bool enabled);
    // Saved setups through the catalogue; false when there is none or the name is unknown.
    bool loadNamedSetup(const QString& name, bool merge);
    bool loadSetupAtPath(const QString& path, bool merge);

    LVEffectRef instantiateNamedEffect(const QString& name) const;
    LVEffectRef instantiateNamedSource(const QString& name) const;
    bool addNamedEffect(const QString& name);
    bool setNamedSource(const QString& name);

    // Dropping on the chain table at row: files make a quick effect, else the dragged
    // rows move there. Answers whether the drop was taken.
    bool acceptDrop(const QStringList& files, const std::vector<int>& draggedRows, int row);
    void moveRows(const std::vector<int>& draggedRows, int row);
    // A movie source, an image overlay or a slide show for dropped files; none when the
    // files are mixed, unusable or the kind is not installed.
    LVEffectRef quickEffectFromFiles(const QStringList& files, bool source) const;

    // The selected chain element (one, or none); picture-in-picture commands need one.
    void setSelectedEffect(const LVEffectRef& effect);
    LVEffectRef selectedEffect() const { return selected_.lock(); }
    bool pipSelected() const;

    // Key presses: Escape ends a full-screen preview on the main screen, anything else goes
    // to the user menu. Answers whether the key was taken.
    bool sendEvent(int key, int modifiers);

    // The timer callback: takes the next fire date, renders, re-arms.
    void doit();
    // One frame without the timer: dispatcher flush, frame time, the live chain.
    void renderFrame();
    void doLiveChain();
    bool isTimerActive() const { return timer_.isActive(); }
    // Milliseconds the timer was last armed for.
    int lastTimerInterval() const { return lastInterval_; }

    qint64 framesRendered() const { return framesRendered_; }
    double measuredFps() const { return measuredFps_; }
    // Mean time a frame took to render, over the whole run; 0 before the first.
    double averageFrameRenderSeconds() const { return framesRendered_ > 0 ? renderSecondsTotal_ / double(framesRendered_) : 0; }
    // How late each timer-driven frame started against its schedule, in milliseconds.
    const std::vector<float>& frameStartLateness() const { return lateness_; }

signals:
    void chainChanged();
    void selectionRequested(int row);
    void pipSelectedChanged(bool selected);
    void frameRendered(qint64 frameIndex);
    void fpsChanged(double fps);
    void preferenceChanged(const QString& key);
    // An effect's frame time stays far over the frame period; said once per effect.
    void slowEffect(const LVEffectRef& effect, double secondsPerFrame);

private:
    Lumaveil(LVDefaults& defaults, LVLaunchOptions options, LVClock& clock);
    void registerDefaults();
    void applyVersion();
    void applyFrameRate(int rate);
    void applyPublishing();
    void armTimer(double fireDate);
    void removeAt(int index);
    void applyAudioDevice(LVEffect& effect) const;
    void noteFrameDone();
    // Frames far over their period for a while: the next frame times each effect, and the
    // slowest is named once when it alone is over.
    void watchFrameTime(double seconds, const std::vector<std::pair<LVEffectRef, double>>& effectSeconds);
    static constexpr double kSlowFrameFactor = 3.0;
    static constexpr double kSlowFramesForSeconds = 3.0;

    LVDefaults& defaults_;
    LVLaunchOptions options_;
    LVClock& clock_;
    std::unique_ptr<LVContext> context_;
    std::unique_ptr<LVShmem> shmem_;
    LVEffectRegistry registry_;
    std::vector<LVEffectRef> myEffects_;
    std::weak_ptr<LVEffect> selected_;
    // After the transport and the context: its drivers use them, and go first.
    LVOutputList outputs_;

    std::unique_ptr<LVStudioHooks> studio_;
    LVFullScreenOutput* previewFullScreen_ = nullptr;
    LVKeyDispatcher* keyDispatcher_ = nullptr;
    std::unique_ptr<LVTimeLineOwner> timeLineManager_;
    LVSetupCatalog* setupCatalog_ = nullptr;
    std::function<WindowFrames()> windowFrames_;

    QTimer timer_;
    int frameRate_ = 15;
    double scheduledStart_ = 0;
    int lastInterval_ = -1;
    bool bNoVirtualDriver_ = false;
    bool publishing_ = false;
    uint32_t otherProducer_ = 0;
    QString startError_;
    bool syphonServerEnabled_ = false;
    bool bMirrorImagePreview_ = false;

    qint64 framesRendered_ = 0;
    double fpsWindowStart_ = 0;
    qint64 fpsWindowFrames_ = 0;
    double measuredFps_ = 0;
    double renderSecondsTotal_ = 0;
    std::vector<float> lateness_;
    double slowSince_ = -1;
    bool timeEffectsNextFrame_ = false;
    std::vector<std::weak_ptr<LVEffect>> warnedSlow_;
};
