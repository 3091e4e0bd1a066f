// The viewport window on a real X server through Qt's X11 platform: shown by the select control,
// it puts its frame line around the capture rectangle and leaves the desktop inside visible.
#include "LVDesktopTestSupport.h"
#include "LVXvfb.h"
#include "tests/support/LVWaitFor.h"

#include <QGuiApplication>

namespace {

using namespace std::chrono_literals;

LVXvfb* server = nullptr;
constexpr int kRootW = 1024;
constexpr int kRootH = 768;

TEST(ViewPortWindow, ShowsTheFrameAroundTheRectangleOverTheScreen)
{
    LVXClient client(server->name());
    // The desktop under the viewport: one grey window over the whole screen.
    const unsigned long desk = client.createWindow(QRect(0, 0, kRootW, kRootH), "Desk", "Desk");
    client.fill(desk, QRect(0, 0, kRootW, kRootH), 0x808080);

    auto ctx = lvMakeContext(QSize(320, 240));
    ASSERT_TRUE(ctx);
    auto desktop = lvMakeDesktop(ctx.get());
    desktop->model().setFullScreen(false);
    desktop->setParameterValue("select", true);
    ViewPortWindow* window = desktop->viewPort()->window();
    ASSERT_NE(window, nullptr);
    ASSERT_TRUE(lvWaitFor([&] { return window->isExposed(); }));
    // The rectangle sits at (100, 150) from the bottom left: its top row on the root is this.
    const QRect rect(100, kRootH - 150 - 240, 320, 240);
    const QRect around = rect.adjusted(-20, -20, 20, 20);

    QString error;
    auto grabber = LVDesktopGrabber::create(desktop->selectedScreen(), &error);
    ASSERT_TRUE(grabber) << error.toStdString();
    grabber->setMinimumFrameTime(1ms);
    grabber->setGrabRect(QRectF(around.x(), kRootH - around.y() - around.height(), around.width(), around.height()));
    grabber->start();
    const int edge = 20 - 2; // two pixels outside the rectangle, in the picture
    const auto frameShows = [&] {
        const auto p = grabber->last();
        return p && (lvPictureAt(*p, 20 + 60, edge) >> 16) > 200;
    };
    // The first paint arrives through the event loop; each read follows the damage it makes.
    ASSERT_TRUE(lvWaitFor([&] { return grabber->waitFor(frameShows, 20ms); }));
    const auto picture = grabber->last();
    const uint32_t line = lvPictureAt(*picture, 20 + 60, edge);
    EXPECT_GT(int(line >> 16), 200) << std::hex << line;
    EXPECT_LT(int((line >> 8) & 0xFF), 100) << std::hex << line;
    EXPECT_EQ(lvPictureAt(*picture, 20 + 160, 20 + 120), 0x808080u) << "the inside shows the desktop";
    EXPECT_EQ(lvPictureAt(*picture, 2, 100), 0x808080u) << "beyond the frame the desktop shows";

    desktop->setParameterValue("select", false);
    EXPECT_FALSE(window->isVisible());
    grabber.reset();
    desktop.reset();
    client.destroyWindow(desk);
}

} // namespace

int main(int argc, char** argv)
{
    // The X server comes first: Qt's X11 platform connects when the application starts.
    LVXvfb xvfb(kRootW, kRootH);
    if (!xvfb.isRunning()) {
        std::fprintf(stderr, "Xvfb did not start\n");
        return 1;
    }
    server = &xvfb;
    xvfb.makeCurrent();
    qputenv("QT_QPA_PLATFORM", "xcb");
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
