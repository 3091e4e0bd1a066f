#include "tools/vcam/LVVcamBridge.h"

#include <QFont>
#include <QImage>
#include <QPainter>

#include <libyuv/convert_from_argb.h>

#include <QJsonDocument>
#include <QJsonObject>

#include <thread>

#include "core/LVVideoSizes.h"
#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"

LVVcamBridge::LVVcamBridge(LVShmem& shmem, LVVideoOutput& output, LVVcamOptions options)
    : shmem_(shmem), output_(output), options_(options), rateGiven_(options.rate > 0)
{
}

LVVcamBridge::StoredVideo LVVcamBridge::storedVideo(const QString& preferencesPath)
{
    StoredVideo stored;
    QByteArray bytes;
    if (preferencesPath.isEmpty() || !LVReadRegularFile(preferencesPath, kLVPreferencesLimit, &bytes, nullptr))
        return stored;
    const QJsonObject prefs = QJsonDocument::fromJson(bytes).object();
    const std::optional<QSize> size = LVParseSizeString(prefs.value(QStringLiteral("videoSize")).toString());
    if (size && size->width() >= LVMinVideoDimension && size->height() >= LVMinVideoDimension &&
        size->width() <= LVMaxVideoDimension && size->height() <= LVMaxVideoDimension)
        stored.size = *size;
    const int rate = prefs.value(QStringLiteral("frameRate")).toInt(0);
    if (rate >= LVMinFrameRate && rate <= LVMaxFrameRate)
        stored.rate = rate;
    return stored;
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
    } else {
        // Lumaveil is not running: what it will render at when it starts.
        const StoredVideo stored = storedVideo(options_.preferencesPath);
        if (stored.size.isValid()) {
            w = stored.size.width();
            h = stored.size.height();
        }
        if (stored.rate > 0)
            producerRate = stored.rate;
    }
    if (options_.size.isValid()) {
        w = options_.size.width();
        h = options_.size.height();
    }
    const bool needsEven = options_.format == LVVcamFormat::I420 || options_.format == LVVcamFormat::NV12;
    if (needsEven) {
        w &= ~1;
        h &= ~1;
    }
    LVVcamLayout layout = LVVcamLayout::packed(options_.format, w, h);
    const int rate = options_.rate > 0 ? options_.rate : producerRate;
    if (!output_.open(layout, rate, error))
        return false;
    adopt(layout, rate);
    return true;
}

void LVVcamBridge::adopt(const LVVcamLayout& layout, int rate)
{
    layout_ = layout;
    rate_ = rate;
    converter_ = std::make_unique<LVFrameConverter>(layout_);
    lastFrame_.assign(layout_.frameBytes, 0);
    card_.assign(layout_.frameBytes, 0);
    const std::vector<uint8_t> card = noSignalCard(layout_.width, layout_.height);
    converter_->convert(card.data(), layout_.width, layout_.height, card_.data());
}

void LVVcamBridge::followProducer(int width, int height, int rate)
{
    const bool needsEven = layout_.format == LVVcamFormat::I420 || layout_.format == LVVcamFormat::NV12;
    if (needsEven) {
        width &= ~1;
        height &= ~1;
    }
    const bool followSize = !options_.size.isValid() && width > 0 && height > 0 &&
                            (width != layout_.width || height != layout_.height);
    const bool followRate = options_.rate <= 0 && rate > 0 && rate != rate_;
    if (!followSize && !followRate)
        return;
    LVVcamLayout wanted = followSize ? LVVcamLayout::packed(layout_.format, width, height) : layout_;
    const int wantedRate = followRate ? rate : rate_;
    if (!output_.reconfigure(wanted, wantedRate)) {
        // Asked once: a consumer that cannot follow (it is streaming, or reads a raw byte
        // stream) keeps the announced layout, and frames are fitted into it from now on.
        if (followSize)
            options_.size = QSize(layout_.width, layout_.height);
        if (followRate)
            options_.rate = rate_;
        return;
    }
    adopt(wanted, wantedRate);
    LVLog("lumaveil-vcam: now %dx%d %s %d fps -> %s", layout_.width, layout_.height,
          LVVcamFfmpegPixelFormat(layout_.format), rate_, qPrintable(output_.description()));
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
    const auto period = std::chrono::duration<double>(1.0 / rate_);
    if (r.status == 0 && length == uint64_t(r.width) * uint64_t(r.height) * 4 && r.width > 0) {
        lastTimestamp_ = r.timestamp;
        followProducer(r.width, r.height, r.frameRate);
        converter_->convert(data.get(), r.width, r.height, lastFrame_.data());
        haveFrame_ = true;
        showingCard_ = false;
        lastNewFrame_ = now;
        // A producer faster than the rate announced for it (the consumer could not follow) is
        // paced to that rate; a rate the user chose only sets how often frames are repeated.
        if (!wroteAny_ || rateGiven_ || r.frameRate <= rate_ || now - lastWrite_ >= period)
            return write(lastFrame_, now);
        return true;
    }
    if (wroteAny_ && now - lastWrite_ < period)
        return true;
    // A producer killed without a word leaves its pid behind: that is no signal, not a pause.
    const bool producerGone = shmem_.appRunning() && !shmem_.producerAlive();
    const bool stale = !haveFrame_ || producerGone ||
                       now - lastNewFrame_ >= std::chrono::duration<double>(options_.noSignalAfter);
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
