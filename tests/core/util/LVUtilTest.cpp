#include "core/util/LVUtil.h"

#include <QPainter>

#include <gtest/gtest.h>

namespace {

struct FitCase {
    QSizeF content, container;
    QRectF expected;
};

class FitRect : public testing::TestWithParam<FitCase> {};

TEST_P(FitRect, CentresAndTruncates)
{
    const FitCase& c = GetParam();
    EXPECT_EQ(LVUtil::fitRect(c.content, c.container), c.expected);
}

INSTANTIATE_TEST_SUITE_P(WorkedExamples, FitRect,
                         testing::Values(FitCase{{640, 480}, {320, 240}, {0, 0, 320, 240}},
                                         FitCase{{1280, 720}, {640, 480}, {0, 60, 640, 360}},
                                         FitCase{{480, 640}, {640, 480}, {140, 0, 360, 480}},
                                         FitCase{{320, 240}, {1280, 720}, {160, 0, 960, 720}},
                                         // Equal aspect takes the "otherwise" branch: full height.
                                         FitCase{{160, 90}, {1920, 1080}, {0, 0, 1920, 1080}},
                                         // Truncation: 100 / 3 * 2 = 66.67 -> 66; (100 - 66) * 0.5 = 17.
                                         FitCase{{3, 2}, {100, 100}, {0, 17, 100, 66}},
                                         // Odd leftover: (101 - 50) / 2 in integers = 25.
                                         FitCase{{1, 2}, {101, 100}, {25, 0, 50, 100}}));

TEST(BitmapContext, NewContextReadsBackAllFF)
{
    auto context = LVUtil::newBitmapContext(7, 3, LVPixelFormatPremultipliedFirst);
    ASSERT_TRUE(context);
    EXPECT_EQ(context->rowBytes(), 28);
    for (int i = 0; i < 7 * 3 * 4; ++i) ASSERT_EQ(context->data()[i], 0xFF) << "byte " << i;
}

TEST(BitmapContext, FailuresSayWhy)
{
    testing::internal::CaptureStderr();
    EXPECT_FALSE(LVUtil::newBitmapContext(1 << 20, 1 << 20, LVPixelFormatPremultipliedFirst));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Memory not allocated!");

    testing::internal::CaptureStderr();
    EXPECT_FALSE(LVUtil::newBitmapContext(2, 2, 99));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Context not created!\n");
}

TEST(BitmapContext, DrawsIntoCallersBuffer)
{
    std::vector<uint32_t> pixels(4 * 2, 0);
    auto context = LVUtil::newBitmapContextWithData(reinterpret_cast<uint8_t*>(pixels.data()), 4, 2,
                                                    LVPixelFormatPremultipliedFirst);
    ASSERT_TRUE(context);
    QPainter(&context->image()).fillRect(QRect(0, 0, 2, 2), QColor(255, 0, 0));
    EXPECT_EQ(pixels[0], 0xFFFF0000u);
    EXPECT_EQ(pixels[2], 0u);
}

TEST(ImageConversion, KeepsPremultipliedImagesAndConvertsOthersWithCopy)
{
    QImage native(2, 1, QImage::Format_ARGB32_Premultiplied);
    native.fill(QColor(0, 0, 255));
    EXPECT_EQ(LVUtil::imageFromImage(native).constBits(), native.constBits());

    // A half-transparent pixel is copied, not blended over the white fill.
    QImage rgba(1, 1, QImage::Format_RGBA8888);
    rgba.setPixelColor(0, 0, QColor(255, 0, 0, 128));
    const QImage converted = LVUtil::imageFromImage(rgba);
    ASSERT_EQ(converted.format(), QImage::Format_ARGB32_Premultiplied);
    EXPECT_EQ(qAlpha(converted.pixel(0, 0)), 128);
    EXPECT_EQ(qRed(converted.pixel(0, 0)), 128);  // premultiplied
    EXPECT_EQ(qGreen(converted.pixel(0, 0)), 0);
}

} // namespace
