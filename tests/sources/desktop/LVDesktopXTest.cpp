// The desktop sources against a real X server started by the test: exact pixels, damage-driven
// reads, the mouse arrow, display names, the unplugged monitor, the archive, Desktop+ windows,
// a saved setup in the real lumaveil run headless, and a session with no X at all.
#include "LVDesktopTestSupport.h"
#include "LVXvfb.h"

#include "core/LVDefaults.h"
#include "core/LVEffectRegistry.h"
#include "setups/model/LVSetupManager.h"
#include "sources/desktop/DesktopPlus.h"
#include "tests/sources/LVHeadlessRun.h"

#include <QGuiApplication>
#include <QJsonDocument>
#include <QJsonObject>

// Last: Xlib's macros (None, Bool, Status) would break the headers above.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xrandr.h>

namespace {

using namespace std::chrono_literals;

constexpr int kRootW = 1280;
constexpr int kRootH = 800;
constexpr uint32_t kRed = 0xFF0000, kGreen = 0x00FF00, kBlue = 0x0000FF, kOdd = 0x123456, kWhite = 0xFFFFFF;
constexpr uint32_t kCyan = 0x00FFFF;
// The pattern window: four quadrants of 200x100 at (200, 100) on the root.
const QRect kPattern(200, 100, 400, 200);

// A,R,G,B frame rows, top first.
uint32_t frameAt(const std::vector<uint8_t>& argb, int width, int x, int y)
{
    const uint8_t* px = argb.data() + (size_t(y) * size_t(width) + size_t(x)) * 4;
    EXPECT_EQ(px[0], 255) << "opaque at " << x << "," << y;
    return uint32_t(px[1]) << 16 | uint32_t(px[2]) << 8 | px[3];
}

// One frame of the chain with only this source, read back.
std::vector<uint8_t> drawFrame(LVContext& ctx, LVEffect& source)
{
    ctx.reset(false);
    source.doit();
    std::vector<uint8_t> argb(size_t(ctx.width()) * size_t(ctx.height()) * 4);
    ctx.fetchOpenGLPixels(argb.data(), ctx.width() * 4);
    return argb;
}

// kPattern in the display's own coordinates (origin at the bottom).
QRectF patternInDisplay()
{
    return QRectF(kPattern.x(), kRootH - kPattern.y() - kPattern.height(), kPattern.width(), kPattern.height());
}

class DesktopX : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        server_ = new LVXvfb(kRootW, kRootH);
        ASSERT_TRUE(server_->isRunning()) << "Xvfb did not start";
    }
    static void TearDownTestSuite()
    {
        delete server_;
        server_ = nullptr;
    }
    void SetUp() override
    {
        server_->makeCurrent();
        client_ = std::make_unique<LVXClient>(server_->name());
        ASSERT_NE(client_->display(), nullptr);
        pattern_ = client_->createWindow(kPattern, "Pattern", "Pattern window");
        drawPattern();
    }
    void TearDown() override
    {
        client_->destroyWindow(pattern_);
        client_.reset();
    }
    void drawPattern()
    {
        client_->fill(pattern_, QRect(0, 0, 200, 100), kRed);
        client_->fill(pattern_, QRect(200, 0, 200, 100), kGreen);
        client_->fill(pattern_, QRect(0, 100, 200, 100), kBlue);
        client_->fill(pattern_, QRect(200, 100, 200, 100), kOdd);
    }
    static LVXvfb* server_;
    std::unique_ptr<LVXClient> client_;
    unsigned long pattern_ = 0;
};

LVXvfb* DesktopX::server_ = nullptr;

std::unique_ptr<LVDesktopGrabber> grabberOnThisScreen()
{
    const auto list = LVDesktopScreenList(nullptr);
    if (list.empty()) return nullptr;
    QString error;
    auto grabber = LVDesktopGrabber::create(list.front(), &error);
    EXPECT_TRUE(grabber) << error.toStdString();
    return grabber;
}

TEST_F(DesktopX, ReadsExactPixelsOnlyWhenTheRectangleChanges)
{
    auto grabber = grabberOnThisScreen();
    ASSERT_TRUE(grabber);
    grabber->setMinimumFrameTime(1ms);
    grabber->setGrabRect(patternInDisplay());
    EXPECT_EQ(grabber->rootGrabRect(), kPattern);
    EXPECT_TRUE(grabber->slowPathMessage().isEmpty());
    grabber->start();
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->readCount() >= 1; }, 5s));
    // Each quadrant is checked where the source draws this picture (DrawsTheViewportAndTheArrowExactly).
    ASSERT_EQ(grabber->last()->width, 400);
    ASSERT_EQ(grabber->last()->height, 200);
    EXPECT_EQ(lvPictureAt(*grabber->last(), 399, 199), kOdd);

    // Outside the rectangle: reported, handled, not read.
    client_->fill(DefaultRootWindow(client_->display()), QRect(900, 600, 40, 40), kWhite);
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->damageReportsHandled() >= 1; }, 5s));
    EXPECT_EQ(grabber->readCount(), 1u);

    // Inside: read again, with the change in it.
    client_->fill(pattern_, QRect(0, 0, 10, 10), kWhite);
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->readCount() >= 2; }, 5s));
    EXPECT_EQ(lvPictureAt(*grabber->last(), 5, 5), kWhite);
    EXPECT_EQ(lvPictureAt(*grabber->last(), 15, 15), kRed);

    // Stopped: changes are not read, the last picture stays.
    grabber->stop();
    const uint64_t reads = grabber->readCount();
    const uint64_t serial = grabber->last()->serial;
    client_->fill(pattern_, QRect(0, 0, 10, 10), kBlue);
    client_->sync();
    grabber->refresh();
    EXPECT_FALSE(grabber->waitFor([&] { return grabber->readCount() > reads; }, 200ms));
    EXPECT_EQ(grabber->last()->serial, serial);
}

TEST_F(DesktopX, ARectangleOutsideTheDisplayIsKeptOnIt)
{
    auto grabber = grabberOnThisScreen();
    ASSERT_TRUE(grabber);
    const struct {
        QRectF inDisplay;
        QRect root;
    } cases[] = {
        {{-50, -50, 100, 100}, {0, kRootH - 100, 100, 100}},
        {{kRootW - 10, kRootH - 10, 100, 100}, {kRootW - 100, 0, 100, 100}},
        {{0, 0, kRootW * 2, 10}, {0, kRootH - 10, kRootW, 10}},
    };
    for (const auto& c : cases) {
        grabber->setGrabRect(c.inDisplay);
        EXPECT_EQ(grabber->rootGrabRect(), c.root);
    }
}

TEST_F(DesktopX, WithoutSharedMemoryReadsOverTheConnectionAndSaysSo)
{
    LVXvfb noShm(640, 480, {QStringLiteral("-extension"), QStringLiteral("MIT-SHM")});
    ASSERT_TRUE(noShm.isRunning());
    noShm.makeCurrent();
    LVXClient client(noShm.name());
    const unsigned long window = client.createWindow(QRect(10, 20, 30, 40), "Slow", "Slow");
    client.fill(window, QRect(0, 0, 30, 40), kOdd);
    auto grabber = grabberOnThisScreen();
    ASSERT_TRUE(grabber);
    EXPECT_TRUE(grabber->slowPathMessage().contains(QStringLiteral("Shared memory"))) << grabber->slowPathMessage().toStdString();
    grabber->setGrabRect(QRectF(10, 480 - 20 - 40, 30, 40));
    grabber->start();
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->readCount() >= 1; }, 5s));
    EXPECT_EQ(lvPictureAt(*grabber->last(), 0, 0), kOdd);
    EXPECT_EQ(lvPictureAt(*grabber->last(), 29, 39), kOdd);
    server_->makeCurrent();
}

TEST_F(DesktopX, ANewSourceCapturesThisScreenWhole)
{
    auto ctx = lvMakeContext(QSize(640, 400));
    ASSERT_TRUE(ctx);
    auto desktop = lvMakeDesktop(ctx.get());
    // Whole display, 1280x800 into 640x400: every second pixel of the pattern.
    desktop->setMode(LVModeLive);
    ASSERT_TRUE(desktop->grabber()->waitFor([&] { return desktop->grabber()->readCount() >= 1; }, 5s));
    const auto argb = drawFrame(*ctx, *desktop);
    EXPECT_EQ(frameAt(argb, 640, 100 + 10, 50 + 10), kRed);
    EXPECT_EQ(frameAt(argb, 640, 100 + 190, 50 + 90), kOdd);
    EXPECT_EQ(frameAt(argb, 640, 20, 300), 0u) << "the bare root is black";
    desktop->setMode(LVModeOff);
    EXPECT_FALSE(desktop->grabber()->isStarted());
}

TEST_F(DesktopX, DrawsTheViewportAndTheArrowExactly)
{
    auto ctx = lvMakeContext(QSize(400, 200));
    ASSERT_TRUE(ctx);
    auto desktop = lvMakeDesktop(ctx.get());
    desktop->viewPort()->setPortRect(patternInDisplay());
    desktop->model().setFullScreen(false);
    desktop->setMode(LVModeLive);
    LVDesktopGrabber* grabber = desktop->grabber();
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->readCount() >= 1; }, 5s));
    auto argb = drawFrame(*ctx, *desktop);
    const struct {
        int x, y;
        uint32_t rgb;
    } probes[] = {{0, 0, kRed}, {199, 99, kRed}, {200, 0, kGreen}, {0, 199, kBlue}, {399, 199, kOdd}};
    for (const auto& probe : probes) EXPECT_EQ(frameAt(argb, 400, probe.x, probe.y), probe.rgb) << probe.x << "," << probe.y;
    EXPECT_EQ(desktop->drawer().uploads(), 1u);
    ctx->reset(false);
    desktop->doit();
    EXPECT_EQ(desktop->drawer().uploads(), 1u) << "a still desktop is drawn again, not uploaded again";

    // A small change: only its rectangle goes up again.
    client_->fill(pattern_, QRect(300, 150, 10, 10), kWhite);
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->readCount() >= 2; }, 5s));
    argb = drawFrame(*ctx, *desktop);
    EXPECT_EQ(desktop->drawer().lastUpload(), QRect(300, 150, 10, 10));
    EXPECT_EQ(frameAt(argb, 400, 300, 150), kWhite);
    EXPECT_EQ(frameAt(argb, 400, 309, 159), kWhite);
    EXPECT_EQ(frameAt(argb, 400, 310, 160), kOdd);
    EXPECT_EQ(frameAt(argb, 400, 0, 0), kRed);

    // The arrow: a 16-pixel cyan square with its hot spot at the pointer.
    client_->defineSquareCursor(pattern_, 16, kCyan);
    client_->warpPointer(kPattern.topLeft() + QPoint(100, 50));
    desktop->model().setShowMouse(true);
    ASSERT_TRUE(grabber->waitFor(
        [&] { return grabber->mouse().cursor && grabber->mouse().location == kPattern.topLeft() + QPoint(100, 50); }, 5s));
    argb = drawFrame(*ctx, *desktop);
    EXPECT_EQ(frameAt(argb, 400, 100, 50), kCyan);
    EXPECT_EQ(frameAt(argb, 400, 115, 65), kCyan);
    EXPECT_EQ(frameAt(argb, 400, 116, 66), kRed);
    EXPECT_EQ(frameAt(argb, 400, 99, 49), kRed);
    desktop->setMode(LVModeOff);
}

TEST_F(DesktopX, FollowTheMouseStaysOnTheDisplay)
{
    auto ctx = lvMakeContext(QSize(320, 240));
    ASSERT_TRUE(ctx);
    auto desktop = lvMakeDesktop(ctx.get());
    desktop->model().setFullScreen(false);
    desktop->model().setFollowMouse(true);
    desktop->setMode(LVModeLive);
    LVDesktopGrabber* grabber = desktop->grabber();
    const struct {
        QPoint pointer;
        QPointF origin; // display coordinates, origin at the bottom
    } cases[] = {
        {{640, 400}, {480, 280}},
        {{2, 3}, {0, kRootH - 240}},
        {{kRootW - 1, kRootH - 1}, {kRootW - 320, 0}},
    };
    for (const auto& c : cases) {
        client_->warpPointer(c.pointer);
        ASSERT_TRUE(grabber->waitFor([&] { return grabber->mouse().location == c.pointer; }, 5s));
        desktop->doit();
        EXPECT_EQ(desktop->grabRect(), QRectF(c.origin, QSizeF(320, 240))) << c.pointer.x() << "," << c.pointer.y();
    }
    // Full screen turns following off and takes the display from its origin.
    desktop->model().setFullScreen(true);
    EXPECT_FALSE(desktop->isFollowMouse());
    EXPECT_EQ(desktop->grabRect(), QRectF(0, 0, kRootW, kRootH));
    desktop->setMode(LVModeOff);
}

QJsonObject decodedKeys(const LVEffect& effect)
{
    return QJsonDocument::fromJson(LVEffect::dataFromEffect(effect)).object();
}

TEST_F(DesktopX, ArchivesRoundTripAndOlderArchivesDecodeAsDesktop)
{
    auto ctx = lvMakeContext(QSize(320, 240));
    ASSERT_TRUE(ctx);
    LVEffectClasses::registerClass(&DesktopLion::classDescriptor());
    LVEffectRegistry registry(LVEffectFolders{});
    registry.findEffects();

    auto desktop = lvMakeDesktop(ctx.get());
    desktop->setSelectedScreen(1);
    desktop->viewPort()->setPortRect(QRectF(30, 40, 500, 300));
    desktop->model().setFullScreen(false);
    desktop->model().setShowMouse(true);
    desktop->setDoNotExceedResolution(true);
    const QJsonObject keys = decodedKeys(*desktop);
    EXPECT_EQ(keys.value("class").toString(), "DesktopLion");
    EXPECT_EQ(keys.value("screen").toString(), "Main screen");
    EXPECT_FALSE(keys.contains("select"));
    EXPECT_EQ(keys.value("viewPortRect").toObject(),
              QJsonObject({{"x", 30}, {"y", 40}, {"width", 320}, {"height", 240}}))
        << "the limit shrank the rectangle to the video size";

    struct Case {
        const char* what;
        QJsonObject archive;
        QString screen;
        bool fullScreen, resizable, showMouse;
        QRectF grabRect;
    };
    const Case cases[] = {
        {"our own archive", keys, "Main screen", false, true, true, {30, 40, 320, 240}},
        {"the older class with its keys",
         {{"class", "DesktopEffect"},
          {"enabled", true},
          {"screen", "This screen"},
          {"fullScreen", false},
          {"resizable", false},
          {"viewPortRect", QJsonObject({{"x", 10}, {"y", 20}, {"width", 640}, {"height", 480}})}},
         "This screen", false, false, false, {10, 20, 320, 240}},
        {"a display that is gone",
         {{"class", "DesktopEffect"}, {"screen", "DELL U2720Q"}, {"fullScreen", true}, {"resizable", true}},
         "This screen", true, true, false, {0, 0, kRootW, kRootH}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const LVEffectRef decoded = LVEffect::effectFromData(QJsonDocument(c.archive).toJson(), ctx.get());
        ASSERT_TRUE(decoded);
        auto* lion = dynamic_cast<DesktopLion*>(decoded.get());
        ASSERT_NE(lion, nullptr);
        EXPECT_EQ(lion->screen(), c.screen);
        EXPECT_EQ(lion->isFullScreen(), c.fullScreen);
        EXPECT_EQ(lion->isResizable(), c.resizable);
        EXPECT_EQ(lion->isShowMouse(), c.showMouse);
        EXPECT_EQ(lion->grabRect(), c.grabRect);
    }
}

// A Desktop+ source on the one window whose label contains filter.
std::unique_ptr<DesktopPlus> makePlus(LVContext* ctx, const char* filter)
{
    auto plus = std::unique_ptr<DesktopPlus>(static_cast<DesktopPlus*>(DesktopPlus::classDescriptor().make().release()));
    plus->initWithContext(ctx);
    plus->setParameterValue("filter", filter);
    return plus;
}

TEST_F(DesktopX, DesktopPlusCapturesOneWindowCroppedEvenWhenCoveredAndFindsItAgain)
{
    auto ctx = lvMakeContext(QSize(200, 100));
    ASSERT_TRUE(ctx);
    // A 32-bit window, as programs that draw their own shadows make.
    const unsigned long slides = client_->createWindow(QRect(700, 300, 220, 110), "Impress", "Talk.odp", true);
    client_->fill(slides, QRect(0, 0, 220, 110), kGreen);
    client_->fill(slides, QRect(0, 0, 20, 10), kWhite);

    auto plus = makePlus(ctx.get(), "talk");
    ASSERT_EQ(plus->windows().size(), 1u);
    EXPECT_EQ(DesktopPlus::windowLabel(plus->windows()[0]), "Impress — Talk.odp");
    plus->setParameterValue("cropLeft", 20);
    plus->setParameterValue("cropTop", 10);
    plus->setParameterValue("window", 0);
    plus->setMode(LVModeLive);
    LVDesktopGrabber* grabber = plus->grabber();
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->last() && grabber->last()->width == 200; }, 5s));
    EXPECT_EQ(grabber->last()->height, 100);
    EXPECT_EQ(lvPictureAt(*grabber->last(), 0, 0), kGreen) << "the white corner is cropped off";

    // A window over part of it, then a change elsewhere in it: its own pixels still come through.
    const unsigned long cover = client_->createWindow(QRect(800, 350, 50, 50), "Cover", "Cover");
    client_->fill(cover, QRect(0, 0, 50, 50), kBlue);
    const uint64_t reads = grabber->readCount();
    client_->fill(slides, QRect(200, 100, 10, 10), kRed);
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->readCount() > reads && lvPictureAt(*grabber->last(), 185, 95) == kRed; }, 5s));
    EXPECT_EQ(lvPictureAt(*grabber->last(), 100, 60), kGreen) << "the covering window does not show";
    EXPECT_EQ(frameAt(drawFrame(*ctx, *plus), 200, 100, 60), kGreen);

    const QJsonObject keys = decodedKeys(*plus);
    EXPECT_EQ(keys.value("windowClass").toString(), "Impress");
    EXPECT_EQ(keys.value("cropLeft").toInt(), 20);

    // The program closes the window and opens it again elsewhere: it is found by class and title.
    client_->destroyWindow(slides);
    const unsigned long again = client_->createWindow(QRect(300, 650, 100, 50), "Impress", "Talk.odp");
    client_->fill(again, QRect(0, 0, 100, 50), kRed);
    EXPECT_TRUE(grabber->waitFor([&] { return grabber->window() == again && grabber->last()->width == 80; }, 5s));
    EXPECT_EQ(lvPictureAt(*grabber->last(), 40, 20), kRed);
    plus->setMode(LVModeOff);
    plus.reset();
    client_->destroyWindow(cover);
    client_->destroyWindow(again);
}

TEST_F(DesktopX, ASavedSetupPublishesTheScreenThroughItsViewportInTheApplication)
{
    // Left half red, right half blue, over the whole screen.
    const unsigned long halves = client_->createWindow(QRect(0, 0, kRootW, kRootH), "Halves", "Halves");
    client_->fill(halves, QRect(0, 0, kRootW / 2, kRootH), kRed);
    client_->fill(halves, QRect(kRootW / 2, 0, kRootW / 2, kRootH), kBlue);
    // A setup saved the way the application saves one: the viewport from x 560 to 880, so the
    // frame's left edge shows red, and blue from its x 80 on (the whole screen would be red there).
    QTemporaryDir home;
    LVRegisterDesktopKinds();
    auto ctx = lvMakeContext(QSize(320, 240));
    ASSERT_TRUE(ctx);
    LVEffectFolders folders;
    folders.bundled = home.filePath("no-effects");
    LVEffectRegistry registry(folders);
    registry.findEffects();
    const LVEffectRef effect = registry.instantiateNamedSource("Desktop", ctx.get());
    auto* desktop = dynamic_cast<DesktopLion*>(effect.get());
    ASSERT_NE(desktop, nullptr);
    desktop->viewPort()->setPortRect(QRectF(560, 280, 320, 240));
    desktop->model().setFullScreen(false);
    {
        LVDefaults defaults(home.filePath("builder.json"));
        LVSetupManager manager(defaults, ctx.get(), home.filePath("data/Lumaveil/Saved Setups"));
        manager.startup();
        QString error;
        ASSERT_TRUE(manager.newSavedSetupWithName("Middle", {effect}, &error)) << error.toStdString();
    }
    QProcessEnvironment environment = lvPrivateEnvironment(home);
    environment.insert("DISPLAY", server_->name());
    const auto rgb = [](const uint8_t* argb, int x) {
        const uint8_t* px = argb + (120 * 320 + x) * 4;
        return uint32_t(px[1]) << 16 | uint32_t(px[2]) << 8 | px[3];
    };
    const LVHeadlessRun run = lvRunHeadless(
        LV_LUMAVEIL_BINARY, environment, {"--video-size", "320x240", "--fps", "15", "--frames", "150", "--setup", "Middle"},
        [&](const LVShmemReadResult& r, const uint8_t* argb) {
            return r.width == 320 && r.height == 240 && rgb(argb, 10) == kRed && rgb(argb, 100) == kBlue &&
                   rgb(argb, 310) == kBlue;
        },
        std::chrono::seconds(20));
    EXPECT_TRUE(run.seen) << run.log;
    client_->destroyWindow(halves);
}

TEST_F(DesktopX, MonitorNamesComeFromEdidAndAnUnpluggedOneFallsBackToMainScreen)
{
    LVXvfb server(640, 480);
    ASSERT_TRUE(server.isRunning());
    server.makeCurrent();
    LVXClient client(server.name());
    Display* dpy = client.display();
    const Window root = DefaultRootWindow(dpy);
    XRRScreenResources* resources = XRRGetScreenResources(dpy, root);
    ASSERT_TRUE(resources && resources->noutput > 0);
    const RROutput output = resources->outputs[0];
    XRRFreeScreenResources(resources);
    QByteArray edid(128, '\0');
    edid[54 + 3] = char(0xFC);
    edid.replace(54 + 5, 13, QByteArray("LV Test Panel"));
    XRRChangeOutputProperty(dpy, output, XInternAtom(dpy, "EDID", False), XA_INTEGER, 8, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(edid.constData()), edid.size());
    client.sync();
    auto list = LVDesktopScreenList(nullptr);
    ASSERT_EQ(LVScreenDescriptions(list), QStringList({"This screen", "Main screen", "-"}));
    EXPECT_EQ(list[0]->name(), "LV Test Panel");

    // Two monitors side by side; the right one is primary and the pointer is on the left one.
    const auto addMonitor = [&](const char* name, int x, bool primary, bool withOutput) {
        XRRMonitorInfo* monitor = XRRAllocateMonitor(dpy, withOutput ? 1 : 0);
        monitor->name = XInternAtom(dpy, name, False);
        monitor->primary = primary;
        monitor->x = x;
        monitor->y = 0;
        monitor->width = 320;
        monitor->height = 480;
        monitor->mwidth = 100;
        monitor->mheight = 150;
        if (withOutput) monitor->outputs[0] = output;
        XRRSetMonitor(dpy, root, monitor);
        XRRFreeMonitors(monitor);
    };
    addMonitor("LEFT", 0, false, true);
    addMonitor("RIGHT", 320, true, false);
    client.warpPointer(QPoint(10, 10));
    list = LVDesktopScreenList(nullptr);
    ASSERT_EQ(LVScreenDescriptions(list), QStringList({"This screen", "Main screen", "-", "RIGHT"}));
    EXPECT_EQ(list[0]->name(), "LV Test Panel");
    EXPECT_EQ(list[1]->screen().frame, QRect(320, 0, 320, 480));

    auto ctx = lvMakeContext(QSize(320, 240));
    ASSERT_TRUE(ctx);
    auto desktop = lvMakeDesktop(ctx.get());
    desktop->setSelectedScreen(3);
    ASSERT_EQ(desktop->screen(), "RIGHT");
    EXPECT_EQ(desktop->grabber()->rootGrabRect(), QRect(320, 0, 320, 480));
    desktop->setMode(LVModeLive);
    LVDesktopGrabber* grabber = desktop->grabber();
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->readCount() >= 1; }, 5s));
    XRRDeleteMonitor(dpy, root, XInternAtom(dpy, "RIGHT", False));
    client.sync();
    ASSERT_TRUE(grabber->waitFor([&] { return grabber->displayLost(); }, 5s));
    desktop->doit();
    EXPECT_EQ(desktop->screen(), "Main screen");
    EXPECT_EQ(desktop->grabber()->screen()->screen().outputName, "LEFT");
    EXPECT_FALSE(desktop->grabber()->displayLost());
    desktop.reset();
    server_->makeCurrent();
}

TEST(DesktopWithoutX, SaysSoAndDrawsNothingButKeepsTheSetup)
{
    const QByteArray display = qgetenv("DISPLAY");
    unsetenv("DISPLAY");
    setenv("WAYLAND_DISPLAY", "wayland-0", 1);
    auto ctx = lvMakeContext(QSize(64, 48));
    ASSERT_TRUE(ctx);
    auto desktop = lvMakeDesktop(ctx.get());
    EXPECT_TRUE(desktop->message().startsWith("Desktop capture needs an X session for now")) << desktop->message().toStdString();
    EXPECT_TRUE(desktop->message().contains("Wayland"));
    EXPECT_EQ(desktop->grabber(), nullptr);
    desktop->setMode(LVModeLive);
    const auto argb = drawFrame(*ctx, *desktop);
    EXPECT_EQ(argb[0], 255);
    EXPECT_EQ(argb[1] | argb[2] | argb[3], 0) << "nothing drawn";

    const QJsonObject stored{{"class", "DesktopLion"},
                             {"enabled", true},
                             {"screen", "DELL U2720Q"},
                             {"fullScreen", false},
                             {"resizable", true},
                             {"viewPortRect", QJsonObject({{"x", 5}, {"y", 6}, {"width", 70}, {"height", 80}})}};
    const LVEffectRef decoded = LVEffect::effectFromData(QJsonDocument(stored).toJson(), ctx.get());
    ASSERT_TRUE(decoded);
    const QJsonObject again = decodedKeys(*decoded);
    EXPECT_EQ(again.value("screen").toString(), "DELL U2720Q");
    EXPECT_EQ(again.value("viewPortRect"), stored.value("viewPortRect"));
    unsetenv("WAYLAND_DISPLAY");
    if (!display.isEmpty()) setenv("DISPLAY", display.constData(), 1);
}

} // namespace

int main(int argc, char** argv)
{
    // The viewport is a window: it needs a GUI application (offscreen in tests).
    QGuiApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
