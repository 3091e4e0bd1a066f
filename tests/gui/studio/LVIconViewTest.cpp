// The button grid: its geometry, the views it keeps for the bus, clicks, the drop rules and
// what each kind of drop makes, and a button's context menu.
#include "tests/gui/studio/LVStudioGuiTestSupport.h"

#include "gui/studio/LVButtonEditController.h"

#include <QMenu>
#include <QPushButton>

namespace {

TEST(LVIconViewGeometryTest, CellsAreDrawnOnThePitchButHitTestedOnSixtyNine)
{
    // 0,0 is truncated toward zero, not floored; 72,72 is past the pitch, still cell 0; at 140 column 2
    // is drawn but column 1 is hit.
    struct Case { QPointF point; LVGridCell cell; };
    for (const Case& c : {Case{{4, 4}, {0, 0}}, Case{{0, 0}, {0, 0}}, Case{{72, 72}, {0, 0}}, Case{{73, 10}, {0, 1}},
                          Case{{140, 10}, {0, 1}}, Case{{142, 10}, {0, 2}}, Case{{10, 140}, {1, 0}},
                          Case{{280, 211}, {3, 4}}}) {
        EXPECT_EQ(LVIconView::cellAt(c.point), c.cell) << c.point.x() << "," << c.point.y();
    }
}

class LVIconViewTest : public LVStudioGuiTest {
protected:
    void SetUp() override
    {
        LVStudioGuiTest::SetUp();
        grid = std::make_unique<LVIconView>(*app, *studio);
        grid->setBus(&studio->mainBus());
        grid->resize(600, 400);
        grid->show();
    }

    void TearDown() override
    {
        grid.reset();
        LVStudioGuiTest::TearDown();
    }

    LVStudioButtonView* viewOf(const LVStudioButtonRef& button) const { return grid->buttonViewHavingUID(button->uid()); }

    static QPoint centreOf(int row, int col) { return LVIconView::cellOrigin(row, col) + QPoint(32, 32); }

    std::unique_ptr<LVIconView> grid;
};

TEST_F(LVIconViewTest, ViewsFollowTheBusAndTheGridWantsOneSpareRowAndColumn)
{
    EXPECT_EQ(grid->wantedSize(), QSize(140, 140));
    const LVStudioButtonRef intro = addSetup(QStringLiteral("Intro"), kGridRed);
    const LVStudioButtonRef lower = addSetup(QStringLiteral("Lower third"), {}, 1);
    ASSERT_TRUE(intro && lower);
    ASSERT_EQ(grid->buttonViews().size(), 2u);
    EXPECT_EQ(viewOf(intro)->geometry(), QRect(4, 4, 64, 64));
    EXPECT_EQ(viewOf(lower)->geometry(), QRect(4, 72, 64, 64));
    EXPECT_EQ(grid->itemAtRow(1, 0), viewOf(lower));

    lower->setRow(2, 3);
    EXPECT_EQ(viewOf(lower)->pos(), QPoint(208, 140)) << "a move re-places the view at once";
    EXPECT_EQ(grid->wantedSize(), QSize(68 * 5 + 4, 68 * 4 + 4));
    // The resize waits for the end of the pass, however many buttons moved.
    EXPECT_NE(grid->minimumSize(), grid->wantedSize());
    QCoreApplication::processEvents();
    EXPECT_EQ(grid->minimumSize(), grid->wantedSize());

    lower->doDelete();
    EXPECT_EQ(grid->buttonViews().size(), 1u);
    EXPECT_EQ(grid->wantedSize(), QSize(140, 140));
}

TEST_F(LVIconViewTest, ClicksToggleAndAltClicksGoStraightOnOrOffAir)
{
    const LVStudioButtonRef intro = addSetup(QStringLiteral("Intro"), kGridRed);
    ASSERT_TRUE(intro);
    // The state machine has its own tests; here a click is a normal toggle, an Alt-click an Option toggle.
    struct Step { Qt::KeyboardModifiers modifiers; uint32_t state; };
    for (const Step& step : {Step{Qt::NoModifier, LVButtonPreview}, Step{Qt::NoModifier, LVButtonIdle},
                             Step{Qt::AltModifier, LVButtonOnAir}, Step{Qt::AltModifier, LVButtonIdle}}) {
        QTest::mouseClick(viewOf(intro), Qt::LeftButton, step.modifiers, QPoint(30, 30));
        EXPECT_EQ(intro->state(), step.state);
    }
}

TEST_F(LVIconViewTest, DropRulesKeepSourcesInRowZeroAndEffectsBelow)
{
    const LVStudioButtonRef source = addSetup(QStringLiteral("Camera"), kGridRed);
    const LVStudioButtonRef effect = addSetup(QStringLiteral("Caption"), {}, 1);
    ASSERT_TRUE(source && effect);
    ASSERT_EQ(source->row(), 0);
    ASSERT_EQ(effect->row(), 1);
    LVStudioButton stranger(makeLooseSetup(dir, QStringLiteral("Stranger"), true), app->context());
    QMimeData text;
    text.setText(QStringLiteral("not a button"));

    struct Case {
        const char* what;
        std::unique_ptr<QMimeData> data;
        QPoint point;
        Qt::DropActions actions;
        bool accepted;
        Qt::DropAction action;
    };
    Case cases[] = {
        {"source along row 0", buttonMime(*source), centreOf(0, 2), Qt::MoveAction, true, Qt::MoveAction},
        {"source into row 1", buttonMime(*source), centreOf(1, 2), Qt::MoveAction, false, Qt::IgnoreAction},
        {"effect into row 0", buttonMime(*effect), centreOf(0, 3), Qt::MoveAction, false, Qt::IgnoreAction},
        {"effect into row 2", buttonMime(*effect), centreOf(2, 1), Qt::MoveAction, true, Qt::MoveAction},
        {"Alt offers only a copy", buttonMime(*source), centreOf(0, 1), Qt::CopyAction, true, Qt::CopyAction},
        {"move or copy offered is a move", buttonMime(*effect), centreOf(1, 1), Qt::CopyAction | Qt::MoveAction, true,
         Qt::MoveAction},
        {"onto a taken cell", buttonMime(*effect), centreOf(0, 0), Qt::MoveAction, false, Qt::IgnoreAction},
        {"a button of no view", buttonMime(stranger), centreOf(0, 3), Qt::MoveAction, false, Qt::IgnoreAction},
        {"files on an empty cell", filesMime({writeImage("a.png")}), centreOf(1, 3), Qt::CopyAction, true, Qt::CopyAction},
        {"files on a taken cell", filesMime({writeImage("b.png")}), centreOf(1, 0), Qt::CopyAction, false, Qt::IgnoreAction},
    };
    for (const Case& c : cases) {
        const LVDragResult result = lvDragTo(grid.get(), c.point, *c.data, c.actions, false);
        EXPECT_TRUE(result.entered) << c.what;
        EXPECT_EQ(result.accepted, c.accepted) << c.what;
        if (c.accepted) {
            EXPECT_EQ(result.action, c.action) << c.what;
        }
        EXPECT_EQ(grid->dropTarget(), LVGridCell{}) << c.what << ": leaving clears the target";
    }
    EXPECT_FALSE(lvDragTo(grid.get(), centreOf(2, 2), text, Qt::CopyAction, false).entered);
}

TEST_F(LVIconViewTest, DroppingMovesCopiesOrMakesAQuickEffectButton)
{
    const LVStudioButtonRef source = addSetup(QStringLiteral("Camera"), kGridRed);
    const LVStudioButtonRef effect = addSetup(QStringLiteral("Caption"), {}, 1);
    ASSERT_TRUE(source && effect);

    EXPECT_TRUE(lvDragTo(grid.get(), centreOf(0, 3), *buttonMime(*source), Qt::MoveAction, true).accepted);
    EXPECT_EQ(std::make_pair(source->row(), source->col()), std::make_pair(0, 3));
    EXPECT_EQ(manager->currentSet()->positionHintForSetup(QStringLiteral("Camera"))->col, 3) << "the place is kept";

    EXPECT_TRUE(lvDragTo(grid.get(), centreOf(2, 1), *buttonMime(*effect), Qt::CopyAction, true).accepted);
    const LVStudioButtonRef copy = studio->buttonHavingName(QStringLiteral("Copy of Caption"));
    ASSERT_TRUE(copy);
    EXPECT_EQ(std::make_pair(copy->row(), copy->col()), std::make_pair(2, 1));
    EXPECT_EQ(std::make_pair(effect->row(), effect->col()), std::make_pair(1, 0)) << "the original stays";

    struct FileDrop {
        QStringList files;
        LVGridCell cell;
        QString kind; // empty: nothing is made
    };
    const FileDrop drops[] = {
        {{writeImage("one.png")}, {1, 2}, QStringLiteral("Image Overlay")},
        {{writeImage("two.png")}, {0, 1}, QStringLiteral("Slide Show")},
        {{writeMovieFile("clip.mp4"), writeMovieFile("more.mp4")}, {0, 2}, QStringLiteral("Movie")},
        {{writeMovieFile("mixed.mp4"), writeImage("mixed.png")}, {1, 3}, {}},
        {{dir.filePath("notes.txt")}, {1, 4}, {}},
    };
    for (const FileDrop& drop : drops) {
        const size_t before = studio->studioButtons().size();
        lvDragTo(grid.get(), centreOf(drop.cell.row, drop.cell.col), *filesMime(drop.files), Qt::CopyAction, true);
        if (drop.kind.isEmpty()) {
            EXPECT_EQ(studio->studioButtons().size(), before) << drop.files.join(",").toStdString();
            continue;
        }
        LVStudioButtonView* made = grid->itemAtRow(drop.cell.row, drop.cell.col);
        ASSERT_TRUE(made) << drop.kind.toStdString();
        ASSERT_EQ(made->button()->effects().size(), 1u);
        EXPECT_EQ(made->button()->effects().front()->name(), drop.kind);
        EXPECT_EQ(made->button()->setup()->numEffects(), 1) << "written to the setup";
    }
}

TEST_F(LVIconViewTest, OneImageDroppedOnAButtonBecomesItsIconUntilThePersist)
{
    const LVStudioButtonRef intro = addSetup(QStringLiteral("Intro"), kGridRed);
    ASSERT_TRUE(intro);
    LVStudioButtonView* view = viewOf(intro);
    QFile stored(intro->setup()->path());
    ASSERT_TRUE(stored.open(QIODevice::ReadOnly));
    const QByteArray before = stored.readAll();
    stored.close();

    const QString first = writeImage("blue.png", Qt::blue);
    const QString second = writeImage("green.png", Qt::green);
    EXPECT_FALSE(lvDragTo(view, QPoint(30, 30), *filesMime({first, second}), Qt::CopyAction, true).accepted)
        << "two files are not an icon, nor a button on a taken cell";
    EXPECT_TRUE(intro->setup()->icon().isNull());
    EXPECT_TRUE(lvDragTo(view, QPoint(30, 30), *filesMime({first}), Qt::CopyAction, true).accepted);
    const QImage icon = intro->setup()->icon();
    ASSERT_FALSE(icon.isNull());
    EXPECT_EQ(std::max(icon.width(), icon.height()), 64);
    EXPECT_EQ(QColor(icon.pixel(icon.width() / 2, icon.height() / 2)), QColor(Qt::blue));
    ASSERT_TRUE(stored.open(QIODevice::ReadOnly));
    EXPECT_EQ(stored.readAll(), before) << "the icon waits for the setup's next persist";
}

TEST_F(LVIconViewTest, TheContextMenuEditsSnapshotsDuplicatesAndDeletesAfterAsking)
{
    const LVStudioButtonRef intro = addSetup(QStringLiteral("Intro"), kGridRed);
    ASSERT_TRUE(intro);
    LVStudioButtonView* view = viewOf(intro);
    QMenu* menu = view->makeContextMenu();
    QStringList titles;
    for (QAction* action : menu->actions()) titles.append(action->text());
    ASSERT_EQ(titles, (QStringList{"Edit...", "Snapshot Icon", "Duplicate Button", "Delete Button"}));
    const auto trigger = [&](const QString& title) {
        QMenu* fresh = view->makeContextMenu();
        for (QAction* action : fresh->actions())
            if (action->text() == title) action->trigger();
        delete fresh;
    };

    trigger(QStringLiteral("Edit..."));
    int editors = 0;
    for (QWidget* widget : QApplication::topLevelWidgets()) editors += qobject_cast<LVButtonEditController*>(widget) != nullptr;
    EXPECT_EQ(editors, 1);
    LVButtonEditController* editor = view->doEdit();
    EXPECT_EQ(editor->windowTitle(), QStringLiteral("Intro"));
    EXPECT_EQ(view->doEdit(), editor) << "one editor per button";
    editor->close();

    trigger(QStringLiteral("Snapshot Icon"));
    EXPECT_EQ(intro->setup()->icon().size(), QSize(64, 64));

    trigger(QStringLiteral("Duplicate Button"));
    EXPECT_TRUE(studio->buttonHavingName(QStringLiteral("Copy of Intro")));

    // "No" first, "Yes" second; only "Yes" deletes, even with the editor open (it closes
    // with the button and must not write the file again).
    view->doEdit();
    struct Answer { const char* button; bool deleted; };
    for (const Answer& answer : {Answer{"No", false}, Answer{"Yes", true}}) {
        trigger(QStringLiteral("Delete Button"));
        auto* box = grid->window()->findChild<QMessageBox*>(QStringLiteral("deleteConfirmation"));
        ASSERT_TRUE(box);
        EXPECT_EQ(lvButtonTexts(*box), (QStringList{"No", "Yes"}));
        ASSERT_TRUE(lvAnswer(box, answer.button));
        EXPECT_EQ(studio->buttonHavingName(QStringLiteral("Intro")) == nullptr, answer.deleted) << answer.button;
        EXPECT_EQ(QFileInfo::exists(intro->setup()->path()), !answer.deleted) << answer.button;
    }
    EXPECT_EQ(grid->buttonViews().size(), 1u);
}

} // namespace
