#include "app/LVPipeWireSecondOutput.h"

#include "render/LVContext.h"
#include "render/pipewire/LVPipeWireOutput.h"

#include <libyuv/convert_argb.h>

LVPipeWireSecondOutput::LVPipeWireSecondOutput() = default;
LVPipeWireSecondOutput::~LVPipeWireSecondOutput() = default;

void LVPipeWireSecondOutput::publish(LVContext& context)
{
    if (!output_) output_ = std::make_unique<LVPipeWireOutput>();
    if (!output_->isAlive()) return;
    const int width = context.width();
    const int height = context.height();
    const int stride = width * 4;
    pixels_.resize(size_t(stride) * size_t(height));
    context.fetchOpenGLPixels(pixels_.data(), stride);
    // The read-back gives A,R,G,B bytes; the node carries B,G,R,A. Turned in place.
    libyuv::BGRAToARGB(pixels_.data(), stride, pixels_.data(), stride, width, height);
    output_->pushFrame(pixels_.data(), width, height, stride);
}
