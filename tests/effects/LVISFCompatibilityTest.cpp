// Shaders written for other ISF hosts: the per-image uniforms they declare, the implicit
// conversions of old desktop compilers, and the sweep a user runs over a collection.
#include "LVEffectsTestSupport.h"

#include "effects/composition/LVISFProgram.h"

#include <QProcess>

namespace {

// The uniforms beside an image, folded into one pixel: red and green its width and
// height, blue 153 for a whole upright image (rect 0,0,1,1, not flipped), alpha 255.
QByteArray describeImage(const char* image)
{
    return QByteArray(R"(
vec4 describe() {
    float rect = dot(_IMG_imgRect, vec4(17.0, 34.0, 51.0, 102.0));
    return vec4(_IMG_imgSize / 255.0, (rect + (_IMG_flip ? 1.0 : 0.0)) / 255.0, 1.0);
}
)").replace("IMG", image);
}

struct Pixel {
    int x;
    int row;
    ARGB value;
};

} // namespace

TEST_F(LVEffectsTest, EveryImageHasItsRectSizeAndFlip)
{
    QImage pic(3, 5, QImage::Format_ARGB32);
    pic.fill(Qt::white);
    ASSERT_TRUE(pic.save(dir.filePath(QStringLiteral("pic.png"))));
    const struct {
        const char* name;
        QByteArray text;
        ARGB expected;
    } cases[] = {
        {"FilterInput",
         R"(/*{"INPUTS": [{"NAME": "inputImage", "TYPE": "image"}]}*/)" + describeImage("inputImage") +
             "void main() { gl_FragColor = describe() + 0.0 * IMG_THIS_PIXEL(inputImage); }\n",
         {255, 16, 8, 153}},
        // Only the size is read: the sampler itself goes unused.
        {"SizeOnly",
         R"(/*{"INPUTS": [{"NAME": "inputImage", "TYPE": "image"}]}*/)" + describeImage("inputImage") +
             "void main() { gl_FragColor = describe(); }\n",
         {255, 16, 8, 153}},
        {"Imported",
         R"(/*{"IMPORTED": {"pic": {"PATH": "pic.png"}}}*/)" + describeImage("pic") +
             "void main() { gl_FragColor = describe() + 0.0 * IMG_NORM_PIXEL(pic, vec2(0.5)); }\n",
         {255, 3, 5, 153}},
        {"PassTarget",
         R"(/*{"PASSES": [{"TARGET": "small", "WIDTH": "$WIDTH / 2", "HEIGHT": "2"}, {}]}*/)" + describeImage("small") +
             "void main() { gl_FragColor = PASSINDEX == 0 ? vec4(0.0) : describe() + 0.0 * IMG_NORM_PIXEL(small, "
             "vec2(0.5)); }\n",
         {255, 8, 2, 153}},
        {"TextInput",
         R"(/*{"INPUTS": [{"NAME": "caption", "TYPE": "text", "DEFAULT": ""}]}*/)" + describeImage("caption") +
             "void main() { gl_FragColor = describe() + 0.0 * IMG_NORM_PIXEL(caption, vec2(0.5)); }\n",
         {255, 1, 1, 153}},
    };
    for (const auto& c : cases) write(QStringLiteral("%1.fs").arg(QLatin1String(c.name)), c.text);
    scan();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        liveChain({QLatin1String(c.name)});
        ASSERT_TRUE(qc(chain[0])->renderer()->isUsable());
        EXPECT_EQ(render(solid(Qt::black)).at(3, 3), c.expected);
    }
}

TEST_F(LVEffectsTest, ImageSizesHoldInsideASharedShader)
{
    write(QStringLiteral("Darken.fs"), R"(/*{"INPUTS": [{"NAME": "inputImage", "TYPE": "image"}]}*/
void main() { gl_FragColor = IMG_THIS_PIXEL(inputImage) * 0.5; }
)");
    write(QStringLiteral("Size.fs"), R"(/*{"INPUTS": [{"NAME": "inputImage", "TYPE": "image"}]}*/)" +
                                         describeImage("inputImage") + R"(
void main() { vec4 c = IMG_THIS_PIXEL(inputImage); gl_FragColor = vec4(describe().rg, c.b, 1.0); }
)");
    scan();
    std::vector<Frame> frames;
    for (bool fused : {true, false}) {
        LVQCEffect::setFusionEnabled(fused);
        liveChain({"Darken", "Size"});
        frames.push_back(render(solid(QColor(0, 0, 200))));
    }
    EXPECT_EQ(frames[0].at(5, 5), (ARGB{255, 16, 8, 100}));
    EXPECT_EQ(frames[0].bytes, frames[1].bytes);
}

TEST_F(LVEffectsTest, ISFTransitionsReadTheEndImageBySize)
{
    write(QStringLiteral("Wipe.fs"), R"(/*{"INPUTS": [{"NAME": "startImage", "TYPE": "image"},
    {"NAME": "endImage", "TYPE": "image"}, {"NAME": "progress", "TYPE": "float"}]}*/
void main() {
    vec4 end = IMG_NORM_PIXEL(endImage, gl_FragCoord.xy / _endImage_imgSize);
    gl_FragColor = mix(IMG_THIS_PIXEL(startImage), end, progress);
}
)");
    scan();
    LVEffectRef wipe = make(QStringLiteral("Wipe"));
    // Left half green, right half blue.
    QImage halves = solid(Qt::green);
    for (int y = 0; y < halves.height(); ++y)
        for (int x = halves.width() / 2; x < halves.width(); ++x) halves.setPixel(x, y, qRgb(0, 0, 255));
    const LVTexture target = texture(halves);
    const struct {
        double progress;
        std::vector<Pixel> pixels;
    } cases[] = {
        {0.0, {{1, 1, {255, 200, 0, 0}}, {14, 1, {255, 200, 0, 0}}}},
        {1.0, {{1, 1, {255, 0, 255, 0}}, {14, 1, {255, 0, 0, 255}}}},
    };
    for (const auto& c : cases) {
        drawPicture(solid(QColor(200, 0, 0)));
        wipe->doTransitionTo(target, c.progress);
        const Frame frame = read();
        for (const Pixel& p : c.pixels) EXPECT_EQ(frame.at(p.x, p.row), p.value) << c.progress << " at " << p.x;
    }
}

TEST_F(LVEffectsTest, OldDesktopConversionsCompileAndRender)
{
    const struct {
        const char* name;
        const char* code;
        ARGB expected;
    } cases[] = {
        {"IntFromFloatFunction", "float level(float x) { return 1; }\n"
                                 "void main() { gl_FragColor = vec4(level(0.0) * 0.2, 0.0, 0.0, 1.0); }\n",
         {255, 51, 0, 0}},
        {"IntComparedWithFloat", "void main() { int n = 3; gl_FragColor = vec4(n > 2.5 ? 0.2 : 0.0, "
                                 "n == 3.0 ? 0.4 : 0.0, n < 1.5 ? 1.0 : 0.0, 1.0); }\n",
         {255, 51, 102, 0}},
        {"UintFromIntLiteral", "void main() { uint u = 51; gl_FragColor = vec4(float(u) / 255.0, 0.0, 0.0, 1.0); }\n",
         {255, 51, 0, 0}},
        {"UintPlusInt", "void main() { uint u = 50u; int one = 1; uint sum = u + one;\n"
                        "    gl_FragColor = vec4(0.0, float(sum) / 255.0, 0.0, 1.0); }\n",
         {255, 0, 51, 0}},
        // Names that became keywords in the newer dialect stay names.
        {"LaterKeywordsAsNames", "int count(float x) { return 2; }\n"
                                 "float sample(float patch) { return patch; }\n"
                                 "void main() { float precise = sample(0.2); uint n = 1; "
                                 "gl_FragColor = vec4(precise, float(n) * 0.4, 0.0, 1.0); }\n",
         {255, 51, 102, 0}},
    };
    for (const auto& c : cases) write(QStringLiteral("%1.fs").arg(QLatin1String(c.name)), QByteArray("/*{}*/\n") + c.code);
    scan();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        liveChain({QLatin1String(c.name)});
        ASSERT_TRUE(qc(chain[0])->renderer()->isUsable())
            << LVISFProgramError(qc(chain[0])->renderer()->composition()).toStdString();
        EXPECT_EQ(render(solid(Qt::black)).at(2, 2), c.expected);
    }
}

TEST_F(LVEffectsTest, CompileErrorsNameTheFilesOwnLine)
{
    const struct {
        const char* name;
        const char* text;
        int line;
        const char* mentions;
    } cases[] = {
        {"Plain", "/*{\n}*/\nvoid main() {\n    gl_FragColor = vec4(missing);\n}\n", 4, "`missing'"},
        // Fails the strict dialect for the conversion and the relaxed one for the real fault.
        {"Converting", "/*{\n}*/\nfloat level() { return 1; }\nvoid main() {\n\n    gl_FragColor = vec4(missing);\n}\n", 6,
         "`missing'"},
        {"AfterLongHeader",
         "/*{\n\"INPUTS\": [\n{\"NAME\": \"a\", \"TYPE\": \"float\"}\n]\n}*/\nuint u = 3;\nvoid main() { gl_FragColor = a; }\n",
         7, "float"},
        // A later keyword kept as a name is named as the user wrote it.
        {"KeywordName", "/*{\n}*/\nuint u = 3;\nvoid main() { gl_FragColor = vec4(sample(1.0)); }\n", 4, "'sample'"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const QString path = write(QStringLiteral("%1.fs").arg(QLatin1String(c.name)), c.text);
        const auto composition = LVComposition::load(path);
        ASSERT_TRUE(composition->isValid()) << composition->error().toStdString();
        EXPECT_EQ(LVISFProgramFor(*composition, 0), nullptr);
        const QString error = LVISFProgramError(*composition);
        EXPECT_TRUE(error.startsWith(QStringLiteral("%1:%2: ").arg(path).arg(c.line))) << error.toStdString();
        EXPECT_TRUE(error.contains(QLatin1String(c.mentions))) << error.toStdString();
    }
}

TEST_F(LVEffectsTest, SweepReportsEachFileOfAFolder)
{
    const struct {
        const char* file;
        const char* text;
        const char* row; // kind, loaded, compiled, rendered
        const char* error;
    } cases[] = {
        {"Generator.fs", "/*{}*/\nvoid main() { gl_FragColor = vec4(TIME); }\n", "generator\tyes\tyes\tyes", ""},
        {"Filter.fs",
         R"(/*{"INPUTS": [{"NAME": "inputImage", "TYPE": "image"}]}*/
void main() { gl_FragColor = IMG_PIXEL(inputImage, gl_FragCoord.xy * _inputImage_imgRect.zw); })",
         "filter\tyes\tyes\tyes", ""},
        {"Fade.fs",
         R"(/*{"INPUTS": [{"NAME": "startImage", "TYPE": "image"}, {"NAME": "endImage", "TYPE": "image"},
    {"NAME": "progress", "TYPE": "float"}]}*/
void main() { gl_FragColor = mix(IMG_THIS_PIXEL(startImage), IMG_THIS_PIXEL(endImage), progress); })",
         "transition\tyes\tyes\tyes", ""},
        {"Unparsed.fs", "void main() {}\n", "-\tno\tno\tno", "Unparsed.fs:1: "},
        {"Uncompiled.fs", "/*{}*/\n\nvoid main() { gl_FragColor = nothing; }\n", "generator\tyes\tno\tno",
         "Uncompiled.fs:3: "},
    };
    for (const auto& c : cases) write(QLatin1String(c.file), c.text);
    QProcess sweep;
    sweep.start(QStringLiteral(LV_TEST_SWEEP_SCRIPT), {dir.path(), QStringLiteral(LV_TEST_BUILD_DIR)});
    ASSERT_TRUE(sweep.waitForFinished(120000));
    EXPECT_EQ(sweep.exitCode(), 1);
    const QStringList lines = QString::fromUtf8(sweep.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    ASSERT_EQ(lines.size(), int(std::size(cases)) + 2) << lines.join(QLatin1Char('\n')).toStdString();
    EXPECT_EQ(lines.last(), QStringLiteral("5 files, 3 rendered, 2 failed"));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const auto row = std::find_if(lines.begin(), lines.end(),
                                      [&](const QString& l) { return l.startsWith(QLatin1String(c.file) + '\t'); });
        ASSERT_NE(row, lines.end());
        const QStringList columns = row->split(QLatin1Char('\t'));
        ASSERT_EQ(columns.size(), 6);
        EXPECT_EQ(columns.mid(1, 4).join(QLatin1Char('\t')), QLatin1String(c.row));
        if (*c.error) EXPECT_TRUE(columns[5].contains(QLatin1String(c.error))) << columns[5].toStdString();
        else EXPECT_EQ(columns[5], QString());
    }

    // A clean collection passes.
    for (const char* broken : {"Unparsed.fs", "Uncompiled.fs"}) QFile::remove(dir.filePath(QLatin1String(broken)));
    sweep.start(QStringLiteral(LV_TEST_SWEEP_SCRIPT), {dir.path(), QStringLiteral(LV_TEST_BUILD_DIR)});
    ASSERT_TRUE(sweep.waitForFinished(120000));
    EXPECT_EQ(sweep.exitCode(), 0) << sweep.readAllStandardOutput().toStdString();
}
