#pragma once
// One entry of the display list and the coordinate conversions between a display's own
// rectangles (origin at its lower left, y up) and global top-left coordinates (the X root).
#include <QByteArray>
#include <QRect>
#include <QRectF>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

// A monitor as the X server describes it.
struct LVDisplayInfo {
    QString outputName;  // the monitor's (or output's) name: "HDMI-1", "screen"
    QString productName; // from the EDID; empty when the monitor has none
    QRect frame;         // in root-window pixels, origin at the top left
    bool primary = false;
};

class LVScreen;
using LVScreenRef = std::shared_ptr<const LVScreen>;

class LVScreen {
public:
    static LVScreenRef screenWithScreen(const LVDisplayInfo& screen, int rootHeight);
    static LVScreenRef screenWithScreen(const LVDisplayInfo& screen, int rootHeight, const QString& displayName);

    const LVDisplayInfo& screen() const { return screen_; }
    QString displayName() const { return displayName_; }
    // The product name, else the output's name.
    QString name() const { return name_; }
    // What the list shows and setups store: the display name when set, else the name.
    QString description() const { return displayName_.isEmpty() ? name_ : displayName_; }
    // The display's frame in global coordinates with the origin at the lower left of the
    // root window, y up.
    QRectF frame() const;
    int rootHeight() const { return rootHeight_; }

private:
    LVDisplayInfo screen_;
    QString displayName_;
    QString name_;
    int rootHeight_ = 0;
};

// A display list: "This screen", "Main screen", then a separator (a null entry, shown as "-")
// and every other monitor. thisScreen and mainScreen index into monitors.
std::vector<LVScreenRef> LVBuildScreenList(const std::vector<LVDisplayInfo>& monitors, int rootHeight,
                                           int thisScreen, int mainScreen);
QStringList LVScreenDescriptions(const std::vector<LVScreenRef>& list);

namespace LVScreenUtils {
// A rectangle in the display's own coordinates to global top-left coordinates, and back.
QRectF toQ4(const QRectF& rect, const LVScreen& screen);
QRectF fromQ4(const QRectF& rect, const LVScreen& screen);
} // namespace LVScreenUtils

// The monitor name of an EDID block (descriptor 0xFC), or empty.
QString LVEdidProductName(const QByteArray& edid);
