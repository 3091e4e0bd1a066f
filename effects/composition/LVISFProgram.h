#pragma once
// Compiling compositions for OpenGL 3.3 core. Old-style GLSL (gl_FragColor, texture2D,
// varying, #version 110/120) compiles unchanged through a preamble of macros; a shader
// that leans on the implicit conversions of old desktop compilers is compiled again as
// GLSL 4.20 where the driver has it. #line keeps the compiler's line numbers those of
// the file.
#include "effects/composition/LVComposition.h"
#include "render/LVGL.h"

#include <QHash>
#include <QString>

#include <utility>
#include <vector>

struct LVISFProgram {
    GLuint program = 0;
    QHash<QString, GLint> uniforms;  // active uniform name -> location
    QStringList samplers;            // active sampler uniforms, in the order units are assigned

    GLint location(const QString& name) const { return uniforms.value(name, -1); }
};

// Inputs a program variant fixes as constants, input name -> GLSL literal, in input order:
// the compiler then drops the branches they switch off (hue 0 needs no colour-space round
// trip). Empty: the general program, every input a uniform.
using LVISFConstants = std::vector<std::pair<QString, QString>>;

// A composition drawn with some of its inputs fixed.
struct LVISFVariant {
    const LVComposition* composition = nullptr;
    LVISFConstants constants;
};

// The composition's program for one pass; all passes are compiled once per loaded version.
// Null when any pass does not compile; the compiler's message is logged once as
// "file:line: message". Null too while the program builder is still at it: the effect
// then draws nothing until its program is ready. The general program is always built
// first; a variant is built beside it (at most a few per composition) and stands in for it
// once ready, giving the same pixels.
const LVISFProgram* LVISFProgramFor(const LVComposition& composition, int pass, const LVISFConstants& constants = {});
// Variants on (the default) or off (LUMAVEIL_NO_VARIANTS=1, tests that compare).
void LVISFSetVariantsEnabled(bool enabled);
// A loaded version of a composition is gone (from any thread): its programs are deleted at the
// render thread's next ask for a program.
void LVISFCompositionGone(quint64 uid);
// Programs held now, own and fused.
size_t LVISFProgramCount();
// Whether the composition's general programs are built and usable; asks for nothing.
bool LVISFProgramIsReady(const LVComposition& composition);

// Where programs are compiled and linked. Without a worker, on the calling thread. With one
// (the application starts it), on a thread of its own with a GL context that shares objects
// with the render context, so a huge or slow shader never holds the render loop.
class LVISFProgramBuilder {
public:
    // False, with error, when the worker's GL context cannot be made (compiling then stays
    // on the calling thread).
    static bool startWorker(QString* error);
    // Stops the worker. A job still compiling after graceSeconds is abandoned: answers false,
    // and the process must then end without running static destructors (the driver is busy).
    static bool stopWorker(double graceSeconds);
    static bool hasWorker();
    // Programs asked for and not yet ready.
    static int pendingCount();
    // Waits until nothing is pending, up to seconds; true when nothing is.
    static bool waitUntilIdle(double seconds);
    // Tests hold the worker to see what the render loop does meanwhile.
    static void holdWorker(bool hold);
};

// One program that runs several compositions in a single pass: the first one's last
// pass, then each next one on the previous one's pixel, quantised to 8 bits in between
// exactly as a frame buffer would store it. Null when the shaders cannot share a program;
// the caller then renders them one by one. Variants as for a composition's own program.
const LVISFProgram* LVISFFusedProgramFor(const std::vector<LVISFVariant>& stages);

// The name a composition's uniform has inside a program: as declared for stage -1 (its
// own program), prefixed per stage inside a fused one.
QString LVISFUniformName(int stage, const QString& name);

// Why the composition's passes did not compile ("file:line: message" lines); empty when
// they did or are not built yet.
QString LVISFProgramError(const LVComposition& composition);

// The uniforms declared beside each image (input, pass target, imported image): where
// the image lies in its texture (vec4, normalised), its size in pixels (vec2) and whether
// it is stored upside down (bool).
QString LVISFImageRectName(const QString& image);
QString LVISFImageSizeName(const QString& image);
QString LVISFImageFlipName(const QString& image);

// The shader texts, for tests and diagnostics.
QString LVISFFragmentShaderText(const LVComposition& composition, int pass, const LVISFConstants& constants = {});
QString LVISFVertexShaderText(const LVComposition* composition, int pass);
