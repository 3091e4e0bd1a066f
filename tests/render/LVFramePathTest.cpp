// The frame's cheaper paths give the pixels the plain ones gave: targets left uncleared for a
// renderer that overwrites them, copies instead of fills, and the read-back straight into
// the shared-memory block.
#include "render/LVContext.h"
#include "render/LVOutputDriver.h"
#include "render/LVShmemOutput.h"
#include "sources/testpattern/TestPatternSource.h"
#include "transport/LVShmem.h"

#include <gtest/gtest.h>

#include <QGuiApplication>

#include <array>
#include <memory>
#include <vector>

namespace {

constexpr int W = 32;
constexpr int H = 16;

using ARGB = std::array<uint8_t, 4>;
constexpr ARGB kBlack{255, 0, 0, 0};
constexpr ARGB kRed{255, 255, 0, 0};
constexpr ARGB kGreen{255, 0, 255, 0};

void fill(int x, int y, int w, int h, float r, float g, float b)
{
    glEnable(GL_SCISSOR_TEST);
    glScissor(x, y, w, h);
    glClearColor(r, g, b, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glDisable(GL_SCISSOR_TEST);
}

// Draws green into its rectangle and says whether that is the whole frame.
class GreenRect : public LVPendingRenderer {
public:
    GreenRect(int width, bool covers) : width_(width), covers_(covers) {}
    void drawPendingOutput(LVContext&) override { fill(0, 0, width_, H, 0, 1, 0); }
    bool coversEveryPixel() const override { return covers_; }

private:
    int width_;
    bool covers_;
};

class LVFramePathTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        QString error;
        ctx = LVContext::create(QSize(W, H), &error);
        ASSERT_TRUE(ctx) << error.toStdString();
    }

    // A, R, G, B bytes, top row first.
    std::vector<uint8_t> read()
    {
        std::vector<uint8_t> bytes(size_t(W) * H * 4);
        ctx->fetchOpenGLPixels(bytes.data(), W * 4);
        return bytes;
    }
    static ARGB at(const std::vector<uint8_t>& bytes, int x, int row)
    {
        const uint8_t* p = bytes.data() + (size_t(row) * W + size_t(x)) * 4;
        return {p[0], p[1], p[2], p[3]};
    }
    // The pool's next target holds red: whatever an uncleared target shows comes from there.
    void leaveRedInThePool()
    {
        ctx->reset(false);
        ctx->framebuffer();
        fill(0, 0, W, H, 1, 0, 0);
    }

    std::unique_ptr<LVContext> ctx;
};

TEST_F(LVFramePathTest, AnUnclearedTargetIsClearedUnlessItsRendererCoversEveryPixel)
{
    struct Case {
        const char* name;
        int drawnWidth;    // 0: no renderer
        bool covers;
        bool removedFirst; // the renderer goes before the frame is used
        ARGB left, right;  // x = 0 and x = W - 1
    };
    const Case cases[] = {
        {"no renderer", 0, false, false, kBlack, kBlack},
        {"covers the frame", W, true, false, kGreen, kGreen},
        {"draws half and says so", W / 2, false, false, kGreen, kBlack},
        {"removed before use", W, true, true, kBlack, kBlack},
    };
    for (const Case& c : cases) {
        leaveRedInThePool();
        ctx->resetUncleared();
        GreenRect renderer(c.drawnWidth, c.covers);
        if (c.drawnWidth > 0) ctx->setQCRenderer(&renderer);
        if (c.removedFirst) ctx->setQCRenderer(nullptr);
        const std::vector<uint8_t> frame = read();
        EXPECT_EQ(at(frame, 0, 0), c.left) << c.name;
        EXPECT_EQ(at(frame, W - 1, H - 1), c.right) << c.name;
    }
    // A plain reset always clears.
    leaveRedInThePool();
    ctx->reset(false);
    EXPECT_EQ(at(read(), 3, 3), kBlack);
}

TEST_F(LVFramePathTest, CopyIntoFrameCopiesOnlyATextureOfTheFramesSize)
{
    struct Case {
        const char* name;
        QSize size;
        ARGB expected;
    };
    const Case cases[] = {
        {"frame size", QSize(W, H), kGreen},
        {"other size", QSize(W / 2, H), kRed},
    };
    for (const Case& c : cases) {
        GLuint texture = 0;
        glGenTextures(1, &texture);
        glBindTexture(GL_TEXTURE_2D, texture);
        const std::vector<uint32_t> green(size_t(c.size.width()) * size_t(c.size.height()), 0xFF00FF00u);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, c.size.width(), c.size.height(), 0, GL_BGRA, GL_UNSIGNED_BYTE,
                     green.data());
        glBindTexture(GL_TEXTURE_2D, 0);
        ctx->reset(false);
        ctx->framebuffer();
        fill(0, 0, W, H, 1, 0, 0);
        glEnable(GL_SCISSOR_TEST); // a copy ignores the caller's scissor and keeps it
        glScissor(0, 0, 1, 1);
        ctx->copyIntoFrame(LVTexture{texture, c.size.width(), c.size.height()});
        EXPECT_TRUE(glIsEnabled(GL_SCISSOR_TEST)) << c.name;
        glDisable(GL_SCISSOR_TEST);
        const std::vector<uint8_t> frame = read();
        EXPECT_EQ(at(frame, 0, 0), c.expected) << c.name;
        EXPECT_EQ(at(frame, W - 1, H - 1), c.expected) << c.name;
        glDeleteTextures(1, &texture);
    }
}

// The bars are filled in the first frame and copied in the next ones.
TEST_F(LVFramePathTest, TheTestPatternsCopiedBarsMatchTheFilledOnes)
{
    struct Case {
        const char* name;
        bool counter;
    };
    for (const Case& c : {Case{"bars and square", false}, Case{"with the counter", true}}) {
        auto drawn = [&](TestPatternSource& source) {
            ctx->setFrameTime(1.5);
            ctx->reset(false);
            source.doit();
            return read();
        };
        auto make = [&] {
            auto source = std::unique_ptr<LVEffect>(TestPatternSource::classDescriptor().make());
            source->initWithContext(ctx.get());
            source->setParameterValue(QStringLiteral("moving"), false);
            source->setParameterValue(QStringLiteral("showCounter"), c.counter);
            return source;
        };
        auto first = make();
        auto& firstSource = static_cast<TestPatternSource&>(*first);
        const std::vector<uint8_t> filled = drawn(firstSource);
        const std::vector<uint8_t> copied = drawn(firstSource);
        auto second = make();
        const std::vector<uint8_t> fresh = drawn(static_cast<TestPatternSource&>(*second));
        // Counters differ by frame number: only the bars and the square's row compare.
        const size_t compared = size_t(W) * size_t(H - TestPatternSource::counterRect(W, H).height()) * 4;
        EXPECT_TRUE(std::equal(filled.begin(), filled.begin() + long(compared), copied.begin())) << c.name;
        EXPECT_EQ(at(copied, 0, 0), (ARGB{255, 191, 191, 191})) << c.name;
        EXPECT_EQ(fresh, filled) << c.name << ": a new source's first frame";
    }
}

TEST_F(LVFramePathTest, SharedMemoryReadsStraightIntoItsBlockOnlyWhenNoOtherOutputHadThePixels)
{
    class CpuOutput : public LVOutputDriver {
    public:
        std::string outputName() const override { return "preview"; }
        void drawFrame(LVOutputFrame& frame) override { frame.pixels(); }
    };
    LVShmem producer(LVShmemRole::Producer);
    ASSERT_TRUE(producer.isAvailable()) << producer.problem();
    producer.setAppRunning();
    for (bool withPreview : {false, true}) {
        LVOutputList outputs;
        if (withPreview) outputs.setDriver(LVOutputSlot::Preview, std::make_unique<CpuOutput>());
        outputs.setDriver(LVOutputSlot::SharedMemory,
                          std::make_unique<LVShmemOutput>(producer, [] { return true; }, [] { return 30; }));
        ctx->reset(false);
        ctx->framebuffer();
        fill(0, 0, W / 2, H, 1, 0.5f, 0);
        fill(0, H - 1, W, 1, 0, 0, 1);
        const std::vector<uint8_t> expected = read();
        outputs.drawFrame(*ctx);
        outputs.drawFrame(*ctx);
        EXPECT_EQ(outputs.readBacks(), 2u) << "one read-back a frame, preview " << withPreview;

        LVShmem reader(LVShmemRole::Reader);
        std::unique_ptr<uint8_t[]> data;
        uint64_t length = 0;
        const LVShmemReadResult result = reader.getData(data, length, 0);
        ASSERT_EQ(result.status, 0);
        ASSERT_EQ(length, expected.size());
        EXPECT_TRUE(std::equal(expected.begin(), expected.end(), data.get())) << "preview " << withPreview;
    }
    producer.setAppNotRunning();
    producer.removeSegments();
}

} // namespace

int main(int argc, char** argv)
{
    // The test pattern's counter is drawn with Qt's fonts.
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
