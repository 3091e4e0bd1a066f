// The camera converter on its own offscreen GL context: every layout to the same upright
// picture, straight to another size in the same pass, and its texture reuse.
#include "LVCamTestSupport.h"

#include "sources/webcam/LVCamDevice.h"

#include <cstdlib>
#include <string>

namespace {

struct YUV {
    int y, u, v;
};

constexpr YUV kWhite{235, 128, 128}, kBlack{16, 128, 128}, kRed{81, 90, 240}, kGrey{126, 128, 128};
// Worked out by hand for BT.601 limited range: R = 1.164(Y-16) + 1.596(V-128) and so on (full
// range is checked through the grabber, whose JPEG camera decodes to it).
constexpr RGBA kWhiteRGB{255, 255, 255, 255}, kBlackRGB{0, 0, 0, 255}, kRedRGB{254, 0, 0, 255}, kGreyRGB{128, 128, 128, 255};

// A 4x2 picture whose luma differs pixel by pixel where the chroma is shared, so every
// subsampling scheme sees one chroma per 2x2 block and still has to keep luma at full size.
constexpr YUV kPixels[2][4] = {{kWhite, kBlack, kRed, kRed}, {kGrey, kWhite, kRed, kRed}};
constexpr RGBA kPixelsRGB[2][4] = {{kWhiteRGB, kBlackRGB, kRedRGB, kRedRGB}, {kGreyRGB, kWhiteRGB, kRedRGB, kRedRGB}};
// An 8x4 picture of 2x2 blocks, for sizes where a block becomes one pixel.
constexpr YUV kBlocks[2][4] = {{kWhite, kBlack, kRed, kGrey}, {kRed, kWhite, kGrey, kBlack}};
constexpr RGBA kBlocksRGB[2][4] = {{kWhiteRGB, kBlackRGB, kRedRGB, kGreyRGB}, {kRedRGB, kWhiteRGB, kGreyRGB, kBlackRGB}};

const GstVideoFormat kFormats[] = {GST_VIDEO_FORMAT_YUY2, GST_VIDEO_FORMAT_UYVY, GST_VIDEO_FORMAT_NV12,
                                   GST_VIDEO_FORMAT_I420, GST_VIDEO_FORMAT_YV12, GST_VIDEO_FORMAT_Y42B,
                                   GST_VIDEO_FORMAT_Y444, GST_VIDEO_FORMAT_BGRx, GST_VIDEO_FORMAT_RGBA};

::testing::AssertionResult near(const RGBA& got, const RGBA& want, int tolerance)
{
    for (int i = 0; i < 4; ++i) {
        if (std::abs(got[i] - want[i]) > tolerance)
            return ::testing::AssertionFailure() << "got (" << got[0] << "," << got[1] << "," << got[2] << "," << got[3]
                                                 << ") want (" << want[0] << "," << want[1] << "," << want[2] << ","
                                                 << want[3] << ")";
    }
    return ::testing::AssertionSuccess();
}

// What a frame holds: its size and the colour of each pixel, as camera components and as the
// RGB an RGB camera would send.
struct Picture {
    int width, height;
    std::function<YUV(int x, int row)> yuv;
    std::function<RGBA(int x, int row)> rgb;
};

const Picture kPixelPicture{4, 2, [](int x, int row) { return kPixels[row][x]; },
                            [](int x, int row) { return kPixelsRGB[row][x]; }};
const Picture kBlockPicture{8, 4, [](int x, int row) { return kBlocks[row / 2][x / 2]; },
                            [](int x, int row) { return kBlocksRGB[row / 2][x / 2]; }};

class LVCamConverterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_TRUE(LVCamInitGStreamer());
        QString error;
        gl = LVGLContext::makeOffscreenGLContext(&error);
        ASSERT_TRUE(gl) << error.toStdString();
        gl->makeCurrent();
        converter = LVCamConverter::create();
        ASSERT_TRUE(converter);
    }
    void TearDown() override
    {
        if (!gl) return;
        gl->makeCurrent();
        converter.reset();
    }

    // Writes each pixel's components where the format keeps them, over padding that must not show.
    std::shared_ptr<const LVCamPicture> convert(GstVideoFormat format, const Picture& picture)
    {
        GstVideoInfo info;
        gst_video_info_set_format(&info, format, guint(picture.width), guint(picture.height));
        info.colorimetry.range = GST_VIDEO_COLOR_RANGE_16_235;
        info.colorimetry.matrix = GST_VIDEO_COLOR_MATRIX_BT601;
        GstBuffer* buffer = gst_buffer_new_allocate(nullptr, info.size, nullptr);
        gst_buffer_memset(buffer, 0, 0x5A, info.size);
        GstVideoFrame frame;
        EXPECT_TRUE(gst_video_frame_map(&frame, &info, buffer, GST_MAP_READWRITE));
        const bool isRGB = GST_VIDEO_INFO_IS_RGB(&info);
        for (int row = 0; row < picture.height; ++row) {
            for (int x = 0; x < picture.width; ++x) {
                const YUV p = picture.yuv(x, row);
                const RGBA e = picture.rgb(x, row);
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
        auto converted = converter->convert(frame, 42);
        gst_video_frame_unmap(&frame);
        gst_buffer_unref(buffer);
        return converted;
    }

    // Reads on a context of its own that shares the converter's textures.
    RGBA at(const LVCamPicture& picture, int x, int row)
    {
        const RGBA pixel = reader.at(picture, x, row);
        gl->makeCurrent();
        return pixel;
    }

    std::unique_ptr<LVGLContext> gl;
    std::unique_ptr<LVCamConverter> converter;
    LVPictureReader reader;
};

TEST_F(LVCamConverterTest, EveryLayoutConvertsUprightToTheAskedSize)
{
    const struct {
        const char* what;
        const Picture& picture;
        int askWidth, askHeight;
        int block; // output pixels per block side (kBlocks) or 1 (kPixels)
    } cases[] = {
        {"own size, nothing asked", kPixelPicture, 0, 0, 1},
        {"half size: each block one pixel", kBlockPicture, 4, 2, 1},
        {"own size asked explicitly", kBlockPicture, 8, 4, 2},
        {"half an answer counts as none", kBlockPicture, 4, 0, 2},
    };
    for (const auto& c : cases) {
        converter->setOutputSize(c.askWidth, c.askHeight);
        const bool blocks = &c.picture == &kBlockPicture;
        const int width = c.askWidth && c.askHeight ? c.askWidth : c.picture.width;
        const int height = c.askWidth && c.askHeight ? c.askHeight : c.picture.height;
        for (GstVideoFormat format : kFormats) {
            SCOPED_TRACE(std::string(c.what) + ", " + gst_video_format_to_string(format));
            auto picture = convert(format, c.picture);
            ASSERT_TRUE(picture);
            EXPECT_EQ(picture->width(), width);
            EXPECT_EQ(picture->height(), height);
            EXPECT_EQ(picture->captureTimeNs(), 42);
            for (int row = 0; row < height; ++row) {
                for (int x = 0; x < width; ++x) {
                    const RGBA want = blocks ? kBlocksRGB[row / c.block][x / c.block] : kPixelsRGB[row][x];
                    // One step of rounding in the shader's float arithmetic.
                    EXPECT_TRUE(near(at(*picture, x, row), want, 1)) << "pixel " << x << "," << row;
                }
            }
        }
    }
}

TEST_F(LVCamConverterTest, ShrinkingBlendsNeighboursInsteadOfPickingOne)
{
    // Columns alternate white and black; at half width every pixel is their mean, where a
    // nearest pick would flicker between the two as the movie moves.
    converter->setOutputSize(4, 2);
    const Picture stripes{8, 4, [](int x, int) { return x % 2 ? kBlack : kWhite; },
                          [](int x, int) { return x % 2 ? kBlackRGB : kWhiteRGB; }};
    for (GstVideoFormat format : {GST_VIDEO_FORMAT_NV12, GST_VIDEO_FORMAT_I420, GST_VIDEO_FORMAT_Y444, GST_VIDEO_FORMAT_BGRx}) {
        auto picture = convert(format, stripes);
        ASSERT_TRUE(picture) << gst_video_format_to_string(format);
        for (int x = 0; x < 4; ++x)
            EXPECT_TRUE(near(at(*picture, x, 1), {128, 128, 128, 255}, 2)) << gst_video_format_to_string(format) << " x " << x;
    }
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

TEST_F(LVCamConverterTest, HeldPicturesAreNeverDrawnOverAndSizesNeverMix)
{
    GLuint first = 0;
    {
        auto picture = convert(GST_VIDEO_FORMAT_NV12, kPixelPicture);
        ASSERT_TRUE(picture);
        first = picture->name();
        auto second = convert(GST_VIDEO_FORMAT_NV12, kPixelPicture);
        ASSERT_TRUE(second);
        EXPECT_NE(second->name(), first);
        EXPECT_TRUE(near(at(*picture, 0, 0), kWhiteRGB, 1));
    }
    auto again = convert(GST_VIDEO_FORMAT_NV12, kPixelPicture);
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->name() == first || glIsTexture(first));
    auto black = converter->black(4, 2);
    ASSERT_TRUE(black);
    EXPECT_TRUE(black->isBlack());
    EXPECT_TRUE(near(at(*black, 3, 1), {0, 0, 0, 255}, 0));

    // Switching the size back and forth never hands out a released texture of the other size.
    for (int round = 0; round < 3; ++round) {
        converter->setOutputSize(round % 2 ? 4 : 0, round % 2 ? 2 : 0);
        auto picture = convert(GST_VIDEO_FORMAT_I420, kBlockPicture);
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->width(), round % 2 ? 4 : 8);
        EXPECT_TRUE(near(at(*picture, 0, 0), kWhiteRGB, 1));
        EXPECT_TRUE(near(at(*picture, picture->width() - 1, picture->height() - 1), kBlackRGB, 1));
    }
}

} // namespace
