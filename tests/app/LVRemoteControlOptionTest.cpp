// The headless job's --remote-control[=PORT]: an optional value the plain parser cannot take.
#include "app/LVCommandLine.h"

#include <gtest/gtest.h>

namespace {

TEST(LVRemoteControlOptionTest, TheOptionTakesAnOptionalPortAndNeedsTheHeadlessJob)
{
    struct Case {
        QStringList arguments;
        bool ok;
        bool remoteControl;
        std::optional<quint16> port;
        const char* error;
    };
    const Case cases[] = {
        {{"--headless"}, true, false, std::nullopt, ""},
        {{"--headless", "--remote-control"}, true, true, std::nullopt, ""},
        {{"--headless", "--studio", "--remote-control=4460"}, true, true, 4460, ""},
        {{"--remote-control=0", "--headless"}, true, true, 0, ""},
        {{"--headless", "--remote-control=65536"}, false, false, std::nullopt, "remote-control port \"65536\" is not allowed"},
        {{"--headless", "--remote-control=abc"}, false, false, std::nullopt, "remote-control port \"abc\" is not allowed"},
        {{"--headless", "--remote-control="}, false, false, std::nullopt, "remote-control port \"\" is not allowed"},
        {{"--remote-control"}, false, false, std::nullopt, "--remote-control needs --headless"},
        {{"--headless", "--remote-controls"}, false, false, std::nullopt, "Unknown option 'remote-controls'"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.arguments.join(' ').toStdString());
        LVCommandLine line;
        QString error;
        const bool ok = LVParseCommandLine(QStringList{"lumaveil"} + test.arguments, &line, &error);
        ASSERT_EQ(ok, test.ok) << error.toStdString();
        if (!ok) {
            EXPECT_TRUE(error.contains(QString::fromLatin1(test.error))) << error.toStdString();
            continue;
        }
        EXPECT_EQ(line.remoteControl, test.remoteControl);
        EXPECT_EQ(line.remoteControlPort, test.port);
    }
}

} // namespace
