#include "app/LVPipeWireSecondOutput.h"

#include "render/pipewire/LVPipeWireOutput.h"

LVPipeWireSecondOutput::LVPipeWireSecondOutput() : output_(std::make_unique<LVPipeWireOutput>()) {}
LVPipeWireSecondOutput::~LVPipeWireSecondOutput() = default;

void LVPipeWireSecondOutput::pushFrame(const unsigned char* bgra, int width, int height, int stride)
{
    if (output_->isAlive()) output_->pushFrame(bgra, width, height, stride);
}
