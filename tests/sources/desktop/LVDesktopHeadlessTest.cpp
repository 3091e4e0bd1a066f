// The real lumaveil executable, run headless with --source Desktop under an X server the test
// starts: the screen reaches the shared-memory frames.
#include "LVXvfb.h"

#include "render/transport/LVShmem.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>

#include <chrono>
#include <thread>

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
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_CONFIG_HOME", home.filePath("config"));
    environment.insert("XDG_DATA_HOME", home.filePath("data"));
    environment.insert("DISPLAY", server.name());
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProgram(LV_LUMAVEIL_BINARY);
    process.setArguments({"--headless", "--source", "Desktop", "--video-size", "320x240", "--fps", "15", "--frames", "150"});
    LVShmem reader;
    const uint64_t started = LVShmem::currentHostTime();
    process.start();
    ASSERT_TRUE(process.waitForStarted());

    std::unique_ptr<uint8_t[]> data;
    uint64_t length = 0, last = 0;
    bool seen = false;
    const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!seen && std::chrono::steady_clock::now() < until && process.state() != QProcess::NotRunning) {
        const LVShmemReadResult r = reader.getData(data, length, last);
        if (r.status == 0 && r.timestamp > started) {
            last = r.timestamp;
            ASSERT_EQ(r.width, 320);
            ASSERT_EQ(r.height, 240);
            // A,R,G,B, top row first.
            const uint8_t* left = data.get() + (120 * 320 + 10) * 4;
            const uint8_t* right = data.get() + (120 * 320 + 310) * 4;
            seen = left[0] == 255 && left[1] == 255 && left[3] == 0 && right[1] == 0 && right[3] == 255;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    process.terminate();
    if (!process.waitForFinished(10000)) process.kill();
    EXPECT_TRUE(seen) << process.readAllStandardError().toStdString();
}

} // namespace
