#pragma once
// Reads a PipeWire video node the way other programs do, with GStreamer's pipewiresrc.
#include "tests/support/LVWaitFor.h"

#include <QString>

#include <gtest/gtest.h>

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <chrono>
#include <functional>
#include <optional>
#include <vector>

struct LVReadFrame {
    int width = 0;
    int height = 0;
    int stride = 0;
    std::vector<uint8_t> bytes;
    const uint8_t* row(int y) const { return bytes.data() + size_t(y) * size_t(stride); }
};

class LVPipeWireReader {
public:
    explicit LVPipeWireReader(QString nodeName) : nodeName_(std::move(nodeName)) { gst_init(nullptr, nullptr); }
    ~LVPipeWireReader() { stop(); }

    // The next frame for which accept() holds, calling feed() between tries so a producer in
    // this process keeps pushing. A reader the session manager refused (its node was not there
    // yet) is started again.
    std::optional<LVReadFrame> next(const std::function<bool(const LVReadFrame&)>& accept,
                                    const std::function<void()>& feed, int limitMs = 10000)
    {
        const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(limitMs);
        auto started = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() < until) {
            // A reader whose link never came up is started again, as a user would.
            if (!pipeline_ || failed() || std::chrono::steady_clock::now() - started > std::chrono::seconds(3)) {
                start();
                started = std::chrono::steady_clock::now();
            }
            feed();
            GstSample* sample = gst_app_sink_try_pull_sample(GST_APP_SINK(sink_), 30 * GST_MSECOND);
            if (!sample) continue;
            started = std::chrono::steady_clock::now();
            std::optional<LVReadFrame> frame = copy(sample);
            gst_sample_unref(sample);
            if (frame && accept(*frame)) return frame;
        }
        return std::nullopt;
    }

    void stop()
    {
        if (!pipeline_) return;
        gst_element_set_state(pipeline_, GST_STATE_NULL);
        gst_object_unref(pipeline_);
        pipeline_ = nullptr;
        sink_ = nullptr;
    }

private:
    void start()
    {
        stop();
        const QString description = QStringLiteral(
            "pipewiresrc target-object=\"%1\" ! "
            "video/x-raw,format=BGRA ! appsink name=sink max-buffers=1 drop=true sync=false").arg(nodeName_);
        GError* error = nullptr;
        pipeline_ = gst_parse_launch(description.toUtf8().constData(), &error);
        if (error) {
            ADD_FAILURE() << "gst_parse_launch: " << error->message;
            g_clear_error(&error);
        }
        if (!pipeline_) return;
        sink_ = gst_bin_get_by_name(GST_BIN(pipeline_), "sink");
        gst_object_unref(sink_); // the pipeline holds it
        gst_element_set_state(pipeline_, GST_STATE_PLAYING);
    }

    bool failed() const
    {
        GstBus* bus = gst_element_get_bus(pipeline_);
        GstMessage* message = gst_bus_pop_filtered(bus, GstMessageType(GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
        gst_object_unref(bus);
        if (!message) return false;
        gst_message_unref(message);
        return true;
    }

    static std::optional<LVReadFrame> copy(GstSample* sample)
    {
        GstVideoInfo info;
        GstBuffer* buffer = gst_sample_get_buffer(sample);
        if (!buffer || !gst_video_info_from_caps(&info, gst_sample_get_caps(sample))) return std::nullopt;
        GstVideoFrame mapped;
        if (!gst_video_frame_map(&mapped, &info, buffer, GST_MAP_READ)) return std::nullopt;
        LVReadFrame frame;
        frame.width = GST_VIDEO_FRAME_WIDTH(&mapped);
        frame.height = GST_VIDEO_FRAME_HEIGHT(&mapped);
        frame.stride = GST_VIDEO_FRAME_PLANE_STRIDE(&mapped, 0);
        const auto* data = static_cast<const uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&mapped, 0));
        frame.bytes.assign(data, data + size_t(frame.stride) * size_t(frame.height));
        gst_video_frame_unmap(&mapped);
        return frame;
    }

    QString nodeName_;
    GstElement* pipeline_ = nullptr;
    GstElement* sink_ = nullptr;
};
