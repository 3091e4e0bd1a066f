#include "automation/LVTimeLineItem.h"

#include "automation/LVTimeLine.h"
#include "automation/LVTimeLineItems.h"
#include "automation/LVTimeLineManager.h"

#include <QJsonValue>

#include <functional>
#include <utility>

namespace {

const QString kClass = QStringLiteral("class");

using Maker = std::function<std::unique_ptr<LVTimeLineItem>()>;

template <class T>
std::pair<QString, Maker> offer()
{
    return {T().name(), [] { return std::make_unique<T>(); }};
}

// The offered actions, in their fixed order.
const std::vector<std::pair<QString, Maker>>& offered()
{
    static const std::vector<std::pair<QString, Maker>> list = {
        offer<LVTimeLineSelectSource>(), offer<LVTimeLineLoadSetup>(), offer<LVTimeLineUnloadSetup>(),
        offer<LVTimeLineAbsWait>(),      offer<LVTimeLineTimeout>(),   offer<LVTimeLinePause>(),
        offer<LVTimeLineTransition>(),   offer<LVTimeLineCut>(),       offer<LVTimeLineLoop>(),
        offer<LVTimeLineStartRecording>(), offer<LVTimeLineStopRecording>(),
    };
    return list;
}

} // namespace

void LVTimeLineAtributes::setValueForKey(const QVariant& value, const QString& key)
{
    dict_.insert(key, value);
    dirty_ = true;
    emit dirtyChanged();
}

QJsonObject LVTimeLineAtributes::encode() const
{
    return {{kClass, QStringLiteral("LVTimeLineAtributes")},
            {QStringLiteral("dictionary"), QJsonObject::fromVariantMap(dict_)}};
}

void LVTimeLineAtributes::decode(const QJsonObject& archived)
{
    const QJsonValue dictionary = archived.value(QStringLiteral("dictionary"));
    if (dictionary.isObject()) dict_ = dictionary.toObject().toVariantMap();
}

LVTimeLineItem::LVTimeLineItem()
{
    connect(&attributes_, &LVTimeLineAtributes::dirtyChanged, this, [this] { processDirty(); });
}

LVTimeLineItem::~LVTimeLineItem() = default;

std::vector<LVInspectorField> LVTimeLineItem::inspector(const LVTimeLineManager&) const
{
    return {};
}

bool LVTimeLineItem::validateValueForKey(const QVariant&, const QString&, LVValidationError*) const
{
    return true;
}

void LVTimeLineItem::execute(LVTimeLine&) {}

void LVTimeLineItem::setRunning(bool running)
{
    if (bRunning_ == running) return;
    bRunning_ = running;
    emit statusImageChanged();
}

QString LVTimeLineItem::statusImage() const
{
    return bRunning_ ? QStringLiteral("timeline arrow.tif") : QString();
}

void LVTimeLineItem::processDirty()
{
    emit descriptionChanged();
    if (timeLine_ && timeLine_->manager()) timeLine_->manager()->persist();
}

QJsonObject LVTimeLineItem::encode() const
{
    return {{kClass, className()}, {QStringLiteral("attributes"), attributes_.encode()}};
}

QStringList LVTimeLineItem::offeredNames()
{
    QStringList names;
    for (const auto& [name, make] : offered()) names.append(name);
    return names;
}

std::unique_ptr<LVTimeLineItem> LVTimeLineItem::itemWithName(const QString& name)
{
    for (const auto& [offeredName, make] : offered()) {
        if (offeredName == name) return make();
    }
    return nullptr;
}

std::unique_ptr<LVTimeLineItem> LVTimeLineItem::decode(const QJsonObject& archived)
{
    const QString className = archived.value(kClass).toString();
    for (const auto& [name, make] : offered()) {
        std::unique_ptr<LVTimeLineItem> item = make();
        if (item->className() != className) continue;
        item->attributes_.decode(archived.value(QStringLiteral("attributes")).toObject());
        return item;
    }
    return nullptr;
}

void LVTimeLineItemHolder::setImpl(std::unique_ptr<LVTimeLineItem> impl)
{
    impl_ = std::move(impl);
}

QString LVTimeLineItemHolder::name() const
{
    return impl_ ? impl_->name() : QStringLiteral("Please select");
}

void LVTimeLineItemHolder::setName(const QString& name)
{
    setImpl(LVTimeLineItem::itemWithName(name));
}

QJsonObject LVTimeLineItemHolder::encode() const
{
    QJsonObject archived{{kClass, QStringLiteral("LVTimeLineItemHolder")}};
    if (impl_) archived.insert(QStringLiteral("impl"), impl_->encode());
    return archived;
}

std::unique_ptr<LVTimeLineItemHolder> LVTimeLineItemHolder::decode(const QJsonObject& archived)
{
    auto holder = std::make_unique<LVTimeLineItemHolder>();
    const QJsonValue impl = archived.value(QStringLiteral("impl"));
    if (impl.isObject()) holder->setImpl(LVTimeLineItem::decode(impl.toObject()));
    return holder;
}
