#include "LVCamTestSupport.h"

#include <atomic>
#include <chrono>

namespace {

std::atomic<int64_t> gSteppedNs{0};

int64_t steppedNow()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
               .count() +
           gSteppedNs.load();
}

} // namespace

LVSteppedDelayClock::LVSteppedDelayClock()
{
    gSteppedNs = 0;
    LVCamGrabber::setDelayClock(&steppedNow);
}

LVSteppedDelayClock::~LVSteppedDelayClock()
{
    LVCamGrabber::setDelayClock(nullptr);
}

void LVSteppedDelayClock::advance(int milliseconds)
{
    gSteppedNs += int64_t(milliseconds) * 1000000;
}

LVPictureReader::LVPictureReader()
{
    QString error;
    gl_ = LVGLContext::makeOffscreenGLContext(&error);
    EXPECT_TRUE(gl_) << error.toStdString();
    if (!gl_) return;
    gl_->makeCurrent();
    glGenFramebuffers(1, &fbo_);
}

LVPictureReader::~LVPictureReader()
{
    if (!gl_) return;
    gl_->makeCurrent();
    glDeleteFramebuffers(1, &fbo_);
}

RGBA LVPictureReader::at(const LVCamPicture& picture, int x, int row)
{
    gl_->makeCurrent();
    glBindFramebuffer(GL_FRAMEBUFFER, fbo_);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, picture.name(), 0);
    unsigned char p[4] = {};
    glReadPixels(x, picture.height() - 1 - row, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, p);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    return {p[0], p[1], p[2], p[3]};
}

void LVCamFixture::install(std::vector<LVCamTestDeviceConfig> configs)
{
    ASSERT_TRUE(dir_.isValid());
    defaults_ = std::make_unique<LVDefaults>(dir_.filePath(QStringLiteral("prefs.json")));
    defaults_->setValue(QStringLiteral("frameRate"), 30);
    LVDefaults::setStandardUserDefaults(defaults_.get());
    auto provider = std::make_unique<LVCamTestProvider>(std::move(configs));
    provider_ = provider.get();
    LVCamGrabber::setDeviceProvider(std::move(provider));
}

void LVCamFixture::TearDown()
{
    LVCamGrabber::setDeviceProvider(nullptr);
    LVDefaults::setStandardUserDefaults(nullptr);
}

std::shared_ptr<const LVCamPicture> LVNextPicture(LVCamGrabber& grabber, const std::shared_ptr<const LVCamPicture>& previous)
{
    std::shared_ptr<const LVCamPicture> picture;
    lvWaitFor([&] {
        picture = grabber.last();
        return picture && picture != previous;
    });
    return picture != previous ? picture : nullptr;
}
