#pragma once
// Freehand drawing over the picture: strokes drawn with the mouse or a pen on a preview, in
// a colour and width, with an eraser, undo and clear; strokes fade a chosen time after the
// pen lifts, or stay. They are kept with a saved setup only when the user asks to.
#include "core/LVStrokeReceiver.h"
#include "core/LVEffect.h"
#include "effects/telestrator/LVStrokeRenderer.h"
#include "effects/telestrator/LVStrokes.h"

#include <memory>
#include <optional>

class Telestrator : public LVEffect, public LVStrokeReceiver {
public:
    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void encodeWithCoder(LVKeyedArchiver& coder) const override;
    void destruct() override;
    void doit() override;
    QStringList inspectorNotes() const override;

    void beginStroke(QPointF point) override;
    void continueStroke(QPointF point) override;
    void endStroke() override;
    void clearStrokes() override { strokes_.clear(); }
    void undo() { strokes_.undo(); }
    const LVStrokeList& strokes() const { return strokes_; }

protected:
    void parameterChanged(const QString& key) override;

private:
    LVStrokeList strokes_;
    std::unique_ptr<LVStrokeRenderer> renderer_;
    // What the renderer's layer shows: redrawn only when the strokes change or fade.
    std::optional<uint64_t> drawnRevision_;
};

// Adds the kind to the effect class table.
void LVRegisterTelestrator();
