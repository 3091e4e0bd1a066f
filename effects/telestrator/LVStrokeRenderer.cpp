#include "effects/telestrator/LVStrokeRenderer.h"

#include "core/util/LVLog.h"
#include "render/LVQuad.h"

#include <cstddef>

namespace {

const char* const kVertex = R"(#version 330 core
layout(location = 0) in vec2 position;
layout(location = 1) in vec4 segment;
layout(location = 2) in float radius;
layout(location = 3) in vec4 color;
layout(location = 4) in float depth;
uniform vec2 size;
out vec4 vSegment;
out float vRadius;
out vec4 vColor;
void main()
{
    vSegment = segment;
    vRadius = radius;
    vColor = color;
    gl_Position = vec4(position / size * 2.0 - 1.0, depth * 2.0 - 1.0, 1.0);
}
)";

// Pixel centres within radius of the segment are covered, others are not: exact, and the
// same at every frame size.
const char* const kFragment = R"(#version 330 core
in vec4 vSegment;
in float vRadius;
in vec4 vColor;
out vec4 fragColor;
void main()
{
    vec2 a = vSegment.xy;
    vec2 ba = vSegment.zw - a;
    vec2 pa = gl_FragCoord.xy - a;
    float along = dot(ba, ba) > 0.0 ? clamp(dot(pa, ba) / dot(ba, ba), 0.0, 1.0) : 0.0;
    if (length(pa - ba * along) > vRadius) discard;
    fragColor = vColor;
}
)";

} // namespace

LVStrokeRenderer::~LVStrokeRenderer()
{
    if (!ctx_) return;
    ctx_->makeCurrent();
    releaseLayer();
    glDeleteProgram(program_);
    glDeleteBuffers(1, &vbo_);
    glDeleteVertexArrays(1, &vao_);
}

void LVStrokeRenderer::releaseLayer()
{
    glDeleteFramebuffers(1, &fbo_);
    glDeleteTextures(1, &texture_);
    glDeleteRenderbuffers(1, &depth_);
    fbo_ = texture_ = depth_ = 0;
    width_ = height_ = 0;
}

bool LVStrokeRenderer::prepare(LVContext& ctx)
{
    if (failed_) return false;
    if (!ctx_) {
        ctx_ = &ctx;
        GLuint vs = LVCompileShader(GL_VERTEX_SHADER, kVertex, "telestrator");
        GLuint fs = LVCompileShader(GL_FRAGMENT_SHADER, kFragment, "telestrator");
        program_ = LVLinkProgram(vs, fs, "telestrator");
        glDeleteShader(vs);
        glDeleteShader(fs);
        if (!program_) {
            failed_ = true;
            return false;
        }
        size_ = glGetUniformLocation(program_, "size");
        glGenVertexArrays(1, &vao_);
        glGenBuffers(1, &vbo_);
        glBindVertexArray(vao_);
        glBindBuffer(GL_ARRAY_BUFFER, vbo_);
        const auto stride = GLsizei(sizeof(LVStrokeVertex));
        const auto at = [](size_t offset) { return reinterpret_cast<const void*>(offset); };
        glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, stride, at(offsetof(LVStrokeVertex, x)));
        glVertexAttribPointer(1, 4, GL_FLOAT, GL_FALSE, stride, at(offsetof(LVStrokeVertex, ax)));
        glVertexAttribPointer(2, 1, GL_FLOAT, GL_FALSE, stride, at(offsetof(LVStrokeVertex, radius)));
        glVertexAttribPointer(3, 4, GL_FLOAT, GL_FALSE, stride, at(offsetof(LVStrokeVertex, r)));
        glVertexAttribPointer(4, 1, GL_FLOAT, GL_FALSE, stride, at(offsetof(LVStrokeVertex, depth)));
        for (GLuint i = 0; i < 5; ++i) glEnableVertexAttribArray(i);
        glBindVertexArray(0);
        glBindBuffer(GL_ARRAY_BUFFER, 0);
    }
    if (width_ != ctx.width() || height_ != ctx.height()) {
        releaseLayer();
        width_ = ctx.width();
        height_ = ctx.height();
        glGenTextures(1, &texture_);
        glBindTexture(GL_TEXTURE_2D, texture_);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, width_, height_, 0, GL_RGBA, GL_UNSIGNED_BYTE, nullptr);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glBindTexture(GL_TEXTURE_2D, 0);
        glGenRenderbuffers(1, &depth_);
        glBindRenderbuffer(GL_RENDERBUFFER, depth_);
        glRenderbufferStorage(GL_RENDERBUFFER, GL_DEPTH_COMPONENT24, width_, height_);
        glBindRenderbuffer(GL_RENDERBUFFER, 0);
        glGenFramebuffers(1, &fbo_);
        glBindFramebuffer(GL_FRAMEBUFFER, fbo_);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture_, 0);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_DEPTH_ATTACHMENT, GL_RENDERBUFFER, depth_);
        const GLenum status = glCheckFramebufferStatus(GL_FRAMEBUFFER);
        if (status != GL_FRAMEBUFFER_COMPLETE) {
            LVLog("glCheckFramebufferStatus(telestrator layer): 0x%x", status);
            releaseLayer();
            failed_ = true;
            return false;
        }
    }
    return true;
}

void LVStrokeRenderer::drawLayer(LVContext& ctx, const LVStrokeMesh& mesh)
{
    // Whatever is pending in the frame is drawn first, while its target is still bound.
    ctx.framebuffer();
    if (!prepare(ctx)) return;

    glBindFramebuffer(GL_FRAMEBUFFER, fbo_);
    glViewport(0, 0, width_, height_);
    glClearColor(0, 0, 0, 0);
    glClearDepth(1.0);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    glDepthFunc(GL_LESS);
    glDepthMask(GL_TRUE);
    glEnable(GL_BLEND);
    glUseProgram(program_);
    glUniform2f(size_, float(width_), float(height_));
    glBindVertexArray(vao_);
    glBindBuffer(GL_ARRAY_BUFFER, vbo_);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(mesh.vertices.size() * sizeof(LVStrokeVertex)), mesh.vertices.data(),
                 GL_STREAM_DRAW);
    for (const LVStrokeMesh::Run& run : mesh.runs) {
        // Premultiplied colours over the layer; an eraser's alpha of 1 leaves nothing beneath it.
        if (run.eraser) glBlendFunc(GL_ZERO, GL_ONE_MINUS_SRC_ALPHA);
        else glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
        glDrawArrays(GL_TRIANGLES, GLint(run.first), GLsizei(run.count));
    }
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    glBindVertexArray(0);
    glBindBuffer(GL_ARRAY_BUFFER, 0);
    glUseProgram(0);
    glDisable(GL_DEPTH_TEST);
    LVCheckGLError("telestrator layer");
}

void LVStrokeRenderer::composite(LVContext& ctx)
{
    if (!hasLayer(ctx)) return;
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    ctx.drawTexture(LVTexture{texture_, width_, height_}, QRectF(0, 0, ctx.width(), ctx.height()),
                    QRectF(0, 0, width_, height_));
    // Back to the context's usual blending.
    glBlendFuncSeparate(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA, GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
}
