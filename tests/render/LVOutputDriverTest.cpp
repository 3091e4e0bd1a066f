// The end of the frame: one read-back shared by every CPU output, the frame's order, and
// outputs that fail or lag without holding the others up.
#include "tests/support/LVGLTestSupport.h"

#include "render/LVOutputDriver.h"
#include "render/LVShmemOutput.h"
#include "transport/LVShmem.h"

#include <algorithm>
#include <future>
#include <stdexcept>

namespace {

struct BGRA {
    uint8_t b, g, r, a;
    bool operator==(const BGRA&) const = default;
};

BGRA at(const LVFramePixels& pixels, int x, int rowFromTop)
{
    const uint8_t* p = pixels.bytes.data() + size_t(rowFromTop) * size_t(pixels.stride) + size_t(x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

// Notes what it was given; a CPU output asks for the pixels, a GPU one only for the texture.
class RecordingDriver : public LVOutputDriver {
public:
    RecordingDriver(std::string name, bool cpu, std::vector<std::string>& log) : name_(std::move(name)), cpu_(cpu), log_(log) {}
    std::string outputName() const override { return name_; }
    bool wantsFrame() const override { return wanted; }
    void drawFrame(LVOutputFrame& frame) override
    {
        log_.push_back(name_);
        if (cpu_) {
            last = frame.pixels();
        } else {
            texture = frame.texture().name;
        }
        if (fails) throw std::runtime_error("device unplugged");
    }
    bool wanted = true;
    bool fails = false;
    LVFramePixelsRef last;
    GLuint texture = 0;

private:
    std::string name_;
    bool cpu_;
    std::vector<std::string>& log_;
};

class LVOutputDriverTest : public LVGLTest {
protected:
    void SetUp() override
    {
        makeContext(64, 48);
        ctx->reset(false);
    }
    RecordingDriver* add(LVOutputSlot slot, const char* name, bool cpu)
    {
        auto driver = std::make_unique<RecordingDriver>(name, cpu, log);
        RecordingDriver* raw = driver.get();
        outputs.setDriver(slot, std::move(driver));
        return raw;
    }

    LVOutputList outputs;
    std::vector<std::string> log;
};

TEST_F(LVOutputDriverTest, TheFrameIsReadBackOnceForAllCPUOutputsAndNeverForGPUOnes)
{
    struct Case {
        const char* what;
        bool previewCPU, fullScreenCPU, secondCPU;
        bool previewWanted;
        uint64_t readBacks;
    };
    const Case cases[] = {
        {"three CPU outputs", true, true, true, true, 1},
        {"GPU outputs only", false, false, false, true, 0},
        {"one CPU among GPU ones", false, true, false, true, 1},
        {"the only CPU output hidden", true, false, false, false, 0},
    };
    for (const Case& c : cases) {
        RecordingDriver* preview = add(LVOutputSlot::Preview, "preview", c.previewCPU);
        RecordingDriver* full = add(LVOutputSlot::FullScreen, "full", c.fullScreenCPU);
        RecordingDriver* second = add(LVOutputSlot::SecondOutput, "second", c.secondCPU);
        preview->wanted = c.previewWanted;
        const uint64_t before = outputs.readBacks();
        outputs.drawFrame(*ctx);
        EXPECT_EQ(outputs.readBacks() - before, c.readBacks) << c.what;
        // Every CPU output of the frame holds the very same pixels.
        std::vector<const LVFramePixels*> seen;
        for (RecordingDriver* d : {preview, full, second})
            if (d->last) seen.push_back(d->last.get());
        for (const LVFramePixels* p : seen) EXPECT_EQ(p, seen.front()) << c.what;
        if (!c.fullScreenCPU) {
            EXPECT_EQ(full->texture, ctx->texture().name) << c.what;
        }
    }
}

TEST_F(LVOutputDriverTest, DriversRunInTheFramesOrderWhateverOrderTheyWereSet)
{
    add(LVOutputSlot::SharedMemory, "shared memory", true);
    add(LVOutputSlot::SecondOutput, "second", true);
    add(LVOutputSlot::Preview, "preview", true);
    add(LVOutputSlot::ProgramMonitor, "program", true);
    add(LVOutputSlot::FullScreen, "full", false);
    outputs.drawFrame(*ctx);
    EXPECT_EQ(log, (std::vector<std::string>{"program", "preview", "full", "second", "shared memory"}));
    outputs.setDriver(LVOutputSlot::Preview, nullptr);
    log.clear();
    outputs.drawFrame(*ctx);
    EXPECT_EQ(log, (std::vector<std::string>{"program", "full", "second", "shared memory"}));
}

TEST_F(LVOutputDriverTest, PixelsAreBGRATopRowFirstAndAHeldFrameIsNeverOverwritten)
{
    RecordingDriver* preview = add(LVOutputSlot::Preview, "preview", true);
    fill(0, 0, 8, 4, 1, 0, 0);   // red, bottom-left
    fill(56, 44, 8, 4, 0, 0, 1); // blue, top-right
    outputs.drawFrame(*ctx);
    const LVFramePixelsRef first = preview->last;
    ASSERT_TRUE(first);
    EXPECT_EQ(first->stride, 64 * 4);
    const BGRA red{0, 0, 255, 255}, blue{255, 0, 0, 255}, black{0, 0, 0, 255};
    EXPECT_EQ(at(*first, 0, 47), red);
    EXPECT_EQ(at(*first, 63, 0), blue);
    EXPECT_EQ(at(*first, 8, 47), black);
    EXPECT_EQ(first->image().pixelColor(0, 47), QColor(Qt::red)) << "a QImage over the same bytes";

    // The next frames go elsewhere while someone still looks at the first.
    ctx->reset(false);
    fill(0, 0, 64, 48, 0, 1, 0);
    outputs.drawFrame(*ctx);
    outputs.drawFrame(*ctx);
    EXPECT_NE(preview->last.get(), first.get());
    EXPECT_EQ(at(*first, 0, 47), red);
    EXPECT_EQ(at(*preview->last, 0, 47), (BGRA{0, 255, 0, 255}));
}

TEST_F(LVOutputDriverTest, AFailingOutputIsLoggedOnceAndTheOthersGoOn)
{
    RecordingDriver* preview = add(LVOutputSlot::Preview, "preview", true);
    RecordingDriver* full = add(LVOutputSlot::FullScreen, "projector", false);
    add(LVOutputSlot::SharedMemory, "shared memory", true);
    full->fails = true;
    testing::internal::CaptureStderr();
    for (int frame = 0; frame < 3; ++frame) outputs.drawFrame(*ctx);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(said, "Output \"projector\" failed: device unplugged; its frames are dropped\n");
    EXPECT_EQ(std::count(log.begin(), log.end(), "shared memory"), 3);
    EXPECT_EQ(std::count(log.begin(), log.end(), "projector"), 3) << "tried again each frame";
    EXPECT_TRUE(preview->last);
    // A new driver in the slot gets its own first line.
    full = add(LVOutputSlot::FullScreen, "projector 2", false);
    full->fails = true;
    testing::internal::CaptureStderr();
    outputs.drawFrame(*ctx);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Output \"projector 2\" failed: device unplugged; its frames are dropped\n");
}

TEST_F(LVOutputDriverTest, ASlowOutputDropsFramesOnItsOwnThreadAndTheLoopNeverWaits)
{
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    int consumed = 0;
    std::promise<BGRA> lastSeen;
    auto slow = std::make_unique<LVThreadedOutput>("slow", [&](const LVFramePixels& frame) {
        if (++consumed == 1) {
            entered.set_value();
            released.wait();
        } else {
            lastSeen.set_value(at(frame, 0, 0));
        }
    });
    LVThreadedOutput* raw = slow.get();
    outputs.setDriver(LVOutputSlot::SecondOutput, std::move(slow));
    RecordingDriver* shm = add(LVOutputSlot::SharedMemory, "shared memory", true);

    outputs.drawFrame(*ctx);
    entered.get_future().wait(); // the consumer is stuck in the first frame
    // Five more frames while it is stuck: all reach the last output, one waits in the mailbox.
    for (int frame = 1; frame <= 5; ++frame) {
        ctx->reset(false);
        fill(0, 0, 64, 48, float(frame) / 5.0f, 0, 0);
        outputs.drawFrame(*ctx);
    }
    EXPECT_EQ(std::count(log.begin(), log.end(), "shared memory"), 6);
    EXPECT_EQ(outputs.readBacks(), 6u);
    EXPECT_EQ(raw->framesDropped(), 4u);
    release.set_value();
    EXPECT_EQ(lastSeen.get_future().get(), (BGRA{0, 0, 255, 255})) << "the newest frame, not an older one";
    EXPECT_TRUE(shm->last);
    outputs.setDriver(LVOutputSlot::SecondOutput, nullptr); // joins
    EXPECT_EQ(consumed, 2);
}

// The block gets every byte of the frame in its own order (A,R,G,B, top row first), read
// straight into it or, when another output had the pixels, from the one shared read-back;
// nothing while publishing is off.
TEST_F(LVOutputDriverTest, SharedMemoryGetsEveryByteOfTheFrameOnlyWhilePublishing)
{
    LVShmem producer(LVShmemRole::Producer);
    ASSERT_TRUE(producer.isAvailable()) << producer.problem();
    producer.setAppRunning();
    for (bool withPreview : {false, true}) {
        SCOPED_TRACE(withPreview ? "beside a preview" : "alone");
        LVOutputList list;
        if (withPreview) list.setDriver(LVOutputSlot::Preview, std::make_unique<RecordingDriver>("preview", true, log));
        bool publishing = true;
        list.setDriver(LVOutputSlot::SharedMemory,
                       std::make_unique<LVShmemOutput>(producer, [&] { return publishing; }, [] { return 0x10019; }));
        ctx->reset(false);
        fill(0, 0, 32, 48, 1, 0.5f, 0);
        fill(0, 47, 64, 1, 0, 0, 1);
        const Frame expected = read();
        list.drawFrame(*ctx);
        const uint32_t seq = producer.frameSeq();
        publishing = false;
        list.drawFrame(*ctx);
        EXPECT_EQ(producer.frameSeq(), seq) << "nothing published while off";
        EXPECT_EQ(list.readBacks(), withPreview ? 2u : 1u) << "one read-back a frame at most";

        LVShmem reader(LVShmemRole::Reader);
        std::unique_ptr<uint8_t[]> data;
        uint64_t length = 0;
        const LVShmemReadResult result = reader.getData(data, length, 0);
        ASSERT_EQ(result.status, 0);
        EXPECT_EQ(result.width, 64);
        EXPECT_EQ(result.height, 48);
        EXPECT_EQ(result.frameRate, 25) << "the low 16 bits of the rate";
        ASSERT_EQ(length, expected.bytes.size());
        EXPECT_TRUE(std::equal(expected.bytes.begin(), expected.bytes.end(), data.get()));
        EXPECT_EQ(expected.at(0, 47)[1], 255) << "orange at the bottom left";
    }
    producer.setAppNotRunning();
    producer.removeSegments();
}

} // namespace
