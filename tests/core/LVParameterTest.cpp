#include "core/LVParameter.h"

#include <QColor>
#include <QJsonArray>
#include <QPointF>

#include <gtest/gtest.h>

#include <limits>

namespace {

struct ClampCase {
    const char* what;
    LVParameter parameter;
    QVariant in;
    QVariant expected;
};

class Clamp : public testing::TestWithParam<ClampCase> {};

TEST_P(Clamp, BringsValuesIntoTypeAndRange)
{
    EXPECT_EQ(GetParam().parameter.clamp(GetParam().in), GetParam().expected) << GetParam().what;
}

const LVParameter size = LVFloatParameter("size", "Size", 1.0, 0.01, 2.0);
const LVParameter count = LVIntegerParameter("count", "Count", 3, 1, 10);
const LVParameter mode = LVChoiceParameter("mode", "Mode", 1, {"Green", "Blue"}, {1, 2});
const LVParameter where = LVPointParameter("where", "Position", {0, 0}, {-1, -1}, {1, 1});

INSTANTIATE_TEST_SUITE_P(
    Table, Clamp,
    testing::Values(ClampCase{"float above", size, 5.0, 2.0}, ClampCase{"float below", size, -1, 0.01},
                    ClampCase{"float inside", size, 0.5, 0.5},
                    ClampCase{"float NaN", size, std::numeric_limits<double>::quiet_NaN(), 1.0},
                    ClampCase{"float from text", size, QString("big"), 1.0},
                    ClampCase{"integer rounds", count, 4.6, 5}, ClampCase{"integer above", count, 50, 10},
                    ClampCase{"choice known", mode, 2, 2}, ClampCase{"choice unknown", mode, 7, 1},
                    ClampCase{"point clamps each axis", where, QPointF(3, -0.5), QPointF(1, -0.5)},
                    ClampCase{"point wrong type", where, 4, QPointF(0, 0)}));

TEST(Parameter, JsonRoundTripPerType)
{
    const LVParameter colour = LVColorParameter("c", "Colour", QColor(Qt::black));
    const QColor red(255, 0, 0, 255);
    EXPECT_EQ(colour.fromJson(colour.toJson(red)).value<QColor>(), red);
    EXPECT_EQ(where.fromJson(where.toJson(QPointF(0.25, -0.75))), QVariant(QPointF(0.25, -0.75)));
    EXPECT_EQ(where.fromJson(QJsonArray{1}), QVariant(QPointF(0, 0)));
    EXPECT_EQ(size.fromJson(QJsonValue(9.0)), QVariant(2.0));
    const LVParameter text = LVTextParameter("t", "Text", "x");
    EXPECT_EQ(text.fromJson(QJsonValue(3)), QVariant(QString("x")));
}

} // namespace
