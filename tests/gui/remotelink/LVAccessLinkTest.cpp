// The one-time web remote link as the Remote Control window shows it: a QR code a phone's
// camera can read (checked by its structure: size, finder patterns, quiet zone) and the link.
#include "core/LVDefaults.h"
#include "gui/remote/LVQRCode.h"
#include "gui/remote/LVRemoteControlWindow.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>

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
        {"an IPv6 host", QStringLiteral("http://[fd00:1234:5678::abcd]:65535/?token=") + token, 37},
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

TEST(LVAccessLinkWindowTest, ShowsAFreshLinkEachTimeOrSaysWhyNot)
{
    lvEnsureApplication<QApplication>();
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    LVDefaults defaults(dir.filePath(QStringLiteral("prefs.json")));
    LVRemoteControlWindow window(defaults, {});
    QStringList links{QStringLiteral("http://127.0.0.1:4455/?token=first"), QStringLiteral("http://127.0.0.1:4455/?token=second"),
                      QString()};
    int asked = 0;
    window.setAccessLinkSource([&] { return links.value(asked++); });
    auto* button = window.findChild<QPushButton*>(QStringLiteral("showAccessLink"));
    ASSERT_NE(button, nullptr);
    for (int i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        button->click();
        EXPECT_EQ(asked, i + 1);
        if (links[i].isEmpty()) {
            EXPECT_TRUE(window.linkCodeLabel()->pixmap().isNull());
            EXPECT_TRUE(window.linkLabel()->text().contains(QStringLiteral("Turn the remote control on")));
        } else {
            EXPECT_EQ(window.linkLabel()->text(), links[i]);
            EXPECT_EQ(window.linkCodeLabel()->pixmap().toImage(), LVQRCodeImage(links[i]));
        }
    }
}

} // namespace
