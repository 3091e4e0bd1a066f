#include "LVPipeWireReader.h"

#include "render/pipewire/LVPipeWireNodeWatch.h"
#include "render/pipewire/LVPipeWireOutput.h"
#include "tests/support/LVPipeWireDaemon.h"

#include <QProcess>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

namespace {

// Every byte differs from its neighbours, so a swapped channel, a shifted row or a lost stride
// padding shows.
std::vector<uint8_t> pattern(int width, int height, int stride, uint8_t seed)
{
    std::vector<uint8_t> bytes(size_t(stride) * size_t(height), 0xEE);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            uint8_t* p = bytes.data() + size_t(y) * size_t(stride) + size_t(x) * 4;
            p[0] = uint8_t(x * 7 + seed);
            p[1] = uint8_t(y * 5 + seed);
            p[2] = uint8_t(x + y * 3);
            p[3] = uint8_t(255 - x);
        }
    }
    return bytes;
}

// Where the first row that differs is, or -1 when every row matches.
int firstWrongRow(const LVReadFrame& frame, const std::vector<uint8_t>& pushed, int width, int height, int stride)
{
    for (int y = 0; y < height; ++y) {
        if (std::memcmp(frame.row(y), pushed.data() + size_t(y) * size_t(stride), size_t(width) * 4) != 0) return y;
    }
    return -1;
}

class LVPipeWireOutputTest : public ::testing::Test {
protected:
    void SetUp() override { LV_START_PIPEWIRE(daemon); }
    std::unique_ptr<LVPipeWireDaemon> daemon;
};

TEST_F(LVPipeWireOutputTest, ReadersGetTheExactPixelsAtEverySize)
{
    const struct {
        int width, height, padding;
        uint8_t seed;
    } sizes[] = {
        {64, 48, 0, 1},
        {33, 17, 12, 2}, // odd size, rows with padding
        {1280, 720, 0, 4},
    };
    for (const auto& size : sizes) {
        // The node takes the size of its first frame (the video size, fixed for a run).
        LVPipeWireOutput output;
        ASSERT_TRUE(output.isAlive());
        EXPECT_EQ(output.nodeName(), "Lumaveil");
        const int stride = size.width * 4 + size.padding;
        const std::vector<uint8_t> pushed = pattern(size.width, size.height, stride, size.seed);
        const auto push = [&] { output.pushFrame(pushed.data(), size.width, size.height, stride); };
        // The session manager links a reader only to a node that is there.
        ASSERT_TRUE(lvWaitFor([&] {
            push();
            return output.isPublished();
        }));
        LVPipeWireReader reader(QStringLiteral("Lumaveil"));
        const auto frame = reader.next(
            [&](const LVReadFrame& f) {
                return f.width == size.width && f.height == size.height && f.row(0)[0] == pushed[0];
            },
            push);
        ASSERT_TRUE(frame) << size.width << "x" << size.height << ": no frame of that size arrived";
        EXPECT_EQ(firstWrongRow(*frame, pushed, size.width, size.height, stride), -1)
            << size.width << "x" << size.height;
        const LVPipeWireOutput::Counts counts = output.counts();
        EXPECT_GT(counts.delivered, 0u);
        EXPECT_LE(counts.delivered + counts.dropped, counts.pushed);
    }
}

TEST_F(LVPipeWireOutputTest, PushersOnSeveralThreadsNeverMixTheirFrames)
{
    // Two threads push different pictures at once; the reader sees whole frames of one or the
    // other, never rows of both.
    LVPipeWireOutput output;
    const std::vector<uint8_t> one = pattern(40, 30, 160, 5);
    const std::vector<uint8_t> other = pattern(40, 30, 160, 6);
    std::atomic<bool> stop{false};
    std::atomic<uint64_t> calls{0};
    auto pusher = [&](const std::vector<uint8_t>& frame, int width, int height) {
        while (!stop) {
            output.pushFrame(frame.data(), width, height, width * 4);
            ++calls;
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    };
    std::thread first(pusher, std::cref(one), 40, 30);
    std::thread second(pusher, std::cref(other), 40, 30);
    const bool published = lvWaitFor([&] { return output.isPublished(); });
    std::optional<LVReadFrame> frame;
    if (published) {
        LVPipeWireReader reader(QStringLiteral("Lumaveil"));
        frame = reader.next([](const LVReadFrame&) { return true; }, [] {});
    }
    stop = true;
    first.join();
    second.join();
    ASSERT_TRUE(published);
    ASSERT_TRUE(frame) << "no frame arrived";
    ASSERT_EQ(frame->width, 40);
    ASSERT_EQ(frame->height, 30);
    const std::vector<uint8_t>& expected = frame->row(0)[0] == one[0] ? one : other;
    EXPECT_EQ(firstWrongRow(*frame, expected, 40, 30, 160), -1);
    EXPECT_EQ(output.counts().pushed, calls.load());
}

TEST_F(LVPipeWireOutputTest, OwnNodeIsNotListedOtherNodesAre)
{
    LVPipeWireOutput own;
    LVPipeWireOutput other(QStringLiteral("other.program"), QStringLiteral("Other Program"));
    const std::vector<uint8_t> frame = pattern(16, 16, 64, 0);
    own.pushFrame(frame.data(), 16, 16, 64);
    other.pushFrame(frame.data(), 16, 16, 64);
    QString error;
    auto watch = LVPipeWireNodeWatch::create(&error);
    ASSERT_TRUE(watch) << error.toStdString();
    // The nodes appear once their first frame has fixed their size; the watch hears of them
    // on its own thread.
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::vector<LVPipeWireNode> nodes;
    while (std::chrono::steady_clock::now() < until) {
        ASSERT_TRUE(watch->sync(2000));
        nodes = watch->nodes();
        if (!nodes.empty()) break;
    }
    ASSERT_EQ(nodes.size(), 1u);
    EXPECT_EQ(nodes[0].name, "other.program");
    EXPECT_EQ(nodes[0].description, "Other Program");
}

TEST_F(LVPipeWireOutputTest, WithoutADaemonFramesAreDroppedAndTheCallerGoesOn)
{
    const std::vector<uint8_t> frame = pattern(32, 32, 128, 0);
    const struct {
        const char* what;
        bool daemonAtStart;
    } cases[] = {
        {"the daemon ends while frames flow", true},
        {"no daemon when the node is made", false},
    };
    for (const auto& c : cases) {
        QTemporaryDir empty;
        if (!c.daemonAtStart) {
            daemon->stop();
            qputenv("XDG_RUNTIME_DIR", empty.path().toUtf8());
            qputenv("PIPEWIRE_RUNTIME_DIR", empty.path().toUtf8());
        }
        LVPipeWireOutput output;
        EXPECT_EQ(output.isAlive(), c.daemonAtStart) << c.what;
        for (int i = 0; i < 5; ++i) output.pushFrame(frame.data(), 32, 32, 128);
        daemon->stop();
        // The end of the connection reaches the node's thread as an event of its own.
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (output.isAlive() && std::chrono::steady_clock::now() < until) output.pushFrame(frame.data(), 32, 32, 128);
        EXPECT_FALSE(output.isAlive()) << c.what;
        const uint64_t pushed = output.counts().pushed;
        for (int i = 0; i < 100; ++i) output.pushFrame(frame.data(), 32, 32, 128);
        EXPECT_EQ(output.counts().pushed, pushed) << c.what << ": a dead node takes no frames";
    }
}

} // namespace
