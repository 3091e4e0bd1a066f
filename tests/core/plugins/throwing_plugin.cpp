// A plug-in whose registration fails with an exception.
#include "core/LVPlugin.h"

#include <stdexcept>

extern "C" __attribute__((visibility("default"))) void LVPluginRegister(LVPluginHost*)
{
    throw std::runtime_error("no licence for this machine");
}
