// lumaveil-ctl's command line into requests, and replies into output and exit status.
#include "tools/ctl/LVCtlRequest.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonDocument>

namespace {

QString compact(const QJsonObject& object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

TEST(LVCtlRequestTest, CommandLinesBecomeRequests)
{
    struct Case {
        QStringList arguments;
        const char* request;
        bool rawJson;
    };
    const Case cases[] = {
        {{"get", "studioButtons"}, R"({"command":"get","property":"studioButtons"})", false},
        {{"--json", "get", "liveEffects"}, R"({"command":"get","property":"liveEffects"})", true},
        {{"set", "studioTransitionTime", "2.5"}, R"({"command":"set","property":"studioTransitionTime","value":2.5})", false},
        {{"set", "studioSwapMode", "true"}, R"({"command":"set","property":"studioSwapMode","value":true})", false},
        {{"set", "studioNamedTransition", "Dissolve"},
         R"({"command":"set","property":"studioNamedTransition","value":"Dissolve"})", false},
        {{"set", "studioNamedTransition", "\"true\""},
         R"({"command":"set","property":"studioNamedTransition","value":"true"})", false},
        {{"loadSetup", "Intro", "--merge"}, R"({"command":"loadSetup","merge":true,"name":"Intro"})", false},
        {{"loadSetup", "Intro"}, R"({"command":"loadSetup","merge":false,"name":"Intro"})", false},
        {{"addEffect", "Clock"}, R"({"command":"addEffect","name":"Clock"})", false},
        {{"cut"}, R"({"command":"cut"})", false},
        {{"studioDissolve", "--json"}, R"({"command":"studioDissolve"})", true},
        {{"button", "Intro", "punchToAir"}, R"({"action":"punchToAir","command":"button","name":"Intro"})", false},
        {{"invokeUserMenu", "3"}, R"({"command":"invokeUserMenu","index":3})", false},
        {{"startRecord"}, R"({"command":"startRecord"})", false},
        {{"startRecord", "/tmp/show.mkv"}, R"({"command":"startRecord","path":"/tmp/show.mkv"})", false},
        {{"startStream", "rtmp://127.0.0.1/live/k"}, R"({"command":"startStream","url":"rtmp://127.0.0.1/live/k"})", false},
    };
    for (const Case& c : cases) {
        QString error;
        const auto invocation = LVCtlParseArguments(c.arguments, &error);
        ASSERT_TRUE(invocation) << qPrintable(c.arguments.join(' ')) << ": " << qPrintable(error);
        EXPECT_EQ(compact(invocation->request), QString::fromUtf8(c.request)) << qPrintable(c.arguments.join(' '));
        EXPECT_EQ(invocation->rawJson, c.rawJson);
    }
}

TEST(LVCtlRequestTest, WrongCommandLinesSayWhatIsWrong)
{
    struct Case {
        QStringList arguments;
        const char* error;
    };
    const Case cases[] = {
        {{}, "no command given"},
        {{"--json"}, "no command given"},
        {{"get"}, "get takes one property name"},
        {{"set", "studioSwapMode"}, "set takes a property name and a value"},
        {{"cut", "now"}, "cut takes no arguments"},
        {{"cut", "--merge"}, "--merge belongs to loadSetup"},
        {{"button", "Intro"}, "button takes a button name and an action"},
        {{"button", "Intro", "explode"},
         "unknown button action \"explode\"; one of: toggle, selectForAir, selectForOffAir, punchToAir, punchToOffAir"},
        {{"fade"}, "unknown command \"fade\""},
        {{"startTimeline"}, "startTimeline takes one name"},
        {{"invokeUserMenu", "-1"}, "invokeUserMenu takes an entry index (0, 1, ...), not \"-1\""},
        {{"startRecord", "a.mp4", "b.mp4"}, "startRecord takes at most one file"},
        {{"startStream", "rtmp://a/b/c", "x"}, "startStream takes at most one URL"},
    };
    for (const Case& c : cases) {
        QString error;
        EXPECT_FALSE(LVCtlParseArguments(c.arguments, &error)) << qPrintable(c.arguments.join(' '));
        EXPECT_EQ(error, QString::fromUtf8(c.error));
    }
}

TEST(LVCtlRequestTest, RepliesBecomeOutputAndExitStatus)
{
    struct Case {
        QByteArray reply;
        bool rawJson;
        const char* out;
        const char* err;
        int status;
    };
    const Case cases[] = {
        {R"({"ok":true})", false, "", "", LVCtlSuccess},
        {R"({"ok":true,"result":2.5})", false, "2.5\n", "", LVCtlSuccess},
        {R"({"ok":true,"result":false})", false, "false\n", "", LVCtlSuccess},
        {R"({"ok":true,"result":["A","B"]})", false, "A\nB\n", "", LVCtlSuccess},
        {R"({"ok":true,"result":[{"name":"Intro","state":3,"tags":[1]}]})", false, "name=Intro state=3 tags=[1]\n", "",
         LVCtlSuccess},
        {R"({"ok":true,"result":{"running":true}})", false, "running=true\n", "", LVCtlSuccess},
        {R"({"ok":true,"result":[1]})", true, "{\"ok\":true,\"result\":[1]}\n", "", LVCtlSuccess},
        {R"({"ok":false,"error":"no studio button named \"X\""})", false, "",
         "lumaveil-ctl: no studio button named \"X\"\n", LVCtlFailed},
        {R"({"ok":false,"error":"x"})", true, "{\"ok\":false,\"error\":\"x\"}\n", "", LVCtlFailed},
        {"garbage", false, "", "lumaveil-ctl: unreadable reply from Lumaveil\n", LVCtlFailed},
        {R"({"result":1})", false, "", "lumaveil-ctl: unreadable reply from Lumaveil\n", LVCtlFailed},
    };
    for (const Case& c : cases) {
        const LVCtlOutcome outcome = LVCtlInterpretReply(c.reply, c.rawJson);
        EXPECT_EQ(outcome.out, QString::fromUtf8(c.out)) << c.reply.constData();
        EXPECT_EQ(outcome.err, QString::fromUtf8(c.err)) << c.reply.constData();
        EXPECT_EQ(outcome.status, c.status) << c.reply.constData();
    }
}

} // namespace
