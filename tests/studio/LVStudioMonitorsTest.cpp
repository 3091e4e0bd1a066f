// The studio's monitors: Preview's picture for its monitor, Program's from the frame's one
// read-back that the main preview shares.
#include "tests/studio/LVStudioTestSupport.h"

#include <gtest/gtest.h>

namespace {

class PictureMonitor : public LVPictureOutput {
public:
    bool isPreviewVisible() const override { return visible; }
    void showPicture(const LVFramePixelsRef& picture, bool) override { last = picture; }
    QRgb centre() const { return last ? last->image().pixel(last->width / 2, last->height / 2) : 0; }
    bool visible = true;
    LVFramePixelsRef last;
};

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

    struct Case {
        bool programShown, previewShown;
    };
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
