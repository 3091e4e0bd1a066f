// Linked into every test binary that runs GStreamer in-process: capture threads and GStreamer's
// pooled streaming threads end before the process exits, so the leak checker never meets a
// thread still running.
#include "sources/webcam/LVCamDevice.h"
#include "sources/webcam/LVCamGrabber.h"

#include <gtest/gtest.h>

namespace {

class LVGStreamerShutdownEnvironment : public ::testing::Environment {
public:
    void TearDown() override
    {
        LVCamGrabber::shutdown();
        LVCamShutdownGStreamer();
    }
};

const auto* const kShutdown = ::testing::AddGlobalTestEnvironment(new LVGStreamerShutdownEnvironment);

} // namespace
