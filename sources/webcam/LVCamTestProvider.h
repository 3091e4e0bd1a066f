#pragma once
// Fake cameras built on videotestsrc: real GStreamer elements and real caps negotiation, with
// no hardware. Tests, benchmarks and headless runs (LUMAVEIL_TEST_CAMERAS) use it; devices can
// be plugged in, unplugged and made to fail while pipelines run.
#include "sources/webcam/LVCamDevice.h"

#include <mutex>

struct LVCamTestDeviceConfig {
    QString uniqueID;
    QString name;
    QString caps;                            // e.g. "video/x-raw,format=YUY2,width=640,height=480,framerate=30/1"
    QString pattern = QStringLiteral("smpte"); // videotestsrc pattern
    QString produces = {};                   // caps the fake hardware really gives; empty: what it lists
};

class LVCamTestProvider : public LVCamDeviceProvider {
public:
    LVCamTestProvider() = default;
    explicit LVCamTestProvider(std::vector<LVCamTestDeviceConfig> configs);
    // "Name=caps|Name=caps...", the format of LUMAVEIL_TEST_CAMERAS; identifiers are "test:<n>".
    static std::unique_ptr<LVCamTestProvider> fromDescription(const QString& description, QString* error);

    std::vector<LVCamDeviceRef> devices() override;
    void setChangeHandler(std::function<void()> handler) override;

    // Plugs a device in (appended to the list).
    void addDevice(const LVCamTestDeviceConfig& config);
    // Unplugs a device: it leaves the list and its running elements fail as a pulled cable does.
    void removeDevice(const QString& uniqueID);
    // Makes the device's running elements fail while it stays in the list.
    void failDevice(const QString& uniqueID);

private:
    void notify();

    std::mutex mutex_;
    std::vector<std::shared_ptr<class LVCamTestDevice>> devices_;
    std::function<void()> handler_;
};
