#include "core/LVAudioOutputs.h"

#include "core/util/LVLog.h"

#include <gst/gst.h>

std::vector<LVAudioOutputDevice> LVListAudioOutputDevices()
{
    std::vector<LVAudioOutputDevice> devices;
    if (!gst_is_initialized()) {
        GError* error = nullptr;
        if (!gst_init_check(nullptr, nullptr, &error)) {
            LVLog("gst_init_check: %s", error ? error->message : "unknown error");
            if (error) g_error_free(error);
            return devices;
        }
    }
    GstDeviceMonitor* monitor = gst_device_monitor_new();
    gst_device_monitor_add_filter(monitor, "Audio/Sink", nullptr);
    if (!gst_device_monitor_start(monitor)) {
        LVLog("gst_device_monitor_start: no audio output devices can be listed");
        gst_object_unref(monitor);
        return devices;
    }
    GList* found = gst_device_monitor_get_devices(monitor);
    for (GList* item = found; item; item = item->next) {
        auto* device = GST_DEVICE(item->data);
        gchar* name = gst_device_get_display_name(device);
        gchar* deviceClass = gst_device_get_device_class(device);
        devices.push_back({QString::fromUtf8(name), QString::fromUtf8(deviceClass)});
        g_free(name);
        g_free(deviceClass);
    }
    g_list_free_full(found, gst_object_unref);
    gst_device_monitor_stop(monitor);
    gst_object_unref(monitor);
    return devices;
}
