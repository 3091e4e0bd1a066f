#include "gui/main/LVPreviewWidget.h"

#include "core/util/LVUtil.h"
#include "render/LVContext.h"

#include <QPainter>

LVPreviewWidget::LVPreviewWidget(QWidget* parent) : QWidget(parent)
{
    setAttribute(Qt::WA_OpaquePaintEvent);
    setMinimumSize(160, 120);
}

bool LVPreviewWidget::isPreviewVisible() const
{
    return isVisible() && !visibleRegion().isEmpty();
}

void LVPreviewWidget::drawIntoPreview(LVContext& context, bool mirrored)
{
    const int width = context.width();
    const int height = context.height();
    if (readBack_.size() != QSize(width, height)) {
        readBack_ = QImage(width, height, QImage::Format_ARGB32_Premultiplied);
    }
    // Reading the frame's own target leaves it untouched for the outputs that follow.
    context.framebuffer();
    glPixelStorei(GL_PACK_ALIGNMENT, 4);
    glReadPixels(0, 0, width, height, GL_BGRA, GL_UNSIGNED_BYTE, readBack_.bits());
    // GL rows start at the bottom.
    picture_ = readBack_.mirrored(mirrored, true);
    update();
}

void LVPreviewWidget::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), QColor::fromRgbF(0.3f, 0.3f, 0.3f));
    if (picture_.isNull()) return;
    const QRectF fitted = LVUtil::fitRect(QSizeF(picture_.size()), QSizeF(size()));
    painter.drawImage(fitted, picture_);
}
