#include "sources/webcam/LVCamDevice.h"

#include "core/util/LVLog.h"

#include <gst/gst.h>

#include <cstdlib>

namespace {

__int128 distanceNumerator(LVCamTime x, LVCamTime t)
{
    const __int128 d = __int128(x.value) * t.timescale - __int128(t.value) * x.timescale;
    return d < 0 ? -d : d;
}

// A width or height field: a fixed integer, or the top of a range.
int32_t sizeField(const GstStructure* s, const char* field)
{
    const GValue* v = gst_structure_get_value(s, field);
    if (!v) return 0;
    if (G_VALUE_HOLDS_INT(v)) return g_value_get_int(v);
    if (GST_VALUE_HOLDS_INT_RANGE(v)) return gst_value_get_int_range_max(v);
    if (GST_VALUE_HOLDS_LIST(v) && gst_value_list_get_size(v) > 0) {
        const GValue* first = gst_value_list_get_value(v, 0);
        if (G_VALUE_HOLDS_INT(first)) return g_value_get_int(first);
    }
    return 0;
}

void addRate(std::vector<LVCamRateRange>& rates, int n, int d)
{
    if (n <= 0 || d <= 0) return; // 0/1 means a variable rate: nothing to choose from
    const double rate = double(n) / d;
    const LVCamTime duration = LVCamTimeMake(d, n);
    rates.push_back({rate, rate, duration, duration});
}

void addRateValue(std::vector<LVCamRateRange>& rates, const GValue* v)
{
    if (GST_VALUE_HOLDS_FRACTION(v)) {
        addRate(rates, gst_value_get_fraction_numerator(v), gst_value_get_fraction_denominator(v));
    } else if (GST_VALUE_HOLDS_FRACTION_RANGE(v)) {
        const GValue* lo = gst_value_get_fraction_range_min(v);
        const GValue* hi = gst_value_get_fraction_range_max(v);
        const int ln = gst_value_get_fraction_numerator(lo), ld = gst_value_get_fraction_denominator(lo);
        const int hn = gst_value_get_fraction_numerator(hi), hd = gst_value_get_fraction_denominator(hi);
        if (hn <= 0 || hd <= 0) return;
        LVCamRateRange r;
        r.minFrameRate = double(ln) / ld;
        r.maxFrameRate = double(hn) / hd;
        r.minFrameDuration = LVCamTimeMake(hd, hn);
        r.maxFrameDuration = ln > 0 ? LVCamTimeMake(ld, ln) : LVCamTime{};
        rates.push_back(r);
    } else if (GST_VALUE_HOLDS_LIST(v)) {
        for (guint i = 0; i < gst_value_list_get_size(v); ++i) addRateValue(rates, gst_value_list_get_value(v, i));
    }
}

QStringList pixelFormats(const GstStructure* s)
{
    const GValue* v = gst_structure_get_value(s, "format");
    if (!v) return {};
    if (G_VALUE_HOLDS_STRING(v)) return {QString::fromUtf8(g_value_get_string(v))};
    QStringList list;
    if (GST_VALUE_HOLDS_LIST(v)) {
        for (guint i = 0; i < gst_value_list_get_size(v); ++i) {
            const GValue* item = gst_value_list_get_value(v, i);
            if (G_VALUE_HOLDS_STRING(item)) list << QString::fromUtf8(g_value_get_string(item));
        }
    }
    return list;
}

} // namespace

int LVCamCompareDistances(LVCamTime a, LVCamTime b, LVCamTime t)
{
    // |a-t| = na / (a.ts * t.ts) and |b-t| = nb / (b.ts * t.ts); t.ts cancels out.
    const __int128 lhs = distanceNumerator(a, t) * (b.timescale < 0 ? -b.timescale : b.timescale);
    const __int128 rhs = distanceNumerator(b, t) * (a.timescale < 0 ? -a.timescale : a.timescale);
    return lhs < rhs ? -1 : lhs > rhs ? 1 : 0;
}

QString LVCamFormat::description() const
{
    QString text = QStringLiteral("%1 %2x%3").arg(pixelFormat).arg(width).arg(height);
    for (const LVCamRateRange& r : rates) {
        if (r.minFrameRate == r.maxFrameRate) text += QStringLiteral(" %1").arg(r.maxFrameRate);
        else text += QStringLiteral(" %1-%2").arg(r.minFrameRate).arg(r.maxFrameRate);
    }
    return rates.empty() ? text : text + QStringLiteral(" fps");
}

GstCaps* LVCamFormat::caps(LVCamTime frameDuration) const
{
    GstStructure* s = gst_structure_new(mediaType.toUtf8().constData(), "width", G_TYPE_INT, width, "height",
                                        G_TYPE_INT, height, nullptr);
    if (mediaType == QLatin1String("video/x-raw"))
        gst_structure_set(s, "format", G_TYPE_STRING, pixelFormat.toUtf8().constData(), nullptr);
    if (frameDuration.isValid() && frameDuration.value > 0 && frameDuration.value <= G_MAXINT)
        gst_structure_set(s, "framerate", GST_TYPE_FRACTION, int(frameDuration.timescale), int(frameDuration.value),
                          nullptr);
    GstCaps* caps = gst_caps_new_empty();
    gst_caps_append_structure(caps, s);
    return caps;
}

std::vector<LVCamFormat> LVCamFormatsFromCaps(const GstCaps* caps)
{
    std::vector<LVCamFormat> formats;
    if (!caps || gst_caps_is_any(caps)) return formats;
    for (guint i = 0; i < gst_caps_get_size(caps); ++i) {
        const GstStructure* s = gst_caps_get_structure(caps, i);
        const QString media = QString::fromUtf8(gst_structure_get_name(s));
        QStringList kinds;
        if (media == QLatin1String("video/x-raw")) kinds = pixelFormats(s);
        else if (media == QLatin1String("image/jpeg")) kinds = {QStringLiteral("MJPG")};
        LVCamFormat f;
        f.mediaType = media;
        f.width = sizeField(s, "width");
        f.height = sizeField(s, "height");
        if (f.width <= 0 || f.height <= 0) continue;
        if (const GValue* rate = gst_structure_get_value(s, "framerate")) addRateValue(f.rates, rate);
        for (const QString& kind : kinds) {
            f.pixelFormat = kind;
            formats.push_back(f);
        }
    }
    return formats;
}

int LVCamChooseFormat(const std::vector<LVCamFormat>& formats, int32_t targetWidth, int32_t targetHeight)
{
    int best = -1;
    for (int i = 0; i < int(formats.size()); ++i) {
        if (best < 0) {
            best = i;
            continue;
        }
        const int32_t dw = formats[i].width - targetWidth, dh = formats[i].height - targetHeight;
        const int32_t dwb = formats[best].width - targetWidth, dhb = formats[best].height - targetHeight;
        if (dwb < 0 || dhb < 0) {
            if (dw > dwb || dh > dhb) best = i;
        } else if (dw >= 1 && dh >= 1 && dw < dwb && dh < dhb) {
            best = i;
        }
    }
    return best;
}

LVCamTime LVCamChooseFrameDuration(const std::vector<LVCamRateRange>& ranges, int32_t frameRate)
{
    const LVCamTime wanted = LVCamTimeMake(1, frameRate);
    LVCamTime chosen;
    for (const LVCamRateRange& r : ranges) {
        const double f = frameRate;
        if (r.minFrameRate <= f && f <= r.maxFrameRate) return wanted;
        // The far end of a range that misses the wanted rate.
        const LVCamTime candidate = f > r.maxFrameRate ? r.maxFrameDuration : r.minFrameDuration;
        if (!candidate.isValid()) continue;
        if (!chosen.isValid() || LVCamCompareDistances(candidate, chosen, wanted) < 0) chosen = candidate;
    }
    return chosen;
}

QString LVCamDisplayName(const QString& deviceName, const QStringList& namesInList)
{
    const qsizetype n = namesInList.count(deviceName);
    return n > 0 ? QStringLiteral("%1 %2").arg(deviceName).arg(n + 1) : deviceName;
}

bool LVCamInitGStreamer()
{
    static const bool ok = [] {
        GError* error = nullptr;
        if (gst_init_check(nullptr, nullptr, &error)) return true;
        LVLog("gst_init_check: %s", error ? error->message : "unknown error");
        if (error) g_error_free(error);
        return false;
    }();
    return ok;
}

void LVCamShutdownGStreamer()
{
    if (gst_is_initialized()) gst_deinit();
}
