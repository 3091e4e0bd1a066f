#include "app/LVKindRegistration.h"
#include "effects/registration/LVEffectKinds.h"
#include "sources/desktop/DesktopLion.h"
#include "sources/pipewire/SyphonSource.h"
#include "sources/flickr/FlickrSource.h"
#include "sources/movie/MovieSource.h"
#include "sources/slideshow/SlideShow.h"
#include "sources/testpattern/TestPatternSource.h"
#include "sources/webcam/CamSource.h"

// One include and one call per kind library, in any order: the catalogue orders kinds itself.

void LVRegisterAllKinds()
{
    LVRegisterWebcamKinds();
    LVRegisterEffectKinds();
    LVRegisterTestPatternSource();
    LVRegisterDesktopKinds();
    LVRegisterPipeWireKinds();
    LVRegisterMovieKinds();
    LVRegisterSlideShowKinds();
    LVRegisterFlickrKinds();
}
