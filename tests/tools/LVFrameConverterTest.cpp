#include "tools/vcam/LVFrameConverter.h"

#include <gtest/gtest.h>

#include <cstdlib>
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

void expectNear(int actual, int expected, const char* what, const Colour& c)
{
    EXPECT_LE(std::abs(actual - expected), 1) << what << " of " << c.name << ": " << actual << " vs " << expected;
}

TEST(LVFrameConverterTest, EveryFormatCarriesTheRightValuesInTheRightPlaces)
{
    const int w = 4, h = 2;
    for (const Colour& c : kColours) {
        const std::vector<uint8_t> src = solid(w, h, c);
        for (LVVcamFormat f : {LVVcamFormat::YUYV, LVVcamFormat::I420, LVVcamFormat::NV12, LVVcamFormat::BGRA}) {
            SCOPED_TRACE(LVVcamFormatName(f));
            LVFrameConverter conv(LVVcamLayout::packed(f, w, h));
            std::vector<uint8_t> out(conv.layout().frameBytes + 1, 0xEE);
            conv.convert(src.data(), w, h, out.data());
            EXPECT_EQ(out.back(), 0xEE); // nothing written past the frame
            switch (f) {
            case LVVcamFormat::YUYV:
                ASSERT_EQ(conv.layout().frameBytes, size_t(w * h * 2));
                for (size_t i = 0; i < size_t(w * h * 2); i += 4) {
                    expectNear(out[i], c.y, "Y0", c);
                    expectNear(out[i + 1], c.u, "U", c);
                    expectNear(out[i + 2], c.y, "Y1", c);
                    expectNear(out[i + 3], c.v, "V", c);
                }
                break;
            case LVVcamFormat::I420:
                ASSERT_EQ(conv.layout().frameBytes, size_t(w * h * 3 / 2));
                for (int i = 0; i < w * h; ++i)
                    expectNear(out[i], c.y, "Y", c);
                expectNear(out[w * h], c.u, "U", c);
                expectNear(out[w * h + 1], c.u, "U", c);
                expectNear(out[w * h + 2], c.v, "V", c);
                expectNear(out[w * h + 3], c.v, "V", c);
                break;
            case LVVcamFormat::NV12:
                ASSERT_EQ(conv.layout().frameBytes, size_t(w * h * 3 / 2));
                for (int i = 0; i < w * h; ++i)
                    expectNear(out[i], c.y, "Y", c);
                expectNear(out[w * h], c.u, "U", c);
                expectNear(out[w * h + 1], c.v, "V", c);
                break;
            case LVVcamFormat::BGRA:
                for (int i = 0; i < w * h * 4; i += 4) {
                    EXPECT_EQ(out[i], c.b);
                    EXPECT_EQ(out[i + 1], c.g);
                    EXPECT_EQ(out[i + 2], c.r);
                    EXPECT_EQ(out[i + 3], 0xFF);
                }
                break;
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
