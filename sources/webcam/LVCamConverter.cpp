#include "sources/webcam/LVCamConverter.h"

#include "render/LVQuad.h"

#include "core/util/LVLog.h"

#include <EGL/egl.h>

#include <algorithm>
#include <optional>

struct LVCamPicture::Pool {
    struct Entry {
        GLuint name;
        int width;
        int height;
        // Set when the picture was let go on a thread drawing with GL: the commands that
        // still read the texture end before the grabber draws into it again.
        GLsync lastRead;
    };
    std::mutex mutex;
    std::vector<Entry> free;
};

namespace {

enum Layout { kYUYV = 0, kUYVY = 1, kSemiPlanar = 2, kPlanar = 3, kRGB = 4 };
constexpr int kLayouts = 5;

const char* kVertex = R"(#version 330 core
void main()
{
    // One triangle that covers the viewport.
    vec2 p = vec2(gl_VertexID == 1 ? 3.0 : -1.0, gl_VertexID == 2 ? 3.0 : -1.0);
    gl_Position = vec4(p, 0.0, 1.0);
}
)";

// One program per layout: llvmpipe runs branch-free shaders several times faster.
const char* kFragment = R"(
uniform sampler2D plane0;
uniform sampler2D plane1;
uniform sampler2D plane2;
uniform int height;
uniform ivec2 chromaShift;
uniform mat3 matrix;
uniform vec3 offset;
uniform vec2 outputSize;
uniform ivec2 sourceSize;
out vec4 color;
void main()
{
#ifdef SCALED
    // Where this output pixel falls in the frame, top down (0..1).
    vec2 uv = vec2(gl_FragCoord.x / outputSize.x, 1.0 - gl_FragCoord.y / outputSize.y);
    ivec2 p = ivec2(uv * vec2(sourceSize));
    int row = p.y;
#else
    ivec2 p = ivec2(gl_FragCoord.xy);
    // Camera rows run top down; the picture is stored the GL way up.
    int row = height - 1 - p.y;
#endif
    vec3 yuv;
#if LAYOUT == 0
    vec4 t = texelFetch(plane0, ivec2(p.x >> 1, row), 0);
    yuv = vec3((p.x & 1) == 0 ? t.r : t.b, t.g, t.a);
#elif LAYOUT == 1
    vec4 t = texelFetch(plane0, ivec2(p.x >> 1, row), 0);
    yuv = vec3((p.x & 1) == 0 ? t.g : t.a, t.r, t.b);
#elif LAYOUT == 2 && defined(SCALED)
    // Planes are filtered: each output pixel blends the frame's pixels around it.
    yuv = vec3(texture(plane0, uv).r, texture(plane1, uv).rg);
#elif LAYOUT == 2
    yuv = vec3(texelFetch(plane0, ivec2(p.x, row), 0).r, texelFetch(plane1, ivec2(p.x >> 1, row >> 1), 0).rg);
#elif LAYOUT == 3 && defined(SCALED)
    yuv = vec3(texture(plane0, uv).r, texture(plane1, uv).r, texture(plane2, uv).r);
#elif LAYOUT == 3
    ivec2 c = ivec2(p.x >> chromaShift.x, row >> chromaShift.y);
    yuv = vec3(texelFetch(plane0, ivec2(p.x, row), 0).r, texelFetch(plane1, c, 0).r, texelFetch(plane2, c, 0).r);
#endif
#if LAYOUT == 4 && defined(SCALED)
    color = vec4(texture(plane0, uv).rgb, 1.0);
#elif LAYOUT == 4
    color = vec4(texelFetch(plane0, ivec2(p.x, row), 0).rgb, 1.0);
#else
    color = vec4(clamp(matrix * yuv + offset, 0.0, 1.0), 1.0);
#endif
}
)";

// The YCbCr -> RGB matrix and offset for normalised 8-bit samples.
void colourMatrix(const GstVideoColorimetry& colorimetry, float matrix[9], float offset[3])
{
    gdouble kr = 0.299, kb = 0.114;
    if (!gst_video_color_matrix_get_Kr_Kb(colorimetry.matrix, &kr, &kb)) {
        kr = 0.299;
        kb = 0.114;
    }
    const bool full = colorimetry.range == GST_VIDEO_COLOR_RANGE_0_255;
    const double offY = full ? 0 : 16, scaleY = full ? 255 : 219, scaleC = full ? 255 : 224;
    const double kg = 1 - kr - kb;
    const double rv = 2 * (1 - kr), bu = 2 * (1 - kb);
    const double gu = -2 * kb * (1 - kb) / kg, gv = -2 * kr * (1 - kr) / kg;
    const double ys = 255 / scaleY, cs = 255 / scaleC, y0 = offY / scaleY, c0 = 128 / scaleC;
    // Column-major: one column per input component.
    const double m[9] = {ys, ys, ys, 0, gu * cs, bu * cs, rv * cs, gv * cs, 0};
    for (int i = 0; i < 9; ++i) matrix[i] = float(m[i]);
    offset[0] = float(-y0 - rv * c0);
    offset[1] = float(-y0 - (gu + gv) * c0);
    offset[2] = float(-y0 - bu * c0);
}

} // namespace

LVCamPicture::LVCamPicture(GLuint name, int width, int height, int64_t captureTimeNs, std::shared_ptr<Pool> pool)
    : name_(name), width_(width), height_(height), captureTimeNs_(captureTimeNs), pool_(std::move(pool))
{
}

LVCamPicture::~LVCamPicture()
{
    // Any thread may drop the last reference; only the grabber's thread draws into the
    // texture again, after what this thread's context queued that reads it.
    GLsync lastRead = nullptr;
    if (eglGetCurrentContext() != EGL_NO_CONTEXT) {
        lastRead = glFenceSync(GL_SYNC_GPU_COMMANDS_COMPLETE, 0);
        glFlush();
    }
    std::lock_guard lock(pool_->mutex);
    pool_->free.push_back({name_, width_, height_, lastRead});
}

LVTexture LVCamPicture::texture() const
{
    return {name_, width_, height_, shared_from_this()};
}

bool LVCamConverter::buildPrograms(bool scaled)
{
    GLuint vs = LVCompileShader(GL_VERTEX_SHADER, kVertex, "camera conversion");
    if (!vs) return false;
    for (int layout = 0; layout < kLayouts; ++layout) {
        QByteArray prefix = QByteArrayLiteral("#version 330 core\n#define LAYOUT ") + QByteArray::number(layout) + '\n';
        if (scaled) prefix += QByteArrayLiteral("#define SCALED\n");
        GLuint fs = LVCompileShader(GL_FRAGMENT_SHADER, kFragment, "camera conversion", prefix.constData());
        if (!fs) {
            glDeleteShader(vs);
            return false;
        }
        Program& p = programs_[scaled][layout];
        p.name = LVLinkProgram(vs, fs, "camera conversion");
        glDeleteShader(fs);
        if (!p.name) {
            glDeleteShader(vs);
            return false;
        }
        glUseProgram(p.name);
        glUniform1i(glGetUniformLocation(p.name, "plane0"), 0);
        glUniform1i(glGetUniformLocation(p.name, "plane1"), 1);
        glUniform1i(glGetUniformLocation(p.name, "plane2"), 2);
        p.height = glGetUniformLocation(p.name, "height");
        p.chromaShift = glGetUniformLocation(p.name, "chromaShift");
        p.matrix = glGetUniformLocation(p.name, "matrix");
        p.offset = glGetUniformLocation(p.name, "offset");
        p.outputSize = glGetUniformLocation(p.name, "outputSize");
        p.sourceSize = glGetUniformLocation(p.name, "sourceSize");
    }
    glDeleteShader(vs);
    glUseProgram(0);
    return true;
}

std::unique_ptr<LVCamConverter> LVCamConverter::create()
{
    std::unique_ptr<LVCamConverter> c(new LVCamConverter);
    c->pool_ = std::make_shared<LVCamPicture::Pool>();
    // The scaling programs are built on first use: cameras never need them.
    if (!c->buildPrograms(false)) return nullptr;
    glGenVertexArrays(1, &c->vao_);
    glGenFramebuffers(1, &c->fbo_);
    if (!LVCheckGLError("LVCamConverter::create")) return nullptr;
    return c;
}

void LVCamConverter::setOutputSize(int width, int height)
{
    outputWidth_ = std::max(width, 0);
    outputHeight_ = std::max(height, 0);
}

LVCamConverter::~LVCamConverter()
{
    for (Plane& p : planes_) glDeleteTextures(1, &p.name);
    if (pool_) {
        std::lock_guard lock(pool_->mutex);
        for (const auto& e : pool_->free) {
            glDeleteTextures(1, &e.name);
            if (e.lastRead) glDeleteSync(e.lastRead);
        }
        pool_->free.clear();
    }
    glDeleteFramebuffers(1, &fbo_);
    glDeleteVertexArrays(1, &vao_);
    for (const auto& programs : programs_)
        for (const Program& p : programs) glDeleteProgram(p.name);
}

bool LVCamConverter::supports(GstVideoFormat format)
{
    switch (format) {
    case GST_VIDEO_FORMAT_YUY2:
    case GST_VIDEO_FORMAT_UYVY:
    case GST_VIDEO_FORMAT_NV12:
    case GST_VIDEO_FORMAT_I420:
    case GST_VIDEO_FORMAT_YV12:
    case GST_VIDEO_FORMAT_Y42B:
    case GST_VIDEO_FORMAT_Y444:
    case GST_VIDEO_FORMAT_BGRx:
    case GST_VIDEO_FORMAT_BGRA:
    case GST_VIDEO_FORMAT_RGBx:
    case GST_VIDEO_FORMAT_RGBA:
        return true;
    default:
        return false;
    }
}

const char* LVCamConverter::sinkCaps()
{
    return "video/x-raw,format=(string){YUY2,UYVY,NV12,I420,YV12,Y42B,Y444,BGRx,BGRA,RGBx,RGBA}";
}

void LVCamConverter::setPlane(int index, GLint internalFormat, GLenum format, GLenum type, int width, int height,
                              int rowPixels, const void* data)
{
    Plane& p = planes_[index];
    glActiveTexture(GL_TEXTURE0 + index);
    if (!p.name) {
        glGenTextures(1, &p.name);
        glBindTexture(GL_TEXTURE_2D, p.name);
        // Filtered for scaling; the same-size conversion reads texels directly.
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    } else {
        glBindTexture(GL_TEXTURE_2D, p.name);
    }
    glPixelStorei(GL_UNPACK_ROW_LENGTH, rowPixels);
    if (p.internalFormat != internalFormat || p.width != width || p.height != height) {
        glTexImage2D(GL_TEXTURE_2D, 0, internalFormat, width, height, 0, format, type, data);
        p.internalFormat = internalFormat;
        p.width = width;
        p.height = height;
    } else {
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, width, height, format, type, data);
    }
}

bool LVCamConverter::upload(const GstVideoFrame& frame)
{
    const GstVideoFormat format = GST_VIDEO_FRAME_FORMAT(&frame);
    if (!supports(format)) {
        if (unsupportedLogged_ != format) {
            LVLog("Camera pictures in %s cannot be shown", gst_video_format_to_string(format));
            unsupportedLogged_ = format;
        }
        return false;
    }
    const int w = GST_VIDEO_FRAME_WIDTH(&frame), h = GST_VIDEO_FRAME_HEIGHT(&frame);
    auto stride = [&](int plane) { return GST_VIDEO_FRAME_PLANE_STRIDE(&frame, plane); };
    auto data = [&](int plane) { return GST_VIDEO_FRAME_PLANE_DATA(&frame, plane); };
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    switch (format) {
    case GST_VIDEO_FORMAT_YUY2:
    case GST_VIDEO_FORMAT_UYVY:
        // Two pixels per RGBA texel: Y0 U Y1 V (or U Y0 V Y1).
        layout_ = format == GST_VIDEO_FORMAT_YUY2 ? kYUYV : kUYVY;
        setPlane(0, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, (w + 1) / 2, h, stride(0) / 4, data(0));
        break;
    case GST_VIDEO_FORMAT_NV12:
        layout_ = kSemiPlanar;
        setPlane(0, GL_R8, GL_RED, GL_UNSIGNED_BYTE, w, h, stride(0), data(0));
        setPlane(1, GL_RG8, GL_RG, GL_UNSIGNED_BYTE, (w + 1) / 2, (h + 1) / 2, stride(1) / 2, data(1));
        break;
    case GST_VIDEO_FORMAT_BGRx:
    case GST_VIDEO_FORMAT_BGRA:
    case GST_VIDEO_FORMAT_RGBx:
    case GST_VIDEO_FORMAT_RGBA: {
        layout_ = kRGB;
        const bool bgr = format == GST_VIDEO_FORMAT_BGRx || format == GST_VIDEO_FORMAT_BGRA;
        setPlane(0, GL_RGBA8, bgr ? GL_BGRA : GL_RGBA, GL_UNSIGNED_BYTE, w, h, stride(0) / 4, data(0));
        break;
    }
    default: {
        layout_ = kPlanar;
        const GstVideoFormatInfo* info = frame.info.finfo;
        chromaShift_[0] = GST_VIDEO_FORMAT_INFO_W_SUB(info, 1);
        chromaShift_[1] = GST_VIDEO_FORMAT_INFO_H_SUB(info, 1);
        const int comps[3] = {GST_VIDEO_COMP_Y, GST_VIDEO_COMP_U, GST_VIDEO_COMP_V};
        for (int i = 0; i < 3; ++i) {
            setPlane(i, GL_R8, GL_RED, GL_UNSIGNED_BYTE, GST_VIDEO_FRAME_COMP_WIDTH(&frame, comps[i]),
                     GST_VIDEO_FRAME_COMP_HEIGHT(&frame, comps[i]), GST_VIDEO_FRAME_COMP_STRIDE(&frame, comps[i]),
                     GST_VIDEO_FRAME_COMP_DATA(&frame, comps[i]));
        }
        break;
    }
    }
    glPixelStorei(GL_UNPACK_ROW_LENGTH, 0);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
    glActiveTexture(GL_TEXTURE0);
    width_ = w;
    height_ = h;
    colourMatrix(frame.info.colorimetry, matrix_, offset_);
    return LVCheckGLError("glTexSubImage2D(camera planes)");
}

GLuint LVCamConverter::takeTexture(int width, int height)
{
    std::vector<LVCamPicture::Pool::Entry> stale;
    std::optional<LVCamPicture::Pool::Entry> found;
    {
        std::lock_guard lock(pool_->mutex);
        for (auto it = pool_->free.begin(); it != pool_->free.end();) {
            if (!found && it->width == width && it->height == height) {
                found = *it;
                it = pool_->free.erase(it);
            } else if (it->width != width || it->height != height) {
                stale.push_back(*it);
                it = pool_->free.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (const auto& entry : stale) {
        glDeleteTextures(1, &entry.name);
        if (entry.lastRead) glDeleteSync(entry.lastRead);
    }
    if (found) {
        if (found->lastRead) {
            glWaitSync(found->lastRead, 0, GL_TIMEOUT_IGNORED);
            glDeleteSync(found->lastRead);
        }
        return found->name;
    }
    GLuint name = 0;
    glGenTextures(1, &name);
    glBindTexture(GL_TEXTURE_2D, name);
    glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width, height, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_LINEAR);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, GL_CLAMP_TO_EDGE);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, GL_CLAMP_TO_EDGE);
    glBindTexture(GL_TEXTURE_2D, 0);
    return name;
}

std::shared_ptr<const LVCamPicture> LVCamConverter::draw(int64_t captureTimeNs)
{
    if (width_ <= 0 || height_ <= 0) return nullptr;
    const int outWidth = outputWidth_ > 0 && outputHeight_ > 0 ? outputWidth_ : width_;
    const int outHeight = outputWidth_ > 0 && outputHeight_ > 0 ? outputHeight_ : height_;
    const bool scaled = outWidth != width_ || outHeight != height_;
    if (scaled && !scalingBuilt_) scalingBuilt_ = buildPrograms(true); // tried once: a failure is logged once
    if (scaled && !*scalingBuilt_) return nullptr;
    const GLuint target = takeTexture(outWidth, outHeight);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo_);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, target, 0);
    glViewport(0, 0, outWidth, outHeight);
    glDisable(GL_BLEND);
    const Program& program = programs_[scaled][layout_];
    glUseProgram(program.name);
    glUniform1i(program.height, height_);
    glUniform2f(program.outputSize, float(outWidth), float(outHeight));
    glUniform2i(program.sourceSize, width_, height_);
    glUniform2i(program.chromaShift, chromaShift_[0], chromaShift_[1]);
    glUniformMatrix3fv(program.matrix, 1, GL_FALSE, matrix_);
    glUniform3fv(program.offset, 1, offset_);
    for (int i = 0; i < 3; ++i) {
        glActiveTexture(GL_TEXTURE0 + i);
        glBindTexture(GL_TEXTURE_2D, planes_[i].name);
    }
    glBindVertexArray(vao_);
    glDrawArrays(GL_TRIANGLES, 0, 3);
    glBindVertexArray(0);
    glUseProgram(0);
    glActiveTexture(GL_TEXTURE0);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glFinish();
    if (!LVCheckGLError("glDrawArrays(camera conversion)")) {
        glDeleteTextures(1, &target);
        return nullptr;
    }
    return std::make_shared<LVCamPicture>(target, outWidth, outHeight, captureTimeNs, pool_);
}

std::shared_ptr<const LVCamPicture> LVCamConverter::convert(const GstVideoFrame& frame, int64_t captureTimeNs)
{
    return upload(frame) ? draw(captureTimeNs) : nullptr;
}

std::shared_ptr<const LVCamPicture> LVCamConverter::black(int width, int height)
{
    const GLuint target = takeTexture(width, height);
    glBindFramebuffer(GL_FRAMEBUFFER, fbo_);
    glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, target, 0);
    glViewport(0, 0, width, height);
    glClearColor(0, 0, 0, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    glBindFramebuffer(GL_FRAMEBUFFER, 0);
    glFinish();
    auto picture = std::make_shared<LVCamPicture>(target, width, height, 0, pool_);
    picture->black_ = true;
    return picture;
}
