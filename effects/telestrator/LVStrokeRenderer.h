#pragma once
// Draws the telestrator's stroke mesh on the GPU: into a layer of the frame's size (so an
// eraser can take earlier strokes away without touching the picture), then the layer over
// the frame.
#include "effects/telestrator/LVStrokes.h"
#include "render/LVContext.h"

class LVStrokeRenderer {
public:
    LVStrokeRenderer() = default;
    ~LVStrokeRenderer();
    LVStrokeRenderer(const LVStrokeRenderer&) = delete;
    LVStrokeRenderer& operator=(const LVStrokeRenderer&) = delete;

    // Draws the mesh into the layer, replacing what it held.
    void drawLayer(LVContext& ctx, const LVStrokeMesh& mesh);
    // Whether the layer holds a drawing for ctx's frame size.
    bool hasLayer(const LVContext& ctx) const { return fbo_ && width_ == ctx.width() && height_ == ctx.height(); }
    // The layer over ctx's current frame.
    void composite(LVContext& ctx);

private:
    bool prepare(LVContext& ctx);
    void releaseLayer();

    LVContext* ctx_ = nullptr;
    GLuint program_ = 0;
    GLint size_ = -1;
    GLuint vao_ = 0;
    GLuint vbo_ = 0;
    GLuint fbo_ = 0;
    GLuint texture_ = 0;
    GLuint depth_ = 0;
    int width_ = 0;
    int height_ = 0;
    bool failed_ = false;
};
