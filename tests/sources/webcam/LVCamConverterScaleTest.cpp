// Conversion straight to another size: movies larger than the chain are converted at the
// chain's size in the same pass.
#include "LVCamConverterFixture.h"

#include <functional>

namespace {

constexpr YUV kWhite{235, 128, 128}, kBlack{16, 128, 128}, kRed{81, 90, 240}, kGrey{126, 128, 128};
constexpr RGBA kWhiteRGB{255, 255, 255, 255}, kBlackRGB{0, 0, 0, 255}, kRedRGB{254, 0, 0, 255}, kGreyRGB{128, 128, 128, 255};

// An 8x4 frame of 2x2 blocks, so every chroma subsampling sees one colour per block.
constexpr YUV kBlocks[2][4] = {{kWhite, kBlack, kRed, kGrey}, {kRed, kWhite, kGrey, kBlack}};
constexpr RGBA kBlocksRGB[2][4] = {{kWhiteRGB, kBlackRGB, kRedRGB, kGreyRGB}, {kRedRGB, kWhiteRGB, kGreyRGB, kBlackRGB}};

const GstVideoFormat kFormats[] = {GST_VIDEO_FORMAT_YUY2, GST_VIDEO_FORMAT_UYVY, GST_VIDEO_FORMAT_NV12,
                                   GST_VIDEO_FORMAT_I420, GST_VIDEO_FORMAT_YV12, GST_VIDEO_FORMAT_Y42B,
                                   GST_VIDEO_FORMAT_Y444, GST_VIDEO_FORMAT_BGRx, GST_VIDEO_FORMAT_RGBA};

class LVCamConverterScaleTest : public LVCamConverterFixture {
protected:
    // A width x height frame whose pixel (x, row) has the components yuv(x, row) gives
    // (RGB formats take rgb(x, row) instead), limited-range BT.601.
    std::shared_ptr<const LVCamPicture> convert(GstVideoFormat format, int width, int height,
                                                const std::function<YUV(int, int)>& yuv,
                                                const std::function<RGBA(int, int)>& rgb)
    {
        GstVideoInfo info;
        gst_video_info_set_format(&info, format, width, height);
        info.colorimetry.range = GST_VIDEO_COLOR_RANGE_16_235;
        info.colorimetry.matrix = GST_VIDEO_COLOR_MATRIX_BT601;
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
        gst_buffer_memset(buffer, 0, 0x5A, info.size);
        GstVideoFrame frame;
        EXPECT_TRUE(gst_video_frame_map(&frame, &info, buffer, GST_MAP_READWRITE));
        const bool isRGB = GST_VIDEO_INFO_IS_RGB(&info);
        for (int row = 0; row < height; ++row) {
            for (int x = 0; x < width; ++x) {
                const YUV p = yuv(x, row);
                const RGBA e = rgb(x, row);
                const int values[4] = {isRGB ? e[0] : p.y, isRGB ? e[1] : p.u, isRGB ? e[2] : p.v, 255};
                for (int c = 0; c < int(GST_VIDEO_FRAME_N_COMPONENTS(&frame)); ++c) {
                    const int cx = x >> GST_VIDEO_FORMAT_INFO_W_SUB(info.finfo, c);
                    const int cy = row >> GST_VIDEO_FORMAT_INFO_H_SUB(info.finfo, c);
                    auto* data = static_cast<guint8*>(GST_VIDEO_FRAME_COMP_DATA(&frame, c));
                    data[cy * GST_VIDEO_FRAME_COMP_STRIDE(&frame, c) + cx * GST_VIDEO_FRAME_COMP_PSTRIDE(&frame, c)] =
                        guint8(values[c]);
                }
            }
        }
        auto picture = converter->convert(frame, 7);
        gst_video_frame_unmap(&frame);
        gst_buffer_unref(buffer);
        return picture;
    }

    std::shared_ptr<const LVCamPicture> convertBlocks(GstVideoFormat format)
    {
        return convert(
            format, 8, 4, [](int x, int row) { return kBlocks[row / 2][x / 2]; },
            [](int x, int row) { return kBlocksRGB[row / 2][x / 2]; });
    }
};

TEST_F(LVCamConverterScaleTest, EveryLayoutScalesToTheAskedSizeUpright)
{
    struct Case {
        int askWidth, askHeight; // the output size asked for
        int width, height;       // the picture that comes out
        int block;               // output pixels per block side
    };
    const Case cases[] = {
        {4, 2, 4, 2, 1}, // half size: each pixel is one block
        {8, 4, 8, 4, 2}, // the frame's own size asked for explicitly
        {0, 0, 8, 4, 2}, // nothing asked: the frame's size
        {4, 0, 8, 4, 2}, // half an answer counts as none
    };
    for (const Case& c : cases) {
        converter->setOutputSize(c.askWidth, c.askHeight);
        for (GstVideoFormat format : kFormats) {
            auto picture = convertBlocks(format);
            const std::string what = std::string(gst_video_format_to_string(format)) + " asked " +
                                     std::to_string(c.askWidth) + "x" + std::to_string(c.askHeight);
            ASSERT_TRUE(picture) << what;
            EXPECT_EQ(picture->width(), c.width) << what;
            EXPECT_EQ(picture->height(), c.height) << what;
            EXPECT_EQ(picture->captureTimeNs(), 7) << what;
            for (int row = 0; row < c.height; ++row)
                for (int x = 0; x < c.width; ++x)
                    EXPECT_TRUE(near(at(*picture, x, row), kBlocksRGB[row / c.block][x / c.block], 1))
                        << what << " pixel " << x << "," << row;
        }
    }
}

TEST_F(LVCamConverterScaleTest, ShrinkingBlendsNeighboursInsteadOfPickingOne)
{
    // Columns alternate white and black; at half width every pixel is their mean, where a
    // nearest pick would flicker between the two as the movie moves.
    converter->setOutputSize(4, 2);
    const GstVideoFormat filtered[] = {GST_VIDEO_FORMAT_NV12, GST_VIDEO_FORMAT_I420, GST_VIDEO_FORMAT_Y444,
                                       GST_VIDEO_FORMAT_BGRx};
    for (GstVideoFormat format : filtered) {
        auto picture = convert(
            format, 8, 4, [](int x, int) { return x % 2 ? kBlack : kWhite; },
            [](int x, int) { return x % 2 ? kBlackRGB : kWhiteRGB; });
        ASSERT_TRUE(picture) << gst_video_format_to_string(format);
        for (int x = 0; x < 4; ++x)
            EXPECT_TRUE(near(at(*picture, x, 1), {128, 128, 128, 255}, 2)) << gst_video_format_to_string(format) << " x " << x;
    }
}

TEST_F(LVCamConverterScaleTest, SwitchingSizesNeverHandsOutAPictureOfTheOtherSize)
{
    // Switching the size back and forth never hands out a texture of the other size.
    for (int round = 0; round < 3; ++round) {
        converter->setOutputSize(round % 2 ? 4 : 0, round % 2 ? 2 : 0);
        auto picture = convertBlocks(GST_VIDEO_FORMAT_I420);
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->width(), round % 2 ? 4 : 8);
        EXPECT_TRUE(near(at(*picture, 0, 0), kWhiteRGB, 1));
        EXPECT_TRUE(near(at(*picture, picture->width() - 1, picture->height() - 1), kBlackRGB, 1));
    }
}

} // namespace
