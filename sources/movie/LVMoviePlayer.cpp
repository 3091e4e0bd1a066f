#include "sources/movie/LVMoviePlayer.h"

#include "core/util/LVLog.h"
#include "render/LVGLContext.h"
#include "sources/webcam/LVCamConverter.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <thread>

namespace {

int64_t steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool ensureGStreamer()
{
    if (gst_is_initialized()) return true;
    GError* error = nullptr;
    if (gst_init_check(nullptr, nullptr, &error)) return true;
    LVLog("gst_init_check: %s", error ? error->message : "unknown error");
    if (error) g_error_free(error);
    return false;
}

// Whether any sound output exists: without one, sound is played into nothing at the
// movie's pace, so pictures keep their timing and no driver complains every open.
bool anyAudioOutput()
{
    static const bool any = [] {
        GstDeviceMonitor* monitor = gst_device_monitor_new();
        gst_device_monitor_add_filter(monitor, "Audio/Sink", nullptr);
        bool found = false;
        if (gst_device_monitor_start(monitor)) {
            GList* devices = gst_device_monitor_get_devices(monitor);
            found = devices != nullptr;
            g_list_free_full(devices, gst_object_unref);
            gst_device_monitor_stop(monitor);
        }
        gst_object_unref(monitor);
        return found;
    }();
    return any;
}

// playbin's flags: video, audio and software volume; no subtitles, deinterlacing or colour
// balance, which would convert every picture on the CPU.
constexpr guint kPlayFlags = 0x1 | 0x2 | 0x10;

} // namespace

// What GStreamer's streaming thread and the owner share.
struct LVMoviePlayer::Shared {
    std::mutex mutex;
    std::shared_ptr<const LVCamPicture> last;
    int width = 0;
    int height = 0;
    std::atomic<uint64_t> frames{0};
    // The size the chain draws at (0: the movie's own); read by the streaming thread.
    std::atomic<int> outputWidth{0};
    std::atomic<int> outputHeight{0};
    // Streaming thread only (one at a time: the sink's thread).
    std::unique_ptr<LVGLContext> gl;
    std::unique_ptr<LVCamConverter> converter;
    bool glFailed = false;

    void take(GstSample* sample)
    {
        if (!sample) return;
        GstVideoInfo info;
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        if (buffer && gst_video_info_from_caps(&info, gst_sample_get_caps(sample)) && ensureGL()) {
            GstVideoFrame frame;
            if (gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ)) {
                // The context is current only while converting: the sink's thread may change
                // after a flush, and a context is current on one thread at a time.
                gl->makeCurrent();
                // Never larger than the chain: the chain stretches the picture over its
                // frame anyway, and every pixel converted costs the GPU the render loop shares.
                const int w = GST_VIDEO_INFO_WIDTH(&info), h = GST_VIDEO_INFO_HEIGHT(&info);
                const int ow = outputWidth.load(std::memory_order_relaxed), oh = outputHeight.load(std::memory_order_relaxed);
                if (ow > 0 && oh > 0)
                    converter->setOutputSize(std::min(w, ow), std::min(h, oh));
                else
                    converter->setOutputSize(0, 0);
                std::shared_ptr<const LVCamPicture> picture = converter->convert(frame, steadyNs());
                gl->doneCurrent();
                gst_video_frame_unmap(&frame);
                if (picture) {
                    frames.fetch_add(1, std::memory_order_relaxed);
                    std::lock_guard lock(mutex);
                    last = std::move(picture);
                    width = GST_VIDEO_INFO_WIDTH(&info);
                    height = GST_VIDEO_INFO_HEIGHT(&info);
                }
            }
        }
        gst_sample_unref(sample);
    }

    bool ensureGL()
    {
        if (converter) return true;
        if (glFailed) return false;
        QString error;
        gl = LVGLContext::makeOffscreenGLContext(&error);
        if (!gl) {
            LVLog("Movie pictures cannot reach the GPU: %s", qPrintable(error));
            glFailed = true;
            return false;
        }
        gl->makeCurrent();
        converter = LVCamConverter::create();
        gl->doneCurrent();
        glFailed = !converter;
        return !glFailed;
    }

    static GstFlowReturn newSample(GstAppSink* sink, gpointer self)
    {
        static_cast<Shared*>(self)->take(gst_app_sink_pull_sample(sink));
        return GST_FLOW_OK;
    }
    static GstFlowReturn newPreroll(GstAppSink* sink, gpointer self)
    {
        static_cast<Shared*>(self)->take(gst_app_sink_pull_preroll(sink));
        return GST_FLOW_OK;
    }
};

LVMoviePlayer::LVMoviePlayer(const QString& path, const QString& audioDevice)
    : path_(path), shared_(std::make_shared<Shared>()), audioDevice_(audioDevice)
{
    build(audioDevice);
}

LVMoviePlayer::~LVMoviePlayer()
{
    teardown();
}

GstElement* LVMoviePlayer::makeAudioSink(const QString& device)
{
    if (!anyAudioOutput()) {
        GstElement* sink = gst_element_factory_make("fakesink", nullptr);
        if (sink) g_object_set(sink, "sync", TRUE, nullptr);
        return sink;
    }
    if (!device.isEmpty()) {
        GstDeviceMonitor* monitor = gst_device_monitor_new();
        gst_device_monitor_add_filter(monitor, "Audio/Sink", nullptr);
        GstElement* sink = nullptr;
        if (gst_device_monitor_start(monitor)) {
            GList* devices = gst_device_monitor_get_devices(monitor);
            for (GList* item = devices; item && !sink; item = item->next) {
                gchar* name = gst_device_get_display_name(GST_DEVICE(item->data));
                if (device == QString::fromUtf8(name)) sink = gst_device_create_element(GST_DEVICE(item->data), nullptr);
                g_free(name);
            }
            g_list_free_full(devices, gst_object_unref);
            gst_device_monitor_stop(monitor);
        }
        gst_object_unref(monitor);
        if (sink) return sink;
        LVLog("Audio output device \"%s\" is not present; the movie plays through the default one", qPrintable(device));
    }
    return gst_element_factory_make("autoaudiosink", nullptr);
}

void LVMoviePlayer::build(const QString& audioDevice)
{
    title_ = QString::fromLatin1(kUnknownTitle);
    if (!ensureGStreamer()) {
        failed_ = true;
        return;
    }
    GError* error = nullptr;
    gchar* uri = gst_filename_to_uri(path_.toUtf8().constData(), &error);
    if (!uri) {
        LVLog("Movie %s: gst_filename_to_uri: %s", qPrintable(path_), error ? error->message : "unknown error");
        if (error) g_error_free(error);
        failed_ = true;
        return;
    }
    pipeline_ = gst_element_factory_make("playbin", nullptr);
    GstElement* sink = gst_element_factory_make("appsink", nullptr);
    if (!pipeline_ || !sink) {
        LVLog("Movie %s: gst_element_factory_make: playbin or appsink is missing", qPrintable(path_));
        if (sink) gst_object_unref(sink);
        if (pipeline_) gst_object_unref(pipeline_);
        pipeline_ = nullptr;
        g_free(uri);
        failed_ = true;
        return;
    }
    GstCaps* caps = gst_caps_from_string(LVCamConverter::sinkCaps());
    // The sink hands over each picture at its time on the pipeline clock, so sound and
    // pictures stay together; only the newest waits.
    // Late pictures are dropped (and the decoder told to skip), so a slow machine shows fewer
    // pictures rather than older ones.
    // max-lateness as a video sink's: a picture due more than 20 ms ago is dropped before it
    // is converted (the sink's default renders every late one, so a slow machine falls ever
    // further behind).
    g_object_set(sink, "caps", caps, "sync", TRUE, "qos", TRUE, "max-buffers", 1, "enable-last-sample", FALSE,
                 "max-lateness", gint64(20 * GST_MSECOND), nullptr);
    gst_caps_unref(caps);
    GstAppSinkCallbacks callbacks{};
    callbacks.new_sample = &Shared::newSample;
    callbacks.new_preroll = &Shared::newPreroll;
    gst_app_sink_set_callbacks(GST_APP_SINK(sink), &callbacks, shared_.get(), nullptr);
    g_object_set(pipeline_, "uri", uri, "video-sink", sink, "flags", kPlayFlags, "volume", double(volume_), "mute",
                 gboolean(muted_), nullptr);
    if (GstElement* audio = makeAudioSink(audioDevice)) g_object_set(pipeline_, "audio-sink", audio, nullptr);
    g_free(uri);
    if (gst_element_set_state(pipeline_, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE) poll();
}

void LVMoviePlayer::teardown()
{
    if (!pipeline_) return;
    // Stopping joins GStreamer's threads: no picture arrives after this.
    gst_element_set_state(pipeline_, GST_STATE_NULL);
    gst_object_unref(pipeline_);
    pipeline_ = nullptr;
    if (shared_->gl) {
        // The owner's thread has its own context current; the converter goes on a thread of its own.
        std::shared_ptr<Shared> shared = shared_;
        std::thread([shared] {
            shared->gl->makeCurrent();
            shared->converter.reset();
            shared->gl->doneCurrent();
            shared->gl.reset();
        }).join();
    }
}

void LVMoviePlayer::poll()
{
    if (!pipeline_) return;
    GstBus* bus = gst_element_get_bus(pipeline_);
    while (GstMessage* message = gst_bus_pop(bus)) {
        handleMessage(message);
        gst_message_unref(message);
    }
    gst_object_unref(bus);
}

void LVMoviePlayer::handleMessage(GstMessage* message)
{
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_EOS:
        ended_ = true;
        break;
    case GST_MESSAGE_ERROR: {
        GError* error = nullptr;
        gchar* debug = nullptr;
        gst_message_parse_error(message, &error, &debug);
        // Said once: the player stays failed.
        if (!failed_) LVLog("Movie %s cannot be played: %s", qPrintable(path_), error ? error->message : "unknown error");
        g_clear_error(&error);
        g_free(debug);
        failed_ = true;
        break;
    }
    case GST_MESSAGE_TAG: {
        GstTagList* tags = nullptr;
        gst_message_parse_tag(message, &tags);
        gchar* title = nullptr;
        if (gst_tag_list_get_string(tags, GST_TAG_TITLE, &title) && title && *title) title_ = QString::fromUtf8(title);
        g_free(title);
        gst_tag_list_unref(tags);
        break;
    }
    case GST_MESSAGE_ASYNC_DONE:
        if (GST_MESSAGE_SRC(message) != GST_OBJECT(pipeline_)) break;
        seeking_ = false;
        startSeek_ = false;
        if (!prerolled_) {
            prerolled_ = true;
            durationNs_ = -1;
            if (pendingPosition_ || outPoint_ < 1000 || rate_ != 1.0f) {
                seekTo(unitsToNs(pendingPosition_.value_or(0)));
                startSeek_ = seeking_;
                pendingPosition_.reset();
            }
            if (playing_ && rate_ != 0) gst_element_set_state(pipeline_, GST_STATE_PLAYING);
        }
        break;
    default:
        break;
    }
}

int64_t LVMoviePlayer::durationNs()
{
    if (durationNs_ < 0 && pipeline_ && prerolled_) {
        gint64 duration = -1;
        if (gst_element_query_duration(pipeline_, GST_FORMAT_TIME, &duration) && duration > 0) durationNs_ = duration;
    }
    return durationNs_;
}

int64_t LVMoviePlayer::positionNs()
{
    gint64 position = 0;
    if (!pipeline_ || !prerolled_ || !gst_element_query_position(pipeline_, GST_FORMAT_TIME, &position)) return 0;
    return std::max<gint64>(position, 0);
}

int64_t LVMoviePlayer::unitsToNs(int32_t units)
{
    const int64_t duration = durationNs();
    if (duration <= 0) return 0;
    return int64_t((__int128)duration * std::clamp(units, 0, 1000) / 1000);
}

void LVMoviePlayer::seekTo(int64_t positionNs)
{
    if (!pipeline_ || failed_ || !prerolled_) return;
    const double rate = rate_ > 0 ? double(rate_) : 1.0;
    const bool stops = outPoint_ < 1000 && durationNs() > 0;
    const auto flags = GstSeekFlags(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE);
    if (gst_element_seek(pipeline_, rate, GST_FORMAT_TIME, flags, GST_SEEK_TYPE_SET, positionNs,
                         stops ? GST_SEEK_TYPE_SET : GST_SEEK_TYPE_NONE, stops ? unitsToNs(outPoint_) : GST_CLOCK_TIME_NONE)) {
        ended_ = false;
        seeking_ = true;
    }
}

std::shared_ptr<const LVCamPicture> LVMoviePlayer::lastImage() const
{
    // The file's first picture is not the in point's: nothing shows until that seek is done.
    if (!prerolled_ || startSeek_) return nullptr;
    std::lock_guard lock(shared_->mutex);
    return shared_->last;
}

void LVMoviePlayer::setOutputSize(int width, int height)
{
    shared_->outputWidth.store(std::max(width, 0), std::memory_order_relaxed);
    shared_->outputHeight.store(std::max(height, 0), std::memory_order_relaxed);
}

uint64_t LVMoviePlayer::picturesDecoded() const
{
    return shared_->frames.load(std::memory_order_relaxed);
}

QRectF LVMoviePlayer::imageRect() const
{
    std::lock_guard lock(shared_->mutex);
    return QRectF(0, 0, shared_->width, shared_->height);
}

void LVMoviePlayer::setPlaying(bool playing)
{
    poll();
    playing_ = playing;
    if (playing) started_ = true;
    // Before the first picture is ready, playing waits for the seek to the in point, so the
    // start of the file never flashes by.
    if (!pipeline_ || failed_ || !prerolled_) return;
    gst_element_set_state(pipeline_, playing && rate_ != 0 ? GST_STATE_PLAYING : GST_STATE_PAUSED);
}

bool LVMoviePlayer::getPlaying()
{
    poll();
    return playing_ && rate_ != 0 && !ended_ && !failed_;
}

void LVMoviePlayer::setRate(float rate)
{
    poll();
    const bool changed = rate != rate_;
    rate_ = std::max(0.0f, rate);
    if (!changed) return;
    if (rate_ == 0) {
        if (pipeline_ && !failed_) gst_element_set_state(pipeline_, GST_STATE_PAUSED);
        return;
    }
    seekTo(positionNs());
    if (playing_ && prerolled_ && pipeline_ && !failed_) gst_element_set_state(pipeline_, GST_STATE_PLAYING);
}

void LVMoviePlayer::setVolume(float volume)
{
    volume_ = std::clamp(volume, 0.0f, 10.0f);
    if (pipeline_) g_object_set(pipeline_, "volume", double(volume_), nullptr);
}

void LVMoviePlayer::setMuted(bool muted)
{
    muted_ = muted;
    if (pipeline_) g_object_set(pipeline_, "mute", gboolean(muted), nullptr);
}

void LVMoviePlayer::setAudioDevice(const QString& device)
{
    if (device == audioDevice_) return;
    audioDevice_ = device;
    if (!pipeline_ || failed_) return;
    // playbin takes a new sound sink only when stopped: reopen where it was.
    poll();
    const int32_t position = getMoviePosition();
    const bool wasPrerolled = prerolled_;
    teardown();
    const int outputWidth = shared_->outputWidth, outputHeight = shared_->outputHeight;
    shared_ = std::make_shared<Shared>();
    setOutputSize(outputWidth, outputHeight);
    prerolled_ = false;
    build(device);
    if (wasPrerolled) pendingPosition_ = position;
    if (playing_) setPlaying(true);
}

void LVMoviePlayer::stopAt(int32_t position)
{
    poll();
    outPoint_ = std::clamp(position, 0, 1000);
    if (prerolled_ && !pendingPosition_) seekTo(positionNs());
}

void LVMoviePlayer::setMoviePosition(int32_t position)
{
    poll();
    if (!prerolled_) {
        pendingPosition_ = std::clamp(position, 0, 1000);
        return;
    }
    seekTo(unitsToNs(position));
}

int32_t LVMoviePlayer::getMoviePosition()
{
    poll();
    if (pendingPosition_) return *pendingPosition_;
    const int64_t duration = durationNs();
    if (duration <= 0) return 0;
    return int32_t(std::clamp<int64_t>(int64_t((__int128)positionNs() * 1000 / duration), 0, 1000));
}

int64_t LVMoviePlayer::moviePositionSeconds()
{
    poll();
    return positionNs() / GST_SECOND;
}

int64_t LVMoviePlayer::movieEndSeconds()
{
    poll();
    return std::max<int64_t>(durationNs(), 0) / GST_SECOND;
}

bool LVMoviePlayer::isOver()
{
    poll();
    return started_ && rate_ != 0 && (ended_ || failed_);
}

QString LVMoviePlayer::getMovieTitle()
{
    poll();
    return title_;
}

bool LVMoviePlayer::hasFailed()
{
    poll();
    return failed_;
}

bool LVMoviePlayer::waitUntilReady(int timeoutMs)
{
    waitFor(timeoutMs, [this] { return failed_ || (prerolled_ && !seeking_); });
    return prerolled_ && !seeking_ && !failed_;
}

bool LVMoviePlayer::waitForEnd(int timeoutMs)
{
    waitFor(timeoutMs, [this] { return failed_ || ended_; });
    return ended_ || failed_;
}

void LVMoviePlayer::waitFor(int timeoutMs, const std::function<bool()>& done)
{
    if (!pipeline_) return;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    GstBus* bus = gst_element_get_bus(pipeline_);
    poll();
    while (!done()) {
        const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - std::chrono::steady_clock::now()).count();
        if (left <= 0) break;
        if (GstMessage* message = gst_bus_timed_pop(bus, GstClockTime(left))) {
            handleMessage(message);
            gst_message_unref(message);
        }
    }
    gst_object_unref(bus);
}
