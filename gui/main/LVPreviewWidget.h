#pragma once
// The live preview: the frame as rendered, aspect-fitted, mirrored when asked. The published
// frame is never mirrored; only this picture is.
#include "render/LVOutputDriver.h"

#include <QImage>
#include <QWidget>

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

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    // Shared with the other outputs; held, the read-back never overwrites it.
    LVFramePixelsRef frame_;
    QImage picture_;
};
