#include "sources/desktop/LVX11Display.h"

#include "core/util/LVLog.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <X11/extensions/Xcomposite.h>
#include <X11/extensions/Xdamage.h>
#include <X11/extensions/Xfixes.h>
#include <X11/extensions/Xrandr.h>

#include <algorithm>
#include <mutex>

const char* LVX11Display::kNeedsXMessage = "Desktop capture needs an X session for now";

namespace {

thread_local int lastError = 0;

// Xlib's default handler ends the process; a capture failure must only be noted.
int recordError(Display*, XErrorEvent* event)
{
    lastError = event->error_code;
    return 0;
}

void installErrorHandler()
{
    static std::once_flag once;
    std::call_once(once, [] { XSetErrorHandler(recordError); });
}

QString atomName(Display* dpy, Atom atom)
{
    char* name = atom ? XGetAtomName(dpy, atom) : nullptr;
    const QString text = name ? QString::fromUtf8(name) : QString();
    if (name) XFree(name);
    return text;
}

QString stringProperty(Display* dpy, Window window, Atom property, Atom type)
{
    Atom actualType = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    // Titles longer than 4 KiB are cut: the filter only needs their start.
    if (XGetWindowProperty(dpy, window, property, 0, 1024, False, type, &actualType, &format, &count, &after, &data) !=
            Success || !data) {
        return QString();
    }
    const QString text = format == 8 ? QString::fromUtf8(reinterpret_cast<const char*>(data), int(count)) : QString();
    XFree(data);
    return text;
}

} // namespace

std::unique_ptr<LVX11Display> LVX11Display::open(QString* error)
{
    const QByteArray name = qgetenv("DISPLAY");
    if (name.isEmpty()) {
        const bool wayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
        if (error)
            *error = QStringLiteral("%1: %2").arg(QLatin1String(kNeedsXMessage),
                                                  wayland ? QStringLiteral("this is a Wayland session without X (DISPLAY is not set)")
                                                          : QStringLiteral("DISPLAY is not set"));
        return nullptr;
    }
    installErrorHandler();
    Display* dpy = XOpenDisplay(name.constData());
    if (!dpy) {
        if (error)
            *error = QStringLiteral("%1: XOpenDisplay(\"%2\") failed: no X server answers there")
                         .arg(QLatin1String(kNeedsXMessage), QString::fromLocal8Bit(name));
        return nullptr;
    }
    std::unique_ptr<LVX11Display> x(new LVX11Display);
    x->dpy_ = dpy;
    x->root_ = DefaultRootWindow(dpy);
    int major = 0, minor = 0, error1 = 0;
    Bool pixmaps = False;
    x->hasShm_ = XShmQueryVersion(dpy, &major, &minor, &pixmaps);
    x->hasDamage_ = XDamageQueryExtension(dpy, &x->damageEvent_, &error1);
    x->hasFixes_ = XFixesQueryExtension(dpy, &x->fixesEvent_, &error1);
    if (x->hasFixes_) {
        major = 4, minor = 0;
        XFixesQueryVersion(dpy, &major, &minor);
    }
    if (XRRQueryExtension(dpy, &x->randrEvent_, &error1) && XRRQueryVersion(dpy, &major, &minor))
        x->hasRandr_ = major > 1 || (major == 1 && minor >= 5);
    int opcode = 0, event = 0;
    if (XQueryExtension(dpy, COMPOSITE_NAME, &opcode, &event, &error1)) {
        major = 0, minor = 2;
        x->hasComposite_ = XCompositeQueryVersion(dpy, &major, &minor) && (major > 0 || minor >= 2);
    }
    return x;
}

LVX11Display::~LVX11Display()
{
    if (dpy_) XCloseDisplay(dpy_);
}

int LVX11Display::rootWidth() const
{
    return DisplayWidth(dpy_, DefaultScreen(dpy_));
}

int LVX11Display::rootHeight() const
{
    return DisplayHeight(dpy_, DefaultScreen(dpy_));
}

int LVX11Display::takeError()
{
    XSync(dpy_, False);
    const int error = lastError;
    lastError = 0;
    return error;
}

QString LVX11Display::outputProductName(unsigned long output)
{
    const Atom edidAtom = XInternAtom(dpy_, "EDID", True);
    if (edidAtom == None) return QString();
    Atom type = None;
    int format = 0;
    unsigned long count = 0, after = 0;
    unsigned char* data = nullptr;
    if (XRRGetOutputProperty(dpy_, output, edidAtom, 0, 64, False, False, AnyPropertyType, &type, &format, &count,
                             &after, &data) != Success || !data) {
        return QString();
    }
    const QString name = format == 8 ? LVEdidProductName(QByteArray(reinterpret_cast<const char*>(data), int(count))) : QString();
    XFree(data);
    return name;
}

std::vector<LVDisplayInfo> LVX11Display::monitors()
{
    std::vector<LVDisplayInfo> list;
    int count = 0;
    XRRMonitorInfo* monitors = hasRandr_ ? XRRGetMonitors(dpy_, root_, True, &count) : nullptr;
    for (int i = 0; i < count; ++i) {
        LVDisplayInfo info;
        info.outputName = atomName(dpy_, monitors[i].name);
        for (int o = 0; o < monitors[i].noutput && info.productName.isEmpty(); ++o)
            info.productName = outputProductName(monitors[i].outputs[o]);
        info.frame = QRect(monitors[i].x, monitors[i].y, monitors[i].width, monitors[i].height);
        info.primary = monitors[i].primary;
        list.push_back(info);
    }
    if (monitors) XRRFreeMonitors(monitors);
    takeError();
    if (list.empty()) list.push_back({QStringLiteral("screen"), QString(), QRect(0, 0, rootWidth(), rootHeight()), true});
    return list;
}

int LVX11Display::primaryIndex(const std::vector<LVDisplayInfo>& monitors)
{
    for (size_t i = 0; i < monitors.size(); ++i) {
        if (monitors[i].primary) return int(i);
    }
    return 0;
}

int LVX11Display::indexAt(const std::vector<LVDisplayInfo>& monitors, QPoint rootPoint)
{
    for (size_t i = 0; i < monitors.size(); ++i) {
        if (monitors[i].frame.contains(rootPoint)) return int(i);
    }
    return primaryIndex(monitors);
}

QPoint LVX11Display::pointer()
{
    Window rootReturn = None, child = None;
    int x = 0, y = 0, wx = 0, wy = 0;
    unsigned int mask = 0;
    XQueryPointer(dpy_, root_, &rootReturn, &child, &x, &y, &wx, &wy, &mask);
    return QPoint(x, y);
}

LVCursorImage LVX11Display::cursorImage()
{
    LVCursorImage cursor;
    if (!hasFixes_) return cursor;
    XFixesCursorImage* image = XFixesGetCursorImage(dpy_);
    if (!image) return cursor;
    // Premultiplied ARGB, one pixel per unsigned long whatever its size.
    QImage premultiplied(image->width, image->height, QImage::Format_ARGB32_Premultiplied);
    for (int y = 0; y < image->height; ++y) {
        auto* row = reinterpret_cast<uint32_t*>(premultiplied.scanLine(y));
        for (int x = 0; x < image->width; ++x) row[x] = uint32_t(image->pixels[y * image->width + x]);
    }
    cursor.image = premultiplied.convertToFormat(QImage::Format_ARGB32);
    cursor.hotSpot = QPoint(image->xhot, image->yhot);
    cursor.serial = image->cursor_serial;
    XFree(image);
    return cursor;
}

std::vector<LVWindowInfo> LVX11Display::windows()
{
    std::vector<LVWindowInfo> list;
    const Atom netName = XInternAtom(dpy_, "_NET_WM_NAME", False);
    const Atom utf8 = XInternAtom(dpy_, "UTF8_STRING", False);
    Window rootReturn = None, parent = None;
    Window* children = nullptr;
    unsigned int count = 0;
    if (!XQueryTree(dpy_, root_, &rootReturn, &parent, &children, &count)) return list;
    // Under a reparenting window manager the application's window is a child of the frame.
    const auto describe = [&](Window window, LVWindowInfo& info) {
        XClassHint hint{};
        if (!XGetClassHint(dpy_, window, &hint)) return false;
        info.id = window;
        info.wmClass = QString::fromUtf8(hint.res_class ? hint.res_class : "");
        if (hint.res_name) XFree(hint.res_name);
        if (hint.res_class) XFree(hint.res_class);
        info.title = stringProperty(dpy_, window, netName, utf8);
        if (info.title.isEmpty()) info.title = stringProperty(dpy_, window, XA_WM_NAME, AnyPropertyType);
        return true;
    };
    for (unsigned int i = 0; i < count; ++i) {
        XWindowAttributes attributes{};
        if (!XGetWindowAttributes(dpy_, children[i], &attributes) || attributes.map_state != IsViewable ||
            attributes.c_class != InputOutput) {
            continue;
        }
        LVWindowInfo info;
        bool found = describe(children[i], info);
        Window* inner = nullptr;
        unsigned int innerCount = 0;
        if (!found && XQueryTree(dpy_, children[i], &rootReturn, &parent, &inner, &innerCount)) {
            for (unsigned int j = 0; j < innerCount && !found; ++j) found = describe(inner[j], info);
            if (inner) XFree(inner);
        }
        if (!found) continue;
        info.frame = QRect(attributes.x, attributes.y, attributes.width + 2 * attributes.border_width,
                           attributes.height + 2 * attributes.border_width);
        // What gets captured is the top-level window, frame included.
        info.id = children[i];
        list.push_back(info);
    }
    if (children) XFree(children);
    takeError();
    return list;
}

std::vector<LVScreenRef> LVDesktopScreenList(QString* error)
{
    QString reason;
    std::unique_ptr<LVX11Display> x = LVX11Display::open(&reason);
    if (!x) {
        static std::once_flag once;
        std::call_once(once, [&] { LVLog("%s", qPrintable(reason)); });
        if (error) *error = reason;
        return {};
    }
    const std::vector<LVDisplayInfo> monitors = x->monitors();
    return LVBuildScreenList(monitors, x->rootHeight(), LVX11Display::indexAt(monitors, x->pointer()),
                             LVX11Display::primaryIndex(monitors));
}

int LVFindWindow(const std::vector<LVWindowInfo>& windows, const QString& wmClass, const QString& title)
{
    if (wmClass.isEmpty() && title.isEmpty()) return -1;
    auto it = std::find_if(windows.begin(), windows.end(),
                           [&](const LVWindowInfo& w) { return w.wmClass == wmClass && w.title == title; });
    if (it == windows.end())
        it = std::find_if(windows.begin(), windows.end(), [&](const LVWindowInfo& w) { return w.wmClass == wmClass; });
    return it == windows.end() ? -1 : int(it - windows.begin());
}
