// The viewport's geometry, the coordinate conversions, EDID names and the display list: plain
// arithmetic, no X server.
#include "sources/desktop/LVScreen.h"
#include "sources/desktop/ViewPortView.h"

#include <gtest/gtest.h>

namespace {

// A 1920x1080 display, a 640x480 video.
ViewPortView makeView(int* actions = nullptr)
{
    ViewPortView view(QRectF(0, 0, 1920, 1080), QSizeF(640, 480), [actions](bool finished) {
        EXPECT_FALSE(finished);
        if (actions) ++*actions;
    });
    view.setPortRect(QRectF(100, 150, 640, 480));
    return view;
}

// The handle whose transform matches.
QPointF handleCentre(const ViewPortView& view, LVDragTransform t)
{
    for (const LVGrabPoint& p : view.grabPoints()) {
        if (p.transform.tx == t.tx && p.transform.ty == t.ty && p.transform.tw == t.tw && p.transform.th == t.th)
            return p.rect.center();
    }
    ADD_FAILURE() << "no such handle";
    return QPointF();
}

TEST(ViewPortView, ZeroRectangleSitsHundredPointsFromTheTopLeft)
{
    ViewPortView view(QRectF(0, 0, 1920, 1080), QSizeF(640, 480), nullptr);
    view.setPortRect(QRectF());
    EXPECT_EQ(view.portRect(), QRectF(100, 1080 - 100 - 480, 640, 480));
    view.setPortRect(QRectF(0, 0, 10, 0));
    EXPECT_EQ(view.portRect(), QRectF(0, 0, 10, 0)) << "only the all-zero rectangle is replaced";
}

struct DragCase {
    const char* what;
    LVDragTransform handle; // {1,1,0,0} presses inside the rectangle
    QPointF by;
    bool shift;
    bool doNotExceed;
    QRectF expected;
};

TEST(ViewPortView, DragsFollowTheHandleAndItsLimits)
{
    const DragCase cases[] = {
        {"move keeps the size", ViewPortView::kMoveXform, {30.7, -20.2}, false, false, {130, 130, 640, 480}},
        {"top-right grows", {0, 0, 1, 1}, {100, 50}, false, false, {100, 150, 740, 530}},
        {"bottom-left moves the origin", {1, 1, -1, -1}, {10, 20}, false, false, {110, 170, 630, 460}},
        {"shrinking stops at 50x30", {0, 0, 1, 1}, {-1000, -1000}, false, false, {100, 150, 50, 30}},
        {"shrinking from the left stops at 50 without moving on", {1, 0, -1, 0}, {1000, 0}, false, false,
         {690, 150, 50, 480}},
        {"the video size is the limit", {0, 0, 1, 1}, {500, 500}, false, true, {100, 150, 640, 480}},
        {"the limit only bites past the video size", {0, 0, 1, 1}, {-100, -100}, false, true, {100, 150, 540, 380}},
        {"shift keeps the video's aspect", {0, 0, 1, 1}, {80, 200}, true, false, {100, 150, 720, 540}},
        {"shift takes the smaller step", {0, 0, 1, 1}, {200, 30}, true, false, {100, 150, 680, 510}},
    };
    for (const DragCase& c : cases) {
        SCOPED_TRACE(c.what);
        int actions = 0;
        ViewPortView view = makeView(&actions);
        view.setDoNotExceedResolution(c.doNotExceed);
        const bool inside = c.handle.tx == 1 && c.handle.ty == 1 && c.handle.tw == 0;
        const QPointF from = inside ? QPointF(400, 400) : handleCentre(view, c.handle);
        view.mouseDown(from);
        view.trackMouse(from + c.by, c.shift);
        view.mouseUp();
        EXPECT_EQ(view.portRect(), c.expected);
        EXPECT_EQ(actions, 1);
    }
    // Turned on later, the limit shrinks a kept rectangle where it is too large.
    ViewPortView view = makeView();
    view.setPortRect(QRectF(10, 20, 1000, 300));
    view.setDoNotExceedResolution(true);
    EXPECT_EQ(view.portRect(), QRectF(10, 20, 640, 300));
}

TEST(ViewPortView, HandlesSitAroundTheRectangleAndOnlyTheyAndTheFrameTakeTheMouse)
{
    ViewPortView view = makeView();
    ASSERT_EQ(view.grabPoints().size(), 8u);
    EXPECT_EQ(view.grabPoints()[0].rect, QRectF(100 - 9, 150 - 9, 8, 8)); // bottom left
    EXPECT_EQ(view.grabPoints()[3].rect, QRectF(741, 150 + 240 - 4, 8, 8)); // right middle
    EXPECT_EQ(view.grabPoints()[4].rect, QRectF(100 + 640 + 1, 150 + 480 + 1, 8, 8)); // top right
    const QRegion region = view.inputRegion();
    // Painter coordinates run down: the rectangle's top edge is at 1080 - 150 - 480.
    const int top = 1080 - 150 - 480;
    const struct {
        QPoint at;
        bool inside;
    } probes[] = {
        {{400, top - 1}, true},          // the frame line above the rectangle
        {{400, top - ViewPortView::kFrameLine}, true},
        {{400, top - ViewPortView::kFrameLine - 1}, false},
        {{400, top}, false},             // the rectangle's own first row stays clear
        {{400, top + 100}, false},       // the inside passes clicks through
        {{100 - 9, 1080 - 150 + 1}, true}, // the bottom-left handle
        {{20, 20}, false},
    };
    for (const auto& probe : probes) EXPECT_EQ(region.contains(probe.at), probe.inside) << probe.at.x() << "," << probe.at.y();
    view.setResizable(false);
    EXPECT_TRUE(view.grabPoints().empty());
}

TEST(LVScreenUtils, ConvertsBetweenDisplayAndRootCoordinates)
{
    struct Case {
        QRect monitor;
        QRectF inDisplay;
        QRectF global;
    };
    // A 2560x1440 root: a 1920x1080 monitor at the top left and a 640x1440 one beside it.
    const Case cases[] = {
        {{0, 0, 1920, 1080}, {0, 0, 1920, 1080}, {0, 0, 1920, 1080}},
        {{0, 0, 1920, 1080}, {100, 150, 320, 240}, {100, 1080 - 150 - 240, 320, 240}},
        {{1920, 0, 640, 1440}, {10, 20, 100, 50}, {1930, 1440 - 20 - 50, 100, 50}},
        {{1920, 400, 640, 1040}, {0, 0, 640, 1040}, {1920, 400, 640, 1040}},
    };
    for (const Case& c : cases) {
        const LVScreenRef screen = LVScreen::screenWithScreen({QStringLiteral("M"), QString(), c.monitor, false}, 1440);
        EXPECT_EQ(LVScreenUtils::toQ4(c.inDisplay, *screen), c.global);
        EXPECT_EQ(LVScreenUtils::fromQ4(c.global, *screen), c.inDisplay);
    }
}

QByteArray edidWith(int descriptor, unsigned char tag, const QByteArray& text)
{
    QByteArray edid(128, '\0');
    const int at = 54 + 18 * descriptor;
    edid[at + 3] = char(tag);
    QByteArray field = text;
    if (field.size() < 13) field.append('\n');
    field = field.leftJustified(13, ' ', true);
    edid.replace(at + 5, 13, field);
    return edid;
}

TEST(LVEdidProductName, ReadsTheMonitorNameDescriptor)
{
    struct Case {
        const char* what;
        QByteArray edid;
        QString expected;
    };
    QByteArray serialThenName = edidWith(1, 0xFC, "DELL U2720Q");
    serialThenName.replace(54 + 3, 1, QByteArray(1, char(0xFF)));
    const Case cases[] = {
        {"first descriptor", edidWith(0, 0xFC, "LG HDR 4K"), QStringLiteral("LG HDR 4K")},
        {"after a serial number", serialThenName, QStringLiteral("DELL U2720Q")},
        {"thirteen characters, no line feed", edidWith(3, 0xFC, "ABCDEFGHIJKLM"), QStringLiteral("ABCDEFGHIJKLM")},
        {"only a serial number", edidWith(0, 0xFF, "12345"), QString()},
        {"a cut-off block", edidWith(0, 0xFC, "Short").left(100), QString()},
    };
    for (const Case& c : cases) EXPECT_EQ(LVEdidProductName(c.edid), c.expected) << c.what;
}

TEST(LVBuildScreenList, NamesThisScreenMainScreenThenTheOthers)
{
    const std::vector<LVDisplayInfo> monitors = {
        {QStringLiteral("HDMI-1"), QStringLiteral("DELL U2720Q"), QRect(0, 0, 1920, 1080), true},
        {QStringLiteral("DP-2"), QString(), QRect(1920, 0, 1280, 1024), false},
        {QStringLiteral("eDP-1"), QStringLiteral("Built-in"), QRect(3200, 0, 1280, 800), false},
    };
    const auto list = LVBuildScreenList(monitors, 1080, 1, 0);
    EXPECT_EQ(LVScreenDescriptions(list), QStringList({"This screen", "Main screen", "-", "DELL U2720Q", "Built-in"}));
    EXPECT_EQ(list[0]->screen().outputName, "DP-2");
    EXPECT_EQ(list[0]->name(), "DP-2") << "no EDID name: the output's name";
    EXPECT_EQ(list[1]->screen().outputName, "HDMI-1");
    EXPECT_TRUE(LVBuildScreenList({}, 0, 0, 0).empty());
}

} // namespace
