// The Remote Control window edits the preferences the server follows, shows what the server
// does with them and opens from the main window's File menu; its one-time web link comes as a
// QR code a phone's camera can read (checked by its structure: size, finder patterns, quiet
// zone) beside the link.
#include "control/websocket/LVRemoteControlService.h"
#include "gui/remote/LVQRCode.h"
#include "gui/remote/LVRemoteControlWindow.h"
#include "tests/gui/LVGuiTestSupport.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

namespace {

constexpr int kQuiet = 4;

// True when the module at (x, y) of a code drawn with moduleSize pixels per module is dark.
bool dark(const QImage& image, int moduleSize, int x, int y)
{
    const QPoint centre((x + kQuiet) * moduleSize + moduleSize / 2, (y + kQuiet) * moduleSize + moduleSize / 2);
    return qGray(image.pixel(centre)) < 128;
}

// A finder pattern: a dark 7x7 ring, a light ring inside it, a dark 3x3 centre.
bool finderAt(const QImage& image, int moduleSize, int left, int top)
{
    for (int y = 0; y < 7; ++y) {
        for (int x = 0; x < 7; ++x) {
            const bool ring = x == 0 || y == 0 || x == 6 || y == 6;
            const bool centre = x >= 2 && x <= 4 && y >= 2 && y <= 4;
            if (dark(image, moduleSize, left + x, top + y) != (ring || centre)) return false;
        }
    }
    return true;
}

TEST(LVQRCodeTest, LinksOfEveryLengthGiveReadableCodes)
{
    struct Case {
        const char* what;
        QString text;
        int minModules; // the smallest code that can hold it at medium correction
    };
    const QString token = QStringLiteral("h3Vq0s9aZ-_xYwq81LmN2pQrStUvWxYz0123456789ab");
    const Case cases[] = {
        {"short", QStringLiteral("http://127.0.0.1:4455/"), 21},
        {"a link with a token", QStringLiteral("http://192.168.178.20:4455/?token=") + token, 37},
        {"beyond any code", QString(4000, QLatin1Char('x')), 0},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.what);
        const int modules = LVQRCodeModules(test.text);
        const QImage image = LVQRCodeImage(test.text, 3);
        if (test.minModules == 0) {
            EXPECT_EQ(modules, 0);
            EXPECT_TRUE(image.isNull());
            continue;
        }
        ASSERT_FALSE(image.isNull());
        EXPECT_GE(modules, test.minModules);
        EXPECT_EQ((modules - 17) % 4, 0) << "a QR version's side is 17 + 4 * version";
        EXPECT_EQ(image.width(), (modules + 2 * kQuiet) * 3);
        EXPECT_TRUE(finderAt(image, 3, 0, 0));
        EXPECT_TRUE(finderAt(image, 3, modules - 7, 0));
        EXPECT_TRUE(finderAt(image, 3, 0, modules - 7));
        // No finder in the fourth corner: that is how a reader knows which way up it is.
        EXPECT_FALSE(finderAt(image, 3, modules - 7, modules - 7));
        for (int i = 0; i < image.width(); ++i) EXPECT_EQ(image.pixel(i, 0), qRgb(255, 255, 255)) << "quiet zone at " << i;
    }
}

using LVRemoteControlWindowTest = LVWindowTest;

TEST_F(LVRemoteControlWindowTest, EachControlWritesItsPreference)
{
    LVRemoteControlWindow remote(*defaults, [] { return QStringLiteral("Off"); });
    remote.show();
    struct Step { const char* what; std::function<void()> act; const char* key; QJsonValue stored; };
    const Step steps[] = {
        {"enable", [&] { remote.enabledBox()->click(); }, "remoteControlEnabled", true},
        {"all interfaces", [&] { remote.allInterfacesBox()->click(); }, "remoteControlAllInterfaces", true},
        {"port", [&] {
             remote.portBox()->setValue(4460);
             emit remote.portBox()->editingFinished();
         }, "remoteControlPort", 4460},
        {"password", [&] {
             remote.passwordField()->setText(QStringLiteral("  horse battery  "));
             remote.commitPassword();
         }, "remoteControlPassword", "horse battery"},
        {"an empty password is refused", [&] {
             remote.passwordField()->setText(QString());
             remote.commitPassword();
         }, "remoteControlPassword", "horse battery"},
        {"disable", [&] { remote.enabledBox()->click(); }, "remoteControlEnabled", false},
    };
    for (const Step& step : steps) {
        SCOPED_TRACE(step.what);
        step.act();
        EXPECT_EQ(defaults->valueForKey(QString::fromLatin1(step.key)), step.stored);
    }
    EXPECT_EQ(remote.passwordField()->text(), QStringLiteral("horse battery"));
    remote.findChild<QPushButton*>(QStringLiteral("newPassword"))->click();
    EXPECT_EQ(defaults->stringForKey(QStringLiteral("remoteControlPassword")).size(), 16);
    EXPECT_EQ(remote.passwordField()->text(), defaults->stringForKey(QStringLiteral("remoteControlPassword")));
    EXPECT_EQ(remote.statusLabel()->text(), QStringLiteral("Off"));
}

TEST_F(LVRemoteControlWindowTest, TheFileMenuOpensItAndItShowsThePasswordTheServerMade)
{
    start(dir.filePath(QStringLiteral("none")));
    LVRemoteControlService::Options anyFreePort;
    anyFreePort.port = 0; // not the usual port, which a running Lumaveil or another test may hold
    LVRemoteControlService service(*app, nullptr, anyFreePort);
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
}

TEST_F(LVRemoteControlWindowTest, TheAccessLinkIsFreshEachTimeOrSaysWhyNot)
{
    LVRemoteControlWindow remote(*defaults, {});
    QStringList links{QStringLiteral("http://127.0.0.1:4455/?token=first"), QStringLiteral("http://127.0.0.1:4455/?token=second"),
                      QString()};
    int asked = 0;
    remote.setAccessLinkSource([&] { return links.value(asked++); });
    auto* button = remote.findChild<QPushButton*>(QStringLiteral("showAccessLink"));
    ASSERT_NE(button, nullptr);
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        button->click();
        EXPECT_EQ(asked, i + 1);
        if (links[i].isEmpty()) {
            EXPECT_TRUE(remote.linkCodeLabel()->pixmap().isNull());
            EXPECT_TRUE(remote.linkLabel()->text().contains(QStringLiteral("Turn the remote control on")));
        } else {
            EXPECT_EQ(remote.linkLabel()->text(), links[i]);
            EXPECT_EQ(remote.linkCodeLabel()->pixmap().toImage(), LVQRCodeImage(links[i]));
        }
    }
}

} // namespace
