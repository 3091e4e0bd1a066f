#pragma once
// The capture rectangle a user drags and resizes over a display, with its handles. Coordinates
// are the display's own: origin at its lower left, y up. The window that shows it (ViewPort)
// feeds it mouse events; everything here is plain geometry.
#include <QPointF>
#include <QRectF>
#include <QRegion>
#include <QSizeF>

#include <functional>
#include <vector>

class QPainter;

// How a drag by (dx, dy) moves the rectangle: x += dx·tx, y += dy·ty, width += dx·tw,
// height += dy·th.
struct LVDragTransform {
    double tx = 0, ty = 0, tw = 0, th = 0;
};

struct LVGrabPoint {
    QRectF rect;
    LVDragTransform transform;
};

class ViewPortView {
public:
    // frame: the display's size (origin 0, 0); resolution: the video size.
    ViewPortView(const QRectF& frame, QSizeF resolution, std::function<void(bool)> action);

    // A zero rectangle places one of the video size 100 points from the left and the top.
    void setPortRect(const QRectF& rect);
    QRectF portRect() const { return portRect_; }
    void setResizable(bool resizable);
    bool isResizable() const { return bResizable_; }
    // On: the rectangle never grows past the video size, and a larger one shrinks now.
    void setDoNotExceedResolution(bool on);
    bool doNotExceedResolution() const { return doNotExceedResolution_; }
    void addGrabPointAt(const QRectF& rect, LVDragTransform transform);
    const std::vector<LVGrabPoint>& grabPoints() const { return grabPoints_; }
    QRectF bounds() const { return bounds_; }
    QSizeF resolution() const { return resolution_; }

    // A press picks the handle under it (or moves the whole rectangle); each drag step gives
    // the current location and whether shift is held; release ends the drag.
    void mouseDown(QPointF location);
    void trackMouse(QPointF location, bool shift);
    void mouseUp();
    bool isTracking() const { return tracking_; }

    // The rectangle with its handles, in a painter whose y runs down over viewHeight.
    void drawRect(QPainter& painter) const;
    // Where the window shows and takes the mouse (the frame line and the handles), y down.
    QRegion inputRegion() const;
    // The frame line: a ring of kFrameLine pixels around the rectangle, y down.
    QRegion frameRing() const;

    static constexpr LVDragTransform kMoveXform{1, 1, 0, 0};
    static constexpr double kMinWidth = 50;
    static constexpr double kMinHeight = 30;
    static constexpr int kFrameLine = 4;

private:
    void rebuildGrabPoints();
    QRectF toPainter(const QRectF& r) const;

    QSizeF resolution_;
    std::function<void(bool)> action_;
    QRectF bounds_;
    QRectF portRect_;
    std::vector<LVGrabPoint> grabPoints_;
    bool bResizable_ = true;
    bool doNotExceedResolution_ = false;
    bool tracking_ = false;
    QPointF pressedAt_;
    QRectF pressedRect_;
    LVDragTransform dragXform_;
};
