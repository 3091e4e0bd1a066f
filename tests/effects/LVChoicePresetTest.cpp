// A choice that stands for a preset (Chroma Key's "Background") sets the inputs it names,
// however it is chosen.
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
