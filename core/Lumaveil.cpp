#include "core/Lumaveil.h"

#include "core/LVChainEdits.h"
#include "core/LVDefaults.h"
#include "core/LVSetupCatalog.h"
#include "core/LVVideoSizes.h"
#include "core/util/KDDelayedDispatcher.h"
#include "core/util/LVLog.h"
#include "render/LVContext.h"
#include "render/LVGL.h"
#include "render/LVShmemOutput.h"
#include "transport/LVShmem.h"

#include <QDateTime>
#include <QFileInfo>
#include <QJsonObject>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

namespace {

Lumaveil* theInstance = nullptr;

// Enough lateness samples for a long benchmark run without growing per frame.
constexpr size_t kMaxLatenessSamples = 1 << 20;

class SystemClock : public LVClock {
public:
    double now() const override
    {
        return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
    }
    double absoluteTime() const override { return double(QDateTime::currentMSecsSinceEpoch()) / 1000.0; }
};

} // namespace

LVClock& LVSystemClock()
{
    static SystemClock clock;
    return clock;
}

std::unique_ptr<Lumaveil> Lumaveil::create(LVDefaults& defaults, LVLaunchOptions options, QString* error,
                                           LVClock* clock)
{
    std::unique_ptr<Lumaveil> app(new Lumaveil(defaults, std::move(options), clock ? *clock : LVSystemClock()));
    if (!app->context_) {
        if (error && error->isEmpty()) *error = QStringLiteral("the render context could not be made");
        return nullptr;
    }
    if (!app->startError_.isEmpty()) {
        if (error) *error = app->startError_;
        return nullptr;
    }
    return app;
}

Lumaveil::Lumaveil(LVDefaults& defaults, LVLaunchOptions options, LVClock& clock)
    : defaults_(defaults), options_(std::move(options)), clock_(clock), registry_(options_.folders)
{
    theInstance = this;
    registerDefaults();
    applyVersion();

    const QSize size = options_.videoSize.value_or(videoSize());
    LVSetVideoSizeProvider([size] { return size; });
    QString contextError;
    context_ = LVContext::create(&contextError);
    if (!context_) {
        LVLog("LVContext::create: %s", qPrintable(contextError));
        return;
    }
    shmem_ = std::make_unique<LVShmem>(LVShmemRole::Producer);
    outputs_.setDriver(LVOutputSlot::SharedMemory,
                       std::make_unique<LVShmemOutput>(*shmem_, [this] { return publishing_; }, [this] { return frameRate_; }));

    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    connect(&timer_, &QTimer::timeout, this, &Lumaveil::doit);
    lateness_.reserve(4096);

    const QJsonValue storedRate = defaults_.valueForKey(QStringLiteral("frameRate"));
    int rate = storedRate.isDouble() ? storedRate.toInt() : 15;
    if (rate < LVMinFrameRate || rate > LVMaxFrameRate) rate = 15;
    applyFrameRate(options_.frameRate.value_or(rate));

    bNoVirtualDriver_ = defaults_.boolForKey(QStringLiteral("noVirtualDriver"));
    otherProducer_ = shmem_->otherLiveProducer();
    if (otherProducer_ != 0 && !bNoVirtualDriver_ && !options_.noPublish) {
        startError_ = QStringLiteral("another Lumaveil (pid %1) already publishes frames to shared memory %2; quit it, "
                                     "or start this one with --no-publish")
                          .arg(otherProducer_)
                          .arg(QString::fromStdString(shmem_->names().control));
        return;
    }
    applyPublishing();
    syphonServerEnabled_ = defaults_.boolForKey(QStringLiteral("syphonServerEnabled"));
    bMirrorImagePreview_ = defaults_.boolForKey(QStringLiteral("mirrorImagePreview"));

    connect(&defaults_, &LVDefaults::valueChanged, this, &Lumaveil::preferenceChanged);
}

Lumaveil::~Lumaveil()
{
    timer_.stop();
    if (shmem_ && startError_.isEmpty()) shmem_->removeSegments();
    // Effects may still reach for the context while they shut down.
    for (const auto& effect : myEffects_) effect->setMode(LVModeOff);
    myEffects_.clear();
    if (theInstance == this) theInstance = nullptr;
}

Lumaveil* Lumaveil::instance()
{
    return theInstance;
}

void Lumaveil::registerDefaults()
{
    defaults_.registerDefaults(QJsonObject{
        {QStringLiteral("frameRate"), 15},
        {QStringLiteral("noVirtualDriver"), false},
        {QStringLiteral("syphonServerEnabled"), false},
        {QStringLiteral("mirrorImagePreview"), false},
        {QStringLiteral("videoSize"), LVSizeString(QSize(320, 240))},
        {QStringLiteral("usingCustomVideoSize"), false},
        {QStringLiteral("version"), 300},
        {QStringLiteral("betaNag"), false},
    });
}

void Lumaveil::applyVersion()
{
    const QString key = QStringLiteral("version");
    if (defaults_.hasStoredValue(key)) {
        const QJsonValue stored = defaults_.valueForKey(key);
        const double old = stored.isString() ? stored.toString().toDouble() : stored.toDouble();
        // Early releases stored a decimal version such as 2.5.
        if (old > 0 && old < 100) defaults_.setValue(key, int(std::lround(double(float(old) * 100.0f))));
    }
    defaults_.setValue(key, 300);
}

void Lumaveil::awakeFromNib()
{
    registry_.findEffects();
}

void Lumaveil::applicationDidFinishLaunching()
{
    const QString autoload = defaults_.stringForKey(QStringLiteral("autoload"));
    if (!autoload.isEmpty()) loadNamedSetup(autoload, true);
}

void Lumaveil::applicationWillTerminate()
{
    // The driver must stop showing frames before anything else goes; no frame stays behind.
    if (shmem_ && publishing_) {
        shmem_->setAppNotRunning();
        publishing_ = false;
    }
    if (shmem_) shmem_->removeSegments();
    timer_.stop();
    if (windowFrames_) {
        const WindowFrames frames = windowFrames_();
        if (!frames.windowFrame.isEmpty()) defaults_.setValue(QStringLiteral("windowFrame"), frames.windowFrame);
        if (!frames.previewOrigin.isEmpty()) defaults_.setValue(QStringLiteral("previewOrigin"), frames.previewOrigin);
    }
    if (studio_) studio_->applicationWillTerminate();
}

// MARK: preferences

void Lumaveil::setFrameRate(int rate)
{
    if (rate < LVMinFrameRate || rate > LVMaxFrameRate) {
        LVLog("Frame rate %d refused: allowed are %d to %d", rate, LVMinFrameRate, LVMaxFrameRate);
        return;
    }
    applyFrameRate(rate);
    defaults_.setValue(QStringLiteral("frameRate"), rate);
}

void Lumaveil::applyFrameRate(int rate)
{
    frameRate_ = rate;
    timer_.stop();
    if (!options_.startTimer || !context_) return;
    armTimer(clock_.now() + 1.0 / double(float(frameRate_)));
}

void Lumaveil::setNoVirtualDriver(bool off)
{
    bNoVirtualDriver_ = off;
    defaults_.setValue(QStringLiteral("noVirtualDriver"), off);
    applyPublishing();
}

void Lumaveil::applyPublishing()
{
    // The control block of another live Lumaveil is left alone: writing it would take its
    // camera away.
    otherProducer_ = shmem_->otherLiveProducer();
    if (otherProducer_ != 0) {
        publishing_ = false;
        LVLog("Another Lumaveil (pid %u) already publishes frames to shared memory %s; this one does not",
              otherProducer_, shmem_->names().control.c_str());
        return;
    }
    publishing_ = !bNoVirtualDriver_ && !options_.noPublish && shmem_->isAvailable();
    if (publishing_) {
        shmem_->setAppRunning();
    } else {
        shmem_->setAppNotRunning();
    }
}

QString Lumaveil::publishingProblem() const
{
    if (bNoVirtualDriver_ || (publishing_ && shmem_->isAvailable())) return {};
    if (otherProducer_ != 0)
        return QStringLiteral("Frames are not published: another Lumaveil (pid %1) publishes").arg(otherProducer_);
    if (options_.noPublish) return QStringLiteral("Frames are not published (--no-publish)");
    return QStringLiteral("Frames are not published: %1").arg(QString::fromStdString(shmem_->problem()));
}

void Lumaveil::setPreview(LVPictureOutput* preview)
{
    outputs_.setDriver(LVOutputSlot::Preview,
                       preview ? std::make_unique<LVPictureDriver>("preview", *preview, [this] { return bMirrorImagePreview_; })
                               : nullptr);
}

void Lumaveil::setPreviewFullScreen(std::unique_ptr<LVFullScreenOutput> output)
{
    previewFullScreen_ = output.get();
    outputs_.setDriver(LVOutputSlot::FullScreen, std::move(output));
}

namespace {

// The second output: made on the first frame that wants it, on the render thread; fed on a
// thread of its own so another program's pace never reaches the render loop.
class SecondOutputDriver : public LVOutputDriver {
public:
    SecondOutputDriver(std::function<std::unique_ptr<LVSecondOutput>()> maker, std::function<bool()> wanted)
        : maker_(std::move(maker)), wanted_(std::move(wanted)),
          feeder_("second output", [this](const LVFramePixels& frame) {
              output_->pushFrame(frame.bytes.data(), frame.width, frame.height, frame.stride);
          })
    {
    }
    std::string outputName() const override { return "second output"; }
    bool wantsFrame() const override { return wanted_(); }
    void drawFrame(LVOutputFrame& frame) override
    {
        if (!output_) {
            if (makeFailed_) return;
            output_ = maker_();
            makeFailed_ = !output_;
            if (!output_) return;
        }
        feeder_.drawFrame(frame);
    }

private:
    std::function<std::unique_ptr<LVSecondOutput>()> maker_;
    std::function<bool()> wanted_;
    bool makeFailed_ = false;
    std::unique_ptr<LVSecondOutput> output_;
    // Declared last: its thread ends before the output it feeds goes.
    LVThreadedOutput feeder_;
};

} // namespace

void Lumaveil::setSecondOutputMaker(std::function<std::unique_ptr<LVSecondOutput>()> maker)
{
    outputs_.setDriver(LVOutputSlot::SecondOutput,
                       maker ? std::make_unique<SecondOutputDriver>(std::move(maker), [this] { return syphonServerEnabled_; })
                             : nullptr);
}

void Lumaveil::setSyphonServerEnabled(bool enabled)
{
    syphonServerEnabled_ = enabled;
    defaults_.setValue(QStringLiteral("syphonServerEnabled"), enabled);
}

void Lumaveil::setMirrorImagePreview(bool mirror)
{
    bMirrorImagePreview_ = mirror;
    defaults_.setValue(QStringLiteral("mirrorImagePreview"), mirror);
}

QString Lumaveil::audioOutputDevice() const
{
    return defaults_.stringForKey(QStringLiteral("audioOutputDevice"));
}

void Lumaveil::setAudioOutputDevice(const QString& device)
{
    defaults_.setValue(QStringLiteral("audioOutputDevice"), device);
    for (const auto& effect : myEffects_) effect->setAudioDevice(device);
}

void Lumaveil::applyAudioDevice(LVEffect& effect) const
{
    // Effects that play sound follow the chosen device from the moment they go live.
    const QString device = audioOutputDevice();
    if (!device.isEmpty()) effect.setAudioDevice(device);
}

QSize Lumaveil::videoSize() const
{
    const auto parsed = LVParseSizeString(defaults_.stringForKey(QStringLiteral("videoSize")));
    if (!parsed || parsed->width() < LVMinVideoDimension || parsed->height() < LVMinVideoDimension ||
        parsed->width() > LVMaxVideoDimension || parsed->height() > LVMaxVideoDimension) {
        return QSize(320, 240);
    }
    return *parsed;
}

int Lumaveil::videoSizeMenuIndex() const
{
    return LVVideoSizeMenuIndex(videoSize(), defaults_.boolForKey(QStringLiteral("usingCustomVideoSize")));
}

void Lumaveil::chooseVideoSizeItem(int index, int customWidth, int customHeight)
{
    const auto& items = LVVideoSizeMenu();
    if (index < 0 || index >= int(items.size())) return;
    const LVVideoSizeItem& item = items[size_t(index)];
    QSize size = item.size;
    if (item.isCustom()) {
        size = LVCustomVideoSize(customWidth, customHeight);
        size = size.boundedTo(QSize(LVMaxVideoDimension, LVMaxVideoDimension))
                   .expandedTo(QSize(LVMinVideoDimension, LVMinVideoDimension));
    }
    defaults_.setValue(QStringLiteral("videoSize"), LVSizeString(size));
    defaults_.setValue(QStringLiteral("usingCustomVideoSize"), item.isCustom());
}

bool Lumaveil::needsBetaNag() const
{
    return !defaults_.boolForKey(QStringLiteral("betaNag"));
}

void Lumaveil::betaNagShown()
{
    defaults_.setValue(QStringLiteral("betaNag"), true);
}

// MARK: the live chain

bool Lumaveil::firstEffectIsSource() const
{
    return !myEffects_.empty() && myEffects_.front()->isSource();
}

LVEffectRef Lumaveil::source() const
{
    return firstEffectIsSource() ? myEffects_.front() : nullptr;
}

void Lumaveil::setSource(const LVEffectRef& effect)
{
    if (!effect) return;
    if (firstEffectIsSource()) {
        if (myEffects_.front() == effect) return;
        removeAt(0);
    }
    effect->setMode(LVModeLive);
    applyAudioDevice(*effect);
    myEffects_.insert(myEffects_.begin(), effect);
    emit chainChanged();
}

void Lumaveil::addOneEffect(const LVEffectRef& effect)
{
    if (!effect) return;
    if (effect->isSource()) {
        setSource(effect);
        return;
    }
    effect->setMode(LVModeLive);
    applyAudioDevice(*effect);
    myEffects_.push_back(effect);
    emit chainChanged();
}

void Lumaveil::removeAt(int index)
{
    const LVEffectRef effect = myEffects_[size_t(index)];
    myEffects_.erase(myEffects_.begin() + index);
    effect->setMode(LVModeOff);
    if (selected_.lock() == effect) setSelectedEffect(nullptr);
}

void Lumaveil::removeEffect(const LVEffectRef& effect)
{
    const auto it = std::find(myEffects_.begin(), myEffects_.end(), effect);
    if (it == myEffects_.end()) return;
    removeAt(int(it - myEffects_.begin()));
    emit chainChanged();
}

void Lumaveil::removeOneEffect(int index)
{
    if (index < 0 || index >= int(myEffects_.size())) return;
    removeAt(index);
    emit chainChanged();
}

void Lumaveil::clearEffects(bool includingSource)
{
    const size_t kept = (!includingSource && firstEffectIsSource()) ? 1 : 0;
    if (myEffects_.size() <= kept) return;
    while (myEffects_.size() > kept) removeAt(int(kept));
    emit chainChanged();
}

void Lumaveil::doSwap(const LVEffectRef& pipEffect)
{
    auto* holder = dynamic_cast<LVOtherSourceHolder*>(pipEffect.get());
    if (!holder || !firstEffectIsSource()) return;
    const LVEffectRef oldSource = myEffects_.front();
    const LVEffectRef other = holder->getOtherEffect();
    if (other) {
        other->setMode(LVModeLive);
        myEffects_.front() = other;
    } else {
        myEffects_.erase(myEffects_.begin());
    }
    holder->setOtherEffect(oldSource);
    emit chainChanged();
    setSelectedEffect(pipEffect);
}

bool Lumaveil::setOtherSourceNamed(const LVEffectRef& holderEffect, const QString& sourceName)
{
    auto* holder = dynamic_cast<LVOtherSourceHolder*>(holderEffect.get());
    if (!holder) return false;
    LVEffectRef source;
    if (!sourceName.isEmpty() && !(source = instantiateNamedSource(sourceName))) return false;
    holder->setOtherEffect(source);
    emit chainChanged();
    return true;
}

void Lumaveil::addEffectsFrom(const std::vector<LVEffectRef>& effects, bool merge, bool ignoreSources)
{
    if (!merge) doClear();
    for (const auto& effect : effects) {
        if (!effect) continue;
        if (ignoreSources) {
            effect->setMode(LVModeOff);
        } else {
            addOneEffect(effect);
        }
    }
}

void Lumaveil::setEffectEnabled(int index, bool enabled)
{
    if (index < 0 || index >= int(myEffects_.size())) return;
    myEffects_[size_t(index)]->setEnabled(enabled);
    emit chainChanged();
}

bool Lumaveil::loadNamedSetup(const QString& name, bool merge)
{
    if (!setupCatalog_) {
        LVLog("No saved setups in this build; \"%s\" not loaded", qPrintable(name));
        return false;
    }
    auto effects = setupCatalog_->effectsOfNamedSetup(name, context_.get());
    if (!effects) return false;
    addEffectsFrom(*effects, merge, false);
    return true;
}

bool Lumaveil::loadSetupAtPath(const QString& path, bool merge)
{
    if (!setupCatalog_) {
        LVLog("No saved setups in this build; %s not loaded", qPrintable(path));
        return false;
    }
    auto effects = setupCatalog_->effectsOfSetupAtPath(path, context_.get());
    if (!effects) return false;
    addEffectsFrom(*effects, merge, false);
    return true;
}

LVEffectRef Lumaveil::instantiateNamedEffect(const QString& name) const
{
    return registry_.instantiateNamedEffect(name, context_.get());
}

LVEffectRef Lumaveil::instantiateNamedSource(const QString& name) const
{
    return registry_.instantiateNamedSource(name, context_.get());
}

bool Lumaveil::addNamedEffect(const QString& name)
{
    const LVEffectRef effect = instantiateNamedEffect(name);
    if (!effect) return false;
    addOneEffect(effect);
    return true;
}

bool Lumaveil::setNamedSource(const QString& name)
{
    const LVEffectRef effect = instantiateNamedSource(name);
    if (!effect) return false;
    setSource(effect);
    return true;
}

bool Lumaveil::acceptDrop(const QStringList& files, const std::vector<int>& draggedRows, int row)
{
    if (!files.isEmpty()) {
        const LVEffectRef effect = quickEffectFromFiles(files, row == 0);
        if (!effect) return false;
        addOneEffect(effect);
        return true;
    }
    if (draggedRows.empty()) return false;
    moveRows(draggedRows, row);
    return true;
}

void Lumaveil::moveRows(const std::vector<int>& draggedRows, int row)
{
    std::vector<int> rows;
    const bool sourceFirst = firstEffectIsSource();
    for (int r : draggedRows) {
        // The source never leaves row 0.
        if (sourceFirst && r == 0) return;
        rows.push_back(r);
    }
    // Nothing goes above the source either.
    if (sourceFirst && row < 1) row = 1;
    LVReorderRows(myEffects_, rows, row);
    emit chainChanged();
}

LVEffectRef Lumaveil::quickEffectFromFiles(const QStringList& files, bool source) const
{
    const LVDroppedFiles dropped = LVClassifyDroppedFiles(files);
    if (dropped.images.isEmpty() == dropped.movies.isEmpty()) return nullptr;
    if (!dropped.movies.isEmpty()) {
        const LVEffectRef movie = instantiateNamedSource(QStringLiteral("Movie"));
        auto* playlist = dynamic_cast<LVMoviePlaylist*>(movie.get());
        if (!playlist) return nullptr;
        for (const QString& path : dropped.movies) playlist->addMoviePathToPlayList(path);
        return movie;
    }
    if (!source && dropped.images.size() == 1) {
        const LVEffectRef overlay = instantiateNamedEffect(QStringLiteral("Image Overlay"));
        if (!overlay) return nullptr;
        overlay->setEffectProperty(QVariant(dropped.images.front()), QStringLiteral("Image"));
        return overlay;
    }
    const LVEffectRef slides = instantiateNamedSource(QStringLiteral("Slide Show"));
    auto* receiver = dynamic_cast<LVFileDropReceiver*>(slides.get());
    if (!receiver) return nullptr;
    for (const QString& path : dropped.images) receiver->addFileDrop(path);
    return slides;
}

void Lumaveil::setSelectedEffect(const LVEffectRef& effect)
{
    const bool wasPip = pipSelected();
    selected_ = effect;
    if (effect) {
        const auto it = std::find(myEffects_.begin(), myEffects_.end(), effect);
        if (it != myEffects_.end()) emit selectionRequested(int(it - myEffects_.begin()));
    }
    if (wasPip != pipSelected()) emit pipSelectedChanged(pipSelected());
}

bool Lumaveil::pipSelected() const
{
    return dynamic_cast<LVOtherSourceHolder*>(selected_.lock().get()) != nullptr;
}

bool Lumaveil::sendEvent(int key, int modifiers)
{
    if (key == Qt::Key_Escape && previewFullScreen_ && previewFullScreen_->isOnMainScreen()) {
        unSelectScreen();
        return true;
    }
    return keyDispatcher_ && keyDispatcher_->dispatchWithEvent(key, modifiers);
}

// MARK: the render loop

void Lumaveil::armTimer(double fireDate)
{
    scheduledStart_ = fireDate;
    const double wait = std::max(0.0, fireDate - clock_.now());
    lastInterval_ = int(std::lround(wait * 1000.0));
    timer_.start(lastInterval_);
}

void Lumaveil::doit()
{
    const double start = clock_.now();
    // Taken before rendering, so the period never stretches by the render time.
    const double fireDate = start + 1.0 / double(float(frameRate_));
    // The first frame waits for the event loop to start; its delay says nothing about the timer.
    if (framesRendered_ > 0 && lateness_.size() < kMaxLatenessSamples) {
        lateness_.push_back(float((start - scheduledStart_) * 1000.0));
    }
    renderFrame();
    timer_.stop();
    if (options_.startTimer) armTimer(fireDate);
}

void Lumaveil::renderFrame()
{
    KDDelayedDispatcher::flush();
    context_->setFrameTime(clock_.absoluteTime());
    doLiveChain();
}

void Lumaveil::doLiveChain()
{
    const double frameStart = clock_.now();
    // Only in a frame picked to find a slow effect: finishing the GPU work per effect costs.
    const bool timeEffects = timeEffectsNextFrame_;
    timeEffectsNextFrame_ = false;
    std::vector<std::pair<LVEffectRef, double>> effectSeconds;
    if (studio_) studio_->doit();
    context_->reset(false, LVChainOverwritesFrame(myEffects_));
    context_->setIsForPreview(false);
    {
        const LVChainAreas areas(myEffects_, QSize(context_->width(), context_->height()));
        for (size_t i = 0; i < myEffects_.size(); ++i) {
            const LVEffectRef effect = myEffects_[i];
            if (effect->isEnabled()) effect->preDoit();
        }
        // The size is read again each time: elements added during the pass run too.
        for (size_t i = 0; i < myEffects_.size(); ++i) {
            const LVEffectRef effect = myEffects_[i];
            if (!effect->isEnabled()) continue;
            const double effectStart = timeEffects ? clock_.now() : 0;
            effect->doit();
            context_->flush();
            if (timeEffects) {
                glFinish();
                effectSeconds.emplace_back(effect, clock_.now() - effectStart);
            }
        }
        // What the last effect left pending is drawn whole, by whoever reads the frame.
    }
    if (studio_) studio_->applyTransition();
    outputs_.drawFrame(*context_);
    const double renderSeconds = clock_.now() - frameStart;
    renderSecondsTotal_ += renderSeconds;
    watchFrameTime(renderSeconds, effectSeconds);
    noteFrameDone();
}

void Lumaveil::watchFrameTime(double seconds, const std::vector<std::pair<LVEffectRef, double>>& effectSeconds)
{
    const double period = 1.0 / double(frameRate_);
    const double now = clock_.now();
    if (!effectSeconds.empty()) {
        const auto slowest = std::max_element(effectSeconds.begin(), effectSeconds.end(),
                                              [](const auto& a, const auto& b) { return a.second < b.second; });
        const LVEffectRef& effect = slowest->first;
        const bool warned = std::any_of(warnedSlow_.begin(), warnedSlow_.end(),
                                        [&](const std::weak_ptr<LVEffect>& w) { return w.lock() == effect; });
        if (slowest->second > kSlowFrameFactor * period && !warned) {
            warnedSlow_.push_back(effect);
            LVLog("Effect \"%s\" takes %.0f ms a frame, far over the %.0f ms a frame has at %d fps",
                  qPrintable(effect->displayName()), slowest->second * 1000.0, period * 1000.0, frameRate_);
            emit slowEffect(effect, slowest->second);
        }
        slowSince_ = -1;
        return;
    }
    if (seconds <= kSlowFrameFactor * period) {
        slowSince_ = -1;
    } else if (slowSince_ < 0) {
        slowSince_ = now;
    } else if (now - slowSince_ >= kSlowFramesForSeconds) {
        timeEffectsNextFrame_ = true;
        slowSince_ = -1;
    }
}

void Lumaveil::noteFrameDone()
{
    ++framesRendered_;
    ++fpsWindowFrames_;
    const double now = clock_.now();
    if (fpsWindowStart_ == 0) fpsWindowStart_ = now;
    const double elapsed = now - fpsWindowStart_;
    if (elapsed >= 1.0) {
        measuredFps_ = double(fpsWindowFrames_) / elapsed;
        fpsWindowStart_ = now;
        fpsWindowFrames_ = 0;
        emit fpsChanged(measuredFps_);
    }
    emit frameRendered(framesRendered_);
}
