#include "tools/vcam/LVVcamBridge.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QFile>
#include <QTemporaryDir>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <vector>

namespace {

// Keeps what the bridge writes; a consumer that follows accepts a new size or rate while open.
class RecordingOutput : public LVVideoOutput {
public:
    bool open(LVVcamLayout& layout, int rate, QString*) override
    {
        openedLayout = layout;
        openedRate = rate;
        return true;
    }
    bool reconfigure(LVVcamLayout& layout, int rate) override { return follows && open(layout, rate, nullptr); }
    bool writeFrame(const uint8_t* data, size_t bytes) override
    {
        frames.emplace_back(data, data + bytes);
        return true;
    }
    QString description() const override { return QStringLiteral("recording"); }

    bool follows = false;
    LVVcamLayout openedLayout;
    int openedRate = 0;
    std::vector<std::vector<uint8_t>> frames;
};

// Publishes a frame of one opaque grey level (A,R,G,B bytes).
void publishGrey(LVShmem& w, int width, int height, int rate, uint8_t level)
{
    w.publishFrame(width, height, rate, [&](void* p, int rowBytes) {
        for (int y = 0; y < height; ++y) {
            uint8_t* row = static_cast<uint8_t*>(p) + y * rowBytes;
            for (int x = 0; x < width; ++x) {
                row[x * 4] = 0xFF;
                row[x * 4 + 1] = row[x * 4 + 2] = row[x * 4 + 3] = level;
            }
        }
    });
}

// Options for a BGRA camera, whose frames the tests read pixel by pixel.
LVVcamOptions bgraOptions(QSize size = {}, int rate = 0)
{
    LVVcamOptions o;
    o.format = LVVcamFormat::BGRA;
    o.size = size;
    o.rate = rate;
    return o;
}

// First byte of a BGRA output frame at (x, y): the blue level.
uint8_t blueAt(const std::vector<uint8_t>& frame, int width, int x, int y)
{
    return frame[size_t(y * width + x) * 4];
}

class LVVcamBridgeTest : public ::testing::Test {
protected:
    void SetUp() override { lvUnlinkFrameSegments(); }
    void TearDown() override { lvUnlinkFrameSegments(); }
};

// The producer's size and rate unless given; with nothing running, what Lumaveil will render
// at, from its preferences, else 320x240 at 15.
TEST_F(LVVcamBridgeTest, TakesSizeAndRateFromTheProducerUnlessGivenElseFromThePreferences)
{
    QTemporaryDir dir;
    const QByteArray hd = R"({"videoSize": "{1280, 720}", "frameRate": 30})";
    struct Case {
        bool producer; // one publishing 64x48 at 25 fps
        QSize size;
        int rate;
        QByteArray prefs; // empty: no file
        int w, h, wantRate;
    };
    const Case cases[] = {
        {true, {}, 0, hd, 64, 48, 25},
        {true, {32, 16}, 60, hd, 32, 16, 60},
        {false, {}, 0, hd, 1280, 720, 30},
        {false, {}, 0, R"({"frameRate": 24})", 320, 240, 24},
        {false, {}, 0, R"({"videoSize": "{99999, 720}", "frameRate": 0})", 320, 240, 15},
        {false, {}, 0, "{ damaged", 320, 240, 15},
        {false, {}, 0, "", 320, 240, 15},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.producer << " " << c.prefs.toStdString());
        lvUnlinkFrameSegments();
        std::optional<LVShmem> producer;
        if (c.producer) {
            producer.emplace(LVShmemRole::Producer);
            producer->setAppRunning();
            publishGrey(*producer, 64, 48, 25, 10);
        }
        QFile::remove(dir.filePath(QStringLiteral("prefs.json")));
        if (!c.prefs.isEmpty()) {
            ASSERT_TRUE(lvWriteFiles(dir.path(), {{"prefs.json", c.prefs}}));
        }
        LVShmem reader(LVShmemRole::Reader);
        RecordingOutput out;
        LVVcamOptions o = bgraOptions(c.size, c.rate);
        o.preferencesPath = dir.filePath(QStringLiteral("prefs.json"));
        LVVcamBridge bridge(reader, out, o);
        ASSERT_TRUE(bridge.open(nullptr));
        EXPECT_EQ(out.openedLayout.width, c.w);
        EXPECT_EQ(out.openedLayout.height, c.h);
        EXPECT_EQ(out.openedRate, c.wantRate);
    }
}

TEST_F(LVVcamBridgeTest, FollowsTheProducerWhereTheConsumerCanElseWritesWhatWasAnnounced)
{
    using namespace std::chrono;
    struct Case {
        bool consumerFollows;
        int wantW, wantH, wantRate;
        size_t written; // of six frames published at 30 fps over 200 ms
    };
    const Case cases[] = {
        {true, 16, 8, 30, 6},  // re-announced: every frame goes out as it comes
        {false, 8, 8, 15, 3},  // announced 15 fps stays: frames are paced to it
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.consumerFollows);
        lvUnlinkFrameSegments();
        LVShmem producer(LVShmemRole::Producer);
        producer.setAppRunning();
        publishGrey(producer, 8, 8, 15, 10);
        LVShmem reader(LVShmemRole::Reader);
        RecordingOutput out;
        out.follows = c.consumerFollows;
        LVVcamBridge bridge(reader, out, bgraOptions());
        ASSERT_TRUE(bridge.open(nullptr));
        ASSERT_EQ(out.openedRate, 15);
        const auto t0 = LVVcamBridge::Clock::now();
        ASSERT_TRUE(bridge.step(t0));
        out.frames.clear();
        for (int i = 1; i <= 6; ++i) {
            publishGrey(producer, 16, 8, 30, uint8_t(10 + i));
            ASSERT_TRUE(bridge.step(t0 + milliseconds(34 * i)));
        }
        EXPECT_EQ(out.openedLayout.width, c.wantW);
        EXPECT_EQ(out.openedLayout.height, c.wantH);
        EXPECT_EQ(bridge.rate(), c.wantRate);
        EXPECT_EQ(out.openedRate, c.wantRate);
        EXPECT_EQ(out.frames.size(), c.written);
        EXPECT_EQ(out.frames.back().size(), size_t(c.wantW * c.wantH * 4));
    }
}

TEST_F(LVVcamBridgeTest, AProducerKilledWithoutAWordGivesTheCardAtOnce)
{
    int ready[2];
    ASSERT_EQ(pipe(ready), 0);
    const pid_t child = fork();
    if (child == 0) {
        LVShmem w(LVShmemRole::Producer);
        w.setAppRunning();
        publishGrey(w, 8, 8, 10, 90);
        char byte = 1;
        (void)!write(ready[1], &byte, 1);
        pause();
        _exit(0);
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    LVShmem reader(LVShmemRole::Reader);
    RecordingOutput out;
    LVVcamBridge bridge(reader, out, bgraOptions());
    ASSERT_TRUE(bridge.open(nullptr));
    const auto t0 = LVVcamBridge::Clock::now();
    ASSERT_TRUE(bridge.step(t0));
    EXPECT_FALSE(bridge.showingNoSignal());
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    close(ready[0]);
    close(ready[1]);
    ASSERT_TRUE(bridge.step(t0 + std::chrono::milliseconds(150)));
    EXPECT_TRUE(reader.appRunning()) << "the dead producer's pid is still recorded";
    EXPECT_TRUE(bridge.showingNoSignal()) << "well before the three seconds of a pause";
}

TEST_F(LVVcamBridgeTest, KeepsTheCameraAliveAcrossPausesRestartsAndSizeChanges)
{
    using namespace std::chrono;
    auto producer = std::make_unique<LVShmem>(LVShmemRole::Producer);
    producer->setAppRunning();
    publishGrey(*producer, 8, 8, 10, 100);

    LVShmem reader(LVShmemRole::Reader);
    RecordingOutput out;
    LVVcamOptions o = bgraOptions();
    o.noSignalAfter = 3.0;
    LVVcamBridge bridge(reader, out, o);
    ASSERT_TRUE(bridge.open(nullptr));
    const auto t0 = LVVcamBridge::Clock::now();
    auto at = [&](int ms) { return t0 + milliseconds(ms); };

    struct Step {
        int ms;
        std::function<void()> producerAction;
        size_t frames;  // written so far
        int blue;       // of the newest output frame at (4, 4); -1: the card
    };
    const Step steps[] = {
        {0, nullptr, 1, 100},                                       // the newest frame at once
        {50, nullptr, 1, 100},                                      // within one period: nothing
        {100, nullptr, 2, 100},                                     // a period without news: again
        {150, [&] { publishGrey(*producer, 8, 8, 10, 120); }, 3, 120}, // news at once
        {200, [&] { producer->setAppNotRunning(); }, 3, 120},
        {260, nullptr, 4, 120},                                     // paused: last frame
        {3100, nullptr, 5, 120},                                    // still under three seconds
        {3200, nullptr, 6, -1},                                     // the card
        {3300, [&] {                                                // a new producer process, larger
             producer = std::make_unique<LVShmem>(LVShmemRole::Producer);
             producer->setAppRunning();
             publishGrey(*producer, 16, 8, 10, 200);
         }, 7, 200},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(s.ms);
        if (s.producerAction)
            s.producerAction();
        ASSERT_TRUE(bridge.step(at(s.ms)));
        ASSERT_EQ(out.frames.size(), s.frames);
        EXPECT_EQ(bridge.showingNoSignal(), s.blue < 0);
        if (s.blue >= 0) {
            EXPECT_EQ(blueAt(out.frames.back(), 8, 4, 4), s.blue);
        }
    }
    // The 16x8 frame is fitted into 8x8: black bands above and below.
    EXPECT_EQ(blueAt(out.frames.back(), 8, 4, 0), 0);
    EXPECT_EQ(blueAt(out.frames.back(), 8, 4, 7), 0);
}

TEST_F(LVVcamBridgeTest, StopsAfterTheRequestedFrameCount)
{
    LVShmem reader(LVShmemRole::Reader);
    RecordingOutput out;
    LVVcamOptions o = bgraOptions();
    o.frames = 2;
    LVVcamBridge bridge(reader, out, o);
    ASSERT_TRUE(bridge.open(nullptr));
    const auto t0 = LVVcamBridge::Clock::now();
    EXPECT_TRUE(bridge.step(t0));
    EXPECT_TRUE(bridge.showingNoSignal()); // nothing published yet
    EXPECT_FALSE(bridge.step(t0 + std::chrono::seconds(1)));
    EXPECT_EQ(out.frames.size(), 2u);
}

TEST(LVVcamToolTest, RefusalsSayWhyAndHowToGetACamera)
{
    QTemporaryDir emptyDev;
    QProcessEnvironment noDevices = QProcessEnvironment::systemEnvironment();
    noDevices.insert(QStringLiteral("LUMAVEIL_DEV_DIR"), emptyDev.path());
    const struct {
        QStringList args;
        const char* starts; // after "lumaveil-vcam: "
        QStringList mentions;
    } cases[] = {
        {{}, "no v4l2loopback device found",
         {"sudo modprobe v4l2loopback exclusive_caps=1 card_label=Lumaveil", "v4l2loopback-dkms", "--stdout"}},
        // Not a raw ioctl error.
        {{"--device", "/dev/null"}, "/dev/null is not a v4l2loopback camera device", {"v4l2loopback-dkms"}},
        {{"--stdout", "--format", "rgb565"}, "unknown format \"rgb565\"", {}},
        {{"--stdout", "--size", "12x"}, "bad size \"12x\"", {}},
        {{"--stdout", "--rate", "0"}, "bad rate \"0\"", {}},
        {{"--stdout", "--format", "i420", "--size", "641x480"}, "i420 needs an even width and height", {}},
    };
    for (const auto& c : cases) {
        const LVProcessRun run = lvRunServed(QStringLiteral(LV_VCAM_PATH), c.args, noDevices);
        EXPECT_EQ(run.status, 1) << c.starts;
        EXPECT_TRUE(run.err.startsWith(QStringLiteral("lumaveil-vcam: ") + QLatin1String(c.starts))) << run.err.toStdString();
        EXPECT_FALSE(run.err.contains(QStringLiteral("ioctl"))) << run.err.toStdString();
        for (const QString& mention : c.mentions) EXPECT_TRUE(run.err.contains(mention)) << mention.toStdString();
    }
}

} // namespace

int main(int argc, char** argv)
{
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
