// The real lumaveil executable, run headless with --source Desktop under an X server the test
// starts: the screen reaches the shared-memory frames.
#include "LVXvfb.h"

#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

namespace {

TEST(LVDesktopHeadless, DesktopSourcePublishesTheScreen)
{
    LVXvfb server(640, 480);
    ASSERT_TRUE(server.isRunning());
    LVXClient client(server.name());
    // Left half red, right half blue, over the whole screen.
    const unsigned long window = client.createWindow(QRect(0, 0, 640, 480), "Halves", "Halves");
    client.fill(window, QRect(0, 0, 320, 480), 0xFF0000);
    client.fill(window, QRect(320, 0, 320, 480), 0x0000FF);

    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    QProcessEnvironment environment = lvPrivateEnvironment(home);
    environment.insert("DISPLAY", server.name());
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProgram(LV_LUMAVEIL_BINARY);
    process.setArguments({"--headless", "--source", "Desktop", "--video-size", "320x240", "--fps", "15", "--frames", "150"});
    const uint64_t started = LVShmem::currentHostTime();
    process.start();
    ASSERT_TRUE(process.waitForStarted());

    bool sized = true;
    const bool seen = lvWatchFrames(process, started, [&](const LVShmemReadResult& r, const uint8_t* argb) {
        sized = sized && r.width == 320 && r.height == 240;
        const uint8_t* left = argb + (120 * 320 + 10) * 4;
        const uint8_t* right = argb + (120 * 320 + 310) * 4;
        return !sized || (left[0] == 255 && left[1] == 255 && left[3] == 0 && right[1] == 0 && right[3] == 255);
    });
    process.terminate();
    if (!process.waitForFinished(10000)) process.kill();
    EXPECT_TRUE(sized) << "frames are the asked size";
    EXPECT_TRUE(seen) << process.readAllStandardError().toStdString();
}

} // namespace
