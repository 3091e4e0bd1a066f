#pragma once
// "News Ticker": the headlines of an RSS or Atom feed scrolling along a band at the bottom
// or top of the picture. The feed is fetched again at its refresh interval; a fetch that
// fails keeps the headlines already shown and says so once, until a fetch succeeds again.
#include "core/LVEffect.h"
#include "effects/overlay/LVOverlayImages.h"
#include "effects/ticker/LVFeedParser.h"

#include <QColor>
#include <QRect>
#include <QStringList>

#include <memory>
#include <optional>

class LVFeedReader;
class QTimer;

struct LVTickerStyle {
    QString fontName;
    int fontSize = 24;
    QColor color;
    QColor background;
};

class NewsTicker : public LVEffect {
public:
    NewsTicker();
    ~NewsTicker() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    void initEffectCommon(LVContext* context) override;
    bool initWithCoder(LVKeyedUnarchiver& coder) override;
    void destruct() override;
    void doit() override;
    QString statusNote() const override;

    // Fetches the feed now (also what the refresh timer does).
    void refresh();
    // The headlines shown, at most the chosen count.
    const QStringList& items() const { return items_; }
    // Why the last fetch failed; empty after a good one.
    const QString& lastError() const { return lastError_; }
    LVFeedReader* reader() const { return reader_.get(); }
    LVTickerStyle style() const;
    // Tests: blocks until the band's pictures are laid out.
    void waitForOverlay() const { overlay_.waitUntilIdle(); }
    // How far the text has scrolled, in pixels.
    double scrolled() const { return scrolled_; }

    // The pictures of the band: first its background (one pixel), then one per headline with
    // the separator after it.
    static std::vector<QImage> composeBand(const QStringList& items, const LVTickerStyle& style);
    // The band's rectangle in GL coordinates (origin bottom-left): position 0 bottom, 1 top.
    static QRect bandRect(int position, int textHeight, int fontSize, QSize frame);
    // Where the first copy of the headlines starts after scrolling by scrolled pixels, for a
    // frame width and headlines totalLength pixels long; further copies follow every
    // totalLength pixels, so the loop has no seam.
    static double firstCopyX(double scrolled, double totalLength, int frameWidth);

protected:
    void parameterChanged(const QString& key) override;

private:
    void startFeed();
    void startRefreshTimer();
    void fetched(const LVFeed& feed);
    void failed(const QString& error);
    void startOverlay();

    std::unique_ptr<LVFeedReader> reader_;
    std::unique_ptr<QTimer> refreshTimer_;
    QStringList allItems_;
    QStringList items_;
    QString lastError_;
    LVOverlayImages overlay_;
    double scrolled_ = 0;
    std::optional<double> lastFrameTime_;
};

void LVRegisterTickerKinds();
