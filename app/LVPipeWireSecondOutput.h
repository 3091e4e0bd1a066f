#pragma once
// The controller's second output: the frame, read back once per frame, as the PipeWire video
// node "Lumaveil". The node is made on the first frame the controller publishes (only while the
// preference is on) and kept for the rest of the process.
#include "core/LVControllerInterfaces.h"

#include <cstdint>
#include <memory>
#include <vector>

class LVPipeWireOutput;

class LVPipeWireSecondOutput : public LVSecondOutput {
public:
    LVPipeWireSecondOutput();
    ~LVPipeWireSecondOutput() override;
    void publish(LVContext& context) override;
    // Null until the first frame.
    LVPipeWireOutput* output() const { return output_.get(); }

private:
    std::unique_ptr<LVPipeWireOutput> output_;
    std::vector<uint8_t> pixels_;
};
