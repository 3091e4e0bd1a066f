#include "core/util/LVUtil.h"

#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"

#include <QPainter>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

QImage::Format qImageFormatFor(uint32_t pixelFormat)
{
    return pixelFormat == LVPixelFormatPremultipliedFirst ? QImage::Format_ARGB32_Premultiplied
                                                          : QImage::Format_Invalid;
}

void reportContextNotCreated()
{
    std::fputs("Context not created!\n", stderr);
}

} // namespace

LVBitmapContext::LVBitmapContext(uint8_t* data, int width, int height, uint32_t pixelFormat, bool ownsData)
    : data_(data), width_(width), height_(height), pixelFormat_(pixelFormat), ownsData_(ownsData),
      image_(data, width, height, width * 4, qImageFormatFor(pixelFormat))
{
}

LVBitmapContext::~LVBitmapContext()
{
    image_ = QImage();
    if (ownsData_) std::free(data_);
}

QRectF LVUtil::fitRect(QSizeF content, QSizeF container)
{
    const double w = content.width(), h = content.height();
    const double cw = container.width(), ch = container.height();
    double width, height;
    if (w / h > cw / ch) {
        width = cw;
        height = std::trunc(cw / w * h);
    } else {
        height = ch;
        width = std::trunc(ch / h * w);
    }
    const double x = static_cast<double>(static_cast<long long>(std::trunc(cw - width)) / 2);
    const double y = std::trunc((ch - height) * 0.5);
    return QRectF(x, y, width, height);
}

std::unique_ptr<LVBitmapContext> LVUtil::newBitmapContextWithData(uint8_t* data, int32_t pixelsWide,
                                                                  int32_t pixelsHigh, uint32_t pixelFormat)
{
    if (!data || pixelsWide <= 0 || pixelsHigh <= 0 || qImageFormatFor(pixelFormat) == QImage::Format_Invalid) {
        reportContextNotCreated();
        return nullptr;
    }
    return std::make_unique<LVBitmapContext>(data, pixelsWide, pixelsHigh, pixelFormat, false);
}

std::unique_ptr<LVBitmapContext> LVUtil::newBitmapContext(int32_t pixelsWide, int32_t pixelsHigh,
                                                          uint32_t pixelFormat)
{
    // The size is computed in 64 bits so a huge request fails cleanly instead of wrapping.
    const int64_t size = int64_t(pixelsWide) * int64_t(pixelsHigh) * 4;
    auto* data = size > 0 && size <= INT32_MAX ? static_cast<uint8_t*>(std::malloc(size_t(size))) : nullptr;
    if (!data) {
        std::fputs("Memory not allocated!", stderr);
        return nullptr;
    }
    std::memset(data, 0xFF, size_t(size));
    if (qImageFormatFor(pixelFormat) == QImage::Format_Invalid) {
        std::free(data);
        reportContextNotCreated();
        return nullptr;
    }
    return std::make_unique<LVBitmapContext>(data, pixelsWide, pixelsHigh, pixelFormat, true);
}

QImage LVUtil::imageFromImage(const QImage& image)
{
    if (image.isNull() || image.format() == QImage::Format_ARGB32_Premultiplied) return image;
    auto context = newBitmapContext(image.width(), image.height(), LVPixelFormatPremultipliedFirst);
    if (!context) return QImage();
    context->image().fill(Qt::transparent);
    {
        QPainter painter(&context->image());
        painter.setCompositionMode(QPainter::CompositionMode_Source);
        painter.drawImage(QPointF(0, 0), image, QRectF(image.rect()));
    }
    return context->image().copy();
}

QImage LVUtil::newPNGImageAtPath(const QString& path)
{
    QString error;
    const QImage image = LVReadImageFile(path, &error, "PNG");
    if (image.isNull()) LVLog("PNG image %s not loaded: it %s", qPrintable(path), qPrintable(error));
    return image;
}

QImage LVUtil::newJPEGImageAtPath(const QString& path)
{
    QString error;
    const QImage image = LVReadImageFile(path, &error, "JPEG");
    if (image.isNull()) LVLog("JPEG image %s not loaded: it %s", qPrintable(path), qPrintable(error));
    return image;
}
