// The controller and main window as the application builds them, without the render timer.
#pragma once

#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "gui/main/LVMainWindow.h"

#include <gtest/gtest.h>

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
