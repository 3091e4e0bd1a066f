// Compositions without an image input serve as sources as well as effects.
#include "effects/composition/LVQCSource.h"
#include "tests/effects/LVEffectsTestSupport.h"

namespace {

QStringList names(const LVEffectRegistry::FactoryList& list)
{
    QStringList out;
    for (const auto& factory : list) out << factory->name();
    return out;
}

} // namespace

TEST_F(LVEffectsTest, GeneratorsAreListedAsSourcesAndEffects)
{
    write(QStringLiteral("Plasma.fs"), R"(/*{"INPUTS": [{"NAME": "speed", "TYPE": "float", "DEFAULT": 1.0}]}*/
void main() { gl_FragColor = vec4(1.0, 0.0, 0.0, 1.0); })");
    write(QStringLiteral("Logo.fs"), R"(/*{"INPUTS": [{"NAME": "logo", "TYPE": "image"}]}*/
void main() { gl_FragColor = IMG_THIS_PIXEL(logo); })");
    write(QStringLiteral("Invert.fs"), R"(/*{"INPUTS": [{"NAME": "inputImage", "TYPE": "image"}]}*/
void main() { gl_FragColor = vec4(1.0) - IMG_THIS_PIXEL(inputImage); })");
    write(QStringLiteral("Legacy.fs"), R"(/*{"INPUTS": [{"NAME": "_protocolInput_Image", "TYPE": "image"}]}*/
void main() { gl_FragColor = IMG_THIS_PIXEL(_protocolInput_Image); })");
    write(QStringLiteral("Fade.fs"), R"(/*{"INPUTS": [{"NAME": "startImage", "TYPE": "image"},
    {"NAME": "endImage", "TYPE": "image"}, {"NAME": "progress", "TYPE": "float"}]}*/
void main() { gl_FragColor = mix(IMG_THIS_PIXEL(startImage), IMG_THIS_PIXEL(endImage), progress); })");
    write(QStringLiteral("Broken.fs"), "/*{ not json */ void main() {}");
    scan();

    const QStringList sources = names(registry->allSources());
    const QStringList effects = names(registry->allEffects());
    struct Case {
        const char* name;
        bool source, effect;
    };
    for (const Case c : {Case{"Plasma", true, true}, Case{"Logo", true, true}, Case{"Invert", false, true},
                         Case{"Legacy", false, true}, Case{"Fade", false, false}, Case{"Broken", false, true},
                         Case{"PIP", false, true}}) {
        EXPECT_EQ(sources.contains(QLatin1String(c.name)), c.source) << c.name;
        EXPECT_EQ(effects.contains(QLatin1String(c.name)), c.effect) << c.name;
    }
    const LVEffectRef source = registry->instantiateNamedSource(QStringLiteral("Plasma"), ctx.get());
    ASSERT_TRUE(source);
    EXPECT_TRUE(source->isSource());
    EXPECT_EQ(source->name(), QStringLiteral("Plasma"));
    ASSERT_EQ(source->effectProperties().size(), 1u);
    const LVEffectRef effect = registry->instantiateNamedEffect(QStringLiteral("Plasma"), ctx.get());
    ASSERT_TRUE(effect);
    EXPECT_FALSE(effect->isSource());
}

TEST_F(LVEffectsTest, ColorBarsAsTheSourceDrawExactBarsAndSurviveASetup)
{
    makeContext(70, 30);
    scan(bundledEffects());
    const LVEffectRef bars = registry->instantiateNamedSource(QStringLiteral("Color Bars"), ctx.get());
    ASSERT_TRUE(bars);
    ASSERT_TRUE(bars->isSource());
    bars->setMode(LVModeLive);

    // What the source draws into a fresh frame (the render loop's order: source first).
    const auto frameOf = [&](const LVEffectRef& source) {
        ctx->setFrameTime(1);
        ctx->reset(false);
        source->doit();
        ctx->flush();
        return read();
    };
    // Seven bars over the upper two thirds (rows 0..19 from the top), below them the reversed row.
    const auto expectBars = [&](const Frame& f, int on, const char* what) {
        const ARGB black{255, 0, 0, 0};
        const ARGB upper[7] = {{255, on, on, on}, {255, on, on, 0}, {255, 0, on, on}, {255, 0, on, 0},
                               {255, on, 0, on},  {255, on, 0, 0},  {255, 0, 0, on}};
        const ARGB lower[7] = {upper[6], black, upper[4], black, upper[2], black, upper[0]};
        for (int column = 0; column < 7; ++column)
            for (const int x : {column * 10, column * 10 + 9})
                for (const int row : {0, 19, 20, 29})
                    EXPECT_EQ(f.at(x, row), row < 20 ? upper[column] : lower[column])
                        << what << " column " << column << " row " << row;
    };
    expectBars(frameOf(bars), 191, "at the default level");

    bars->setEffectProperty(QVariant(1.0), QStringLiteral("Level"));
    const QByteArray data = LVEffect::dataFromEffect(*bars);
    const LVEffectRef back = LVEffect::effectFromData(data, ctx.get());
    ASSERT_TRUE(back);
    EXPECT_TRUE(back->isSource());
    EXPECT_EQ(back->name(), QStringLiteral("Color Bars"));
    back->setMode(LVModeLive);
    expectBars(frameOf(back), 255, "restored at full level");
}
