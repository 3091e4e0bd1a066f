#pragma once
// Renders one composition: holds its input values, the textures of its image and text
// inputs (animated images play by time), its pass targets (persistent ones keep their
// pixels between frames) and the built-in values of the frame being drawn.
#include "effects/composition/LVAnimatedImage.h"
#include "effects/composition/LVComposition.h"
#include "effects/composition/LVISFProgram.h"
#include "render/LVContext.h"

#include <QHash>
#include <QRect>
#include <QRectF>
#include <QRegion>
#include <QSize>
#include <QVariant>

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <set>

// What one pass target may take in GPU memory; a larger size asked for is scaled down,
// keeping its shape.
constexpr qint64 kLVPassTargetBudget = 256 << 20;
QSize LVCapPassSize(QSize asked, bool isFloat);

// About a second at 30 fps.
constexpr int kLVSteadyFrames = 30;

class SimpleQCRenderer {
public:
    // The composition of the file, drawn into ctx's frames.
    SimpleQCRenderer(LVContext* ctx, const QString& path);
    ~SimpleQCRenderer();
    SimpleQCRenderer(const SimpleQCRenderer&) = delete;
    SimpleQCRenderer& operator=(const SimpleQCRenderer&) = delete;

    const LVComposition& composition() const { return *composition_; }
    // A filter: its output replaces the picture it was given.
    bool usesFilterProtocol() const { return composition_->isFilter(); }
    // Parsed and compiled; a broken composition draws nothing.
    bool isUsable() const { return program(0) != nullptr; }
    const LVISFProgram* program(int pass) const { return LVISFProgramFor(*composition_, pass, constants()); }
    // The switch inputs the program may fix at their present values: bools, longs at one of
    // their VALUES or their default, floats at their default; any value once the switch inputs
    // have held still for kLVSteadyFrames frames (a slider being dragged builds nothing).
    const LVISFConstants& constants() const;

    // Image inputs take a file path; an animated file plays its frames.
    void setValue(const QVariant& value, const QString& key);
    // Stores the value as it is, without looking for an animation.
    void setNonGifValue(const QVariant& value, const QString& key);
    QVariant valueForInputKey(const QString& key) const { return values_.value(key); }
    // Whether the input's image plays; waits for a decode still running (tests, tools).
    bool hasAnimationForInputKey(const QString& key);
    // A frame of the chain for an image input (held until replaced or cleared).
    void setTextureForInputKey(const LVTexture& texture, const QString& key);
    void clearTextureForInputKey(const QString& key) { frames_.remove(key); }

    // Starts a frame at composition time: built-ins, animations, text images.
    void beginFrame(double time);
    // Every pass but the last, into its target; passes whose target nobody reads are skipped.
    void renderIntermediatePasses();
    // The last pass into the framebuffer bound by the caller, over what is there when
    // blendOver, else replacing it.
    void drawFinalPass(bool blendOver);
    // After the frame is drawn: drops the picture fed in and ends momentary events.
    void endFrame();

    // Sets the uniforms and textures of this composition in program (stage -1 for
    // its own program), taking texture units from *unit on.
    void applyUniforms(const LVISFProgram& program, int stage, QSize renderSize, int* unit);
    // Draws the covering triangle with whatever program is in use.
    void drawTriangle();
    // The pixels (GL's, bottom row 0) outside which this filter leaves its input as it is: its
    // CHANGES_ONLY rectangle (else the frame) with a pixel's margin, less its KEEPS_INSIDE one
    // with a pixel's margin inwards; none when it declares neither or a declaration does not
    // evaluate (said once). Text inputs' sizes are $NAME_WIDTH and $NAME_HEIGHT.
    std::optional<QRegion> changedArea() const;
    // The pixels of its image input it reads to draw those given (GL's), within the frame: the
    // same for a pointwise filter, else what READS_ONLY declares with a margin for filtering;
    // none when it declares nothing or the declaration does not evaluate (said once).
    std::optional<QRect> inputAreaFor(const QRect& output) const;
    // A one-pass filter that declares FILLS_OUTSIDE: where its shader must run (the rectangle
    // with a pixel's margin, within the frame) and the colour it writes elsewhere. None when it
    // declares nothing, the declaration does not evaluate (said once), or a clear would not
    // write the colour's bytes as the shader does (a component between two 8-bit steps).
    struct Fill {
        QRect drawn;
        std::array<float, 4> colour;
    };
    std::optional<Fill> fill() const;
    // The chain's picture given to the image input this frame (none: name 0).
    LVTexture inputFrame() const { return frames_.value(composition_->imageInputKey()); }
    QSize outputSize() const { return QSize(ctx_->width(), ctx_->height()); }
    LVContext* context() const { return ctx_; }

private:
    // A pass may read its own target (a persistent buffer does): it draws into the back
    // texture, which then becomes the front.
    struct Target {
        GLuint texture = 0;
        GLuint fbo = 0;
        GLuint backTexture = 0;
        GLuint backFbo = 0;
        QSize size;
        bool isFloat = false;
    };
    struct ImageSlot {
        QString path;
        GLuint texture = 0;
        QSize size;
        std::unique_ptr<LVAnimatedImage> gif;
        // The animation being decoded; until it arrives the first picture shows still.
        std::shared_ptr<LVAnimatedImageLoad> loading;
        bool stale = true;
    };
    struct TextSlot {
        QString text;
        QString font;
        int pixelSize = 0;
        GLuint texture = 0;
        QSize size;
    };

    void takeAnimation(ImageSlot& slot);
    // What size expressions may name: $WIDTH, $HEIGHT, the numeric inputs, text sizes.
    QHash<QString, double> expressionVariables() const;
    // A declared expression's value (whole when empty); none when it does not evaluate,
    // said once through *reported.
    std::optional<double> evaluateDeclared(const QString& expr, double whole, const QHash<QString, double>& variables,
                                           const char* key, bool* reported) const;
    std::optional<QRectF> declaredRectangle(const LVISFArea& area, const char* key, bool* reported) const;
    // r rounded outwards and grown by a pixel on every side, or rounded inwards and shrunk by one,
    // within the frame.
    enum class PixelMargin { Outwards, Inwards };
    QRect withPixelMargin(const QRectF& r, PixelMargin margin = PixelMargin::Outwards) const;
    QSize passSize(const LVISFPass& pass) const;
    Target& target(const LVISFPass& pass, QSize size);
    LVTexture textureForInput(const LVISFInput& input);
    GLuint uploadImage(const QImage& image, GLuint reuse);
    void refreshTexts();
    LVTexture emptyTexture();
    void renderPass(int index, Target* into, QSize size);

    LVContext* ctx_;
    std::shared_ptr<const LVComposition> composition_;
    QHash<QString, QVariant> values_;
    QHash<QString, LVTexture> frames_;
    std::map<QString, ImageSlot> images_;
    std::map<QString, TextSlot> texts_;
    std::map<QString, LVTexture> imports_;
    std::map<QString, Target> targets_;
    mutable std::set<QString> cappedTargets_; // said once each; noted while sizing
    mutable bool changesReported_ = false;     // an unusable CHANGES_ONLY, said once
    mutable bool keptReported_ = false;        // an unusable KEEPS_INSIDE, said once
    mutable bool readsReported_ = false;       // an unusable READS_ONLY, said once
    mutable bool fillReported_ = false;        // an unusable FILLS_OUTSIDE, said once
    mutable std::optional<LVISFConstants> constants_; // worked out again when a value changes
    int steadyFrames_ = 0;                             // frames since a switch input last changed
    QSet<QString> firedEvents_;
    GLuint empty_ = 0;
    GLuint vao_ = 0;
    double time_ = 0;
    double timeDelta_ = 0;
    int frameIndex_ = -1;
    float date_[4] = {};
};
