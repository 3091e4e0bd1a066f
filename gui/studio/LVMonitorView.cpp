#include "gui/studio/LVMonitorView.h"

#include <QLinearGradient>
#include <QPainter>

LVMonitorView::LVMonitorView(QWidget* parent) : LVPreviewWidget(parent)
{
    setMinimumSize(160, 90);
}

void LVMonitorView::showPicture(const LVFramePixelsRef& picture, bool mirrored)
{
    blank_ = false;
    LVPreviewWidget::showPicture(picture, mirrored);
}

void LVMonitorView::setBlank()
{
    if (blank_) return;
    blank_ = true;
    update();
}

void LVMonitorView::paintEvent(QPaintEvent* event)
{
    if (!isBlank()) {
        LVPreviewWidget::paintEvent(event);
        return;
    }
    QPainter painter(this);
    // Black at the bottom rising to dark grey at the top.
    QLinearGradient gradient(0, height(), 0, 0);
    gradient.setColorAt(0, Qt::black);
    gradient.setColorAt(1, Qt::darkGray);
    painter.fillRect(rect(), gradient);
}
