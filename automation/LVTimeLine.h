#pragma once
// An automation: a named list of steps run on the main thread, resting on wait and pause
// steps and stopping after the last one. States: 0 stopped, 1 running, 2 waiting, 3 paused.
#include "automation/LVTimeLineItem.h"

#include <QJsonObject>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

class LVTimeLineManager;

enum LVTimeLineState : int32_t {
    LVTimeLineStopped = 0,
    LVTimeLineRunning = 1,
    LVTimeLineWaiting = 2,
    LVTimeLinePaused = 3,
};

class LVTimeLine : public QObject {
    Q_OBJECT
public:
    // manager may be null (a timeline on its own saves nowhere and runs no studio steps).
    explicit LVTimeLine(LVTimeLineManager* manager);
    ~LVTimeLine() override;

    const QString& name() const { return name_; }
    // Stores the name and saves.
    void setName(const QString& name);

    const std::vector<std::unique_ptr<LVTimeLineItemHolder>>& items() const { return items_; }
    // Inserts at index (-1: the end) and saves; answers the holder.
    LVTimeLineItemHolder* insertItem(std::unique_ptr<LVTimeLineItemHolder> holder, int index = -1);
    LVTimeLineItemHolder* addItemNamed(const QString& actionName) { return insertItem(std::make_unique<LVTimeLineItemHolder>(actionName)); }
    void removeItemAt(int index);

    int32_t state() const { return state_; }
    void setState(int32_t state);
    bool isRunning() const { return state_ != LVTimeLineStopped; }
    void setRunning(bool running);
    bool isPaused() const { return state_ == LVTimeLinePaused; }
    void setPaused(bool paused);
    // "timeline run.tif" running or waiting, "timeline pause.tif" paused, empty stopped.
    QString statusIcon() const;
    uint64_t pc() const { return pc_; }
    LVTimeLineItem* currentItem() const { return currentItem_; }
    // Runs steps from pc while the state stays running.
    void execute();

    LVTimeLineManager* manager() const { return manager_; }

    QJsonObject encode() const;
    void decode(const QJsonObject& archived);

signals:
    // statusIcon, running and paused change together.
    void stateChanged(int32_t state);
    void nameChanged(const QString& name);
    void itemsChanged();

private:
    void attach(LVTimeLineItemHolder& holder);
    void persist();

    LVTimeLineManager* manager_;
    QString name_ = QStringLiteral("Untitled Automation");
    std::vector<std::unique_ptr<LVTimeLineItemHolder>> items_;
    int32_t state_ = LVTimeLineStopped;
    uint64_t pc_ = 0;
    LVTimeLineItem* currentItem_ = nullptr;
};
