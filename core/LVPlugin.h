#pragma once
// The plug-in interface: a shared object (.so) in an Effects folder that exports
//   extern "C" void LVPluginRegister(LVPluginHost* host);
// and registers its effect kinds through the host. Descriptors must live as long as the
// process (plug-ins are never unloaded).
#include "core/LVEffectDescriptor.h"

inline constexpr const char* LVPluginEntryPointName = "LVPluginRegister";

class LVPluginHost {
public:
    virtual void registerEffectKind(const LVEffectDescriptor* descriptor) = 0;

protected:
    ~LVPluginHost() = default;
};

extern "C" {
typedef void (*LVPluginRegisterFunction)(LVPluginHost* host);
}
