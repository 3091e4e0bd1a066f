// A choice that stands for a preset (Chroma Key's "Background") sets the inputs it names,
// however it is chosen, while a saved setup keeps the values it was saved with.
#include "LVEffectsTestSupport.h"

namespace {

const QString kBackground = QStringLiteral("Background");
const QString kKeyColor = QStringLiteral("keyColor");

} // namespace

TEST_F(LVEffectsTest, EachBackgroundSetsTheKeyColourItKeys)
{
    scan(bundledEffects());
    const LVEffectRef key = make(QStringLiteral("Chroma Key"));
    ASSERT_TRUE(key);
    key->setParameterValue(QStringLiteral("spill"), 0.0);
    // Choices in order, as a user, MIDI or the control socket would make them (by name).
    const struct {
        int background;
        QColor keyColour;
        QColor keyedAway;  // a picture of this colour becomes transparent
    } steps[] = {
        {1, QColor(0, 0, 255), QColor(0, 0, 255)},
        // The custom colour starts from the screen chosen before it.
        {2, QColor(0, 0, 255), QColor(0, 0, 255)},
        {0, QColor(0, 255, 0), QColor(0, 255, 0)},
        {2, QColor(0, 255, 0), QColor(0, 255, 0)},
    };
    chain = {key};
    for (const auto& step : steps) {
        key->setEffectProperty(step.background, kBackground);
        EXPECT_EQ(key->parameterValue(kKeyColor).value<QColor>(), step.keyColour) << step.background;
        EXPECT_EQ(qc(key)->renderer()->valueForInputKey(kKeyColor).value<QColor>(), step.keyColour) << step.background;
        EXPECT_EQ(render(solid(step.keyedAway)).at(3, 3), (ARGB{0, 0, 0, 0})) << step.background;
    }
}

TEST_F(LVEffectsTest, ASavedValueSurvivesTheChoiceThatPresetsItOnLoad)
{
    // The preset input comes first, so a load that applied presets would overwrite it.
    write(QStringLiteral("Tinted.fs"), R"(/*{"INPUTS": [
    {"NAME": "inputImage", "TYPE": "image"},
    {"NAME": "tint", "TYPE": "color", "DEFAULT": [0, 1, 0, 1]},
    {"NAME": "look", "TYPE": "long", "VALUES": [0, 1], "PRESETS": {"1": {"tint": [0, 0, 1, 1]}}}]}*/
void main() { gl_FragColor = IMG_THIS_PIXEL(inputImage) * tint; }
)");
    const LVEffectRef effect = make(QStringLiteral("Tinted"));
    ASSERT_TRUE(effect);
    effect->setParameterValue(QStringLiteral("look"), 1);
    EXPECT_EQ(effect->parameterValue(QStringLiteral("tint")).value<QColor>(), QColor(Qt::blue));
    effect->setParameterValue(QStringLiteral("tint"), QColor(Qt::red));
    const LVEffectRef restored = LVEffect::effectFromData(LVEffect::dataFromEffect(*effect), ctx.get());
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->parameterValue(QStringLiteral("look")).toInt(), 1);
    EXPECT_EQ(restored->parameterValue(QStringLiteral("tint")).value<QColor>(), QColor(Qt::red));
}
