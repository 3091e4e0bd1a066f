// lumaveil-ctl as a process against a live control socket: what it sends, prints and exits with.
#include "control/remote/LVControlServer.h"
#include "tests/control/LVControlTestSupport.h"

#include <QJsonDocument>
#include <QProcess>
#include <QTemporaryDir>

namespace {

class LVCtlProcessTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { lvEnsureApplication(); }

    void SetUp() override
    {
        ASSERT_TRUE(runtime.isValid());
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(runtime.path()));
    }

    static LVProcessRun ctl(const QStringList& arguments) { return lvRunServed(QStringLiteral(LV_CTL_PATH), arguments); }

    QTemporaryDir runtime;
};

TEST_F(LVCtlProcessTest, ExitStatusTellsSuccessFailureAndNobodyRunning)
{
    QStringList requests;
    LVControlServer server([&](const QJsonObject& request) {
        requests.append(QString::fromUtf8(QJsonDocument(request).toJson(QJsonDocument::Compact)));
        const QString command = request.value(QStringLiteral("command")).toString();
        if (command == QLatin1String("get")) return LVControlResult(2.5);
        if (command == QLatin1String("button")) return LVControlError(QStringLiteral("no studio button named \"Nope\""));
        return LVControlResult(QJsonValue::Undefined);
    });
    QString error;
    ASSERT_TRUE(server.listen(LVControlSocket::socketPath(), &error)) << qPrintable(error);

    struct Case {
        QStringList arguments;
        int status;
        const char* out;
        const char* errStart;
    };
    const Case cases[] = {
        {{"cut"}, 0, "", ""},
        {{"get", "studioTransitionTime"}, 0, "2.5\n", ""},
        {{"--json", "get", "studioTransitionTime"}, 0, "{\"ok\":true,\"result\":2.5}\n", ""},
        {{"button", "Nope", "punchToAir"}, 1, "", "lumaveil-ctl: no studio button named \"Nope\"\n"},
        {{"frobnicate"}, 1, "", "lumaveil-ctl: unknown command \"frobnicate\"\nusage:"},
    };
    for (const Case& c : cases) {
        const LVProcessRun run = ctl(c.arguments);
        EXPECT_EQ(run.status, c.status) << qPrintable(c.arguments.join(' '));
        EXPECT_EQ(run.out, QString::fromUtf8(c.out)) << qPrintable(c.arguments.join(' '));
        const QString errStart = QString::fromUtf8(c.errStart);
        EXPECT_EQ(run.err.left(errStart.size()), errStart) << qPrintable(c.arguments.join(" ") + ": " + run.err);
    }
    EXPECT_EQ(requests, (QStringList{R"({"command":"cut"})", R"({"command":"get","property":"studioTransitionTime"})",
                                     R"({"command":"get","property":"studioTransitionTime"})",
                                     R"({"action":"punchToAir","command":"button","name":"Nope"})"}));

    server.close();
    const LVProcessRun absent = ctl({"cut"});
    EXPECT_EQ(absent.status, 2);
    EXPECT_EQ(absent.err, QStringLiteral("lumaveil-ctl: no Lumaveil is running (nothing serves %1)\n")
                              .arg(LVControlSocket::socketPath()));
}

} // namespace
