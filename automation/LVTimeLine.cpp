#include "automation/LVTimeLine.h"

#include "automation/LVTimeLineManager.h"

#include <QJsonArray>
#include <QMetaObject>

LVTimeLine::LVTimeLine(LVTimeLineManager* manager) : manager_(manager) {}

LVTimeLine::~LVTimeLine() = default;

void LVTimeLine::setName(const QString& name)
{
    name_ = name;
    emit nameChanged(name_);
    persist();
}

void LVTimeLine::attach(LVTimeLineItemHolder& holder)
{
    if (holder.impl()) holder.impl()->setTimeLine(this);
}

LVTimeLineItemHolder* LVTimeLine::insertItem(std::unique_ptr<LVTimeLineItemHolder> holder, int index)
{
    attach(*holder);
    LVTimeLineItemHolder* added = holder.get();
    const auto at = index < 0 || size_t(index) > items_.size() ? items_.end() : items_.begin() + index;
    items_.insert(at, std::move(holder));
    emit itemsChanged();
    persist();
    return added;
}

void LVTimeLine::removeItemAt(int index)
{
    if (index < 0 || size_t(index) >= items_.size()) return;
    if (items_[size_t(index)]->impl() == currentItem_) currentItem_ = nullptr;
    items_.erase(items_.begin() + index);
    emit itemsChanged();
    persist();
}

void LVTimeLine::setState(int32_t state)
{
    state_ = state;
    emit stateChanged(state_);
    if (currentItem_) {
        LVTimeLineItem* resting = currentItem_;
        currentItem_ = nullptr;
        resting->setRunning(false);
    }
    // Never inside setState: the steps run on the next pass.
    if (state_ == LVTimeLineRunning) QMetaObject::invokeMethod(this, [this] { execute(); }, Qt::QueuedConnection);
}

void LVTimeLine::setRunning(bool running)
{
    if (running) {
        pc_ = 0;
        setState(LVTimeLineRunning);
    } else {
        setState(LVTimeLineStopped);
    }
}

void LVTimeLine::setPaused(bool paused)
{
    setState(paused ? LVTimeLinePaused : LVTimeLineRunning);
}

QString LVTimeLine::statusIcon() const
{
    switch (state_) {
    case LVTimeLineStopped: return {};
    case LVTimeLinePaused: return QStringLiteral("timeline pause.tif");
    default: return QStringLiteral("timeline run.tif");
    }
}

void LVTimeLine::execute()
{
    if (state_ != LVTimeLineRunning) return;
    LVTimeLineItem* last = nullptr;
    while (state_ == LVTimeLineRunning) {
        if (pc_ >= items_.size()) {
            setState(LVTimeLineStopped);
            return;
        }
        last = items_[size_t(pc_)]->impl();
        ++pc_;
        if (last) last->execute(*this);
    }
    // A step changed the state: the timeline rests on it.
    if (last) {
        currentItem_ = last;
        last->setRunning(true);
    }
}

void LVTimeLine::persist()
{
    if (manager_) manager_->persist();
}

QJsonObject LVTimeLine::encode() const
{
    QJsonArray items;
    for (const auto& holder : items_) items.append(holder->encode());
    return {{QStringLiteral("class"), QStringLiteral("LVTimeLine")},
            {QStringLiteral("name"), name_},
            {QStringLiteral("items"), items}};
}

void LVTimeLine::decode(const QJsonObject& archived)
{
    if (archived.value(QStringLiteral("name")).isString()) name_ = archived.value(QStringLiteral("name")).toString();
    items_.clear();
    for (const QJsonValue& item : archived.value(QStringLiteral("items")).toArray()) {
        auto holder = LVTimeLineItemHolder::decode(item.toObject());
        attach(*holder);
        items_.push_back(std::move(holder));
    }
}
