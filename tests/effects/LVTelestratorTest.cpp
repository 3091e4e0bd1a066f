// Strokes drawn by hand: the stroke list's rules, exact pixels on the GPU against a model
// computed here, and what a saved setup keeps.
#include "effects/telestrator/Telestrator.h"
#include "tests/effects/LVEffectsTestSupport.h"

#include <QJsonObject>

#include <cmath>
#include <limits>

namespace {

struct ModelStroke {
    std::vector<QPointF> points;
    QColor color;
    double width;
    bool eraser = false;
};

double distanceToSegment(QPointF p, QPointF a, QPointF b)
{
    const QPointF ba = b - a, pa = p - a;
    const double length2 = QPointF::dotProduct(ba, ba);
    const double t = length2 > 0 ? std::clamp(QPointF::dotProduct(pa, ba) / length2, 0.0, 1.0) : 0.0;
    const QPointF d = pa - ba * t;
    return std::hypot(d.x(), d.y());
}

// The pixel as the strokes should leave it over an opaque background; nullopt when a pixel
// centre lies so near a stroke's edge that float rounding may go either way.
std::optional<ARGB> modelPixel(const std::vector<ModelStroke>& strokes, QColor background, int x, int row, QSize frame,
                               double opacity = 1.0)
{
    const QPointF centre(x + 0.5, frame.height() - row - 0.5);
    double layer[4] = {0, 0, 0, 0};  // premultiplied r, g, b, a
    for (const ModelStroke& s : strokes) {
        const double radius = s.width * frame.height() / 2;
        double d = std::numeric_limits<double>::max();
        const size_t segments = std::max<size_t>(1, s.points.size() - 1);
        for (size_t i = 0; i < segments; ++i) {
            const auto gl = [&](QPointF p) { return QPointF(p.x() * frame.width(), (1 - p.y()) * frame.height()); };
            d = std::min(d, distanceToSegment(centre, gl(s.points[i]), gl(s.points[std::min(i + 1, s.points.size() - 1)])));
        }
        if (std::abs(d - radius) < 0.02) return std::nullopt;
        if (d > radius) continue;
        if (s.eraser) {
            std::fill(std::begin(layer), std::end(layer), 0.0);
            continue;
        }
        const double a = s.color.alphaF() * opacity;
        const double c[4] = {s.color.redF() * a, s.color.greenF() * a, s.color.blueF() * a, a};
        for (int i = 0; i < 4; ++i) layer[i] = c[i] + layer[i] * (1 - a);
    }
    const double bg[3] = {background.redF(), background.greenF(), background.blueF()};
    ARGB out{255, 0, 0, 0};
    for (int i = 0; i < 3; ++i) out[size_t(i) + 1] = int(std::lround((layer[i] + bg[i] * (1 - layer[3])) * 255));
    return out;
}

class LVTelestratorTest : public LVEffectsTest {
protected:
    std::shared_ptr<Telestrator> makeTelestrator()
    {
        LVRegisterTelestrator();
        auto effect = std::make_shared<Telestrator>();
        effect->initWithContext(ctx.get());
        effect->setMode(LVModeLive);
        return effect;
    }

    static void draw(Telestrator& t, const ModelStroke& s)
    {
        t.setParameterValue(QStringLiteral("strokeColor"), s.color);
        t.setParameterValue(QStringLiteral("strokeWidth"), s.width);
        t.setParameterValue(QStringLiteral("eraser"), s.eraser);
        t.beginStroke(s.points.front());
        for (size_t i = 1; i < s.points.size(); ++i) t.continueStroke(s.points[i]);
        t.endStroke();
    }

    // Every pixel of the frame against the model; answers how many were compared.
    int expectFrame(const Frame& f, const std::vector<ModelStroke>& strokes, QColor background, int tolerance,
                    const char* what, double opacity = 1.0)
    {
        int compared = 0, wrong = 0;
        for (int row = 0; row < f.height; ++row) {
            for (int x = 0; x < f.width; ++x) {
                const auto expected = modelPixel(strokes, background, x, row, QSize(f.width, f.height), opacity);
                if (!expected) continue;
                ++compared;
                const ARGB got = f.at(x, row);
                bool same = true;
                for (size_t i = 0; i < 4; ++i) same = same && std::abs(got[i] - (*expected)[i]) <= tolerance;
                if (!same && ++wrong <= 3)
                    ADD_FAILURE() << what << ": pixel " << x << "," << row << " is " << ::testing::PrintToString(got)
                                  << ", expected " << ::testing::PrintToString(*expected);
            }
        }
        EXPECT_EQ(wrong, 0) << what;
        return compared;
    }
};

const QColor kBackground(20, 40, 60);

} // namespace

TEST(LVStrokeListTest, EditingKeepsPointsInTheFrameAndWithinBounds)
{
    LVStrokeList list;
    list.begin({-0.5, 2.0}, Qt::red, 5.0, false);
    list.extend({std::nan(""), 0.5});
    list.extend({std::nan(""), 0.5});  // a repeat adds nothing
    ASSERT_EQ(list.strokes().size(), 1u);
    EXPECT_EQ(list.strokes()[0].points, (std::vector<QPointF>{{0, 1}, {0, 0.5}}));
    EXPECT_LE(list.strokes()[0].width, 0.2);
    for (size_t i = 0; i < LVStrokeList::kMaxPoints + 10; ++i) list.extend({double(i % 97) / 97, double(i % 89) / 89});
    EXPECT_EQ(list.strokes()[0].points.size(), LVStrokeList::kMaxPoints);
    // Beginning again finishes the open stroke; past the bound the oldest makes room.
    for (size_t i = 0; i < LVStrokeList::kMaxStrokes; ++i) list.begin({0.5, double(i) / 1000}, Qt::blue, 0.01, false);
    EXPECT_EQ(list.strokes().size(), LVStrokeList::kMaxStrokes);
    EXPECT_EQ(list.strokes().front().color, QColor(Qt::blue));
    EXPECT_TRUE(list.strokes().front().finished);
    EXPECT_TRUE(list.undo());
    EXPECT_EQ(list.strokes().size(), LVStrokeList::kMaxStrokes - 1);
    list.clear();
    EXPECT_FALSE(list.undo());
    // A stroke still being drawn never fades, whatever the time.
    list.begin({0.1, 0.1}, Qt::red, 0.01, false);
    list.age(0, 1);
    list.age(100, 1);
    EXPECT_TRUE(list.isDrawing());
}

TEST(LVStrokeListTest, DamagedArchivedStrokesAreSkipped)
{
    struct Case {
        const char* what;
        QJsonValue entry;
        size_t strokes;
    };
    const QJsonArray twoPoints{0.2, 0.2, 0.8, 0.8};
    for (const Case& c : {
             Case{"no points", QJsonObject{{"color", "#ffff0000"}}, 0},
             Case{"bad colour", QJsonObject{{"color", "rouge"}, {"points", twoPoints}}, 0},
             Case{"not an object", QJsonValue(3), 0},
             Case{"odd coordinate count", QJsonObject{{"color", "#ffff0000"}, {"points", QJsonArray{0.1, 0.1, 0.5}}}, 1},
             Case{"width missing", QJsonObject{{"color", "#ffff0000"}, {"points", twoPoints}}, 1},
         }) {
        const LVStrokeList read = LVStrokeList::fromJson(QJsonArray{c.entry});
        EXPECT_EQ(read.strokes().size(), c.strokes) << c.what;
        for (const LVStroke& s : read.strokes()) EXPECT_TRUE(s.finished) << c.what;
    }
}

TEST_F(LVTelestratorTest, StrokesDrawExactPixelsOnTheGpu)
{
    struct Case {
        const char* what;
        std::vector<ModelStroke> strokes;
        int tolerance;
    };
    const std::vector<Case> cases = {
        {"a line", {{{{0.25, 0.5}, {0.75, 0.5}}, QColor(255, 0, 0), 4.0 / 48}}, 0},
        {"a dot", {{{{0.5, 0.5}}, QColor(0, 255, 0), 4.5 / 48}}, 0},
        {"a diagonal polyline", {{{{0.1, 0.9}, {0.4, 0.2}, {0.9, 0.6}}, QColor(255, 255, 0), 2.5 / 48}}, 0},
        {"the newer stroke on top",
         {{{{0.2, 0.5}, {0.8, 0.5}}, QColor(255, 0, 0), 4.0 / 48}, {{{0.5, 0.1}, {0.5, 0.9}}, QColor(0, 0, 255), 3.0 / 48}},
         0},
        {"an eraser cuts through",
         {{{{0.2, 0.5}, {0.8, 0.5}}, QColor(255, 0, 0), 4.5 / 48},
          {{{0.5, 0.1}, {0.5, 0.9}}, QColor(0, 0, 0), 3.0 / 48, true},
          {{{0.6, 0.2}, {0.6, 0.8}}, QColor(0, 255, 0), 2.0 / 48}},
         0},
        // A translucent stroke covers its joints once, not once per segment.
        {"a translucent zigzag",
         {{{{0.1, 0.2}, {0.5, 0.8}, {0.9, 0.2}, {0.5, 0.3}}, QColor(255, 255, 255, 128), 4.5 / 48}},
         1},
    };
    for (const QSize size : {QSize(64, 48), QSize(96, 72)}) {
        makeContext(size.width(), size.height());
        for (const Case& c : cases) {
            auto telestrator = makeTelestrator();
            for (const ModelStroke& s : c.strokes) draw(*telestrator, s);
            chain = {telestrator};
            const Frame f = render(solid(kBackground), 1.0);
            const int compared = expectFrame(f, c.strokes, kBackground, c.tolerance, c.what);
            EXPECT_GT(compared, size.width() * size.height() * 9 / 10) << c.what;
            chain.clear();
        }
    }
}

TEST_F(LVTelestratorTest, StrokesFadeByFrameTimeUndoAndClear)
{
    makeContext(64, 48);
    auto telestrator = makeTelestrator();
    telestrator->setParameterValue(QStringLiteral("fadeAfter"), 2.0);
    const ModelStroke line{{{0.2, 0.5}, {0.8, 0.5}}, QColor(255, 0, 0), 4.0 / 48};
    draw(*telestrator, line);
    chain = {telestrator};
    struct Step {
        double time, opacity;
    };
    // The first frame after the pen lifts starts the clock.
    for (const Step s : {Step{10, 1}, Step{12, 1}, Step{12.5, 0.5}, Step{13.2, 0}}) {
        const Frame f = render(solid(kBackground), s.time);
        expectFrame(f, s.opacity > 0 ? std::vector{line} : std::vector<ModelStroke>{}, kBackground, 1,
                    qPrintable(QStringLiteral("at %1 s").arg(s.time)), s.opacity);
    }
    EXPECT_TRUE(telestrator->strokes().isEmpty());

    telestrator->setParameterValue(QStringLiteral("fadeAfter"), 0.0);
    const ModelStroke cross{{{0.5, 0.1}, {0.5, 0.9}}, QColor(0, 0, 255), 3.0 / 48};
    draw(*telestrator, line);
    draw(*telestrator, cross);
    expectFrame(render(solid(kBackground), 1000), {line, cross}, kBackground, 0, "strokes stay");
    telestrator->setParameterValue(QStringLiteral("undo"), true);
    expectFrame(render(solid(kBackground), 1001), {line}, kBackground, 0, "after undo");
    telestrator->setParameterValue(QStringLiteral("clear"), true);
    expectFrame(render(solid(kBackground), 1002), {}, kBackground, 0, "after clear");
}

TEST_F(LVTelestratorTest, ASetupKeepsStrokesOnlyWhenAsked)
{
    makeContext(64, 48);
    const std::vector<ModelStroke> strokes = {{{{0.2, 0.3}, {0.7, 0.6}}, QColor(0, 200, 100, 160), 3.0 / 48},
                                              {{{0.5, 0.1}, {0.5, 0.9}}, QColor(0, 0, 0), 2.0 / 48, true}};
    for (const bool keep : {false, true}) {
        auto telestrator = makeTelestrator();
        telestrator->setParameterValue(QStringLiteral("keepStrokes"), keep);
        telestrator->setParameterValue(QStringLiteral("fadeAfter"), 30.0);
        for (const ModelStroke& s : strokes) draw(*telestrator, s);
        const QByteArray data = LVEffect::dataFromEffect(*telestrator);
        EXPECT_EQ(data.contains("\"strokes\""), keep);
        const LVEffectRef back = LVEffect::effectFromData(data, ctx.get());
        auto* restored = dynamic_cast<Telestrator*>(back.get());
        ASSERT_TRUE(restored);
        EXPECT_FALSE(restored->strokes().isDrawing());
        back->setMode(LVModeLive);
        chain = {back};
        // Points, colour with its alpha, width and the eraser, all as drawn.
        expectFrame(render(solid(kBackground), 5), keep ? strokes : std::vector<ModelStroke>{}, kBackground, 1,
                    keep ? "kept" : "not kept");
        chain.clear();
    }
}
