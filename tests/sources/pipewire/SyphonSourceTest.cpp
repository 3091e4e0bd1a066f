#include "../webcam/LVCamTestSupport.h"

#include "render/LVContext.h"
#include "render/pipewire/LVPipeWireOutput.h"
#include "sources/pipewire/LVPipeWireSources.h"
#include "sources/pipewire/SyphonSource.h"
#include "tests/support/LVPipeWireDaemon.h"
#include "tests/support/LVTestSupport.h"

#include <QJsonDocument>
#include <QProcess>

namespace {

// The other program's picture: 16:9, red over blue (B,G,R,A).
constexpr int kNodeWidth = 128;
constexpr int kNodeHeight = 72;
const RGBA kRed{255, 0, 0, 255};
const RGBA kBlue{0, 0, 255, 255};
const RGBA kBlack{0, 0, 0, 255};

// The webcam tests' fixture for its private preferences; the nodes' grabbers need no fake camera.
class SyphonSourceTest : public LVCamFixture {
protected:
    void SetUp() override
    {
        lvEnsureApplication();
        LV_START_PIPEWIRE(daemon);
        ASSERT_NO_FATAL_FAILURE(install({}));
        LVRegisterPipeWireKinds();
        QString error;
        // 4:3, so the 16:9 picture is letter-boxed: 64x36 at row 6.
        context = LVContext::create(QSize(64, 48), &error);
        ASSERT_TRUE(context) << error.toStdString();
    }

    void TearDown() override
    {
        for (auto& program : programs) stopProgram(*program);
        LVPipeWireSources::shutdown();
        context.reset();
        LVCamFixture::TearDown();
    }

    // Another program publishing a node of the given name.
    QProcess& startProgram(const QString& name, const QString& description)
    {
        programs.push_back(std::make_unique<QProcess>());
        QProcess& program = *programs.back();
        program.setProcessEnvironment(daemon->environment());
        program.setProcessChannelMode(QProcess::ForwardedChannels);
        program.start(QStringLiteral(LV_TEST_PIPEWIRE_NODE),
                      {name, description, QString::number(kNodeWidth), QString::number(kNodeHeight),
                       QStringLiteral("0000ffff"), QStringLiteral("ff0000ff")});
        EXPECT_TRUE(program.waitForStarted(5000));
        return program;
    }

    static void stopProgram(QProcess& program)
    {
        if (program.state() == QProcess::NotRunning) return;
        program.terminate();
        program.waitForFinished(5000);
    }

    static bool listed(const QString& name)
    {
        const auto& nodes = LVPipeWireSources::nodes();
        return std::any_of(nodes.begin(), nodes.end(), [&](const LVPipeWireNode& n) { return n.name == name; });
    }

    LVPipeWireNode waitListed(const QString& name)
    {
        EXPECT_TRUE(lvWaitFor([&] { return listed(name); })) << name.toStdString() << " never listed";
        for (const LVPipeWireNode& node : LVPipeWireSources::nodes()) {
            if (node.name == name) return node;
        }
        return {};
    }

    // One frame of the chain with only this source; the pixel at x and row (row 0 on top).
    RGBA render(LVEffect& source, int x, int row)
    {
        context->reset(false);
        source.doit();
        context->flush();
        std::vector<uint8_t> argb(size_t(context->width()) * size_t(context->height()) * 4);
        context->fetchOpenGLPixels(argb.data(), context->width() * 4);
        const uint8_t* p = argb.data() + (size_t(row) * size_t(context->width()) + size_t(x)) * 4;
        return {p[1], p[2], p[3], p[0]};
    }

    // Whether the letter-boxed picture shows: red over blue between black bars.
    bool showsPicture(LVEffect& source)
    {
        return render(source, 32, 10) == kRed && render(source, 32, 35) == kBlue && render(source, 32, 2) == kBlack &&
               render(source, 32, 45) == kBlack;
    }

    bool showsBlack(LVEffect& source) { return render(source, 32, 10) == kBlack && render(source, 32, 35) == kBlack; }

    LVEffectRef makeSource()
    {
        std::unique_ptr<LVEffect> made = SyphonSource::classDescriptor().make();
        made->initWithContext(context.get());
        LVEffectRef source = LVMakeEffectHandle(std::move(made));
        source->setMode(LVModeLive);
        return source;
    }

    static SyphonSource& syphon(const LVEffectRef& effect) { return static_cast<SyphonSource&>(*effect); }

    std::unique_ptr<LVPipeWireDaemon> daemon;
    std::unique_ptr<LVContext> context;
    std::vector<std::unique_ptr<QProcess>> programs;
};

TEST_F(SyphonSourceTest, OtherProgramsNodeIsListedShownHeldWhenItLeavesThenBlackAndTakenUpAgain)
{
    const LVEffectDescriptor* kind = LVEffectClasses::classNamed(QStringLiteral("SyphonSource"));
    ASSERT_TRUE(kind);
    EXPECT_EQ(kind->name, "PipeWire");
    EXPECT_TRUE(kind->isSource());

    LVPipeWireOutput own;
    const std::vector<uint8_t> frame(16 * 16 * 4, 0x80);
    own.pushFrame(frame.data(), 16, 16, 64);
    QProcess& program = startProgram(QStringLiteral("other.program"), QStringLiteral("Other Program"));
    const LVPipeWireNode node = waitListed(QStringLiteral("other.program"));
    ASSERT_TRUE(LVPipeWireSources::refresh());
    EXPECT_FALSE(listed(QStringLiteral("Lumaveil"))) << "never our own";

    LVEffectRef source = makeSource();
    EXPECT_TRUE(syphon(source).serverName().isEmpty());
    EXPECT_EQ(source->statusNote(), "");
    const LVParameterList parameters = source->effectProperties();
    ASSERT_EQ(parameters.size(), 1u);
    EXPECT_EQ(parameters[0].choiceLabels, QStringList{QStringLiteral("Other Program")});
    EXPECT_TRUE(showsBlack(*source)) << "nothing is drawn before a node is picked";
    // Picked through the settings panel, as a user does.
    source->setParameterValue(QLatin1String(SyphonSource::kServerKey), 0);
    EXPECT_EQ(syphon(source).serverName(), node.name);
    EXPECT_TRUE(lvWaitFor([&] { return showsPicture(*source); })) << "the node's picture never showed";

    LVSteppedDelayClock clock;
    stopProgram(program);
    ASSERT_TRUE(lvWaitFor([&] { return !listed(node.name); }));
    EXPECT_EQ(source->statusNote(), "Waiting for \"Other Program\"");
    EXPECT_TRUE(showsPicture(*source)) << "the last picture goes at once";
    clock.advance(LVCamGrabber::kLostPictureHoldMs + 100);
    EXPECT_TRUE(lvWaitFor([&] { return showsBlack(*source); }, 5)) << "the last picture stays for ever";

    startProgram(node.name, node.description);
    EXPECT_TRUE(lvWaitFor([&] { return showsPicture(*source); })) << "the node was not taken up again";
}

TEST_F(SyphonSourceTest, ArchivedNodeIsFoundByNameNowOrWhenItAppears)
{
    const struct {
        const char* what;
        bool presentAtLoad;
    } cases[] = {
        {"node there when the setup loads", true},
        {"node published after the setup loaded", false},
    };
    for (const auto& c : cases) {
        const QString name = QStringLiteral("program.%1").arg(c.presentAtLoad ? "now" : "later");
        if (c.presentAtLoad) {
            startProgram(name, QStringLiteral("Program"));
            waitListed(name);
        }
        const QJsonObject archive{{"class", "SyphonSource"},
                                  {"enabled", true},
                                  {"serverName", name},
                                  {"serverDescription", "Program"}};
        LVEffectRef source = LVEffect::effectFromData(QJsonDocument(archive).toJson(), context.get());
        ASSERT_TRUE(source) << c.what;
        source->setMode(LVModeLive);
        EXPECT_EQ(syphon(source).serverName(), name) << c.what;
        if (!c.presentAtLoad) {
            EXPECT_EQ(source->statusNote(), "Waiting for \"Program\"") << c.what;
            startProgram(name, QStringLiteral("Program"));
        }
        EXPECT_TRUE(lvWaitFor([&] { return showsPicture(*source); })) << c.what;

        // Stored again by name, not by the panel's index.
        const QJsonObject stored = QJsonDocument::fromJson(LVEffect::dataFromEffect(*source)).object();
        EXPECT_EQ(stored.value("serverName").toString(), name) << c.what;
        EXPECT_EQ(stored.value("serverDescription").toString(), "Program") << c.what;
        EXPECT_FALSE(stored.contains(QLatin1String(SyphonSource::kServerKey))) << c.what;
        source->setMode(LVModeOff);
    }
}

} // namespace
