#include "core/util/KDCoreImageText.h"

#include <QFont>
#include <QFontMetrics>
#include <QPainter>

void KDCoreImageText::setText(const QString& text)
{
    if (text == text_) return;
    text_ = text;
    dirty_ = true;
}

void KDCoreImageText::setFontName(const QString& family)
{
    if (family.isEmpty() || family == family_) return;
    family_ = family;
    dirty_ = true;
}

void KDCoreImageText::setColor(const QColor& color)
{
    if (color == color_) return;
    color_ = color;
    dirty_ = true;
}

void KDCoreImageText::setShadowColor(const QColor& color)
{
    if (color == shadow_) return;
    shadow_ = color;
    dirty_ = true;
}

void KDCoreImageText::setSize(int pixels)
{
    pixels = std::clamp(pixels, 1, 512);
    if (pixels == size_) return;
    size_ = pixels;
    dirty_ = true;
}

const QImage& KDCoreImageText::image()
{
    if (!dirty_) return image_;
    dirty_ = false;
    ++generation_;
    if (text_.isEmpty()) {
        image_ = QImage();
        return image_;
    }
    QFont font(family_);
    font.setPixelSize(size_);
    const QFontMetrics metrics(font);
    // Room for the shadow, offset down and right.
    const int offset = std::max(1, size_ / 12);
    const QSize size(std::max(1, metrics.horizontalAdvance(text_) + offset), metrics.height() + offset);
    QImage drawn(size, QImage::Format_ARGB32_Premultiplied);
    drawn.fill(Qt::transparent);
    {
        QPainter painter(&drawn);
        painter.setRenderHint(QPainter::TextAntialiasing);
        painter.setFont(font);
        painter.setPen(shadow_);
        painter.drawText(offset, offset + metrics.ascent(), text_);
        painter.setPen(color_);
        painter.drawText(0, metrics.ascent(), text_);
    }
    image_ = drawn.convertToFormat(QImage::Format_ARGB32);
    return image_;
}
