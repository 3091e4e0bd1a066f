#include "LVCamConverterFixture.h"

namespace {

// A 4x2 camera picture (top row first). Columns 0-1 share neutral chroma, columns 2-3 are red,
// so every subsampling scheme sees the same chroma per 2x2 block.
//   row 0: Y 235 (white), Y 16 (black), red, red
//   row 1: Y 126 (grey 128), Y 235 (white), red, red
constexpr YUV kPicture[2][4] = {
    {{235, 128, 128}, {16, 128, 128}, {81, 90, 240}, {81, 90, 240}},
    {{126, 128, 128}, {235, 128, 128}, {81, 90, 240}, {81, 90, 240}},
};
// Worked out by hand for BT.601 limited range: R = 1.164(Y-16) + 1.596(V-128) and so on.
constexpr RGBA kExpected[2][4] = {
    {{255, 255, 255, 255}, {0, 0, 0, 255}, {254, 0, 0, 255}, {254, 0, 0, 255}},
    {{128, 128, 128, 255}, {255, 255, 255, 255}, {254, 0, 0, 255}, {254, 0, 0, 255}},
};

class LVCamConverterTest : public LVCamConverterFixture {
protected:
    // Writes each pixel's components where the format keeps them.
    static GstBuffer* makeFrame(GstVideoFormat format, GstVideoInfo& info, GstVideoColorRange range)
    {
        gst_video_info_set_format(&info, format, 4, 2);
        info.colorimetry.range = range;
        info.colorimetry.matrix = GST_VIDEO_COLOR_MATRIX_BT601;
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
        gst_buffer_memset(buffer, 0, 0x5A, info.size); // padding must not show
        GstVideoFrame frame;
        EXPECT_TRUE(gst_video_frame_map(&frame, &info, buffer, GST_MAP_WRITE));
        const bool rgb = GST_VIDEO_INFO_IS_RGB(&info);
        for (int row = 0; row < 2; ++row) {
            for (int x = 0; x < 4; ++x) {
                const YUV& p = kPicture[row][x];
                const RGBA& e = kExpected[row][x];
                const int values[4] = {rgb ? e[0] : p.y, rgb ? e[1] : p.u, rgb ? e[2] : p.v, 255};
                for (int c = 0; c < int(GST_VIDEO_FRAME_N_COMPONENTS(&frame)); ++c) {
                    const int cx = x >> GST_VIDEO_FORMAT_INFO_W_SUB(info.finfo, c);
                    const int cy = row >> GST_VIDEO_FORMAT_INFO_H_SUB(info.finfo, c);
                    auto* data = static_cast<guint8*>(GST_VIDEO_FRAME_COMP_DATA(&frame, c));
                    data[cy * GST_VIDEO_FRAME_COMP_STRIDE(&frame, c) + cx * GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, c)] =
                        guint8(values[c]);
                }
            }
        }
        gst_video_frame_unmap(&frame);
        return buffer;
    }

    std::shared_ptr<const LVCamPicture> convert(GstVideoFormat format,
                                                GstVideoColorRange range = GST_VIDEO_COLOR_RANGE_16_235)
    {
        GstVideoInfo info;
        GstBuffer* buffer = makeFrame(format, info, range);
        GstVideoFrame frame;
        EXPECT_TRUE(gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ));
        auto picture = converter->convert(frame, 42);
        gst_video_frame_unmap(&frame);
        gst_buffer_unref(buffer);
        return picture;
    }
};

TEST_F(LVCamConverterTest, EveryCameraLayoutConvertsToTheSameUprightPicture)
{
    const GstVideoFormat formats[] = {GST_VIDEO_FORMAT_YUY2, GST_VIDEO_FORMAT_UYVY, GST_VIDEO_FORMAT_NV12,
                                      GST_VIDEO_FORMAT_I420, GST_VIDEO_FORMAT_YV12, GST_VIDEO_FORMAT_Y42B,
                                      GST_VIDEO_FORMAT_Y444, GST_VIDEO_FORMAT_BGRx, GST_VIDEO_FORMAT_RGBA};
    for (GstVideoFormat format : formats) {
        auto picture = convert(format);
        ASSERT_TRUE(picture) << gst_video_format_to_string(format);
        EXPECT_EQ(picture->width(), 4);
        EXPECT_EQ(picture->height(), 2);
        EXPECT_EQ(picture->captureTimeNs(), 42);
        for (int row = 0; row < 2; ++row) {
            for (int x = 0; x < 4; ++x) {
                // One step of rounding in the shader's float arithmetic.
                EXPECT_TRUE(near(at(*picture, x, row), kExpected[row][x], 1))
                    << gst_video_format_to_string(format) << " pixel " << x << "," << row;
            }
        }
    }
}

TEST_F(LVCamConverterTest, FullRangeCamerasUseTheWholeScale)
{
    auto picture = convert(GST_VIDEO_FORMAT_YUY2, GST_VIDEO_COLOR_RANGE_0_255);
    ASSERT_TRUE(picture);
    // Full range: Y 235 is 235, Y 16 is 16, Y 126 is 126 (neutral chroma).
    EXPECT_TRUE(near(at(*picture, 0, 0), {235, 235, 235, 255}, 1));
    EXPECT_TRUE(near(at(*picture, 1, 0), {16, 16, 16, 255}, 1));
    EXPECT_TRUE(near(at(*picture, 0, 1), {126, 126, 126, 255}, 1));
}

TEST_F(LVCamConverterTest, UnsupportedFormatsGiveNoPicture)
{
    GstVideoInfo info;
    gst_video_info_set_format(&info, GST_VIDEO_FORMAT_GRAY16_LE, 4, 2);
    GstBuffer* buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
    GstVideoFrame frame;
    ASSERT_TRUE(gst_video_frame_map(&frame, &info, buffer, GST_MAP_READ));
    EXPECT_FALSE(converter->convert(frame, 0));
    gst_video_frame_unmap(&frame);
    gst_buffer_unref(buffer);
}

TEST_F(LVCamConverterTest, ReleasedTexturesAreReusedAndBlackIsOpaque)
{
    GLuint first = 0;
    {
        auto picture = convert(GST_VIDEO_FORMAT_NV12);
        ASSERT_TRUE(picture);
        first = picture->name();
        // A held picture is never drawn over.
        auto second = convert(GST_VIDEO_FORMAT_NV12);
        ASSERT_TRUE(second);
        EXPECT_NE(second->name(), first);
        EXPECT_TRUE(near(at(*picture, 0, 0), kExpected[0][0], 1));
    }
    auto again = convert(GST_VIDEO_FORMAT_NV12);
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->name() == first || glIsTexture(first));
    auto black = converter->black(4, 2);
    ASSERT_TRUE(black);
    EXPECT_TRUE(black->isBlack());
    EXPECT_TRUE(near(at(*black, 3, 1), {0, 0, 0, 255}, 0));
}

} // namespace
