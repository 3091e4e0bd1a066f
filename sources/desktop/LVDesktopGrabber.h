#pragma once
// Captures one display (or one window) on its own thread. Reads are damage-driven: the X server
// reports changed areas (XDamage) and the grabber reads the capture rectangle (XShm, or plain
// XGetImage where shared memory is unavailable) only when a change touches it, the rectangle
// moved, or a refresh was asked for, and never more often than the frame rate. The newest
// picture waits under the lock for the render thread; the mouse arrow is not in it.
#include "sources/desktop/LVScreen.h"
#include "sources/desktop/LVX11Display.h"

#include <QRect>
#include <QRectF>
#include <QString>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

// A captured picture: B,G,R,X bytes, top row first. Its memory stays valid while it is held.
struct LVDesktopPicture {
    std::shared_ptr<const void> memory;
    const uint8_t* bits = nullptr;
    int width = 0;
    int height = 0;
    int bytesPerLine = 0;
    uint64_t serial = 0;
    QPoint rootOrigin; // where its top-left pixel is on the root window
    // The picture differs from the one with previousSerial only inside changed.
    uint64_t previousSerial = 0;
    QRect changed;
};

// Where the pointer is (root pixels) and the arrow it shows.
struct LVDesktopMouse {
    QPoint location;
    std::shared_ptr<const LVCursorImage> cursor;
};

class LVDesktopGrabber {
public:
    // Opens the grabber's own X connection; null with the reason in error.
    static std::unique_ptr<LVDesktopGrabber> create(LVScreenRef screen, QString* error);
    ~LVDesktopGrabber();
    LVDesktopGrabber(const LVDesktopGrabber&) = delete;
    LVDesktopGrabber& operator=(const LVDesktopGrabber&) = delete;

    const LVScreenRef& screen() const { return screen_; }
    // The pictures never contain the arrow; the source draws it.
    bool willShowMouse() const { return false; }

    void start();
    void stop();
    bool isStarted() const;
    // Reads again at the next chance.
    void refresh();
    // The capture rectangle in the display's pixels, origin at its lower left; kept inside the
    // display.
    void setGrabRect(const QRectF& rect);
    // The rectangle read, in root pixels (top-left origin).
    QRect rootGrabRect() const;
    // Captures this top-level window instead of the display: through XComposite when the server
    // has it, else the screen area the window covers; crop is cut off each edge (left, top,
    // right, bottom). A window that goes away is looked for again, once a second, by its class
    // and title. Window 0 goes back to the display.
    void setWindow(const LVWindowInfo& window, const QMargins& crop);
    // The window read now (it changes when a lost one is found again).
    unsigned long window() const;
    void setTracksMouse(bool on);
    void setMinimumFrameTime(std::chrono::nanoseconds interval);

    std::shared_ptr<const LVDesktopPicture> last() const;
    LVDesktopMouse mouse() const;
    // The display left the server's monitor list (unplugged); stays set.
    bool displayLost() const;
    // Why reads are slow, for the source to show; empty on the shared-memory path.
    QString slowPathMessage() const;

    // For tests and figures: reads done, and damage reports fully handled (a report that
    // leads to a read is counted after the read).
    uint64_t readCount() const { return reads_.load(); }
    uint64_t damageReportsHandled() const { return damageHandled_.load(); }
    // Waits until done() holds, checking after every read, handled damage report and display
    // change; false when the time ran out.
    bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds timeout);

private:
    struct Buffer;
    LVDesktopGrabber(LVScreenRef screen, std::unique_ptr<LVX11Display> x);
    void run();
    void wake();
    // Wakes waitFor(); never called with lock_ held.
    void noteEvent();
    void handleEvents(bool& dirty, uint64_t& handled);
    // visual: the drawable's Xlib Visual; depth its depth.
    bool read(const QRect& area, unsigned long drawable, QPoint rootOrigin, void* visual, int depth);
    void readFailed(const char* call, int error);
    std::shared_ptr<Buffer> freeBuffer(int width, int height, void* visual, int depth);
    void dropBuffers();
    void startDamage(unsigned long drawable);
    void stopDamage();
    void checkMonitors();
    // Looks for the lost window's class and title among the windows now; true when found.
    bool findWindowAgain(unsigned long lost);
    void pollMouse();
    QRect clampedRootRect(const QRectF& rect) const;

    const LVScreenRef screen_;
    std::unique_ptr<LVX11Display> x_;
    int wakeRead_ = -1;
    int wakeWrite_ = -1;

    mutable std::mutex lock_;
    // Guarded by lock_.
    QRect rootRect_;
    QRect displayFrame_; // the monitor in root pixels; moves when the layout changes
    LVWindowInfo window_;
    QMargins crop_;
    bool started_ = false;
    bool refresh_ = false;
    bool quit_ = false;
    bool tracksMouse_ = false;
    bool lost_ = false;
    std::chrono::nanoseconds interval_{std::chrono::milliseconds(66)};
    std::shared_ptr<const LVDesktopPicture> last_;
    LVDesktopMouse mouse_;
    QString slowMessage_;

    // The grabber's thread only.
    unsigned long damage_ = 0;
    unsigned long damagedDrawable_ = 0;
    QRect watched_;  // the area whose damage matters, in the damaged drawable's pixels
    bool slowPath_ = false;
    bool compositeRedirected_ = false;
    unsigned long redirectedWindow_ = 0;
    unsigned long structureWatched_ = 0;
    std::vector<std::shared_ptr<Buffer>> pool_;
    uint64_t serial_ = 0;
    bool cursorChanged_ = true;
    // Damage in the read drawable's pixels since the last read; all of it when anything else
    // (a new rectangle, a refresh, a layout change) made the read.
    QRect changed_;
    bool changedAll_ = true;
    int lastReadError_ = 0;

    std::mutex eventLock_;
    std::condition_variable eventChanged_;
    std::atomic<uint64_t> reads_{0};
    std::atomic<uint64_t> damageHandled_{0};
    std::thread thread_;
};
