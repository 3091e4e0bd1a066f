#include "tests/app/LVTestKinds.h"

#include <vector>

namespace {

// Descriptors must outlive every effect made from them: kept for the whole process.
std::vector<std::unique_ptr<LVEffectDescriptor>>& keptDescriptors()
{
    static std::vector<std::unique_ptr<LVEffectDescriptor>> kept;
    return kept;
}

template <class T>
LVEffectDescriptor* describe(const char* className, const char* name, LVEffectRole role,
                             LVParameterList parameters = {})
{
    auto* descriptor = keptDescriptors().emplace_back(std::make_unique<LVEffectDescriptor>()).get();
    descriptor->className = QString::fromLatin1(className);
    descriptor->name = QString::fromLatin1(name);
    descriptor->role = role;
    descriptor->parameters = std::move(parameters);
    descriptor->make = [descriptor] { return std::make_unique<T>(*descriptor); };
    return descriptor;
}

} // namespace

void LVRegisterTestKinds()
{
    static bool registered = false;
    if (registered) return;
    registered = true;
    LVEffectClasses::registerClass(describe<LVRecordingEffect>("RedSource", "Red Source", LVEffectRole::Source));
    LVEffectClasses::registerClass(describe<LVRecordingEffect>("BlueSource", "Blue Source", LVEffectRole::Source));
    LVEffectClasses::registerClass(describe<LVTestMovieSource>("TestMovie", "Movie", LVEffectRole::Source));
    LVEffectClasses::registerClass(describe<LVTestSlideShow>("TestSlides", "Slide Show", LVEffectRole::Source));
    LVEffectClasses::registerClass(describe<LVRecordingEffect>("Marker", "Marker", LVEffectRole::Effect));
    LVEffectClasses::registerClass(describe<LVRecordingEffect>(
        "TestOverlay", "Image Overlay", LVEffectRole::Effect, {LVImageParameter(QStringLiteral("image"), QStringLiteral("Image"))}));
    LVEffectClasses::registerClass(describe<LVTestPip>("TestPip", "PIP", LVEffectRole::Effect));
}
