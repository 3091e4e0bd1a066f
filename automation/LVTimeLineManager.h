#pragma once
// Owns every timeline and keeps them in the preferences under "timelines", saved once per
// pass of the event loop however many changes it brought. Timelines act on the studio and
// the setups of the controller it is given.
#include "automation/LVTimeLine.h"
#include "automation/LVTimeLineClock.h"
#include "core/LVControllerInterfaces.h"

#include <QObject>
#include <QStringList>

#include <memory>
#include <vector>

class LVDefaults;
class LVSetupManager;
class LVStudio;
class Lumaveil;

class LVTimeLineManager : public QObject, public LVTimeLineOwner {
    Q_OBJECT
public:
    static constexpr const char* defaultsKey = "timelines";

    // app and setups may be null (no studio steps, empty setup menus); clock defaults to the
    // system clock. All must outlive the manager.
    LVTimeLineManager(LVDefaults& defaults, Lumaveil* app, LVSetupManager* setups, LVTimeLineClock* clock = nullptr);
    // Writes a pending save, so a quick quit loses no change.
    ~LVTimeLineManager() override;

    // Reads the stored timelines (all stopped).
    void startup() override;
    void persist();
    void _persist();
    bool needsPersist() const { return needsPersist_; }

    const std::vector<std::unique_ptr<LVTimeLine>>& allTimeLines() const { return allItems_; }
    QStringList timeLineNames() const;
    // The first of that name, in list order.
    LVTimeLine* timeLineWithName(const QString& name) const;
    LVTimeLine* newTimeLine();
    void removeTimeLine(LVTimeLine* timeLine);

    LVTimeLineClock& clock() const { return clock_; }
    Lumaveil* app() const { return app_; }
    LVStudio* studio() const;
    LVSetupManager* setupManager() const { return setups_; }
    // The transitions catalogue's names.
    QStringList transitionNames() const;

signals:
    void allTimeLinesChanged();
    // A timeline's name or state changed.
    void timeLineChanged(LVTimeLine* timeLine);

private:
    void watch(LVTimeLine* timeLine);

    LVDefaults& defaults_;
    Lumaveil* app_;
    LVSetupManager* setups_;
    LVTimeLineClock& clock_;
    std::vector<std::unique_ptr<LVTimeLine>> allItems_;
    bool needsPersist_ = false;
};
