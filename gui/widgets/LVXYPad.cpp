#include "gui/widgets/LVXYPad.h"

#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>

namespace {

constexpr double kMargin = 6.0;
constexpr double kKnobRadius = 5.0;
constexpr int kKeySteps = 100; // arrow keys move a hundredth of the range

double clampTo(double v, double low, double high)
{
    return std::clamp(v, std::min(low, high), std::max(low, high));
}

} // namespace

LVXYPad::LVXYPad(QPointF minimum, QPointF maximum, QWidget* parent)
    : QWidget(parent), minimum_(minimum), maximum_(maximum), value_(minimum)
{
    setFocusPolicy(Qt::StrongFocus);
    setMinimumSize(80, 80);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setValue((minimum + maximum) / 2);
}

void LVXYPad::setValue(QPointF value)
{
    value_ = QPointF(clampTo(value.x(), minimum_.x(), maximum_.x()), clampTo(value.y(), minimum_.y(), maximum_.y()));
    setToolTip(QStringLiteral("%1, %2").arg(value_.x(), 0, 'f', 3).arg(value_.y(), 0, 'f', 3));
    update();
}

QRectF LVXYPad::padRect() const
{
    const double side = std::max(1.0, std::min(width(), height()) - 2 * kMargin);
    return QRectF((width() - side) / 2, (height() - side) / 2, side, side);
}

QPointF LVXYPad::valueAt(QPointF position) const
{
    const QRectF pad = padRect();
    const double fx = std::clamp((position.x() - pad.left()) / pad.width(), 0.0, 1.0);
    const double fy = std::clamp((pad.bottom() - position.y()) / pad.height(), 0.0, 1.0);
    return QPointF(minimum_.x() + fx * (maximum_.x() - minimum_.x()), minimum_.y() + fy * (maximum_.y() - minimum_.y()));
}

QPointF LVXYPad::positionOf(QPointF value) const
{
    const QRectF pad = padRect();
    const QPointF span = maximum_ - minimum_;
    const double fx = span.x() != 0 ? (value.x() - minimum_.x()) / span.x() : 0.5;
    const double fy = span.y() != 0 ? (value.y() - minimum_.y()) / span.y() : 0.5;
    return QPointF(pad.left() + fx * pad.width(), pad.bottom() - fy * pad.height());
}

void LVXYPad::moveTo(QPointF value)
{
    const QPointF before = value_;
    setValue(value);
    if (value_ != before) emit valueChanged(value_);
}

void LVXYPad::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF pad = padRect();
    painter.setPen(palette().color(QPalette::Mid));
    painter.setBrush(palette().color(QPalette::Base));
    painter.drawRect(pad);
    painter.drawLine(QPointF(pad.center().x(), pad.top()), QPointF(pad.center().x(), pad.bottom()));
    painter.drawLine(QPointF(pad.left(), pad.center().y()), QPointF(pad.right(), pad.center().y()));
    painter.setPen(palette().color(QPalette::Text));
    painter.setBrush(palette().color(hasFocus() ? QPalette::Highlight : QPalette::Button));
    painter.drawEllipse(positionOf(value_), kKnobRadius, kKnobRadius);
}

void LVXYPad::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
    moveTo(valueAt(event->position()));
}

void LVXYPad::mouseMoveEvent(QMouseEvent* event)
{
    if (!(event->buttons() & Qt::LeftButton)) return QWidget::mouseMoveEvent(event);
    moveTo(valueAt(event->position()));
}

void LVXYPad::keyPressEvent(QKeyEvent* event)
{
    const QPointF step = (maximum_ - minimum_) / kKeySteps;
    switch (event->key()) {
    case Qt::Key_Left: return moveTo(value_ - QPointF(step.x(), 0));
    case Qt::Key_Right: return moveTo(value_ + QPointF(step.x(), 0));
    case Qt::Key_Up: return moveTo(value_ + QPointF(0, step.y()));
    case Qt::Key_Down: return moveTo(value_ - QPointF(0, step.y()));
    default: QWidget::keyPressEvent(event);
    }
}
