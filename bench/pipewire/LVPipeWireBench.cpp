// The PipeWire video node's costs, on a private daemon with a reader linked, each next to a
// reference measured in the same run:
//   pushFrame of a 1280x720 frame (the render loop's cost)  vs  memcpy of the same bytes
//   frames a reader receives over 10 s at 30 fps             vs  frames pushed
#include "render/pipewire/LVPipeWireOutput.h"
#include "tests/support/LVPipeWireDaemon.h"

#include <benchmark/benchmark.h>
#include <gst/gst.h>

#include <atomic>
#include <cstring>
#include <vector>

namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;

// A program reading the node: pipewiresrc into a sink that counts the frames.
class CountingReader {
public:
    CountingReader()
    {
        pipeline_ = gst_parse_launch("pipewiresrc target-object=Lumaveil ! videoconvert ! fakesink name=sink signal-handoffs=true sync=false",
                                     nullptr);
        GstElement* sink = gst_bin_get_by_name(GST_BIN(pipeline_), "sink");
        g_signal_connect(sink, "handoff", G_CALLBACK(+[](GstElement*, GstBuffer*, GstPad*, gpointer count) {
                             static_cast<std::atomic<uint64_t>*>(count)->fetch_add(1);
                         }),
                         &frames_);
        gst_object_unref(sink);
        gst_element_set_state(pipeline_, GST_STATE_PLAYING);
    }
    ~CountingReader()
    {
        gst_element_set_state(pipeline_, GST_STATE_NULL);
        gst_object_unref(pipeline_);
    }
    uint64_t frames() const { return frames_.load(); }
    bool failed() const
    {
        GstBus* bus = gst_element_get_bus(pipeline_);
        GstMessage* message = gst_bus_pop_filtered(bus, GstMessageType(GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
        gst_object_unref(bus);
        if (message) gst_message_unref(message);
        return message != nullptr;
    }

private:
    GstElement* pipeline_ = nullptr;
    std::atomic<uint64_t> frames_{0};
};

struct Setup {
    LVPipeWireDaemon daemon;
    LVPipeWireOutput output;
    std::vector<uint8_t> frame = std::vector<uint8_t>(size_t(kWidth) * kHeight * 4, 0x5A);
    std::unique_ptr<CountingReader> reader;

    void push() { output.pushFrame(frame.data(), kWidth, kHeight, kWidth * 4); }

    Setup()
    {
        gst_init(nullptr, nullptr);
        // The node exists once its first frame fixed its size; then a reader can be linked.
        // Frames keep coming as they would from the render loop until the reader has one.
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        for (; !output.isPublished() && std::chrono::steady_clock::now() < until; push()) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        reader = std::make_unique<CountingReader>();
        while (reader->frames() == 0 && std::chrono::steady_clock::now() < until) {
            // The session manager may refuse a reader that came too early: it starts again.
            if (reader->failed()) {
                reader.reset();
                reader = std::make_unique<CountingReader>();
            }
            push();
            std::this_thread::sleep_for(std::chrono::milliseconds(33));
        }
    }
};

Setup& setup()
{
    static Setup s;
    return s;
}

void BM_Memcpy1280x720(benchmark::State& state)
{
    const size_t bytes = size_t(kWidth) * kHeight * 4;
    std::vector<uint8_t> from(bytes, 0x5A), to(bytes);
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), bytes);
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Memcpy1280x720)->Unit(benchmark::kMicrosecond);

void BM_PushFrame1280x720(benchmark::State& state)
{
    Setup& s = setup();
    if (!s.output.isAlive()) {
        state.SkipWithError("no PipeWire daemon");
        return;
    }
    for (auto _ : state) s.push();
}
BENCHMARK(BM_PushFrame1280x720)->Unit(benchmark::kMicrosecond);

// Paced like the render loop; the counters say how many frames the reader got.
void BM_Delivery30FpsFor10s(benchmark::State& state)
{
    Setup& s = setup();
    for (auto _ : state) {
        const uint64_t readBefore = s.reader->frames();
        const LVPipeWireOutput::Counts before = s.output.counts();
        const auto start = std::chrono::steady_clock::now();
        for (int i = 1; i <= 300; ++i) {
            s.push();
            std::this_thread::sleep_until(start + i * std::chrono::microseconds(33333));
        }
        const LVPipeWireOutput::Counts after = s.output.counts();
        state.counters["pushed"] = double(after.pushed - before.pushed);
        state.counters["delivered"] = double(after.delivered - before.delivered);
        state.counters["dropped"] = double(after.dropped - before.dropped);
        state.counters["read"] = double(s.reader->frames() - readBefore);
    }
}
BENCHMARK(BM_Delivery30FpsFor10s)->Iterations(1)->Unit(benchmark::kSecond);

} // namespace

BENCHMARK_MAIN();
