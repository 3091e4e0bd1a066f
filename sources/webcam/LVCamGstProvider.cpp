#include "sources/webcam/LVCamGstProvider.h"

#include "core/util/LVLog.h"

#include <gst/gst.h>

namespace {

class LVCamGstDevice : public LVCamDevice {
public:
    explicit LVCamGstDevice(GstDevice* device) : device_(GST_DEVICE(gst_object_ref(device)))
    {
        gchar* name = gst_device_get_display_name(device_);
        name_ = QString::fromUtf8(name);
        g_free(name);
        GstCaps* caps = gst_device_get_caps(device_);
        formats_ = LVCamFormatsFromCaps(caps);
        if (caps) gst_caps_unref(caps);
        id_ = stableID();
    }
    ~LVCamGstDevice() override { gst_object_unref(device_); }

    QString uniqueID() const override { return id_; }
    QString localizedName() const override { return name_; }
    std::vector<LVCamFormat> formats() const override { return formats_; }
    GstElement* createElement(QString* error) const override
    {
        GstElement* element = gst_device_create_element(device_, nullptr);
        if (!element && error) *error = QStringLiteral("gst_device_create_element: %1 offers no element").arg(name_);
        return element;
    }

private:
    // The same camera gets the same identifier when it is plugged back in: the node name
    // (PipeWire) or the USB/PCI path (V4L2) survive re-plugging, /dev/videoN may not.
    QString stableID() const
    {
        GstStructure* props = gst_device_get_properties(device_);
        QString id;
        if (props) {
            auto text = [props](const char* key) {
                const gchar* v = gst_structure_get_string(props, key);
                return v ? QString::fromUtf8(v) : QString();
            };
            if (QString v = text("node.name"); !v.isEmpty()) id = v;
            else if (QString bus = text("device.bus_path"); !bus.isEmpty()) id = bus + QLatin1Char('|') + name_;
            else if (QString path = text("api.v4l2.path"); !path.isEmpty()) id = path;
            else if (QString dev = text("device.path"); !dev.isEmpty()) id = dev;
            else if (QString obj = text("object.path"); !obj.isEmpty()) id = obj;
            gst_structure_free(props);
        }
        return id.isEmpty() ? name_ : id;
    }

    GstDevice* device_;
    QString name_;
    QString id_;
    std::vector<LVCamFormat> formats_;
};

} // namespace

LVCamGstProvider::LVCamGstProvider()
{
    if (!LVCamInitGStreamer()) return;
    monitor_ = gst_device_monitor_new();
    gst_device_monitor_add_filter(monitor_, "Video/Source", nullptr);
    GstBus* bus = gst_device_monitor_get_bus(monitor_);
    gst_bus_set_sync_handler(bus, reinterpret_cast<GstBusSyncHandler>(&LVCamGstProvider::busSyncHandler), this, nullptr);
    gst_object_unref(bus);
    if (!gst_device_monitor_start(monitor_)) LVLog("gst_device_monitor_start: no camera can be watched");
}

LVCamGstProvider::~LVCamGstProvider()
{
    if (!monitor_) return;
    gst_device_monitor_stop(monitor_);
    GstBus* bus = gst_device_monitor_get_bus(monitor_);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
    gst_object_unref(monitor_);
}

std::vector<LVCamDeviceRef> LVCamGstProvider::devices()
{
    std::vector<LVCamDeviceRef> list;
    if (!monitor_) return list;
    GList* devices = gst_device_monitor_get_devices(monitor_);
    for (GList* l = devices; l; l = l->next) list.push_back(std::make_shared<LVCamGstDevice>(GST_DEVICE(l->data)));
    g_list_free_full(devices, gst_object_unref);
    return list;
}

void LVCamGstProvider::setChangeHandler(std::function<void()> handler)
{
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

int LVCamGstProvider::busSyncHandler(GstBus*, GstMessage* message, void* self)
{
    auto* provider = static_cast<LVCamGstProvider*>(self);
    const GstMessageType type = GST_MESSAGE_TYPE(message);
    if (type == GST_MESSAGE_DEVICE_ADDED || type == GST_MESSAGE_DEVICE_REMOVED) {
        std::lock_guard lock(provider->mutex_);
        if (provider->handler_) provider->handler_();
    }
    return GST_BUS_DROP;
}
