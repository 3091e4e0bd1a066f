#pragma once
// The live preview: the frame as rendered, aspect-fitted, mirrored when asked. The published
// frame is never mirrored; only this picture is.
#include "core/LVProxy.h"
#include "core/LVStrokeReceiver.h"
#include "render/LVOutputDriver.h"

#include <QImage>
#include <QWidget>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class LVPreviewWidget : public QWidget, public LVPictureOutput {
    Q_OBJECT
public:
    explicit LVPreviewWidget(QWidget* parent = nullptr);

    bool isPreviewVisible() const override;
    void showPicture(const LVFramePixelsRef& picture, bool mirrored) override;
    // The last picture shown, top row first.
    const QImage& picture() const { return picture_; }
    // The last frame as published (never mirrored), top row first; saved setups use it as icon.
    QImage frame() const { return frame_ ? frame_->image().copy() : QImage(); }
    QSize sizeHint() const override { return QSize(640, 480); }

    // Mouse and pen strokes on the picture go to what the finder answers (asked at every
    // press, so the chain may change between strokes); none leaves the preview passive.
    void setStrokeTarget(std::function<LVEffectRef()> finder) { strokeTarget_ = std::move(finder); }
    // The first enabled effect of a chain that takes strokes, or null.
    static LVEffectRef firstStrokeReceiver(const std::vector<LVEffectRef>& chain);
    // A widget position as a frame point (0..1, origin top left) for a picture aspect-fitted
    // into the widget; none outside the picture unless clamped.
    static std::optional<QPointF> framePointAt(QPointF position, QSizeF picture, QSizeF widget, bool mirrored,
                                               bool clamped = false);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    std::optional<QPointF> framePoint(QPointF position, bool clamped) const;

    // The receiver of the stroke in progress; it may leave the chain while the button is down.
    LVStrokeReceiver* receiver() const;

    std::function<LVEffectRef()> strokeTarget_;
    std::weak_ptr<LVEffect> drawingInto_;
    bool mirrored_ = false;
    // Shared with the other outputs; held, the read-back never overwrites it.
    LVFramePixelsRef frame_;
    QImage picture_;
};
