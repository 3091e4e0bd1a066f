// The frame: its steps in order, what reaches shared memory, and the timer rule.
#include "tests/app/LVControllerFixture.h"

#include "core/util/KDDelayedDispatcher.h"

#include <array>
#include <tuple>

namespace {

// Notes each output step together with the publish counter at that moment.
class OutputsDouble : public LVPictureOutput {
public:
    explicit OutputsDouble(LVShmem& shmem) : shmem_(shmem) {}
    bool isPreviewVisible() const override { return visible; }
    void showPicture(const LVFramePixelsRef&, bool mirror) override
    {
        testLog().append(QStringLiteral("preview seq=%1 mirrored=%2").arg(shmem_.frameSeq()).arg(mirror));
    }
    bool visible = true;

private:
    LVShmem& shmem_;
};

using ARGB = std::array<uint8_t, 4>;

// The newest frame, read as a driver would, in a reader of its own.
struct Published {
    LVShmemReadResult result;
    std::unique_ptr<uint8_t[]> pixels;
    uint64_t length = 0;
    Published() { result = LVShmem(LVShmemRole::Reader).getData(pixels, length, 0); }
    ARGB at(int x, int rowFromTop) const
    {
        const uint8_t* p = pixels.get() + (size_t(rowFromTop) * size_t(result.width) + size_t(x)) * 4;
        return {p[0], p[1], p[2], p[3]};
    }
};

} // namespace

TEST_F(LVControllerTest, FrameRunsItsStepsInOrder)
{
    OutputsDouble outputs(app->shmem());
    app->setStudio(std::make_unique<LVStudioDouble>(*app));
    app->setPreview(&outputs);
    app->setPreviewFullScreen(std::make_unique<LVFullScreenDouble>(app->shmem(), true));

    auto source = make("RedSource", "src");
    auto a = make("Marker", "A");
    auto off = make("Marker", "Off");
    auto b = make("Marker", "B");
    off->setEnabled(false);
    for (const auto& e : {a, off, b, source}) app->addOneEffect(e);
    // An element added during the pass runs in the same pass (doit only: preDoit is over).
    auto late = make("Marker", "Late");
    a->onDoit = [this, late] {
        if (app->liveEffects().back() != late) app->addOneEffect(late);
    };
    KDDelayedDispatcher::dispatch(this, "deferred", [] { testLog().append(QStringLiteral("dispatcher")); });

    const uint32_t seqBefore = app->shmem().frameSeq();
    testLog().clear();
    app->renderFrame();

    const QString seq = QString::number(seqBefore);
    EXPECT_EQ(testLog(), (QStringList{"dispatcher", QStringLiteral("studio.doit@%1").arg(1000.0 + clock.now_),
                                      "src.preDoit", "A.preDoit", "B.preDoit", "src.doit", "A.doit", "B.doit", "Late.doit",
                                      "studio.applyTransition", "preview seq=" + seq + " mirrored=0", "fullscreen seq=" + seq}));
    EXPECT_EQ(app->shmem().frameSeq(), seqBefore + 1) << "the shared-memory frame is published last";
    app->setPreview(nullptr);
}

TEST_F(LVControllerTest, PublishedFrameIsTheChainOnOpaqueBlackUnmirrored)
{
    OutputsDouble outputs(app->shmem());
    app->setPreview(&outputs);
    app->setMirrorImagePreview(true);
    // A red square in the bottom-left corner, on nothing else.
    auto marker = make("Marker", "Square");
    marker->paint = [](LVContext& context) { fillFrameRect(context, 0, 0, 10, 10, Qt::red); };
    app->addOneEffect(marker);
    app->setFrameRate(25);
    testLog().clear();
    app->renderFrame();
    EXPECT_TRUE(testLog().contains(QStringLiteral("preview seq=%1 mirrored=1").arg(app->shmem().frameSeq() - 1)));

    const Published frame;
    ASSERT_EQ(frame.result.status, 0);
    EXPECT_EQ(std::tuple(frame.result.width, frame.result.height, frame.result.frameRate), std::tuple(320, 240, 25));
    EXPECT_EQ(frame.length, 320u * 240u * 4u);
    const ARGB red{255, 255, 0, 0}, black{255, 0, 0, 0};
    EXPECT_EQ(frame.at(0, 239), red) << "bottom-left, rows top first";
    EXPECT_EQ(frame.at(9, 230), red);
    EXPECT_EQ(frame.at(10, 239), black);
    EXPECT_EQ(frame.at(319, 239), black) << "never mirrored";
    EXPECT_EQ(frame.at(0, 0), black) << "the frame starts opaque black";
    app->setPreview(nullptr);
}

TEST_F(LVControllerTest, OutputsThatAreOffAreSkipped)
{
    OutputsDouble outputs(app->shmem());
    outputs.visible = false;
    app->setPreview(&outputs);
    bool made = false;
    app->setSecondOutputMaker([&made] {
        made = true;
        return nullptr;
    });
    testLog().clear();
    app->renderFrame();
    EXPECT_TRUE(testLog().isEmpty()) << "a hidden preview draws nothing: " << testLog().join(QLatin1Char('\n')).toStdString();
    EXPECT_FALSE(made) << "the second output is never made while its preference is off";
    app->setSecondOutputMaker({});

    // Without the virtual driver nothing is published, but the preview still runs.
    outputs.visible = true;
    app->setNoVirtualDriver(true);
    EXPECT_FALSE(app->shmem().appRunning());
    EXPECT_EQ(Published().result.status, 1);
    const uint32_t seq = app->shmem().frameSeq();
    testLog().clear();
    app->renderFrame();
    EXPECT_EQ(app->shmem().frameSeq(), seq);
    EXPECT_EQ(testLog().size(), 1);
    app->setNoVirtualDriver(false);
    EXPECT_TRUE(app->shmem().appRunning());
    app->renderFrame();
    EXPECT_EQ(app->shmem().frameSeq(), seq + 1);
    app->setPreview(nullptr);
}

// The next frame is due one period after this frame's start, whatever the render took.
TEST_F(LVControllerTest, TimerIsRearmedFromTheFrameStart)
{
    start(true);
    EXPECT_TRUE(app->isTimerActive()) << "applying the frame rate starts the timer";
    EXPECT_EQ(app->lastTimerInterval(), 67);
    auto slow = make("Marker", "Slow");
    app->addOneEffect(slow);
    struct Case {
        int rate;
        double renderSeconds;
        int expectedMs;
    };
    for (const Case c : {Case{15, 0.100, 0}, Case{15, 0.020, 47}, Case{15, 0.0, 67}, Case{30, 0.010, 23},
                         Case{30, 0.034, 0}, Case{1, 0.5, 500}}) {
        app->setFrameRate(c.rate);
        slow->onDoit = [this, c] { clock.advance(c.renderSeconds); };
        app->doit();
        EXPECT_EQ(app->lastTimerInterval(), c.expectedMs) << c.rate << " fps, render " << c.renderSeconds;
        EXPECT_TRUE(app->isTimerActive());
    }
}

TEST_F(LVControllerTest, AnEffectThatHoldsEveryFrameUpIsNamedOnce)
{
    app->setFrameRate(15);
    auto fast = make("Marker", "Fast");
    auto slow = make("Marker", "Slow");
    // Half a second a frame, by the clock the controller reads.
    slow->onDoit = [this] { clock.advance(0.5); };
    app->addOneEffect(fast);
    app->addOneEffect(slow);
    std::vector<LVEffectRef> named;
    QObject::connect(app.get(), &Lumaveil::slowEffect, app.get(),
                     [&](const LVEffectRef& effect, double) { named.push_back(effect); });
    testing::internal::CaptureStderr();
    for (int frame = 0; frame < 40; ++frame) app->renderFrame();
    const std::string log = testing::internal::GetCapturedStderr();
    ASSERT_EQ(named.size(), 1u) << log;
    EXPECT_EQ(named.front(), LVEffectRef(slow));
    EXPECT_EQ(log, "Effect \"Slow\" takes 500 ms a frame, far over the 67 ms a frame has at 15 fps\n");
    // Once disabled, frames are fast again and nothing more is said.
    app->setEffectEnabled(1, false);
    for (int frame = 0; frame < 40; ++frame) app->renderFrame();
    EXPECT_EQ(named.size(), 1u);
}
