#include "automation/LVTimeLineManager.h"

#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "core/util/LVLog.h"
#include "studio/LVStudio.h"

#include <QJsonArray>
#include <QMetaObject>

#include <algorithm>

LVTimeLineManager::LVTimeLineManager(LVDefaults& defaults, Lumaveil* app, LVSetupManager* setups, LVTimeLineClock* clock)
    : defaults_(defaults), app_(app), setups_(setups), clock_(clock ? *clock : LVSystemTimeLineClock())
{
}

LVTimeLineManager::~LVTimeLineManager()
{
    if (needsPersist_) _persist();
    // Steps of a running timeline must not call back into a half-destroyed manager.
    for (auto& timeLine : allItems_) timeLine->disconnect(this);
}

void LVTimeLineManager::startup()
{
    const QJsonValue stored = defaults_.valueForKey(QString::fromLatin1(defaultsKey));
    allItems_.clear();
    if (!stored.isUndefined() && !stored.isNull() && !stored.isArray()) {
        LVLog("Timelines: the stored \"%s\" is not a list; starting with none", defaultsKey);
    }
    for (const QJsonValue& archived : stored.toArray()) {
        auto timeLine = std::make_unique<LVTimeLine>(this);
        timeLine->decode(archived.toObject());
        watch(timeLine.get());
        allItems_.push_back(std::move(timeLine));
    }
    emit allTimeLinesChanged();
}

void LVTimeLineManager::watch(LVTimeLine* timeLine)
{
    connect(timeLine, &LVTimeLine::nameChanged, this, [this, timeLine] { emit timeLineChanged(timeLine); });
    connect(timeLine, &LVTimeLine::stateChanged, this, [this, timeLine] { emit timeLineChanged(timeLine); });
}

void LVTimeLineManager::persist()
{
    if (needsPersist_) return;
    needsPersist_ = true;
    QMetaObject::invokeMethod(this, [this] { _persist(); }, Qt::QueuedConnection);
}

void LVTimeLineManager::_persist()
{
    if (!needsPersist_) return;
    needsPersist_ = false;
    QJsonArray list;
    for (const auto& timeLine : allItems_) list.append(timeLine->encode());
    defaults_.setValue(QString::fromLatin1(defaultsKey), list);
}

QStringList LVTimeLineManager::timeLineNames() const
{
    QStringList names;
    for (const auto& timeLine : allItems_) names.append(timeLine->name());
    return names;
}

LVTimeLine* LVTimeLineManager::timeLineWithName(const QString& name) const
{
    for (const auto& timeLine : allItems_) {
        if (timeLine->name() == name) return timeLine.get();
    }
    return nullptr;
}

LVTimeLine* LVTimeLineManager::newTimeLine()
{
    allItems_.push_back(std::make_unique<LVTimeLine>(this));
    LVTimeLine* timeLine = allItems_.back().get();
    watch(timeLine);
    emit allTimeLinesChanged();
    persist();
    return timeLine;
}

void LVTimeLineManager::removeTimeLine(LVTimeLine* timeLine)
{
    const auto found = std::find_if(allItems_.begin(), allItems_.end(),
                                    [timeLine](const auto& candidate) { return candidate.get() == timeLine; });
    if (found == allItems_.end()) return;
    // Announced once the object is gone, so nobody reads a dying timeline.
    std::unique_ptr<LVTimeLine> removed = std::move(*found);
    allItems_.erase(found);
    removed.reset();
    emit allTimeLinesChanged();
    persist();
}

LVStudio* LVTimeLineManager::studio() const
{
    return app_ ? LVStudio::of(*app_) : nullptr;
}

QStringList LVTimeLineManager::transitionNames() const
{
    if (LVStudio* studio = this->studio()) return studio->transitionNames();
    QStringList names;
    if (app_) {
        for (const auto& factory : app_->transitions()) names.append(factory->name());
    }
    return names;
}
