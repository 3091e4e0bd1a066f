#include "tools/vcam/LVFrameConverter.h"

#include <linux/videodev2.h>

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/scale_argb.h>

#include <algorithm>

#include "core/util/LVUtil.h"

namespace {

struct FormatInfo {
    LVVcamFormat format;
    const char* name;
    const char* ffmpeg;
    uint32_t fourcc;
};

// bgra: B,G,R,A bytes in memory, as ffmpeg's "bgra" and V4L2's ABGR32 lay them out.
const FormatInfo kFormats[] = {
    {LVVcamFormat::YUYV, "yuyv", "yuyv422", V4L2_PIX_FMT_YUYV},
    {LVVcamFormat::I420, "i420", "yuv420p", V4L2_PIX_FMT_YUV420},
    {LVVcamFormat::NV12, "nv12", "nv12", V4L2_PIX_FMT_NV12},
    {LVVcamFormat::BGRA, "bgra", "bgra", V4L2_PIX_FMT_ABGR32},
};

const FormatInfo& info(LVVcamFormat f)
{
    for (const FormatInfo& i : kFormats)
        if (i.format == f)
            return i;
    return kFormats[0];
}

// Rows converted per step: small enough that the intermediate stays in cache.
constexpr int kBandRows = 16;

} // namespace

std::optional<LVVcamFormat> LVVcamFormatFromName(const QString& name)
{
    for (const FormatInfo& i : kFormats)
        if (name == QLatin1String(i.name))
            return i.format;
    return std::nullopt;
}

const char* LVVcamFormatName(LVVcamFormat format)
{
    return info(format).name;
}

const char* LVVcamFfmpegPixelFormat(LVVcamFormat format)
{
    return info(format).ffmpeg;
}

uint32_t LVVcamFourcc(LVVcamFormat format)
{
    return info(format).fourcc;
}

std::optional<LVVcamFormat> LVVcamFormatFromFourcc(uint32_t fourcc)
{
    for (const FormatInfo& i : kFormats)
        if (i.fourcc == fourcc)
            return i.format;
    return std::nullopt;
}

LVVcamLayout LVVcamLayout::packed(LVVcamFormat format, int width, int height)
{
    LVVcamLayout l;
    l.format = format;
    l.width = width;
    l.height = height;
    switch (format) {
    case LVVcamFormat::YUYV: l.bytesPerLine = ((width + 1) / 2) * 4; break;
    case LVVcamFormat::I420:
    case LVVcamFormat::NV12: l.bytesPerLine = width; break;
    case LVVcamFormat::BGRA: l.bytesPerLine = width * 4; break;
    }
    l.computeFrameBytes();
    return l;
}

void LVVcamLayout::computeFrameBytes()
{
    const size_t luma = size_t(bytesPerLine) * size_t(height);
    const size_t chromaRows = size_t((height + 1) / 2);
    switch (format) {
    case LVVcamFormat::YUYV:
    case LVVcamFormat::BGRA: frameBytes = luma; break;
    case LVVcamFormat::I420: frameBytes = luma + 2 * size_t((bytesPerLine + 1) / 2) * chromaRows; break;
    case LVVcamFormat::NV12: frameBytes = luma + size_t(bytesPerLine) * chromaRows; break;
    }
}

LVFrameConverter::LVFrameConverter(const LVVcamLayout& layout)
    : layout_(layout), band_(size_t(layout.width) * 4 * kBandRows)
{
}

void LVFrameConverter::convertBand(const uint8_t* argbLittle, int rowBytes, int y0, int rows, uint8_t* dst)
{
    const int w = layout_.width;
    const int h = layout_.height;
    const int stride = layout_.bytesPerLine;
    switch (layout_.format) {
    case LVVcamFormat::YUYV:
        libyuv::ARGBToYUY2(argbLittle, rowBytes, dst + size_t(y0) * stride, stride, w, rows);
        break;
    case LVVcamFormat::BGRA:
        libyuv::ARGBCopy(argbLittle, rowBytes, dst + size_t(y0) * stride, stride, w, rows);
        break;
    case LVVcamFormat::I420: {
        const int cStride = (stride + 1) / 2;
        uint8_t* u = dst + size_t(stride) * h;
        uint8_t* v = u + size_t(cStride) * ((h + 1) / 2);
        libyuv::ARGBToI420(argbLittle, rowBytes, dst + size_t(y0) * stride, stride, u + size_t(y0 / 2) * cStride,
                           cStride, v + size_t(y0 / 2) * cStride, cStride, w, rows);
        break;
    }
    case LVVcamFormat::NV12: {
        uint8_t* uv = dst + size_t(stride) * h;
        libyuv::ARGBToNV12(argbLittle, rowBytes, dst + size_t(y0) * stride, stride, uv + size_t(y0 / 2) * stride,
                           stride, w, rows);
        break;
    }
    }
}

void LVFrameConverter::convert(const uint8_t* src, int width, int height, uint8_t* dst)
{
    const int w = layout_.width;
    const int h = layout_.height;
    if (width == w && height == h) {
        // Transport bytes A,R,G,B are libyuv's "BGRA"; its "ARGB" is B,G,R,A.
        if (layout_.format == LVVcamFormat::BGRA) {
            libyuv::BGRAToARGB(src, width * 4, dst, layout_.bytesPerLine, w, h);
            return;
        }
        for (int y0 = 0; y0 < h; y0 += kBandRows) {
            const int rows = std::min(kBandRows, h - y0);
            libyuv::BGRAToARGB(src + size_t(y0) * width * 4, width * 4, band_.data(), w * 4, w, rows);
            convertBand(band_.data(), w * 4, y0, rows, dst);
        }
        return;
    }
    source_.resize(size_t(width) * height * 4);
    libyuv::BGRAToARGB(src, width * 4, source_.data(), width * 4, width, height);
    canvas_.resize(size_t(w) * h * 4);
    uint32_t* px = reinterpret_cast<uint32_t*>(canvas_.data());
    std::fill(px, px + size_t(w) * h, 0xFF000000u);
    const QRectF fit = LVUtil::fitRect(QSizeF(width, height), QSizeF(w, h));
    const int fx = int(fit.x()), fy = int(fit.y()), fw = int(fit.width()), fh = int(fit.height());
    if (fw > 0 && fh > 0)
        libyuv::ARGBScale(source_.data(), width * 4, width, height, canvas_.data() + (size_t(fy) * w + fx) * 4, w * 4,
                          fw, fh, libyuv::kFilterBilinear);
    for (int y0 = 0; y0 < h; y0 += kBandRows)
        convertBand(canvas_.data() + size_t(y0) * w * 4, w * 4, y0, std::min(kBandRows, h - y0), dst);
}
