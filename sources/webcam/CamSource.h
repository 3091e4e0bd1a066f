#pragma once
// The "Webcam" source: shows a live camera as the base picture of the chain.
#include "core/LVEffect.h"
#include "sources/webcam/LVCamGrabber.h"

class CamSource : public LVEffect {
public:
    CamSource() = default;
    ~CamSource() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    // A new source picks the first camera.
    void initWithContext(LVContext* context) override;
    // Finds the archived camera by "camID", else by "selectedCamera"; none when neither matches.
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;
    void destruct() override;

    const LVCamGrabber::Ref& selectedCamera() const { return grabber_; }
    void setSelectedCamera(LVCamGrabber::Ref grabber);
    static const std::vector<LVCamGrabber::Ref>& deviceList() { return LVCamGrabber::deviceList(); }

    bool setMode(int32_t mode) override;
    void doit() override;

    // "camera" (the cameras listed now) and "resolution" (the chosen camera's sizes to force,
    // or "Automatic"), for the settings panel.
    LVParameterList effectProperties() const override;
    QString statusNote() const override;

    static constexpr const char* kCameraKey = "camera";
    static constexpr const char* kResolutionKey = "resolution";

protected:
    void parameterChanged(const QString& key) override;

private:
    void syncParameters();
    // The archived camera by identifier, else by name; false when it is not listed.
    bool lookUpCamera();

    LVCamGrabber::Ref grabber_;
    // Whether this source holds one start of grabber_, so it never stops another user's.
    bool started_ = false;
    bool syncing_ = false;
    // An archived camera that was not plugged in: taken up when it appears.
    QString wantedID_;
    QString wantedName_;
    uint64_t seenListGeneration_ = 0;
};

// Registers the webcam source kind.
void LVRegisterWebcamKinds();
