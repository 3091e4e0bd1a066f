#include "gui/main/LVPreviewWidget.h"

#include "core/util/LVUtil.h"

#include "core/LVEffect.h"

#include <QMouseEvent>
#include <QPainter>

#include <algorithm>

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
    mirrored_ = mirrored;
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

LVEffectRef LVPreviewWidget::firstStrokeReceiver(const std::vector<LVEffectRef>& chain)
{
    for (const LVEffectRef& effect : chain) {
        if (effect && effect->isEnabled() && dynamic_cast<LVStrokeReceiver*>(effect.get())) return effect;
    }
    return nullptr;
}

LVStrokeReceiver* LVPreviewWidget::receiver() const
{
    return dynamic_cast<LVStrokeReceiver*>(drawingInto_.lock().get());
}

std::optional<QPointF> LVPreviewWidget::framePointAt(QPointF position, QSizeF picture, QSizeF widget, bool mirrored,
                                                     bool clamped)
{
    if (picture.isEmpty() || widget.isEmpty()) return std::nullopt;
    const QRectF fitted = LVUtil::fitRect(picture, widget);
    double x = (position.x() - fitted.x()) / fitted.width();
    double y = (position.y() - fitted.y()) / fitted.height();
    if (clamped) {
        x = std::clamp(x, 0.0, 1.0);
        y = std::clamp(y, 0.0, 1.0);
    } else if (x < 0 || x > 1 || y < 0 || y > 1) {
        return std::nullopt;
    }
    // The picture shown mirrored is drawn on unmirrored.
    return QPointF(mirrored ? 1 - x : x, y);
}

std::optional<QPointF> LVPreviewWidget::framePoint(QPointF position, bool clamped) const
{
    return framePointAt(position, QSizeF(picture_.size()), QSizeF(size()), mirrored_, clamped);
}

void LVPreviewWidget::mousePressEvent(QMouseEvent* event)
{
    const LVEffectRef target = strokeTarget_ ? strokeTarget_() : nullptr;
    auto* strokes = dynamic_cast<LVStrokeReceiver*>(target.get());
    const auto point = framePoint(event->position(), false);
    if (!strokes || !point || event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
    drawingInto_ = target;
    strokes->beginStroke(*point);
    event->accept();
}

void LVPreviewWidget::mouseMoveEvent(QMouseEvent* event)
{
    LVStrokeReceiver* strokes = receiver();
    if (!strokes) return QWidget::mouseMoveEvent(event);
    if (const auto point = framePoint(event->position(), true)) strokes->continueStroke(*point);
    event->accept();
}

void LVPreviewWidget::mouseReleaseEvent(QMouseEvent* event)
{
    LVStrokeReceiver* strokes = receiver();
    if (!strokes || event->button() != Qt::LeftButton) return QWidget::mouseReleaseEvent(event);
    if (const auto point = framePoint(event->position(), true)) strokes->continueStroke(*point);
    strokes->endStroke();
    drawingInto_.reset();
    event->accept();
}
