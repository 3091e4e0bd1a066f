// Strokes drawn with the mouse on the main window's preview reach the telestrator in frame
// coordinates, the same whatever size the preview has; the user menu's action clears them.
#include "control/usermenu/LVUserMenuActions.h"
#include "effects/registration/LVEffectKinds.h"
#include "effects/telestrator/Telestrator.h"
#include "gui/main/LVPreviewWidget.h"
#include "tests/gui/main/LVWindowTestSupport.h"

#include <cmath>

namespace {

class LVStrokeInputTest : public LVWindowTest {
protected:
    static void SetUpTestSuite()
    {
        LVWindowTest::SetUpTestSuite();
        LVRegisterEffectKinds();
    }
};

// A 320x240 frame shown on the preview, so it has a picture to draw on.
LVFramePixelsRef frame()
{
    auto pixels = std::make_shared<LVFramePixels>();
    pixels->width = 320;
    pixels->height = 240;
    pixels->stride = 320 * 4;
    pixels->bytes.assign(size_t(pixels->stride) * 240, 0x80);
    return pixels;
}

} // namespace

TEST(LVPreviewWidgetTest, WidgetPositionsBecomeFramePoints)
{
    struct Case {
        const char* what;
        QPointF position;
        QSizeF widget;
        bool mirrored, clamped;
        std::optional<QPointF> expected;
    };
    const QSizeF picture(320, 240);
    for (const Case& c : {
             Case{"fills the widget", {100, 75}, {400, 300}, false, false, QPointF(0.25, 0.25)},
             Case{"bars left and right", {300, 150}, {800, 300}, false, false, QPointF(0.25, 0.5)},
             Case{"bars above and below", {200, 200}, {400, 400}, false, false, QPointF(0.5, 0.5)},
             Case{"on a side bar", {100, 150}, {800, 300}, false, false, std::nullopt},
             Case{"on a side bar, clamped", {100, 150}, {800, 300}, false, true, QPointF(0, 0.5)},
             Case{"mirrored", {100, 75}, {400, 300}, true, false, QPointF(0.75, 0.25)},
             Case{"an empty widget", {0, 0}, {0, 0}, false, true, std::nullopt},
         }) {
        const auto got = LVPreviewWidget::framePointAt(c.position, picture, c.widget, c.mirrored, c.clamped);
        ASSERT_EQ(got.has_value(), c.expected.has_value()) << c.what;
        if (!got) continue;
        EXPECT_NEAR(got->x(), c.expected->x(), 1e-9) << c.what;
        EXPECT_NEAR(got->y(), c.expected->y(), 1e-9) << c.what;
    }
}

TEST_F(LVStrokeInputTest, AStrokeLandsWhereDrawnAtAnyPreviewSize)
{
    start(QStringLiteral(LV_TEST_BUNDLED_EFFECTS));
    ASSERT_TRUE(app->addNamedEffect(QStringLiteral("Telestrator")));
    auto* telestrator = dynamic_cast<Telestrator*>(app->liveEffects().back().get());
    ASSERT_TRUE(telestrator);
    auto* preview = window->findChild<LVPreviewWidget*>(QStringLiteral("preview"));
    ASSERT_TRUE(preview);
    preview->showPicture(frame(), false);

    // The same picture points, drawn on a preview of two sizes (the second letterboxed).
    const std::vector<QPointF> drawn = {{0.25, 0.5}, {0.5, 0.25}, {0.75, 0.75}};
    struct Size {
        QSize widget;
        QRectF picture;  // where the picture shows inside the widget
    };
    for (const Size& s : {Size{{400, 300}, {0, 0, 400, 300}}, Size{{600, 200}, {167, 0, 266, 200}}}) {
        preview->setFixedSize(s.widget);
        QApplication::processEvents();
        ASSERT_EQ(preview->size(), s.widget);
        const auto at = [&](QPointF p) {
            return QPoint(int(std::lround(s.picture.x() + p.x() * s.picture.width())),
                          int(std::lround(s.picture.y() + p.y() * s.picture.height())));
        };
        QTest::mousePress(preview, Qt::LeftButton, {}, at(drawn[0]));
        QTest::mouseMove(preview, at(drawn[1]));
        QTest::mouseRelease(preview, Qt::LeftButton, {}, at(drawn[2]));

        const auto& strokes = telestrator->strokes().strokes();
        ASSERT_FALSE(strokes.empty());
        const LVStroke& stroke = strokes.back();
        EXPECT_FALSE(telestrator->strokes().isDrawing());
        ASSERT_EQ(stroke.points.size(), drawn.size()) << s.widget.width();
        for (size_t i = 0; i < drawn.size(); ++i) {
            // Within one widget pixel of where it was meant.
            EXPECT_NEAR(stroke.points[i].x(), drawn[i].x(), 1.0 / s.picture.width()) << s.widget.width();
            EXPECT_NEAR(stroke.points[i].y(), drawn[i].y(), 1.0 / s.picture.height()) << s.widget.width();
        }
    }
    EXPECT_EQ(telestrator->strokes().strokes().size(), 2u);

    // A press outside the picture draws nothing; nor does one with no telestrator enabled.
    QTest::mouseClick(preview, Qt::LeftButton, {}, QPoint(20, 100));
    EXPECT_EQ(telestrator->strokes().strokes().size(), 2u);
    telestrator->setEnabled(false);
    QTest::mouseClick(preview, Qt::LeftButton, {}, QPoint(300, 100));
    EXPECT_EQ(telestrator->strokes().strokes().size(), 2u);
    telestrator->setEnabled(true);

    // The user menu's action, as it comes back from the preferences.
    const auto action = LVUserMenuAction::decode(LVClearTelestratorMenuAction().encode());
    ASSERT_TRUE(action);
    EXPECT_EQ(action->summary(), QStringLiteral("Clear Telestrator"));
    action->invoke(LVUserMenuTargets{app.get(), nullptr});
    EXPECT_TRUE(telestrator->strokes().isEmpty());
}
