#pragma once
// Turns camera frames into RGBA textures on the GPU: the frame's planes are uploaded as they
// come (YUYV, UYVY, NV12, I420/YV12/Y42B/Y444, RGB) and a shader converts them, so the CPU
// never touches a pixel. Runs on the grabber's thread with its GL context current.
#include "render/LVContext.h"
#include "render/LVGL.h"

#include <gst/video/video.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

// A finished camera picture: RGBA, stored the GL way up, sharable with every context.
// Handed between threads as std::shared_ptr<const LVCamPicture>; the texture goes back to its
// grabber's pool when the last holder lets go.
class LVCamPicture : public std::enable_shared_from_this<LVCamPicture> {
public:
    struct Pool;
    LVCamPicture(GLuint name, int width, int height, int64_t captureTimeNs, std::shared_ptr<Pool> pool);
    ~LVCamPicture();
    LVCamPicture(const LVCamPicture&) = delete;
    LVCamPicture& operator=(const LVCamPicture&) = delete;

    GLuint name() const { return name_; }
    int width() const { return width_; }
    int height() const { return height_; }
    // When the camera took it, on the steady clock (nanoseconds).
    int64_t captureTimeNs() const { return captureTimeNs_; }
    bool isBlack() const { return black_; }
    // For drawing; keeps the picture alive while the texture is in use.
    LVTexture texture() const;

private:
    friend class LVCamConverter;
    GLuint name_;
    int width_;
    int height_;
    int64_t captureTimeNs_;
    bool black_ = false;
    std::shared_ptr<Pool> pool_;
};

class LVCamConverter {
public:
    // Needs a current GL 3.3 context; null with the failing call logged.
    static std::unique_ptr<LVCamConverter> create();
    ~LVCamConverter();
    LVCamConverter(const LVCamConverter&) = delete;
    LVCamConverter& operator=(const LVCamConverter&) = delete;

    static bool supports(GstVideoFormat format);
    // The formats an appsink should ask for, as a caps string.
    static const char* sinkCaps();

    // Pictures come out at this size, scaled while converting (planes filtered), or at each
    // frame's own size when either is 0 (the default). A movie far larger than the chain
    // then costs the GPU only the chain's pixels.
    void setOutputSize(int width, int height);

    // Uploads the frame's planes; false (logged once per format) when it cannot be shown.
    bool upload(const GstVideoFrame& frame);
    // Converts the last uploaded frame into a new picture and waits for the GPU to finish it,
    // so the picture is complete before anybody else sees it.
    std::shared_ptr<const LVCamPicture> draw(int64_t captureTimeNs);
    std::shared_ptr<const LVCamPicture> convert(const GstVideoFrame& frame, int64_t captureTimeNs);
    // An opaque black picture.
    std::shared_ptr<const LVCamPicture> black(int width, int height);

private:
    LVCamConverter() = default;
    // The five layouts' programs, converting at the frame's size or scaling.
    bool buildPrograms(bool scaled);
    GLuint takeTexture(int width, int height);
    void setPlane(int index, GLint internalFormat, GLenum format, GLenum type, int width, int height, int rowPixels,
                  const void* data);

    struct Plane {
        GLuint name = 0;
        GLint internalFormat = 0;
        int width = 0;
        int height = 0;
    };
    struct Program {
        GLuint name = 0;
        GLint height = -1, chromaShift = -1, matrix = -1, offset = -1, outputSize = -1, sourceSize = -1;
    };
    Program programs_[2][5]; // [scaling][plane layout]
    GLuint vao_ = 0;
    GLuint fbo_ = 0;
    Plane planes_[3];
    int width_ = 0;
    int height_ = 0;
    std::optional<bool> scalingBuilt_;
    int outputWidth_ = 0;
    int outputHeight_ = 0;
    int layout_ = 0;
    int chromaShift_[2] = {0, 0};
    float matrix_[9] = {};
    float offset_[3] = {};
    GstVideoFormat unsupportedLogged_ = GST_VIDEO_FORMAT_UNKNOWN;
    std::shared_ptr<LVCamPicture::Pool> pool_;
};
