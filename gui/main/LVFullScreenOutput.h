#pragma once
// The full-screen output: a frameless window covering one screen, above the others, showing
// the frame aspect-fitted and centred on black.
#include "core/LVControllerInterfaces.h"

#include <QPointer>
#include <QRasterWindow>

#include <functional>

class QScreen;

class LVFullScreenWindow : public QRasterWindow {
    Q_OBJECT
public:
    explicit LVFullScreenWindow(QScreen* screen);
    void showPicture(const LVFramePixelsRef& picture);
    // Key presses go where every key of the application goes (Escape ends a full screen on
    // the main screen).
    void setKeyHandler(std::function<void(int key, int modifiers)> handler) { keyHandler_ = std::move(handler); }
    bool isHandlingKey() const { return handlingKey_; }

signals:
    void picturePainted();

protected:
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    // Held, the shared read-back never overwrites it while it is on screen.
    LVFramePixelsRef picture_;
    std::function<void(int, int)> keyHandler_;
    bool handlingKey_ = false;
};

class LVScreenOutput : public LVFullScreenOutput {
public:
    // Shows the window on the screen at once, both buffers black.
    LVScreenOutput(QScreen* screen, std::function<void(int key, int modifiers)> keyHandler);
    // Orders the window out and closes it; from inside the window's own key handler (Escape),
    // once control is back in the event loop.
    ~LVScreenOutput() override;

    std::string outputName() const override;
    bool wantsFrame() const override { return window_ && window_->isExposed(); }
    void drawFrame(LVOutputFrame& frame) override;
    bool isOnMainScreen() const override;
    LVFullScreenWindow* window() const { return window_; }

private:
    QPointer<QScreen> screen_;
    QPointer<LVFullScreenWindow> window_;
};
