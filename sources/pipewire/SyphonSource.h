#pragma once
// The "PipeWire" source: shows a video node another program publishes as the base picture of
// the chain. The class keeps its historical name so older setups load.
#include "core/LVEffect.h"
#include "sources/webcam/LVCamGrabber.h"

struct LVPipeWireNode;

class SyphonSource : public LVEffect {
public:
    SyphonSource() = default;
    ~SyphonSource() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    // A new source shows nothing until a node is picked.
    void initWithContext(LVContext* context) override;
    // Connects to the archived node by name; one not there now is taken up when it appears.
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;
    void destruct() override;

    // Stops reading the current node before the new one is read.
    void selectServer(const LVPipeWireNode& node);
    // The chosen node's name, empty when none.
    QString serverName() const { return serverName_; }
    const LVCamGrabber::Ref& grabber() const { return grabber_; }

    bool setMode(int32_t mode) override;
    // The node's newest picture, aspect-fitted and centred; nothing before the first one.
    void doit() override;

    // "server": the nodes listed now, for the settings panel.
    LVParameterList effectProperties() const override;
    QString statusNote() const override;

    static constexpr const char* kServerKey = "server";

protected:
    void parameterChanged(const QString& key) override;

private:
    void connectTo(const QString& name, const QString& description);
    void syncParameters();

    QString serverName_;
    QString serverDescription_;
    LVCamGrabber::Ref grabber_;
    // Whether this source holds one start of grabber_, so it never stops another user's.
    bool started_ = false;
    bool syncing_ = false;
    uint64_t seenListGeneration_ = 0;
};

// Registers the PipeWire source kind.
void LVRegisterPipeWireKinds();
