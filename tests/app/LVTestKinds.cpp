#include "tests/app/LVTestKinds.h"

#include <vector>

namespace {

template <class T>
void registerKind(const char* className, const char* name, LVEffectRole role, LVParameterList parameters = {})
{
    // Descriptors must outlive every effect made from them: kept for the whole process.
    static std::vector<std::unique_ptr<LVEffectDescriptor>> kept;
    auto* descriptor = kept.emplace_back(std::make_unique<LVEffectDescriptor>()).get();
    *descriptor = {QString::fromLatin1(className), QString::fromLatin1(name), role,
                   [descriptor] { return std::make_unique<T>(*descriptor); }, std::move(parameters)};
    LVEffectClasses::registerClass(descriptor);
}

} // namespace

void LVRegisterTestKinds()
{
    static bool registered = false;
    if (registered) return;
    registered = true;
    registerKind<LVRecordingEffect>("RedSource", "Red Source", LVEffectRole::Source);
    registerKind<LVRecordingEffect>("BlueSource", "Blue Source", LVEffectRole::Source);
    registerKind<LVTestMovieSource>("TestMovie", "Movie", LVEffectRole::Source);
    registerKind<LVTestSlideShow>("TestSlides", "Slide Show", LVEffectRole::Source);
    registerKind<LVRecordingEffect>("Marker", "Marker", LVEffectRole::Effect);
    registerKind<LVRecordingEffect>("TestOverlay", "Image Overlay", LVEffectRole::Effect,
                                    {LVImageParameter(QStringLiteral("image"), QStringLiteral("Image"))});
    registerKind<LVTestPip>("TestPip", "PIP", LVEffectRole::Effect);
}
