#pragma once
// Shared by the webcam tests: fake cameras, private preferences, and reading pictures back.
#include "core/LVDefaults.h"
#include "render/LVGLContext.h"
#include "sources/webcam/LVCamConverter.h"
#include "sources/webcam/LVCamGrabber.h"
#include "sources/webcam/LVCamTestProvider.h"
#include "tests/support/LVWaitFor.h"

#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>

using RGBA = std::array<int, 4>;

// The grabbers' delay clock while it lives: the steady clock plus the steps taken.
class LVSteppedDelayClock {
public:
    LVSteppedDelayClock()
    {
        stepped_ = 0;
        LVCamGrabber::setDelayClock(&now);
    }
    ~LVSteppedDelayClock() { LVCamGrabber::setDelayClock(nullptr); }
    void advance(int milliseconds) { stepped_ += int64_t(milliseconds) * 1000000; }

private:
    static int64_t now()
    {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch()).count() +
               stepped_.load();
    }
    static inline std::atomic<int64_t> stepped_{0};
};

// Reads pictures back on a GL context of the test's own.
class LVPictureReader {
public:
    LVPictureReader()
    {
        QString error;
        gl_ = LVGLContext::makeOffscreenGLContext(&error);
        EXPECT_TRUE(gl_) << error.toStdString();
        if (!gl_) return;
        gl_->makeCurrent();
        glGenFramebuffers(1, &fbo_);
    }
    ~LVPictureReader()
    {
        if (!gl_) return;
        gl_->makeCurrent();
        glDeleteFramebuffers(1, &fbo_);
    }
    // The pixel at x and row (row 0 is the top row of the camera picture).
    RGBA at(const LVCamPicture& picture, int x, int row)
    {
        gl_->makeCurrent();
        glBindFramebuffer(GL_FRAMEBUFFER, fbo_);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, picture.name(), 0);
        unsigned char p[4] = {};
        glReadPixels(x, picture.height() - 1 - row, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, p);
        glBindFramebuffer(GL_FRAMEBUFFER, 0);
        return {p[0], p[1], p[2], p[3]};
    }

private:
    std::unique_ptr<LVGLContext> gl_;
    GLuint fbo_ = 0;
};

// Fresh preferences and a fresh device list over the given fake cameras for every test.
class LVCamFixture : public ::testing::Test {
protected:
    void install(std::vector<LVCamTestDeviceConfig> configs)
    {
        ASSERT_TRUE(dir_.isValid());
        defaults_ = std::make_unique<LVDefaults>(dir_.filePath(QStringLiteral("prefs.json")));
        defaults_->setValue(QStringLiteral("frameRate"), 30);
        LVDefaults::setStandardUserDefaults(defaults_.get());
        auto provider = std::make_unique<LVCamTestProvider>(std::move(configs));
        provider_ = provider.get();
        LVCamGrabber::setDeviceProvider(std::move(provider));
    }
    void TearDown() override
    {
        LVCamGrabber::setDeviceProvider(nullptr);
        LVDefaults::setStandardUserDefaults(nullptr);
    }

    QTemporaryDir dir_;
    std::unique_ptr<LVDefaults> defaults_;
    LVCamTestProvider* provider_ = nullptr;
};

// A running grabber's next picture that differs from previous (null when none came).
inline std::shared_ptr<const LVCamPicture> LVNextPicture(LVCamGrabber& grabber,
                                                         const std::shared_ptr<const LVCamPicture>& previous = nullptr)
{
    std::shared_ptr<const LVCamPicture> picture;
    lvWaitFor([&] {
        picture = grabber.last();
        return picture && picture != previous;
    });
    return picture != previous ? picture : nullptr;
}
