// The web remote in a real browser (headless Chromium, driven through the DevTools protocol by
// browser_driver.py) against `lumaveil --headless --studio --remote-control`: signing in, the
// setups as buttons, taps and Cut reaching the published frames, a second browser following,
// and the colours following changes made with lumaveil-ctl.
#include "tests/control/LVLumaveilProcessTest.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonArray>

namespace {

const QString kChromium = QStringLiteral("/usr/bin/chromium");

// One command to the browser driver and its reply.
class LVBrowsers {
public:
    bool start(const QString& workdir)
    {
        driver_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        driver_.start(QStringLiteral("/usr/bin/python3"), {QStringLiteral(LV_BROWSER_DRIVER), kChromium, workdir});
        return driver_.waitForStarted(20000);
    }

    ~LVBrowsers()
    {
        if (driver_.state() == QProcess::NotRunning) return;
        command({"quit"});
        if (!driver_.waitForFinished(30000)) {
            driver_.kill();
            driver_.waitForFinished(10000);
        }
    }

    QJsonObject command(const QJsonArray& arguments)
    {
        driver_.write(QJsonDocument(arguments).toJson(QJsonDocument::Compact) + '\n');
        // The driver answers every command with one line; the browsers are other processes.
        QDeadlineTimer deadline(std::chrono::seconds(90));
        while (!driver_.canReadLine() && driver_.state() == QProcess::Running && !deadline.hasExpired()) {
            driver_.waitForReadyRead(int(std::max<qint64>(1, deadline.remainingTime())));
        }
        if (!driver_.canReadLine()) return {{"ok", false}, {"error", "the browser driver did not answer"}};
        return QJsonDocument::fromJson(driver_.readLine()).object();
    }

    // A condition in the page, awaited there; the error when it never held.
    QString wait(const QString& browser, const QString& condition, double seconds = 30)
    {
        const QJsonObject reply = command({"wait", browser, seconds, condition});
        return reply.value("ok").toBool() ? QString() : reply.value("error").toString() + " waiting for " + condition;
    }

    QJsonValue eval(const QString& browser, const QString& expression)
    {
        return command({"eval", browser, expression}).value("value");
    }

private:
    QProcess driver_;
};

// A driver reply as a test result, its error as the message.
::testing::AssertionResult succeeded(const QJsonObject& reply)
{
    if (reply.value("ok").toBool()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << reply.value("error").toString().toStdString();
}

// The condition that a button shows a state and the studio window's colour for it.
QString tileShows(const QString& name, int state, const QString& colour)
{
    return QStringLiteral("(() => { const t = document.querySelector('.tile[data-name=\"%1\"]');"
                          " return t && t.dataset.state === '%2' && t.dataset.color === '%3'; })()")
        .arg(name)
        .arg(state)
        .arg(colour);
}

class LVWebRemoteBrowserTest : public LVLumaveilProcessTest {
protected:
    void SetUp() override
    {
        if (!QFileInfo(kChromium).isExecutable()) GTEST_SKIP() << "no Chromium at /usr/bin/chromium (Debian package chromium)";
        LVLumaveilProcessTest::SetUp();
        environment.insert(QStringLiteral("LUMAVEIL_WEB_DIR"), QStringLiteral(LV_SOURCE_WEB_DIR));
        writeSetupsAndPassword();
    }

    void TearDown() override
    {
        browsers.reset();
        LVLumaveilProcessTest::TearDown();
    }

    // Types a password into a browser's sign-in form and sends it.
    void signIn(const QString& browser, const QString& password)
    {
        ASSERT_EQ(browsers->wait(browser, "!document.getElementById('signin').hidden"), QString());
        browsers->eval(browser, QStringLiteral("document.getElementById('password').value = %1;"
                                               " document.getElementById('signin-form').requestSubmit(); true")
                                    .arg(QString::fromUtf8(QJsonDocument(QJsonArray{password}).toJson(QJsonDocument::Compact)).mid(1).chopped(1)));
    }

    std::unique_ptr<LVBrowsers> browsers;
};

TEST_F(LVWebRemoteBrowserTest, ThePageRunsTheStudioFromTwoBrowsers)
{
    const quint16 port = startRemoteControl({"--video-size", "320x180"}, R"(the web remote is at http://127\.0\.0\.1:(\d+)/)");
    ASSERT_NE(port, 0) << qPrintable(log);
    const QString url = QStringLiteral("http://127.0.0.1:%1/").arg(port);
    browsers = std::make_unique<LVBrowsers>();
    ASSERT_TRUE(browsers->start(dir.filePath(QStringLiteral("browsers"))));
    ASSERT_TRUE(succeeded(browsers->command({"open", "first", url})));

    // Nothing of the studio shows before the server takes the password.
    signIn("first", QStringLiteral("not it"));
    ASSERT_EQ(browsers->wait("first", "document.getElementById('signin-message').textContent.includes('Wrong password')"), QString());
    EXPECT_TRUE(browsers->eval("first", "document.getElementById('studio').hidden").toBool());
    EXPECT_EQ(browsers->eval("first", "document.querySelectorAll('.tile').length").toInt(-1), 0);

    signIn("first", password);
    ASSERT_EQ(browsers->wait("first", "document.querySelectorAll('.tile').length === 2"), QString());
    EXPECT_EQ(browsers->eval("first", "[...document.querySelectorAll('.tile')].map(t => t.dataset.name).join(',')").toString(),
              "Intro,Empty");
    EXPECT_EQ(browsers->wait("first", tileShows("Intro", 0, "#000000")), QString());

    // The second browser keeps its own storage: it signs in for itself.
    ASSERT_TRUE(succeeded(browsers->command({"open", "second", url})));
    signIn("second", password);
    ASSERT_EQ(browsers->wait("second", "document.querySelectorAll('.tile').length === 2"), QString());

    uint64_t since = 0;
    ASSERT_TRUE(waitForFrame(since, false)) << "nothing on air should publish black frames";

    // A tap selects into Preview; both browsers show the studio window's green.
    ASSERT_TRUE(succeeded(browsers->command({"press", "first", ".tile[data-name=\"Intro\"]", 50})));
    for (const char* browser : {"first", "second"}) EXPECT_EQ(browsers->wait(browser, tileShows("Intro", 4, "#1aad08")), QString());
    EXPECT_EQ(browsers->wait("second", "document.getElementById('preview-names').textContent === 'Intro'"), QString());

    // Cut puts it on air: the published frames change and both browsers turn red.
    ASSERT_TRUE(succeeded(browsers->command({"eval", "first", "document.getElementById('cut').click(); true"})));
    for (const char* browser : {"first", "second"}) EXPECT_EQ(browsers->wait(browser, tileShows("Intro", 3, "#ad0a05")), QString());
    EXPECT_TRUE(waitForFrame(since, true)) << "the test pattern never reached the frames";
    EXPECT_EQ(browsers->wait("first", "(document.getElementById('thumbnail').getAttribute('src') || '').startsWith('data:image/jpeg')"),
              QString());

    // Changes made elsewhere reach the page too.
    const LVProcessRun off = ctl({"button", "Intro", "punchToOffAir"});
    ASSERT_EQ(off.status, 0) << qPrintable(off.out + off.err);
    for (const char* browser : {"first", "second"}) EXPECT_EQ(browsers->wait(browser, tileShows("Intro", 0, "#000000")), QString());
    EXPECT_TRUE(waitForFrame(since, false)) << "Program never went black again";

    // A long press punches straight onto Program.
    ASSERT_TRUE(succeeded(browsers->command({"press", "second", ".tile[data-name=\"Intro\"]", 900})));
    for (const char* browser : {"first", "second"}) EXPECT_EQ(browsers->wait(browser, tileShows("Intro", 3, "#ad0a05")), QString());

    // Transition settings follow between browsers.
    browsers->eval("first", "const s = document.getElementById('transition-time'); s.value = '2.5';"
                            " s.dispatchEvent(new Event('change')); true");
    EXPECT_EQ(browsers->wait("second", "document.getElementById('transition-time').value === '2.5'"), QString());

    const QString shots = qEnvironmentVariable("LV_WEB_REMOTE_SCREENSHOTS");
    if (!shots.isEmpty()) {
        browsers->command({"screenshot", "first", 390, 844, true, shots + "/web-remote-phone.png"});
        browsers->command({"screenshot", "first", 1280, 720, false, shots + "/web-remote-desktop.png"});
    }
}

} // namespace
