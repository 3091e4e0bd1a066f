#include "LVXvfb.h"
#include "tests/support/LVChildProcess.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

extern char** environ;

LVXvfb::LVXvfb(int width, int height, const QStringList& extra)
{
    int fds[2];
    if (pipe(fds) != 0) return;
    fcntl(fds[0], F_SETFD, FD_CLOEXEC);
    // The server writes its display number to this descriptor once it accepts clients.
    // The server gets the pipe as descriptor 3 and nothing else of ours.
    QStringList arguments{QStringLiteral("Xvfb"), QStringLiteral("-displayfd"), QStringLiteral("3"),
                          QStringLiteral("-screen"), QStringLiteral("0"), QStringLiteral("%1x%2x24").arg(width).arg(height),
                          QStringLiteral("-nolisten"), QStringLiteral("tcp"), QStringLiteral("-noreset")};
    arguments += extra;
    std::vector<QByteArray> storage;
    for (const QString& a : arguments) storage.push_back(a.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& a : storage) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // Its chatter would only clutter the test log, and a server left behind by a test that died
    // must not hold the test's output open: ctest would wait on it until its timeout.
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[1], 3);
    posix_spawn_file_actions_addclosefrom_np(&actions, 4);
    const int spawned = posix_spawnp(&pid_, "Xvfb", &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    if (spawned != 0) {
        pid_ = -1;
        close(fds[0]);
        return;
    }
    QByteArray number;
    char c = 0;
    while (read(fds[0], &c, 1) == 1 && c != '\n') number.append(c);
    close(fds[0]);
    if (!number.isEmpty()) name_ = QStringLiteral(":") + QString::fromLatin1(number);
}

LVXvfb::~LVXvfb()
{
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    lvReapOrKill(pid_, std::chrono::seconds(5));
}

void LVXvfb::makeCurrent() const
{
    setenv("DISPLAY", name_.toLocal8Bit().constData(), 1);
}

LVXClient::LVXClient(const QString& display)
{
    dpy_ = XOpenDisplay(display.toLocal8Bit().constData());
}

LVXClient::~LVXClient()
{
    if (dpy_) XCloseDisplay(dpy_);
}

unsigned long LVXClient::createWindow(const QRect& frame, const char* wmClass, const char* title, bool withAlpha)
{
    XSetWindowAttributes attributes{};
    attributes.override_redirect = True;
    attributes.background_pixel = 0;
    unsigned long mask = CWOverrideRedirect | CWBackPixel;
    int depth = CopyFromParent;
    Visual* visual = CopyFromParent;
    XVisualInfo info{};
    if (withAlpha && XMatchVisualInfo(dpy_, DefaultScreen(dpy_), 32, TrueColor, &info)) {
        depth = 32;
        visual = info.visual;
        attributes.colormap = XCreateColormap(dpy_, DefaultRootWindow(dpy_), visual, AllocNone);
        attributes.border_pixel = 0;
        mask |= CWColormap | CWBorderPixel;
    }
    const Window window = XCreateWindow(dpy_, DefaultRootWindow(dpy_), frame.x(), frame.y(), unsigned(frame.width()),
                                        unsigned(frame.height()), 0, depth, InputOutput, visual, mask, &attributes);
    XClassHint hint{const_cast<char*>("lvtest"), const_cast<char*>(wmClass)};
    XSetClassHint(dpy_, window, &hint);
    XStoreName(dpy_, window, title);
    XMapRaised(dpy_, window);
    sync();
    return window;
}

void LVXClient::destroyWindow(unsigned long window)
{
    XDestroyWindow(dpy_, window);
    sync();
}

void LVXClient::fill(unsigned long window, const QRect& rect, uint32_t rgb)
{
    GC gc = XCreateGC(dpy_, window, 0, nullptr);
    // Opaque on a 32-bit window too.
    XSetForeground(dpy_, gc, 0xFF000000u | rgb);
    XFillRectangle(dpy_, window, gc, rect.x(), rect.y(), unsigned(rect.width()), unsigned(rect.height()));
    XFreeGC(dpy_, gc);
    sync();
}

void LVXClient::defineSquareCursor(unsigned long window, int side, uint32_t rgb)
{
    const Pixmap shape = XCreatePixmap(dpy_, window, unsigned(side), unsigned(side), 1);
    GC gc = XCreateGC(dpy_, shape, 0, nullptr);
    XSetForeground(dpy_, gc, 1);
    XFillRectangle(dpy_, shape, gc, 0, 0, unsigned(side), unsigned(side));
    XFreeGC(dpy_, gc);
    XColor colour{};
    colour.red = uint16_t(((rgb >> 16) & 0xFF) * 257);
    colour.green = uint16_t(((rgb >> 8) & 0xFF) * 257);
    colour.blue = uint16_t((rgb & 0xFF) * 257);
    colour.flags = DoRed | DoGreen | DoBlue;
    XColor black{};
    const Cursor cursor = XCreatePixmapCursor(dpy_, shape, shape, &colour, &black, 0, 0);
    XDefineCursor(dpy_, window, cursor);
    XFreeCursor(dpy_, cursor);
    XFreePixmap(dpy_, shape);
    sync();
}

void LVXClient::warpPointer(QPoint rootPoint)
{
    XWarpPointer(dpy_, None, DefaultRootWindow(dpy_), 0, 0, 0, 0, rootPoint.x(), rootPoint.y());
    sync();
}

void LVXClient::sync()
{
    XSync(dpy_, False);
}
