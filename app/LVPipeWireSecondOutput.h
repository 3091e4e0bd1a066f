#pragma once
// The controller's second output: the frame, read back once per frame for every CPU output, as
// the PipeWire video node "Lumaveil". The controller makes it on the first frame published while
// the preference is on, and keeps it for the rest of the process.
#include "core/LVControllerInterfaces.h"

#include <memory>

class LVPipeWireOutput;

class LVPipeWireSecondOutput : public LVSecondOutput {
public:
    LVPipeWireSecondOutput();
    ~LVPipeWireSecondOutput() override;
    void pushFrame(const unsigned char* bgra, int width, int height, int stride) override;
    LVPipeWireOutput& output() const { return *output_; }

private:
    std::unique_ptr<LVPipeWireOutput> output_;
};
