#include "render/LVQuad.h"

#include <EGL/egl.h>

#include <cstddef>
#include <mutex>
#include <unordered_map>

#include "core/util/LVLog.h"

bool LVCheckGLError(const char* call)
{
    GLenum e = glGetError();
    if (e == GL_NO_ERROR)
        return true;
    LVLog("%s: GL error 0x%04x", call, e);
    while (glGetError() != GL_NO_ERROR) {
    }
    return false;
}

namespace {

const char* kVertex = R"(#version 330 core
layout(location = 0) in vec2 position;
layout(location = 1) in vec2 texCoord;
uniform vec4 ortho; // left, right, bottom, top
out vec2 uv;
void main() {
    vec2 ndc = 2.0 * (position - ortho.xz) / (ortho.yw - ortho.xz) - 1.0;
    gl_Position = vec4(ndc, 0.0, 1.0);
    uv = texCoord;
}
)";

const char* kFragment = R"(#version 330 core
in vec2 uv;
uniform sampler2D image;
uniform bool alphaFirst;
out vec4 colour;
void main() {
    vec4 texel = texture(image, uv);
    colour = alphaFirst ? texel.argb : texel;
}
)";

struct Quad {
    GLuint program = 0;
    GLuint vao = 0;
    GLuint vbo = 0;
    GLint ortho = -1;
    GLint alphaFirst = -1;
};

// A capture thread ends its own context, and with it looks here, while the render thread
// draws: the map is locked; the GL work never is.
std::mutex quadsMutex;

std::unordered_map<void*, Quad>& quads()
{
    static std::unordered_map<void*, Quad> map;
    return map;
}

Quad makeQuad()
{
    Quad q;
    GLuint vs = LVCompileShader(GL_VERTEX_SHADER, kVertex, "quad");
    GLuint fs = LVCompileShader(GL_FRAGMENT_SHADER, kFragment, "quad");
    q.program = LVLinkProgram(vs, fs, "quad");
    glDeleteShader(vs);
    glDeleteShader(fs);
    q.ortho = glGetUniformLocation(q.program, "ortho");
    q.alphaFirst = glGetUniformLocation(q.program, "alphaFirst");
    GLint previousProgram = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &previousProgram);
    glUseProgram(q.program);
    glUniform1i(glGetUniformLocation(q.program, "image"), 0);
    glUseProgram(previousProgram);

    GLint previousVao = 0, previousBuffer = 0;
    glGetIntegerv(GL_VERTEX_ARRAY_BINDING, &previousVao);
    glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &previousBuffer);
    glGenVertexArrays(1, &q.vao);
    glGenBuffers(1, &q.vbo);
    glBindVertexArray(q.vao);
    glBindBuffer(GL_ARRAY_BUFFER, q.vbo);
    glBufferData(GL_ARRAY_BUFFER, 4 * sizeof(LVQuadVertex), nullptr, GL_STREAM_DRAW);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, sizeof(LVQuadVertex), nullptr);
    glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, sizeof(LVQuadVertex),
                          reinterpret_cast<const void*>(offsetof(LVQuadVertex, u)));
    glEnableVertexAttribArray(0);
    glEnableVertexAttribArray(1);
    glBindVertexArray(previousVao);
    glBindBuffer(GL_ARRAY_BUFFER, previousBuffer);
    LVCheckGLError("LVQuad setup");
    return q;
}

} // namespace

void LVQuadDraw(GLuint texture, const LVQuadVertex (&quad)[4], float left, float right, float bottom, float top,
                LVQuadOutput output)
{
    void* ctx = eglGetCurrentContext();
    if (!ctx) {
        LVLog("LVQuadDraw: no current GL context");
        return;
    }
    Quad q;
    {
        std::lock_guard lock(quadsMutex);
        const auto it = quads().find(ctx);
        if (it != quads().end())
            q = it->second;
    }
    if (!q.program) {
        // Only this thread draws with its current context, so nobody else adds this one.
        q = makeQuad();
        std::lock_guard lock(quadsMutex);
        quads().emplace(ctx, q);
    }

    GLint previousProgram = 0, previousVao = 0, previousBuffer = 0, previousUnit = 0;
    glGetIntegerv(GL_CURRENT_PROGRAM, &previousProgram);
    glGetIntegerv(GL_VERTEX_ARRAY_BINDING, &previousVao);
    glGetIntegerv(GL_ARRAY_BUFFER_BINDING, &previousBuffer);
    glGetIntegerv(GL_ACTIVE_TEXTURE, &previousUnit);

    glUseProgram(q.program);
    glUniform4f(q.ortho, left, right, bottom, top);
    glUniform1i(q.alphaFirst, output == LVQuadOutput::AlphaFirstBytes ? 1 : 0);
    glBindVertexArray(q.vao);
    glBindBuffer(GL_ARRAY_BUFFER, q.vbo);
    glBufferSubData(GL_ARRAY_BUFFER, 0, sizeof quad, quad);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_2D, texture);
    glDrawArrays(GL_TRIANGLE_FAN, 0, 4);
    glFlush();
    glBindTexture(GL_TEXTURE_2D, 0);

    glActiveTexture(previousUnit);
    glBindBuffer(GL_ARRAY_BUFFER, previousBuffer);
    glBindVertexArray(previousVao);
    glUseProgram(previousProgram);
}

GLuint LVCompileShader(GLenum type, const char* source, const char* what, const char* prefix)
{
    GLuint shader = glCreateShader(type);
    const char* sources[] = {prefix, source};
    glShaderSource(shader, 2, sources, nullptr);
    glCompileShader(shader);
    GLint ok = 0;
    glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
    if (!ok) {
        char log[1024] = {};
        glGetShaderInfoLog(shader, sizeof log, nullptr, log);
        LVLog("glCompileShader(%s): %s", what, log);
        glDeleteShader(shader);
        return 0;
    }
    return shader;
}

GLuint LVLinkProgram(GLuint vertex, GLuint fragment, const char* what)
{
    if (!vertex || !fragment) return 0; // the compile said why
    GLuint program = glCreateProgram();
    glAttachShader(program, vertex);
    glAttachShader(program, fragment);
    glLinkProgram(program);
    GLint ok = 0;
    glGetProgramiv(program, GL_LINK_STATUS, &ok);
    if (ok) return program;
    char log[1024] = {};
    glGetProgramInfoLog(program, sizeof log, nullptr, log);
    LVLog("glLinkProgram(%s): %s", what, log);
    glDeleteProgram(program);
    return 0;
}

void LVQuadRelease(void* eglContext)
{
    Quad q;
    {
        std::lock_guard lock(quadsMutex);
        const auto it = quads().find(eglContext);
        if (it == quads().end())
            return;
        q = it->second;
        quads().erase(it);
    }
    glDeleteProgram(q.program);
    glDeleteVertexArrays(1, &q.vao);
    glDeleteBuffers(1, &q.vbo);
}
