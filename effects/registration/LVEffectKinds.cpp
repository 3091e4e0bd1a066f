#include "effects/registration/LVEffectKinds.h"

#include "core/LVEffectRegistry.h"
#include "effects/composition/LVQCEffect.h"
#include "effects/composition/LVQCSource.h"
#include "effects/pip/PIPEffect.h"
#include "effects/script/AppleScriptEffect.h"
#include "effects/song/iTunesSong.h"
#include "effects/ticker/NewsTicker.h"
#include "effects/telestrator/Telestrator.h"

void LVRegisterEffectKinds()
{
    LVEffectClasses::registerClass(&LVQCEffect::classDescriptor());
    LVEffectClasses::registerClass(&PIPEffect::classDescriptor());
    LVRegisterScriptEffect();
    LVRegisterSongKinds();
    LVRegisterTickerKinds();
    LVRegisterTelestrator();
    LVEffectClasses::registerClass(&LVQCSource::classDescriptor());
    LVQCEffectFactory::setCompositionEffectMaker(&LVQCEffect::makeForFile);
    LVQCSourceFactory::setGeneratorSourceMaker(&LVQCSource::makeForFile);
}
