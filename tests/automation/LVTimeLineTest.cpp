// Timelines: the runner's state table walked event by event with a hand-moved clock, persistence
// coalesced per pass, names looked up first-come, the archive read back; and the actions: offered
// order and names, descriptions, time strings and their validation, the inspectors' keys, and
// holders that hold nothing.
#include "automation/LVTimeLineItems.h"
#include "automation/LVTimeLineManager.h"
#include "core/LVDefaults.h"
#include "tests/automation/LVManualTimeLineClock.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QSignalSpy>
#include <QTimeZone>

namespace {

using namespace LVTimeLineKeys;

// Every deferred call and every call those make, as the event loop would over a few passes.
void settle()
{
    for (int pass = 0; pass < 8; ++pass) QCoreApplication::sendPostedEvents();
}

class LVTimeLineTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }
    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        defaults = std::make_unique<LVDefaults>(dir.filePath(QStringLiteral("prefs.json")));
        manager = std::make_unique<LVTimeLineManager>(*defaults, nullptr, nullptr, &clock);
        manager->startup();
    }

    // "Timed pause=00:00:02" sets the step's time string.
    LVTimeLine* makeTimeLine(const QString& name, const QStringList& steps)
    {
        LVTimeLine* timeLine = manager->newTimeLine();
        timeLine->setName(name);
        for (const QString& step : steps) {
            const QStringList parts = step.split(QLatin1Char('='));
            LVTimeLineItemHolder* holder = timeLine->addItemNamed(parts[0]);
            if (parts.size() > 1) holder->impl()->attributes().setValueForKey(parts[1], timeString);
        }
        settle();
        return timeLine;
    }

    QTemporaryDir dir;
    LVManualTimeLineClock clock{1'800'000'000.0};
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<LVTimeLineManager> manager;
};

struct Expect {
    QString event; // start, stop, pause, resume, +N (seconds pass), edit N (step N's time)
    int32_t state;
    uint64_t pc;
    int restingOn; // step index of currentItem, -1 for none
};
struct StateRow { const char* name; QStringList steps; std::vector<Expect> script; };

TEST_F(LVTimeLineTest, StateTableWalkedEventByEvent)
{
    const StateRow rows[] = {
        {"an empty timeline stops in its first pass", {}, {{"start", 0, 0, -1}}},
        {"steps that keep the state run back to back",
         {"Studio Cut", "Studio Transition", "Select Setup"},
         {{"start", 0, 3, -1}}},
        {"a wait rests until its timer fires, then runs on",
         {"Studio Cut", "Timed pause=00:00:02", "Studio Cut"},
         {{"start", 2, 2, 1}, {"+1", 2, 2, 1}, {"+1", 0, 3, -1}}},
        {"a pause rests until resumed",
         {"Pause", "Studio Cut"},
         {{"start", 3, 1, 0}, {"+3600", 3, 1, 0}, {"resume", 0, 2, -1}}},
        {"resuming a paused wait skips the rest of it; the late timer does nothing",
         {"Timed pause=00:00:05", "Pause"},
         {{"start", 2, 1, 0}, {"pause", 3, 1, -1}, {"resume", 3, 2, 1}, {"+10", 3, 2, 1}}},
        {"stopping a wait keeps the position; the late timer does nothing",
         {"Timed pause=00:00:05", "Studio Cut"},
         {{"start", 2, 1, 0}, {"stop", 0, 1, -1}, {"+10", 0, 1, -1}, {"start", 2, 1, 0}}},
        {"a loop restarts from the first step in the same pass",
         {"Studio Cut", "Timed pause=00:00:01", "Loop"},
         {{"start", 2, 2, 1}, {"+1", 2, 2, 1}, {"+1", 2, 2, 1}}},
        {"editing the time of a waiting step cancels its wake-up",
         {"Timed pause=00:00:02", "Studio Cut"},
         {{"start", 2, 1, 0}, {"edit 0", 2, 1, 0}, {"+100", 2, 1, 0}, {"resume", 0, 2, -1}}},
        {"an absolute time already past fires at once",
         {"Abs. Pause=00:00:00", "Studio Cut"},
         {{"start", 2, 1, 0}, {"+0", 0, 2, -1}}},
        {"a step with an unknown action does nothing",
         {"No such action", "Studio Cut"},
         {{"start", 0, 2, -1}}},
    };
    for (const StateRow& row : rows) {
        SCOPED_TRACE(row.name);
        LVTimeLine* timeLine = makeTimeLine(QString::fromLatin1(row.name), row.steps);
        for (const Expect& step : row.script) {
            SCOPED_TRACE(step.event.toStdString());
            if (step.event == QLatin1String("start")) timeLine->setRunning(true);
            else if (step.event == QLatin1String("stop")) timeLine->setRunning(false);
            else if (step.event == QLatin1String("pause")) timeLine->setPaused(true);
            else if (step.event == QLatin1String("resume")) timeLine->setPaused(false);
            else if (step.event.startsWith(QLatin1Char('+'))) clock.advance(step.event.mid(1).toDouble());
            else if (step.event.startsWith(QLatin1String("edit "))) {
                timeLine->items()[size_t(step.event.mid(5).toInt())]->impl()->attributes().setValueForKey(
                    QStringLiteral("00:00:09"), timeString);
            }
            // setState never runs steps itself: only the next pass does.
            if (timeLine->state() == LVTimeLineRunning) {
                EXPECT_EQ(timeLine->currentItem(), nullptr);
            }
            settle();
            EXPECT_EQ(timeLine->state(), step.state);
            EXPECT_EQ(timeLine->pc(), step.pc);
            LVTimeLineItem* resting = step.restingOn < 0 ? nullptr : timeLine->items()[size_t(step.restingOn)]->impl();
            EXPECT_EQ(timeLine->currentItem(), resting);
            if (resting) {
                EXPECT_EQ(resting->statusImage(), QStringLiteral("timeline arrow.tif"));
            }
        }
        timeLine->setRunning(false);
        settle();
    }
}

TEST_F(LVTimeLineTest, ManyChangesInOnePassAreSavedOnce)
{
    LVTimeLine* timeLine = makeTimeLine(QStringLiteral("Show"), {QStringLiteral("Timed pause"), QStringLiteral("Select Setup")});
    QSignalSpy saves(defaults.get(), &LVDefaults::valueChanged);
    LVTimeLineItem& wait = *timeLine->items()[0]->impl();
    LVTimeLineItem& select = *timeLine->items()[1]->impl();
    QSignalSpy descriptions(&select, &LVTimeLineItem::descriptionChanged);
    wait.attributes().setValueForKey(QStringLiteral("00:00:02"), timeString);
    select.attributes().setValueForKey(QStringLiteral("A"), setupName);
    EXPECT_EQ(saves.count(), 0);
    EXPECT_TRUE(manager->needsPersist());
    EXPECT_EQ(descriptions.count(), 1);
    QCoreApplication::sendPostedEvents();
    ASSERT_EQ(saves.count(), 1);
    EXPECT_EQ(saves.at(0).at(0).toString(), QStringLiteral("timelines"));
    EXPECT_FALSE(manager->needsPersist());

    // A rename, a new timeline and a removal in one pass: one more save.
    timeLine->setName(QStringLiteral("Show 2"));
    LVTimeLine* extra = manager->newTimeLine();
    manager->removeTimeLine(extra);
    QCoreApplication::sendPostedEvents();
    EXPECT_EQ(saves.count(), 2);
}

TEST_F(LVTimeLineTest, NamesAreLookedUpFirstComeAndNewOnesAreUntitled)
{
    LVTimeLine* first = manager->newTimeLine();
    EXPECT_EQ(first->name(), QStringLiteral("Untitled Automation"));
    LVTimeLine* second = manager->newTimeLine();
    EXPECT_EQ(manager->timeLineWithName(QStringLiteral("Untitled Automation")), first);
    second->setName(QStringLiteral("Show"));
    EXPECT_EQ(manager->timeLineWithName(QStringLiteral("Show")), second);
    EXPECT_EQ(manager->timeLineWithName(QStringLiteral("show")), nullptr);
    manager->removeTimeLine(first);
    EXPECT_EQ(manager->timeLineWithName(QStringLiteral("Untitled Automation")), nullptr);
    EXPECT_EQ(manager->allTimeLines().size(), 1u);
}

TEST_F(LVTimeLineTest, TimelinesComeBackStoppedWithTheirStepsAndSettings)
{
    LVTimeLine* show = makeTimeLine(QStringLiteral("Show"), {QStringLiteral("Select Setup"), QStringLiteral("Timed pause=00:00:02"),
                                                           QStringLiteral("Studio Transition"), QStringLiteral("Loop")});
    show->items()[0]->impl()->attributes().setValueForKey(QStringLiteral("A"), setupName);
    show->items()[0]->impl()->attributes().setValueForKey(true, immediately);
    show->items()[2]->impl()->attributes().setValueForKey(QStringLiteral("Dissolve"), transitionName);
    show->insertItem(std::make_unique<LVTimeLineItemHolder>());
    show->setRunning(true);
    settle();
    ASSERT_EQ(show->state(), LVTimeLineWaiting);
    manager.reset(); // a pending save is written on the way out

    LVDefaults reread(dir.filePath(QStringLiteral("prefs.json")));
    LVTimeLineManager next(reread, nullptr, nullptr, &clock);
    next.startup();
    LVTimeLine* back = next.timeLineWithName(QStringLiteral("Show"));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->state(), LVTimeLineStopped);
    QStringList names, descriptions;
    for (const auto& holder : back->items()) {
        names.append(holder->name());
        descriptions.append(holder->impl() ? holder->impl()->description() : QString());
    }
    EXPECT_EQ(names, (QStringList{"Select Setup", "Timed pause", "Studio Transition", "Loop", "Please select"}));
    EXPECT_EQ(descriptions, (QStringList{"Immediately Select Setup \"A\"", "Pause \"00:00:02\"",
                                         "1 second Dissolve transition", "Loop", ""}));
}

TEST(LVTimeLineItems, OfferedInTheirFixedOrderAndMadeByName)
{
    const QStringList expected = {"Set Source", "Select Setup", "Deselect Setup", "Abs. Pause", "Timed pause",
                                  "Pause",      "Studio Transition", "Studio Cut", "Loop",
                                  "Start Recording", "Stop Recording"};
    EXPECT_EQ(LVTimeLineItem::offeredNames(), expected);
    for (const QString& name : expected) EXPECT_EQ(LVTimeLineItem::itemWithName(name)->name(), name);

    LVTimeLineItemHolder holder(QStringLiteral("Nope"));
    EXPECT_EQ(holder.impl(), nullptr);
    EXPECT_EQ(holder.name(), QStringLiteral("Please select"));
    EXPECT_FALSE(holder.encode().contains(QStringLiteral("impl")));
    holder.setName(QStringLiteral("Loop"));
    EXPECT_EQ(holder.name(), QStringLiteral("Loop"));
}

TEST(LVTimeLineItems, DescriptionsFollowTheSettings)
{
    const struct { const char* action; QVariantMap settings; const char* description; } rows[] = {
        // Immediately set, a timed pause, a 1 s transition and Loop: the archive and show tests read those back.
        {"Select Setup", {}, ""},
        {"Deselect Setup", {{setupName, "Cam"}, {immediately, false}}, "Deselect Setup \"Cam\""},
        {"Abs. Pause", {}, "Wait until \"14:00:00\""},
        {"Abs. Pause", {{timeString, ""}}, ""},
        {"Timed pause", {}, "Pause \"01:00:00\""},
        {"Pause", {}, "Pause"},
        {"Studio Transition", {}, ""},
        {"Studio Transition", {{transitionName, "Wipe"}, {transitionTime, 2.5}}, "2.5 second Wipe transition"},
        {"Studio Cut", {}, "Studio Cut"},
    };
    for (const auto& row : rows) {
        auto item = LVTimeLineItem::itemWithName(QString::fromLatin1(row.action));
        for (auto it = row.settings.begin(); it != row.settings.end(); ++it) item->attributes().setValueForKey(it.value(), it.key());
        EXPECT_EQ(item->description(), QString::fromUtf8(row.description)) << row.action;
        EXPECT_TRUE(item->attributes().dirty() || row.settings.isEmpty());
    }
}

TEST(LVTimeLineItems, TimeStringsAreParsedWholeAndValidated)
{
    // A fixed local time of day: 2026-11-23 10:30:00 here.
    const QDateTime morning(QDate(2026, 11, 23), QTime(10, 30, 0));
    const double now = double(morning.toSecsSinceEpoch());
    auto todayAt = [&](int h, int m, int s) { return double(QDateTime(morning.date(), QTime(h, m, s)).toSecsSinceEpoch()); };
    const struct { const char* text; bool absValid; std::optional<double> absWake; bool timedValid; long delay; } rows[] = {
        {"00:00:02", true, todayAt(0, 0, 2), true, 2},
        {"01:02:03", true, todayAt(1, 2, 3), true, 3723},
        {"14:00:00", true, todayAt(14, 0, 0), true, 50400},
        {"23:59:59", true, todayAt(23, 59, 59), true, 86399},
        {"00:00:00", true, todayAt(0, 0, 0), false, 0}, // midnight, but no delay at all
        {"1:2:3", true, todayAt(1, 2, 3), true, 3723},
        {"", true, std::nullopt, true, 0},              // empty is accepted, and never wakes
        {"12:00:00 ", false, std::nullopt, false, 0},   // trailing blank
        {"12:00", false, std::nullopt, false, 0},
        {"24:00:00", false, std::nullopt, false, 0},
        {"12:60:00", false, std::nullopt, false, 0},
        {"11/23/26 12:00:00", false, std::nullopt, false, 0}, // the date form is not taken
        {"soon", false, std::nullopt, false, 0},
    };
    LVTimeLineAbsWait absolute;
    LVTimeLineTimeout timed;
    for (const auto& row : rows) {
        const QString text = QString::fromLatin1(row.text);
        SCOPED_TRACE(row.text);
        LVValidationError error;
        EXPECT_EQ(absolute.validateValueForKey(text, timeString, &error), row.absValid);
        EXPECT_EQ(absolute.getWakeupTimeFromString(text, now), row.absWake);
        EXPECT_EQ(timed.validateValueForKey(text, timeString, &error), row.timedValid);
        EXPECT_EQ(LVTimeLineTimeout::getDelayFromString(text), row.delay);
        if (row.delay > 0) {
            EXPECT_EQ(timed.getWakeupTimeFromString(text, now), now + double(row.delay));
        }
    }
    LVValidationError error;
    ASSERT_FALSE(timed.validateValueForKey(QStringLiteral("00:00:00"), timeString, &error));
    EXPECT_EQ(error.domain, QStringLiteral("TIME_STRING_DOMAIN"));
    EXPECT_EQ(error.code, 10001);
    EXPECT_EQ(error.description, QStringLiteral("Invalid time"));
    // Only the time string is validated.
    EXPECT_TRUE(timed.validateValueForKey(QStringLiteral("soon"), setupName, &error));
}

TEST_F(LVTimeLineTest, InspectorsEditTheSettingsByKey)
{
    const struct { const char* action; QStringList keys; } rows[] = {
        {"Select Setup", {setupName, immediately}}, {"Abs. Pause", {timeString}}, {"Timed pause", {timeString}},
        {"Pause", {}}, {"Studio Transition", {transitionName, transitionTime}}, {"Studio Cut", {}},
    };
    for (const auto& row : rows) {
        QStringList keys;
        for (const LVInspectorField& field : LVTimeLineItem::itemWithName(QString::fromLatin1(row.action))->inspector(*manager))
            if (field.kind != LVInspectorField::Text) keys.append(field.key);
        EXPECT_EQ(keys, row.keys) << row.action;
    }
}

} // namespace
