#include "tests/support/LVGLTestSupport.h"

#include "render/LVGLContext.h"

#include <chrono>
#include <functional>

namespace {

constexpr int W = 8;
constexpr int H = 4;

class LVContextTest : public LVGLTest {
protected:
    void SetUp() override { makeContext(W, H); }

    // A W x H picture: left half red, right half blue, top row green (Qt rows run top down).
    static QImage picture()
    {
        QImage img(W, H, QImage::Format_ARGB32);
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x)
                img.setPixel(x, y, y == 0 ? 0xFF00FF00u : x < W / 2 ? 0xFFFF0000u : 0xFF0000FFu);
        return img;
    }
    static QImage solidPicture(int w, int h, QRgb colour)
    {
        QImage img(w, h, QImage::Format_ARGB32);
        img.fill(colour);
        return img;
    }
    // Every pixel of the frame against expected(x, top-down row).
    void expectFrame(const std::function<ARGB(int x, int row)>& expected, const char* what = "")
    {
        const Frame f = read();
        for (int row = 0; row < H; ++row)
            for (int x = 0; x < W; ++x) ASSERT_EQ(f.at(x, row), expected(x, row)) << what << " at " << x << "," << row;
    }
};

TEST_F(LVContextTest, ResetClearsOpaqueOrTransparent)
{
    for (bool transparent : {false, true}) {
        ctx->reset(transparent);
        expectFrame([&](int, int) { return transparent ? kClear : kBlack; });
    }
}

TEST_F(LVContextTest, ReadBackIsArgbTopRowFirstWithRowStride)
{
    // Both ways of turning the rows over: one inverted read, and row by row.
    const bool canInvert = ctx->packInvert();
    for (bool invert : {true, false}) {
        if (invert && !canInvert)
            continue;
        SCOPED_TRACE(invert ? "inverted read" : "row by row");
        ctx->setPackInvert(invert);
        ctx->reset(false);
        ctx->drawTexture(texture(picture()), QRectF(0, 0, W, H), QRectF(0, 0, W, H));
        Frame f = read(12);
        for (int x = 0; x < W; ++x) {
            EXPECT_EQ(f.at(x, 0), kGreen) << x;
            for (int y = 1; y < H; ++y)
                EXPECT_EQ(f.at(x, y), x < W / 2 ? kRed : kBlue) << x << "," << y;
        }
        EXPECT_EQ(read(12).bytes, f.bytes); // reading leaves the frame as it was
        std::vector<uint8_t> bgra(size_t(W) * H * 4);
        ctx->fetchBGRAPixels(bgra.data(), W * 4);
        for (int y = 0; y < H; ++y)
            for (int x = 0; x < W; ++x) {
                const uint8_t* p = &bgra[size_t(y * W + x) * 4];
                EXPECT_EQ((ARGB{p[3], p[2], p[1], p[0]}), f.at(x, y)) << "B,G,R,A at " << x << "," << y;
            }
        // Padding between rows stays untouched.
        for (int y = 0; y < H; ++y)
            for (int i = 0; i < 12; ++i)
                EXPECT_EQ(f.bytes[y * f.rowBytes + W * 4 + i], 0xEE);
    }
    GLint invert = 1;
    glGetIntegerv(GL_PACK_INVERT_MESA, &invert);
    EXPECT_TRUE(!canInvert || invert == 0); // pack state is left as found
}

// A frame whose first drawer overwrites it is cleared only when something else draws into it
// or reads it first; targets in the pool hold red.
TEST_F(LVContextTest, AnOwedClearIsMadeUnlessTheFirstDrawerOverwrites)
{
    const LVTexture tex = texture(picture());
    const struct {
        const char* what;
        bool overwrite; // the first drawer takes framebufferToOverwrite()
        QRectF drawn;   // where the picture goes; empty: nothing drawn
        ARGB left;      // then the frame's top left pixel
    } cases[] = {
        {"nothing drawn", false, {}, kBlack},
        {"a drawer of half the frame", false, QRectF(W / 2, 0, W / 2, H), kBlack},
        {"an overwriting drawer", true, QRectF(0, 0, W, H), kGreen},
    };
    for (const auto& c : cases) {
        for (int i = 0; i < 3; ++i) {
            ctx->reset(false);
            fill(0, 0, W, H, 1, 0, 0);
        }
        ctx->reset(false, true);
        if (c.overwrite) ctx->framebufferToOverwrite();
        if (!c.drawn.isEmpty()) ctx->drawTexture(tex, c.drawn, QRectF(0, 0, W, H));
        const Frame f = read();
        EXPECT_EQ(f.at(0, 0), c.left) << c.what;
        EXPECT_EQ(f.at(W - 1, H - 1), c.drawn.isEmpty() ? kBlack : kBlue) << c.what;
    }
}

// Each case draws the W x H picture at 1:1 into the frame with one of the quad rules and
// states which picture pixel must land at frame pixel (x, top-down row).
struct QuadCase {
    const char* name;
    bool flipped;
    bool mirrored;
    bool upsideDown; // through drawCVTexture
    int srcX(int x) const { return mirrored ? W - 1 - x : x; }
    int srcRow(int row) const { return flipped ? H - 1 - row : row; }
};

TEST_F(LVContextTest, QuadRulesFlipMirrorAndUpsideDown)
{
    const QuadCase cases[] = {
        {"plain", false, false, false},
        {"flipped", true, false, false},
        {"mirrored", false, true, false},
        {"flipped+mirrored", true, true, false},
        {"upside-down", false, false, true},
        {"upside-down+flipped", true, false, true},
    };
    const QImage src = picture();
    for (const QuadCase& c : cases) {
        ctx->reset(false);
        // Stored upside down: the picture's top row sits at GL's bottom.
        const LVTexture tex = texture(c.upsideDown ? src.mirrored(false, true) : src);
        ctx->framebuffer();
        LVContext::drawCVTexture(tex, c.upsideDown, c.flipped, c.mirrored);
        expectFrame([&](int x, int row) { return lvArgb(src.pixel(c.srcX(x), c.srcRow(row))); }, c.name);
    }
}

// A source draws its picture only where the chain after it reads; the rest keeps what it held,
// and the next draw goes anywhere again.
TEST_F(LVContextTest, PictureDrawnOnlyInsideTheAreaGiven)
{
    const QImage src = picture();
    const LVTexture tex = texture(src);
    for (const std::optional<QRect>& area : {std::optional<QRect>(QRect(2, 1, 3, 2)), std::optional<QRect>()}) {
        ctx->reset(true);
        ctx->drawPicture(tex, area);
        // The area is GL's: row 0 at the bottom.
        expectFrame([&](int x, int row) { return !area || area->contains(x, H - 1 - row) ? lvArgb(src.pixel(x, row)) : kClear; });
        EXPECT_FALSE(glIsEnabled(GL_SCISSOR_TEST));
    }
}

TEST_F(LVContextTest, QuadPlacementTruncatesDestinationAndSamplesSourceTexels)
{
    ctx->reset(false);
    QImage img = solidPicture(2, 2, 0xFF00FF00u);
    img.setPixel(1, 1, 0xFFFF0000u); // bottom-right in Qt terms: texel (1, 0) in GL terms
    const LVTexture tex = texture(img);
    // The whole green texture into (2.7, 1.9)-(5.2, 3.99): truncated to (2,1)-(5,3).
    ctx->drawTexture(tex, QRectF(2.7, 1.9, 2.5, 2.09), QRectF(0, 0, 0.1, 0.1));
    // Texel (1, 0) alone into pixel (7, 0).
    ctx->drawTexture(tex, QRectF(7, 0, 1, 1), QRectF(1, 0, 1, 1));
    expectFrame([](int x, int row) {
        const int glY = H - 1 - row;
        return (x == 7 && glY == 0) ? kRed : (x >= 2 && x < 5 && glY >= 1 && glY < 3) ? kGreen : kBlack;
    });
}

TEST_F(LVContextTest, DrawCVTextureAspectFitsIntoViewport)
{
    // A 2x2 white texture into the 8x4 frame: pillar-boxed to x 2..6, full height.
    ctx->reset(false);
    const LVTexture tex = texture(solidPicture(2, 2, 0xFFFFFFFFu));
    ctx->framebuffer();
    LVContext::drawCVTexture(tex, false, false, false);
    expectFrame([](int x, int) { return x >= 2 && x < 6 ? ARGB{255, 255, 255, 255} : kBlack; });
}

TEST_F(LVContextTest, BlendingUsesSourceAlpha)
{
    ctx->reset(false);
    ctx->drawTexture(texture(solidPicture(1, 1, qRgba(255, 255, 255, 128))), QRectF(0, 0, W, H), QRectF(0, 0, 1, 1));
    // Half white over opaque black: grey, still opaque.
    const ARGB a = read().at(3, 2);
    EXPECT_EQ(a[0], 0xFF);
    EXPECT_NEAR(a[1], 128, 1);
    EXPECT_EQ(a[1], a[2]);
    EXPECT_EQ(a[2], a[3]);
}

TEST_F(LVContextTest, GLErrorsAreLoggedWithTheCallName)
{
    EXPECT_TRUE(LVCheckGLError("nothing wrong"));
    glBindTexture(GL_TEXTURE_2D + 1, 0); // not a texture target
    testing::internal::CaptureStderr();
    EXPECT_FALSE(LVCheckGLError("glBindTexture"));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "glBindTexture: GL error 0x0500\n");
    EXPECT_TRUE(LVCheckGLError("afterwards")); // the error was taken
}

class Pending : public LVPendingRenderer {
public:
    int draws = 0;
    void drawPendingOutput(LVContext&) override
    {
        ++draws;
        LVContext::clearContext(0, 1, 0, 1);
    }
};

TEST_F(LVContextTest, PendingRendererDrawsOnceWhenSurfaceIsNeededAndResetDropsIt)
{
    Pending p;
    ctx->reset(false);
    ctx->setQCRenderer(&p);
    EXPECT_EQ(ctx->qcRenderer(), &p);
    ctx->reset(false);
    EXPECT_EQ(ctx->qcRenderer(), nullptr);
    EXPECT_EQ(p.draws, 0);

    ctx->setQCRenderer(&p);
    ctx->texture();
    ctx->texture();
    EXPECT_EQ(p.draws, 1);
    EXPECT_EQ(read().at(0, 0), kGreen);
}

TEST_F(LVContextTest, PoolNeverReusesAHeldFrameAndFreesIdleOnes)
{
    using Clock = std::chrono::steady_clock;
    static Clock::time_point now = Clock::now();
    LVSetFramePoolClock([] { return now; });
    ctx->reset(false);
    LVTexture held = ctx->texture();
    ctx->reset(false);
    const GLuint second = ctx->texture().name;
    EXPECT_NE(held.name, second);
    ctx->reset(false);
    EXPECT_EQ(ctx->texture().name, second); // recycled within the age limit
    const GLuint first = held.name;
    held = {};
    now += std::chrono::milliseconds(600);
    ctx->reset(false);
    LVSetFramePoolClock(nullptr);
    EXPECT_FALSE(glIsTexture(first)); // idle longer than half a second
}

TEST(LVOffscreenContextTest, ClearWritesTransparentOrOpaqueBlack)
{
    LVOffscreenContext off(3, 2);
    ASSERT_NE(off.CGContext(), nullptr);
    const auto* words = reinterpret_cast<const uint32_t*>(off.CGContext()->data());
    EXPECT_EQ(words[0], 0xFFFFFFFFu); // new bitmaps start all 0xFF
    off.clear(false);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(words[i], 0xFF000000u);
    off.clear(true);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(words[i], 0u);
}

TEST(LVVideoSizeTest, DefaultsTo320x240AndIsCachedOnFirstUse)
{
    LVSetVideoSizeProvider([] { return QSize(320, 240); });
    EXPECT_EQ(LVGetWidth(), 320);
    LVSetVideoSizeProvider([] { return QSize(640, 480); });
    EXPECT_EQ(LVGetWidth(), 320);
    EXPECT_EQ(LVGetHeight(), 240);
}

} // namespace
