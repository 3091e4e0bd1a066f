// The runner: the state table walked event by event with a hand-moved clock, persistence
// coalesced per pass, names looked up first-come, and the archive read back.
#include "automation/LVTimeLineItems.h"
#include "automation/LVTimeLineManager.h"
#include "core/LVDefaults.h"
#include "tests/automation/LVManualTimeLineClock.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTemporaryDir>

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

struct StateRow {
    const char* name;
    QStringList steps;
    std::vector<Expect> script;
};

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

} // namespace
