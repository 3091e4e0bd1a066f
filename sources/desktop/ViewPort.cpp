#include "sources/desktop/ViewPort.h"

#include <QGuiApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QSurfaceFormat>

ViewPortWindow::ViewPortWindow(ViewPortView& view) : view_(view)
{
    setFlags(Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::Tool | Qt::WindowDoesNotAcceptFocus |
             Qt::NoDropShadowWindowHint);
    QSurfaceFormat format = requestedFormat();
    format.setAlphaBufferSize(8);
    setFormat(format);
    setTitle(QStringLiteral("Lumaveil Viewport"));
}

void ViewPortWindow::updateMask()
{
    setMask(view_.inputRegion());
    update();
}

void ViewPortWindow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.fillRect(QRect(QPoint(), size()), Qt::transparent);
    painter.setCompositionMode(QPainter::CompositionMode_SourceOver);
    view_.drawRect(painter);
}

QPointF ViewPortWindow::toView(QPointF windowPoint) const
{
    const QRectF bounds = view_.bounds();
    return QPointF(bounds.x() + windowPoint.x(), bounds.y() + bounds.height() - windowPoint.y());
}

void ViewPortWindow::mousePressEvent(QMouseEvent* event)
{
    if (event->button() != Qt::LeftButton) return;
    view_.mouseDown(toView(event->position()));
}

void ViewPortWindow::mouseMoveEvent(QMouseEvent* event)
{
    if (!view_.isTracking()) return;
    view_.trackMouse(toView(event->position()), event->modifiers() & Qt::ShiftModifier);
    updateMask();
}

void ViewPortWindow::mouseReleaseEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) view_.mouseUp();
}

ViewPort::ViewPort(LVScreenRef screen, QSizeF resolution, std::function<void(bool)> action)
    : screen_(std::move(screen)), view_(QRectF(QPointF(), QSizeF(screen_->screen().frame.size())), resolution, std::move(action))
{
    if (!qobject_cast<QGuiApplication*>(QCoreApplication::instance())) return;
    window_ = std::make_unique<ViewPortWindow>(view_);
    window_->setGeometry(screen_->screen().frame);
}

ViewPort::~ViewPort() = default;

void ViewPort::doit()
{
    if (!window_) return;
    window_->updateMask();
    window_->show();
    window_->raise();
}

void ViewPort::hide()
{
    if (window_) window_->hide();
}

bool ViewPort::isVisible() const
{
    return window_ && window_->isVisible();
}

void ViewPort::changed()
{
    if (window_) window_->updateMask();
}

void ViewPort::setPortRect(const QRectF& rect)
{
    view_.setPortRect(rect);
    changed();
}

void ViewPort::setResizable(bool resizable)
{
    view_.setResizable(resizable);
    changed();
}

void ViewPort::setDoNotExceedResolution(bool on)
{
    view_.setDoNotExceedResolution(on);
    changed();
}
