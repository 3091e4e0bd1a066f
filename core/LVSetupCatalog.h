#pragma once
// How the application controller reaches saved setups, which live above it. The setup
// manager implements this; the composition root plugs it in.
#include "core/LVProxy.h"

#include <QString>

#include <optional>
#include <vector>

class LVContext;

class LVSetupCatalog {
public:
    virtual ~LVSetupCatalog() = default;

    // The effects of the first setup of the current set whose name equals name, decoded
    // with context and marked with the setup's name; nullopt when no setup has that name.
    virtual std::optional<std::vector<LVEffectRef>> effectsOfNamedSetup(const QString& name, LVContext* context) = 0;
    // The same for a setup file given by path (a setup outside the catalogue);
    // nullopt, with a log line saying why, when the file is not a setup.
    virtual std::optional<std::vector<LVEffectRef>> effectsOfSetupAtPath(const QString& path, LVContext* context) = 0;
};
