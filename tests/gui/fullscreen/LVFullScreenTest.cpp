// The full-screen output on two offscreen screens of known names and shapes: the screen menu,
// the window it makes, Escape, and the picture fitted on black.
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "gui/main/LVFullScreenOutput.h"
#include "gui/main/LVMainWindow.h"
#include "tests/app/LVTestKinds.h"
#include "tests/gui/main/LVWindowTestSupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QFile>
#include <QMenu>
#include <QPointer>
#include <QScreen>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

// A 16:9 main screen and a 4:3 one beside it.
constexpr const char* kScreens = R"({"screens": [
    {"name": "Left", "x": 0, "y": 0, "width": 1280, "height": 720, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1},
    {"name": "Right", "x": 1280, "y": 0, "width": 1024, "height": 768, "logicalDpi": 96, "logicalBaseDpi": 96, "dpr": 1}
]})";

class LVFullScreenTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        static QTemporaryDir config;
        const QString path = config.filePath(QStringLiteral("screens.json"));
        QFile file(path);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(kScreens);
        file.close();
        qputenv("QT_QPA_PLATFORM", QByteArray("offscreen:configfile=") + path.toUtf8());
        static int argc = 1;
        static char name[] = "test";
        static char* argv[] = {name, nullptr};
        if (!QApplication::instance()) new QApplication(argc, argv);
    }

    void SetUp() override
    {
        ASSERT_EQ(QGuiApplication::screens().size(), 2);
        defaults = std::make_unique<LVDefaults>(dir.filePath(QStringLiteral("prefs.json")));
        lvStartMainWindow(*defaults, dir.filePath(QStringLiteral("none")), app, window);
    }

    void TearDown() override
    {
        window.reset();
        app.reset();
        // Windows closed from their own key handler go once the loop runs.
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    LVScreenOutput* output() const { return dynamic_cast<LVScreenOutput*>(app->previewFullScreen()); }
    QScreen* screenNamed(const QString& name) const
    {
        for (QScreen* screen : QGuiApplication::screens())
            if (screen->name() == name) return screen;
        return nullptr;
    }

    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;
    std::unique_ptr<LVMainWindow> window;
};

TEST_F(LVFullScreenTest, ScreenMenuOffersNoneThenEveryScreenByName)
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
    // The menu's entries act as doSelectScreen does.
    window->screenMenu()->actions().at(2)->trigger();
    ASSERT_TRUE(output());
    EXPECT_EQ(output()->window()->screen()->name(), QStringLiteral("Right"));
}

TEST_F(LVFullScreenTest, EachChoiceReleasesTheOldOutputAndMakesANewOne)
{
    struct Step {
        int index;
        const char* screen; // null: no full-screen output afterwards
    };
    const Step steps[] = {{1, "Right"}, {1, "Right"}, {0, "Left"}, {-1, nullptr}, {-1, nullptr}, {0, "Left"}};
    QPointer<LVFullScreenWindow> previous;
    for (const Step& step : steps) {
        window->doSelectScreen(step.index);
        EXPECT_TRUE(previous.isNull()) << "the old window is gone, even for the same screen";
        if (!step.screen) {
            EXPECT_EQ(app->previewFullScreen(), nullptr);
            continue;
        }
        ASSERT_TRUE(output());
        LVFullScreenWindow* made = output()->window();
        QScreen* screen = screenNamed(QLatin1String(step.screen));
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
    struct Probe {
        int x, y;
        QColor expected;
    };
    const Probe probes[] = {
        {0, 360, Qt::black}, {159, 360, Qt::black}, {160, 360, Qt::red},    {640, 0, Qt::red},
        {640, 719, Qt::red}, {1119, 360, Qt::red},  {1120, 360, Qt::black}, {1279, 719, Qt::black},
        {161, 718, Qt::blue}, {174, 706, Qt::red},
    };
    for (const Probe& p : probes)
        EXPECT_EQ(screen.pixelColor(p.x, p.y).rgb(), p.expected.rgb()) << p.x << "," << p.y;
}

} // namespace
