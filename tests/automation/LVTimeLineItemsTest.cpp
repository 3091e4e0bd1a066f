// The actions: offered order and names, descriptions, time strings and their validation,
// the inspectors' notes, and holders that hold nothing.
#include "automation/LVTimeLineItems.h"
#include "automation/LVTimeLineManager.h"
#include "core/LVDefaults.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QDateTime>
#include <QTemporaryDir>
#include <QTimeZone>

namespace {

using namespace LVTimeLineKeys;

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
    const struct {
        const char* action;
        QVariantMap settings;
        const char* description;
    } rows[] = {
        {"Select Setup", {}, ""},
        {"Select Setup", {{setupName, "Intro"}}, "Select Setup \"Intro\""},
        {"Set Source", {{setupName, "Cam"}, {immediately, true}}, "Immediately Set Source \"Cam\""},
        {"Deselect Setup", {{setupName, "Cam"}, {immediately, false}}, "Deselect Setup \"Cam\""},
        {"Abs. Pause", {}, "Wait until \"14:00:00\""},
        {"Abs. Pause", {{timeString, ""}}, ""},
        {"Timed pause", {}, "Pause \"01:00:00\""},
        {"Timed pause", {{timeString, "00:00:02"}}, "Pause \"00:00:02\""},
        {"Pause", {}, "Pause"},
        {"Studio Transition", {}, ""},
        {"Studio Transition", {{transitionName, "Dissolve"}}, "1 second Dissolve transition"},
        {"Studio Transition", {{transitionName, "Wipe"}, {transitionTime, 2.5}}, "2.5 second Wipe transition"},
        {"Studio Cut", {}, "Studio Cut"},
        {"Loop", {}, "Loop"},
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
    const struct {
        const char* text;
        bool absValid;
        std::optional<double> absWake;
        bool timedValid;
        long delay;
    } rows[] = {
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

TEST(LVTimeLineItems, InspectorsEditTheSettingsByKeyWithTheirNotes)
{
    lvEnsureApplication();
    QTemporaryDir dir;
    LVDefaults defaults(dir.filePath(QStringLiteral("prefs.json")));
    LVTimeLineManager manager(defaults, nullptr, nullptr);
    const struct {
        const char* action;
        QStringList keys;
        QString note;
    } rows[] = {
        {"Select Setup", {setupName, immediately},
         "NOTE: If this action doesn't take\neffect immediately, then it'll be put\nin preview and you'll need to add "
         "a\n\"Transition\" action."},
        {"Abs. Pause", {timeString}, "Specify an absolute time as\nMM/DD/YY HH:MM:SS -OR-\nHH:MM:SS"},
        {"Timed pause", {timeString}, "Specify how much time to pause\nas HH:MM:SS"},
        {"Pause", {}, "This action will Pause the\nTimeLine indefinitely."},
        {"Studio Transition", {transitionName, transitionTime}, {}},
        {"Studio Cut", {}, {}},
    };
    for (const auto& row : rows) {
        QStringList keys;
        QString note;
        for (const LVInspectorField& field : LVTimeLineItem::itemWithName(QString::fromLatin1(row.action))->inspector(manager)) {
            if (field.kind == LVInspectorField::Text) note = field.label;
            else keys.append(field.key);
        }
        EXPECT_EQ(keys, row.keys) << row.action;
        EXPECT_EQ(note, row.note) << row.action;
    }
}

} // namespace
