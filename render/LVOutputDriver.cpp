#include "render/LVOutputDriver.h"

#include "core/util/LVLog.h"

#include <exception>

namespace {

// Runs one output's step; answers the failure's text when it threw.
template <class Step>
bool runIsolated(Step&& step, std::string* failure)
{
    try {
        step();
        return true;
    } catch (const std::exception& e) {
        *failure = e.what();
    } catch (...) {
        *failure = "unknown exception";
    }
    return false;
}

} // namespace

QImage LVFramePixels::image() const
{
    return QImage(bytes.data(), width, height, stride, QImage::Format_ARGB32_Premultiplied);
}

LVFramePixelsRef LVFrameReadBack::read(LVContext& context)
{
    std::shared_ptr<LVFramePixels> buffer;
    for (const auto& pooled : pool_) {
        // Held only here: no output or widget still looks at it.
        if (pooled.use_count() == 1 && pooled->width == context.width() && pooled->height == context.height()) {
            buffer = pooled;
            break;
        }
    }
    if (!buffer) {
        // Sizes never change within a run, so buffers of another size are of no more use.
        std::erase_if(pool_, [](const auto& pooled) { return pooled.use_count() == 1; });
        buffer = std::make_shared<LVFramePixels>();
        buffer->width = context.width();
        buffer->height = context.height();
        buffer->stride = context.width() * 4;
        buffer->bytes.resize(size_t(buffer->stride) * size_t(buffer->height));
        pool_.push_back(buffer);
    }
    context.fetchBGRAPixels(buffer->bytes.data(), buffer->stride);
    ++count_;
    return buffer;
}

void LVFrameReadBack::readInto(LVContext& context, void* destination, int rowBytes)
{
    context.fetchOpenGLPixels(destination, rowBytes);
    ++count_;
}

void LVOutputFrame::readInto(void* destination, int rowBytes)
{
    readBack_.readInto(context_, destination, rowBytes);
}

const LVFramePixelsRef& LVOutputFrame::pixels()
{
    if (!pixels_) pixels_ = readBack_.read(context_);
    return pixels_;
}

LVThreadedOutput::LVThreadedOutput(std::string name, Consumer consumer, std::function<bool()> wanted)
    : name_(std::move(name)), consumer_(std::move(consumer)), wanted_(std::move(wanted))
{
    thread_ = std::thread([this] { run(); });
}

LVThreadedOutput::~LVThreadedOutput()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        mailbox_.reset();
    }
    wake_.notify_all();
    thread_.join();
}

void LVThreadedOutput::drawFrame(LVOutputFrame& frame)
{
    const LVFramePixelsRef& pixels = frame.pixels();
    {
        std::lock_guard lock(mutex_);
        if (mailbox_) ++dropped_;
        mailbox_ = pixels;
    }
    wake_.notify_one();
}

uint64_t LVThreadedOutput::framesDropped() const
{
    std::lock_guard lock(mutex_);
    return dropped_;
}

uint64_t LVThreadedOutput::framesConsumed() const
{
    std::lock_guard lock(mutex_);
    return consumed_;
}

void LVThreadedOutput::run()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || mailbox_; });
        if (stopping_) return;
        const LVFramePixelsRef frame = std::move(mailbox_);
        mailbox_.reset();
        lock.unlock();
        std::string failure;
        const bool ok = runIsolated([&] { consumer_(*frame); }, &failure);
        lock.lock();
        if (ok) {
            ++consumed_;
        } else if (!failureLogged_) {
            failureLogged_ = true;
            LVLog("Output \"%s\" failed: %s; its frames are dropped", name_.c_str(), failure.c_str());
        }
    }
}

void LVOutputList::setDriver(LVOutputSlot slot, std::unique_ptr<LVOutputDriver> driver)
{
    Entry& entry = entries_[size_t(slot)];
    entry.driver = std::move(driver);
    entry.failureLogged = false;
}

void LVOutputList::drawFrame(LVContext& context)
{
    LVOutputFrame frame(context, readBack_);
    for (Entry& entry : entries_) {
        if (!entry.driver) continue;
        std::string failure;
        const bool ok = runIsolated(
            [&] {
                if (entry.driver->wantsFrame()) entry.driver->drawFrame(frame);
            },
            &failure);
        if (ok || entry.failureLogged) continue;
        // Said once: the same failure would come back every frame.
        entry.failureLogged = true;
        LVLog("Output \"%s\" failed: %s; its frames are dropped", entry.driver->outputName().c_str(), failure.c_str());
    }
}
