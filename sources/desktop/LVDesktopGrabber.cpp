#include "sources/desktop/LVDesktopGrabber.h"

#include "core/util/LVLog.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xcomposite.h>
#include <X11/extensions/Xdamage.h>
#include <X11/extensions/Xfixes.h>
#include <X11/extensions/Xrandr.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>

namespace {

const char* kSlowPathMessage =
    "Shared memory with the X server is not available (a remote display?): the desktop is read over the X "
    "connection, which is slower.";

} // namespace

// One picture's memory: a shared-memory XImage on the fast path, a plain one on the slow path.
struct LVDesktopGrabber::Buffer {
    XImage* image = nullptr;
    XShmSegmentInfo shm{};
    bool shared = false;
    bool attached = false;

    ~Buffer()
    {
        if (shared && shm.shmaddr && shm.shmaddr != reinterpret_cast<char*>(-1)) shmdt(shm.shmaddr);
        if (!image) return;
        if (shared) {
            // The segment is not Xlib's to free.
            image->data = nullptr;
            image->obdata = nullptr;
        }
        XDestroyImage(image);
    }
};

std::unique_ptr<LVDesktopGrabber> LVDesktopGrabber::create(LVScreenRef screen, QString* error)
{
    std::unique_ptr<LVX11Display> x = LVX11Display::open(error);
    if (!x || !screen) return nullptr;
    int fds[2];
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {
        if (error) *error = QStringLiteral("pipe2: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        return nullptr;
    }
    std::unique_ptr<LVDesktopGrabber> grabber(new LVDesktopGrabber(std::move(screen), std::move(x)));
    grabber->wakeRead_ = fds[0];
    grabber->wakeWrite_ = fds[1];
    grabber->thread_ = std::thread([g = grabber.get()] { g->run(); });
    return grabber;
}

LVDesktopGrabber::LVDesktopGrabber(LVScreenRef screen, std::unique_ptr<LVX11Display> x)
    : screen_(std::move(screen)), x_(std::move(x))
{
    displayFrame_ = screen_->screen().frame;
    rootRect_ = displayFrame_;
    if (!x_->hasShm()) {
        slowPath_ = true;
        slowMessage_ = QLatin1String(kSlowPathMessage);
        LVLog("The X server has no MIT-SHM extension: %s", kSlowPathMessage);
    }
}

LVDesktopGrabber::~LVDesktopGrabber()
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        quit_ = true;
    }
    wake();
    if (thread_.joinable()) thread_.join();
    close(wakeRead_);
    close(wakeWrite_);
}

void LVDesktopGrabber::wake()
{
    const char byte = 1;
    // A full pipe already holds a wake-up.
    if (write(wakeWrite_, &byte, 1) < 0 && errno != EAGAIN) LVLogSystemError("LVDesktopGrabber write");
}

void LVDesktopGrabber::noteEvent()
{
    { std::lock_guard<std::mutex> hold(eventLock_); }
    eventChanged_.notify_all();
}

bool LVDesktopGrabber::waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> hold(eventLock_);
    return eventChanged_.wait_for(hold, timeout, done);
}

void LVDesktopGrabber::start()
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        if (started_) return;
        started_ = true;
        refresh_ = true;
    }
    wake();
}

void LVDesktopGrabber::stop()
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        started_ = false;
    }
    wake();
}

bool LVDesktopGrabber::isStarted() const
{
    std::lock_guard<std::mutex> hold(lock_);
    return started_;
}

void LVDesktopGrabber::refresh()
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        refresh_ = true;
    }
    wake();
}

QRect LVDesktopGrabber::clampedRootRect(const QRectF& rect) const
{
    // Display pixels with the origin at the bottom to root pixels with the origin at the top.
    const int x = int(rect.x()), w = int(rect.width()), h = int(rect.height());
    const int y = displayFrame_.height() - int(rect.y()) - h;
    QRect r(displayFrame_.x() + x, displayFrame_.y() + y, std::max(1, w), std::max(1, h));
    r.setWidth(std::min(r.width(), displayFrame_.width()));
    r.setHeight(std::min(r.height(), displayFrame_.height()));
    r.moveLeft(std::clamp(r.left(), displayFrame_.left(), displayFrame_.right() + 1 - r.width()));
    r.moveTop(std::clamp(r.top(), displayFrame_.top(), displayFrame_.bottom() + 1 - r.height()));
    return r;
}

void LVDesktopGrabber::setGrabRect(const QRectF& rect)
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        const QRect r = clampedRootRect(rect);
        if (r == rootRect_) return;
        rootRect_ = r;
        refresh_ = true;
    }
    wake();
}

QRect LVDesktopGrabber::rootGrabRect() const
{
    std::lock_guard<std::mutex> hold(lock_);
    return rootRect_;
}

void LVDesktopGrabber::setWindow(const LVWindowInfo& window, const QMargins& crop)
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        window_ = window;
        crop_ = crop;
        refresh_ = true;
    }
    wake();
}

unsigned long LVDesktopGrabber::window() const
{
    std::lock_guard<std::mutex> hold(lock_);
    return window_.id;
}

void LVDesktopGrabber::setTracksMouse(bool on)
{
    {
        std::lock_guard<std::mutex> hold(lock_);
        tracksMouse_ = on;
    }
    wake();
}

void LVDesktopGrabber::setMinimumFrameTime(std::chrono::nanoseconds interval)
{
    std::lock_guard<std::mutex> hold(lock_);
    interval_ = interval;
}

std::shared_ptr<const LVDesktopPicture> LVDesktopGrabber::last() const
{
    std::lock_guard<std::mutex> hold(lock_);
    return last_;
}

LVDesktopMouse LVDesktopGrabber::mouse() const
{
    std::lock_guard<std::mutex> hold(lock_);
    return mouse_;
}

bool LVDesktopGrabber::displayLost() const
{
    std::lock_guard<std::mutex> hold(lock_);
    return lost_;
}

QString LVDesktopGrabber::slowPathMessage() const
{
    std::lock_guard<std::mutex> hold(lock_);
    return slowMessage_;
}

// The grabber's thread

void LVDesktopGrabber::run()
{
    Display* dpy = x_->display();
    const Window root = x_->root();
    if (x_->hasRandr()) XRRSelectInput(dpy, root, RRScreenChangeNotifyMask);
    // Monitors added or removed by a client are announced only by the root's ConfigureNotify.
    XSelectInput(dpy, root, StructureNotifyMask);
    if (x_->hasFixes()) XFixesSelectCursorInput(dpy, root, XFixesDisplayCursorNotifyMask);
    if (!x_->hasDamage()) LVLog("The X server has no DAMAGE extension: the desktop is read every frame");
    bool dirty = true;
    auto nextRead = std::chrono::steady_clock::now();
    auto nextMouse = nextRead;
    auto nextSearch = nextRead;

    std::unique_lock<std::mutex> hold(lock_);
    while (!quit_) {
        const bool started = started_;
        const bool tracksMouse = tracksMouse_;
        const unsigned long window = window_.id;
        const QMargins crop = crop_;
        const QRect rootRect = rootRect_;
        const auto interval = interval_;
        if (refresh_) dirty = changedAll_ = true;
        refresh_ = false;
        hold.unlock();

        // What is read: the display's rectangle, or the window's pixmap or screen area.
        unsigned long drawable = root;
        QRect area = rootRect;
        XWindowAttributes attributes{};
        bool readable = true;
        QPoint windowOrigin;
        if (window != 0) {
            Window child = None;
            int rx = 0, ry = 0;
            readable = XGetWindowAttributes(dpy, window, &attributes) &&
                       XTranslateCoordinates(dpy, window, root, 0, 0, &rx, &ry, &child);
            const QRect whole = QRect(0, 0, attributes.width, attributes.height).marginsRemoved(crop);
            readable = readable && attributes.map_state == IsViewable && whole.isValid();
            windowOrigin = QPoint(rx, ry);
            if (readable && structureWatched_ != window) {
                // Moves, resizes, unmapping and closing wake the grabber: none of them is damage.
                XSelectInput(dpy, window, StructureNotifyMask);
                structureWatched_ = window;
            }
            if (x_->hasComposite()) {
                if (redirectedWindow_ != window) {
                    if (redirectedWindow_) XCompositeUnredirectWindow(dpy, redirectedWindow_, CompositeRedirectAutomatic);
                    redirectedWindow_ = readable ? window : 0;
                    if (readable) XCompositeRedirectWindow(dpy, window, CompositeRedirectAutomatic);
                    dirty = changedAll_ = true;
                }
                drawable = window;
                area = whole;
            } else {
                area = whole.translated(rx, ry).intersected(QRect(0, 0, x_->rootWidth(), x_->rootHeight()));
            }
            x_->takeError();
            if (!readable && started && std::chrono::steady_clock::now() >= nextSearch) {
                nextSearch = std::chrono::steady_clock::now() + std::chrono::seconds(1);
                if (findWindowAgain(window)) {
                    hold.lock();
                    continue;
                }
            }
        } else if (redirectedWindow_) {
            XCompositeUnredirectWindow(dpy, redirectedWindow_, CompositeRedirectAutomatic);
            redirectedWindow_ = 0;
        }
        const unsigned long damaged = drawable == root ? root : window;
        if (started && x_->hasDamage() && (damage_ == 0 || damagedDrawable_ != damaged) && readable) {
            startDamage(damaged);
            dirty = changedAll_ = true;
        } else if (!started && damage_) {
            stopDamage();
        }
        watched_ = drawable == root ? area : QRect(0, 0, attributes.width, attributes.height);

        uint64_t handled = 0;
        handleEvents(dirty, handled);
        if (!x_->hasDamage()) dirty = changedAll_ = true;

        const auto now = std::chrono::steady_clock::now();
        if (started && dirty && readable && now >= nextRead) {
            unsigned long source = drawable;
            if (drawable != root) source = XCompositeNameWindowPixmap(dpy, window);
            // A window's pixmap has the window's depth (32 for windows with alpha).
            if (drawable == root)
                read(area, source, area.topLeft(), DefaultVisual(dpy, DefaultScreen(dpy)), DefaultDepth(dpy, DefaultScreen(dpy)));
            else
                read(area, source, windowOrigin + area.topLeft(), attributes.visual, attributes.depth);
            if (drawable != root) XFreePixmap(dpy, source);
            dirty = false;
            nextRead = now + interval;
        }
        damageHandled_ += handled;
        if (handled) noteEvent();
        if (started && tracksMouse && now >= nextMouse) {
            pollMouse();
            nextMouse = now + interval;
        }

        int timeout = -1;
        const auto until = [&](std::chrono::steady_clock::time_point at) {
            const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(at - now).count() + 1;
            const int wait = int(std::max<int64_t>(0, ms));
            timeout = timeout < 0 ? wait : std::min(timeout, wait);
        };
        if (started && dirty && readable) until(nextRead);
        if (started && tracksMouse) until(nextMouse);
        // A window that cannot be read now (unmapped, gone) is looked at again a frame later.
        if (started && !readable) until(now + interval);
        XFlush(dpy);
        if (XPending(dpy) > 0) timeout = 0;
        pollfd fds[2] = {{ConnectionNumber(dpy), POLLIN, 0}, {wakeRead_, POLLIN, 0}};
        if (poll(fds, 2, timeout) < 0 && errno != EINTR) LVLogSystemError("LVDesktopGrabber poll");
        char drain[64];
        while (::read(wakeRead_, drain, sizeof drain) > 0) {
        }
        hold.lock();
    }
    hold.unlock();
    stopDamage();
    if (redirectedWindow_) XCompositeUnredirectWindow(dpy, redirectedWindow_, CompositeRedirectAutomatic);
    dropBuffers();
    XSync(dpy, False);
}

void LVDesktopGrabber::handleEvents(bool& dirty, uint64_t& handled)
{
    Display* dpy = x_->display();
    bool damaged = false;
    while (XPending(dpy) > 0) {
        XEvent event;
        XNextEvent(dpy, &event);
        if (x_->hasDamage() && event.type == x_->damageEventBase() + XDamageNotify) {
            damaged = true;
            ++handled;
        } else if (x_->hasRandr() && event.type == x_->randrEventBase() + RRScreenChangeNotify) {
            XRRUpdateConfiguration(&event);
            checkMonitors();
            noteEvent();
            dirty = changedAll_ = true;
        } else if (event.type == ConfigureNotify && event.xconfigure.window == x_->root()) {
            checkMonitors();
            noteEvent();
            dirty = changedAll_ = true;
        } else if (event.type == ConfigureNotify || event.type == MapNotify) {
            dirty = changedAll_ = true; // the captured window moved, changed size or came back
        } else if (x_->hasFixes() && event.type == x_->fixesEventBase() + XFixesCursorNotify) {
            cursorChanged_ = true;
        }
    }
    if (!damaged || !damage_) return;
    // Take the changed area and clear it, so the next change is reported again.
    XserverRegion parts = XFixesCreateRegion(dpy, nullptr, 0);
    XDamageSubtract(dpy, damage_, None, parts);
    int count = 0;
    XRectangle* rects = XFixesFetchRegion(dpy, parts, &count);
    for (int i = 0; i < count; ++i) {
        const QRect changed = QRect(rects[i].x, rects[i].y, rects[i].width, rects[i].height) & watched_;
        if (changed.isEmpty()) continue;
        dirty = true;
        changed_ |= changed;
    }
    if (rects) XFree(rects);
    XFixesDestroyRegion(dpy, parts);
}

bool LVDesktopGrabber::findWindowAgain(unsigned long lost)
{
    const std::vector<LVWindowInfo> windows = x_->windows();
    std::lock_guard<std::mutex> hold(lock_);
    if (window_.id != lost) return false;
    const int found = LVFindWindow(windows, window_.wmClass, window_.title);
    if (found < 0 || windows[size_t(found)].id == lost) return false;
    window_ = windows[size_t(found)];
    refresh_ = true;
    return true;
}

void LVDesktopGrabber::startDamage(unsigned long drawable)
{
    stopDamage();
    Display* dpy = x_->display();
    damage_ = XDamageCreate(dpy, drawable, XDamageReportNonEmpty);
    damagedDrawable_ = drawable;
    // A new damage object reports the whole drawable at once; the read that follows covers it.
    XSync(dpy, False);
    XEvent event;
    while (XCheckTypedEvent(dpy, x_->damageEventBase() + XDamageNotify, &event)) {
    }
    XDamageSubtract(dpy, damage_, None, None);
}

void LVDesktopGrabber::stopDamage()
{
    if (!damage_) return;
    XDamageDestroy(x_->display(), damage_);
    x_->takeError();
    damage_ = 0;
    damagedDrawable_ = 0;
}

void LVDesktopGrabber::checkMonitors()
{
    const std::vector<LVDisplayInfo> monitors = x_->monitors();
    const auto it = std::find_if(monitors.begin(), monitors.end(), [&](const LVDisplayInfo& m) {
        return m.outputName == screen_->screen().outputName;
    });
    std::lock_guard<std::mutex> hold(lock_);
    if (it == monitors.end()) {
        lost_ = true;
        return;
    }
    // The same monitor, maybe moved: the rectangle keeps its place on it.
    const QPoint offset = rootRect_.topLeft() - displayFrame_.topLeft();
    displayFrame_ = it->frame;
    rootRect_ = QRect(displayFrame_.topLeft() + offset, rootRect_.size()).intersected(displayFrame_);
}

void LVDesktopGrabber::pollMouse()
{
    LVDesktopMouse mouse;
    mouse.location = x_->pointer();
    std::shared_ptr<const LVCursorImage> cursor;
    if (cursorChanged_ && x_->hasFixes()) {
        cursor = std::make_shared<const LVCursorImage>(x_->cursorImage());
        cursorChanged_ = false;
    }
    bool changed = cursor != nullptr;
    {
        std::lock_guard<std::mutex> hold(lock_);
        changed = changed || mouse_.location != mouse.location;
        mouse_.location = mouse.location;
        if (cursor) mouse_.cursor = std::move(cursor);
    }
    if (changed) noteEvent();
}

std::shared_ptr<LVDesktopGrabber::Buffer> LVDesktopGrabber::freeBuffer(int width, int height, void* visual, int depth)
{
    const XImage* kept = pool_.empty() ? nullptr : pool_.front()->image;
    if (kept && (kept->width != width || kept->height != height || kept->depth != depth)) dropBuffers();
    for (const auto& buffer : pool_) {
        // Held by the pool alone: no picture of it is out.
        if (buffer.use_count() == 1) return buffer;
    }
    if (pool_.size() >= 3) return nullptr;
    Display* dpy = x_->display();
    auto buffer = std::make_shared<Buffer>();
    buffer->shared = true;
    buffer->image = XShmCreateImage(dpy, static_cast<Visual*>(visual), unsigned(depth), ZPixmap, nullptr, &buffer->shm, unsigned(width),
                                    unsigned(height));
    if (!buffer->image) {
        LVLog("XShmCreateImage failed for %dx%d", width, height);
        return nullptr;
    }
    buffer->shm.shmid = shmget(IPC_PRIVATE, size_t(buffer->image->bytes_per_line) * size_t(height), IPC_CREAT | 0600);
    if (buffer->shm.shmid < 0) {
        LVLogSystemError("shmget");
        return nullptr;
    }
    buffer->shm.shmaddr = buffer->image->data = static_cast<char*>(shmat(buffer->shm.shmid, nullptr, 0));
    if (buffer->shm.shmaddr == reinterpret_cast<char*>(-1)) {
        LVLogSystemError("shmat");
        shmctl(buffer->shm.shmid, IPC_RMID, nullptr);
        return nullptr;
    }
    buffer->shm.readOnly = False;
    XShmAttach(dpy, &buffer->shm);
    const int error = x_->takeError();
    // Gone as soon as both sides let go, even if we crash.
    shmctl(buffer->shm.shmid, IPC_RMID, nullptr);
    if (error != 0) {
        // A server on another machine cannot map our memory.
        slowPath_ = true;
        std::lock_guard<std::mutex> hold(lock_);
        slowMessage_ = QLatin1String(kSlowPathMessage);
        LVLog("XShmAttach failed (X error %d): %s", error, kSlowPathMessage);
        return nullptr;
    }
    buffer->attached = true;
    pool_.push_back(buffer);
    return buffer;
}

void LVDesktopGrabber::dropBuffers()
{
    for (const auto& buffer : pool_) {
        if (buffer->attached) XShmDetach(x_->display(), &buffer->shm);
    }
    if (!pool_.empty()) x_->takeError();
    // Pictures still out keep their memory mapped until the render thread lets go.
    pool_.clear();
}

void LVDesktopGrabber::readFailed(const char* call, int error)
{
    // Once per cause, not at every frame while a window is being unmapped or resized.
    if (error == 0) error = -1; // failed without an X error (no reply)
    if (error == lastReadError_) return;
    lastReadError_ = error;
    LVLog("%s failed (X error %d) on display \"%s\"", call, error, qPrintable(screen_->description()));
}

bool LVDesktopGrabber::read(const QRect& area, unsigned long drawable, QPoint rootOrigin, void* visual, int depth)
{
    Display* dpy = x_->display();
    const int w = area.width(), h = area.height();
    std::shared_ptr<Buffer> buffer;
    if (!slowPath_) {
        buffer = freeBuffer(w, h, visual, depth);
        if (buffer && !XShmGetImage(dpy, drawable, buffer->image, area.x(), area.y(), AllPlanes)) {
            readFailed("XShmGetImage", x_->takeError());
            return false;
        }
    }
    if (slowPath_) {
        buffer = std::make_shared<Buffer>();
        buffer->image = XGetImage(dpy, drawable, area.x(), area.y(), unsigned(w), unsigned(h),
                                  AllPlanes, ZPixmap);
        const int error = x_->takeError();
        if (!buffer->image) {
            readFailed("XGetImage", error);
            return false;
        }
    }
    if (!buffer) return false;
    XImage* image = buffer->image;
    if (image->bits_per_pixel != 32) {
        static std::once_flag once;
        std::call_once(once, [&] { LVLog("Desktop capture needs 32-bit pixels; the X server gives %d", image->bits_per_pixel); });
        return false;
    }
    auto picture = std::make_shared<LVDesktopPicture>();
    picture->bits = reinterpret_cast<const uint8_t*>(image->data);
    picture->width = w;
    picture->height = h;
    picture->bytesPerLine = image->bytes_per_line;
    // What differs from the picture before: the damage since that read, or all of it.
    picture->previousSerial = serial_;
    picture->changed = changedAll_ ? QRect(0, 0, w, h) : changed_.translated(-area.topLeft()) & QRect(0, 0, w, h);
    changed_ = QRect();
    changedAll_ = false;
    picture->serial = ++serial_;
    picture->rootOrigin = rootOrigin;
    picture->memory = std::move(buffer);
    {
        std::lock_guard<std::mutex> hold(lock_);
        last_ = std::move(picture);
    }
    ++reads_;
    lastReadError_ = 0;
    noteEvent();
    return true;
}
