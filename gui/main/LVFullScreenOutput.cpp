#include "gui/main/LVFullScreenOutput.h"

#include "core/util/LVUtil.h"

#include <QGuiApplication>
#include <QKeyEvent>
#include <QPainter>
#include <QScreen>

LVFullScreenWindow::LVFullScreenWindow(QScreen* screen)
{
    // The picture lives on our own surfaceless GL display, whose objects no window's context
    // can share; the window paints the frame's shared read-back instead.
    QSurfaceFormat format = requestedFormat();
    format.setSwapInterval(1);
    format.setSwapBehavior(QSurfaceFormat::DoubleBuffer);
    setFormat(format);
    setFlags(Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint);
    setScreen(screen);
    setGeometry(screen->geometry());
    setTitle(QStringLiteral("Lumaveil"));
}

void LVFullScreenWindow::showPicture(const LVFramePixelsRef& picture)
{
    picture_ = picture;
    update();
}

void LVFullScreenWindow::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(QRect(QPoint(), size()), Qt::black);
    if (picture_) {
        const QImage image = picture_->image();
        const QRectF fitted = LVUtil::fitRect(QSizeF(image.size()), QSizeF(size()));
        painter.drawImage(fitted, image);
    }
    painter.end();
    emit picturePainted();
}

void LVFullScreenWindow::keyPressEvent(QKeyEvent* event)
{
    if (!keyHandler_) return;
    handlingKey_ = true;
    keyHandler_(event->key(), int(event->modifiers()));
    handlingKey_ = false;
}

LVScreenOutput::LVScreenOutput(QScreen* screen, std::function<void(int, int)> keyHandler)
    : screen_(screen), window_(new LVFullScreenWindow(screen))
{
    window_->setKeyHandler(std::move(keyHandler));
    window_->showFullScreen();
    window_->raise();
    window_->requestActivate();
}

LVScreenOutput::~LVScreenOutput()
{
    if (!window_) return;
    window_->hide();
    if (window_->isHandlingKey()) {
        window_->deleteLater();
    } else {
        delete window_.data();
    }
}

std::string LVScreenOutput::outputName() const
{
    return "full screen on " + (screen_ ? screen_->name().toStdString() : std::string("a screen gone"));
}

void LVScreenOutput::drawFrame(LVOutputFrame& frame)
{
    window_->showPicture(frame.pixels());
}

bool LVScreenOutput::isOnMainScreen() const
{
    return screen_ && screen_ == QGuiApplication::primaryScreen();
}
