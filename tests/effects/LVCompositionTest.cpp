// The composition runtime: headers, parameters, compiling old GLSL, passes, built-ins.
#include "LVEffectsTestSupport.h"

#include "core/LVKeyedArchive.h"
#include "core/util/LVBoundedRead.h"
#include "effects/composition/LVISFExpression.h"
#include "effects/composition/LVISFProgram.h"
#include "effects/composition/SimpleQCRenderer.h"

#include <QPointF>

namespace {

const QByteArray kAllInputs = R"(/*{
    "DESCRIPTION": "every kind of input",
    "CREDIT": "someone",
    "INPUTS": [
        {"NAME": "inputImage", "TYPE": "image"},
        {"NAME": "flag", "TYPE": "bool", "DEFAULT": true},
        {"NAME": "mode", "LABEL": "Mode", "TYPE": "long", "VALUES": [0, 5], "LABELS": ["A", "B"], "DEFAULT": 5,
         "PRESETS": {"0": {"gain": 0.25}}},
        {"NAME": "gain", "LABEL": "Gain", "TYPE": "float", "DEFAULT": 0.5, "MIN": 0, "MAX": 2},
        {"NAME": "loose", "TYPE": "float", "DEFAULT": 3},
        {"NAME": "Font_Size", "TYPE": "float", "DEFAULT": 0.1},
        {"NAME": "Font_Name", "TYPE": "text", "DEFAULT": "DejaVu Sans"},
        {"NAME": "caption", "LABEL": "static_text", "TYPE": "text", "DEFAULT": "hello"},
        {"NAME": "where", "TYPE": "point2D", "DEFAULT": [1, 2], "MIN": [0, 0], "MAX": [10, 10]},
        {"NAME": "tint", "TYPE": "color", "DEFAULT": [1, 0, 0, 1]},
        {"NAME": "logo", "TYPE": "image"},
        {"NAME": "bang", "TYPE": "event"},
        {"NAME": "Logo_X_Position", "TYPE": "float"},
        {"NAME": "Logo_Y_Position", "TYPE": "float"},
        {"NAME": "X_Position", "TYPE": "float", "DEFAULT": 0.25},
        {"NAME": "_hidden", "TYPE": "float"},
        {"NAME": "shy", "LABEL": "_shy", "TYPE": "float"},
        {"NAME": "sound", "TYPE": "audio"}
    ]
}*/
void main() { gl_FragColor = IMG_THIS_PIXEL(inputImage); }
)";

} // namespace

TEST(LVISFExpressionTest, EvaluatesPassSizes)
{
    const QHash<QString, double> vars{{QStringLiteral("WIDTH"), 640}, {QStringLiteral("HEIGHT"), 360},
                                      {QStringLiteral("scale"), 4}};
    const struct {
        const char* expr;
        std::optional<double> value;
    } cases[] = {
        {"$WIDTH/2", 320},           {"floor($HEIGHT/$scale)+1", 91}, {"max(1.0, $WIDTH*-0.5)", 1},
        {"-(2+3)*2", -10},           {"pow(2,3)", 8},                 {"$DEPTH", std::nullopt},
        {"$WIDTH/", std::nullopt},   {"nope(1)", std::nullopt},       {"(1", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(LVISFEvaluate(QString::fromLatin1(c.expr), vars), c.value) << c.expr;
}

TEST_F(LVEffectsTest, DamagedCompositionsAreReportedWithFileAndLine)
{
    const struct {
        const char* text;
        const char* message;
        int line;
    } cases[] = {
        {"void main() {}", "no /*{", 1},
        {"/*{\n  \"INPUTS\": [\n  {\"NAME\": \"a\",, }\n]}*/\nvoid main(){}", "not valid JSON", 3},
        {"/*{\"INPUTS\": {}}*/", "\"INPUTS\" is not an array", 1},
        {"/*{\"INPUTS\": [{\"NAME\": \"a\", \"TYPE\": \"float3\"}]}*/", "unknown TYPE \"float3\"", 1},
        {"/*{\"INPUTS\": [{\"NAME\": \"a\", \"TYPE\": \"float\"}, {\"NAME\": \"a\", \"TYPE\": \"bool\"}]}*/", "declared twice", 1},
        {"/*{\"INPUTS\": [{\"TYPE\": \"float\"}]}*/", "no usable NAME", 1},
        {"/*{\"IMPORTED\": {\"pic\": {\"PATH\": \"missing.png\"}}}*/", "imported image \"pic\" not found", 1},
        {"/*{\"PASSES\": [{\"TARGET\": \"gain\"}], \"INPUTS\": [{\"NAME\": \"gain\", \"TYPE\": \"float\"}]}*/",
         "has the name of an input", 1},
        {"/*{\"INPUTS\": [{\"NAME\": \"m\", \"TYPE\": \"float\", \"PRESETS\": {}}]}*/", "needs a long input with VALUES", 1},
        {"/*{\"INPUTS\": [{\"NAME\": \"m\", \"TYPE\": \"long\", \"VALUES\": [0, 1], \"PRESETS\": {\"2\": {}}}]}*/",
         "\"2\", which is not one of its VALUES", 1},
        {"/*{\"INPUTS\": [{\"NAME\": \"m\", \"TYPE\": \"long\", \"VALUES\": [0], \"PRESETS\": {\"0\": {\"tint\": 1}}}]}*/",
         "cannot set \"tint\"", 1},
        {"/*{\"INPUTS\": [{\"NAME\": \"m\", \"TYPE\": \"long\", \"VALUES\": [0], \"PRESETS\": {\"0\": {\"c\": [1]}}},"
         " {\"NAME\": \"c\", \"TYPE\": \"color\"}]}*/",
         "cannot set \"c\"", 1},
    };
    for (const auto& c : cases) {
        const QString path = write(QStringLiteral("Broken.fs"), c.text);
        const auto composition = LVComposition::parse(path, c.text, {});
        EXPECT_FALSE(composition->isValid()) << c.text;
        EXPECT_TRUE(composition->error().startsWith(QStringLiteral("%1:%2: ").arg(path).arg(c.line)))
            << composition->error().toStdString();
        EXPECT_TRUE(composition->error().contains(QLatin1String(c.message))) << composition->error().toStdString();
    }
}

TEST_F(LVEffectsTest, InputsBecomeParametersByTheirRules)
{
    const auto c = LVComposition::parse(write(QStringLiteral("All.fs"), kAllInputs), kAllInputs, {});
    ASSERT_TRUE(c->isValid()) << c->error().toStdString();
    EXPECT_EQ(c->imageInputKey(), QStringLiteral("inputImage"));
    EXPECT_TRUE(c->isFilter());
    EXPECT_TRUE(c->isPointwise());

    // Editors other than the type's own: the font, the fixed line, the pad and its Y.
    using E = LVParameterEditor;
    struct Expected {
        const char* key;
        const char* name;
        LVParameterType type;
        QVariant def, min, max;
        LVParameterEditor editor = E::Standard;
    };
    const Expected expected[] = {
        {"flag", "flag", LVParameterType::Bool, true, {}, {}},
        {"mode", "Mode", LVParameterType::Choice, 5, {}, {}},
        {"gain", "Gain", LVParameterType::Float, 0.5, 0.0, 2.0},
        {"loose", "loose", LVParameterType::Float, 3.0, {}, {}},
        {"Font_Size", "Font_Size", LVParameterType::Float, 0.1, 0.01, 2.0},
        {"Font_Name", "Font_Name", LVParameterType::Text, QStringLiteral("DejaVu Sans"), {}, {}, E::Font},
        {"caption", "static_text", LVParameterType::Text, QStringLiteral("hello"), {}, {}, E::FixedText},
        {"where", "where", LVParameterType::Point2D, QPointF(1, 2), QPointF(0, 0), QPointF(10, 10)},
        {"tint", "tint", LVParameterType::Color, QColor::fromRgbF(1, 0, 0, 1), {}, {}},
        {"logo", "logo", LVParameterType::Image, QString(), {}, {}},
        {"bang", "bang", LVParameterType::Event, false, {}, {}},
        {"Logo_X_Position", "Logo Position", LVParameterType::Float, 0.0, -1.0, 1.0, E::XYPad},
        {"Logo_Y_Position", "Logo Position Y", LVParameterType::Float, 0.0, -1.0, 1.0, E::PairedAxis},
        {"X_Position", "X_Position", LVParameterType::Float, 0.25, -1.0, 1.0},
    };
    const LVParameterList parameters = c->parameters();
    ASSERT_EQ(parameters.size(), std::size(expected));
    for (size_t i = 0; i < parameters.size(); ++i) {
        const LVParameter& p = parameters[i];
        const Expected& e = expected[i];
        EXPECT_EQ(p.key, QLatin1String(e.key));
        EXPECT_EQ(p.name, QLatin1String(e.name)) << e.key;
        EXPECT_EQ(p.type, e.type) << e.key;
        EXPECT_EQ(p.defaultValue, e.def) << e.key;
        EXPECT_EQ(p.minimum, e.min) << e.key;
        EXPECT_EQ(p.maximum, e.max) << e.key;
        EXPECT_EQ(p.editor, e.editor) << e.key;
    }
    EXPECT_EQ(parameters[1].choiceLabels, (QStringList{QStringLiteral("A"), QStringLiteral("B")}));
    EXPECT_EQ(parameters[1].choiceValues, (QList<int>{0, 5}));
    EXPECT_EQ(parameters[11].pairedKey, QStringLiteral("Logo_Y_Position"));
}

TEST_F(LVEffectsTest, SavedValuesAreClampedAndRoundTrip)
{
    write(QStringLiteral("All.fs"), kAllInputs);
    LVEffectRef effect = make(QStringLiteral("All"));
    ASSERT_TRUE(effect);
    EXPECT_EQ(qc(effect)->patchAttributes().size(), 13);
    // A choice with a preset sets the input it names; a value set after it is what is saved.
    effect->setParameterValue(QStringLiteral("mode"), 0);
    EXPECT_DOUBLE_EQ(effect->parameterValue(QStringLiteral("gain")).toDouble(), 0.25);
    effect->setParameterValue(QStringLiteral("gain"), 1.5);
    effect->setName(QStringLiteral("Mine"));
    const QByteArray data = LVEffect::dataFromEffect(*effect);

    LVKeyedUnarchiver reader(data);
    QJsonObject saved = reader.object();
    EXPECT_EQ(saved.value(QStringLiteral("fileName")).toString(), QStringLiteral("All.fs"));
    EXPECT_EQ(saved.value(QStringLiteral("class")).toString(), QStringLiteral("LVQCEffect"));
    EXPECT_FALSE(saved.contains(QStringLiteral("_hidden")));
    EXPECT_FALSE(saved.contains(QStringLiteral("caption")));

    LVEffectRef restored = LVEffect::effectFromData(data, ctx.get());
    ASSERT_TRUE(restored);
    EXPECT_EQ(restored->name(), QStringLiteral("Mine"));
    EXPECT_EQ(restored->parameterValue(QStringLiteral("mode")).toInt(), 0);
    EXPECT_DOUBLE_EQ(restored->parameterValue(QStringLiteral("gain")).toDouble(), 1.5);
    EXPECT_DOUBLE_EQ(qc(restored)->renderer()->valueForInputKey(QStringLiteral("gain")).toDouble(), 1.5);

    // A hand-edited setup: out of range, wrong type, unknown menu value.
    saved.insert(QStringLiteral("gain"), 99);
    saved.insert(QStringLiteral("Logo_X_Position"), -7);
    saved.insert(QStringLiteral("flag"), QStringLiteral("yes"));
    saved.insert(QStringLiteral("mode"), 3);
    LVKeyedArchiver edited;
    for (auto it = saved.begin(); it != saved.end(); ++it) edited.encodeValue(it.key(), it.value());
    LVEffectRef clamped = LVEffect::effectFromData(edited.finishEncoding(), ctx.get());
    ASSERT_TRUE(clamped);
    EXPECT_DOUBLE_EQ(clamped->parameterValue(QStringLiteral("gain")).toDouble(), 2.0);
    EXPECT_DOUBLE_EQ(clamped->parameterValue(QStringLiteral("Logo_X_Position")).toDouble(), -1.0);
    EXPECT_EQ(clamped->parameterValue(QStringLiteral("flag")).toBool(), true);
    EXPECT_EQ(clamped->parameterValue(QStringLiteral("mode")).toInt(), 5);
    EXPECT_DOUBLE_EQ(qc(clamped)->renderer()->valueForInputKey(QStringLiteral("gain")).toDouble(), 2.0);
}

TEST_F(LVEffectsTest, CompileErrorDrawsNothingAndTheChainGoesOn)
{
    write(QStringLiteral("Bad.fs"), "/*{\"INPUTS\": [{\"NAME\": \"inputImage\", \"TYPE\": \"image\"}]}*/\n"
                                    "void main() {\n"
                                    "    gl_FragColor = vec4(undeclaredThing);\n"
                                    "}\n");
    write(QStringLiteral("Red.fs"), "/*{}*/\nvoid main() { gl_FragColor = vec4(1.0, 0.0, 0.0, 1.0); }\n");
    testing::internal::CaptureStderr();
    chain = {make(QStringLiteral("Bad")), make(QStringLiteral("Red"))};
    Frame first = render(solid(Qt::blue));
    render(solid(Qt::blue));
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_EQ(first.at(3, 3), (ARGB{255, 255, 0, 0}));
    EXPECT_NE(log.find("undeclaredThing"), std::string::npos) << log;
    // Reported once, not every frame.
    EXPECT_EQ(log.find("does not compile"), log.rfind("does not compile")) << log;

    chain = {make(QStringLiteral("Bad"))};
    EXPECT_EQ(render(solid(Qt::blue)).at(0, 0), (ARGB{255, 0, 0, 255}));
}

// Written the way much published ISF is: GLSL 1.20, varyings from a companion vertex
// shader, texture2D, gl_FragColor and a __VERSION__ branch.
TEST_F(LVEffectsTest, OldStyleShaderWithCompanionVertexShaderCompilesUnchanged)
{
    write(QStringLiteral("Shift.fs"), R"(/*{
    "ISFVSN": "2",
    "INPUTS": [{"NAME": "inputImage", "TYPE": "image"}, {"NAME": "shift", "TYPE": "float", "DEFAULT": 1.0}]
}*/
#version 120
#if __VERSION__ <= 120
varying vec2 left_coord;
#else
in vec2 left_coord;
#endif
void main()
{
    gl_FragColor = texture2D(inputImage, left_coord);
}
)");
    write(QStringLiteral("Shift.vs"), R"(#version 120
varying vec2 left_coord;
void main()
{
    isf_vertShaderInit();
    left_coord = isf_FragNormCoord - vec2(shift / RENDERSIZE.x, 0.0);
}
)");
    QImage stripes(16, 8, QImage::Format_ARGB32);
    for (int x = 0; x < 16; ++x)
        for (int y = 0; y < 8; ++y) stripes.setPixel(x, y, x % 2 ? 0xFFFF0000u : 0xFF0000FFu);
    chain = {make(QStringLiteral("Shift"))};
    ASSERT_TRUE(qc(chain[0])->renderer()->isUsable());
    const Frame f = render(stripes);
    for (int x = 1; x < 16; ++x) EXPECT_EQ(f.at(x, 4), (x % 2 ? ARGB{255, 0, 0, 255} : ARGB{255, 255, 0, 0})) << x;
}

TEST_F(LVEffectsTest, PersistentFloatBufferAccumulatesAcrossFrames)
{
    write(QStringLiteral("Accumulate.fs"), R"(/*{
    "INPUTS": [{"NAME": "step", "TYPE": "float", "DEFAULT": 0.1}],
    "PASSES": [{"TARGET": "sum", "PERSISTENT": true, "FLOAT": true, "WIDTH": "1", "HEIGHT": "1"}, {}]
}*/
void main()
{
    if (PASSINDEX == 0)
        gl_FragColor = IMG_NORM_PIXEL(sum, vec2(0.5)) + vec4(step);
    else
        gl_FragColor = vec4(IMG_NORM_PIXEL(sum, vec2(0.5)).rgb, 1.0);
}
)");
    chain = {make(QStringLiteral("Accumulate"))};
    // 0.1 five times is exactly 0.5 only in a float buffer (8-bit steps would drift).
    Frame f;
    for (int i = 0; i < 5; ++i) f = render(solid(Qt::black));
    EXPECT_EQ(f.at(0, 0), (ARGB{255, 128, 128, 128}));
}

TEST_F(LVEffectsTest, PassSizesTargetsAndSkippedPasses)
{
    write(QStringLiteral("Sizes.fs"), R"(/*{
    "INPUTS": [{"NAME": "divisor", "TYPE": "float", "DEFAULT": 4.0}],
    "PASSES": [
        {"TARGET": "small", "WIDTH": "$WIDTH/$divisor", "HEIGHT": "$HEIGHT/2"},
        {"TARGET": "unused"},
        {}
    ]
}*/
void main()
{
    if (PASSINDEX == 0)
        gl_FragColor = vec4(RENDERSIZE / 255.0, 0.0, 1.0);
    else if (PASSINDEX == 1)
        gl_FragColor = vec4(1.0);
    else
        gl_FragColor = vec4(IMG_NORM_PIXEL(small, vec2(0.5)).rg, IMG_SIZE(small).x / 255.0, 1.0);
}
)");
    chain = {make(QStringLiteral("Sizes"))};
    const auto& passes = qc(chain[0])->renderer()->composition().passes();
    EXPECT_TRUE(passes[0].read);
    // The second pass's target appears nowhere in the shader: nobody reads it.
    EXPECT_FALSE(passes[1].read);
    EXPECT_EQ(render(solid(Qt::black)).at(0, 0), (ARGB{255, 4, 4, 4}));
    chain[0]->setParameterValue(QStringLiteral("divisor"), 2.0);
    EXPECT_EQ(render(solid(Qt::black)).at(0, 0), (ARGB{255, 8, 4, 8}));
}

TEST_F(LVEffectsTest, BuiltInsTimeFrameIndexAndPreviewFreeze)
{
    write(QStringLiteral("Clocked.fs"), R"(/*{
    "INPUTS": [{"NAME": "LVPatchTimeResetInPreview", "TYPE": "bool", "DEFAULT": true}]
}*/
void main() { gl_FragColor = vec4(TIME / 10.0, float(FRAMEINDEX) / 255.0, TIMEDELTA / 10.0, 1.0); }
)");
    LVEffectRef effect = make(QStringLiteral("Clocked"));
    ASSERT_TRUE(qc(effect)->freezesTimeInPreview());
    chain = {effect};
    ctx->setFrameTime(100.0);
    effect->setMode(LVModeLive);
    EXPECT_EQ(render(solid(Qt::black), 100.0).at(0, 0), (ARGB{255, 0, 0, 0}));
    EXPECT_EQ(render(solid(Qt::black), 102.0).at(0, 0), (ARGB{255, 51, 1, 51}));
    EXPECT_EQ(render(solid(Qt::black), 106.0).at(0, 0), (ARGB{255, 153, 2, 102}));
    effect->setMode(LVModePreview);
    EXPECT_EQ(render(solid(Qt::black), 108.0).at(0, 0)[1], 0);
    EXPECT_EQ(render(solid(Qt::black), 109.0).at(0, 0)[1], 0);
}

TEST_F(LVEffectsTest, AnAnimatedGifOnAnImageInputPlaysItsFramesAtTheirTimes)
{
    write(QStringLiteral("Movie.fs"), R"(/*{"INPUTS": [{"NAME": "movie", "TYPE": "image"}]}*/
void main() { gl_FragColor = IMG_NORM_PIXEL(movie, vec2(0.5)); }
)");
    // Frame 1 red for 0.2 s, frame 2 blue for 0.3 s, looping.
    const QString gif = QStringLiteral(LV_TEST_EFFECTS_DATA "/twoframes.gif");
    LVEffectRef effect = make(QStringLiteral("Movie"));
    effect->setParameterValue(QStringLiteral("movie"), gif);
    ASSERT_TRUE(qc(effect)->renderer()->hasAnimationForInputKey(QStringLiteral("movie")));
    chain = {effect};
    effect->setMode(LVModeLive);
    const ARGB red{255, 255, 0, 0}, blue{255, 0, 0, 255};
    const struct {
        double time;  // seconds since the effect's first frame
        ARGB colour;
    } steps[] = {{0, red}, {0.19, red}, {0.21, blue}, {0.49, blue}, {0.51, red}, {0.75, blue}};
    for (const auto& s : steps) EXPECT_EQ(render(solid(Qt::black), 50 + s.time).at(12, 2), s.colour) << "at " << s.time << " s";
}

TEST_F(LVEffectsTest, MissingFileKeepsAnEffectThatDrawsNothing)
{
    scan();
    LVEffectRef effect = LVQCEffect::makeForFile(ctx.get(), QStringLiteral("Nowhere.fs"));
    ASSERT_TRUE(effect);
    EXPECT_EQ(effect->name(), QStringLiteral("Nowhere"));
    EXPECT_EQ(qc(effect)->renderer(), nullptr);
    EXPECT_TRUE(effect->effectProperties().empty());
    chain = {effect};
    EXPECT_EQ(render(solid(Qt::red)).at(0, 0), (ARGB{255, 255, 0, 0}));
}

// Nothing is drawn until the general program is ready; it draws while a variant is built.
TEST_F(LVEffectsTest, ACompositionBuiltBesideTheRenderLoopDrawsNothingUntilReady)
{
    QString error;
    ASSERT_TRUE(LVISFProgramBuilder::startWorker(&error)) << error.toStdString();
    LVISFProgramBuilder::holdWorker(true);
    write(QStringLiteral("Redden.fs"), "/*{\"INPUTS\": [{\"NAME\": \"inputImage\", \"TYPE\": \"image\"},\n"
                                       "  {\"NAME\": \"level\", \"TYPE\": \"float\", \"DEFAULT\": 1.0}]}*/\n"
                                       "void main() { gl_FragColor = level > 0.5 ? vec4(1.0, 0.0, 0.0, 1.0) : vec4(0.0); }\n");
    chain.push_back(make(QStringLiteral("Redden")));
    ASSERT_TRUE(chain.back());
    const SimpleQCRenderer& renderer = *qc(chain.back())->renderer();
    const ARGB blue{255, 0, 0, 255}, red{255, 255, 0, 0};
    for (int frame = 0; frame < 3; ++frame) {
        EXPECT_EQ(render(solid(Qt::blue)).at(3, 3), blue) << "frame " << frame << " passes the picture on";
        EXPECT_EQ(LVISFProgramBuilder::pendingCount(), 1);
    }
    LVISFProgramBuilder::holdWorker(false);
    EXPECT_TRUE(LVISFProgramBuilder::waitUntilIdle(120));
    LVISFProgramBuilder::holdWorker(true);
    EXPECT_EQ(render(solid(Qt::blue)).at(3, 3), red);
    EXPECT_EQ(LVISFProgramBuilder::pendingCount(), 1) << "the variant with level fixed";
    EXPECT_GE(renderer.program(0)->location(QStringLiteral("level")), 0);
    LVISFProgramBuilder::holdWorker(false);
    EXPECT_TRUE(LVISFProgramBuilder::waitUntilIdle(120));
    EXPECT_EQ(render(solid(Qt::blue)).at(3, 3), red);
    EXPECT_EQ(renderer.program(0)->location(QStringLiteral("level")), -1);
    chain.clear();
    EXPECT_TRUE(LVISFProgramBuilder::stopWorker(120));
}

// A value held still gets its own variant; a composition keeps a bounded number of them, the
// ones asked for least recently make way.
TEST_F(LVEffectsTest, VariantsOfHeldValuesAreBoundedPerComposition)
{
    write(QStringLiteral("Level.fs"), "/*{\"INPUTS\": [{\"NAME\": \"inputImage\", \"TYPE\": \"image\"},\n"
                                      "  {\"NAME\": \"level\", \"TYPE\": \"float\", \"DEFAULT\": 1.0}]}*/\n"
                                      "void main() { gl_FragColor = level > 0.5 ? vec4(level / 16.0) : vec4(0.0); }\n");
    chain = {make(QStringLiteral("Level"))};
    const SimpleQCRenderer& renderer = *qc(chain[0])->renderer();
    const size_t before = LVISFProgramCount();
    for (int level = 2; level < 14; ++level) {
        chain[0]->setParameterValue(QStringLiteral("level"), double(level));
        EXPECT_GE(renderer.program(0)->location(QStringLiteral("level")), 0) << level << " while it moves";
        for (int frame = 0; frame <= kLVSteadyFrames; ++frame) render(solid(Qt::black));
        EXPECT_EQ(renderer.program(0)->location(QStringLiteral("level")), -1) << level << " once held";
        const int grey = int(std::lround(level / 16.0 * 255));
        EXPECT_EQ(render(solid(Qt::black)).at(1, 1), (ARGB{grey, grey, grey, grey})) << level;
    }
    EXPECT_LE(LVISFProgramCount() - before, 1u + 8u);
}

TEST_F(LVEffectsTest, OversizedCompositionsAreRefusedNamingTheLimit)
{
    QByteArray text = "/*{}*/\nvoid main() { gl_FragColor = vec4(1.0); }\n";
    text.append(QByteArray(kLVCompositionLimit, ' '));
    const QString path = write(QStringLiteral("Big.fs"), text);
    testing::internal::CaptureStderr();
    const auto composition = LVComposition::load(path);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_FALSE(composition->isValid());
    EXPECT_NE(log.find("Big.fs is larger than the limit of 1 MB; refused"), std::string::npos) << log;
}

// Compiled programs live as long as the composition version they were made for.
TEST_F(LVEffectsTest, AReplacedOrDroppedCompositionFreesItsProgramsAtTheNextAsk)
{
    const QByteArray red = "/*{\"INPUTS\": []}*/\nvoid main() { gl_FragColor = vec4(1.0, 0.0, 0.0, 1.0); }\n";
    const QByteArray green = "/*{\"INPUTS\": []}*/\nvoid main() { gl_FragColor = vec4(0.0, 1.0, 0.0, 1.0); }\n";
    const QByteArray twoPasses = "/*{\"PASSES\": [{\"TARGET\": \"a\"}, {}]}*/\nvoid main() { gl_FragColor = vec4(1.0); }\n";
    struct Case {
        const char* what;
        QByteArray before, after; // after empty: dropped, not replaced
        size_t passes;
    };
    const Case cases[] = {
        {"re-read with a new shader", red, green, 1},
        {"dropped", red, {}, 1},
        {"a two-pass one dropped", twoPasses, {}, 2},
    };
    ctx->makeCurrent();
    const auto other = LVComposition::parse(write(QStringLiteral("Other.fs"), green), green, {});
    for (const Case& c : cases) {
        // Any ask frees what earlier rounds let go, so the count starts clean.
        ASSERT_TRUE(LVISFProgramFor(*other, 0));
        const QString path = write(QStringLiteral("Prog.fs"), c.before);
        auto old = LVComposition::parse(path, c.before, {});
        ASSERT_TRUE(old->isValid()) << old->error().toStdString();
        const size_t base = LVISFProgramCount();
        std::vector<GLuint> names;
        for (size_t pass = 0; pass < c.passes; ++pass) {
            const LVISFProgram* program = LVISFProgramFor(*old, int(pass));
            ASSERT_TRUE(program) << c.what;
            names.push_back(program->program);
        }
        EXPECT_EQ(LVISFProgramCount(), base + c.passes) << c.what;

        std::shared_ptr<const LVComposition> replacement;
        if (!c.after.isEmpty()) replacement = LVComposition::parse(path, c.after, {});
        old.reset();
        // Freed on the render thread's next ask, whatever composition it is for.
        ASSERT_TRUE(LVISFProgramFor(replacement ? *replacement : *other, 0)) << c.what;
        EXPECT_EQ(LVISFProgramCount(), base + (replacement ? 1 : 0)) << c.what;
        for (GLuint name : names) EXPECT_FALSE(glIsProgram(name)) << c.what;
    }
}

TEST(LVPassSizeTest, PassTargetsAreCappedByMemoryKeepingTheirShape)
{
    const struct {
        QSize asked;
        bool isFloat;
        bool capped;
    } cases[] = {
        {{1920, 1080}, false, false}, {{1920, 1080}, true, false}, {{4096, 4096}, false, false},
        {{8192, 8192}, false, true},  {{16384, 16384}, true, true}, {{16384, 1}, true, false},
        {{8192, 2048}, true, true},
    };
    for (const auto& c : cases) {
        const QSize size = LVCapPassSize(c.asked, c.isFloat);
        SCOPED_TRACE(testing::Message() << c.asked.width() << "x" << c.asked.height() << (c.isFloat ? " float" : ""));
        EXPECT_EQ(size != c.asked, c.capped);
        EXPECT_LE(2.0 * (c.isFloat ? 16 : 4) * size.width() * size.height(), double(kLVPassTargetBudget));
        EXPECT_NEAR(double(size.width()) / size.height(), double(c.asked.width()) / c.asked.height(),
                    double(c.asked.width()) / c.asked.height() * 0.01);
        if (c.capped) {
            EXPECT_GT(4.0 * (c.isFloat ? 16 : 4) * size.width() * size.height(), double(kLVPassTargetBudget));
        }
    }
}

TEST_F(LVEffectsTest, ASavedCompositionNameNeverLeadsOutOfTheEffectsFolders)
{
    const QByteArray red = "/*{}*/\nvoid main() { gl_FragColor = vec4(1.0, 0.0, 0.0, 1.0); }\n";
    QDir(dir.path()).mkdir(QStringLiteral("Effects"));
    write(QStringLiteral("Inside.fs"), red);
    QTemporaryDir outside;
    QFile file(outside.filePath(QStringLiteral("x.fs")));
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(red);
    file.close();
    scan(dir.filePath(QStringLiteral("Effects")));
    const QString escape = QStringLiteral("./") + QDir(dir.path()).relativeFilePath(file.fileName());
    const struct {
        QString fileName;
        bool resolved;
    } cases[] = {
        {QStringLiteral("./Inside.fs"), true},
        {escape, false},
        {QStringLiteral("./../../../../../../../../etc/shadow"), false},
        {QStringLiteral("./Effects/../../x.fs"), false},
        {QStringLiteral("../x.fs"), false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fileName.toStdString());
        LVKeyedArchiver archive;
        archive.encodeValue(QStringLiteral("class"), QStringLiteral("LVQCEffect"));
        archive.encodeValue(QStringLiteral("fileName"), c.fileName);
        testing::internal::CaptureStderr();
        const LVEffectRef effect = LVEffect::effectFromData(archive.finishEncoding(), ctx.get());
        const std::string log = testing::internal::GetCapturedStderr();
        ASSERT_TRUE(effect);
        EXPECT_EQ(qc(effect)->renderer() != nullptr, c.resolved) << log;
        if (!c.resolved) {
            EXPECT_NE(log.find(c.fileName.toStdString() + " is outside the Effects folders; refused"), std::string::npos)
                << log;
        }
    }
}
