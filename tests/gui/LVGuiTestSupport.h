// The controller and main window as the application builds them, without the render timer.
#pragma once

#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "gui/main/LVMainWindow.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

inline void lvStartMainWindow(LVDefaults& defaults, const QString& bundledEffects, std::unique_ptr<Lumaveil>& app,
                              std::unique_ptr<LVMainWindow>& window)
{
    LVLaunchOptions options;
    options.startTimer = false;
    options.folders.bundled = bundledEffects;
    QString error;
    app = Lumaveil::create(defaults, options, &error);
    ASSERT_TRUE(app) << error.toStdString();
    window = std::make_unique<LVMainWindow>(*app);
    window->show();
    ASSERT_TRUE(QTest::qWaitForWindowExposed(window.get()));
}

// A private folder with its preferences file; start() makes the controller and the window.
class LVWindowTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication<QApplication>(); }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        defaults = std::make_unique<LVDefaults>(dir.filePath(QStringLiteral("prefs.json")));
    }

    void TearDown() override
    {
        window.reset();
        app.reset();
    }

    void start(const QString& bundledEffects) { lvStartMainWindow(*defaults, bundledEffects, app, window); }

    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
    std::unique_ptr<Lumaveil> app;
    std::unique_ptr<LVMainWindow> window;
};
