// The studio window: its stored frame and swap mode, the first-run offer, the transitions
// list and commands, the mini controls following buttons onto each bus, both monitors (and
// Preview not rendered while hidden), quick sources and the splitter's rule.
#include "tests/gui/studio/LVStudioGuiTestSupport.h"

#include "gui/main/LVSettingsPanel.h"
#include "gui/studio/LVMonitorView.h"
#include "gui/studio/LVQuickSourceView.h"
#include "gui/studio/LVStudioController.h"

#include <QCheckBox>
#include <QDesktopServices>
#include <QDoubleSpinBox>
#include <QListWidget>
#include <QPushButton>
#include <QSplitter>

namespace {

TEST(LVStudioFrameTest, FramesReadBackAsWrittenAndAnythingElseIsZero)
{
    struct Case { const char* text; QRect frame; };
    for (const Case& c : {Case{"{{10, 20}, {300, 400}}", QRect(10, 20, 300, 400)},
                          Case{"{{-1280, 0}, {800, 600}}", QRect(-1280, 0, 800, 600)},
                          Case{" { {5,6} , {7,8} } ", QRect(5, 6, 7, 8)}, Case{"", QRect()}, Case{"{{10, 20}, {300}}", QRect()},
                          Case{"{{a, b}, {c, d}}", QRect()}, Case{"{{10, 20}, {-3, 4}}", QRect()},
                          Case{"{{1, 2}, {3, 99999999999999}}", QRect()}}) {
        EXPECT_EQ(LVStudioController::parseFrame(QString::fromLatin1(c.text)), c.frame) << c.text;
    }
    EXPECT_EQ(LVStudioController::frameString(QRect(10, 20, 300, 400)), QStringLiteral("{{10, 20}, {300, 400}}"));
}

// Catches the pages the window asks the desktop to open.
class LVUrlCatcher : public QObject {
    Q_OBJECT
public:
    QList<QUrl> opened;
public slots:
    void open(const QUrl& url) { opened.append(url); }
};

class LVStudioWindowTest : public LVStudioGuiTest {
protected:
    void TearDown() override
    {
        window.reset();
        LVStudioGuiTest::TearDown();
    }

    void openWindow()
    {
        window = std::make_unique<LVStudioController>(*app, *studio);
        window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
    }

    std::unique_ptr<LVStudioController> window;
};

TEST_F(LVStudioWindowTest, FrameAndSwapModeAreStoredAndRestored)
{
    defaults->setValue(QStringLiteral("studioFrame"), QStringLiteral("{{40, 50}, {1200, 700}}"));
    openWindow();
    EXPECT_EQ(window->geometry().size(), QSize(1200, 700));
    window->swapBox()->setChecked(true);
    EXPECT_TRUE(studio->isSwapMode());
    window->resize(1300, 760);
    app->applicationWillTerminate();
    EXPECT_EQ(LVStudioController::parseFrame(defaults->stringForKey(QStringLiteral("studioFrame"))).size(), QSize(1300, 760));
    EXPECT_TRUE(defaults->boolForKey(QStringLiteral("studioSwapMode")));

    // The next run: the swap mode comes back and the box shows it.
    window.reset();
    startApp();
    openWindow();
    EXPECT_TRUE(studio->isSwapMode());
    EXPECT_TRUE(window->swapBox()->isChecked());
    EXPECT_EQ(window->geometry().size(), QSize(1300, 760));
}

TEST_F(LVStudioWindowTest, TheFirstRunOfferIsMadeOnceAndYesOpensTheTutorial)
{
    LVUrlCatcher catcher;
    QDesktopServices::setUrlHandler(QStringLiteral("file"), &catcher, "open");
    struct Round { const char* answer; int opened; };
    for (const Round& round : {Round{"Yes", 1}, Round{"No", 0}}) {
        defaults->removeValueForKey(QStringLiteral("seenStudio"));
        catcher.opened.clear();
        window = std::make_unique<LVStudioController>(*app, *studio);
        window->nag();
        EXPECT_TRUE(defaults->boolForKey(QStringLiteral("seenStudio"))) << "written before the answer";
        QMessageBox* box = window->nagBox();
        ASSERT_TRUE(box);
        EXPECT_TRUE(box->text().contains(QStringLiteral("now?  You can")));
        EXPECT_EQ(lvButtonTexts(*box), (QStringList{"No", "Yes"}));
        ASSERT_TRUE(lvAnswer(box, round.answer));
        ASSERT_EQ(catcher.opened.size(), round.opened) << round.answer;
        if (round.opened) {
            EXPECT_TRUE(catcher.opened.front().toLocalFile().endsWith(QStringLiteral("studio-tutorial.html")));
        }
        window->nag();
        EXPECT_FALSE(window->nagBox()) << "once only";
        window.reset();
    }
    QDesktopServices::unsetUrlHandler(QStringLiteral("file"));
    EXPECT_TRUE(QFileInfo(LVStudioController::tutorialUrl().toLocalFile()).isFile());
}

TEST_F(LVStudioWindowTest, CommandsActThroughTheStudio)
{
    openWindow();
    QStringList listed;
    for (int i = 0; i < window->transitionsList()->count(); ++i) listed.append(window->transitionsList()->item(i)->text());
    ASSERT_FALSE(listed.isEmpty());
    QStringList sorted = listed;
    std::stable_sort(sorted.begin(), sorted.end(), [](const QString& a, const QString& b) {
        return a.compare(b, Qt::CaseInsensitive) < 0;
    });
    EXPECT_EQ(listed, sorted) << "case-insensitive order";
    window->transitionsList()->setCurrentRow(listed.size() - 1);
    EXPECT_EQ(studio->namedTransition(), listed.back());

    window->transitionTimeBox()->setValue(2.5);
    EXPECT_EQ(studio->transitionTime(), 2.5);

    const LVStudioButtonRef a = addSetup(QStringLiteral("A"), kGridRed);
    const LVStudioButtonRef b = addSetup(QStringLiteral("B"), QColor(0, 102, 204));
    ASSERT_TRUE(a && b);
    const auto click = [&](const char* name) { window->findChild<QPushButton*>(QString::fromLatin1(name))->click(); };
    struct Step { const char* command; std::function<void()> before; uint32_t a, b; };
    const Step steps[] = {
        {"cut", [&] { a->doNormalToggle(); }, LVButtonOnAir, LVButtonIdle},
        {"clear", [] {}, LVButtonLeaving, LVButtonIdle},
        {"cut", [&] { b->doNormalToggle(); }, LVButtonIdle, LVButtonOnAir},
        {"transition", [&] { a->doNormalToggle(); }, LVButtonTransitioning, LVButtonLeaving},
    };
    for (const Step& step : steps) {
        step.before();
        click(step.command);
        EXPECT_EQ(std::make_pair(a->state(), b->state()), std::make_pair(step.a, step.b)) << step.command;
    }
    EXPECT_TRUE(studio->isTransitionRunning());

    // Alt-click on the readout starts a sample.
    QTest::mouseClick(window->fpsButton(), Qt::LeftButton, Qt::AltModifier);
    EXPECT_EQ(window->fpsButton()->text(), QStringLiteral("FPS"));

    click("newButton");
    const LVStudioButtonRef made = studio->buttonHavingName(QStringLiteral("Untitled"));
    ASSERT_TRUE(made);
    EXPECT_EQ(made->state(), uint32_t(LVButtonPreview));
    EXPECT_TRUE(window->iconView()->buttonViewHavingUID(made->uid()));
}

TEST_F(LVStudioWindowTest, MiniControlsFollowTheSourceOntoEachBus)
{
    openWindow();
    const LVStudioButtonRef a = addSetup(QStringLiteral("A"), kGridRed);
    const LVStudioButtonRef caption = addSetup(QStringLiteral("Caption"), {}, 1);
    ASSERT_TRUE(a && caption);
    struct Step { const char* what; std::function<void()> act; bool inPreview, inProgram; };
    const Step steps[] = {
        {"into Preview", [&] { a->doNormalToggle(); }, true, false},
        {"an effect-only button changes nothing", [&] { caption->doNormalToggle(); }, true, false},
        {"cut to Program", [&] { studio->doCut(); }, false, true},
        {"marked to leave stays", [&] { a->doNormalToggle(); }, false, true},
        {"off air", [&] { studio->doCut(); }, false, false},
    };
    for (const Step& step : steps) {
        step.act();
        EXPECT_EQ(window->previewControls()->effect() == a->source(), step.inPreview) << step.what;
        EXPECT_EQ(window->programControls()->effect() == a->source(), step.inProgram) << step.what;
    }
}

TEST_F(LVStudioWindowTest, BothMonitorsShowTheirBusAndPreviewRendersOnlyWhileShown)
{
    openWindow();
    EXPECT_TRUE(window->previewMonitor()->isBlank());
    EXPECT_TRUE(window->programMonitor()->isBlank());
    const LVStudioButtonRef onAir = addSetup(QStringLiteral("On air"), kGridRed);
    const LVStudioButtonRef next = addSetup(QStringLiteral("Next"), QColor(0, 102, 204));
    ASSERT_TRUE(onAir && next);
    onAir->punchToAir();
    next->doNormalToggle();
    frameAfter(0.1);
    frameAfter(0.1);
    ASSERT_FALSE(window->previewMonitor()->isBlank());
    ASSERT_FALSE(window->programMonitor()->isBlank());
    const QImage preview = window->previewMonitor()->picture();
    const QImage program = window->programMonitor()->picture();
    EXPECT_EQ(QColor(preview.pixel(preview.width() / 2, preview.height() / 2)), QColor(0, 102, 204));
    EXPECT_EQ(QColor(program.pixel(program.width() / 2, program.height() / 2)), kGridRed);

    // Hidden, the Preview chain is not run at all.
    window->hide();
    testLog().clear();
    frameAfter(0.1);
    EXPECT_EQ(testLog().filter(QStringLiteral("Red Source.doit")).size(), 1) << testLog().join(" ").toStdString();
    window->show();
    testLog().clear();
    frameAfter(0.1);
    EXPECT_EQ(testLog().filter(QStringLiteral("Red Source.doit")).size(), 2) << testLog().join(" ").toStdString();

    // Preview emptied: back to the gradient.
    next->doNormalToggle();
    KDDelayedDispatcher::flush();
    EXPECT_TRUE(window->previewMonitor()->isBlank());
}

TEST_F(LVStudioWindowTest, QuickSourcesTakeMoviesOrImagesNeverBoth)
{
    openWindow();
    const QString movie1 = writeMovieFile("one.mp4");
    const QString movie2 = writeMovieFile("two.mkv");
    const QString still = writeImage("still.png");
    const QString text = dir.filePath("notes.txt");
    struct Case { const char* what; QStringList files; bool taken; int movies, images; };
    for (const Case& c : {
             Case{"two movies", {movie1, movie2}, true, 2, 0},
             Case{"one image", {still}, true, 0, 1},
             Case{"image and text", {still, text}, true, 0, 1},
             Case{"mixed", {movie1, still}, false, 0, 0},
             Case{"nothing usable", {text}, false, 0, 0},
         }) {
        LVQuickSourceView view;
        std::vector<std::pair<qsizetype, qsizetype>> calls;
        view.setAction([&](const QStringList& m, const QStringList& i) { calls.emplace_back(m.size(), i.size()); });
        EXPECT_EQ(view.takeFiles(c.files), c.taken) << c.what;
        const decltype(calls) expected = c.taken ? decltype(calls){{c.movies, c.images}} : decltype(calls){};
        EXPECT_EQ(calls, expected) << c.what;
    }
    EXPECT_FALSE(window->quickSourceView()->pixmap().isNull()) << "Quick source.png";

    // Dropped on the window's well: a new button in Preview holding one movie source.
    EXPECT_TRUE(lvDragTo(window->quickSourceView(), QPoint(10, 10), *filesMime({movie1, movie2}), Qt::CopyAction, true).accepted);
    const LVStudioButtonRef made = studio->buttonHavingName(QStringLiteral("Untitled"));
    ASSERT_TRUE(made);
    EXPECT_EQ(made->state(), uint32_t(LVButtonPreview));
    auto movie = std::dynamic_pointer_cast<LVTestMovieSource>(made->source());
    ASSERT_TRUE(movie);
    EXPECT_EQ(movie->playlist, (QStringList{movie1, movie2}));
    EXPECT_EQ(made->row(), 0);
}

TEST_F(LVStudioWindowTest, TheMonitorsKeepTheirHeightAsTheWindowGrows)
{
    openWindow();
    QSplitter* splitter = window->splitter();
    const int top = splitter->sizes().front();
    window->resize(window->width() + 200, window->height() + 300);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(splitter->sizes().front(), top);
    EXPECT_GT(splitter->sizes().back(), 300);
}

} // namespace

#include "LVStudioWindowTest.moc"
