#pragma once
// A real controller on a real GL context and real shared memory, with its preferences in
// a temporary folder and a clock the test moves by hand.
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "transport/LVShmem.h"
#include "tests/app/LVTestKinds.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTemporaryDir>

#include <memory>
#include <string>

class LVManualClock : public LVClock {
public:
    double now() const override { return now_; }
    double absoluteTime() const override { return 1000.0 + now_; }
    void advance(double seconds) { now_ += seconds; }
    double now_ = 100.0;
};

// Stands in for the studio: notes its calls in the test log, with the frame time, and at the
// quit whether the frame producer still counts as running.
class LVStudioDouble : public LVStudioHooks {
public:
    explicit LVStudioDouble(Lumaveil& app) : app_(app) {}
    void doit() override { testLog().append(QStringLiteral("studio.doit@%1").arg(app_.context()->frameTime())); }
    void applyTransition() override { testLog().append(QStringLiteral("studio.applyTransition")); }
    void applicationWillTerminate() override
    {
        testLog().append(QStringLiteral("studio running=%1").arg(app_.shmem().appRunning()));
    }

private:
    Lumaveil& app_;
};

// A full-screen output on the main screen or another; notes each frame it draws with the
// publish counter at that moment.
class LVFullScreenDouble : public LVFullScreenOutput {
public:
    LVFullScreenDouble(LVShmem& shmem, bool mainScreen) : shmem_(shmem), mainScreen_(mainScreen) {}
    std::string outputName() const override { return "full screen"; }
    void drawFrame(LVOutputFrame&) override { testLog().append(QStringLiteral("fullscreen seq=%1").arg(shmem_.frameSeq())); }
    bool isOnMainScreen() const override { return mainScreen_; }

private:
    LVShmem& shmem_;
    bool mainScreen_;
};

class LVControllerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        lvEnsureApplication();
        LVRegisterTestKinds();
    }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        testLog().clear();
        defaults = std::make_unique<LVDefaults>(prefsPath());
        start();
    }

    void TearDown() override
    {
        app.reset();
        defaults.reset();
    }

    QString prefsPath() const { return dir.filePath(QStringLiteral("prefs.json")); }

    void start(bool startTimer = false)
    {
        app.reset();
        LVLaunchOptions options;
        options.startTimer = startTimer;
        options.folders.bundled = dir.filePath(QStringLiteral("none"));
        options.folders.user = dir.filePath(QStringLiteral("none"));
        options.folders.system = dir.filePath(QStringLiteral("none"));
        QString error;
        app = Lumaveil::create(*defaults, options, &error, &clock);
        ASSERT_TRUE(app) << error.toStdString();
        app->awakeFromNib();
    }

    template <class T = LVRecordingEffect>
    std::shared_ptr<T> make(const char* className, const char* name = nullptr)
    {
        auto effect = makeTestEffect<T>(QString::fromLatin1(className), app->context());
        if (name) effect->setName(QString::fromLatin1(name));
        return effect;
    }

    // The live chain's names, comma-separated.
    std::string chain() const
    {
        QStringList names;
        for (const auto& effect : app->liveEffects()) names.append(effect->name());
        return names.join(QLatin1Char(',')).toStdString();
    }

    QTemporaryDir dir;
    LVManualClock clock;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;
};
