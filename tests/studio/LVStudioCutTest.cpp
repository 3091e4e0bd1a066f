// A cut to a setup whose compositions are still compiling: the published picture stays the
// old one until they can draw, then becomes the new one; never black, never half-built.
#include "tests/studio/LVStudioTestSupport.h"

#include "effects/composition/LVISFProgram.h"
#include "effects/registration/LVEffectKinds.h"

namespace {

class LVStudioCutTest : public LVStudioTest {
protected:
    static void SetUpTestSuite()
    {
        LVStudioTest::SetUpTestSuite();
        LVRegisterEffectKinds();
    }

    void SetUp() override
    {
        LVStudioTest::SetUp();
        QString error;
        ASSERT_TRUE(LVISFProgramBuilder::startWorker(&error)) << error.toStdString();
    }
    void TearDown() override
    {
        LVISFProgramBuilder::holdWorker(false);
        LVStudioTest::TearDown();
        EXPECT_TRUE(LVISFProgramBuilder::stopWorker(10.0));
    }

    // A setup of a solid source under compositions; its button is made by the studio.
    LVStudioButtonRef addCompositionSetup(const QString& name, QColor colour, const QStringList& compositions)
    {
        std::vector<LVEffectRef> effects{makeTestEffect(QStringLiteral("RedSource"), app->context())};
        for (const QString& composition : compositions) {
            LVEffectRef effect = app->instantiateNamedEffect(composition);
            EXPECT_TRUE(effect) << composition.toStdString();
            if (effect) effects.push_back(effect);
        }
        if (!manager->newSavedSetupWithName(name, effects)) return nullptr;
        LVStudioButtonRef button = studio->buttonHavingName(name);
        if (button) paintSolid(*button, colour);
        return button;
    }

    // Frames until every composition asked for has its program, then one more to draw with it.
    void settle()
    {
        frameAfter(0.04);
        ASSERT_TRUE(LVISFProgramBuilder::waitUntilIdle(20.0));
        frameAfter(0.04);
        ASSERT_TRUE(LVISFProgramBuilder::waitUntilIdle(20.0));
        frameAfter(0.04);
    }
};

TEST_F(LVStudioCutTest, ACutShowsTheOldPictureUntilTheNewCompositionsCanDraw)
{
    // A composition no earlier case compiled; whether the new setup was drawn in Preview before
    // the cut; where the composition changes the source's picture.
    const struct { const char* newComposition; bool previewedFirst; int x, y; } cases[] = {
        {"Black and White", true, 20, 20}, {"Vignette", false, 1, 1}};
    const QColor red(204, 0, 102), blue(0, 102, 204);
    int round = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.newComposition);
        const QString oldName = QStringLiteral("old%1").arg(round), newName = QStringLiteral("new%1").arg(round);
        ++round;
        const LVStudioButtonRef old = addCompositionSetup(oldName, red, {QStringLiteral("Mirror")});
        ASSERT_TRUE(old);
        old->punchToAir();
        settle();
        const ARGB oldPicture = pixel(c.x, c.y);
        ASSERT_EQ(oldPicture, (ARGB{255, 204, 0, 102}));

        // The builder is held: the new setup's compositions cannot be ready at the cut.
        LVISFProgramBuilder::holdWorker(true);
        const LVStudioButtonRef next = addCompositionSetup(newName, blue, {QString::fromLatin1(c.newComposition)});
        ASSERT_TRUE(next);
        next->selectForAir();
        if (c.previewedFirst) frameAfter(0.04);
        studio->doCut();
        std::vector<ARGB> published;
        for (int i = 0; i < 5; ++i) {
            frameAfter(0.04);
            published.push_back(pixel(c.x, c.y));
        }
        EXPECT_EQ(studio->programButtonNames(), QStringList{newName});
        LVISFProgramBuilder::holdWorker(false);
        ASSERT_TRUE(LVISFProgramBuilder::waitUntilIdle(20.0));
        for (int i = 0; i < 3; ++i) {
            frameAfter(0.04);
            published.push_back(pixel(c.x, c.y));
        }
        const ARGB newPicture = published.back();
        EXPECT_NE(newPicture, oldPicture);
        EXPECT_NE(newPicture, (ARGB{255, 0, 102, 204})) << "the new composition draws on the new source";
        for (size_t i = 0; i < published.size(); ++i)
            EXPECT_TRUE(published[i] == oldPicture || published[i] == newPicture)
                << "frame " << i << " after the cut: " << testing::PrintToString(published[i]);
        EXPECT_EQ(published.front(), oldPicture) << "nothing is ready while the builder is held";

        // Off air again before the next case.
        next->punchToOffAir();
        old->punchToOffAir();
        frameAfter(0.04);
    }
}

TEST_F(LVStudioCutTest, ABuilderThatNeverAnswersDelaysTheCutOnlyBriefly)
{
    const LVStudioButtonRef old = addCompositionSetup(QStringLiteral("old"), QColor(204, 0, 102), {QStringLiteral("Mirror")});
    ASSERT_TRUE(old);
    old->punchToAir();
    settle();
    LVISFProgramBuilder::holdWorker(true);
    const LVStudioButtonRef next = addCompositionSetup(QStringLiteral("stuck"), QColor(0, 102, 204), {QStringLiteral("Sharpen")});
    ASSERT_TRUE(next);
    next->selectForAir();
    studio->doCut();
    frameAfter(0.04);
    EXPECT_EQ(pixel(5, 5), (ARGB{255, 204, 0, 102})) << "waiting for the new compositions";
    // Past the wait, the new setup goes on air as it is: its source without the composition.
    frameAfter(2.5);
    frameAfter(0.04);
    EXPECT_EQ(pixel(5, 5), (ARGB{255, 0, 102, 204}));
}

} // namespace
