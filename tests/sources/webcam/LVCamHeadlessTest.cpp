// The real lumaveil executable, run headless with --source Webcam on a fake camera: the first
// camera's pictures reach the shared-memory frames.
#include "tests/sources/LVHeadlessRun.h"

#include <gtest/gtest.h>

namespace {

TEST(LVCamHeadless, WebcamSourcePublishesTheFirstCamerasPictures)
{
    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    QProcessEnvironment environment = lvPrivateEnvironment(home);
    // Both show SMPTE bars; the second camera's wide picture would leave the top rows black.
    environment.insert("LUMAVEIL_TEST_CAMERAS",
                       "Bars Cam=video/x-raw,format=YUY2,width=320,height=240,framerate=15/1|"
                       "Wide Cam=video/x-raw,format=NV12,width=320,height=120,framerate=15/1");
    bool sized = true;
    const LVHeadlessRun run = lvRunHeadless(
        LV_LUMAVEIL_BINARY, environment, {"--source", "Webcam", "--video-size", "320x240", "--fps", "15", "--frames", "150"},
        [&](const LVShmemReadResult& r, const uint8_t* argb) {
            sized = sized && r.width == 320 && r.height == 240;
            // A white bar, then a yellow one, once the camera's picture is in.
            const uint8_t* white = argb;
            const uint8_t* yellow = argb + 68 * 4;
            return !sized || (white[0] == 255 && white[1] >= 253 && white[2] >= 253 && white[3] >= 253 &&
                              yellow[1] >= 253 && yellow[2] >= 253 && yellow[3] <= 2);
        });
    EXPECT_TRUE(sized) << "frames are the asked size";
    EXPECT_TRUE(run.seen) << run.log;
}

} // namespace
