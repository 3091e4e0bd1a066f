#include "effects/pip/PIPEffect.h"

#include "core/util/LVLog.h"

#include <QJsonDocument>

namespace {

std::function<void(PIPEffect&)>& swapHandler()
{
    static std::function<void(PIPEffect&)> handler;
    return handler;
}

} // namespace

const LVEffectDescriptor& PIPEffect::classDescriptor()
{
    static const LVEffectDescriptor descriptor{QStringLiteral("PIPEffect"), QStringLiteral("PIP"), LVEffectRole::Effect,
                                               [] { return std::make_unique<PIPEffect>(); }, {}};
    return descriptor;
}

PIPEffect::~PIPEffect() = default;

void PIPEffect::initWithContext(LVContext* context)
{
    initWithContext(context, nullptr);
}

void PIPEffect::initWithContext(LVContext* context, LVEffectRef otherSource)
{
    initWithContextFile(context, compositionFileName());
    otherEffect_ = std::move(otherSource);
    initPIPEffectCommon();
}

bool PIPEffect::initWithCoder(LVKeyedUnarchiver& coder)
{
    if (!LVQCEffect::initWithCoder(coder)) return false;
    const QJsonValue archived = coder.decodeValue(QStringLiteral("otherEffect"));
    if (archived.isObject()) {
        LVKeyedUnarchiver inner(archived.toObject());
        inner.setContext(coder.context());
        otherEffect_ = LVEffect::effectWithCoder(inner);
    }
    initPIPEffectCommon();
    return true;
}

void PIPEffect::encodeWithCoder(LVKeyedArchiver& coder) const
{
    LVQCEffect::encodeWithCoder(coder);
    if (otherEffect_) {
        LVKeyedArchiver inner;
        otherEffect_->encodeWithCoder(inner);
        coder.encodeValue(QStringLiteral("otherEffect"), inner.object());
    }
}

void PIPEffect::destruct()
{
    pipFrame_ = {};
    otherEffect_.reset();
}

void PIPEffect::initPIPEffectCommon()
{
    setName(otherEffect_ ? QStringLiteral("%1 %2").arg(classDescriptor().name, otherEffect_->name())
                         : classDescriptor().name);
    makeInspector();
    if (otherEffect_) otherEffect_->setMode(mode());
}

void PIPEffect::setOtherEffect(LVEffectRef other)
{
    // A source nobody else holds stops; one swapped into the chain keeps running there.
    if (otherEffect_ && otherEffect_.use_count() == 1) otherEffect_->setMode(LVModeOff);
    otherEffect_ = std::move(other);
    pipFrame_ = {};
    initPIPEffectCommon();
}

void PIPEffect::preDoit()
{
    if (!otherEffect_ || !context()) return;
    LVContext& ctx = *context();
    const bool clear = renderer() && renderer()->valueForInputKey(QStringLiteral("Clear_background")).toInt() != 0;
    ctx.reset(clear);
    // Without clearing, the source draws over what it drew last time.
    if (!clear && pipFrame_.name) {
        ctx.framebuffer();
        LVContext::drawPBuffer(pipFrame_, false, false);
    }
    otherEffect_->doit();
    ctx.flush();
    pipFrame_ = ctx.texture();
    ctx.reset(false);
}

void PIPEffect::doit()
{
    // With no second source there is no inset to draw: the video passes unchanged.
    if (!otherEffect_) return;
    if (renderer()) renderer()->setTextureForInputKey(pipFrame_, QStringLiteral("pipImage"));
    LVQCEffect::doit();
}

bool PIPEffect::setMode(int32_t newMode)
{
    const bool changed = LVQCEffect::setMode(newMode);
    return otherEffect_ ? otherEffect_->setMode(newMode) : changed;
}

void PIPEffect::doSwap()
{
    if (swapHandler()) swapHandler()(*this);
    else LVLog("PIP swap: no controller to swap with");
}

void PIPEffect::setSwapHandler(std::function<void(PIPEffect&)> handler)
{
    swapHandler() = std::move(handler);
}
