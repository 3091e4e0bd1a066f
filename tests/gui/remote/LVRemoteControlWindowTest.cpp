// The Remote Control window edits the preferences the server follows, and shows what the
// server does with them; it opens from the main window's File menu.
#include "control/websocket/LVRemoteControlService.h"
#include "gui/remote/LVRemoteControlWindow.h"
#include "tests/gui/main/LVWindowTestSupport.h"
#include "tests/support/LVTestSupport.h"

#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTest>

namespace {

class LVRemoteControlWindowTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication<QApplication>(); }

    void SetUp() override
    {
        ASSERT_TRUE(dir.isValid());
        defaults = std::make_unique<LVDefaults>(dir.filePath(QStringLiteral("prefs.json")));
    }

    QTemporaryDir dir;
    std::unique_ptr<LVDefaults> defaults;
};

TEST_F(LVRemoteControlWindowTest, EachControlWritesItsPreference)
{
    LVRemoteControlWindow window(*defaults, [] { return QStringLiteral("Off"); });
    window.show();
    struct Step {
        const char* what;
        std::function<void()> act;
        const char* key;
        QJsonValue stored;
    };
    const Step steps[] = {
        {"enable", [&] { window.enabledBox()->click(); }, "remoteControlEnabled", true},
        {"all interfaces", [&] { window.allInterfacesBox()->click(); }, "remoteControlAllInterfaces", true},
        {"port", [&] {
             window.portBox()->setValue(4460);
             emit window.portBox()->editingFinished();
         }, "remoteControlPort", 4460},
        {"password", [&] {
             window.passwordField()->setText(QStringLiteral("  horse battery  "));
             window.commitPassword();
         }, "remoteControlPassword", "horse battery"},
        {"an empty password is refused", [&] {
             window.passwordField()->setText(QString());
             window.commitPassword();
         }, "remoteControlPassword", "horse battery"},
        {"disable", [&] { window.enabledBox()->click(); }, "remoteControlEnabled", false},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        step.act();
        EXPECT_EQ(defaults->valueForKey(QString::fromLatin1(step.key)), step.stored);
    }
    EXPECT_EQ(window.passwordField()->text(), QStringLiteral("horse battery"));
    window.findChild<QPushButton*>(QStringLiteral("newPassword"))->click();
    EXPECT_EQ(defaults->stringForKey(QStringLiteral("remoteControlPassword")).size(), 16);
    EXPECT_EQ(window.passwordField()->text(), defaults->stringForKey(QStringLiteral("remoteControlPassword")));
    EXPECT_EQ(window.statusLabel()->text(), QStringLiteral("Off"));
}

TEST_F(LVRemoteControlWindowTest, TheFileMenuOpensItAndItShowsThePasswordTheServerMade)
{
    std::unique_ptr<Lumaveil> app;
    std::unique_ptr<LVMainWindow> window;
    lvStartMainWindow(*defaults, dir.filePath(QStringLiteral("none")), app, window);
    defaults->setValue(QStringLiteral("remoteControlPort"), 0);
    LVRemoteControlService service(*app, nullptr, {});
    window->setRemoteControlStatus([&service] { return service.status(); });

    window->findChild<QAction*>(QStringLiteral("remoteControl"))->trigger();
    auto* remote = window->findChild<LVRemoteControlWindow*>();
    ASSERT_TRUE(remote);
    EXPECT_TRUE(remote->isVisible());
    EXPECT_FALSE(remote->enabledBox()->isChecked());
    EXPECT_EQ(remote->statusLabel()->text(), QStringLiteral("Off"));
    EXPECT_TRUE(remote->passwordField()->text().isEmpty());

    // Turned on here, the server makes the password; the window shows it and where it serves.
    remote->enabledBox()->click();
    EXPECT_TRUE(QTest::qWaitFor([&] { return service.isServing(); }));
    EXPECT_EQ(remote->passwordField()->text().size(), 16);
    EXPECT_TRUE(QTest::qWaitFor([&] { return remote->statusLabel()->text().startsWith(QLatin1String("Serving ws://127.0.0.1:")); }))
        << remote->statusLabel()->text().toStdString();
    window.reset();
    app.reset();
}

} // namespace
