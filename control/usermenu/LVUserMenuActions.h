#pragma once
// What a user-menu entry does: load or merge a setup, toggle a studio button, run a studio
// transition, cut or clear the studio, start or stop an automation, run a script file.
// Every action names its target, so one that no longer exists does nothing.
#include <QJsonObject>
#include <QString>

#include <memory>
#include <optional>

class LVTimeLine;
class LVTimeLineManager;
class Lumaveil;

// What actions act on; any may be null, and the actions that need it then do nothing.
struct LVUserMenuTargets {
    Lumaveil* app = nullptr;
    LVTimeLineManager* timeLines = nullptr;
};

class LVUserMenuAction {
public:
    virtual ~LVUserMenuAction() = default;
    virtual QString className() const { return QStringLiteral("LVUserMenuAction"); }
    virtual void invoke(const LVUserMenuTargets& targets) { (void)targets; }
    // The menu entry's title.
    virtual QString summary() const { return {}; }
    virtual void encode(QJsonObject& archive) const { (void)archive; }
    QJsonObject encode() const;
    // None for an unknown class.
    static std::unique_ptr<LVUserMenuAction> decode(const QJsonObject& archive);
};

class LVSavedSetupMenuAction : public LVUserMenuAction {
public:
    LVSavedSetupMenuAction(QString name, bool merge) : name_(std::move(name)), merge_(merge) {}
    QString className() const override { return QStringLiteral("LVSavedSetupMenuAction"); }
    void invoke(const LVUserMenuTargets& targets) override;
    QString summary() const override;
    void encode(QJsonObject& archive) const override;

private:
    QString name_;
    bool merge_;
};

class LVStudioToggleMenuAction : public LVUserMenuAction {
public:
    explicit LVStudioToggleMenuAction(QString name) : name_(std::move(name)) {}
    QString className() const override { return QStringLiteral("LVStudioToggleMenuAction"); }
    void invoke(const LVUserMenuTargets& targets) override;
    QString summary() const override { return QStringLiteral("Studio Toggle \"%1\"").arg(name_); }
    void encode(QJsonObject& archive) const override;

private:
    QString name_;
};

class LVStudioTransitionMenuAction : public LVUserMenuAction {
public:
    static constexpr const char* defaultTransition = "<default>";
    explicit LVStudioTransitionMenuAction(QString name) : name_(std::move(name)) {}
    QString className() const override { return QStringLiteral("LVStudioTransitionMenuAction"); }
    void invoke(const LVUserMenuTargets& targets) override;
    QString summary() const override;
    void encode(QJsonObject& archive) const override;

private:
    QString name_;
};

// Start (or, as the stop action, stop) the first automation of that name.
class LVTimeLineMenuAction : public LVUserMenuAction {
public:
    explicit LVTimeLineMenuAction(QString name) : name_(std::move(name)) {}
    explicit LVTimeLineMenuAction(const LVTimeLine& timeLine);
    QString className() const override { return QStringLiteral("LVTimeLineMenuAction"); }
    void invoke(const LVUserMenuTargets& targets) override;
    QString summary() const override { return QStringLiteral("Start Automation \"%1\"").arg(name_); }
    void encode(QJsonObject& archive) const override;

protected:
    LVTimeLine* timeLine(const LVUserMenuTargets& targets) const;
    QString name_;
};

class LVStopTimeLineMenuAction : public LVTimeLineMenuAction {
public:
    using LVTimeLineMenuAction::LVTimeLineMenuAction;
    QString className() const override { return QStringLiteral("LVStopTimeLineMenuAction"); }
    void invoke(const LVUserMenuTargets& targets) override;
    QString summary() const override { return QStringLiteral("Stop Automation \"%1\"").arg(name_); }
};

// Start or stop recording (the timelines' recording switch).
class LVRecordMenuAction : public LVUserMenuAction {
public:
    explicit LVRecordMenuAction(bool start) : start_(start) {}
    QString className() const override { return QStringLiteral("LVRecordMenuAction"); }
    void invoke(const LVUserMenuTargets& targets) override;
    QString summary() const override { return start_ ? QStringLiteral("Start Recording") : QStringLiteral("Stop Recording"); }
    void encode(QJsonObject& archive) const override;

private:
    bool start_;
};

// One of the studio's operations without argument, titled by the menu entry it came from.
class LVStudioSelectorMenuAction : public LVUserMenuAction {
public:
    static constexpr const char* cutOperation = "doCut:";
    static constexpr const char* clearOperation = "doClear:";
    LVStudioSelectorMenuAction(QString name, QString operation) : name_(std::move(name)), operation_(std::move(operation)) {}
    QString className() const override { return QStringLiteral("LVStudioSelectorMenuAction"); }
    void invoke(const LVUserMenuTargets& targets) override;
    QString summary() const override { return name_; }
    void encode(QJsonObject& archive) const override;

private:
    QString name_;
    QString operation_;
};

// A script file, read and checked at once; one that fails to load runs nothing.
class LVAppleScriptMenuAction : public LVUserMenuAction {
public:
    static constexpr qint64 maxScriptBytes = 1 << 20;
    explicit LVAppleScriptMenuAction(QString path);
    QString className() const override { return QStringLiteral("LVAppleScriptMenuAction"); }
    void invoke(const LVUserMenuTargets& targets) override;
    QString summary() const override;
    void encode(QJsonObject& archive) const override;
    bool hasScript() const { return script_.has_value(); }

private:
    QString path_;
    std::optional<QByteArray> script_;
};

// Takes the strokes off every telestrator in the live chain and on the studio's Preview.
class LVClearTelestratorMenuAction : public LVUserMenuAction {
public:
    QString className() const override { return QStringLiteral("LVClearTelestratorMenuAction"); }
    void invoke(const LVUserMenuTargets& targets) override;
    QString summary() const override { return QStringLiteral("Clear Telestrator"); }
};
