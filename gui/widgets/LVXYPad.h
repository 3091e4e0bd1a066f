#pragma once
// A two-axis editor: a square the user clicks or drags in to choose a point, with Y
// growing upwards as it does in the picture.
#include <QPointF>
#include <QWidget>

class LVXYPad : public QWidget {
    Q_OBJECT
public:
    LVXYPad(QPointF minimum, QPointF maximum, QWidget* parent = nullptr);

    QPointF value() const { return value_; }
    // Clamped into the pad's ranges; emits nothing.
    void setValue(QPointF value);
    QPointF minimum() const { return minimum_; }
    QPointF maximum() const { return maximum_; }
    // The value under a widget position (clamped to the pad).
    QPointF valueAt(QPointF position) const;
    // Where value is drawn, in widget coordinates.
    QPointF positionOf(QPointF value) const;

    QSize sizeHint() const override { return {140, 140}; }
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override { return width; }

signals:
    // The user moved the point.
    void valueChanged(QPointF value);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    QRectF padRect() const;
    void moveTo(QPointF value);

    QPointF minimum_;
    QPointF maximum_;
    QPointF value_;
};
