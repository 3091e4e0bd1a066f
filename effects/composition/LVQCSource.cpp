#include "effects/composition/LVQCSource.h"

const LVEffectDescriptor& LVQCSource::classDescriptor()
{
    // No catalogue name: generators enter the sources through their files.
    static const LVEffectDescriptor descriptor{QStringLiteral("LVQCSource"), QString(), LVEffectRole::Source,
                                               [] { return std::make_unique<LVQCSource>(); }, {}};
    return descriptor;
}

LVEffectRef LVQCSource::makeForFile(LVContext* context, const QString& fileName)
{
    auto source = std::make_unique<LVQCSource>();
    source->initWithContext(context, fileName);
    return LVMakeEffectHandle(std::move(source));
}
