#pragma once
// Geometry and bitmap helpers for the render path.
#include <QImage>
#include <QRectF>
#include <QSizeF>
#include <QString>

#include <cstdint>
#include <memory>

// The pixel format every caller uses: alpha premultiplied, stored first, so each
// pixel is one 32-bit word 0xAARRGGBB (QImage::Format_ARGB32_Premultiplied).
constexpr uint32_t LVPixelFormatPremultipliedFirst = 2;

// A drawing surface over a 32-bit pixel buffer, row bytes = width * 4.
class LVBitmapContext {
public:
    LVBitmapContext(uint8_t* data, int width, int height, uint32_t pixelFormat, bool ownsData);
    ~LVBitmapContext();
    LVBitmapContext(const LVBitmapContext&) = delete;
    LVBitmapContext& operator=(const LVBitmapContext&) = delete;

    uint8_t* data() const { return data_; }
    int width() const { return width_; }
    int height() const { return height_; }
    int rowBytes() const { return width_ * 4; }
    uint32_t pixelFormat() const { return pixelFormat_; }
    // A view of the pixels for drawing with QPainter; valid as long as the context.
    QImage& image() { return image_; }

private:
    uint8_t* data_;
    int width_;
    int height_;
    uint32_t pixelFormat_;
    bool ownsData_;
    QImage image_;
};

class LVUtil {
public:
    // Aspect-fit with centring, relative to the container's origin.
    static QRectF fitRect(QSizeF content, QSizeF container);

    // A context over the caller's buffer; the caller keeps owning the buffer.
    static std::unique_ptr<LVBitmapContext> newBitmapContextWithData(uint8_t* data, int32_t pixelsWide,
                                                                     int32_t pixelsHigh, uint32_t pixelFormat);
    // A context over a new buffer of width * height * 4 bytes, every byte 0xFF.
    static std::unique_ptr<LVBitmapContext> newBitmapContext(int32_t pixelsWide, int32_t pixelsHigh,
                                                             uint32_t pixelFormat);

    // The image as premultiplied ARGB pixels: a raster image in that format is returned as
    // it is; anything else is drawn with the copy operation into a cleared bitmap.
    static QImage imageFromImage(const QImage& image);

    static QImage newPNGImageAtPath(const QString& path);
    static QImage newJPEGImageAtPath(const QString& path);
};
