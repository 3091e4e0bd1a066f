#pragma once
// The virtual camera as an output: the shared read-back, turned to the transport's A,R,G,B
// byte order while it is copied into the next image block.
#include "render/LVOutputDriver.h"
#include "transport/LVShmem.h"

#include <functional>

class LVShmemOutput : public LVOutputDriver {
public:
    // wanted: whether frames are published now; frameRate: the rate written into each header.
    LVShmemOutput(LVShmem& shmem, std::function<bool()> wanted, std::function<int()> frameRate)
        : shmem_(shmem), wanted_(std::move(wanted)), frameRate_(std::move(frameRate))
    {
    }
    std::string outputName() const override { return "shared memory"; }
    bool wantsFrame() const override { return wanted_(); }
    void drawFrame(LVOutputFrame& frame) override;

    // The transport's step for pixels already on the CPU.
    static void publish(LVShmem& shmem, const LVFramePixels& pixels, int frameRate);

private:
    LVShmem& shmem_;
    std::function<bool()> wanted_;
    std::function<int()> frameRate_;
};
