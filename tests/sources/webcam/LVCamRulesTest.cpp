#include "sources/webcam/LVCamDevice.h"

#include <gst/gst.h>
#include <gtest/gtest.h>

namespace {

LVCamFormat fmt(int w, int h, std::vector<LVCamRateRange> rates = {})
{
    LVCamFormat f;
    f.mediaType = QStringLiteral("video/x-raw");
    f.pixelFormat = QStringLiteral("YUY2");
    f.width = w;
    f.height = h;
    f.rates = std::move(rates);
    return f;
}

LVCamRateRange range(int lo, int hi)
{
    return {double(lo), double(hi), LVCamTimeMake(1, hi), LVCamTimeMake(1, lo)};
}

struct FormatCase {
    const char* what;
    std::vector<std::pair<int, int>> sizes;
    int targetW, targetH;
    int expected;
};

TEST(LVCamRules, FormatChoiceFollowsTheNearestSizeRules)
{
    const FormatCase cases[] = {
        {"empty list", {}, 640, 480, -1},
        {"the first format is best when alone", {{160, 120}}, 640, 480, 0},
        {"an exact match does not replace a larger best", {{1280, 720}, {640, 480}}, 640, 480, 0},
        {"short best, larger replaces it, then above-target-and-smaller replaces that",
         {{320, 240}, {1280, 720}, {800, 600}}, 640, 480, 2},
        {"short best is replaced by one wider only", {{320, 240}, {330, 200}}, 640, 480, 1},
        {"short best is kept when the next is no wider and no taller", {{320, 240}, {320, 240}}, 640, 480, 0},
        {"above target: smaller in one dimension only does not win", {{1920, 1080}, {1280, 1200}}, 640, 480, 0},
        {"above target: equal to target in one dimension does not win", {{1920, 1080}, {640, 720}}, 640, 480, 0},
        {"above target: smaller in both wins", {{1920, 1080}, {800, 600}, {1280, 720}}, 640, 480, 1},
        {"exact target first stays against anything larger", {{640, 480}, {800, 600}}, 640, 480, 0},
        {"exact target replaces a short best", {{320, 240}, {640, 480}}, 640, 480, 1},
        {"ties keep the earlier format", {{800, 600}, {800, 600}}, 640, 480, 0},
    };
    for (const FormatCase& c : cases) {
        std::vector<LVCamFormat> formats;
        for (auto [w, h] : c.sizes) formats.push_back(fmt(w, h));
        EXPECT_EQ(LVCamChooseFormat(formats, c.targetW, c.targetH), c.expected) << c.what;
    }
}

struct DurationCase {
    const char* what;
    std::vector<LVCamRateRange> ranges;
    int frameRate;
    LVCamTime expected;
};

TEST(LVCamRules, FrameDurationTakesTheContainingRangeElseTheNearestFarEnd)
{
    const DurationCase cases[] = {
        {"no ranges: invalid", {}, 30, {}},
        {"second range contains the rate", {range(1, 25), range(1, 60)}, 30, LVCamTimeMake(1, 30)},
        {"rate above the only range: its maximum duration", {range(5, 15)}, 30, LVCamTimeMake(1, 5)},
        {"rate below the only range: its minimum duration", {range(30, 60)}, 15, LVCamTimeMake(1, 60)},
        {"discrete rates: the nearest wins", {range(30, 30), range(15, 15)}, 25, LVCamTimeMake(1, 30)},
        {"discrete rates: the nearest wins, in any order", {range(15, 15), range(30, 30)}, 20, LVCamTimeMake(1, 15)},
        {"equal distance keeps the earlier range", {range(20, 20), range(60, 60)}, 30, LVCamTimeMake(1, 20)},
        {"a range edge counts as inside", {range(15, 30)}, 30, LVCamTimeMake(1, 30)},
    };
    for (const DurationCase& c : cases) {
        EXPECT_EQ(LVCamChooseFrameDuration(c.ranges, c.frameRate), c.expected) << c.what;
    }
    // Distances are compared exactly, in time.
    EXPECT_EQ(LVCamCompareDistances(LVCamTimeMake(1, 20), LVCamTimeMake(1, 60), LVCamTimeMake(1, 30)), 0);
    EXPECT_EQ(LVCamCompareDistances(LVCamTimeMake(1, 20), LVCamTimeMake(1, 45), LVCamTimeMake(1, 30)), 1);
    EXPECT_EQ(LVCamCompareDistances(LVCamTimeMake(1001, 30000), LVCamTimeMake(1, 30), LVCamTimeMake(1, 30)), 1);
}

TEST(LVCamRules, DisplayNamesNumberCamerasOfTheSameModel)
{
    const struct {
        QString name;
        QStringList listed;
        QString expected;
    } cases[] = {
        {"Cam", {}, "Cam"},
        {"Cam", {"Cam"}, "Cam 2"},
        {"Cam", {"Cam", "Other", "Cam"}, "Cam 3"},
        {"Cam", {"Cam 2", "cam"}, "Cam"},
    };
    for (const auto& c : cases) EXPECT_EQ(LVCamDisplayName(c.name, c.listed), c.expected) << qPrintable(c.name);
}

TEST(LVCamRules, CapsBecomeFormatsInCapsOrder)
{
    ASSERT_TRUE(LVCamInitGStreamer());
    const struct {
        const char* caps;
        QStringList expected; // "<format> <w>x<h> <rates>"
    } cases[] = {
        {"video/x-raw,format=YUY2,width=640,height=480,framerate={30/1,15/1}", {"YUY2 640x480 30 15 fps"}},
        {"image/jpeg,width=1280,height=720,framerate=[5/1,30/1]; video/x-raw,format=NV12,width=320,height=240,"
         "framerate=30000/1001",
         {"MJPG 1280x720 5-30 fps", "NV12 320x240 29.97 fps"}},
        {"video/x-raw,format={YUY2,NV12},width=[1,1920],height=[1,1080]", {"YUY2 1920x1080", "NV12 1920x1080"}},
        {"video/x-h264,width=640,height=480; video/x-raw,format=I420,width=160,height=120,framerate=0/1",
         {"I420 160x120"}},
    };
    for (const auto& c : cases) {
        GstCaps* caps = gst_caps_from_string(c.caps);
        ASSERT_NE(caps, nullptr) << c.caps;
        QStringList got;
        for (const LVCamFormat& f : LVCamFormatsFromCaps(caps)) got << f.description();
        gst_caps_unref(caps);
        EXPECT_EQ(got, c.expected) << c.caps;
    }
    // A range's ends become the durations the choice rules pick from.
    GstCaps* caps = gst_caps_from_string("video/x-raw,format=YUY2,width=8,height=8,framerate=[5/1,30/1]");
    const auto formats = LVCamFormatsFromCaps(caps);
    gst_caps_unref(caps);
    ASSERT_EQ(formats.size(), 1u);
    ASSERT_EQ(formats[0].rates.size(), 1u);
    EXPECT_EQ(formats[0].rates[0].minFrameDuration, LVCamTimeMake(1, 30));
    EXPECT_EQ(formats[0].rates[0].maxFrameDuration, LVCamTimeMake(1, 5));
}

TEST(LVCamRules, ChosenFormatBecomesCapsThatSelectIt)
{
    ASSERT_TRUE(LVCamInitGStreamer());
    LVCamFormat raw = fmt(1280, 720);
    LVCamFormat jpeg = fmt(640, 480);
    jpeg.mediaType = QStringLiteral("image/jpeg");
    jpeg.pixelFormat = QStringLiteral("MJPG");
    const struct {
        const LVCamFormat& format;
        LVCamTime duration;
        const char* expected;
    } cases[] = {
        {raw, LVCamTimeMake(1, 30), "video/x-raw, width=(int)1280, height=(int)720, format=(string)YUY2, framerate=(fraction)30/1"},
        {raw, LVCamTimeMake(1001, 30000), "video/x-raw, width=(int)1280, height=(int)720, format=(string)YUY2, framerate=(fraction)30000/1001"},
        {jpeg, LVCamTime{}, "image/jpeg, width=(int)640, height=(int)480"},
    };
    for (const auto& c : cases) {
        GstCaps* caps = c.format.caps(c.duration);
        gchar* text = gst_caps_to_string(caps);
        EXPECT_STREQ(text, c.expected);
        g_free(text);
        gst_caps_unref(caps);
    }
}

} // namespace
