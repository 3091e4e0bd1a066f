#include "tools/vcam/LVVcamBridge.h"

#include <QFont>
#include <QImage>
#include <QPainter>

#include <libyuv/convert_from_argb.h>

#include <thread>

LVVcamBridge::LVVcamBridge(LVShmem& shmem, LVVideoOutput& output, LVVcamOptions options)
    : shmem_(shmem), output_(output), options_(options)
{
}

bool LVVcamBridge::open(QString* error)
{
    int w = 320, h = 240, producerRate = 15;
    int pw = 0, ph = 0, pr = 0;
    if (shmem_.peekNewestFrame(pw, ph, pr)) {
        w = pw;
        h = ph;
        if (pr > 0)
            producerRate = pr;
    }
    if (options_.size.isValid()) {
        w = options_.size.width();
        h = options_.size.height();
    }
    rate_ = options_.rate > 0 ? options_.rate : producerRate;
    layout_ = LVVcamLayout::packed(options_.format, w, h);
    if (!output_.open(layout_, rate_, error))
        return false;
    converter_ = std::make_unique<LVFrameConverter>(layout_);
    lastFrame_.assign(layout_.frameBytes, 0);
    card_.assign(layout_.frameBytes, 0);
    const std::vector<uint8_t> card = noSignalCard(layout_.width, layout_.height);
    converter_->convert(card.data(), layout_.width, layout_.height, card_.data());
    return true;
}

std::vector<uint8_t> LVVcamBridge::noSignalCard(int width, int height)
{
    QImage img(width, height, QImage::Format_ARGB32);
    img.fill(QColor(24, 24, 28));
    {
        QPainter p(&img);
        p.setRenderHint(QPainter::Antialiasing);
        QFont font(QStringLiteral("DejaVu Sans"));
        font.setPixelSize(std::max(10, height / 12));
        p.setFont(font);
        p.setPen(QColor(200, 200, 200));
        p.drawText(img.rect(), Qt::AlignCenter, QStringLiteral("Lumaveil\nno signal"));
    }
    // QImage's ARGB32 is libyuv's ARGB (B,G,R,A bytes); the transport's A,R,G,B is libyuv's BGRA.
    std::vector<uint8_t> frame(size_t(width) * height * 4);
    libyuv::ARGBToBGRA(img.constBits(), int(img.bytesPerLine()), frame.data(), width * 4, width, height);
    return frame;
}

bool LVVcamBridge::write(const std::vector<uint8_t>& frame, Clock::time_point now)
{
    if (!output_.writeFrame(frame.data(), layout_.frameBytes))
        return false;
    lastWrite_ = now;
    wroteAny_ = true;
    ++framesWritten_;
    return options_.frames <= 0 || framesWritten_ < options_.frames;
}

bool LVVcamBridge::step(Clock::time_point now)
{
    std::unique_ptr<uint8_t[]> data;
    uint64_t length = 0;
    const LVShmemReadResult r = shmem_.getData(data, length, lastTimestamp_);
    if (r.status == 0 && length == uint64_t(r.width) * uint64_t(r.height) * 4 && r.width > 0) {
        lastTimestamp_ = r.timestamp;
        converter_->convert(data.get(), r.width, r.height, lastFrame_.data());
        haveFrame_ = true;
        showingCard_ = false;
        lastNewFrame_ = now;
        return write(lastFrame_, now);
    }
    const auto period = std::chrono::duration<double>(1.0 / rate_);
    if (wroteAny_ && now - lastWrite_ < period)
        return true;
    const bool stale = !haveFrame_ || now - lastNewFrame_ >= std::chrono::duration<double>(options_.noSignalAfter);
    showingCard_ = stale;
    return write(stale ? card_ : lastFrame_, now);
}

void LVVcamBridge::run(const std::atomic<bool>& stop)
{
    while (!stop.load()) {
        if (!step(Clock::now()))
            return;
        // Frames are polled: the transport has no wake-up, and 2 ms is well inside a frame.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
}
