#pragma once
// A studio monitor (Preview or Program): the picture as the studio hands it over, on a grey
// 0.3 ground, mirrored when the preview is; with nothing to show, a black-to-grey gradient.
#include "gui/main/LVPreviewWidget.h"

class LVMonitorView : public LVPreviewWidget {
    Q_OBJECT
public:
    explicit LVMonitorView(QWidget* parent = nullptr);

    void showPicture(const LVFramePixelsRef& picture, bool mirrored) override;
    // Nothing on this bus any more: back to the gradient until the next picture.
    void setBlank();
    bool isBlank() const { return blank_ || picture().isNull(); }
    QSize sizeHint() const override { return QSize(320, 180); }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    bool blank_ = true;
};
