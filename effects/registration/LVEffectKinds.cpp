#include "effects/registration/LVEffectKinds.h"

#include "core/LVEffectRegistry.h"
#include "effects/composition/LVQCEffect.h"
#include "effects/pip/PIPEffect.h"

void LVRegisterEffectKinds()
{
    LVEffectClasses::registerClass(&LVQCEffect::classDescriptor());
    LVEffectClasses::registerClass(&PIPEffect::classDescriptor());
    LVQCEffectFactory::setCompositionEffectMaker(&LVQCEffect::makeForFile);
}
