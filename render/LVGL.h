#pragma once
// OpenGL 3.3 core entry points, linked directly from libGL (GLVND dispatches to the current context).
#ifndef GL_GLEXT_PROTOTYPES
#define GL_GLEXT_PROTOTYPES 1
#endif
#include <GL/gl.h>
#include <GL/glext.h>

// Logs "<call>: GL error 0x...." and answers false when the GL reported an error since the last check.
bool LVCheckGLError(const char* call);
