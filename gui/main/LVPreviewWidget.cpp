#include "gui/main/LVPreviewWidget.h"

#include "core/util/LVUtil.h"

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

void LVPreviewWidget::showPicture(const LVFramePixelsRef& picture, bool mirrored)
{
    frame_ = picture;
    picture_ = mirrored ? picture->image().mirrored(true, false) : picture->image();
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
