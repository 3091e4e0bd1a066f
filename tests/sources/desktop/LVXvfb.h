#pragma once
// A real X server for the desktop tests and benchmarks: Xvfb on a free display number, and a
// small X client that draws known colours and defines a known cursor.
#include <QRect>
#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <cstdint>

typedef struct _XDisplay Display;

class LVXvfb {
public:
    // Starts Xvfb with one screen of the given size; extra arguments go to the server
    // ("-extension", "MIT-SHM"). Waits for the server to say it listens.
    LVXvfb(int width, int height, const QStringList& extra = {});
    ~LVXvfb();
    LVXvfb(const LVXvfb&) = delete;
    LVXvfb& operator=(const LVXvfb&) = delete;

    bool isRunning() const { return !name_.isEmpty(); }
    // ":N"
    QString name() const { return name_; }
    pid_t pid() const { return pid_; }
    // Makes DISPLAY name this server (for the code under test).
    void makeCurrent() const;

private:
    pid_t pid_ = -1;
    QString name_;
};

// One client connection that draws.
class LVXClient {
public:
    explicit LVXClient(const QString& display);
    ~LVXClient();
    Display* display() const { return dpy_; }

    // An override-redirect window (no window manager needed), mapped and drawn black.
    // withAlpha: a 32-bit window, as programs that draw their own shadows make.
    unsigned long createWindow(const QRect& frame, const char* wmClass, const char* title, bool withAlpha = false);
    void destroyWindow(unsigned long window);
    // A solid 0xRRGGBB rectangle, in window pixels (root pixels on the root window).
    void fill(unsigned long window, const QRect& rect, uint32_t rgb);
    // A solid square cursor of the colour with its hot spot at the top left.
    void defineSquareCursor(unsigned long window, int side, uint32_t rgb);
    void warpPointer(QPoint rootPoint);
    // Waits until the server has done everything asked so far.
    void sync();

private:
    Display* dpy_ = nullptr;
};
