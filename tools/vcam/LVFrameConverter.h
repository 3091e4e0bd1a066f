#pragma once
// Converts transport frames (A,R,G,B bytes, top row first) into what a camera consumer reads.
#include <QSize>
#include <QString>

#include <cstdint>
#include <optional>
#include <vector>

enum class LVVcamFormat { YUYV, I420, NV12, BGRA };

// "yuyv", "i420", "nv12", "bgra"
std::optional<LVVcamFormat> LVVcamFormatFromName(const QString& name);
const char* LVVcamFormatName(LVVcamFormat format);
// The same format as ffmpeg's -pix_fmt spells it.
const char* LVVcamFfmpegPixelFormat(LVVcamFormat format);
uint32_t LVVcamFourcc(LVVcamFormat format);
std::optional<LVVcamFormat> LVVcamFormatFromFourcc(uint32_t fourcc);

// How one output frame lies in memory. bytesPerLine is that of the first plane; chroma planes
// follow it packed (I420: half the stride, NV12: the same stride).
struct LVVcamLayout {
    LVVcamFormat format = LVVcamFormat::YUYV;
    int width = 0;
    int height = 0;
    int bytesPerLine = 0;
    size_t frameBytes = 0;

    // The tightly packed layout of a format at a size.
    static LVVcamLayout packed(LVVcamFormat format, int width, int height);
    // Fills in frameBytes from the other fields.
    void computeFrameBytes();
};

class LVFrameConverter {
public:
    explicit LVFrameConverter(const LVVcamLayout& layout);
    const LVVcamLayout& layout() const { return layout_; }
    // Converts one frame of any size; a size other than the output's is scaled to fit,
    // centred on black.
    void convert(const uint8_t* argbBytes, int width, int height, uint8_t* destination);

private:
    void convertBand(const uint8_t* argbLittle, int rowBytes, int y0, int rows, uint8_t* destination);
    LVVcamLayout layout_;
    std::vector<uint8_t> band_;
    std::vector<uint8_t> source_;
    std::vector<uint8_t> canvas_;
};
