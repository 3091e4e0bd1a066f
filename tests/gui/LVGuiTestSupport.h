// The controller and main window as the application builds them (without the render timer),
// and answering the message boxes the windows open.
#pragma once

#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "gui/main/LVMainWindow.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QTest>

#include <algorithm>

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

// A box's button texts as laid out, left to right.
inline QStringList lvButtonTexts(const QMessageBox& box)
{
    QList<QAbstractButton*> buttons = box.buttons();
    std::sort(buttons.begin(), buttons.end(), [&box](QAbstractButton* a, QAbstractButton* b) {
        return a->mapTo(&box, QPoint()).x() < b->mapTo(&box, QPoint()).x();
    });
    QStringList texts;
    for (QAbstractButton* button : buttons) texts.append(button->text());
    return texts;
}

// Clicks the box's button of that text and lets the box go; false when it has none.
inline bool lvAnswer(QMessageBox* box, const QString& text)
{
    for (QAbstractButton* button : box->buttons()) {
        if (button->text() != text) continue;
        button->click();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return true;
    }
    return false;
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
