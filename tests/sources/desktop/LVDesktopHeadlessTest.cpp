// The real lumaveil executable, run headless under an X server the test starts: with
// --source Desktop the screen reaches the shared-memory frames, and a saved setup brings its
// viewport rectangle back.
#include "LVXvfb.h"

#include "core/LVDefaults.h"
#include "core/LVEffectRegistry.h"
#include "render/LVContext.h"
#include "transport/LVShmem.h"
#include "setups/model/LVSetupManager.h"
#include "sources/desktop/DesktopLion.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>


namespace {

constexpr uint32_t kRed = 0xFF0000, kBlue = 0x0000FF;

class LVDesktopHeadless : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server_.isRunning());
        ASSERT_TRUE(home_.isValid());
        // Left half red, right half blue, over the whole screen.
        window_ = client_.createWindow(QRect(0, 0, 640, 480), "Halves", "Halves");
        client_.fill(window_, QRect(0, 0, 320, 480), kRed);
        client_.fill(window_, QRect(320, 0, 320, 480), kBlue);
    }

    // Runs lumaveil until a published 320x240 frame shows left and right as given.
    bool publishes(const QStringList& arguments, uint32_t left, uint32_t right, QString* log)
    {
        QProcessEnvironment environment = lvPrivateEnvironment(home_);
        environment.insert("DISPLAY", server_.name());
        QProcess process;
        process.setProcessEnvironment(environment);
        const uint64_t started = LVShmem::currentHostTime();
        process.start(LV_LUMAVEIL_BINARY,
                      QStringList{"--headless", "--video-size", "320x240", "--fps", "15", "--frames", "150"} + arguments);
        if (!process.waitForStarted()) return false;
        const auto rgb = [](const uint8_t* px) { return uint32_t(px[1]) << 16 | uint32_t(px[2]) << 8 | px[3]; };
        const bool seen = lvWatchFrames(
            process, started,
            [&](const LVShmemReadResult& r, const uint8_t* argb) {
                return r.width == 320 && r.height == 240 && rgb(argb + (120 * 320 + 10) * 4) == left &&
                       rgb(argb + (120 * 320 + 310) * 4) == right;
            },
            std::chrono::seconds(20));
        process.terminate();
        if (!process.waitForFinished(10000)) process.kill();
        *log = QString::fromLocal8Bit(process.readAllStandardError());
        return seen;
    }

    LVXvfb server_{640, 480};
    LVXClient client_{server_.name()};
    QTemporaryDir home_;
    unsigned long window_ = 0;
};

TEST_F(LVDesktopHeadless, DesktopSourcePublishesTheScreen)
{
    QString log;
    EXPECT_TRUE(publishes({"--source", "Desktop"}, kRed, kBlue, &log)) << log.toStdString();
}

TEST_F(LVDesktopHeadless, ASavedViewportRectangleComesBack)
{
    // A setup saved the way the application saves one: the viewport over the blue half.
    server_.makeCurrent();
    LVRegisterDesktopKinds();
    QString error;
    std::unique_ptr<LVContext> context = LVContext::create(QSize(320, 240), &error);
    ASSERT_TRUE(context) << error.toStdString();
    LVEffectFolders folders;
    folders.bundled = home_.filePath("no-effects");
    LVEffectRegistry registry(folders);
    registry.findEffects();
    const LVEffectRef effect = registry.instantiateNamedSource("Desktop", context.get());
    auto* desktop = dynamic_cast<DesktopLion*>(effect.get());
    ASSERT_NE(desktop, nullptr);
    desktop->viewPort()->setPortRect(QRectF(320, 120, 320, 240));
    desktop->model().setFullScreen(false);
    {
        LVDefaults defaults(home_.filePath("builder.json"));
        LVSetupManager manager(defaults, context.get(), home_.filePath("data/Lumaveil/Saved Setups"));
        manager.startup();
        ASSERT_TRUE(manager.newSavedSetupWithName("Right Half", {effect}, &error)) << error.toStdString();
    }
    QString log;
    EXPECT_TRUE(publishes({"--setup", "Right Half"}, kBlue, kBlue, &log)) << log.toStdString();
}

} // namespace
