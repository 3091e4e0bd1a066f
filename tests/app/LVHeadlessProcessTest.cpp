// The real lumaveil executable run headless: status line, frames, refusals, signals.
#include "app/LVKindRegistration.h"
#include "core/LVDefaults.h"
#include "core/LVEffectRegistry.h"
#include "render/LVContext.h"
#include "transport/LVShmem.h"
#include "setups/model/LVSetupManager.h"
#include "tests/support/LVTestSupport.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <csignal>
#include <functional>
#include <set>
#include <chrono>
#include <thread>
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

    // Frames this run publishes from now on, until done() accepts one.
    bool watchFrames(const std::function<bool(const uint8_t* argb)>& done)
    {
        return lvWatchFrames(process, LVShmem::currentHostTime(),
                             [&](const LVShmemReadResult&, const uint8_t* argb) { return done(argb); });
    }

    QJsonObject lastJsonLine() const
    {
        const QStringList lines = out.trimmed().split(QLatin1Char('\n'));
        return QJsonDocument::fromJson(lines.last().toUtf8()).object();
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
        QStringList lines;
        for (const QString& line : err.split(QLatin1Char('\n'))) {
            if (line.startsWith(QStringLiteral("lumaveil: headless"))) lines.append(line);
        }
        return lines;
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

TEST_F(LVHeadlessProcessTest, VersionAndMissingDisplayAnswerWithoutStarting)
{
    const struct {
        QStringList arguments;
        QStringList unset; // environment taken away
        int status;
        const char* says; // on standard output for status 0, on standard error otherwise
    } cases[] = {
        {{"--version"}, {}, 0, "lumaveil 0."},
        {{}, {QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("DISPLAY"), QStringLiteral("WAYLAND_DISPLAY")}, 2,
         "lumaveil: no display: use --headless"},
    };
    const QProcessEnvironment full = process.processEnvironment();
    for (const auto& c : cases) {
        QProcessEnvironment environment = full;
        for (const QString& name : c.unset) environment.remove(name);
        process.setProcessEnvironment(environment);
        run(c.arguments);
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit) << c.says;
        EXPECT_EQ(process.exitCode(), c.status) << c.says;
        EXPECT_TRUE((c.status == 0 ? out : err).startsWith(QString::fromLatin1(c.says))) << out.toStdString() << err.toStdString();
    }
}

TEST_F(LVHeadlessProcessTest, RefusesBadInputBeforeStarting)
{
    // JSON, but not a setup.
    ASSERT_TRUE(lvWriteFiles(home.path(), {{"other.json", R"({"theme": "dark"})"}}));
    struct Case {
        QStringList arguments;
        const char* says;
    };
    for (const Case& c : {Case{{"--headless", "--video-size", "1x1"}, "from 16 to 4096"},
                          Case{{"--headless", "--fps", "0"}, "from 1 to 240"},
                          Case{{"--headless", "--effect", "No Such Effect"}, "unknown effect \"No Such Effect\""},
                          Case{{"--headless", "--source", "webcam"}, "did you mean: Webcam?"},
                          Case{{"--headless", "--setup", "Nobody's Show"},
                               "no readable saved setup named \"Nobody's Show\""},
                          Case{{"--headless", "--setup", "/missing/file.json"},
                               "setup file /missing/file.json does not exist"},
                          Case{{"--headless", "--setup", home.filePath(QStringLiteral("other.json"))},
                               "holds no effects"}}) {
        run(c.arguments);
        EXPECT_EQ(process.exitCode(), 2) << c.says;
        EXPECT_TRUE(err.contains(QString::fromLatin1(c.says))) << err.toStdString();
        EXPECT_TRUE(statusLines().isEmpty()) << "nothing started";
    }
}

TEST_F(LVHeadlessProcessTest, SignalsEndItCleanly)
{
    for (int signalNumber : {SIGTERM, SIGINT}) {
        process.setArguments({"--headless", "--fps", "30", "--video-size", "64x48"});
        LVShmem reader(LVShmemRole::Reader);
        process.start();
        ASSERT_TRUE(process.waitForStarted());
        ASSERT_TRUE(watchFrames([](const uint8_t*) { return true; })) << "frames are published";
        ::kill(pid_t(process.processId()), signalNumber);
        ASSERT_TRUE(process.waitForFinished(30000));
        out = QString::fromUtf8(process.readAllStandardOutput());
        EXPECT_EQ(process.exitStatus(), QProcess::NormalExit);
        EXPECT_EQ(process.exitCode(), 0);
        EXPECT_EQ(lastJsonLine().value(QStringLiteral("signal")).toInt(), signalNumber) << out.toStdString();
        EXPECT_FALSE(reader.appRunning());
        EXPECT_TRUE(QFile::exists(home.filePath(QStringLiteral("config/lumaveil/com.marrowkit.Lumaveil.json"))))
            << "preferences are written";
    }
}

// Starts a publishing run and waits for its first frame (kept in firstFrame when asked).
bool startPublishing(QProcess& process, const QStringList& arguments, std::vector<uint8_t>* firstFrame = nullptr)
{
    process.setArguments(arguments);
    process.start();
    return process.waitForStarted() && lvWatchFrames(process, 0, [&](const LVShmemReadResult& r, const uint8_t* argb) {
               if (firstFrame) firstFrame->assign(argb, argb + size_t(r.width) * size_t(r.height) * 4);
               return true;
           });
}

TEST_F(LVHeadlessProcessTest, ASecondInstanceSaysWhoPublishesAndRunsWithoutPublishingOnlyWhenAsked)
{
    QProcess first;
    first.setProcessEnvironment(process.processEnvironment());
    first.setProgram(process.program());
    ASSERT_TRUE(startPublishing(first, {"--headless", "--video-size", "64x48"}));
    LVShmem reader(LVShmemRole::Reader); // opened on the segments the first one made
    const QString firstPid = QString::number(first.processId());

    struct Case {
        QStringList extra;
        int exitCode;
        const char* says;
    };
    const Case cases[] = {
        {{}, 1, "another Lumaveil (pid %1) already publishes frames"},
        {{"--no-publish"},
         0, "frames to nowhere (Frames are not published: another Lumaveil (pid %1) publishes)"},
    };
    for (const Case& c : cases) {
        run(QStringList{"--headless", "--frames", "3"} + c.extra);
        EXPECT_EQ(process.exitCode(), c.exitCode) << err.toStdString();
        EXPECT_TRUE(err.contains(QString::fromLatin1(c.says).arg(firstPid))) << err.toStdString();
        if (c.exitCode != 0) {
            EXPECT_TRUE(err.contains("--no-publish")) << "the way out is named";
        }
        // The first one still owns the camera.
        EXPECT_EQ(reader.otherLiveProducer(), uint32_t(first.processId()));
        const uint32_t seq = reader.frameSeq();
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (reader.frameSeq() == seq && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_NE(reader.frameSeq(), seq) << "its frames still flow";
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

    std::vector<uint8_t> frame;
    ASSERT_TRUE(startPublishing(process,
                                {"--headless", "--source", "Test Pattern", "--effect", "Huge", "--video-size", "64x48"},
                                &frame));
    // The first frame asks for the program and is published without waiting for it: the
    // test pattern, not yet the red.
    size_t red = 0;
    for (size_t i = 0; i + 3 < frame.size(); i += 4)
        red += frame[i] == 255 && frame[i + 1] == 255 && frame[i + 2] == 0 && frame[i + 3] == 0;
    EXPECT_LT(red, frame.size() / 4) << "the frame waited for the shader";
    ::kill(pid_t(process.processId()), SIGTERM);
    ASSERT_TRUE(process.waitForFinished(30000));
    out = QString::fromUtf8(process.readAllStandardOutput());
    EXPECT_EQ(process.exitCode(), 0) << QString::fromUtf8(process.readAllStandardError()).toStdString();
    EXPECT_EQ(lastJsonLine().value(QStringLiteral("signal")).toInt(), SIGTERM) << out.toStdString();
}

TEST_F(LVHeadlessProcessTest, LoadsASavedSetupByNameOrFromAFile)
{
    // A setup saved the way the application saves one, in the folder the run will read.
    LVRegisterAllKinds();
    QString error;
    std::unique_ptr<LVContext> context = LVContext::create(&error);
    ASSERT_TRUE(context) << error.toStdString();
    LVEffectFolders folders;
    folders.bundled = home.filePath(QStringLiteral("no-effects"));
    LVEffectRegistry registry(folders);
    registry.findEffects();
    const LVEffectRef bars = registry.instantiateNamedSource("Test Pattern", context.get());
    ASSERT_TRUE(bars);
    const QString setupDir = home.filePath(QStringLiteral("data/Lumaveil/Saved Setups"));
    {
        LVDefaults defaults(home.filePath(QStringLiteral("builder.json")));
        LVSetupManager manager(defaults, context.get(), setupDir);
        manager.startup();
        ASSERT_TRUE(manager.newSavedSetupWithName(QStringLiteral("Bars Only"), {bars}, &error)) << error.toStdString();
    }

    for (const QString& setup : {QStringLiteral("Bars Only"), setupDir + QStringLiteral("/Bars Only")}) {
        run({"--headless", "--frames", "2", "--setup",
             setup});
        EXPECT_EQ(process.exitCode(), 0) << err.toStdString();
        ASSERT_EQ(statusLines().size(), 1) << err.toStdString();
        EXPECT_TRUE(statusLines().front().contains(QStringLiteral("chain: Test Pattern"))) << statusLines().front().toStdString();
        EXPECT_FALSE(statusLines().front().contains(QStringLiteral("Clock"))) << "the setup replaces the default chain";
        EXPECT_EQ(lastJsonLine().value(QStringLiteral("frames")).toInt(), 2);
    }
}

TEST_F(LVHeadlessProcessTest, TimeDrivenCompositionsAnimateFromTheFirstFrame)
{
    // Red follows TIME through a second; a time base of zero would hold it still.
    useEffects({{"Time Ramp.fs", R"(/*{ "INPUTS": [{"NAME": "inputImage", "TYPE": "image"}] }*/
void main() { gl_FragColor = vec4(fract(TIME), 0.0, 0.0, 1.0); }
)"}});
    process.setArguments({"--headless", "--effect", "Time Ramp", "--fps", "30", "--video-size", "64x48"});
    process.start();
    ASSERT_TRUE(process.waitForStarted());
    std::set<int> reds;
    EXPECT_TRUE(watchFrames([&](const uint8_t* argb) {
        reds.insert(argb[1]);
        return reds.size() >= 3;
    })) << "frames seen with red " << ::testing::PrintToString(reds);
    process.terminate();
    ASSERT_TRUE(process.waitForFinished(30000));
}
