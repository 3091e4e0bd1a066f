#pragma once
// The textured-quad drawer behind LVContext's drawing routines. Vertex arrays are not shared
// between GL contexts, so each context gets its own, made on first use.
#include "render/LVGL.h"

struct LVQuadVertex {
    float x, y; // destination, window pixels
    float u, v; // source, normalised
};

// Colour: the texel as it is. AlphaFirstBytes: channels reordered to (a, r, g, b), so that a
// plain GL_RGBA/GL_UNSIGNED_BYTE read-back, the fast path of every driver, lands in memory as
// A,R,G,B bytes.
enum class LVQuadOutput { Colour, AlphaFirstBytes };

// Draws a triangle fan of four vertices sampling texture on unit 0 with the projection
// glOrtho(left, right, bottom, top, -1, 1) into the bound framebuffer.
void LVQuadDraw(GLuint texture, const LVQuadVertex (&quad)[4], float left, float right, float bottom, float top,
                LVQuadOutput output = LVQuadOutput::Colour);
// Compiles prefix + source; on failure logs "glCompileShader(what): <log>" and answers 0.
GLuint LVCompileShader(GLenum type, const char* source, const char* what, const char* prefix = "");
// Links compiled shaders (left to the caller) into a program; 0, logged with `what`, when it fails.
GLuint LVLinkProgram(GLuint vertex, GLuint fragment, const char* what);
// Deletes the drawer of the given (current) EGL context.
void LVQuadRelease(void* eglContext);
