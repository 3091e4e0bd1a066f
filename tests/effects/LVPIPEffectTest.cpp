// Picture in picture with a second source that is itself an effect.
#include "LVEffectsTestSupport.h"

#include "effects/pip/PIPEffect.h"

class LVPIPTest : public LVEffectsTest {
protected:
    void SetUp() override
    {
        LVEffectsTest::SetUp();
        write(QStringLiteral("Green.fs"), "/*{}*/\nvoid main() { gl_FragColor = vec4(0.0, 1.0, 0.0, 1.0); }\n");
        write(QStringLiteral("Dot.fs"), "/*{}*/\nvoid main() { gl_FragColor = gl_FragCoord.x < 1.0 ? vec4(1.0) : vec4(0.0); }\n");
        scan(bundledEffects());
        // The bundled folder gives the resources; the test folder gives the sources.
        registry->loadEffectsFrom(dir.path(), false, LVEffectOrigin::UserFolder);
    }

    // An inset from the top-left corner, size times the frame, without a border.
    std::shared_ptr<PIPEffect> makePIP(const QString& source, double size)
    {
        auto pip = std::make_shared<PIPEffect>();
        pip->initWithContext(ctx.get(), source.isEmpty() ? nullptr : registry->instantiateNamedEffect(source, ctx.get()));
        pip->setParameterValue(QStringLiteral("PIP_X_Position"), 0.0);
        pip->setParameterValue(QStringLiteral("PIP_Y_Position"), 0.0);
        pip->setParameterValue(QStringLiteral("size"), size);
        pip->setParameterValue(QStringLiteral("borderWidth"), 0.0);
        pip->setMode(LVModeLive);
        return pip;
    }
};

TEST_F(LVPIPTest, TheInsetShowsTheSecondSourceAndNoSourceLeavesTheVideo)
{
    const ARGB blue{255, 0, 0, 255}, green{255, 0, 255, 0};
    const struct {
        const char* source;
        const char* name;
        ARGB centre, corner;
    } cases[] = {{"Green", "PIP Green", green, blue}, {"", "PIP", blue, blue}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto pip = makePIP(QString::fromLatin1(c.source), 0.5);
        EXPECT_EQ(pip->name(), QLatin1String(c.name));
        chain = {pip};
        const Frame f = render(solid(Qt::blue));
        EXPECT_EQ(f.at(8, 4), c.centre);
        EXPECT_EQ(f.at(1, 1), c.corner);
        EXPECT_EQ(f.at(14, 6), c.corner);
    }
}

TEST_F(LVPIPTest, ArchiveRestoresPortsAndTheEmbeddedSource)
{
    auto pip = makePIP(QStringLiteral("Green"), 0.7);
    LVEffectRef restored = LVEffect::effectFromData(LVEffect::dataFromEffect(*pip), ctx.get());
    auto* back = dynamic_cast<PIPEffect*>(restored.get());
    ASSERT_TRUE(back);
    EXPECT_DOUBLE_EQ(back->parameterValue(QStringLiteral("size")).toDouble(), 0.7);
    ASSERT_TRUE(back->getOtherEffect());
    EXPECT_EQ(back->getOtherEffect()->name(), QStringLiteral("Green"));
    EXPECT_EQ(back->name(), QStringLiteral("PIP Green"));
}

TEST_F(LVPIPTest, WithoutClearingTheSourceDrawsOverItsLastFrame)
{
    auto pip = makePIP(QStringLiteral("Dot"), 1.0);
    chain = {pip};
    // Dot draws white in column 0 and transparent elsewhere: the main picture shows through.
    EXPECT_EQ(render(solid(Qt::red)).at(5, 3), (ARGB{255, 255, 0, 0}));
    EXPECT_EQ(render(solid(Qt::red)).at(0, 3), (ARGB{255, 255, 255, 255}));
    pip->setParameterValue(QStringLiteral("Clear_background"), false);
    EXPECT_EQ(render(solid(Qt::red)).at(0, 3), (ARGB{255, 255, 255, 255}));
}

TEST_F(LVPIPTest, SwappedSourcesKeepRunningWhereTheyGo)
{
    auto pip = makePIP(QStringLiteral("Green"), 0.5);
    EXPECT_EQ(pip->getOtherEffect()->mode(), LVModeLive);
    LVOtherSourceHolder* holder = pip.get();
    LVEffectRef main = registry->instantiateNamedEffect(QStringLiteral("Dot"), ctx.get());
    main->setMode(LVModeLive);
    // As the controller swaps: the embedded source joins the chain, the chain's goes in.
    for (int i = 0; i < 2; ++i) {
        LVEffectRef embedded = holder->getOtherEffect();
        holder->setOtherEffect(main);
        main = embedded;
        EXPECT_EQ(main->mode(), LVModeLive);
        EXPECT_EQ(holder->getOtherEffect()->mode(), LVModeLive);
    }
    EXPECT_EQ(pip->name(), QStringLiteral("PIP Green"));
}
