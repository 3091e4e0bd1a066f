// The real lumaveil executable, run headless with --source Webcam on a fake camera: the first
// camera's pictures reach the shared-memory frames.
#include "render/transport/LVShmem.h"

#include <gtest/gtest.h>

#include <QProcess>
#include <QTemporaryDir>

#include <chrono>
#include <thread>

namespace {

TEST(LVCamHeadless, WebcamSourcePublishesTheFirstCamerasPictures)
{
    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_CONFIG_HOME", home.filePath("config"));
    environment.insert("XDG_DATA_HOME", home.filePath("data"));
    // Both show SMPTE bars; the second camera's wide picture would leave the top rows black.
    environment.insert("LUMAVEIL_TEST_CAMERAS",
                       "Bars Cam=video/x-raw,format=YUY2,width=320,height=240,framerate=15/1|"
                       "Wide Cam=video/x-raw,format=NV12,width=320,height=120,framerate=15/1");
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProgram(LV_LUMAVEIL_BINARY);
    process.setArguments({"--headless", "--source", "Webcam", "--video-size", "320x240", "--fps", "15", "--frames", "150"});
    LVShmem reader;
    // Frames left by an earlier run are older than this.
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
            // A,R,G,B, top row first: a white bar, then a yellow one, once the camera's picture is in.
            const uint8_t* white = data.get();
            const uint8_t* yellow = data.get() + 68 * 4;
            seen = white[0] == 255 && white[1] >= 253 && white[2] >= 253 && white[3] >= 253 && yellow[1] >= 253 &&
                   yellow[2] >= 253 && yellow[3] <= 2;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    process.terminate();
    if (!process.waitForFinished(10000)) process.kill();
    EXPECT_TRUE(seen) << process.readAllStandardError().toStdString();
}

} // namespace
