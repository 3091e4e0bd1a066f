// A plug-in that registers one effect kind, "Plugin Glow".
#include "core/LVEffect.h"
#include "core/LVPlugin.h"

namespace {

const LVEffectDescriptor& glowDescriptor();

class PluginGlow : public LVEffect {
public:
    const LVEffectDescriptor& descriptor() const override { return glowDescriptor(); }
};

const LVEffectDescriptor& glowDescriptor()
{
    static const LVEffectDescriptor d{"PluginGlow", "Plugin Glow", LVEffectRole::Effect,
                                      [] { return std::make_unique<PluginGlow>(); }, {}};
    return d;
}

} // namespace

extern "C" __attribute__((visibility("default"))) void LVPluginRegister(LVPluginHost* host)
{
    host->registerEffectKind(&glowDescriptor());
}
