#pragma once
// A generator composition (one with no image input for the chain's picture) used as the
// source: it draws the base picture of the chain, with the same parameters and archive as
// the composition stacked as an effect.
#include "effects/composition/LVQCEffect.h"

class LVQCSource : public LVQCEffect {
public:
    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }
    // The maker the registry's generator source factories use.
    static LVEffectRef makeForFile(LVContext* context, const QString& fileName);
};
