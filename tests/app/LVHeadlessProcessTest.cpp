// The real lumaveil executable run headless: status line, frames, refusals, signals.
#include "transport/LVShmem.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <csignal>
#include <functional>
#include <set>
#include <vector>

namespace {

class LVHeadlessProcessTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(home.isValid());
        process.setProcessEnvironment(lvPrivateEnvironment(home));
        process.setProgram(QStringLiteral(LV_LUMAVEIL_BINARY));
    }

    void run(const QStringList& arguments)
    {
        process.setArguments(arguments);
        process.start();
        ASSERT_TRUE(process.waitForFinished(60000)) << "lumaveil did not finish";
        out = QString::fromUtf8(process.readAllStandardOutput());
        err = QString::fromUtf8(process.readAllStandardError());
    }

    // Starts a run and waits until it publishes a frame that done() accepts.
    bool startPublishing(const QStringList& arguments, const std::function<bool(const uint8_t* argb)>& done)
    {
        const uint64_t since = LVShmem::currentHostTime();
        process.setArguments(arguments);
        process.start();
        return process.waitForStarted() &&
               lvWatchFrames(process, since, [&](const LVShmemReadResult&, const uint8_t* argb) { return done(argb); });
    }

    // Ends a publishing run by signal; it must leave cleanly and say which signal ended it.
    void stopBySignal(int signalNumber = SIGTERM)
    {
        ::kill(pid_t(process.processId()), signalNumber);
        ASSERT_TRUE(process.waitForFinished(30000));
        out = QString::fromUtf8(process.readAllStandardOutput());
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 0) << process.readAllStandardError().toStdString();
        EXPECT_EQ(lastJsonLine().value(QStringLiteral("signal")).toInt(), signalNumber) << out.toStdString();
    }

    QJsonObject lastJsonLine() const
    {
        return QJsonDocument::fromJson(out.trimmed().split(QLatin1Char('\n')).last().toUtf8()).object();
    }

    // Runs use the compositions given as (file name, text) from a folder of their own.
    void useEffects(std::initializer_list<std::pair<const char*, QByteArray>> files)
    {
        const QString effects = home.filePath(QStringLiteral("effects"));
        ASSERT_TRUE(lvWriteFiles(effects, files));
        QProcessEnvironment environment = process.processEnvironment();
        environment.insert(QStringLiteral("LUMAVEIL_EFFECTS_DIR"), effects);
        process.setProcessEnvironment(environment);
    }

    QStringList statusLines() const
    {
        return err.split(QLatin1Char('\n')).filter(QRegularExpression(QStringLiteral("^lumaveil: headless")));
    }

    QTemporaryDir home;
    QProcess process;
    QString out;
    QString err;
};

} // namespace

TEST_F(LVHeadlessProcessTest, RendersTheAskedFramesSaysWhatItDoesAndBenchesOnRequest)
{
    run({"--headless", "--frames", "5", "--fps", "60", "--video-size", "64x48"});
    ASSERT_EQ(process.exitCode(), 0) << err.toStdString();
    const QStringList status = statusLines();
    ASSERT_EQ(status.size(), 1) << err.toStdString();
    EXPECT_TRUE(status.front().contains(QStringLiteral("64x48 at 60 fps"))) << status.front().toStdString();
    EXPECT_TRUE(status.front().contains(QStringLiteral("shared memory"))) << status.front().toStdString();
    EXPECT_EQ(lastJsonLine().value(QStringLiteral("frames")).toInt(), 5) << out.toStdString();
    EXPECT_FALSE(err.contains(QStringLiteral("Opening shmem segment"))) << "routine detail stays out of sight";
    QFile prefs(home.filePath(QStringLiteral("config/lumaveil/com.marrowkit.Lumaveil.json")));
    ASSERT_TRUE(prefs.open(QIODevice::ReadOnly));
    EXPECT_FALSE(QJsonDocument::fromJson(prefs.readAll()).object().contains("frameRate")) << "a launch rate is never stored";

    LVShmem reader(LVShmemRole::Reader);
    EXPECT_FALSE(reader.appRunning()) << "the producer is marked not running at exit";
    EXPECT_FALSE(reader.isAvailable()) << "and its segments are gone: no frame stays behind";

    // --bench ends with one JSON object of timings.
    run({"--headless", "--bench", "--frames", "20", "--video-size", "64x48"});
    ASSERT_EQ(process.exitCode(), 0) << err.toStdString();
    const QJsonObject result = lastJsonLine();
    EXPECT_EQ(result.value(QStringLiteral("frames")).toInt(), 20);
    for (const char* key : {"fps", "p50_ms", "p99_ms", "floor_p50_ms"}) {
        EXPECT_GT(result.value(QString::fromLatin1(key)).toDouble(), 0.0) << key;
    }
}

// What is wrong with the command line is said before anything starts; a setup replaces the
// default chain whether named or given as a file.
TEST_F(LVHeadlessProcessTest, AnswersOrRefusesBeforeStarting)
{
    const QString setupDir = home.filePath(QStringLiteral("data/Lumaveil/Saved Setups"));
    ASSERT_TRUE(lvWriteFiles(setupDir, {{"Bars Only", R"({"encoded": [{"class": "TestPatternSource", "enabled": true}]})"}}));
    ASSERT_TRUE(lvWriteFiles(home.path(), {{"other.json", R"({"theme": "dark"})"}}));
    const QStringList noDisplay{QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("DISPLAY"), QStringLiteral("WAYLAND_DISPLAY")};
    struct Case {
        QStringList arguments;
        int status;
        const char* says; // on standard output for --version, in the status line for a run, else on standard error
        QStringList unset = {}; // environment taken away
    };
    const Case cases[] = {
        {{"--version"}, 0, "lumaveil 0."},
        {{}, 2, "lumaveil: no display: use --headless", noDisplay},
        {{"--headless", "--video-size", "1x1"}, 2, "from 16 to 4096"},
        {{"--headless", "--effect", "No Such Effect"}, 2, "unknown effect \"No Such Effect\""},
        {{"--headless", "--source", "webcam"}, 2, "did you mean: Webcam?"},
        {{"--headless", "--setup", "Nobody's Show"}, 2, "no readable saved setup named \"Nobody's Show\""},
        {{"--headless", "--setup", "/missing/file.json"}, 2, "setup file /missing/file.json does not exist"},
        {{"--headless", "--setup", home.filePath(QStringLiteral("other.json"))}, 2, "holds no effects"},
        {{"--headless", "--frames", "2", "--setup", "Bars Only"}, 0, "chain: Test Pattern"},
        {{"--headless", "--frames", "2", "--setup", setupDir + QStringLiteral("/Bars Only")}, 0, "chain: Test Pattern"},
        // A generator composition is a source like the built-in ones.
        {{"--headless", "--frames", "2", "--source", "Color Bars", "--effect", "Telestrator"}, 0,
         "chain: Color Bars > Telestrator,"},
    };
    const QProcessEnvironment full = process.processEnvironment();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.arguments.join(QLatin1Char(' ')).toStdString());
        QProcessEnvironment environment = full;
        for (const QString& name : c.unset) environment.remove(name);
        process.setProcessEnvironment(environment);
        run(c.arguments);
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), c.status) << err.toStdString();
        const QString says = QString::fromLatin1(c.says);
        if (c.arguments.contains(QStringLiteral("--version"))) {
            EXPECT_TRUE(out.startsWith(says)) << out.toStdString();
        } else if (c.status == 0) {
            ASSERT_EQ(statusLines().size(), 1) << err.toStdString();
            EXPECT_TRUE(statusLines().front().contains(says)) << statusLines().front().toStdString();
            EXPECT_FALSE(statusLines().front().contains(QStringLiteral("Clock"))) << "the setup replaces the default chain";
            EXPECT_EQ(lastJsonLine().value(QStringLiteral("frames")).toInt(), 2);
        } else {
            EXPECT_TRUE(err.contains(says)) << err.toStdString();
            EXPECT_TRUE(statusLines().isEmpty()) << "nothing started";
        }
    }
}

TEST_F(LVHeadlessProcessTest, SignalsEndItCleanly)
{
    for (int signalNumber : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signalNumber);
        ASSERT_TRUE(startPublishing({"--headless", "--fps", "30", "--video-size", "64x48"}, [](const uint8_t*) { return true; }));
        LVShmem reader(LVShmemRole::Reader); // maps the running producer's control block
        ASSERT_TRUE(reader.appRunning());
        stopBySignal(signalNumber);
        EXPECT_FALSE(reader.appRunning());
        EXPECT_TRUE(QFile::exists(home.filePath(QStringLiteral("config/lumaveil/com.marrowkit.Lumaveil.json"))))
            << "preferences are written";
    }
}

TEST_F(LVHeadlessProcessTest, ASecondInstanceSaysWhoPublishesAndRunsWithoutPublishingOnlyWhenAsked)
{
    QProcess first;
    first.setProcessEnvironment(process.processEnvironment());
    first.setProgram(process.program());
    first.setArguments({"--headless", "--video-size", "64x48"});
    first.start();
    const auto anyFrame = [](const LVShmemReadResult&, const uint8_t*) { return true; };
    ASSERT_TRUE(first.waitForStarted() && lvWatchFrames(first, 0, anyFrame));
    LVShmem reader(LVShmemRole::Reader); // opened on the segments the first one made
    const QString firstPid = QString::number(first.processId());

    const std::pair<QStringList, const char*> cases[] = {
        {{}, "another Lumaveil (pid %1) already publishes frames"},
        {{"--no-publish"}, "frames to nowhere (Frames are not published: another Lumaveil (pid %1) publishes)"},
    };
    for (const auto& [extra, says] : cases) {
        run(QStringList{"--headless", "--frames", "3"} + extra);
        EXPECT_EQ(process.exitCode(), extra.isEmpty() ? 1 : 0) << err.toStdString();
        EXPECT_TRUE(err.contains(QString::fromLatin1(says).arg(firstPid))) << err.toStdString();
        if (extra.isEmpty()) {
            EXPECT_TRUE(err.contains("--no-publish")) << "the way out is named";
        }
        // The first one still owns the camera and its frames still flow.
        EXPECT_EQ(reader.otherLiveProducer(), uint32_t(first.processId()));
        EXPECT_TRUE(lvWatchFrames(first, LVShmem::currentHostTime(), anyFrame));
    }
    ::kill(pid_t(first.processId()), SIGTERM);
    ASSERT_TRUE(first.waitForFinished(30000));
    EXPECT_EQ(first.exitCode(), 0);
}

TEST_F(LVHeadlessProcessTest, AHugeShaderNeitherHoldsTheFramesNorTheQuit)
{
    // Red once compiled; just under the size a composition may have.
    QByteArray shader = "/*{\"INPUTS\": [{\"NAME\": \"inputImage\", \"TYPE\": \"image\"}]}*/\n"
                        "void main() {\n    float a = 0.0;\n";
    for (int i = 0; shader.size() < 1000 * 1000; ++i)
        shader += QStringLiteral("    a += sin(a * %1.0 + isf_FragNormCoord.x);\n").arg(i % 97).toLatin1();
    shader += "    gl_FragColor = vec4(1.0, 0.0, 0.0, 1.0) + 0.0 * a;\n}\n";
    useEffects({{"Huge.fs", shader}});

    // The first frame asks for the program and is published without waiting for it: the
    // test pattern, not yet the red.
    size_t red = 0, pixels = 64 * 48;
    ASSERT_TRUE(startPublishing({"--headless", "--source", "Test Pattern", "--effect", "Huge", "--video-size", "64x48"},
                                [&](const uint8_t* argb) {
                                    for (size_t i = 0; i < pixels * 4; i += 4)
                                        red += argb[i] == 255 && argb[i + 1] == 255 && argb[i + 2] == 0 && argb[i + 3] == 0;
                                    return true;
                                }));
    EXPECT_LT(red, pixels) << "the frame waited for the shader";
    stopBySignal();
}

TEST_F(LVHeadlessProcessTest, TimeDrivenCompositionsAnimateFromTheFirstFrame)
{
    // Red follows TIME through a second; a time base of zero would hold it still.
    useEffects({{"Time Ramp.fs", R"(/*{ "INPUTS": [{"NAME": "inputImage", "TYPE": "image"}] }*/
void main() { gl_FragColor = vec4(fract(TIME), 0.0, 0.0, 1.0); }
)"}});
    std::set<int> reds;
    EXPECT_TRUE(startPublishing({"--headless", "--effect", "Time Ramp", "--fps", "30", "--video-size", "64x48"},
                                [&](const uint8_t* argb) {
                                    reds.insert(argb[1]);
                                    return reds.size() >= 3;
                                }))
        << "frames seen with red " << ::testing::PrintToString(reds);
    stopBySignal();
}
