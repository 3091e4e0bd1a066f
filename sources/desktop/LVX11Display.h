#pragma once
// One connection to the X server and the queries the desktop sources need: the monitors
// (XRandR, with EDID product names), the pointer, the cursor image (XFixes) and the top-level
// windows. Each thread that talks to X opens its own connection.
#include "sources/desktop/LVScreen.h"

#include <QImage>
#include <QPoint>
#include <QString>

#include <memory>
#include <vector>

typedef struct _XDisplay Display;

// The arrow as XFixes gives it, straight alpha, with its hot spot.
struct LVCursorImage {
    QImage image;
    QPoint hotSpot;
    unsigned long serial = 0;
};

// A top-level application window.
struct LVWindowInfo {
    unsigned long id = 0;
    QString wmClass; // the class part of WM_CLASS ("Firefox")
    QString title;
    QRect frame;     // in root-window pixels
};

class LVX11Display {
public:
    // The display named by DISPLAY; null with the reason in error. A session without X (a pure
    // Wayland one, or none at all) gets a message that says desktop capture needs X.
    static std::unique_ptr<LVX11Display> open(QString* error);
    ~LVX11Display();
    LVX11Display(const LVX11Display&) = delete;
    LVX11Display& operator=(const LVX11Display&) = delete;

    Display* display() const { return dpy_; }
    unsigned long root() const { return root_; }
    int rootWidth() const;
    int rootHeight() const;

    bool hasShm() const { return hasShm_; }
    bool hasDamage() const { return hasDamage_; }
    bool hasFixes() const { return hasFixes_; }
    bool hasRandr() const { return hasRandr_; }
    bool hasComposite() const { return hasComposite_; }
    int damageEventBase() const { return damageEvent_; }
    int fixesEventBase() const { return fixesEvent_; }
    int randrEventBase() const { return randrEvent_; }

    // The monitors in the server's order (primary first when the server marks one). A server
    // without XRandR 1.5 answers the whole root as one monitor named "screen".
    std::vector<LVDisplayInfo> monitors();
    // Index of the primary monitor (0 when none is marked) and of the one under the pointer.
    static int primaryIndex(const std::vector<LVDisplayInfo>& monitors);
    static int indexAt(const std::vector<LVDisplayInfo>& monitors, QPoint rootPoint);

    QPoint pointer();
    // The current cursor; a null image when XFixes is missing.
    LVCursorImage cursorImage();
    // Top-level windows that are mapped, bottom to top.
    std::vector<LVWindowInfo> windows();

    // The last X error on this thread's requests since the call before, 0 when none; syncs.
    int takeError();

    static const char* kNeedsXMessage;

private:
    LVX11Display() = default;
    QString outputProductName(unsigned long output);

    Display* dpy_ = nullptr;
    unsigned long root_ = 0;
    bool hasShm_ = false;
    bool hasDamage_ = false;
    bool hasFixes_ = false;
    bool hasRandr_ = false;
    bool hasComposite_ = false;
    int damageEvent_ = 0;
    int fixesEvent_ = 0;
    int randrEvent_ = 0;
};

// The window a setup names: the same class and title, else the same class; -1 when none.
int LVFindWindow(const std::vector<LVWindowInfo>& windows, const QString& wmClass, const QString& title);

// The display list as the desktop sources offer it ("This screen" is the monitor under the
// pointer). Empty without an X server; the reason goes to error and, once per process, to the
// log.
std::vector<LVScreenRef> LVDesktopScreenList(QString* error);
