#pragma once
// Shared by the webcam tests: fake cameras, private preferences, and reading pictures back.
#include "core/LVDefaults.h"
#include "render/LVGLContext.h"
#include "sources/webcam/LVCamConverter.h"
#include "sources/webcam/LVCamGrabber.h"
#include "sources/webcam/LVCamTestProvider.h"
#include "tests/sources/LVWaitFor.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <array>
#include <functional>

using RGBA = std::array<int, 4>;

// The grabbers' delay clock while it lives: the steady clock plus the steps taken.
class LVSteppedDelayClock {
public:
    LVSteppedDelayClock();
    ~LVSteppedDelayClock();
    void advance(int milliseconds);
};

// Reads pictures back on a GL context of the test's own.
class LVPictureReader {
public:
    LVPictureReader();
    ~LVPictureReader();
    // The pixel at x and row (row 0 is the top row of the camera picture).
    RGBA at(const LVCamPicture& picture, int x, int row);

private:
    std::unique_ptr<LVGLContext> gl_;
    GLuint fbo_ = 0;
};

// Fresh preferences and a fresh device list over the given fake cameras for every test.
class LVCamFixture : public ::testing::Test {
protected:
    void install(std::vector<LVCamTestDeviceConfig> configs);
    void TearDown() override;

    QTemporaryDir dir_;
    std::unique_ptr<LVDefaults> defaults_;
    LVCamTestProvider* provider_ = nullptr;
};

// A running grabber's next picture that differs from previous (null when none came).
std::shared_ptr<const LVCamPicture> LVNextPicture(LVCamGrabber& grabber,
                                                  const std::shared_ptr<const LVCamPicture>& previous = nullptr);
