#pragma once
// The viewport: a frameless, translucent, always-on-top window over the chosen display that
// shows the capture rectangle and lets the user drag it. Without a GUI application (headless
// runs) only the geometry exists.
#include "sources/desktop/LVScreen.h"
#include "sources/desktop/ViewPortView.h"

#include <QRasterWindow>

#include <memory>

class ViewPortWindow : public QRasterWindow {
public:
    explicit ViewPortWindow(ViewPortView& view);
    // Keeps the mouse-taking area in step with the rectangle.
    void updateMask();

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    QPointF toView(QPointF windowPoint) const;

    ViewPortView& view_;
};

class ViewPort {
public:
    // action runs after every drag step (on the GUI thread).
    ViewPort(LVScreenRef screen, QSizeF resolution, std::function<void(bool)> action);
    ~ViewPort();

    // Shows the window in front without activating it.
    void doit();
    void hide();
    bool isVisible() const;
    ViewPortWindow* window() const { return window_.get(); }
    ViewPortView& view() { return view_; }

    QRectF portRect() const { return view_.portRect(); }
    void setPortRect(const QRectF& rect);
    bool isResizable() const { return view_.isResizable(); }
    void setResizable(bool resizable);
    bool doNotExceedResolution() const { return view_.doNotExceedResolution(); }
    void setDoNotExceedResolution(bool on);

private:
    void changed();

    LVScreenRef screen_;
    ViewPortView view_;
    std::unique_ptr<ViewPortWindow> window_;
};
