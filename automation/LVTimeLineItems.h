#pragma once
// The nine timeline actions, offered in this order: "Set Source", "Select Setup",
// "Deselect Setup", "Abs. Pause", "Timed pause", "Pause", "Studio Transition", "Studio Cut",
// "Loop", and then "Start Recording", "Stop Recording".
#include "automation/LVTimeLineClock.h"
#include "automation/LVTimeLineItem.h"

#include <functional>
#include <optional>

// Key names of the settings.
namespace LVTimeLineKeys {
inline const QString setupName = QStringLiteral("setupName");
inline const QString immediately = QStringLiteral("immediately");
inline const QString timeString = QStringLiteral("timeString");
inline const QString transitionName = QStringLiteral("transitionName");
inline const QString transitionTime = QStringLiteral("transitionTime");
} // namespace LVTimeLineKeys

inline constexpr const char* LVTimeStringDomain = "TIME_STRING_DOMAIN";
inline constexpr int LVTimeStringErrorCode = 10001;

// Common base of the three setup actions.
class LVTimeLineSelectSetup : public LVTimeLineItem {
public:
    LVTimeLineSelectSetup(bool sourcesOnly, bool selectedState) : bSourcesOnly_(sourcesOnly), bSelectedState_(selectedState) {}
    QString description() const override;
    std::vector<LVInspectorField> inspector(const LVTimeLineManager& manager) const override;
    void execute(LVTimeLine& timeLine) override;
    bool sourcesOnly() const { return bSourcesOnly_; }
    bool selectedState() const { return bSelectedState_; }

private:
    bool bSourcesOnly_;
    bool bSelectedState_;
};

class LVTimeLineSelectSource : public LVTimeLineSelectSetup {
public:
    LVTimeLineSelectSource() : LVTimeLineSelectSetup(true, true) {}
    QString name() const override { return QStringLiteral("Set Source"); }
    QString className() const override { return QStringLiteral("LVTimeLineSelectSource"); }
};

class LVTimeLineLoadSetup : public LVTimeLineSelectSetup {
public:
    LVTimeLineLoadSetup() : LVTimeLineSelectSetup(false, true) {}
    QString name() const override { return QStringLiteral("Select Setup"); }
    QString className() const override { return QStringLiteral("LVTimeLineLoadSetup"); }
};

class LVTimeLineUnloadSetup : public LVTimeLineSelectSetup {
public:
    LVTimeLineUnloadSetup() : LVTimeLineSelectSetup(false, false) {}
    QString name() const override { return QStringLiteral("Deselect Setup"); }
    QString className() const override { return QStringLiteral("LVTimeLineUnloadSetup"); }
};

// Waits until a clock time of today.
class LVTimeLineAbsWait : public LVTimeLineItem {
public:
    LVTimeLineAbsWait();
    QString name() const override { return QStringLiteral("Abs. Pause"); }
    QString className() const override { return QStringLiteral("LVTimeLineAbsWait"); }
    QString description() const override;
    std::vector<LVInspectorField> inspector(const LVTimeLineManager& manager) const override;
    bool validateValueForKey(const QVariant& value, const QString& key, LVValidationError* error) const override;
    void execute(LVTimeLine& timeLine) override;

    // Seconds since 1970 to wake at, or none when the string does not parse.
    virtual std::optional<double> getWakeupTimeFromString(const QString& text, double now) const;
    bool hasPendingWakeUp() const { return timer_ != nullptr; }

protected:
    void processDirty() override;

private:
    void fireTimer(LVTimeLine& timeLine);
    std::unique_ptr<LVWakeUp> timer_;
};

// Waits for a delay given as HH:MM:SS.
class LVTimeLineTimeout : public LVTimeLineAbsWait {
public:
    LVTimeLineTimeout();
    QString name() const override { return QStringLiteral("Timed pause"); }
    QString className() const override { return QStringLiteral("LVTimeLineTimeout"); }
    QString description() const override;
    std::vector<LVInspectorField> inspector(const LVTimeLineManager& manager) const override;
    bool validateValueForKey(const QVariant& value, const QString& key, LVValidationError* error) const override;
    std::optional<double> getWakeupTimeFromString(const QString& text, double now) const override;
    // Whole seconds; 0 when the string does not parse.
    static long getDelayFromString(const QString& text);
};

class LVTimeLinePause : public LVTimeLineItem {
public:
    QString name() const override { return QStringLiteral("Pause"); }
    QString className() const override { return QStringLiteral("LVTimeLinePause"); }
    std::vector<LVInspectorField> inspector(const LVTimeLineManager& manager) const override;
    void execute(LVTimeLine& timeLine) override;
};

class LVTimeLineTransition : public LVTimeLineItem {
public:
    LVTimeLineTransition();
    QString name() const override { return QStringLiteral("Studio Transition"); }
    QString className() const override { return QStringLiteral("LVTimeLineTransition"); }
    QString description() const override;
    std::vector<LVInspectorField> inspector(const LVTimeLineManager& manager) const override;
    void execute(LVTimeLine& timeLine) override;
};

class LVTimeLineCut : public LVTimeLineItem {
public:
    QString name() const override { return QStringLiteral("Studio Cut"); }
    QString className() const override { return QStringLiteral("LVTimeLineCut"); }
    void execute(LVTimeLine& timeLine) override;
};

// Starts or stops recording through the switch the application installs; without one it
// does nothing. The user menu's recording actions use the same switch.
class LVTimeLineRecord : public LVTimeLineItem {
public:
    // start: true to start recording, false to stop; false, with error, when refused.
    using Switch = std::function<bool(bool start, QString* error)>;
    static void setSwitch(Switch recordingSwitch);
    // Runs the installed switch; false, with error, when none is installed or it refused.
    static bool setRecording(bool start, QString* error);

    explicit LVTimeLineRecord(bool start) : start_(start) {}
    void execute(LVTimeLine& timeLine) override;

private:
    bool start_;
};

class LVTimeLineStartRecording : public LVTimeLineRecord {
public:
    LVTimeLineStartRecording() : LVTimeLineRecord(true) {}
    QString name() const override { return QStringLiteral("Start Recording"); }
    QString className() const override { return QStringLiteral("LVTimeLineStartRecording"); }
};

class LVTimeLineStopRecording : public LVTimeLineRecord {
public:
    LVTimeLineStopRecording() : LVTimeLineRecord(false) {}
    QString name() const override { return QStringLiteral("Stop Recording"); }
    QString className() const override { return QStringLiteral("LVTimeLineStopRecording"); }
};

// Adding any step saves at once, so a loop needs no dirty mark of its own.
class LVTimeLineLoop : public LVTimeLineItem {
public:
    QString name() const override { return QStringLiteral("Loop"); }
    QString className() const override { return QStringLiteral("LVTimeLineLoop"); }
    void execute(LVTimeLine& timeLine) override;
};
