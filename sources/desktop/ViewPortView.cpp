#include "sources/desktop/ViewPortView.h"

#include <QPainter>

#include <cmath>

namespace {

constexpr double kHandle = 8;

} // namespace

ViewPortView::ViewPortView(const QRectF& frame, QSizeF resolution, std::function<void(bool)> action)
    : resolution_(resolution), action_(std::move(action)), bounds_(frame)
{
}

void ViewPortView::setPortRect(const QRectF& rect)
{
    if (!rect.isNull() || rect.x() != 0 || rect.y() != 0)
        portRect_ = rect;
    else
        portRect_ = QRectF(bounds_.x() + 100, bounds_.y() + bounds_.height() - 100 - resolution_.height(),
                           resolution_.width(), resolution_.height());
    rebuildGrabPoints();
}

void ViewPortView::setResizable(bool resizable)
{
    bResizable_ = resizable;
    rebuildGrabPoints();
}

void ViewPortView::setDoNotExceedResolution(bool on)
{
    doNotExceedResolution_ = on;
    if (!on) return;
    QRectF r = portRect_;
    r.setWidth(std::min(r.width(), resolution_.width()));
    r.setHeight(std::min(r.height(), resolution_.height()));
    setPortRect(r);
}

void ViewPortView::addGrabPointAt(const QRectF& rect, LVDragTransform transform)
{
    grabPoints_.push_back({rect, transform});
}

void ViewPortView::rebuildGrabPoints()
{
    grabPoints_.clear();
    if (!bResizable_) return;
    const double x = portRect_.x(), y = portRect_.y(), w = portRect_.width(), h = portRect_.height();
    const double left = x - 9, right = x + w + 1, bottom = y - 9, top = y + h + 1;
    const double midX = x + std::trunc(w / 2) - 4, midY = y + std::trunc(h / 2) - 4;
    // Each handle moves the edges it sits on.
    addGrabPointAt({left, bottom, kHandle, kHandle}, {1, 1, -1, -1});
    addGrabPointAt({midX, bottom, kHandle, kHandle}, {0, 1, 0, -1});
    addGrabPointAt({right, bottom, kHandle, kHandle}, {0, 1, 1, -1});
    addGrabPointAt({right, midY, kHandle, kHandle}, {0, 0, 1, 0});
    addGrabPointAt({right, top, kHandle, kHandle}, {0, 0, 1, 1});
    addGrabPointAt({midX, top, kHandle, kHandle}, {0, 0, 0, 1});
    addGrabPointAt({left, top, kHandle, kHandle}, {1, 0, -1, 1});
    addGrabPointAt({left, midY, kHandle, kHandle}, {1, 0, -1, 0});
}

void ViewPortView::mouseDown(QPointF location)
{
    dragXform_ = kMoveXform;
    for (const LVGrabPoint& point : grabPoints_) {
        if (point.rect.contains(location)) {
            dragXform_ = point.transform;
            break;
        }
    }
    pressedAt_ = location;
    pressedRect_ = portRect_;
    tracking_ = true;
}

void ViewPortView::trackMouse(QPointF location, bool shift)
{
    if (!tracking_) return;
    const LVDragTransform& t = dragXform_;
    const double resW = resolution_.width(), resH = resolution_.height();
    const double w0 = pressedRect_.width(), h0 = pressedRect_.height();
    double dx = std::trunc(location.x() - pressedAt_.x());
    const double dy = std::trunc(location.y() - pressedAt_.y());
    double dyKept = dy;
    if (shift && resW > 0 && resH > 0) {
        dyKept = std::trunc(dx * resH / resW);
        if (dyKept > dy) {
            dx = std::trunc(dy * resW / resH);
            dyKept = dy;
        }
    }
    double width = w0 + dx * t.tw;
    double height = h0 + dyKept * t.th;
    // A limit only moves the drag along an axis the handle resizes.
    if (doNotExceedResolution_) {
        if (width > resW && t.tw != 0) {
            width = resW;
            dx = std::trunc((resW - w0) / t.tw);
        }
        if (height > resH && t.th != 0) {
            height = resH;
            dyKept = std::trunc((resH - h0) / t.th);
        }
    }
    if (width < kMinWidth && t.tw != 0) {
        width = kMinWidth;
        dx = std::trunc((kMinWidth - w0) / t.tw);
    }
    if (height < kMinHeight && t.th != 0) {
        height = kMinHeight;
        dyKept = std::trunc((kMinHeight - h0) / t.th);
    }
    setPortRect(QRectF(pressedRect_.x() + dx * t.tx, pressedRect_.y() + dyKept * t.ty, width, height));
    if (action_) action_(false);
}

void ViewPortView::mouseUp()
{
    tracking_ = false;
}

QRectF ViewPortView::toPainter(const QRectF& r) const
{
    return QRectF(r.x() - bounds_.x(), bounds_.y() + bounds_.height() - r.y() - r.height(), r.width(), r.height());
}

void ViewPortView::drawRect(QPainter& painter) const
{
    // Solid fills only: with no compositing manager the window's pixels show as they are.
    const QColor frameColour(255, 64, 32);
    for (const QRect& r : frameRing()) painter.fillRect(r, frameColour);
    for (const LVGrabPoint& point : grabPoints_) {
        const QRect handle = toPainter(point.rect).toAlignedRect();
        painter.fillRect(handle, Qt::white);
        painter.fillRect(handle.adjusted(1, 1, -1, -1), frameColour);
    }
}

QRegion ViewPortView::frameRing() const
{
    // Just outside the rectangle, so the frame never shows in a capture of the rectangle.
    const QRect frame = toPainter(portRect_).toAlignedRect();
    return QRegion(frame.adjusted(-kFrameLine, -kFrameLine, kFrameLine, kFrameLine)) - QRegion(frame);
}

QRegion ViewPortView::inputRegion() const
{
    QRegion region = frameRing();
    for (const LVGrabPoint& point : grabPoints_) region += toPainter(point.rect).toAlignedRect();
    return region;
}
