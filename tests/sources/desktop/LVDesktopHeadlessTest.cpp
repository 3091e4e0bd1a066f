// The real lumaveil executable, run headless under an X server the test starts: a saved setup
// with a Desktop source publishes the screen through its viewport rectangle.
#include "LVXvfb.h"

#include "core/LVDefaults.h"
#include "core/LVEffectRegistry.h"
#include "render/LVContext.h"
#include "setups/model/LVSetupManager.h"
#include "sources/desktop/DesktopLion.h"
#include "tests/sources/LVHeadlessRun.h"

#include <gtest/gtest.h>

namespace {

constexpr uint32_t kRed = 0xFF0000, kBlue = 0x0000FF;

class LVDesktopHeadless : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(server_.isRunning());
        ASSERT_TRUE(home_.isValid());
        // Left half red, right half blue, over the whole screen.
        const unsigned long window = client_.createWindow(QRect(0, 0, 640, 480), "Halves", "Halves");
        client_.fill(window, QRect(0, 0, 320, 480), kRed);
        client_.fill(window, QRect(320, 0, 320, 480), kBlue);
    }

    LVXvfb server_{640, 480};
    LVXClient client_{server_.name()};
    QTemporaryDir home_;
};

TEST_F(LVDesktopHeadless, ASavedSetupPublishesTheScreenThroughItsViewport)
{
    // A setup saved the way the application saves one: the viewport from x 240 to 560, so the
    // frame's left edge shows red, and blue from its x 40 on (the whole screen would be red there).
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
    desktop->viewPort()->setPortRect(QRectF(240, 120, 320, 240));
    desktop->model().setFullScreen(false);
    {
        LVDefaults defaults(home_.filePath("builder.json"));
        LVSetupManager manager(defaults, context.get(), home_.filePath("data/Lumaveil/Saved Setups"));
        manager.startup();
        ASSERT_TRUE(manager.newSavedSetupWithName("Middle", {effect}, &error)) << error.toStdString();
    }
    QProcessEnvironment environment = lvPrivateEnvironment(home_);
    environment.insert("DISPLAY", server_.name());
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
}

} // namespace
