// The studio on a real controller: buttons following the current set, Program rebuilt from
// the states, transitions timed by the frame clock, and the pictures that come out.
#include "tests/studio/LVStudioTestSupport.h"

#include <cmath>
#include <limits>

namespace {

// Records every fraction it is given.
class LVRecordingTransition : public LVEffect {
public:
    const LVEffectDescriptor& descriptor() const override
    {
        static const LVEffectDescriptor d{"RecordingTransition", "Recording", LVEffectRole::Transition,
                                          [] { return std::make_unique<LVRecordingTransition>(); }, {}};
        return d;
    }
    void doTransitionTo(const LVTexture& other, double percentage) override
    {
        fractions.push_back(percentage);
        targets.push_back(other.name);
    }
    std::vector<double> fractions;
    std::vector<GLuint> targets;
};

std::shared_ptr<LVRecordingTransition> recordingTransition()
{
    auto handle = LVMakeEffectHandle(std::make_unique<LVRecordingTransition>());
    return std::static_pointer_cast<LVRecordingTransition>(handle);
}

QStringList buttonNames(const LVStudio& studio)
{
    QStringList names;
    for (const auto& button : studio.studioButtons()) names.append(button->name());
    names.sort();
    return names;
}

const QColor kRed(204, 0, 102);
const QColor kBlue(0, 102, 204);
const ARGB kRedPixel{255, 204, 0, 102};
const ARGB kBluePixel{255, 0, 102, 204};

TEST_F(LVStudioTest, ButtonsFollowTheCurrentSet)
{
    addSetup(QStringLiteral("Intro"), kRed);
    addSetup(QStringLiteral("Lower third"), {}, 1);
    const LVStudioButtonRef outro = addSetup(QStringLiteral("Outro"), kBlue);
    EXPECT_EQ(buttonNames(*studio), (QStringList{"Intro", "Lower third", "Outro"}));
    EXPECT_EQ(studio->buttonHavingName(QStringLiteral("Lower third"))->row(), 1);
    EXPECT_EQ(studio->buttonHavingUID(outro->uid()), outro);

    // A named set without Outro: Outro's button is set idle first, so it leaves Program.
    outro->punchToAir();
    KDDelayedDispatcher::flush();
    ASSERT_EQ(chainNames(), (QStringList{"Outro:Red Source"}));
    LVSetupManagerSet* show = manager->addSet(QStringLiteral("Show"));
    show->addSetup(manager->setupWithName(QStringLiteral("Intro")));
    show->addSetup(manager->setupWithName(QStringLiteral("Lower third")));
    const LVStudioButtonRef intro = studio->buttonHavingName(QStringLiteral("Intro"));
    manager->selectSetWithName(QStringLiteral("Show"));
    EXPECT_EQ(buttonNames(*studio), (QStringList{"Intro", "Lower third"}));
    EXPECT_EQ(outro->state(), 0u);
    EXPECT_EQ(outro->bus(), nullptr);
    EXPECT_EQ(studio->buttonHavingName(QStringLiteral("Intro")), intro) << "kept buttons are not rebuilt";
    KDDelayedDispatcher::flush();
    EXPECT_TRUE(app->liveEffects().empty());
    EXPECT_TRUE(show->positionHintForSetup(QStringLiteral("Intro")).has_value());
    EXPECT_FALSE(show->positionHintForSetup(QStringLiteral("Outro")).has_value());

    // Back to all setups: Outro comes back, idle, at its old place.
    manager->selectSetWithName(QString());
    const LVStudioButtonRef again = studio->buttonHavingName(QStringLiteral("Outro"));
    ASSERT_TRUE(again);
    EXPECT_NE(again, outro);
    EXPECT_EQ(again->state(), 0u);
    EXPECT_EQ(again->row(), 0);
    EXPECT_EQ(again->col(), outro->col());
}

// New buttons land in Preview; copies answer the same key; neither ever takes a used name.
TEST_F(LVStudioTest, NewAndCopiedButtonsNeverOverwrite)
{
    const LVStudioButtonRef first = studio->doNewButton();
    const LVStudioButtonRef second = studio->doNewButton();
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->name() + QLatin1Char('|') + second->name(), QStringLiteral("Untitled|Untitled 1"));
    EXPECT_EQ(second->state(), uint32_t(LVButtonPreview));
    EXPECT_NE(std::make_pair(first->row(), first->col()), std::make_pair(second->row(), second->col()));
    first->doDelete();
    EXPECT_FALSE(QFileInfo::exists(first->setup()->path()));
    EXPECT_EQ(studio->makeNewButton()->name(), QStringLiteral("Untitled"));

    const LVStudioButtonRef intro = addSetup(QStringLiteral("Intro"), kRed, 1);
    intro->setMIDIKey(0x903C);
    const LVStudioButtonRef copy = intro->doDuplicate();
    const LVStudioButtonRef copy2 = intro->doDuplicate();
    ASSERT_TRUE(copy && copy2);
    EXPECT_EQ(copy->name() + QLatin1Char('|') + copy2->name(), QStringLiteral("Copy of Intro|Copy of Intro 1"));
    EXPECT_EQ(copy->midiKey(), 0x903Cu);
    EXPECT_EQ(copy->setup()->numEffects(), 2);
    EXPECT_TRUE(QFileInfo::exists(copy2->setup()->path()));
}

TEST_F(LVStudioTest, ProgramIsRebuiltOncePerBurst)
{
    const LVStudioButtonRef intro = addSetup(QStringLiteral("Intro"), kRed, 1);
    const LVStudioButtonRef strap = addSetup(QStringLiteral("Strap"), {}, 2);
    const LVStudioButtonRef outro = addSetup(QStringLiteral("Outro"), kBlue);
    KDDelayedDispatcher::flush();
    intro->punchToAir();
    strap->punchToAir();
    outro->selectForAir();
    EXPECT_EQ(KDDelayedDispatcher::pendingCount(), 2u) << "one Program rebuild and one list notice";
    KDDelayedDispatcher::flush();
    EXPECT_EQ(chainNames(), (QStringList{"Intro:Red Source", "Intro:Marker", "Strap:Marker", "Strap:Marker"}));
    EXPECT_EQ(intro->effects()[0]->mode(), LVModeLive);
    EXPECT_EQ(outro->effects()[0]->mode(), LVModePreview);
    EXPECT_EQ(studio->previewButtonNames(), (QStringList{"Outro", "Strap"}));

    // The cut touches three buttons and rebuilds Program once, with the same effect objects.
    const LVEffectRef outroSource = outro->effects()[0];
    studio->doCut();
    EXPECT_EQ(KDDelayedDispatcher::pendingCount(), 2u);
    KDDelayedDispatcher::flush();
    EXPECT_EQ(chainNames(), (QStringList{"Outro:Red Source", "Strap:Marker", "Strap:Marker"}));
    EXPECT_EQ(app->liveEffects().front(), outroSource);
    EXPECT_EQ(intro->state(), 0u);
    EXPECT_EQ(studio->programButtonNames(), (QStringList{"Outro", "Strap"}));

    studio->doClear();
    EXPECT_EQ(outro->state(), uint32_t(LVButtonLeaving));
    EXPECT_EQ(strap->state(), uint32_t(LVButtonLeaving));
    studio->doCut();
    KDDelayedDispatcher::flush();
    EXPECT_TRUE(app->liveEffects().empty());
}

TEST_F(LVStudioTest, TransitionFractionsRiseToExactlyOneThenCut)
{
    const struct { double transitionTime, step; std::vector<double> fractions; } cases[] = {
        {1.0, 0.125, {0, 0.125, 0.25, 0.375, 0.5, 0.625, 0.75, 0.875, 1.0}},
        {0.5, 0.25, {0, 0.5, 1.0}},
        {0.5, 0.375, {0, 0.75, 1.0}},  // the last frame comes late: clamped to 1
        {0.25, 1.0, {0, 1.0}},
    };
    const LVStudioButtonRef a = addSetup(QStringLiteral("A"), kRed);
    const LVStudioButtonRef b = addSetup(QStringLiteral("B"), kBlue);
    for (const auto& c : cases) {
        a->punchToAir();
        b->selectForAir();
        KDDelayedDispatcher::flush();
        ASSERT_TRUE(studio->setTransitionTime(c.transitionTime));
        const auto transition = recordingTransition();
        studio->startTransition(transition);
        EXPECT_EQ(b->state(), uint32_t(LVButtonTransitioning));
        EXPECT_EQ(b->effects()[0]->mode(), LVModeTransition);
        frameAfter(0);
        while (studio->isTransitionRunning()) {
            EXPECT_EQ(studio->transitionFraction(), transition->fractions.back());
            frameAfter(c.step);
        }
        EXPECT_EQ(transition->fractions, c.fractions) << "transition time " << c.transitionTime;
        EXPECT_EQ(b->state(), uint32_t(LVButtonOnAir));
        EXPECT_EQ(a->state(), 0u);
        EXPECT_EQ(transition->targets.back(), studio->previewBuffer().name) << "blends towards the Preview frame";
        frameAfter(c.step);
        EXPECT_EQ(transition->fractions.size(), c.fractions.size()) << "nothing after the cut";
        b->punchToOffAir();
    }
}

TEST_F(LVStudioTest, ANewTransitionRestartsTheClockAndACutDoesNotStopIt)
{
    const LVStudioButtonRef a = addSetup(QStringLiteral("A"), kRed);
    const LVStudioButtonRef b = addSetup(QStringLiteral("B"), kBlue);
    const LVStudioButtonRef e = addSetup(QStringLiteral("E"), {}, 1);
    a->punchToAir();
    b->selectForAir();
    KDDelayedDispatcher::flush();
    const auto first = recordingTransition();
    studio->startTransition(first);
    frameAfter(0.5);
    const auto second = recordingTransition();
    studio->startTransition(second);
    frameAfter(0.5);
    EXPECT_EQ(second->fractions, (std::vector<double>{0.5}));
    EXPECT_EQ(first->fractions.size(), 1u);

    studio->doCut(); // B goes on air at once; the transition runs on
    EXPECT_EQ(b->state(), uint32_t(LVButtonOnAir));
    e->selectForAir();
    frameAfter(0.5);
    EXPECT_FALSE(studio->isTransitionRunning());
    EXPECT_EQ(e->state(), uint32_t(LVButtonOnAir)) << "the time-up cut takes what is in Preview then";
}

TEST_F(LVStudioTest, DissolveHalfwayBlendsTheTwoSetupsExactly)
{
    const LVStudioButtonRef a = addSetup(QStringLiteral("A"), kRed, 1);
    const LVStudioButtonRef b = addSetup(QStringLiteral("B"), kBlue, 1);
    a->punchToAir();
    frameAfter(0.1);
    EXPECT_EQ(pixel(5, 5), kRedPixel);
    b->selectForAir();
    frameAfter(0.1);
    EXPECT_EQ(pixel(5, 5), kRedPixel) << "Preview does not leak into Program";

    studio->doDissolve();
    frameAfter(0.5);
    EXPECT_EQ(studio->transitionFraction(), 0.5);
    EXPECT_PRED2(lvNearPixel, pixel(5, 5), (ARGB{255, 102, 51, 153}));
    EXPECT_PRED2(lvNearPixel, pixel(app->context()->width() - 1, app->context()->height() - 1), (ARGB{255, 102, 51, 153}));
    frameAfter(0.5);
    EXPECT_EQ(pixel(5, 5), kBluePixel) << "ends on the incoming setup";
    frameAfter(0.1);
    EXPECT_EQ(pixel(5, 5), kBluePixel);
    EXPECT_EQ(studio->programButtonNames(), (QStringList{"B"}));

    // The dissolve is made once and reused.
    a->selectForAir();
    studio->doDissolve();
    frameAfter(0.25);
    EXPECT_PRED2(lvNearPixel, pixel(5, 5), (ARGB{255, 51, 76, 178}));
}

TEST_F(LVStudioTest, InSwapModeTwoCutsReturnToTheStartingPicture)
{
    const LVStudioButtonRef a = addSetup(QStringLiteral("A"), kRed);
    const LVStudioButtonRef b = addSetup(QStringLiteral("B"), kBlue);
    a->punchToAir();
    b->selectForAir();
    studio->setSwapMode(true);
    const struct { ARGB picture; QStringList program, preview; } steps[] = {
        {kRedPixel, {"A"}, {"B"}},
        {kBluePixel, {"B"}, {"A"}},
        {kRedPixel, {"A"}, {"B"}},
    };
    for (size_t i = 0; i < std::size(steps); ++i) {
        if (i > 0) studio->doCut();
        frameAfter(0.1);
        EXPECT_EQ(pixel(5, 5), steps[i].picture) << "after " << i << " cuts";
        EXPECT_EQ(studio->programButtonNames(), steps[i].program) << i;
        EXPECT_EQ(studio->previewButtonNames(), steps[i].preview) << i;
    }
}

TEST_F(LVStudioTest, WithNothingInPreviewATransitionFadesToBlack)
{
    const LVStudioButtonRef a = addSetup(QStringLiteral("A"), kRed);
    a->punchToAir();
    frameAfter(0.1);
    studio->doClear();
    studio->doDissolve();
    frameAfter(0.5);
    EXPECT_PRED2(lvNearPixel, pixel(5, 5), (ARGB{255, 102, 0, 51}));
    frameAfter(0.5);
    EXPECT_EQ(pixel(5, 5), (ARGB{255, 0, 0, 0}));
    // The next frame starts with Program rebuilt from the cut.
    frameAfter(0.1);
    EXPECT_TRUE(app->liveEffects().empty());
    EXPECT_EQ(pixel(5, 5), (ARGB{255, 0, 0, 0}));
}

TEST_F(LVStudioTest, NamedTransitionsAndTransitionTime)
{
    EXPECT_EQ(studio->namedTransition(), studio->transitionNames().front());
    EXPECT_TRUE(studio->setNamedTransition(QStringLiteral("Wipe")));
    EXPECT_FALSE(studio->setNamedTransition(QStringLiteral("wipe")));
    EXPECT_FALSE(studio->setNamedTransition(QStringLiteral("No Such Transition")));
    EXPECT_EQ(studio->namedTransition(), QStringLiteral("Wipe"));
    for (double bad : {0.0, -1.0, std::nan(""), std::numeric_limits<double>::infinity()})
        EXPECT_FALSE(studio->setTransitionTime(bad)) << bad;
    EXPECT_EQ(studio->transitionTime(), 1.0);

    // The selected entry is what doTransition instantiates.
    const LVStudioButtonRef b = addSetup(QStringLiteral("B"), kBlue);
    b->selectForAir();
    studio->doTransition();
    EXPECT_TRUE(studio->isTransitionRunning());
    EXPECT_EQ(b->state(), uint32_t(LVButtonTransitioning));
}

// The window's own tests cover the frame and swap mode it stores; without a window the
// stored frame must survive a quit.
TEST_F(LVStudioTest, WithoutAWindowQuitKeepsTheStoredFrame)
{
    defaults->setValue(QStringLiteral("studioFrame"), QStringLiteral("{{10, 20}, {300, 200}}"));
    app->applicationWillTerminate();
    EXPECT_EQ(defaults->stringForKey(QStringLiteral("studioFrame")), QStringLiteral("{{10, 20}, {300, 200}}"));
}

TEST_F(LVStudioTest, SnapshotMakesTheIconFromTheButtonsPicture)
{
    const LVStudioButtonRef button = addSetup(QStringLiteral("Intro"), kRed);
    button->snapshot();
    const QImage icon = button->setup()->icon();
    ASSERT_EQ(icon.size(), QSize(64, 64));
    EXPECT_EQ(icon.pixelColor(32, 32).rgb(), kRed.rgb());
    EXPECT_FALSE(LVSavedSetup(app->context(), button->setup()->path()).iconData().isEmpty()) << "persisted";
}

// Keeps the last picture it was shown, and counts them.
class PictureMonitor : public LVPictureOutput {
public:
    bool isPreviewVisible() const override { return visible; }
    void showPicture(const LVFramePixelsRef& picture, bool) override
    {
        last = picture;
        ++draws;
    }
    QRgb centre() const { return last ? last->image().pixel(last->width / 2, last->height / 2) : 0; }
    bool visible = true;
    int draws = 0;
    LVFramePixelsRef last;
};

TEST_F(LVStudioTest, PreviewRendersOnlyWhenShownAndWanted)
{
    PictureMonitor monitor;
    studio->setPreviewMonitor(&monitor);
    const LVStudioButtonRef b = addSetup(QStringLiteral("B"), kBlue, 1);
    frameAfter(0.1);
    EXPECT_EQ(monitor.draws, 0) << "nothing in Preview";
    b->selectForAir();
    testLog().clear();
    frameAfter(0.1);
    EXPECT_EQ(monitor.draws, 1);
    EXPECT_EQ(testLog(), (QStringList{"Red Source.preDoit", "Marker.preDoit", "Red Source.doit", "Marker.doit"}));
    monitor.visible = false;
    testLog().clear();
    frameAfter(0.1);
    EXPECT_EQ(monitor.draws, 1);
    EXPECT_TRUE(testLog().isEmpty());
    // A transition needs the Preview picture even with the monitor hidden.
    studio->startTransition(nullptr);
    frameAfter(0.1);
    EXPECT_EQ(monitor.draws, 1);
    EXPECT_TRUE(testLog().contains(QStringLiteral("Red Source.doit")));
    frameAfter(1.0);
    EXPECT_EQ(b->state(), uint32_t(LVButtonOnAir));
    b->punchToOffAir();
    b->selectForAir();

    // Frame-rate readout: sampled over more than 2 s of shown frames.
    monitor.visible = true;
    studio->doFPS(false);
    EXPECT_TRUE(studio->fpsLabel().isEmpty()) << "only with Option";
    studio->doFPS(true);
    EXPECT_EQ(studio->fpsLabel(), QStringLiteral("FPS"));
    for (int i = 0; i < 16; ++i) frameAfter(0.125);
    EXPECT_EQ(studio->fpsLabel(), QStringLiteral("FPS"));
    frameAfter(0.125);
    EXPECT_EQ(studio->fpsLabel(), QStringLiteral("8.0"));
    studio->setPreviewMonitor(nullptr);
}

TEST_F(LVStudioTest, ProgramMonitorSharesTheFramesReadBackAndPreviewShowsItsOwnPicture)
{
    PictureMonitor previewMonitor, programMonitor, mainPreview;
    studio->setPreviewMonitor(&previewMonitor);
    studio->setProgramMonitor(&programMonitor);
    app->setPreview(&mainPreview);
    const LVStudioButtonRef onAir = addSetup(QStringLiteral("On air"), QColor(Qt::red));
    const LVStudioButtonRef next = addSetup(QStringLiteral("Next"), QColor(Qt::blue));
    onAir->punchToAir();
    next->selectForAir();
    frameAfter(0.1);

    struct Case { bool programShown, previewShown; };
    for (const Case c : {Case{true, true}, Case{true, false}, Case{false, true}, Case{false, false}}) {
        programMonitor.visible = c.programShown;
        mainPreview.visible = c.previewShown;
        programMonitor.last = mainPreview.last = previewMonitor.last = nullptr;
        const uint64_t before = app->outputs().readBacks();
        frameAfter(0.1);
        // Shared memory takes the frame too: one read-back serves all three.
        EXPECT_EQ(app->outputs().readBacks() - before, 1u) << c.programShown << c.previewShown;
        EXPECT_EQ(bool(programMonitor.last), c.programShown);
        if (c.programShown && c.previewShown) {
            EXPECT_EQ(programMonitor.last, mainPreview.last) << "one buffer for both";
        }
        if (c.programShown) {
            EXPECT_EQ(programMonitor.centre(), QColor(Qt::red).rgb());
        }
        EXPECT_EQ(previewMonitor.centre(), QColor(Qt::blue).rgb()) << "Preview's own picture";
    }
    studio->setProgramMonitor(nullptr);
    EXPECT_EQ(app->outputs().driver(LVOutputSlot::ProgramMonitor), nullptr);
    app->setPreview(nullptr);
    studio->setPreviewMonitor(nullptr);
}

} // namespace
