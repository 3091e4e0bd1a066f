#include "automation/LVTimeLineItems.h"

#include "automation/LVTimeLine.h"
#include "automation/LVTimeLineManager.h"
#include "core/util/LVLog.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"

#include <QMetaObject>

#include <ctime>

using namespace LVTimeLineKeys;

namespace {


// The whole string must be a clock time; tm keeps the fields the format does not set.
bool parseClock(const QString& text, struct tm* tm)
{
    const QByteArray bytes = text.toLocal8Bit();
    const char* end = strptime(bytes.constData(), "%H:%M:%S", tm);
    return end && *end == '\0';
}

bool refuse(LVValidationError* error)
{
    if (error) *error = {QString::fromLatin1(LVTimeStringDomain), LVTimeStringErrorCode, QStringLiteral("Invalid time")};
    return false;
}

LVStudio* studioOf(const LVTimeLine& timeLine)
{
    return timeLine.manager() ? timeLine.manager()->studio() : nullptr;
}

} // namespace

// MARK: setups

QString LVTimeLineSelectSetup::description() const
{
    const QString setup = attributes().valueForKey(setupName).toString();
    if (setup.isEmpty()) return {};
    const QString when = attributes().valueForKey(immediately).toBool() ? QStringLiteral("Immediately ") : QString();
    return QStringLiteral("%1%2 \"%3\"").arg(when, name(), setup);
}

std::vector<LVInspectorField> LVTimeLineSelectSetup::inspector(const LVTimeLineManager& manager) const
{
    QStringList setups;
    if (manager.setupManager()) {
        for (const LVSavedSetupRef& setup : manager.setupManager()->allSetups()) {
            if (setup->hasVideoSource() == bSourcesOnly_) setups.append(setup->name());
        }
    }
    return {
        {LVInspectorField::MenuPicker, setupName, QStringLiteral("Setup"), setups},
        {LVInspectorField::BooleanEditor, immediately, QStringLiteral("Immediately"), {}},
        {LVInspectorField::Text, {},
         QStringLiteral("NOTE: If this action doesn't take\neffect immediately, then it'll be put\nin preview and "
                        "you'll need to add a\n\"Transition\" action."),
         {}},
    };
}

void LVTimeLineSelectSetup::execute(LVTimeLine& timeLine)
{
    LVStudio* studio = studioOf(timeLine);
    if (!studio) return;
    const LVStudioButtonRef button = studio->buttonHavingName(attributes().valueForKey(setupName).toString());
    if (button) button->setToSelected(bSelectedState_, attributes().valueForKey(immediately).toBool());
}

// MARK: waits

LVTimeLineAbsWait::LVTimeLineAbsWait()
{
    setDefault(timeString, QStringLiteral("14:00:00"));
}

QString LVTimeLineAbsWait::description() const
{
    const QString time = attributes().valueForKey(timeString).toString();
    return time.isEmpty() ? QString() : QStringLiteral("Wait until \"%1\"").arg(time);
}

std::vector<LVInspectorField> LVTimeLineAbsWait::inspector(const LVTimeLineManager&) const
{
    return {
        {LVInspectorField::TextEditor, timeString, QStringLiteral("Date and/or Time"), {}},
        {LVInspectorField::Text, {}, QStringLiteral("Specify an absolute time as\nMM/DD/YY HH:MM:SS -OR-\nHH:MM:SS"), {}},
    };
}

std::optional<double> LVTimeLineAbsWait::getWakeupTimeFromString(const QString& text, double now) const
{
    // Today at that clock time, through local time; only the clock form is taken.
    const time_t today = time_t(now);
    struct tm tm {};
    localtime_r(&today, &tm);
    if (!parseClock(text, &tm)) return std::nullopt;
    tm.tm_isdst = -1;
    const time_t wake = mktime(&tm);
    if (wake == time_t(-1)) return std::nullopt;
    return double(wake);
}

bool LVTimeLineAbsWait::validateValueForKey(const QVariant& value, const QString& key, LVValidationError* error) const
{
    if (key != timeString || value.toString().isEmpty()) return true;
    if (getWakeupTimeFromString(value.toString(), double(std::time(nullptr)))) return true;
    return refuse(error);
}

void LVTimeLineAbsWait::execute(LVTimeLine& timeLine)
{
    timeLine.setState(LVTimeLineWaiting);
    timer_.reset();
    LVTimeLineClock& clock = timeLine.manager() ? timeLine.manager()->clock() : LVSystemTimeLineClock();
    // A stored string that no longer parses never wakes: the timeline waits to be resumed.
    const std::optional<double> date = getWakeupTimeFromString(attributes().valueForKey(timeString).toString(), clock.now());
    if (!date) return;
    LVTimeLine* waiting = &timeLine;
    timer_ = clock.wakeUpAt(*date, [this, waiting] { fireTimer(*waiting); });
}

void LVTimeLineAbsWait::fireTimer(LVTimeLine& timeLine)
{
    // The wake-up is inside its own call: it goes on the next pass.
    std::shared_ptr<LVWakeUp> spent(std::move(timer_));
    QMetaObject::invokeMethod(this, [spent] {}, Qt::QueuedConnection);
    if (timeLine.state() == LVTimeLineWaiting) timeLine.setState(LVTimeLineRunning);
}

void LVTimeLineAbsWait::processDirty()
{
    // Editing the time cancels the pending wake-up; the timeline keeps waiting.
    timer_.reset();
    LVTimeLineItem::processDirty();
}

LVTimeLineTimeout::LVTimeLineTimeout()
{
    setDefault(timeString, QStringLiteral("01:00:00"));
}

QString LVTimeLineTimeout::description() const
{
    const QString time = attributes().valueForKey(timeString).toString();
    return time.isEmpty() ? QString() : QStringLiteral("Pause \"%1\"").arg(time);
}

std::vector<LVInspectorField> LVTimeLineTimeout::inspector(const LVTimeLineManager&) const
{
    return {
        {LVInspectorField::TextEditor, timeString, QStringLiteral("Time to pause"), {}},
        {LVInspectorField::Text, {}, QStringLiteral("Specify how much time to pause\nas HH:MM:SS"), {}},
    };
}

long LVTimeLineTimeout::getDelayFromString(const QString& text)
{
    struct tm tm {};
    if (!parseClock(text, &tm)) return 0;
    return long(tm.tm_hour) * 3600 + long(tm.tm_min) * 60 + long(tm.tm_sec);
}

std::optional<double> LVTimeLineTimeout::getWakeupTimeFromString(const QString& text, double now) const
{
    struct tm tm {};
    if (!parseClock(text, &tm)) return std::nullopt;
    return double(long(now)) + double(getDelayFromString(text));
}

bool LVTimeLineTimeout::validateValueForKey(const QVariant& value, const QString& key, LVValidationError* error) const
{
    if (key != timeString || value.toString().isEmpty()) return true;
    // A zero delay is refused on purpose.
    if (getDelayFromString(value.toString()) != 0) return true;
    return refuse(error);
}

// MARK: pause, transition, cut, loop

std::vector<LVInspectorField> LVTimeLinePause::inspector(const LVTimeLineManager&) const
{
    return {{LVInspectorField::Text, {}, QStringLiteral("This action will Pause the\nTimeLine indefinitely."), {}}};
}

void LVTimeLinePause::execute(LVTimeLine& timeLine)
{
    timeLine.setState(LVTimeLinePaused);
}

LVTimeLineTransition::LVTimeLineTransition()
{
    setDefault(transitionTime, 1);
}

QString LVTimeLineTransition::description() const
{
    const QString transition = attributes().valueForKey(transitionName).toString();
    if (transition.isEmpty()) return {};
    return QStringLiteral("%1 second %2 transition").arg(attributes().valueForKey(transitionTime).toString(), transition);
}

std::vector<LVInspectorField> LVTimeLineTransition::inspector(const LVTimeLineManager& manager) const
{
    return {
        {LVInspectorField::MenuPicker, transitionName, QStringLiteral("Transition"), manager.transitionNames()},
        {LVInspectorField::TextEditor, transitionTime, QStringLiteral("Time"), {}},
    };
}

void LVTimeLineTransition::execute(LVTimeLine& timeLine)
{
    LVStudio* studio = studioOf(timeLine);
    if (!studio) return;
    studio->setTransitionTime(attributes().valueForKey(transitionTime).toDouble());
    studio->setNamedTransition(attributes().valueForKey(transitionName).toString());
    studio->doTransition();
}

void LVTimeLineCut::execute(LVTimeLine& timeLine)
{
    if (LVStudio* studio = studioOf(timeLine)) studio->doCut();
}

namespace {

LVTimeLineRecord::Switch& recordingSwitch()
{
    static LVTimeLineRecord::Switch installed;
    return installed;
}

} // namespace

void LVTimeLineRecord::setSwitch(Switch recordingSwitch_)
{
    recordingSwitch() = std::move(recordingSwitch_);
}

bool LVTimeLineRecord::setRecording(bool start, QString* error)
{
    if (!recordingSwitch()) {
        *error = QStringLiteral("recording is not available here");
        return false;
    }
    return recordingSwitch()(start, error);
}

void LVTimeLineRecord::execute(LVTimeLine& timeLine)
{
    QString error;
    // Already recording (or already stopped) is what the step wants: nothing to say.
    if (!setRecording(start_, &error)) LVLogDebug("Automation \"%s\": %s", qPrintable(timeLine.name()), qPrintable(error));
}

void LVTimeLineLoop::execute(LVTimeLine& timeLine)
{
    timeLine.setRunning(false);
    timeLine.setRunning(true);
}
