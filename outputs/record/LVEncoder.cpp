#include "outputs/record/LVEncoder.h"

#include "core/util/LVLog.h"

#include <gst/app/gstappsrc.h>
#include <gst/gst.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace {

// Containers count time in milliseconds or coarser; frames closer than this would share a time.
constexpr double kShortestFrameSeconds = 0.002;

double steadySeconds()
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

QString errorText(GstMessage* message)
{
    GError* error = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    QString text = QString::fromUtf8(error ? error->message : "unknown error");
    if (GST_MESSAGE_SRC(message)) text = QStringLiteral("%1: %2").arg(QString::fromUtf8(GST_OBJECT_NAME(GST_MESSAGE_SRC(message))), text);
    g_clear_error(&error);
    g_free(debug);
    return text;
}

// The first error waiting on the bus, or a general text.
QString pendingError(GstElement* pipeline, const char* fallback)
{
    GstBus* bus = gst_element_get_bus(pipeline);
    GstMessage* message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR);
    QString text = message ? errorText(message) : QString::fromUtf8(fallback);
    if (message) gst_message_unref(message);
    gst_object_unref(bus);
    return text;
}

void releasePixels(gpointer data)
{
    delete static_cast<LVFramePixelsRef*>(data);
}

} // namespace

QString LVEncoderStateName(LVEncoderState state)
{
    switch (state) {
    case LVEncoderState::Stopped: return QStringLiteral("stopped");
    case LVEncoderState::Starting: return QStringLiteral("starting");
    case LVEncoderState::Running: return QStringLiteral("running");
    case LVEncoderState::Reconnecting: return QStringLiteral("reconnecting");
    case LVEncoderState::Stopping: return QStringLiteral("stopping");
    case LVEncoderState::Failed: return QStringLiteral("failed");
    }
    return QStringLiteral("stopped");
}

LVEncoder::LVEncoder(LVEncodeSettings settings, Options options, Observer observer)
    : settings_(std::move(settings)), options_(options), observer_(std::move(observer)),
      encodedBytes_(std::make_shared<std::atomic<uint64_t>>(0))
{
}

LVEncoder::~LVEncoder()
{
    stop();
    if (thread_.joinable()) thread_.join();
    if (fileDescriptor_ >= 0) ::close(fileDescriptor_);
}

bool LVEncoder::start(QString* error)
{
    if (thread_.joinable()) {
        *error = QStringLiteral("already started");
        return false;
    }
    if (!gst_is_initialized()) gst_init(nullptr, nullptr);
    description_ = LVEncodePipelineDescription(settings_, LVAvailableVideoEncoder(), error);
    if (description_.isEmpty()) return false;
    if (settings_.kind == LVEncodeKind::File) {
        const QByteArray path = settings_.location.toLocal8Bit();
        fileDescriptor_ = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fileDescriptor_ < 0) {
            *error = QStringLiteral("cannot make %1: %2").arg(settings_.location, QString::fromLocal8Bit(std::strerror(errno)));
            return false;
        }
    }
    {
        std::lock_guard lock(mutex_);
        status_.state = LVEncoderState::Starting;
    }
    thread_ = std::thread([this] { run(); });
    return true;
}

void LVEncoder::stop()
{
    {
        std::lock_guard lock(mutex_);
        stopRequested_ = true;
    }
    wake_.notify_all();
}

bool LVEncoder::isFinished() const
{
    std::lock_guard lock(mutex_);
    return finished_;
}

bool LVEncoder::waitFinished(double seconds)
{
    std::unique_lock lock(mutex_);
    return wake_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return finished_; });
}

void LVEncoder::pushFrame(const LVFramePixelsRef& pixels, double frameTime)
{
    std::lock_guard lock(mutex_);
    if (!appsrc_ || !pixels || pixels->width != settings_.width || pixels->height != settings_.height ||
        pixels->stride != pixels->width * 4) {
        ++status_.framesDropped;
        return;
    }
    const bool behind = gst_app_src_get_current_level_buffers(appsrc_) >= guint64(options_.queueFrames);
    status_.congested = behind;
    if (behind) {
        ++status_.framesDropped;
        return;
    }
    const double frameSeconds = 1.0 / double(settings_.frameRate);
    if (!haveFirstFrame_) {
        // The first frame starts at the pipeline's running time, so live sound lines up.
        haveFirstFrame_ = true;
        firstFrameTime_ = frameTime;
        // Until the pipeline reaches PLAYING it has no base time: the first frame is then at 0.
        const GstClockTime base = gst_element_get_base_time(pipeline_);
        const GstClockTime now = gst_clock_get_time(clock_);
        firstRunningTime_ = base > 0 && now > base ? double(now - base) / double(GST_SECOND) : 0;
    }
    double pts = firstRunningTime_ + (frameTime - firstFrameTime_);
    if (pts <= lastPts_) {
        // The frame clock went back (a wall-clock step): carry on from the last frame.
        pts = lastPts_ + frameSeconds;
        firstFrameTime_ = frameTime - (pts - firstRunningTime_);
    } else if (pts < lastPts_ + kShortestFrameSeconds) {
        // Two frames at nearly one time (the loop catching up): containers want them apart.
        pts = lastPts_ + kShortestFrameSeconds;
    }
    lastPts_ = pts;
    const size_t size = pixels->bytes.size();
    GstBuffer* buffer =
        gst_buffer_new_wrapped_full(GST_MEMORY_FLAG_READONLY, const_cast<uint8_t*>(pixels->bytes.data()), size, 0, size,
                                    new LVFramePixelsRef(pixels), releasePixels);
    GST_BUFFER_PTS(buffer) = GstClockTime(pts * double(GST_SECOND));
    GST_BUFFER_DURATION(buffer) = GstClockTime(frameSeconds * double(GST_SECOND));
    if (gst_app_src_push_buffer(appsrc_, buffer) == GST_FLOW_OK) {
        ++status_.framesSent;
    } else {
        ++status_.framesDropped;
    }
}

LVEncoderStatus LVEncoder::status() const
{
    std::lock_guard lock(mutex_);
    LVEncoderStatus status = status_;
    status.bytesEncoded = encodedBytes_->load();
    const double now = steadySeconds();
    if (firstStart_ >= 0) status.secondsActive = now - firstStart_;
    if (status.state == LVEncoderState::Reconnecting) status.retryInSeconds = std::max(0.0, retryAt_ - now);
    return status;
}

void LVEncoder::setState(LVEncoderState state, const QString& problem)
{
    {
        std::lock_guard lock(mutex_);
        if (status_.state == state && problem.isEmpty()) return;
        status_.state = state;
        if (!problem.isEmpty()) status_.problem = problem;
    }
    if (observer_) observer_();
}

void LVEncoder::run()
{
    int attempt = 0;
    for (;;) {
        QString problem;
        const double started = steadySeconds();
        if (runPipeline(&problem)) break;
        problem = LVRedacted(settings_, problem);
        const QString where = LVRedactedLocation(settings_);
        if (settings_.kind == LVEncodeKind::File) {
            LVLog("Recording to %s failed: %s", qPrintable(where), qPrintable(problem));
            setState(LVEncoderState::Failed, problem);
            break;
        }
        // A connection that held a while starts its delays over.
        if (steadySeconds() - started > options_.longestRetrySeconds) attempt = 0;
        const double delay = std::min(options_.longestRetrySeconds, options_.firstRetrySeconds * std::pow(2.0, attempt));
        ++attempt;
        LVLog("Stream to %s lost: %s; trying again in %.1f s", qPrintable(where), qPrintable(problem), delay);
        {
            std::lock_guard lock(mutex_);
            ++status_.reconnects;
            retryAt_ = steadySeconds() + delay;
        }
        setState(LVEncoderState::Reconnecting, problem);
        std::unique_lock lock(mutex_);
        if (wake_.wait_for(lock, std::chrono::duration<double>(delay), [this] { return stopRequested_; })) break;
    }
    {
        std::lock_guard lock(mutex_);
        if (fileDescriptor_ >= 0) {
            // The file is complete on disk before anyone is told it stopped.
            ::fsync(fileDescriptor_);
            ::close(fileDescriptor_);
            fileDescriptor_ = -1;
        }
        if (status_.state != LVEncoderState::Failed) status_.state = LVEncoderState::Stopped;
        status_.congested = false;
        finished_ = true;
    }
    wake_.notify_all();
    if (observer_) observer_();
}

GstElement* LVEncoder::buildPipeline(QString* problem)
{
    GError* error = nullptr;
    GstElement* pipeline = gst_parse_launch(description_.toUtf8().constData(), &error);
    if (error) {
        *problem = QString::fromUtf8(error->message);
        g_clear_error(&error);
        if (pipeline) gst_object_unref(pipeline);
        return nullptr;
    }
    // Frames are stamped by the system clock, so the pipeline runs on it, whatever a sound
    // source would offer.
    GstClock* systemClock = gst_system_clock_obtain();
    gst_pipeline_use_clock(GST_PIPELINE(pipeline), systemClock);
    gst_object_unref(systemClock);
    const auto element = [pipeline](const char* name) { return gst_bin_get_by_name(GST_BIN(pipeline), name); };
    if (GstElement* sink = element("sink")) {
        switch (settings_.kind) {
        case LVEncodeKind::File: g_object_set(sink, "fd", fileDescriptor_, nullptr); break;
        case LVEncodeKind::Rtmp: {
            const QByteArray location = (settings_.location + QLatin1Char('/') + settings_.secret).toUtf8();
            g_object_set(sink, "location", location.constData(), nullptr);
            break;
        }
        case LVEncodeKind::Srt: {
            QString uri = settings_.location;
            const bool listen = uri.startsWith(QStringLiteral("srt://:"));
            uri += (uri.contains(QLatin1Char('?')) ? QStringLiteral("&mode=") : QStringLiteral("?mode=")) +
                   (listen ? QStringLiteral("listener") : QStringLiteral("caller"));
            g_object_set(sink, "uri", uri.toUtf8().constData(), nullptr);
            if (!settings_.secret.isEmpty()) g_object_set(sink, "passphrase", settings_.secret.toUtf8().constData(), nullptr);
            break;
        }
        case LVEncodeKind::Hls: break;
        }
        gst_object_unref(sink);
    }
    if (GstElement* hls = element("hls")) {
        const QByteArray segments = (settings_.location + QStringLiteral("/segment%05d.ts")).toUtf8();
        const QByteArray playlist = (settings_.location + QStringLiteral("/playlist.m3u8")).toUtf8();
        g_object_set(hls, "location", segments.constData(), "playlist-location", playlist.constData(), nullptr);
        gst_object_unref(hls);
    }
    if (GstElement* audio = element("audio")) {
        const QString input = settings_.audioInput;
        if (input != QStringLiteral("test") && input != QStringLiteral("default")) {
            g_object_set(audio, "device", input.toUtf8().constData(), nullptr);
        }
        gst_object_unref(audio);
    }
    if (GstElement* encoder = element("encoder")) {
        GstPad* pad = gst_element_get_static_pad(encoder, "src");
        auto* counter = new std::shared_ptr<std::atomic<uint64_t>>(encodedBytes_);
        gst_pad_add_probe(
            pad, GST_PAD_PROBE_TYPE_BUFFER,
            [](GstPad*, GstPadProbeInfo* info, gpointer data) {
                auto& bytes = *static_cast<std::shared_ptr<std::atomic<uint64_t>>*>(data);
                if (GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info)) *bytes += gst_buffer_get_size(buffer);
                return GST_PAD_PROBE_OK;
            },
            counter, [](gpointer data) { delete static_cast<std::shared_ptr<std::atomic<uint64_t>>*>(data); });
        gst_object_unref(pad);
        gst_object_unref(encoder);
    }
    return pipeline;
}

void LVEncoder::publish(GstElement* pipeline)
{
    GstElement* source = gst_bin_get_by_name(GST_BIN(pipeline), "video");
    std::lock_guard lock(mutex_);
    appsrc_ = GST_APP_SRC(source);
    pipeline_ = GST_ELEMENT(gst_object_ref(pipeline));
    // The clock a live pipeline will use; it runs before the pipeline chose it.
    clock_ = gst_system_clock_obtain();
    haveFirstFrame_ = false;
    lastPts_ = -1;
    if (firstStart_ < 0) firstStart_ = steadySeconds();
}

void LVEncoder::retract()
{
    std::lock_guard lock(mutex_);
    if (appsrc_) gst_object_unref(appsrc_);
    if (clock_) gst_object_unref(clock_);
    if (pipeline_) gst_object_unref(pipeline_);
    appsrc_ = nullptr;
    clock_ = nullptr;
    pipeline_ = nullptr;
}

void LVEncoder::updateRate()
{
    const double now = steadySeconds();
    const uint64_t bytes = encodedBytes_->load();
    std::lock_guard lock(mutex_);
    if (rateTime_ > 0 && now > rateTime_) status_.bitrateKbps = double(bytes - rateBytes_) * 8.0 / 1000.0 / (now - rateTime_);
    rateBytes_ = bytes;
    rateTime_ = now;
}

bool LVEncoder::runPipeline(QString* problem)
{
    GstElement* pipeline = buildPipeline(problem);
    if (!pipeline) return false;
    struct Teardown {
        LVEncoder& encoder;
        GstElement* pipeline;
        ~Teardown()
        {
            encoder.retract();
            gst_element_set_state(pipeline, GST_STATE_NULL);
            gst_object_unref(pipeline);
        }
    } teardown{*this, pipeline};

    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        *problem = pendingError(pipeline, "the pipeline would not start");
        return false;
    }
    publish(pipeline);
    setState(LVEncoderState::Running);

    GstBus* bus = gst_element_get_bus(pipeline);
    bool endSent = false;
    double finishBy = 0;
    double nextRate = steadySeconds() + 1;
    bool stopped = false;
    for (;;) {
        GstMessage* message = gst_bus_timed_pop_filtered(bus, 100 * GST_MSECOND,
                                                         GstMessageType(GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
        if (message) {
            const bool isError = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
            if (isError) *problem = errorText(message);
            gst_message_unref(message);
            if (isError && !endSent) break;
            // The end reached the sink (or failed on the way): the file is complete.
            stopped = true;
            break;
        }
        const double now = steadySeconds();
        if (now >= nextRate) {
            updateRate();
            nextRate = now + 1;
        }
        if (endSent) {
            if (now > finishBy) {
                LVLog("%s did not finish within %.0f s; closed as it is", qPrintable(LVRedactedLocation(settings_)),
                      options_.finishSeconds);
                stopped = true;
                break;
            }
            continue;
        }
        bool stopNow = false;
        {
            std::lock_guard lock(mutex_);
            stopNow = stopRequested_;
        }
        if (stopNow) {
            setState(LVEncoderState::Stopping);
            GstElement* source = gst_bin_get_by_name(GST_BIN(pipeline), "video");
            retract();
            gst_app_src_end_of_stream(GST_APP_SRC(source));
            gst_object_unref(source);
            if (GstElement* audio = gst_bin_get_by_name(GST_BIN(pipeline), "audio")) {
                gst_element_send_event(audio, gst_event_new_eos());
                gst_object_unref(audio);
            }
            endSent = true;
            finishBy = now + options_.finishSeconds;
        }
    }
    gst_object_unref(bus);
    return stopped;
}
