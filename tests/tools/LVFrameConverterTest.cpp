#include "tools/vcam/LVFrameConverter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace {

struct Colour {
    const char* name;
    uint8_t r, g, b;
    int y, u, v; // BT.601, studio range
};

// Worked out from Y = 16 + (65.481 R + 128.553 G + 24.966 B) / 255 and the matching U, V.
const Colour kColours[] = {
    {"white", 255, 255, 255, 235, 128, 128},
    {"black", 0, 0, 0, 16, 128, 128},
    {"red", 255, 0, 0, 81, 90, 240},
    {"green", 0, 255, 0, 145, 54, 34},
    {"blue", 0, 0, 255, 41, 240, 110},
    {"75% yellow", 191, 191, 0, 162, 44, 142},
};

// A transport frame of one colour: A,R,G,B bytes.
std::vector<uint8_t> solid(int w, int h, const Colour& c)
{
    std::vector<uint8_t> f(size_t(w) * h * 4);
    for (size_t i = 0; i < f.size(); i += 4) {
        f[i] = 0xFF;
        f[i + 1] = c.r;
        f[i + 2] = c.g;
        f[i + 3] = c.b;
    }
    return f;
}

// A format's planes in order, each a repeating pattern of components.
struct Plane {
    int bytes;
    const char* pattern;
};

int component(const Colour& c, char which)
{
    static const char letters[] = "YUVRGBA";
    const int values[] = {c.y, c.u, c.v, c.r, c.g, c.b, 0xFF};
    return values[std::strchr(letters, which) - letters];
}

TEST(LVFrameConverterTest, EveryFormatCarriesTheRightValuesInTheRightPlaces)
{
    const int w = 4, h = 2;
    const std::pair<LVVcamFormat, std::vector<Plane>> formats[] = {
        {LVVcamFormat::YUYV, {{w * h * 2, "YUYV"}}},
        {LVVcamFormat::I420, {{w * h, "Y"}, {w * h / 4, "U"}, {w * h / 4, "V"}}},
        {LVVcamFormat::NV12, {{w * h, "Y"}, {w * h / 2, "UV"}}},
        {LVVcamFormat::BGRA, {{w * h * 4, "BGRA"}}},
    };
    for (const Colour& c : kColours) {
        const std::vector<uint8_t> src = solid(w, h, c);
        for (const auto& [format, planes] : formats) {
            SCOPED_TRACE(testing::Message() << c.name << " as " << LVVcamFormatName(format));
            size_t frameBytes = 0;
            for (const Plane& plane : planes) frameBytes += size_t(plane.bytes);
            LVFrameConverter conv(LVVcamLayout::packed(format, w, h));
            ASSERT_EQ(conv.layout().frameBytes, frameBytes);
            std::vector<uint8_t> out(frameBytes + 1, 0xEE);
            conv.convert(src.data(), w, h, out.data());
            EXPECT_EQ(out.back(), 0xEE) << "written past the frame";
            size_t at = 0;
            for (const Plane& plane : planes) {
                for (int i = 0; i < plane.bytes; ++i, ++at) {
                    const char which = plane.pattern[size_t(i) % std::strlen(plane.pattern)];
                    const int slack = std::strchr("YUV", which) ? 1 : 0; // BT.601 values are rounded
                    EXPECT_LE(std::abs(out[at] - component(c, which)), slack) << which << " at byte " << at;
                }
            }
        }
    }
}

TEST(LVFrameConverterTest, OtherSizesAreFittedAndCentredOnBlack)
{
    // A 4x2 white frame into 4x4 BGRA: rows 1 and 2 white, rows 0 and 3 black.
    LVFrameConverter conv(LVVcamLayout::packed(LVVcamFormat::BGRA, 4, 4));
    const std::vector<uint8_t> src = solid(4, 2, kColours[0]);
    std::vector<uint8_t> out(conv.layout().frameBytes);
    conv.convert(src.data(), 4, 2, out.data());
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) {
            const uint8_t want = (y == 1 || y == 2) ? 255 : 0;
            const uint8_t* p = out.data() + (y * 4 + x) * 4;
            EXPECT_EQ(p[0], want) << x << "," << y;
            EXPECT_EQ(p[3], 0xFF);
        }
}

TEST(LVFrameConverterTest, RowsLongerThanAFrameLineKeepTheirPadding)
{
    // A driver may answer a wider stride than asked: the padding is left alone.
    LVVcamLayout l = LVVcamLayout::packed(LVVcamFormat::YUYV, 2, 20);
    l.bytesPerLine = 8;
    l.computeFrameBytes();
    LVFrameConverter conv(l);
    const std::vector<uint8_t> src = solid(2, 20, kColours[1]);
    std::vector<uint8_t> out(l.frameBytes, 0xEE);
    conv.convert(src.data(), 2, 20, out.data());
    for (int y = 0; y < 20; ++y) {
        EXPECT_EQ(out[y * 8], 16);
        EXPECT_EQ(out[y * 8 + 4], 0xEE);
    }
}

} // namespace
