#pragma once
// An effect made from one composition file: its inputs become the effect's parameters,
// the chain's picture goes to its image input, and it renders once per frame at its own
// clock. Filters leave their output pending in the context; runs of filters that read
// their input only at the pixel they write are drawn together in one shader pass.
#include "core/LVEffect.h"
#include "effects/composition/SimpleQCRenderer.h"
#include "render/LVContext.h"

#include <QStringList>

#include <memory>
#include <optional>
#include <vector>

class LVQCEffect : public LVEffect, public LVPendingRenderer {
public:
    LVQCEffect() = default;
    using LVEffect::initWithContext;
    ~LVQCEffect() override;

    static const LVEffectDescriptor& classDescriptor();
    // A composition with transition ports is a transition.
    const LVEffectDescriptor& descriptor() const override;
    // The maker the registry's composition factories use.
    static LVEffectRef makeForFile(LVContext* context, const QString& fileName);

    // A new effect for the composition file (a catalogue file name, or "./" + a path
    // inside the application's resources).
    void initWithContext(LVContext* context, const QString& filename);
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;

    // Rebuilds the parameter list and the archived keys from the composition's inputs.
    virtual void makeInspector();
    // The editor's callback.
    void setEffectValue(const QVariant& value, const QString& key) { setParameterValue(key, value); }

    bool setMode(int32_t mode) override;
    void doit() override;
    void doTransitionTo(const LVTexture& other, double percentage) override;

    LVParameterList effectProperties() const override { return properties_; }
    // The keys archived with the effect, in the composition's order.
    const QStringList& patchAttributes() const { return patchAttributes_; }
    const QString& fileName() const { return fname_; }
    SimpleQCRenderer* renderer() const { return rend_.get(); }
    const QString& imageInputKey() const { return imageInputKey_; }
    const QString& isPreviewInputKey() const { return isPreviewInputKey_; }
    bool freezesTimeInPreview() const { return bFreezeTimeInPreview_; }
    // Text lines shown under the editors: the description and the credit.
    QStringList inspectorNotes() const override;

    // Off: every filter draws its own pass (the reference the fused path is checked against).
    static void setFusionEnabled(bool enabled);
    static bool fusionEnabled();

    std::optional<QRect> inputAreaFor(const QRect& output, QSize frame) const override;
    void drawPendingOutput(LVContext& ctx) override;
    bool coversEveryPixel() const override;

protected:
    void initWithContextFile(LVContext* context, const QString& filename);
    bool initQCEffectCommon();
    void parameterChanged(const QString& key) override;
    // The composition's file, or empty with problem saying why ("not found ...", "outside ...").
    QString resolvePath(QString* problem) const;

private:
    // The stages whose output is pending in the context, first one first.
    std::vector<std::shared_ptr<SimpleQCRenderer>> pending_;
    bool canTakeOver(const LVQCEffect& previous) const;
    using Stages = std::vector<std::shared_ptr<SimpleQCRenderer>>;
    // The first count stages in one pass over what the viewport and the scissor within (set by
    // the caller; none: the whole frame) let through; false when their program is not ready.
    static bool drawStages(LVContext& ctx, const Stages& stages, size_t count, const std::optional<QRect>& within);
    // Overlays at the end of the run that change only a rectangle (a ticker's band): what is
    // beneath them is drawn over the whole frame, the whole run only over that rectangle.
    static bool drawOverlaysInPlace(LVContext& ctx, const Stages& stages, const std::optional<QRect>& within);

    QStringList patchAttributes_;
    std::shared_ptr<SimpleQCRenderer> rend_;
    QString imageInputKey_;
    QString isPreviewInputKey_;
    QString fname_;
    LVParameterList properties_;
    std::optional<double> baseTime_; // none until the first frame drawn
    bool bFreezeTimeInPreview_ = false;
};
