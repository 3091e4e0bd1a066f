#pragma once
// A second source shown as a picture inside the video. The embedded source is owned and
// rendered by this effect, one step ahead of the main chain, and drawn by the
// picture-in-picture composition from the application's resources.
#include "core/LVControllerInterfaces.h"
#include "effects/composition/LVQCEffect.h"

#include <functional>

class PIPEffect : public LVQCEffect, public LVOtherSourceHolder {
public:
    PIPEffect() = default;
    ~PIPEffect() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }
    // The composition, inside the application's resources.
    static QString compositionFileName() { return QStringLiteral("./Resources/pip.fs"); }

    void initWithContext(LVContext* context) override;
    void initWithContext(LVContext* context, LVEffectRef otherSource);
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;
    void destruct() override;

    // The controller swaps sources through these.
    LVEffectRef getOtherEffect() const override { return otherEffect_; }
    void setOtherEffect(LVEffectRef other) override;

    void preDoit() override;
    void doit() override;
    bool setMode(int32_t mode) override;
    // Exchanges the embedded source and the main video source through the controller.
    void doSwap();
    // The controller's swap; the application installs it at start-up.
    static void setSwapHandler(std::function<void(PIPEffect&)> handler);

    // The embedded source's latest frame.
    const LVTexture& pipFrame() const { return pipFrame_; }

private:
    void initPIPEffectCommon();

    LVEffectRef otherEffect_;
    LVTexture pipFrame_;
};
