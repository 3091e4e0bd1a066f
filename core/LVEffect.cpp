#include "core/LVEffect.h"

#include "core/LVDefaults.h"
#include "core/util/LVLog.h"

#include <QJsonObject>

#include <vector>

namespace {

QHash<QString, QString>& remapTable()
{
    static QHash<QString, QString> table = [] {
        QHash<QString, QString> t;
        t.reserve(5);
        return t;
    }();
    return table;
}

struct ClassTable {
    QHash<QString, const LVEffectDescriptor*> byName;
    std::vector<const LVEffectDescriptor*> inOrder;
};

ClassTable& classTable()
{
    static ClassTable table;
    return table;
}

} // namespace

void LVEffectClasses::registerClass(const LVEffectDescriptor* descriptor)
{
    auto& table = classTable();
    if (const auto* existing = table.byName.value(descriptor->className)) {
        std::erase(table.inOrder, existing);
    }
    table.byName.insert(descriptor->className, descriptor);
    table.inOrder.push_back(descriptor);
}

const LVEffectDescriptor* LVEffectClasses::classNamed(const QString& className)
{
    return classTable().byName.value(className);
}

std::vector<const LVEffectDescriptor*> LVEffectClasses::allClasses()
{
    return classTable().inOrder;
}

LVEffectProxy::~LVEffectProxy()
{
    if (realMcCoy_) realMcCoy_->destruct();
}

LVEffectRef LVMakeEffectHandle(std::unique_ptr<LVEffect> effect)
{
    if (!effect) return nullptr;
    auto proxy = std::make_shared<LVEffectProxy>(std::move(effect));
    LVEffect* raw = proxy->realMcCoy();
    return LVEffectRef(std::move(proxy), raw);
}

void LVEffect::initEffectCommon(LVContext* context)
{
    context_ = context;
}

void LVEffect::initWithContext(LVContext* context)
{
    enabled_ = true;
    initEffectCommon(context);
}

bool LVEffect::initWithCoder(LVKeyedUnarchiver& coder)
{
    enabled_ = coder.decodeBool(QStringLiteral("enabled"));
    if (coder.containsValueForKey(QStringLiteral("name"))) savedName_ = coder.decodeString(QStringLiteral("name"));
    initEffectCommon(coder.context());
    for (const LVParameter& parameter : effectProperties()) {
        if (parameter.isArchived() && coder.containsValueForKey(parameter.key)) {
            parameterValues_.insert(parameter.key, parameter.fromJson(coder.decodeValue(parameter.key)));
        }
    }
    return true;
}

void LVEffect::encodeWithCoder(LVKeyedArchiver& coder) const
{
    coder.encodeString(QStringLiteral("class"), descriptor().className);
    coder.encodeBool(QStringLiteral("enabled"), enabled_);
    if (!name_.isEmpty()) coder.encodeString(QStringLiteral("name"), name_);
    for (const LVParameter& parameter : effectProperties()) {
        if (parameter.isArchived()) coder.encodeValue(parameter.key, parameter.toJson(parameterValue(parameter.key)));
    }
}

void LVEffect::setDefault(const QJsonValue& value, const QString& key)
{
    LVDefaults& defaults = LVDefaults::standardUserDefaults();
    QJsonObject dictionary = defaults.dictionaryForKey(name());
    dictionary.insert(key, value);
    defaults.setValue(name(), dictionary);
}

QJsonValue LVEffect::defaultForKey(const QString& key) const
{
    return LVDefaults::standardUserDefaults().dictionaryForKey(name()).value(key);
}

void LVEffect::setAudioDevice(const QString& device)
{
    (void)device;
}

QString LVEffect::name() const
{
    return name_.isEmpty() ? descriptor().name : name_;
}

QString LVEffect::displayName() const
{
    if (savedSetupName_.isEmpty()) return name();
    return QStringLiteral("%1 (%2)").arg(name(), savedSetupName_);
}

void LVEffect::doTransitionTo(const LVTexture& other, double percentage)
{
    (void)other;
    (void)percentage;
}

bool LVEffect::setMode(int32_t mode)
{
    if (mode == lvemode_) return false;
    lvemode_ = mode;
    return true;
}

std::optional<LVParameter> LVEffect::propertyInfoForName(const QString& name) const
{
    for (const LVParameter& parameter : effectProperties()) {
        if (parameter.name == name) return parameter;
    }
    return std::nullopt;
}

std::optional<LVParameter> LVEffect::parameterForKey(const QString& key) const
{
    for (const LVParameter& parameter : effectProperties()) {
        if (parameter.key == key) return parameter;
    }
    return std::nullopt;
}

QVariant LVEffect::effectPropertyForName(const QString& name) const
{
    const auto info = propertyInfoForName(name);
    return info ? parameterValue(info->key) : QVariant();
}

void LVEffect::setEffectProperty(const QVariant& value, const QString& name)
{
    if (const auto info = propertyInfoForName(name)) setParameterValue(info->key, value);
}

void LVEffect::setEffectProperty(const QVariantMap& scriptArguments)
{
    setEffectProperty(scriptArguments.value(QStringLiteral("value")),
                      scriptArguments.value(QStringLiteral("property")).toString());
}

void LVEffect::setEffectEnabled(const QVariantMap& scriptArguments)
{
    (void)scriptArguments;
    LVLog("foo");
}

QVariant LVEffect::parameterValue(const QString& key) const
{
    const auto it = parameterValues_.constFind(key);
    if (it != parameterValues_.constEnd()) return it.value();
    const auto parameter = parameterForKey(key);
    return parameter ? parameter->defaultValue : QVariant();
}

void LVEffect::setParameterValue(const QString& key, const QVariant& value)
{
    const auto parameter = parameterForKey(key);
    if (!parameter) return;
    storeParameterValue(*parameter, value);
    const QVariantMap preset = parameter->presets.value(parameterValue(key).toInt());
    for (auto it = preset.constBegin(); it != preset.constEnd(); ++it) {
        // One level only: a preset never chains into another choice's preset.
        if (const auto target = parameterForKey(it.key())) storeParameterValue(*target, it.value());
    }
}

void LVEffect::restoreParameterValue(const QString& key, const QVariant& value)
{
    if (const auto parameter = parameterForKey(key)) storeParameterValue(*parameter, value);
}

void LVEffect::storeParameterValue(const LVParameter& parameter, const QVariant& value)
{
    parameterValues_.insert(parameter.key, parameter.clamp(value));
    parameterChanged(parameter.key);
}

void LVEffect::remapEffect(const QString& archivedClassName, const QString& className)
{
    remapTable().insert(archivedClassName, className);
}

const LVEffectDescriptor* LVEffect::effectClassWithCoder(LVKeyedUnarchiver& coder)
{
    const QString archived = coder.decodeString(QStringLiteral("class"));
    return LVEffectClasses::classNamed(remapTable().value(archived, archived));
}

LVEffectRef LVEffect::effectWithCoder(LVKeyedUnarchiver& coder)
{
    if (!coder.containsValueForKey(QStringLiteral("class"))) {
        LVLog("Effect archive lacks the key \"class\"; skipped");
        return nullptr;
    }
    const LVEffectDescriptor* cls = effectClassWithCoder(coder);
    if (!cls) {
        LVLog("Effect archive names the unknown class \"%s\"; skipped",
              qPrintable(coder.decodeString(QStringLiteral("class"))));
        return nullptr;
    }
    std::unique_ptr<LVEffect> effect = cls->make();
    if (!effect || !effect->initWithCoder(coder)) {
        LVLog("Effect archive of class \"%s\" could not be decoded; skipped", qPrintable(cls->className));
        return nullptr;
    }
    if (!effect->tmpSavedName().isEmpty()) effect->setName(effect->tmpSavedName());
    return LVMakeEffectHandle(std::move(effect));
}

const LVEffectDescriptor* LVEffect::effectClassFromData(const QByteArray& data, LVContext* context)
{
    LVKeyedUnarchiver coder(data);
    if (!coder.isValid()) return nullptr;
    coder.setContext(context);
    return effectClassWithCoder(coder);
}

LVEffectRef LVEffect::effectFromData(const QByteArray& data, LVContext* context)
{
    LVKeyedUnarchiver coder(data);
    if (!coder.isValid()) {
        LVLog("Effect archive is %s; skipped", qPrintable(coder.error()));
        return nullptr;
    }
    coder.setContext(context);
    return effectWithCoder(coder);
}

QByteArray LVEffect::dataFromEffect(const LVEffect& effect)
{
    LVKeyedArchiver archiver;
    effect.encodeWithCoder(archiver);
    return archiver.finishEncoding();
}

std::optional<QRect> LVEffect::inputAreaFor(const QRect&, QSize) const
{
    return std::nullopt;
}

LVChainAreas::LVChainAreas(std::vector<LVEffectRef> chain, QSize frame, bool disabledDrawToo)
    : chain_(std::move(chain))
{
    const QRect whole(QPoint(0, 0), frame);
    std::optional<QRect> read;
    for (auto it = chain_.rbegin(); it != chain_.rend(); ++it) {
        LVEffect& effect = **it;
        if (!effect.isEnabled() && !disabledDrawToo) continue;
        effect.areaRead_ = read;
        // Nothing of its output read: nothing of its input either.
        if (read && read->isEmpty()) continue;
        read = effect.inputAreaFor(read.value_or(whole), frame);
        if (read && read->contains(whole)) read.reset();
    }
}

LVChainAreas::~LVChainAreas()
{
    for (const LVEffectRef& effect : chain_) effect->areaRead_.reset();
}

bool LVChainOverwritesFrame(const std::vector<LVEffectRef>& chain)
{
    for (const LVEffectRef& effect : chain)
        if (effect->isEnabled()) return effect->overwritesFrame();
    return false;
}
