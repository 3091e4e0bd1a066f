// The headless job's options: what is accepted, and what a refusal says.
#include "app/LVCommandLine.h"

#include <gtest/gtest.h>

namespace {

QStringList args(std::initializer_list<const char*> list)
{
    QStringList result{QStringLiteral("lumaveil")};
    for (const char* arg : list) result.append(QString::fromLatin1(arg));
    return result;
}

} // namespace

TEST(LVCommandLineTest, AcceptsTheHeadlessOptions)
{
    LVCommandLine line;
    QString error;
    ASSERT_TRUE(LVParseCommandLine(args({"--headless", "--video-size", "1280x720", "--fps", "30", "--frames", "90",
                                         "--source", "Test Pattern", "--effect", "Clock", "--effect", "Title"}),
                                   &line, &error))
        << error.toStdString();
    EXPECT_TRUE(line.headless);
    EXPECT_EQ(line.videoSize, QSize(1280, 720));
    EXPECT_EQ(line.frameRate, 30);
    EXPECT_EQ(line.frames, 90);
    EXPECT_EQ(line.source, QStringLiteral("Test Pattern"));
    EXPECT_EQ(line.effects, (QStringList{QStringLiteral("Clock"), QStringLiteral("Title")})) << "in chain order";

    ASSERT_TRUE(LVParseCommandLine(args({"--headless", "--setup=Morning Show", "--bench"}), &line, &error));
    EXPECT_EQ(line.setup, QStringLiteral("Morning Show"));
    EXPECT_TRUE(line.bench);
    ASSERT_TRUE(LVParseCommandLine(args({"--headless", "--studio", "--frames", "3"}), &line, &error));
    EXPECT_TRUE(line.studio);
    ASSERT_TRUE(LVParseCommandLine(args({"--studio"}), &line, &error)) << "the studio window";
    ASSERT_TRUE(LVParseCommandLine(args({}), &line, &error));
    EXPECT_FALSE(line.headless);
}

TEST(LVCommandLineTest, RefusesNonsenseSayingWhatIsAllowed)
{
    struct Case {
        std::initializer_list<const char*> arguments;
        const char* says;
    };
    for (const Case& c : {
             Case{{"--headless", "--video-size", "0x0"}, "from 16 to 4096"},
             Case{{"--headless", "--video-size", "hd"}, "WIDTHxHEIGHT"},
             Case{{"--headless", "--video-size", "8192x8192"}, "out of range"},
             Case{{"--headless", "--fps", "0"}, "from 1 to 240"},
             Case{{"--headless", "--fps", "1000"}, "from 1 to 240"},
             Case{{"--headless", "--fps", "12.5"}, "whole number"},
             Case{{"--headless", "--frames", "-3"}, "1 or more"},
             Case{{"--headless", "--fps"}, "Missing value"},
             Case{{"--frames", "30"}, "need --headless"},
             Case{{"--fps", "30", "--bench"}, "need --headless"},
             Case{{"--headless", "--setup", "x", "--effect", "Clock"}, "cannot be combined"},
             Case{{"--headless", "--colour", "red"}, "Unknown option"},
             Case{{"--headless", "stray"}, "unexpected argument"},
             Case{{"--headless", "--studio", "--setup", "Intro"}, "cannot be combined"},
             Case{{"--headless", "--studio", "--source", "Test Pattern"}, "cannot be combined"},
             Case{{"--headless", "--studio", "--effect", "Clock"}, "cannot be combined"},
         }) {
        LVCommandLine line;
        QString error;
        EXPECT_FALSE(LVParseCommandLine(args(c.arguments), &line, &error)) << c.says;
        EXPECT_TRUE(error.contains(QString::fromLatin1(c.says))) << error.toStdString();
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

    const QString close = LVUnknownNameMessage(QStringLiteral("effect"), QStringLiteral("Blurr"), known);
    EXPECT_EQ(close, QStringLiteral("unknown effect \"Blurr\"; did you mean: Blur?"));
    const QString far = LVUnknownNameMessage(QStringLiteral("effect"), QStringLiteral("Kaleidoscope"), known);
    EXPECT_TRUE(far.contains(QStringLiteral("known: Clock, Lower Third"))) << far.toStdString();
}
