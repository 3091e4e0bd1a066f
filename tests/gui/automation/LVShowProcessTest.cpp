// The show end to end: a timeline made in the automation window (through its add-step menu
// and inspector) is saved, a headless studio runs it when lumaveil-ctl says so, and the published
// picture alternates between the two setups.
#include "automation/LVTimeLineManager.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "gui/automation/LVTimeLineWindow.h"
#include "setups/model/LVSetupManager.h"
#include "sources/testpattern/TestPatternSource.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QGroupBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QTableWidget>
#include <QTest>

#include <algorithm>
#include <optional>

namespace {

constexpr int kWidth = 160;
constexpr int kHeight = 120;

// Near-white pixels: the fixed square, plus the frame counter's text in one setup only.
int whitePixels(const uint8_t* argb)
{
    int count = 0;
    for (int i = 0; i < kWidth * kHeight; ++i) {
        const uint8_t* p = argb + size_t(i) * 4;
        if (p[1] > 200 && p[2] > 200 && p[3] > 200) ++count;
    }
    return count;
}

// How many times the picture changed between the two setups: beyond the fixed square,
// white pixels come only from the frame counter. Black frames (an empty studio, or a frame
// while Program is rebuilt) belong to neither.
int alternations(const std::vector<int>& whites)
{
    const QRect square = TestPatternSource::squareRect(0, kWidth, kHeight);
    const int squareWhites = square.width() * square.height();
    int changes = 0;
    std::optional<bool> last;
    for (int count : whites) {
        if (count < squareWhites) continue;
        const bool counter = count > squareWhites + 4;
        if (last && *last != counter) ++changes;
        last = counter;
    }
    return changes;
}

class LVShowProcessTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lvEnsureApplication<QApplication>();
        // The window tells setups with a source from those without.
        LVRegisterTestPatternSource();
    }

    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        environment = lvPrivateEnvironment(home, true);
        ASSERT_TRUE(QDir().mkpath(home.filePath(QStringLiteral("config/lumaveil"))));
        // Two pictures told apart by the frame counter; "Wide" sits after "Close" in the grid.
        ASSERT_TRUE(lvWriteFiles(
            home.filePath(QStringLiteral("data/Lumaveil/Saved Setups")),
            {{"Wide", R"({"encoded": [{"class": "TestPatternSource", "enabled": true, "moving": false, "showCounter": true}], "midiKey": 0})"},
             {"Close", R"({"encoded": [{"class": "TestPatternSource", "enabled": true, "moving": false, "showCounter": false}], "midiKey": 0})"}}));
    }

    QString prefsPath() const { return home.filePath(QStringLiteral("config/lumaveil/com.marrowkit.Lumaveil.json")); }

    std::unique_ptr<QProcess> startStudio()
    {
        auto process = std::make_unique<QProcess>();
        process->setProcessEnvironment(environment);
        const QString seen = lvStartUntil(
            *process, QStringLiteral(LV_LUMAVEIL_PATH),
            {"--headless", "--studio", "--video-size", QStringLiteral("%1x%2").arg(kWidth).arg(kHeight), "--fps", "15"},
            [](const QString& text) { return text.contains(QLatin1String("Control: serving")); });
        EXPECT_TRUE(seen.contains(QLatin1String("Control: serving"))) << qPrintable(seen);
        return process;
    }

    LVProcessRun ctl(const QStringList& arguments) const { return lvRunServed(QStringLiteral(LV_CTL_PATH), arguments, environment); }

    // Frames from now on until the picture has changed `wanted` times.
    int watchAlternations(const QProcess& studio, int wanted)
    {
        std::vector<int> whites;
        lvWatchFrames(studio, 0, [&](const LVShmemReadResult& read, const uint8_t* argb) {
            if (read.width != uint32_t(kWidth) || read.height != uint32_t(kHeight)) return false;
            whites.push_back(whitePixels(argb));
            return alternations(whites) >= wanted;
        }, std::chrono::seconds(40));
        return alternations(whites);
    }

    QTemporaryDir home;
    QProcessEnvironment environment;
};

TEST_F(LVShowProcessTest, AShowMadeInTheWindowAlternatesThePictureInAHeadlessStudio)
{
    {
        // The window as the application shows it: a controller for the transitions, the setups
        // of the studio's folder, and the preferences the studio will read.
        QTemporaryDir scratch;
        LVDefaults scratchDefaults(scratch.filePath(QStringLiteral("prefs.json")));
        LVLaunchOptions options;
        options.startTimer = false;
        options.noPublish = true;
        options.folders.bundled = QStringLiteral(LV_TEST_BUNDLED_EFFECTS);
        QString error;
        std::unique_ptr<Lumaveil> app = Lumaveil::create(scratchDefaults, options, &error);
        ASSERT_TRUE(app) << error.toStdString();
        app->awakeFromNib();
        LVDefaults prefs(prefsPath());
        LVSetupManager setups(prefs, app->context(), home.filePath(QStringLiteral("data/Lumaveil/Saved Setups")));
        setups.startup();
        LVTimeLineManager manager(prefs, app.get(), &setups);
        manager.startup();
        LVTimeLineWindow window(manager);
        window.show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(&window));

        window.doAdd();
        window.timeLinesList()->item(0)->setText(QStringLiteral("Show"));
        ASSERT_EQ(manager.timeLineWithName(QStringLiteral("Show")), manager.allTimeLines().front().get());

        auto addStep = [&](const char* action) {
            const QList<QAction*> entries = window.actionMenu()->actions();
            const auto entry = std::find_if(entries.begin(), entries.end(), [&](QAction* a) { return a->text() == action; });
            ASSERT_NE(entry, entries.end()) << action;
            (*entry)->trigger();
        };
        auto inspector = [&] { return window.inspectorBox(); };
        auto choose = [&](const QString& label) {
            auto* menu = inspector()->findChild<QComboBox*>();
            ASSERT_NE(menu, nullptr);
            const int index = menu->findText(label);
            ASSERT_GE(index, 0) << qPrintable(label);
            menu->setCurrentIndex(index);
            emit menu->activated(index);
        };
        auto type = [&](const QString& text) {
            auto* field = inspector()->findChild<QLineEdit*>();
            ASSERT_NE(field, nullptr);
            field->setText(text);
            emit field->editingFinished();
        };
        // Setups with a video source are set as the source, immediately.
        for (const char* setup : {"Wide", "Close"}) {
            addStep("Set Source");
            choose(QString::fromLatin1(setup));
            inspector()->findChild<QCheckBox*>()->setChecked(true);
            addStep("Timed pause");
            type(QStringLiteral("00:00:02"));
            if (QLatin1String(setup) == QLatin1String("Wide")) {
                addStep("Studio Transition");
                choose(QStringLiteral("Dissolve"));
                type(QStringLiteral("1"));
            }
        }
        addStep("Loop");

        QStringList rows;
        for (int row = 0; row < window.itemsTable()->rowCount(); ++row) {
            rows.append(window.itemsTable()->item(row, 1)->text() + QStringLiteral(": ") + window.itemsTable()->item(row, 2)->text());
        }
        EXPECT_EQ(rows, (QStringList{"Set Source: Immediately Set Source \"Wide\"", "Timed pause: Pause \"00:00:02\"",
                                     "Studio Transition: 1 second Dissolve transition",
                                     "Set Source: Immediately Set Source \"Close\"", "Timed pause: Pause \"00:00:02\"",
                                     "Loop: Loop"}));
        QCoreApplication::sendPostedEvents();
        EXPECT_FALSE(manager.needsPersist());
    }

    auto studio = startStudio();
    EXPECT_EQ(ctl({"timelines"}).out, QStringLiteral("name=Show state=0\n"));
    ASSERT_EQ(ctl({"startTimeline", "Show"}).status, 0);
    EXPECT_GE(watchAlternations(*studio, 3), 3);
    lvTerminate(*studio);
    lvUnlinkFrameSegments();
}

} // namespace
