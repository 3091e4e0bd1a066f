#include "effects/script/AppleScriptEffect.h"

const LVEffectDescriptor& AppleScriptEffect::classDescriptor()
{
    static const LVEffectDescriptor descriptor{QStringLiteral("AppleScriptEffect"), QStringLiteral("Script"),
                                               LVEffectRole::Effect, [] { return std::make_unique<AppleScriptEffect>(); },
                                               {}};
    return descriptor;
}

void LVRegisterScriptEffect()
{
    LVEffectClasses::registerClass(&AppleScriptEffect::classDescriptor());
}

QString AppleScriptEffect::roleWord(int32_t mode)
{
    switch (mode) {
    case LVModeOff: return QStringLiteral("Idle");
    case LVModeLive: return QStringLiteral("Program");
    case LVModePreview: return QStringLiteral("Preview");
    case LVModeTransition: return QStringLiteral("Transition");
    default: return QStringLiteral("Unknown");
    }
}

void AppleScriptEffect::initWithContext(LVContext* context)
{
    LVEffect::initWithContext(context);
    initCommon();
}

bool AppleScriptEffect::initWithCoder(LVKeyedUnarchiver& coder)
{
    LVEffect::initWithContext(coder.context());
    initCommon();
    return true;
}

void AppleScriptEffect::initCommon()
{
    text_ = QString::fromUtf8(defaultScript);
    compile();
}

std::optional<LVScriptError> AppleScriptEffect::compile()
{
    compiled_.reset();
    lastError_ = LVScriptRunner::checkSyntax(LVScriptRunner::interpreter(), text_);
    if (!lastError_) compiled_ = text_;
    return lastError_;
}

bool AppleScriptEffect::setMode(int32_t mode)
{
    if (!LVEffect::setMode(mode)) return false;
    if (!compiled_) compile();
    if (!compiled_) return true;
    LVScriptRunner::shared().run(LVScriptRunner::interpreter(), compiled_->toUtf8(), {roleWord(mode)});
    return true;
}

QString AppleScriptEffect::statusNote() const
{
    return lastError_ ? QStringLiteral("Script error: %1").arg(lastError_->fullMessage) : QString();
}
