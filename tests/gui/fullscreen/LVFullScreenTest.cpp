// The full-screen output on two offscreen screens of known names and shapes: the screen menu,
// the window it makes, Escape, and the picture fitted on black.
#include "gui/main/LVFullScreenOutput.h"
#include "tests/app/LVTestKinds.h"
#include "tests/gui/LVGuiTestSupport.h"

#include <QMenu>
#include <QPointer>
#include <QScreen>
#include <QSignalSpy>

namespace {

// A 16:9 main screen and a 4:3 one beside it.
constexpr const char* kScreens = R"({"screens": [
    {"name": "Left", "x": 0, "y": 0, "width": 1280, "height": 720, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1},
    {"name": "Right", "x": 1280, "y": 0, "width": 1024, "height": 768, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1}
]})";

class LVFullScreenTest : public LVWindowTest {
protected:
    static void SetUpTestSuite()
    {
        static QTemporaryDir config;
        ASSERT_TRUE(lvWriteFiles(config.path(), {{"screens.json", kScreens}}));
        qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + QFile::encodeName(config.filePath("screens.json")));
        lvEnsureApplication<QApplication>();
    }

    void SetUp() override
    {
        LVWindowTest::SetUp();
        ASSERT_EQ(QGuiApplication::screens().size(), 2);
        start(dir.filePath(QStringLiteral("none")));
    }

    void TearDown() override
    {
        LVWindowTest::TearDown();
        // Windows closed from their own key handler go once the loop runs.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    LVScreenOutput* output() const { return dynamic_cast<LVScreenOutput*>(app->previewFullScreen()); }
};

TEST_F(LVFullScreenTest, TheScreenMenuNamesEveryScreenAndEachChoiceMakesANewOutput)
{
    emit window->screenMenu()->aboutToShow();
    QStringList titles;
    QList<int> tags;
    for (QAction* action : window->screenMenu()->actions()) {
        titles << action->text();
        tags << action->data().toInt();
    }
    EXPECT_EQ(titles, (QStringList{QStringLiteral("None"), QStringLiteral("Left"), QStringLiteral("Right")}));
    EXPECT_EQ(tags, (QList<int>{-1, 0, 1}));
    window->screenMenu()->actions().at(2)->trigger();
    ASSERT_TRUE(output());
    EXPECT_EQ(output()->window()->screen()->name(), QStringLiteral("Right"));

    struct Step { int index; const char* screen; }; // no screen: no full-screen output afterwards
    const Step steps[] = {{1, "Right"}, {1, "Right"}, {0, "Left"}, {-1, nullptr}, {-1, nullptr}, {0, "Left"}};
    QPointer<LVFullScreenWindow> previous = output()->window();
    for (const Step& step : steps) {
        window->doSelectScreen(step.index);
        EXPECT_TRUE(previous.isNull()) << "the old window is gone, even for the same screen";
        if (!step.screen) {
            EXPECT_EQ(app->previewFullScreen(), nullptr);
            continue;
        }
        ASSERT_TRUE(output());
        LVFullScreenWindow* made = output()->window();
        QScreen* screen = QGuiApplication::screens().at(step.index);
        ASSERT_EQ(screen->name(), QLatin1String(step.screen));
        EXPECT_EQ(made->screen(), screen);
        EXPECT_EQ(made->geometry(), screen->geometry()) << step.screen;
        EXPECT_TRUE(made->flags() & Qt::FramelessWindowHint);
        EXPECT_TRUE(made->flags() & Qt::WindowStaysOnTopHint);
        EXPECT_EQ(made->format().swapInterval(), 1);
        EXPECT_EQ(output()->isOnMainScreen(), screen == QGuiApplication::primaryScreen());
        previous = made;
    }
}

TEST_F(LVFullScreenTest, EscapeInTheWindowEndsItOnTheMainScreenOnly)
{
    window->doSelectScreen(1);
    ASSERT_TRUE(QTest::qWaitForWindowExposed(output()->window()));
    QTest::keyClick(output()->window(), Qt::Key_Escape);
    ASSERT_TRUE(output()) << "Right is not the main screen";

    window->doSelectScreen(0);
    QPointer<LVFullScreenWindow> shown = output()->window();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(shown));
    QTest::keyClick(shown, Qt::Key_Escape);
    EXPECT_EQ(app->previewFullScreen(), nullptr);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    EXPECT_TRUE(shown.isNull());
}

TEST_F(LVFullScreenTest, AFourByThreeFrameIsPillarBoxedOnASixteenByNineScreen)
{
    window->doSelectScreen(0);
    LVFullScreenWindow* shown = output()->window();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(shown));
    LVContext& context = *app->context();
    ASSERT_EQ(context.size(), QSizeF(320, 240));
    context.reset(false);
    fillFrameRect(context, 0, 0, 320, 240, Qt::red);
    fillFrameRect(context, 0, 0, 4, 4, Qt::blue); // bottom-left: the picture is upright
    QSignalSpy painted(shown, &LVFullScreenWindow::picturePainted);
    app->outputs().drawFrame(context);
    ASSERT_TRUE(painted.wait(5000));
    const QImage screen = shown->screen()->grabWindow(shown->winId()).toImage();
    ASSERT_EQ(screen.size(), QSize(1280, 720));
    // 320x240 fitted into 1280x720: 960x720 from x = 160.
    const struct { int x, y; QColor expected; } probes[] = {
        {0, 360, Qt::black}, {159, 360, Qt::black}, {160, 360, Qt::red},    {640, 0, Qt::red},
        {640, 719, Qt::red}, {1119, 360, Qt::red},  {1120, 360, Qt::black}, {1279, 719, Qt::black},
        {161, 718, Qt::blue}, {174, 706, Qt::red},
    };
    for (const auto& p : probes)
        EXPECT_EQ(screen.pixelColor(p.x, p.y).rgb(), p.expected.rgb()) << p.x << "," << p.y;
}

} // namespace
