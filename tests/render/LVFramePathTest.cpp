// The frame's cheaper paths give the pixels the plain ones gave: targets left uncleared for a
// renderer that overwrites them, and copies instead of fills.
#include "tests/support/LVGLTestSupport.h"

#include "sources/testpattern/TestPatternSource.h"

namespace {

constexpr int W = 32;
constexpr int H = 16;

// Draws green into its rectangle and says whether that is the whole frame.
class GreenRect : public LVPendingRenderer {
public:
    GreenRect(int width, bool covers) : width_(width), covers_(covers) {}
    void drawPendingOutput(LVContext&) override { lvFill(0, 0, width_, H, 0, 1, 0); }
    bool coversEveryPixel() const override { return covers_; }

private:
    int width_;
    bool covers_;
};

class LVFramePathTest : public LVGLTest {
protected:
    void SetUp() override { makeContext(W, H); }
    // The pool's next target holds red: whatever an uncleared target shows comes from there.
    void leaveRedInThePool()
    {
        ctx->reset(false);
        fill(0, 0, W, H, 1, 0, 0);
    }
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
        const Frame frame = read();
        EXPECT_EQ(frame.at(0, 0), c.left) << c.name;
        EXPECT_EQ(frame.at(W - 1, H - 1), c.right) << c.name;
    }
    // A plain reset always clears.
    leaveRedInThePool();
    ctx->reset(false);
    EXPECT_EQ(read().at(3, 3), kBlack);
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
        leaveRedInThePool();
        glEnable(GL_SCISSOR_TEST); // a copy ignores the caller's scissor and keeps it
        glScissor(0, 0, 1, 1);
        ctx->copyIntoFrame(LVTexture{texture, c.size.width(), c.size.height()});
        EXPECT_TRUE(glIsEnabled(GL_SCISSOR_TEST)) << c.name;
        glDisable(GL_SCISSOR_TEST);
        const Frame frame = read();
        EXPECT_EQ(frame.at(0, 0), c.expected) << c.name;
        EXPECT_EQ(frame.at(W - 1, H - 1), c.expected) << c.name;
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
        const Frame filled = drawn(firstSource);
        const Frame copied = drawn(firstSource);
        auto second = make();
        const Frame fresh = drawn(static_cast<TestPatternSource&>(*second));
        // Counters differ by frame number: only the bars and the square's row compare.
        const size_t compared = size_t(W) * size_t(H - TestPatternSource::counterRect(W, H).height()) * 4;
        EXPECT_TRUE(std::equal(filled.bytes.begin(), filled.bytes.begin() + long(compared), copied.bytes.begin())) << c.name;
        EXPECT_EQ(copied.at(0, 0), (ARGB{255, 191, 191, 191})) << c.name;
        EXPECT_EQ(fresh.bytes, filled.bytes) << c.name << ": a new source's first frame";
    }
}

} // namespace

