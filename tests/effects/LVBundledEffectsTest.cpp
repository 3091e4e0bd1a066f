// The bundled library: every effect compiles and renders; hand-worked pixels; the fused
// path gives the same pixels as one pass per effect.
#include "LVEffectsTestSupport.h"

#include "effects/composition/LVISFProgram.h"

#include <optional>

namespace {

// A picture with structure: colour bars with a gradient, so blur and keys have work.
QImage bars(int w, int h)
{
    QImage img(w, h, QImage::Format_ARGB32);
    const QRgb colours[] = {0xFFFF0000u, 0xFF00FF00u, 0xFF0000FFu, 0xFFFFFFFFu, 0xFF208040u, 0xFF00FF00u};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const QColor c(colours[(x * 6) / w]);
            img.setPixel(x, y, qRgb(c.red() * (h - y / 2) / h, c.green(), c.blue() * (y + 1) / h));
        }
    return img;
}

} // namespace

class LVBundledTest : public LVEffectsTest {
protected:
    void SetUp() override
    {
        LVEffectsTest::SetUp();
        scan(bundledEffects());
    }
};

TEST_F(LVBundledTest, TheLibraryIsCompleteAndEveryEffectRenders)
{
    QStringList names;
    for (const auto& f : registry->allEffects()) names << f->name();
    for (const auto& f : registry->transitions()) names << f->name();
    for (const char* name : {"Dissolve", "Wipe", "Slide", "Push", "Iris", "Fade Through Black", "Lower Third", "Title",
                             "Clock", "Ticker", "Image Overlay", "Border", "Chroma Key", "Blur", "Sharpen", "Colour Adjust",
                             "Mirror", "Crop and Zoom", "Vignette", "Pixelate", "Black and White"}) {
        SCOPED_TRACE(name);
        EXPECT_TRUE(names.contains(QLatin1String(name)));
        LVEffectRef effect = make(QLatin1String(name));
        ASSERT_TRUE(effect && qc(effect)->renderer() && qc(effect)->renderer()->isUsable());
        for (const LVParameter& p : effect->effectProperties()) EXPECT_FALSE(p.name.isEmpty());
        chain = {effect};
        render(bars(16, 8));
    }
    EXPECT_EQ(qc(make(QStringLiteral("Image Overlay")))->patchAttributes().first(), QStringLiteral("Image"));
}

TEST_F(LVBundledTest, ColourAdjustOnASolidColour)
{
    // Input (51, 153, 255) = (0.2, 0.6, 1.0).
    const struct {
        double brightness, contrast, saturation, gamma;
        ARGB expected;
    } cases[] = {
        {0.0, 1.0, 1.0, 1.0, {255, 51, 153, 255}},
        {0.0, 0.5, 1.0, 1.0, {255, 89, 140, 191}},     // (c - 0.5) * 0.5 + 0.5
        {0.2, 1.0, 1.0, 1.0, {255, 102, 204, 255}},    // +0.2, clamped at 1
        {0.0, 1.0, 0.0, 1.0, {255, 139, 139, 139}},    // Rec. 709 luma 0.54384
        {0.0, 1.0, 1.0, 2.0, {255, 114, 198, 255}},    // sqrt
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.brightness << " " << c.contrast << " " << c.saturation << " " << c.gamma);
        liveChain({"Colour Adjust"}, {{"brightness", c.brightness}, {"contrast", c.contrast},
                                      {"saturation", c.saturation}, {"gamma", c.gamma}});
        EXPECT_EQ(render(solid(QColor(51, 153, 255))).at(5, 5), c.expected);
    }
}

TEST_F(LVBundledTest, ChromaKeyRemovesTheKeyColourOnly)
{
    const struct {
        int mode;
        QColor in;
        ARGB expected;
    } cases[] = {
        {0, QColor(0, 255, 0), {0, 0, 0, 0}},
        {0, QColor(255, 0, 0), {255, 255, 0, 0}},
        {0, QColor(0, 0, 255), {255, 0, 0, 255}},
        {1, QColor(0, 0, 255), {0, 0, 0, 0}},
        {1, QColor(0, 255, 0), {255, 0, 255, 0}},
    };
    for (const auto& c : cases) {
        liveChain({"Chroma Key"}, {{"keyMode", c.mode}, {"spill", 0.0}});
        EXPECT_EQ(render(solid(c.in)).at(3, 3), c.expected) << c.mode << " " << c.in.name().toStdString();
    }
}

// A choice that stands for a preset ("Background") sets the key colour it names, however it is
// chosen (by name, as a user, MIDI or the control socket would).
TEST_F(LVBundledTest, EachBackgroundSetsTheKeyColourItKeys)
{
    liveChain({"Chroma Key"}, {{"spill", 0.0}});
    const LVEffectRef key = chain[0];
    const QString keyColor = QStringLiteral("keyColor");
    // The custom colour (2) starts from the screen chosen before it.
    const struct {
        int background;
        QColor keyColour; // and a picture of it becomes transparent
    } steps[] = {{1, QColor(0, 0, 255)}, {2, QColor(0, 0, 255)}, {0, QColor(0, 255, 0)}, {2, QColor(0, 255, 0)}};
    for (const auto& step : steps) {
        SCOPED_TRACE(step.background);
        key->setEffectProperty(step.background, QStringLiteral("Background"));
        EXPECT_EQ(key->parameterValue(keyColor).value<QColor>(), step.keyColour);
        EXPECT_EQ(qc(key)->renderer()->valueForInputKey(keyColor).value<QColor>(), step.keyColour);
        EXPECT_EQ(render(solid(step.keyColour)).at(3, 3), (ARGB{0, 0, 0, 0}));
    }
}

TEST_F(LVBundledTest, ClockKeepsItsSecondsInsideFramesOfEveryShape)
{
    for (const QSize size : {QSize(320, 240), QSize(640, 360)}) {
        makeContext(size.width(), size.height());
        scan(bundledEffects());
        LVEffectRef clock = make(QStringLiteral("Clock"));
        clock->setParameterValue(QStringLiteral("backColor"), QColor(Qt::red));
        chain = {clock};
        const Frame f = render(solid(Qt::black));
        // A row through the clock's box: red background and white digits, black elsewhere.
        const int row = size.height() - 1 - int(size.height() * 0.9);
        int first = -1, last = -1;
        for (int x = 0; x < size.width(); ++x) {
            if (f.at(x, row)[1] < 200) continue;
            if (first < 0) first = x;
            last = x;
        }
        const int boxWidth = int(0.08 * size.height() * 4.3);
        EXPECT_GE(last - first + 1, boxWidth) << size.width() << "x" << size.height() << ": cut off at the edge";
    }
}

TEST_F(LVBundledTest, TransitionsAtStartMiddleAndEnd)
{
    const QColor from(204, 0, 102), to(0, 102, 204);
    const ARGB a{255, 204, 0, 102}, b{255, 0, 102, 204};
    const struct {
        const char* name;
        double t;
        int x;
        ARGB expected;
    } cases[] = {
        {"Dissolve", 0.0, 4, a},          {"Dissolve", 0.5, 4, {255, 102, 51, 153}}, {"Dissolve", 1.0, 4, b},
        {"Wipe", 0.0, 1, a},              {"Wipe", 0.5, 2, b},                       {"Wipe", 0.5, 13, a},
        {"Wipe", 1.0, 15, b},             {"Fade Through Black", 0.25, 4, {255, 102, 0, 51}},
        {"Fade Through Black", 0.5, 4, {255, 0, 0, 0}}, {"Fade Through Black", 1.0, 4, b},
        {"Slide", 0.0, 4, a},             {"Slide", 1.0, 4, b},                      {"Push", 0.5, 12, b},
        {"Push", 0.5, 3, a},              {"Iris", 0.0, 8, a},                       {"Iris", 1.0, 0, b},
    };
    const LVTexture target = texture(solid(to));
    for (const auto& c : cases) {
        LVEffectRef effect = make(QString::fromLatin1(c.name));
        ASSERT_TRUE(effect && effect->isTransition()) << c.name;
        if (effect->propertyInfoForName(QStringLiteral("Edge softness"))) effect->setParameterValue(QStringLiteral("softness"), 0.0);
        drawPicture(solid(from));
        effect->doTransitionTo(target, c.t);
        EXPECT_EQ(read().at(c.x, 4), c.expected) << c.name << " at " << c.t;
    }
}

TEST_F(LVBundledTest, BlackAndWhiteAndMirror)
{
    liveChain({"Black and White"});
    EXPECT_EQ(render(solid(QColor(51, 153, 255))).at(0, 0), (ARGB{255, 139, 139, 139}));
    QImage half = solid(Qt::red);
    for (int y = 0; y < 8; ++y)
        for (int x = 8; x < 16; ++x) half.setPixel(x, y, 0xFF0000FFu);
    liveChain({"Mirror"});
    const Frame f = render(half);
    EXPECT_EQ(f.at(0, 0), (ARGB{255, 0, 0, 255}));
    EXPECT_EQ(f.at(15, 0), (ARGB{255, 255, 0, 0}));
}

TEST_F(LVBundledTest, TextOverlaysDrawTheHostsText)
{
    makeContext(320, 180);
    scan(bundledEffects());
    liveChain({"Lower Third"});
    const Frame withText = render(solid(Qt::black));
    int white = 0;
    for (int y = 130; y < 180; ++y)
        for (int x = 0; x < 160; ++x) white += withText.at(x, y)[1] > 150 && withText.at(x, y)[2] > 150;
    EXPECT_GT(white, 20);
    chain[0]->setParameterValue(QStringLiteral("Line1"), QString());
    chain[0]->setParameterValue(QStringLiteral("Line2"), QString());
    const Frame empty = render(solid(Qt::black));
    EXPECT_EQ(empty.at(20, 170), (ARGB{255, 0, 0, 0}));
}

// Runs of pointwise filters share one shader; the pixels must not change.
TEST_F(LVBundledTest, FusedChainGivesTheSamePixelsAsOnePassPerEffect)
{
    makeContext(96, 54);
    scan(bundledEffects());
    // Overlays that change only a band or a box (Ticker, Lower Third, Clock, Title, Image Overlay)
    // at the end of a run are drawn over the rest of the run in place: alone, after one stage,
    // after several, two of them, held inside the frame by its edge or partly past it.
    const QList<QStringList> chains = {
        {"Clock"},
        {"Colour Adjust", "Title"},
        {"Chroma Key", "Image Overlay"},
        {"Colour Adjust", "Border"},
        {"Sharpen", "Border", "Ticker"},
        {"Colour Adjust", "Chroma Key", "Vignette", "Black and White"},
        {"Colour Adjust", "Blur", "Chroma Key", "Vignette", "Lower Third"},
        {"Sharpen", "Colour Adjust", "Border", "Ticker", "Title"},
        {"Mirror", "Pixelate", "Colour Adjust"},
        {"Ticker"},
        {"Crop and Zoom", "Ticker"},
        {"Colour Adjust", "Chroma Key", "Ticker"},
        {"Colour Adjust", "Lower Third", "Ticker"},
    };
    const QImage picture = bars(96, 54);
    const QString logo = dir.filePath(QStringLiteral("logo.png"));
    ASSERT_TRUE(bars(40, 60).save(logo));
    for (const QStringList& names : chains) {
        SCOPED_TRACE(names.join(QLatin1String(", ")).toStdString());
        std::vector<Frame> frames;
        for (bool fused : {false, true}) {
            LVQCEffect::setFusionEnabled(fused);
            liveChain(names, {{"speed", 0.6}, {"Image", logo}, {"cornerRadius", 0.1}});
            chain[0]->setParameterValue(QStringLiteral("saturation"), 1.3);
            chain[0]->setParameterValue(QStringLiteral("contrast"), 1.1);
            // The ticker's text half way across the band, on a bar above the lower third.
            for (const auto& effect : chain) {
                effect->setParameterValue(QStringLiteral("Y_Position"), effect->name() == QLatin1String("Ticker") ? -0.4 : -0.85);
                if (effect->name() != QLatin1String("Lower Third")) effect->setParameterValue(QStringLiteral("X_Position"), 0.95);
            }
            render(picture, 0); // time starts at the first frame
            frames.push_back(render(picture, 0.5));
        }
        // The run from the last effect that samples around the pixel shares one shader.
        std::vector<LVISFVariant> run;
        for (const auto& effect : chain) {
            const LVComposition& c = qc(effect)->renderer()->composition();
            if (!c.isPointwise()) run.clear();
            run.push_back({&c, {}});
        }
        if (names.size() > 1) {
            EXPECT_GE(run.size(), 2u);
            EXPECT_TRUE(LVISFFusedProgramFor(run));
        }
        // The overlay really is drawn over its band or box alone.
        if (QStringList{"Ticker", "Lower Third", "Clock", "Title", "Image Overlay", "Border"}.contains(names.back())) {
            const std::optional<QRegion> area = qc(chain.back())->renderer()->changedArea();
            ASSERT_TRUE(area);
            int pixels = 0;
            for (const QRect& part : *area) pixels += part.width() * part.height();
            EXPECT_LT(pixels, 96 * 54 / 2);
        }
        EXPECT_TRUE(frames[0].bytes == frames[1].bytes);
    }
}

// An overlay alone in its run draws over its input's own target, reading a copy of its area, and
// copies the input whole only while someone else still holds that picture, which it never changes.
TEST_F(LVBundledTest, AnOverlayDrawsOverItsInputUnlessSomeoneElseHoldsIt)
{
    makeContext(96, 54);
    scan(bundledEffects());
    const QImage picture = bars(96, 54);
    LVQCEffect::setFusionEnabled(false);
    liveChain({"Clock"});
    render(picture, 0);
    const Frame whole = render(picture, 3725.0);
    LVQCEffect::setFusionEnabled(true);
    chain.clear();
    const Frame bare = render(picture, 3725.0);
    ASSERT_FALSE(whole.bytes == bare.bytes);
    liveChain({"Clock"});
    render(picture, 0);
    for (const bool held : {false, true}) {
        SCOPED_TRACE(held ? "input held" : "input free");
        ctx->setFrameTime(3725.0);
        drawPicture(picture);
        const GLuint drawnInto = ctx->texture().name;
        std::optional<LVTexture> holder;
        if (held) holder = ctx->texture();
        chain[0]->doit();
        const Frame f = read();
        EXPECT_TRUE(f.bytes == whole.bytes);
        EXPECT_EQ(ctx->texture().name == drawnInto, !held);
        if (holder) {
            ctx->reset(false);
            ctx->copyIntoFrame(*holder);
            EXPECT_TRUE(read().bytes == bare.bytes) << "the held picture was drawn over";
        }
    }
}

// Programs with switch inputs fixed drop the branches those switch off; the pixels must not
// change, alone or fused: every bundled effect at its defaults and at each choice of its menus
// and check boxes, and at values held until fixed, drawn by the variant and by the general program.
TEST_F(LVBundledTest, ProgramVariantsGiveTheSamePixelsAsTheGeneralProgram)
{
    makeContext(96, 54);
    scan(bundledEffects());
    struct Case {
        QStringList chain;
        QString key; // empty: defaults
        QVariant value;
    };
    std::vector<Case> cases = {{{"Colour Adjust", "Chroma Key", "Ticker"}, {}, {}},
                               {{"Sharpen", "Colour Adjust", "Chroma Key"}, QStringLiteral("keyMode"), 1},
                               {{"Colour Adjust"}, QStringLiteral("hue"), 30.0},
                               {{"Colour Adjust"}, QStringLiteral("gamma"), 2.0},
                               {{"Colour Adjust"}, QStringLiteral("gamma"), 0.45},
                               {{"Sharpen"}, QStringLiteral("radius"), 2.0},
                               {{"Sharpen"}, QStringLiteral("radius"), 1.5},
                               {{"Chroma Key"}, QStringLiteral("smoothness"), 0.0},
                               {{"Crop and Zoom", "Ticker"}, QStringLiteral("cropLeft"), 0.05}};
    for (const auto& f : registry->allEffects()) {
        LVEffectRef effect = make(f->name());
        if (!qc(effect)) continue;
        cases.push_back({{f->name()}, {}, {}});
        const LVComposition& c = qc(effect)->renderer()->composition();
        for (const QString& key : c.switchInputs()) {
            const LVISFInput& input = *c.input(key);
            if (input.type == LVISFInputType::Bool) cases.push_back({{f->name()}, key, !input.defaultValue.toBool()});
            for (int value : input.values) cases.push_back({{f->name()}, key, value});
        }
    }
    const QImage picture = bars(96, 54);
    int fixedAny = 0;
    for (const Case& c : cases) {
        std::vector<Frame> frames;
        for (bool variants : {false, true}) {
            LVISFSetVariantsEnabled(variants);
            liveChain(c.chain, c.key.isEmpty() ? Settings{} : Settings{{c.key, c.value}});
            // Held long enough to be fixed at any value.
            for (int frame = 0; frame <= kLVSteadyFrames; ++frame) render(picture, frame / 60.0);
            frames.push_back(render(picture, 0.5));
        }
        for (const auto& effect : chain) fixedAny += !qc(effect)->renderer()->constants().empty();
        const std::string what = (c.chain.join(QLatin1String(", ")) + QLatin1Char(' ') + c.key).toStdString();
        EXPECT_TRUE(frames[0].bytes == frames[1].bytes) << what << " = " << c.value.toString().toStdString();
    }
    EXPECT_GT(fixedAny, 10);

    // Hue at 0 drops the hue turn; any other hue needs the general program.
    LVEffectRef adjust = make(QStringLiteral("Colour Adjust"));
    const SimpleQCRenderer& renderer = *qc(adjust)->renderer();
    EXPECT_EQ(renderer.program(0)->location(QStringLiteral("hue")), -1);
    adjust->setParameterValue(QStringLiteral("hue"), 30.0);
    EXPECT_GE(renderer.program(0)->location(QStringLiteral("hue")), 0);
}

// Effects that read whole pixels with plain fetches give the bytes their filtered samples gave.
TEST_F(LVBundledTest, WholePixelFetchesGiveTheFilteredSamplesBytes)
{
    makeContext(97, 55); // odd, so mirrors have a middle column and row
    const char* header = "/*{\"INPUTS\": [{\"NAME\": \"inputImage\", \"TYPE\": \"image\"},"
                         "{\"NAME\": \"amount\", \"TYPE\": \"float\", \"DEFAULT\": 0.8},"
                         "{\"NAME\": \"radius\", \"TYPE\": \"float\", \"DEFAULT\": 1.0},"
                         "{\"NAME\": \"mode\", \"TYPE\": \"long\", \"DEFAULT\": 0}]}*/\n";
    const QString bundled = copyBundled();
    write(QStringLiteral("bundled/Filtered Sharpen.fs"),
          QByteArray(header) + "void main() { vec2 px = radius / RENDERSIZE; vec2 uv = isf_FragNormCoord;\n"
                               "    vec4 c = IMG_NORM_PIXEL(inputImage, uv);\n"
                               "    vec4 around = IMG_NORM_PIXEL(inputImage, uv + vec2(px.x, 0.0)) + "
                               "IMG_NORM_PIXEL(inputImage, uv - vec2(px.x, 0.0)) +\n"
                               "        IMG_NORM_PIXEL(inputImage, uv + vec2(0.0, px.y)) + "
                               "IMG_NORM_PIXEL(inputImage, uv - vec2(0.0, px.y));\n"
                               "    gl_FragColor = vec4(clamp(c.rgb + (c.rgb - around.rgb * 0.25) * amount, 0.0, 1.0), c.a); }\n");
    write(QStringLiteral("bundled/Filtered Mirror.fs"),
          QByteArray(header) + "void main() { vec2 uv = isf_FragNormCoord;\n"
                               "    if (mode == 0 || mode == 2) uv.x = 1.0 - uv.x;\n"
                               "    if (mode == 1 || mode == 2) uv.y = 1.0 - uv.y;\n"
                               "    if (mode == 3) uv.x = 0.5 - abs(uv.x - 0.5);\n"
                               "    if (mode == 4) uv.y = 0.5 + abs(uv.y - 0.5);\n"
                               "    gl_FragColor = IMG_NORM_PIXEL(inputImage, uv); }\n");
    scan(bundled);
    const struct {
        const char* name;
        const char* key;
        QVariant value;
    } cases[] = {{"Sharpen", "amount", 1.2}, {"Mirror", "mode", 0}, {"Mirror", "mode", 1},
                 {"Mirror", "mode", 2},      {"Mirror", "mode", 3}, {"Mirror", "mode", 4}};
    const QImage picture = bars(97, 55);
    for (const auto& c : cases) {
        std::vector<Frame> frames;
        for (const QString& name : {QString::fromLatin1(c.name), QStringLiteral("Filtered ") + QLatin1String(c.name)}) {
            liveChain({name}, {{QLatin1String(c.key), c.value}});
            frames.push_back(render(picture));
        }
        EXPECT_TRUE(frames[0].bytes == frames[1].bytes) << c.name << " " << c.key << " " << c.value.toString().toStdString();
    }
}

TEST_F(LVBundledTest, PointwiseFiltersAreRecognised)
{
    for (const char* name : {"Colour Adjust", "Chroma Key", "Vignette", "Black and White", "Lower Third", "Title", "Clock",
                             "Ticker", "Image Overlay", "Border"})
        EXPECT_TRUE(qc(make(QLatin1String(name)))->renderer()->composition().isPointwise()) << name;
    for (const char* name : {"Blur", "Sharpen", "Mirror", "Crop and Zoom", "Pixelate", "Dissolve"})
        EXPECT_FALSE(qc(make(QLatin1String(name)))->renderer()->composition().isPointwise()) << name;
}

// Filters draw into targets that are not cleared first, since they overwrite every pixel, and
// only where the effects after them read. Whatever the pool's targets held before must never
// show through: the same chain over a pool left red and one left blue gives the same bytes,
// fused or not, as one whole pass per effect.
TEST_F(LVBundledTest, NothingOfAnUnclearedTargetShowsThroughFusedOrNot)
{
    makeContext(96, 54);
    write(QStringLiteral("Holes.fs"), "/*{\"INPUTS\": [{\"NAME\": \"inputImage\", \"TYPE\": \"image\"}]}*/\n"
                                      "void main() { if (gl_FragCoord.x < 20.0) discard;\n"
                                      "    gl_FragColor = IMG_THIS_PIXEL(inputImage).bgra; }\n");
    QFile::copy(dir.filePath(QStringLiteral("Holes.fs")), copyBundled() + QStringLiteral("/Holes.fs"));
    scan(dir.filePath(QStringLiteral("bundled")));
    const Settings common = {{"brightness", 0.05}, {"contrast", 1.1},     {"saturation", 1.3},
                             {"gamma", 1.1},       {"amount", 1.2},       {"similarity", 0.3},
                             {"smoothness", 0.1},  {"Message", "Lumaveil"}, {"speed", 0.2}};
    const Settings zoomed = {{"zoom", 1.25}, {"cropLeft", 0.05}, {"cropRight", 0.05}};
    struct Case {
        QStringList names;
        Settings settings;
    };
    const Case cases[] = {
        {{"Colour Adjust", "Sharpen", "Chroma Key", "Crop and Zoom", "Ticker"}, zoomed},
        {{"Holes"}, {}},
        {{"Sharpen", "Holes", "Colour Adjust"}, {}},
        {{"Chroma Key", "Mirror", "Holes"}, {}},
        // A wide radius, blocks, a window panned into a corner, cropped top and bottom.
        {{"Colour Adjust", "Pixelate", "Sharpen", "Crop and Zoom"},
         {{"radius", 4.0}, {"cellSize", 9.0}, {"zoom", 3.0}, {"Pan_X_Position", 0.7}, {"Pan_Y_Position", -1.0},
          {"cropTop", 0.2}, {"cropBottom", 0.1}}},
        // Panned to the right edge; cropped to nothing, so nothing before it is read.
        {{"Colour Adjust", "Crop and Zoom", "Sharpen"}, {{"zoom", 2.0}, {"Pan_X_Position", 1.0}}},
        {{"Colour Adjust", "Crop and Zoom", "Ticker"}, {{"cropLeft", 0.5}, {"cropRight", 0.5}}},
        // Margins of a colour that a clear writes, and of one it would round otherwise.
        {{"Sharpen", "Crop and Zoom"}, {{"cropLeft", 0.13}, {"cropTop", 0.21}, {"fill", QColor(200, 40, 90)}}},
        {{"Crop and Zoom"}, {{"cropRight", 0.3}, {"fill", QColor::fromRgbF(0.504242f, 0.794278f, 0.672655f)}}},
        // The first one's margins are partly read by the second: cleared only there.
        {{"Crop and Zoom", "Crop and Zoom"},
         {{"zoom", 1.5}, {"cropLeft", 0.1}, {"cropBottom", 0.2}, {"Pan_X_Position", -1.0}, {"Pan_Y_Position", -1.0},
          {"fill", QColor(10, 200, 30)}}},
    };
    const QImage picture = bars(96, 54);
    // Frames of the pool filled with one colour, then handed back.
    auto leaveInPool = [&](QColor colour) {
        std::vector<LVTexture> held;
        for (int i = 0; i < 8; ++i) {
            drawPicture(solid(colour));
            held.push_back(ctx->texture());
        }
    };
    for (const Case& c : cases) {
        const std::string what = c.names.join(QLatin1String(", ")).toStdString();
        std::vector<Frame> frames;
        // The first, whole passes one effect at a time, is the reference.
        for (const auto& [fused, onlyWhatIsRead] : {std::pair(false, false), std::pair(false, true), std::pair(true, true)}) {
            for (QColor garbage : {QColor(Qt::red), QColor(Qt::blue)}) {
                LVQCEffect::setFusionEnabled(fused);
                drawOnlyWhatIsRead = onlyWhatIsRead;
                Settings settings = common;
                settings.insert(settings.end(), c.settings.begin(), c.settings.end());
                liveChain(c.names, settings);
                leaveInPool(garbage);
                frames.push_back(render(picture, 0.5));
            }
        }
        // Where the last filter discards, the frame is opaque black, as a cleared target was.
        if (c.names.back() == QLatin1String("Holes")) {
            EXPECT_EQ(frames[0].at(2, 2), (ARGB{255, 0, 0, 0})) << what;
        }
        for (size_t i = 1; i < frames.size(); ++i)
            EXPECT_TRUE(frames[i].bytes == frames[0].bytes)
                << what << ": frame " << i << " (fused " << (i >= 4) << ", drawn where read " << (i >= 2) << ")";
    }
}

// A crop's margins are cleared rather than drawn: for every 8-bit level of each channel the clear
// writes the bytes the shader writes.
TEST_F(LVBundledTest, ACropsMarginsClearToTheBytesTheShaderWrites)
{
    auto cropped = [&](QColor fill, bool fused) {
        LVQCEffect::setFusionEnabled(fused);
        liveChain({"Crop and Zoom"}, {{"cropLeft", 0.5}, {"cropRight", 0.5}, {"fill", fill}});
        return render(solid(Qt::white), 0);
    };
    for (int level = 0; level < 256; ++level) {
        const QColor fill(level, (level * 7) % 256, 255 - level, (level * 13) % 256);
        const Frame whole = cropped(fill, false);
        EXPECT_EQ(whole.at(0, 0), (ARGB{fill.alpha(), fill.red(), fill.green(), fill.blue()})) << level;
        EXPECT_TRUE(cropped(fill, true).bytes == whole.bytes) << level;
    }
    LVQCEffect::setFusionEnabled(true);
}

// The pixels a filter declares it may change, and those of its input it may read to draw a part
// of its output: the rectangle with a pixel's margin within the frame (two for reads, clamped as
// samples past an edge are), the reach around the pixels drawn with one more. A declaration of the
// wrong shape is a broken file; one that does not evaluate leaves the whole frame to the filter.
TEST_F(LVEffectsTest, DeclaredAreasWithTheirMargins)
{
    makeContext(96, 54);
    const QRect whole(0, 0, 96, 54);
    const QRect box(10, 10, 5, 5);
    struct Case {
        const char* key;
        const char* declared;
        bool valid;
        QRect drawn; // for READS_ONLY: the part of the output drawn
        std::optional<QRegion> area;
    };
    const Case cases[] = {
        {"CHANGES_ONLY", R"({"Y": "10", "HEIGHT": 4})", true, {}, QRect(0, 9, 96, 6)},
        {"CHANGES_ONLY", R"({"X": "$WIDTH - 3", "WIDTH": "10"})", true, {}, QRect(92, 0, 4, 54)},
        {"CHANGES_ONLY", R"({"X": "$shift", "Y": "$shift * 2", "WIDTH": 1, "HEIGHT": 1})", true, {}, QRect(1, 4, 4, 3)},
        {"CHANGES_ONLY", R"({"HEIGHT": "$Message_HEIGHT - $Message_HEIGHT + 2"})", true, {}, QRect(0, 0, 96, 3)},
        {"CHANGES_ONLY", R"({"Y": -100, "HEIGHT": 20})", true, {}, QRegion()},
        {"CHANGES_ONLY", R"({"Y": "$unknown"})", true, {}, std::nullopt},
        {"CHANGES_ONLY", R"({"Y": "1 / 0"})", true, {}, std::nullopt},
        {"CHANGES_ONLY", "3", false, {}, std::nullopt},
        {"CHANGES_ONLY", R"({"Z": "1"})", false, {}, std::nullopt},
        {"CHANGES_ONLY", R"({"X": true})", false, {}, std::nullopt},
        {"CHANGES_ONLY", R"({"MARGIN": 1})", false, {}, std::nullopt},
        {"KEEPS_INSIDE", R"({"X": 10, "Y": "$shift", "WIDTH": 20.5, "HEIGHT": "$HEIGHT - 10"})", true, {},
         QRegion(whole).subtracted(QRect(11, 4, 18, 41))},
        {"KEEPS_INSIDE", R"({"X": 10, "WIDTH": 2})", true, {}, QRegion(whole)},
        {"KEEPS_INSIDE", R"({"X": -1e30, "WIDTH": 1e31})", true, {}, QRegion(whole).subtracted(QRect(0, 1, 96, 52))},
        {"KEEPS_INSIDE", R"({"X": "$unknown"})", true, {}, std::nullopt},
        {"KEEPS_INSIDE", R"({"COLOR": "edge"})", false, {}, std::nullopt},
        {"READS_ONLY", R"({"MARGIN": 2})", true, box, QRect(7, 7, 11, 11)},
        {"READS_ONLY", R"({"MARGIN": "$shift"})", true, box, QRect(6, 6, 13, 13)},
        {"READS_ONLY", R"({"MARGIN": "$shift"})", true, whole, whole},
        {"READS_ONLY", R"({"X": 10, "WIDTH": 20})", true, whole, QRect(8, 0, 24, 54)},
        {"READS_ONLY", R"({"X": 10.5, "Y": "$HEIGHT - 1", "WIDTH": 20})", true, box, QRect(8, 51, 25, 3)},
        {"READS_ONLY", R"({"X": 200, "WIDTH": 5})", true, whole, QRect(95, 0, 1, 54)},
        {"READS_ONLY", R"({"X": -50, "WIDTH": 10})", true, whole, QRect(0, 0, 1, 54)},
        {"READS_ONLY", R"({"WIDTH": "1 - 2"})", true, whole, QRect()},
        {"READS_ONLY", R"({"X": 10, "WIDTH": 20, "MARGIN": 1})", true, QRect(0, 0, 5, 5), QRect()},
        {"READS_ONLY", R"({"X": 10, "WIDTH": 20, "MARGIN": 1})", true, box, QRect(8, 8, 9, 9)},
        {"READS_ONLY", R"({"MARGIN": "$unknown"})", true, box, std::nullopt},
        {"READS_ONLY", R"({"MARGIN": true})", false, box, std::nullopt},
        {"FILLS_OUTSIDE", R"({"X": 10, "WIDTH": 20, "COLOR": "edge"})", true, {}, QRect(9, 0, 22, 54)},
        {"FILLS_OUTSIDE", R"({"Y": "$shift", "HEIGHT": 3.2, "COLOR": "edge"})", true, {}, QRect(0, 1, 96, 6)},
        {"FILLS_OUTSIDE", R"({"X": "$unknown", "COLOR": "edge"})", true, {}, std::nullopt},
        {"FILLS_OUTSIDE", R"({"X": 10})", false, {}, std::nullopt},
        {"FILLS_OUTSIDE", R"({"X": 10, "COLOR": "shift"})", false, {}, std::nullopt},
        {"FILLS_OUTSIDE", R"({"MARGIN": 1, "COLOR": "edge"})", false, {}, std::nullopt},
    };
    int index = 0;
    for (const Case& c : cases) {
        const std::string what = std::string(c.key) + " " + c.declared;
        // Sampled beside the pixel: not pointwise, so only a declaration narrows what it reads.
        const QString path = write(QStringLiteral("Area%1.fs").arg(index++),
                                   QByteArray("/*{\"") + c.key + "\": " + c.declared +
                                       ", \"INPUTS\": [{\"NAME\": \"inputImage\", \"TYPE\": \"image\"},"
                                       " {\"NAME\": \"shift\", \"TYPE\": \"float\", \"DEFAULT\": 2.5},"
                                       " {\"NAME\": \"Message\", \"TYPE\": \"text\", \"DEFAULT\": \"Hi\"},"
                                       " {\"NAME\": \"edge\", \"TYPE\": \"color\", \"DEFAULT\": [0, 0, 0, 1]}]}*/\n"
                                       "void main() { gl_FragColor = IMG_NORM_PIXEL(inputImage, isf_FragNormCoord * 0.5); }\n");
        SimpleQCRenderer renderer(ctx.get(), path);
        EXPECT_EQ(renderer.composition().isValid(), c.valid) << what;
        renderer.beginFrame(0);
        const QByteArray key(c.key);
        const auto fill = renderer.fill();
        const auto asRegion = [](const std::optional<QRect>& r) { return r ? std::optional<QRegion>(*r) : std::nullopt; };
        const std::optional<QRegion> area = key == "READS_ONLY"      ? asRegion(renderer.inputAreaFor(c.drawn))
                                            : key == "FILLS_OUTSIDE" ? asRegion(fill ? std::optional(fill->drawn) : std::nullopt)
                                                                     : renderer.changedArea();
        EXPECT_EQ(area, c.area) << what;
    }
    // Undeclared, a filter may read anything; a pointwise one reads where it draws.
    SimpleQCRenderer sampler(ctx.get(), dir.filePath(QStringLiteral("Area0.fs")));
    EXPECT_EQ(sampler.inputAreaFor(box), std::nullopt);
    const QString pointwise = write(QStringLiteral("Pointwise.fs"),
                                    "/*{\"INPUTS\": [{\"NAME\": \"inputImage\", \"TYPE\": \"image\"}]}*/\n"
                                    "void main() { gl_FragColor = IMG_THIS_PIXEL(inputImage).bgra; }\n");
    EXPECT_EQ(SimpleQCRenderer(ctx.get(), pointwise).inputAreaFor(box), box);
}
