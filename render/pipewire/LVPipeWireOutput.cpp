#include "render/pipewire/LVPipeWireOutput.h"

#include "core/util/LVLog.h"

#include <pipewire/pipewire.h>
#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>

#include <cstring>

namespace {

// The format pod for a size: B,G,R,A bytes, offered with and without alpha (the same bytes),
// at a variable rate, since frames come when the render loop makes them.
const spa_pod* videoFormat(spa_pod_builder& builder, int width, int height)
{
    const spa_rectangle size = SPA_RECTANGLE(uint32_t(width), uint32_t(height));
    const spa_fraction rate = SPA_FRACTION(0, 1);
    return static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video),
        SPA_FORMAT_mediaSubtype, SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format,
        SPA_POD_CHOICE_ENUM_Id(3, SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_BGRA, SPA_VIDEO_FORMAT_BGRx),
        SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate)));
}

} // namespace

LVPipeWireOutput::LVPipeWireOutput(QString nodeName, QString description)
    : nodeName_(std::move(nodeName)), description_(description.isEmpty() ? nodeName_ : std::move(description))
{
    QString error;
    connection_ = LVPipeWireConnection::connect("lv-pipewire-out", &error);
    if (!connection_) {
        LVLog("PipeWire video node \"%s\" not published: %s", qPrintable(nodeName_), qPrintable(error));
        return;
    }
    connection_->lock();
    wake_ = pw_loop_add_event(pw_thread_loop_get_loop(connection_->loop()), &LVPipeWireOutput::onWake, this);
    connection_->unlock();
}

LVPipeWireOutput::~LVPipeWireOutput()
{
    if (!connection_) return;
    connection_->lock();
    if (stream_) {
        spa_hook_remove(&streamListener_);
        pw_stream_destroy(stream_);
    }
    if (wake_) pw_loop_destroy_source(pw_thread_loop_get_loop(connection_->loop()), wake_);
    connection_->unlock();
    connection_.reset();
}

bool LVPipeWireOutput::isAlive() const
{
    return connection_ && wake_ && connection_->isAlive();
}

LVPipeWireOutput::Counts LVPipeWireOutput::counts() const
{
    return {pushed_.load(), delivered_.load(), dropped_.load()};
}

void LVPipeWireOutput::pushFrame(const uint8_t* bgra, int width, int height, int stride)
{
    if (!isAlive() || !bgra || width <= 0 || height <= 0 || stride < width * 4) return;
    std::unique_lock writer(writer_, std::try_to_lock);
    pushed_.fetch_add(1, std::memory_order_relaxed);
    if (!writer.owns_lock()) {
        dropped_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    Slot& slot = slots_[back_];
    const size_t row = size_t(width) * 4;
    slot.pixels.resize(row * size_t(height));
    slot.width = width;
    slot.height = height;
    if (size_t(stride) == row) {
        std::memcpy(slot.pixels.data(), bgra, row * size_t(height));
    } else {
        for (int y = 0; y < height; ++y) std::memcpy(slot.pixels.data() + row * size_t(y), bgra + size_t(stride) * size_t(y), row);
    }
    const uint32_t previous = middle_.exchange(back_ | kFresh, std::memory_order_acq_rel);
    back_ = previous & 3;
    // The node's thread never took the frame just replaced.
    if (previous & kFresh) dropped_.fetch_add(1, std::memory_order_relaxed);
    pw_loop_signal_event(pw_thread_loop_get_loop(connection_->loop()), wake_);
}

void LVPipeWireOutput::takeNewest()
{
    if (!(middle_.load(std::memory_order_acquire) & kFresh)) return;
    front_ = middle_.exchange(front_, std::memory_order_acq_rel) & 3;
    frontSent_ = false;
}

void LVPipeWireOutput::onWake(void* data, uint64_t)
{
    auto* self = static_cast<LVPipeWireOutput*>(data);
    self->takeNewest();
    if (self->frontSent_) return;
    const Slot& frame = self->slots_[self->front_];
    if (frame.width != self->announcedWidth_ || frame.height != self->announcedHeight_) {
        self->announceSize(frame.width, frame.height);
        return;
    }
    if (frame.width == self->negotiatedWidth_ && frame.height == self->negotiatedHeight_)
        pw_stream_trigger_process(self->stream_);
}

void LVPipeWireOutput::announceSize(int width, int height)
{
    announcedWidth_ = width;
    announcedHeight_ = height;
    uint8_t storage[1024];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(storage, sizeof storage);
    const spa_pod* params[] = {videoFormat(builder, width, height)};
    if (stream_) {
        // Readers do not follow a format change of a running node; a node made again at the
        // new size is linked to them again by the session manager, under the same name.
        pw_stream_update_params(stream_, params, 1);
        return;
    }
    const QByteArray name = nodeName_.toUtf8();
    const QByteArray description = description_.toUtf8();
    pw_properties* props = pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source",
                                             PW_KEY_NODE_NAME, name.constData(), PW_KEY_NODE_DESCRIPTION,
                                             description.constData(), nullptr);
    stream_ = pw_stream_new(connection_->core(), name.constData(), props);
    if (!stream_) {
        LVLogSystemError("pw_stream_new");
        return;
    }
    static const pw_stream_events events = [] {
        pw_stream_events e{};
        e.version = PW_VERSION_STREAM_EVENTS;
        e.state_changed = &LVPipeWireOutput::onStateChanged;
        e.param_changed = &LVPipeWireOutput::onParamChanged;
        e.process = &LVPipeWireOutput::onProcess;
        return e;
    }();
    pw_stream_add_listener(stream_, &streamListener_, &events, this);
    connectStream(params[0]);
}

void LVPipeWireOutput::connectStream(const spa_pod* format)
{
    const spa_pod* params[] = {format};
    // A driver: the node runs at the render loop's pace, a frame whenever one is pushed.
    const int result = pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY,
                                         pw_stream_flags(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS), params, 1);
    if (result < 0) LVLog("pw_stream_connect: %s", std::strerror(-result));
}

void LVPipeWireOutput::onParamChanged(void* data, uint32_t id, const spa_pod* param)
{
    auto* self = static_cast<LVPipeWireOutput*>(data);
    if (id != SPA_PARAM_Format) return;
    spa_video_info_raw info{};
    if (!param || spa_format_video_raw_parse(param, &info) < 0) {
        self->negotiatedWidth_ = self->negotiatedHeight_ = 0;
        return;
    }
    self->negotiatedWidth_ = int(info.size.width);
    self->negotiatedHeight_ = int(info.size.height);
    // A reader that linked while an older size was still offered: offer the current one again.
    if (self->negotiatedWidth_ != self->announcedWidth_ || self->negotiatedHeight_ != self->announcedHeight_) {
        self->announceSize(self->announcedWidth_, self->announcedHeight_);
        return;
    }
    const int stride = self->negotiatedWidth_ * 4;
    uint8_t storage[1024];
    spa_pod_builder builder = SPA_POD_BUILDER_INIT(storage, sizeof storage);
    const spa_pod* params[] = {static_cast<const spa_pod*>(spa_pod_builder_add_object(
        &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
        SPA_POD_CHOICE_RANGE_Int(4, 2, 8), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1), SPA_PARAM_BUFFERS_size,
        SPA_POD_Int(stride * self->negotiatedHeight_), SPA_PARAM_BUFFERS_stride, SPA_POD_Int(stride),
        SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int((1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr))))};
    pw_stream_update_params(self->stream_, params, 1);
}

void LVPipeWireOutput::onStateChanged(void* data, pw_stream_state, pw_stream_state state, const char* error)
{
    auto* self = static_cast<LVPipeWireOutput*>(data);
    self->published_ = state == PW_STREAM_STATE_PAUSED || state == PW_STREAM_STATE_STREAMING;
    if (state == PW_STREAM_STATE_ERROR && !self->streamErrorLogged_) {
        self->streamErrorLogged_ = true;
        LVLog("PipeWire video node \"%s\": %s", qPrintable(self->nodeName_), error ? error : "stream error");
    }
}

void LVPipeWireOutput::onProcess(void* data)
{
    auto* self = static_cast<LVPipeWireOutput*>(data);
    self->takeNewest();
    const Slot& frame = self->slots_[self->front_];
    if (self->frontSent_ || frame.width != self->negotiatedWidth_ || frame.height != self->negotiatedHeight_) return;
    self->frontSent_ = true;
    pw_buffer* buffer = pw_stream_dequeue_buffer(self->stream_);
    if (!buffer) {
        // The reader holds every buffer: this frame is skipped, the next one may fit.
        self->dropped_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    spa_data& plane = buffer->buffer->datas[0];
    const uint32_t row = uint32_t(frame.width) * 4;
    const uint32_t bytes = row * uint32_t(frame.height);
    if (!plane.data || plane.maxsize < bytes) {
        plane.chunk->size = 0;
        pw_stream_queue_buffer(self->stream_, buffer);
        self->dropped_.fetch_add(1, std::memory_order_relaxed);
        return;
    }
    std::memcpy(plane.data, frame.pixels.data(), bytes);
    plane.chunk->offset = 0;
    plane.chunk->stride = int32_t(row);
    plane.chunk->size = bytes;
    pw_stream_queue_buffer(self->stream_, buffer);
    self->delivered_.fetch_add(1, std::memory_order_relaxed);
}
