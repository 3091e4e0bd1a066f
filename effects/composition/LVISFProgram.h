#pragma once
// Compiling compositions for OpenGL 3.3 core. Old-style GLSL (gl_FragColor, texture2D,
// varying, #version 110/120) compiles unchanged through a preamble of macros; #line keeps
// the compiler's line numbers those of the file.
#include "effects/composition/LVComposition.h"
#include "render/LVGL.h"

#include <QHash>
#include <QString>

#include <vector>

struct LVISFProgram {
    GLuint program = 0;
    QHash<QString, GLint> uniforms;  // active uniform name -> location
    QStringList samplers;            // active sampler uniforms, in the order units are assigned

    GLint location(const QString& name) const { return uniforms.value(name, -1); }
};

// The composition's program for one pass; all passes are compiled once per loaded version.
// Null when any pass does not compile; the compiler's message is logged once as
// "file:line: message".
const LVISFProgram* LVISFProgramFor(const LVComposition& composition, int pass);

// One program that runs several compositions in a single pass: the first one's last
// pass, then each next one on the previous one's pixel, quantised to 8 bits in between
// exactly as a frame buffer would store it. Null when the shaders cannot share a program;
// the caller then renders them one by one.
const LVISFProgram* LVISFFusedProgramFor(const std::vector<const LVComposition*>& stages);

// The name a composition's uniform has inside a program: as declared for stage -1 (its
// own program), prefixed per stage inside a fused one.
QString LVISFUniformName(int stage, const QString& name);

// The shader texts, for tests and diagnostics.
QString LVISFFragmentShaderText(const LVComposition& composition, int pass);
QString LVISFVertexShaderText(const LVComposition* composition, int pass);
