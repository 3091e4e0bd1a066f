#include "effects/registration/LVEffectKinds.h"

#include "core/LVEffectRegistry.h"
#include "effects/composition/LVQCEffect.h"
#include "effects/pip/PIPEffect.h"
#include "effects/script/AppleScriptEffect.h"
#include "effects/song/iTunesSong.h"
#include "effects/ticker/NewsTicker.h"

void LVRegisterEffectKinds()
{
    LVEffectClasses::registerClass(&LVQCEffect::classDescriptor());
    LVEffectClasses::registerClass(&PIPEffect::classDescriptor());
    LVRegisterScriptEffect();
    LVRegisterSongKinds();
    LVRegisterTickerKinds();
    LVQCEffectFactory::setCompositionEffectMaker(&LVQCEffect::makeForFile);
}
