#pragma once
// Cameras as GStreamer's device monitor sees them (class "Video/Source": V4L2 and PipeWire).
#include "sources/webcam/LVCamDevice.h"

#include <mutex>

typedef struct _GstDeviceMonitor GstDeviceMonitor;
typedef struct _GstBus GstBus;
typedef struct _GstMessage GstMessage;

class LVCamGstProvider : public LVCamDeviceProvider {
public:
    LVCamGstProvider();
    ~LVCamGstProvider() override;

    std::vector<LVCamDeviceRef> devices() override;
    void setChangeHandler(std::function<void()> handler) override;

private:
    static int busSyncHandler(GstBus* bus, GstMessage* message, void* self);

    GstDeviceMonitor* monitor_ = nullptr;
    std::mutex mutex_;
    std::function<void()> handler_;
};
