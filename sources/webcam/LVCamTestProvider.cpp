#include "sources/webcam/LVCamTestProvider.h"

#include <gst/gst.h>

class LVCamTestDevice : public LVCamDevice {
public:
    explicit LVCamTestDevice(LVCamTestDeviceConfig config) : config_(std::move(config))
    {
        LVCamInitGStreamer();
        GstCaps* caps = gst_caps_from_string(config_.caps.toUtf8().constData());
        formats_ = LVCamFormatsFromCaps(caps);
        if (caps) gst_caps_unref(caps);
    }
    ~LVCamTestDevice() override
    {
        for (GWeakRef* ref : elements_) {
            g_weak_ref_clear(ref);
            delete ref;
        }
    }

    QString uniqueID() const override { return config_.uniqueID; }
    QString localizedName() const override { return config_.name; }
    std::vector<LVCamFormat> formats() const override { return formats_; }

    GstElement* createElement(QString* error) const override
    {
        const bool jpeg = std::any_of(formats_.begin(), formats_.end(),
                                      [](const LVCamFormat& f) { return f.pixelFormat == QLatin1String("MJPG"); });
        // A JPEG camera: raw test pictures encoded on the fly, as the camera's chip would.
        QString description = QStringLiteral("videotestsrc is-live=true pattern=%1").arg(config_.pattern);
        if (!config_.produces.isEmpty()) description += QStringLiteral(" ! capsfilter caps=\"%1\"").arg(config_.produces);
        if (jpeg) description += QStringLiteral(" ! jpegenc");
        GError* gerror = nullptr;
        GstElement* element = gst_parse_bin_from_description(description.toUtf8().constData(), TRUE, &gerror);
        if (!element) {
            if (error) *error = QStringLiteral("gst_parse_bin_from_description: %1").arg(QString::fromUtf8(gerror->message));
            g_clear_error(&gerror);
            return nullptr;
        }
        g_clear_error(&gerror);
        std::lock_guard lock(mutex_);
        auto* ref = new GWeakRef;
        g_weak_ref_init(ref, element);
        elements_.push_back(ref);
        return element;
    }

    // Every element made for this device that is still alive posts an error, as v4l2src does
    // when its device goes away.
    void fail()
    {
        std::vector<GstElement*> alive;
        {
            std::lock_guard lock(mutex_);
            for (GWeakRef* ref : elements_) {
                if (auto* e = static_cast<GstElement*>(g_weak_ref_get(ref))) alive.push_back(e);
            }
        }
        for (GstElement* e : alive) {
            GError* gerror = g_error_new_literal(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_READ, "Could not read from resource.");
            gst_element_post_message(e, gst_message_new_error(GST_OBJECT(e), gerror, "test device failed"));
            g_error_free(gerror);
            gst_object_unref(e);
        }
    }

private:
    LVCamTestDeviceConfig config_;
    std::vector<LVCamFormat> formats_;
    mutable std::mutex mutex_;
    mutable std::vector<GWeakRef*> elements_;
};

LVCamTestProvider::LVCamTestProvider(std::vector<LVCamTestDeviceConfig> configs)
{
    for (auto& config : configs) devices_.push_back(std::make_shared<LVCamTestDevice>(std::move(config)));
}

std::unique_ptr<LVCamTestProvider> LVCamTestProvider::fromDescription(const QString& description, QString* error)
{
    std::vector<LVCamTestDeviceConfig> configs;
    const QStringList entries = description.split(QLatin1Char('|'), Qt::SkipEmptyParts);
    for (const QString& entry : entries) {
        const qsizetype eq = entry.indexOf(QLatin1Char('='));
        if (eq <= 0 || eq == entry.size() - 1) {
            if (error) *error = QStringLiteral("test camera \"%1\" is not Name=caps").arg(entry);
            return nullptr;
        }
        LVCamTestDeviceConfig config;
        config.uniqueID = QStringLiteral("test:%1").arg(configs.size());
        config.name = entry.left(eq).trimmed();
        config.caps = entry.mid(eq + 1).trimmed();
        configs.push_back(config);
    }
    auto provider = std::make_unique<LVCamTestProvider>(std::move(configs));
    for (const auto& device : provider->devices_) {
        if (device->formats().empty()) {
            if (error) *error = QStringLiteral("test camera \"%1\" has no usable caps").arg(device->localizedName());
            return nullptr;
        }
    }
    return provider;
}

std::vector<LVCamDeviceRef> LVCamTestProvider::devices()
{
    std::lock_guard lock(mutex_);
    return {devices_.begin(), devices_.end()};
}

void LVCamTestProvider::setChangeHandler(std::function<void()> handler)
{
    std::lock_guard lock(mutex_);
    handler_ = std::move(handler);
}

void LVCamTestProvider::addDevice(const LVCamTestDeviceConfig& config)
{
    {
        std::lock_guard lock(mutex_);
        devices_.push_back(std::make_shared<LVCamTestDevice>(config));
    }
    notify();
}

void LVCamTestProvider::removeDevice(const QString& uniqueID)
{
    std::shared_ptr<LVCamTestDevice> removed;
    {
        std::lock_guard lock(mutex_);
        for (auto it = devices_.begin(); it != devices_.end(); ++it) {
            if ((*it)->uniqueID() == uniqueID) {
                removed = *it;
                devices_.erase(it);
                break;
            }
        }
    }
    if (!removed) return;
    removed->fail();
    notify();
}

void LVCamTestProvider::failDevice(const QString& uniqueID)
{
    std::shared_ptr<LVCamTestDevice> device;
    {
        std::lock_guard lock(mutex_);
        for (const auto& d : devices_) {
            if (d->uniqueID() == uniqueID) device = d;
        }
    }
    if (device) device->fail();
}

void LVCamTestProvider::notify()
{
    std::function<void()> handler;
    {
        std::lock_guard lock(mutex_);
        handler = handler_;
    }
    if (handler) handler();
}
