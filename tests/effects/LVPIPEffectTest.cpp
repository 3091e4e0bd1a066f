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

    std::shared_ptr<PIPEffect> makePIP(const QString& source)
    {
        auto pip = std::make_unique<PIPEffect>();
        pip->initWithContext(ctx.get(), source.isEmpty() ? nullptr : registry->instantiateNamedEffect(source, ctx.get()));
        return std::shared_ptr<PIPEffect>(std::move(pip));
    }
};

TEST_F(LVPIPTest, ShowsTheSecondSourceInsideTheMainPicture)
{
    auto pip = makePIP(QStringLiteral("Green"));
    EXPECT_EQ(pip->name(), QStringLiteral("PIP Green"));
    pip->setParameterValue(QStringLiteral("PIP_X_Position"), 0.0);
    pip->setParameterValue(QStringLiteral("PIP_Y_Position"), 0.0);
    pip->setParameterValue(QStringLiteral("size"), 0.5);
    pip->setParameterValue(QStringLiteral("borderWidth"), 0.0);
    pip->setMode(LVModeLive);
    EXPECT_EQ(pip->getOtherEffect()->mode(), LVModeLive);
    chain = {pip};
    const Frame f = render(solid(Qt::blue));
    EXPECT_EQ(f.at(8, 4), (ARGB{255, 0, 255, 0}));
    EXPECT_EQ(f.at(1, 1), (ARGB{255, 0, 0, 255}));
    EXPECT_EQ(f.at(14, 6), (ARGB{255, 0, 0, 255}));
    const auto params = pip->effectProperties();
    EXPECT_EQ(params[1].name, QStringLiteral("PIP Position"));
}

TEST_F(LVPIPTest, WithoutASecondSourceTheVideoPassesUnchanged)
{
    auto pip = makePIP(QString());
    EXPECT_EQ(pip->name(), QStringLiteral("PIP"));
    pip->setMode(LVModeLive);
    chain = {pip};
    const Frame f = render(solid(Qt::blue));
    for (auto [x, row] : {std::pair{0, 0}, std::pair{8, 4}, std::pair{15, 7}}) {
        EXPECT_EQ(f.at(x, row), (ARGB{255, 0, 0, 255})) << x << "," << row;
    }
}

TEST_F(LVPIPTest, ArchiveRestoresPortsAndTheEmbeddedSource)
{
    auto pip = makePIP(QStringLiteral("Green"));
    pip->setParameterValue(QStringLiteral("size"), 0.7);
    const QByteArray data = LVEffect::dataFromEffect(*pip);
    LVEffectRef restored = LVEffect::effectFromData(data, ctx.get());
    auto* back = dynamic_cast<PIPEffect*>(restored.get());
    ASSERT_TRUE(back);
    EXPECT_DOUBLE_EQ(back->parameterValue(QStringLiteral("size")).toDouble(), 0.7);
    ASSERT_TRUE(back->getOtherEffect());
    EXPECT_EQ(back->getOtherEffect()->name(), QStringLiteral("Green"));
    EXPECT_EQ(back->name(), QStringLiteral("PIP Green"));
}

TEST_F(LVPIPTest, WithoutClearingTheSourceDrawsOverItsLastFrame)
{
    auto pip = makePIP(QStringLiteral("Dot"));
    pip->setParameterValue(QStringLiteral("size"), 1.0);
    pip->setParameterValue(QStringLiteral("PIP_X_Position"), 0.0);
    pip->setParameterValue(QStringLiteral("PIP_Y_Position"), 0.0);
    pip->setParameterValue(QStringLiteral("borderWidth"), 0.0);
    chain = {pip};
    // Dot draws white in column 0 and transparent elsewhere: the main picture shows through.
    EXPECT_EQ(render(solid(Qt::red)).at(5, 3), (ARGB{255, 255, 0, 0}));
    EXPECT_EQ(render(solid(Qt::red)).at(0, 3), (ARGB{255, 255, 255, 255}));
    pip->setParameterValue(QStringLiteral("Clear_background"), false);
    EXPECT_EQ(render(solid(Qt::red)).at(0, 3), (ARGB{255, 255, 255, 255}));
}

TEST_F(LVPIPTest, SwapGoesThroughTheController)
{
    auto pip = makePIP(QStringLiteral("Green"));
    int swaps = 0;
    PIPEffect::setSwapHandler([&](PIPEffect& which) {
        EXPECT_EQ(&which, pip.get());
        ++swaps;
    });
    pip->doSwap();
    pip->doSwap();
    EXPECT_EQ(swaps, 2);
    PIPEffect::setSwapHandler(nullptr);
}

TEST_F(LVPIPTest, SwappedSourcesKeepRunningWhereTheyGo)
{
    auto pip = makePIP(QStringLiteral("Green"));
    pip->setMode(LVModeLive);
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
