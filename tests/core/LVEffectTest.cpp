#include "TestEffects.h"

#include "core/LVDefaults.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

namespace {

class EffectModel : public testing::Test {
protected:
    void SetUp() override
    {
        defaults_ = std::make_unique<LVDefaults>(dir_.filePath("prefs.json"));
        LVDefaults::setStandardUserDefaults(defaults_.get());
        LVEffectClasses::registerClass(&blurDescriptor());
        LVEffectClasses::registerClass(&sourceDescriptor());
    }
    void TearDown() override { LVDefaults::setStandardUserDefaults(nullptr); }

    static LVEffectRef newBlur()
    {
        auto effect = blurDescriptor().make();
        effect->initWithContext(nullptr);
        return LVMakeEffectHandle(std::move(effect));
    }

    QTemporaryDir dir_;
    std::unique_ptr<LVDefaults> defaults_;
};

TEST_F(EffectModel, DisplayNameCarriesTheSetupUntilRenamed)
{
    auto blur = newBlur();
    EXPECT_EQ(blur->name(), "Blur");
    blur->setSavedSetupName("Morning");
    EXPECT_EQ(blur->displayName(), "Blur (Morning)");
    blur->setDisplayName("Soft");
    EXPECT_EQ(blur->name(), "Soft");
    EXPECT_EQ(blur->displayName(), "Soft (Morning)");
}

TEST_F(EffectModel, EffectsOfTheSameNameShareOnePreferencesDictionary)
{
    auto a = newBlur(), b = newBlur();
    a->setDefault(7, "strength");
    EXPECT_EQ(b->defaultForKey("strength").toInt(), 7);
    b->setName("Other");
    EXPECT_TRUE(b->defaultForKey("strength").isUndefined());
    // Written through to the file at once.
    LVDefaults reread(defaults_->path());
    EXPECT_EQ(reread.dictionaryForKey("Blur").value("strength").toInt(), 7);
}

TEST_F(EffectModel, ArchiveRoundTripKeepsKeysAndParameters)
{
    auto blur = newBlur();
    EXPECT_FALSE(QJsonDocument::fromJson(LVEffect::dataFromEffect(*blur)).object().contains("name")) << "unnamed";
    blur->setName("Soft");
    blur->setEnabled(false);
    blur->setParameterValue("radius", 4.5);
    blur->setEffectProperty(QColor(255, 0, 0), "Tint");

    const QByteArray data = LVEffect::dataFromEffect(*blur);
    const QJsonObject json = QJsonDocument::fromJson(data).object();
    EXPECT_EQ(json.value("class").toString(), "TestBlur");
    EXPECT_FALSE(json.value("enabled").toBool(true));
    EXPECT_EQ(json.value("name").toString(), "Soft");

    auto copy = LVEffect::effectFromData(data, nullptr);
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->name(), "Soft");
    EXPECT_FALSE(copy->isEnabled());
    EXPECT_DOUBLE_EQ(copy->parameterValue("radius").toDouble(), 4.5);
    EXPECT_EQ(copy->effectPropertyForName("Tint").value<QColor>(), QColor(255, 0, 0));
    EXPECT_EQ(copy->parameterValue("label").toString(), "hello");
}

// A hand-edited setup: no "enabled" reads as disabled, values out of range or of the wrong type
// are tamed.
TEST_F(EffectModel, SavedValuesOutOfRangeOrOfTheWrongTypeAreTamed)
{
    auto bare = LVEffect::effectFromData(R"({"class":"TestBlur"})", nullptr);
    ASSERT_TRUE(bare);
    EXPECT_FALSE(bare->isEnabled());
    EXPECT_EQ(bare->name(), "Blur");
    auto decoded = LVEffect::effectFromData(R"({"class":"TestBlur","enabled":true,"radius":99,"soft":"yes","tint":[2,0.5,-1]})",
                                            nullptr);
    ASSERT_TRUE(decoded);
    EXPECT_DOUBLE_EQ(decoded->parameterValue("radius").toDouble(), 10.0);
    EXPECT_TRUE(decoded->parameterValue("soft").toBool());  // the default
    EXPECT_EQ(decoded->parameterValue("tint").value<QColor>(), QColor::fromRgbF(1, 0.5f, 0, 1));
}

TEST_F(EffectModel, LegacyDesktopEffectDecodesAsDesktopLion)
{
    registerNamedKind("DesktopLion", "Desktop", LVEffectRole::Source);
    LVEffect::remapEffect("DesktopEffect", "DesktopLion");
    const QByteArray data = R"({"class":"DesktopEffect","enabled":true})";
    const LVEffectDescriptor* cls = LVEffect::effectClassFromData(data, nullptr);
    ASSERT_TRUE(cls);
    EXPECT_EQ(cls->className, "DesktopLion");
    auto effect = LVEffect::effectFromData(data, nullptr);
    ASSERT_TRUE(effect);
    EXPECT_EQ(effect->descriptor().className, "DesktopLion");
}

struct DamagedCase {
    const char* what;
    QByteArray data;
    const char* expectedLog;
};

class DamagedArchive : public EffectModel, public testing::WithParamInterface<DamagedCase> {};

TEST_P(DamagedArchive, DecodesToNothingWithALineThatSaysWhy)
{
    registerNamedKind("NeedsKey", "Needs Key", LVEffectRole::Effect);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(LVEffect::effectFromData(GetParam().data, nullptr)) << GetParam().what;
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find(GetParam().expectedLog), std::string::npos) << log;
}

INSTANTIATE_TEST_SUITE_P(
    Table, DamagedArchive,
    testing::Values(DamagedCase{"unknown class", R"({"class":"FutureEffect","enabled":true})", "\"FutureEffect\""},
                    DamagedCase{"not JSON", "\x00\x01garbage", "not JSON"},
                    DamagedCase{"truncated", R"({"class":"TestBl)", "not JSON"},
                    DamagedCase{"array", R"([1,2,3])", "not a JSON object"},
                    DamagedCase{"no class", R"({"enabled":true})", "\"class\""},
                    DamagedCase{"missing required key", R"({"class":"NeedsKey"})", "\"NeedsKey\""}));

TEST_F(EffectModel, PropertyLookupByUserFacingName)
{
    auto blur = newBlur();
    EXPECT_EQ(blur->propertyInfoForName("Radius")->key, "radius");
    EXPECT_FALSE(blur->propertyInfoForName("radius"));
    auto source = sourceDescriptor().make();
    EXPECT_FALSE(source->propertyInfoForName("Anything"));

    blur->setEffectProperty(QVariantMap{{"property", "Radius"}, {"value", 3}});
    EXPECT_DOUBLE_EQ(blur->parameterValue("radius").toDouble(), 3.0);
}

TEST_F(EffectModel, DestructRunsWhenTheLastHandleGoes)
{
    TestBlur::destructCount = 0;
    auto handle = newBlur();
    auto second = handle;
    handle.reset();
    EXPECT_EQ(TestBlur::destructCount, 0);
    second.reset();
    EXPECT_EQ(TestBlur::destructCount, 1);
}

// Each effect learns what the effects after it read of its output, from the last one back; a
// disabled effect is passed over unless it draws too, what reads nothing leaves nothing to draw
// before it, and it is all forgotten when the frame ends.
TEST(ChainAreas, WorkedOutFromTheLastEffectBack)
{
    // Reads its output's area grown by a pixel, or the given rectangle.
    class Reader : public TestBlur {
    public:
        explicit Reader(std::optional<QRect> reads = std::nullopt) : reads_(reads) {}
        std::optional<QRect> inputAreaFor(const QRect& output, QSize) const override
        {
            return reads_ ? reads_ : std::optional(output.adjusted(-1, -1, 1, 1));
        }

    private:
        std::optional<QRect> reads_;
    };
    auto make = [](std::optional<QRect> reads, bool enabled) {
        auto effect = std::make_unique<Reader>(reads);
        effect->setEnabled(enabled);
        return LVMakeEffectHandle(std::move(effect));
    };
    const QRect middle(10, 10, 20, 20);
    const std::vector<LVEffectRef> chain = {make(std::nullopt, true), make(std::nullopt, true), make(QRect(), false),
                                            make(middle, true), make(std::nullopt, true)};
    const std::vector<LVEffectRef> nothingRead = {make(std::nullopt, true), make(QRect(), true)};
    {
        const LVChainAreas areas(chain, QSize(64, 48));
        // The last is read whole; growing the whole frame is still the whole frame.
        EXPECT_EQ(chain[4]->areaRead(), std::nullopt);
        EXPECT_EQ(chain[3]->areaRead(), std::nullopt);
        EXPECT_EQ(chain[2]->areaRead(), std::nullopt);
        EXPECT_EQ(chain[1]->areaRead(), middle);
        EXPECT_EQ(chain[0]->areaRead(), middle.adjusted(-1, -1, 1, 1));
        const LVChainAreas none(nothingRead, QSize(64, 48));
        EXPECT_EQ(nothingRead[0]->areaRead(), QRect());
    }
    {
        // Where disabled effects draw too (a studio bus), the one that reads nothing counts.
        const LVChainAreas areas(chain, QSize(64, 48), true);
        EXPECT_EQ(chain[2]->areaRead(), middle);
        EXPECT_EQ(chain[1]->areaRead(), QRect());
    }
    for (const LVEffectRef& effect : chain) EXPECT_EQ(effect->areaRead(), std::nullopt);
}

} // namespace
