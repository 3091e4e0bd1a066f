#include "sources/webcam/LVCamGrabber.h"

#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "core/util/LVLog.h"
#include "render/LVContext.h"
#include "render/LVGLContext.h"
#include "sources/webcam/LVCamConverter.h"
#include "sources/webcam/LVCamGstProvider.h"
#include "sources/webcam/LVCamTestProvider.h"


#include <QCoreApplication>
#include <QSet>
#include <QThread>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>

#include <chrono>

namespace {

struct Registry {
    std::unique_ptr<LVCamDeviceProvider> provider;
    std::vector<LVCamGrabber::Ref> all;     // every grabber made, in listing order
    std::vector<LVCamGrabber::Ref> present; // the ones whose camera is plugged in
    bool built = false;
    uint64_t generation = 0;
    QMetaObject::Connection frameRateObserver;
    bool postRoutine = false;
};

Registry& registry()
{
    static Registry r;
    return r;
}

int64_t steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::atomic<int64_t (*)()> gDelayClock{&steadyNs};

// What the lost-picture hold and the retry interval are measured by.
int64_t nowNs()
{
    return gDelayClock.load()();
}

// The render loop's rate, which a launch may set for one run; the stored preference otherwise.
int32_t appFrameRate()
{
    if (const Lumaveil* app = Lumaveil::instance()) return app->frameRate();
    return LVDefaults::standardUserDefaults().valueForKey(QStringLiteral("frameRate")).toInt(15);
}

std::unique_ptr<LVCamDeviceProvider> defaultProvider()
{
    const QString fakes = qEnvironmentVariable("LUMAVEIL_TEST_CAMERAS");
    if (!fakes.isEmpty()) {
        QString error;
        if (auto provider = LVCamTestProvider::fromDescription(fakes, &error)) return provider;
        LVLog("LUMAVEIL_TEST_CAMERAS: %s", qPrintable(error));
    }
    return std::make_unique<LVCamGstProvider>();
}

const QString kDeviceSettings = QStringLiteral("deviceSettings");
const QString kForceResolution = QStringLiteral("forceResolution");
constexpr int64_t kMs = 1000000;
constexpr guint64 kPullTimeoutNs = 100 * kMs;

// Ties a pipeline's bus to its grabber and to the pipeline's generation, so messages from a
// pipeline that has been replaced are ignored.
struct BusCookie {
    LVCamGrabber* grabber;
    uint64_t generation;
};

} // namespace

// Device list

const std::vector<LVCamGrabber::Ref>& LVCamGrabber::deviceList()
{
    Registry& r = registry();
    if (r.built) return r.present;
    r.built = true;
    if (!r.provider) r.provider = defaultProvider();
    r.all.reserve(1);
    for (const LVCamDeviceRef& device : r.provider->devices()) _addToDevice(device, r.all);
    r.present = r.all;
    r.provider->setChangeHandler([] {
        // Device changes arrive on GStreamer's threads; the list belongs to the main thread.
        QCoreApplication* app = QCoreApplication::instance();
        if (app && QThread::currentThread() != app->thread())
            QMetaObject::invokeMethod(app, &LVCamGrabber::_devicesChanged, Qt::QueuedConnection);
        else
            _devicesChanged();
    });
    r.frameRateObserver =
        QObject::connect(&LVDefaults::standardUserDefaults(), &LVDefaults::valueChanged, [](const QString& key) {
            if (key != QLatin1String("frameRate")) return;
            for (const Ref& grabber : registry().all) grabber->frameRateChanged();
        });
    if (!r.postRoutine && QCoreApplication::instance()) {
        qAddPostRoutine(&LVCamGrabber::shutdown);
        r.postRoutine = true;
    }
    return r.present;
}

void LVCamGrabber::setDeviceProvider(std::unique_ptr<LVCamDeviceProvider> provider)
{
    releaseDeviceList();
    registry().provider = std::move(provider);
}

uint64_t LVCamGrabber::listGeneration()
{
    return registry().generation;
}

LVCamDeviceProvider* LVCamGrabber::deviceProvider()
{
    return registry().provider.get();
}

void LVCamGrabber::releaseDeviceList()
{
    Registry& r = registry();
    if (r.provider) r.provider->setChangeHandler(nullptr);
    QObject::disconnect(r.frameRateObserver);
    r.present.clear();
    // Sources may still hold grabbers; those stop when their last holder lets go.
    r.all.clear();
    r.built = false;
    ++r.generation;
}

void LVCamGrabber::setDelayClock(int64_t (*nowNs)())
{
    gDelayClock = nowNs ? nowNs : &steadyNs;
}

void LVCamGrabber::shutdown()
{
    setDeviceProvider(nullptr);
}

void LVCamGrabber::_addToDevice(const LVCamDeviceRef& device, std::vector<Ref>& list)
{
    const QString name = device->localizedName();
    LVLog("Found device %s", qPrintable(name));
    // Our own virtual camera: capturing it would feed the output back into itself.
    if (name == QLatin1String("Lumaveil")) return;
    QStringList formats;
    for (const LVCamFormat& f : device->formats()) formats << f.description();
    LVLog("Formats (%s)", qPrintable(formats.join(QStringLiteral(", "))));
    QStringList names;
    for (const Ref& g : list) names << g->deviceName();
    list.push_back(std::make_shared<LVCamGrabber>(device, LVCamDisplayName(name, names)));
}

void LVCamGrabber::_devicesChanged()
{
    Registry& r = registry();
    if (!r.built || !r.provider) return;
    QSet<QString> ids;
    for (const LVCamDeviceRef& device : r.provider->devices()) {
        ids.insert(device->uniqueID());
        auto known = std::find_if(r.all.begin(), r.all.end(),
                                  [&](const Ref& g) { return g->uniqueID() == device->uniqueID(); });
        if (known == r.all.end()) _addToDevice(device, r.all);
        else if (!(*known)->present_) (*known)->deviceReturned(device);
    }
    r.present.clear();
    for (const Ref& g : r.all) {
        if (g->present_ && !ids.contains(g->uniqueID())) g->deviceRemoved();
        if (g->present_) r.present.push_back(g);
    }
    ++r.generation;
}

void LVCamGrabber::persistPrefs()
{
    LVDefaults& defaults = LVDefaults::standardUserDefaults();
    // Settings of cameras not plugged in this time are kept.
    QJsonObject settings = defaults.dictionaryForKey(kDeviceSettings);
    for (const Ref& g : registry().all) settings.insert(g->uniqueID(), g->prefsDict());
    defaults.setValue(kDeviceSettings, settings);
}

// Grabber

LVCamGrabber::LVCamGrabber(LVCamDeviceRef device, QString displayName)
    : uniqueID_(device->uniqueID()), deviceName_(device->localizedName()), displayName_(std::move(displayName)),
      device_(std::move(device))
{
    LVCamInitGStreamer();
    const QJsonObject forced = LVDefaults::standardUserDefaults()
                                   .dictionaryForKey(kDeviceSettings)
                                   .value(uniqueID_)
                                   .toObject()
                                   .value(kForceResolution)
                                   .toObject();
    if (forced.contains(QStringLiteral("width")) && forced.contains(QStringLiteral("height")))
        forceResolution_ = QSize(forced.value(QStringLiteral("width")).toInt(), forced.value(QStringLiteral("height")).toInt());
    queue_ = std::thread([this] { run(); });
}

LVCamGrabber::~LVCamGrabber()
{
    LVLog("LVCamGrabber dealloc!");
    stop();
    buffmtx.lock();
    quit_ = true;
    buffmtx.notify();
    buffmtx.unlock();
    queue_.join();
}

std::vector<LVCamResolution> LVCamGrabber::resolutions() const
{
    std::vector<LVCamResolution> list;
    buffmtx.lock();
    LVCamDeviceRef device = device_;
    buffmtx.unlock();
    for (const LVCamFormat& f : device->formats())
        list.push_back({f.width, f.height, QStringLiteral("%1x%2").arg(f.width).arg(f.height)});
    return list;
}

void LVCamGrabber::setForceResolution(std::optional<QSize> size)
{
    forceResolution_ = size;
    dealWithGettingFrames();
    persistPrefs();
}

QJsonObject LVCamGrabber::prefsDict() const
{
    QJsonObject dict;
    if (forceResolution_) {
        dict.insert(kForceResolution, QJsonObject{{QStringLiteral("width"), forceResolution_->width()},
                                                  {QStringLiteral("height"), forceResolution_->height()}});
    }
    return dict;
}

void LVCamGrabber::start()
{
    if (refCnt_++ != 0 || sessionWanted_) return;
    if (!acquireChannel()) return;
    post([this] {
        wantRunning_ = true;
        if (!pipeline_) buildPipeline();
    });
}

void LVCamGrabber::stop()
{
    if (refCnt_ == 0) return;
    if (--refCnt_ != 0) return;
    if (LVDefaults::standardUserDefaults().valueForKey(QStringLiteral("keepCamsWarm")).toBool(false)) return;
    releaseChannel();
}

bool LVCamGrabber::acquireChannel()
{
    if (sessionWanted_) return true;
    sessionWanted_ = true;
    return dealWithGettingFrames();
}

void LVCamGrabber::releaseChannel()
{
    if (!sessionWanted_) return;
    sessionWanted_ = false;
    post([this] {
        wantRunning_ = false;
        retryAtNs_ = 0;
        lostSinceNs_ = 0;
        teardownPipeline();
    });
}

bool LVCamGrabber::dealWithGettingFrames()
{
    if (!sessionWanted_) return false;
    Config config;
    config.width = forceResolution_ ? forceResolution_->width() : LVGetWidth();
    config.height = forceResolution_ ? forceResolution_->height() : LVGetHeight();
    config.frameRate = appFrameRate();
    post([this, config] { configureTask(config); });
    return true;
}

void LVCamGrabber::frameRateChanged()
{
    dealWithGettingFrames();
}

std::shared_ptr<const LVCamPicture> LVCamGrabber::last()
{
    buffmtx.lock();
    if (!bNeedFrame) {
        bNeedFrame = true;
        tasks_.push_back([this] { renderJob(); });
        buffmtx.notify();
    }
    std::shared_ptr<const LVCamPicture> picture = last_;
    buffmtx.unlock();
    return picture;
}

QString LVCamGrabber::activeFormat() const
{
    buffmtx.lock();
    QString format = activeFormat_;
    buffmtx.unlock();
    return format;
}

void LVCamGrabber::deviceRemoved()
{
    present_ = false;
    post([this] {
        devicePresent_ = false;
        retryAtNs_ = 0;
        if (!pipeline_ && !wantRunning_) return;
        teardownPipeline();
        handleLoss(QStringLiteral("the camera was unplugged"));
    });
}

void LVCamGrabber::deviceReturned(LVCamDeviceRef device)
{
    present_ = true;
    LVLog("Camera \"%s\" is back", qPrintable(displayName_));
    buffmtx.lock();
    device_ = std::move(device);
    buffmtx.unlock();
    post([this] {
        devicePresent_ = true;
        lastFailure_.clear();
        if (!wantRunning_) return;
        choose();
        buildPipeline();
    });
}

// The grabber's queue

void LVCamGrabber::post(std::function<void()> task)
{
    buffmtx.lock();
    tasks_.push_back(std::move(task));
    buffmtx.notify();
    buffmtx.unlock();
}

void LVCamGrabber::run()
{
    buffmtx.lock();
    for (;;) {
        if (!tasks_.empty()) {
            std::function<void()> task = std::move(tasks_.front());
            tasks_.pop_front();
            buffmtx.unlock();
            task();
            buffmtx.lock();
            continue;
        }
        if (quit_) break;
        if (retryAtNs_ == 0) {
            buffmtx.wait();
            continue;
        }
        const int64_t wait = retryAtNs_ - nowNs();
        if (wait <= 0) {
            retryAtNs_ = 0;
            buffmtx.unlock();
            if (wantRunning_ && devicePresent_ && !pipeline_) buildPipeline();
            buffmtx.lock();
            continue;
        }
        const auto deadline = std::chrono::system_clock::now() + std::chrono::nanoseconds(wait);
        const auto us = std::chrono::duration_cast<std::chrono::microseconds>(deadline.time_since_epoch()).count();
        buffmtx.timedWaitSecs(long(us / 1000000), long(us % 1000000));
    }
    std::shared_ptr<const LVCamPicture> dropped = std::move(last_);
    buffmtx.unlock();
    teardownPipeline();
    dropped.reset();
    if (oglCtx_) {
        oglCtx_->makeCurrent();
        converter_.reset();
        oglCtx_->doneCurrent();
        oglCtx_.reset();
    }
}

bool LVCamGrabber::ensureGL()
{
    if (converter_) return true;
    if (glFailed_) return false;
    QString error;
    oglCtx_ = LVGLContext::makeOffscreenGLContext(&error);
    if (oglCtx_) {
        oglCtx_->makeCurrent();
        converter_ = LVCamConverter::create();
    } else {
        LVLog("%s", qPrintable(error));
    }
    glFailed_ = !converter_;
    return converter_ != nullptr;
}

void LVCamGrabber::renderJob()
{
    buffmtx.lock();
    const bool wanted = bNeedFrame;
    bNeedFrame = false;
    buffmtx.unlock();
    if (!wanted || !ensureGL()) return;

    if (!appsink_) {
        // A lost camera: its last picture stays a moment, then the source turns black.
        if (lostSinceNs_ == 0 || nowNs() - lostSinceNs_ < kLostPictureHoldMs * kMs) return;
        buffmtx.lock();
        std::shared_ptr<const LVCamPicture> current = last_;
        buffmtx.unlock();
        if (!current || current->isBlack()) return;
        std::shared_ptr<const LVCamPicture> black = converter_->black(current->width(), current->height());
        buffmtx.lock();
        last_ = std::move(black);
        buffmtx.unlock();
        return;
    }

    GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(appsink_), kPullTimeoutNs);
    if (!sample) return;
    GstVideoInfo info;
    GstBuffer* buffer = gst_sample_get_buffer(sample);
    std::shared_ptr<const LVCamPicture> picture;
    if (buffer && gst_video_info_from_caps(&info, gst_sample_get_caps(sample))) {
        int64_t captured = steadyNs();
        const GstClockTime base = gst_element_get_base_time(pipeline_);
        // Live sources stamp buffers with the running time at capture; the pipeline clock is
        // the monotonic system clock, the same as the steady clock.
        if (GST_BUFFER_PTS_IS_VALID(buffer) && GST_CLOCK_TIME_IS_VALID(base)) captured = int64_t(base + GST_BUFFER_PTS(buffer));
        GstVideoFrame frame;
        if (gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) {
            picture = converter_->convert(frame, captured);
            gst_video_frame_unmap(&frame);
        }
    }
    gst_sample_unref(sample);
    if (!picture) return;
    lostSinceNs_ = 0;
    lastFailure_.clear();
    buffmtx.lock();
    last_ = std::move(picture);
    buffmtx.unlock();
}

void LVCamGrabber::choose()
{
    buffmtx.lock();
    LVCamDeviceRef device = device_;
    buffmtx.unlock();
    const std::vector<LVCamFormat> formats = device->formats();
    const int best = LVCamChooseFormat(formats, config_.width, config_.height);
    if (best < 0) {
        caps_.clear();
        jpeg_ = false;
        return;
    }
    const LVCamTime duration = LVCamChooseFrameDuration(formats[size_t(best)].rates, config_.frameRate);
    LVLog("Selected framerate of %f",
          double(duration.value != 0 ? float(duration.timescale) / float(duration.value) : 0.0f));
    GstCaps* caps = formats[size_t(best)].caps(duration);
    gchar* text = gst_caps_to_string(caps);
    caps_ = QString::fromUtf8(text);
    g_free(text);
    gst_caps_unref(caps);
    jpeg_ = formats[size_t(best)].pixelFormat == QLatin1String("MJPG");
}

void LVCamGrabber::configureTask(Config config)
{
    config_ = config;
    const QString before = caps_;
    choose();
    // A running pipeline is rebuilt for a new format; one that is lost picks it up when it returns.
    if (pipeline_ && caps_ != before) {
        teardownPipeline();
        buildPipeline();
    }
}

void LVCamGrabber::buildPipeline()
{
    if (startPipeline(caps_) != Start::Refused || caps_.isEmpty()) return;
    // The device refused the chosen format: run with what it gives.
    LVLog("Unable to get lock for video device");
    startPipeline(QString());
}

LVCamGrabber::Start LVCamGrabber::startPipeline(const QString& capsText)
{
    buffmtx.lock();
    LVCamDeviceRef device = device_;
    failureText_.clear();
    buffmtx.unlock();
    QString error;
    GstElement* source = device->createElement(&error);
    if (!source) {
        handleLoss(error);
        return Start::Failed;
    }
    const QByteArray name = displayName_.toUtf8();
    GstElement* pipeline = gst_pipeline_new(name.constData());
    GstElement* filter = gst_element_factory_make("capsfilter", nullptr);
    GstElement* decoder = jpeg_ && !capsText.isEmpty() ? gst_element_factory_make("jpegdec", nullptr) : nullptr;
    GstElement* convert = gst_element_factory_make("videoconvert", nullptr);
    GstElement* sink = gst_element_factory_make("appsink", nullptr);
    if (!filter || !convert || !sink || (jpeg_ && !capsText.isEmpty() && !decoder)) {
        for (GstElement* e : {source, filter, decoder, convert, sink}) {
            if (e) gst_object_unref(gst_object_ref_sink(e));
        }
        gst_object_unref(pipeline);
        handleLoss(QStringLiteral("gst_element_factory_make: capsfilter, jpegdec, videoconvert or appsink is missing"));
        return Start::Failed;
    }
    GstCaps* caps = capsText.isEmpty() ? gst_caps_from_string("video/x-raw") : gst_caps_from_string(capsText.toUtf8().constData());
    g_object_set(filter, "caps", caps, nullptr);
    gst_caps_unref(caps);
    GstCaps* sinkCaps = gst_caps_from_string(LVCamConverter::sinkCaps());
    // One picture waits at most; older ones are dropped, so nothing queues up behind a slow loop.
    g_object_set(sink, "caps", sinkCaps, "max-buffers", 1u, "drop", TRUE, "sync", FALSE, "enable-last-sample", FALSE,
                 "wait-on-eos", FALSE, nullptr);
    gst_caps_unref(sinkCaps);
    gst_bin_add_many(GST_BIN(pipeline), source, filter, convert, sink, nullptr);
    bool linked;
    if (decoder) {
        gst_bin_add(GST_BIN(pipeline), decoder);
        linked = gst_element_link_many(source, filter, decoder, convert, sink, nullptr);
    } else {
        linked = gst_element_link_many(source, filter, convert, sink, nullptr);
    }
    if (!linked) {
        gst_object_unref(pipeline);
        if (!capsText.isEmpty()) return Start::Refused;
        handleLoss(QStringLiteral("gst_element_link_many: the camera cannot give %1").arg(capsText));
        return Start::Failed;
    }
    const uint64_t generation = ++generation_;
    GstBus* bus = gst_pipeline_get_bus(GST_PIPELINE(pipeline));
    gst_bus_set_sync_handler(bus, reinterpret_cast<GstBusSyncHandler>(&LVCamGrabber::busSyncHandler),
                             new BusCookie{this, generation}, [](gpointer p) { delete static_cast<BusCookie*>(p); });
    gst_object_unref(bus);
    pipeline_ = pipeline;
    appsink_ = sink;
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        buffmtx.lock();
        QString text = failureText_;
        buffmtx.unlock();
        teardownPipeline();
        if (!capsText.isEmpty()) return Start::Refused;
        handleLoss(text.isEmpty() ? QStringLiteral("gst_element_set_state(PLAYING) failed") : text);
        return Start::Failed;
    }
    activeCaps_ = capsText;
    const QString format = capsText.isEmpty() ? QStringLiteral("video/x-raw") : capsText;
    buffmtx.lock();
    activeFormat_ = format;
    buffmtx.unlock();
    LVLog("%s", qPrintable(format));
    return Start::Started;
}

void LVCamGrabber::teardownPipeline()
{
    if (!pipeline_) return;
    ++generation_;
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
    pipeline_ = nullptr;
    appsink_ = nullptr;
    activeCaps_.clear();
    buffmtx.lock();
    activeFormat_.clear();
    buffmtx.unlock();
}

void LVCamGrabber::pipelineFailed(uint64_t generation, const QString& text, bool refused)
{
    if (generation != generation_) return;
    const bool constrained = !activeCaps_.isEmpty();
    teardownPipeline();
    if (refused && constrained) {
        // The device would not give the chosen format: run with what it gives.
        LVLog("Unable to get lock for video device");
        if (startPipeline(QString()) == Start::Started) return;
    }
    handleLoss(text);
}

void LVCamGrabber::handleLoss(const QString& text)
{
    // Logged once per cause, not at every retry.
    if (text != lastFailure_) LVLog("Camera \"%s\" stopped: %s", qPrintable(displayName_), qPrintable(text));
    lastFailure_ = text;
    if (lostSinceNs_ == 0) lostSinceNs_ = nowNs();
    if (wantRunning_ && devicePresent_) retryAtNs_ = nowNs() + kRetryIntervalMs * kMs;
}

int LVCamGrabber::busSyncHandler(GstBus*, GstMessage* message, void* data)
{
    const auto* cookie = static_cast<const BusCookie*>(data);
    LVCamGrabber* self = cookie->grabber;
    const uint64_t generation = cookie->generation;
    QString text;
    bool refused = false;
    if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        text = QString::fromUtf8(error ? error->message : "unknown error");
        const GstStructure* details = nullptr;
        gst_message_parse_error_details(message, &details);
        gint flow = GST_FLOW_OK;
        if (details) gst_structure_get_int(details, "flow-return", &flow);
        refused = flow == GST_FLOW_NOT_NEGOTIATED ||
                  (error && ((error->domain == GST_STREAM_ERROR && error->code == GST_STREAM_ERROR_FORMAT) ||
                             (error->domain == GST_CORE_ERROR && error->code == GST_CORE_ERROR_NEGOTIATION)));
        g_clear_error(&error);
    } else if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) {
        text = QStringLiteral("the camera stopped sending pictures");
    } else {
        return GST_BUS_DROP;
    }
    self->buffmtx.lock();
    self->failureText_ = text;
    self->tasks_.push_back([self, generation, text, refused] { self->pipelineFailed(generation, text, refused); });
    self->buffmtx.notify();
    self->buffmtx.unlock();
    return GST_BUS_DROP;
}
