// Lumaveil's options: what is accepted, and what a refusal says.
#include "app/LVCommandLine.h"
#include "core/LVVideoSizes.h"

#include <gtest/gtest.h>

namespace {

// The fields a command line set, in one line, so a case can say them all at once.
QString summary(const LVCommandLine& line)
{
    QStringList set;
    if (line.headless) set << QStringLiteral("headless");
    if (line.studio) set << QStringLiteral("studio");
    if (line.bench) set << QStringLiteral("bench");
    if (line.videoSize) set << QStringLiteral("size=") + LVSizeTitle(*line.videoSize);
    if (line.frameRate) set << QStringLiteral("fps=%1").arg(*line.frameRate);
    if (line.frames) set << QStringLiteral("frames=%1").arg(*line.frames);
    if (!line.source.isEmpty()) set << QStringLiteral("source=") + line.source;
    if (!line.effects.isEmpty()) set << QStringLiteral("effects=") + line.effects.join(QLatin1Char(','));
    if (!line.setup.isEmpty()) set << QStringLiteral("setup=") + line.setup;
    if (line.remoteControl)
        set << QStringLiteral("remote=") + (line.remoteControlPort ? QString::number(*line.remoteControlPort) : QStringLiteral("preference"));
    return set.join(QLatin1Char(' '));
}

TEST(LVCommandLineTest, AcceptsTheOptionsAndRefusesNonsenseSayingWhatIsAllowed)
{
    struct Case {
        QStringList arguments;
        bool ok;
        const char* expected; // the summary when accepted, a part of the error otherwise
    };
    const Case cases[] = {
        {{}, true, ""},
        {{"--studio"}, true, "studio"},
        {{"--headless", "--video-size", "1280x720", "--fps", "30", "--frames", "90", "--source", "Test Pattern",
          "--effect", "Clock", "--effect", "Title"},
         true, "headless size=1280x720 fps=30 frames=90 source=Test Pattern effects=Clock,Title"},
        {{"--headless", "--video-size", "16X16", "--fps", "240"}, true, "headless size=16x16 fps=240"},
        {{"--headless", "--setup=Morning Show", "--bench"}, true, "headless bench setup=Morning Show"},
        {{"--headless", "--studio", "--frames", "3"}, true, "headless studio frames=3"},
        {{"--headless", "--remote-control"}, true, "headless remote=preference"},
        {{"--headless", "--studio", "--remote-control=4460"}, true, "headless studio remote=4460"},
        {{"--remote-control=0", "--headless"}, true, "headless remote=0"},
        {{"--headless", "--video-size", "0x0"}, false, "from 16 to 4096"},
        {{"--headless", "--video-size", "hd"}, false, "WIDTHxHEIGHT"},
        {{"--headless", "--video-size", "640x"}, false, "for example 1280x720"},
        {{"--headless", "--video-size", "8192x8192"}, false, "out of range"},
        {{"--headless", "--fps", "0"}, false, "from 1 to 240"},
        {{"--headless", "--fps", "241"}, false, "from 1 to 240"},
        {{"--headless", "--fps", "fast"}, false, "from 1 to 240"},
        {{"--headless", "--fps", "12.5"}, false, "whole number"},
        {{"--headless", "--frames", "-3"}, false, "1 or more"},
        {{"--headless", "--fps"}, false, "Missing value"},
        {{"--frames", "30"}, false, "need --headless"},
        {{"--fps", "30", "--bench"}, false, "need --headless"},
        {{"--headless", "--setup", "x", "--effect", "Clock"}, false, "cannot be combined"},
        {{"--headless", "--colour", "red"}, false, "Unknown option"},
        {{"--headless", "stray"}, false, "unexpected argument"},
        {{"--headless", "--studio", "--setup", "Intro"}, false, "cannot be combined"},
        {{"--headless", "--studio", "--source", "Test Pattern"}, false, "cannot be combined"},
        {{"--headless", "--studio", "--effect", "Clock"}, false, "cannot be combined"},
        {{"--headless", "--remote-control=65536"}, false, "remote-control port \"65536\" is not allowed"},
        {{"--headless", "--remote-control="}, false, "remote-control port \"\" is not allowed"},
        {{"--remote-control"}, false, "--remote-control needs --headless"},
        {{"--headless", "--remote-controls"}, false, "Unknown option 'remote-controls'"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.join(QLatin1Char(' ')).toStdString());
        LVCommandLine line;
        QString error;
        ASSERT_EQ(LVParseCommandLine(QStringList{QStringLiteral("lumaveil")} + c.arguments, &line, &error), c.ok)
            << error.toStdString();
        if (c.ok)
            EXPECT_EQ(summary(line).toStdString(), c.expected);
        else
            EXPECT_TRUE(error.contains(QString::fromLatin1(c.expected))) << error.toStdString();
    }
}

TEST(LVCommandLineTest, CloseMatchesForUnknownNames)
{
    const QStringList known{QStringLiteral("Clock"), QStringLiteral("Lower Third"), QStringLiteral("Blur"),
                            QStringLiteral("Block Glitch"), QStringLiteral("Scrolling Ticker")};
    EXPECT_EQ(LVCloseMatches(QStringLiteral("clock"), known).value(0), QStringLiteral("Clock"));
    EXPECT_EQ(LVCloseMatches(QStringLiteral("Clokc"), known).value(0), QStringLiteral("Clock"));
    EXPECT_EQ(LVCloseMatches(QStringLiteral("Ticker"), known), (QStringList{QStringLiteral("Scrolling Ticker")}));
    EXPECT_TRUE(LVCloseMatches(QStringLiteral("Kaleidoscope"), known).isEmpty());

    EXPECT_EQ(LVUnknownNameMessage(QStringLiteral("effect"), QStringLiteral("Blurr"), known),
              QStringLiteral("unknown effect \"Blurr\"; did you mean: Blur?"));
    const QString far = LVUnknownNameMessage(QStringLiteral("effect"), QStringLiteral("Kaleidoscope"), known);
    EXPECT_TRUE(far.contains(QStringLiteral("known: Clock, Lower Third"))) << far.toStdString();
}

} // namespace
