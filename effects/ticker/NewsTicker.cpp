#include "effects/ticker/NewsTicker.h"

#include "core/util/KDCoreImageText.h"
#include "core/util/LVLog.h"
#include "effects/ticker/LVFeedReader.h"

#include <QFontMetrics>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace {

const QString kFeedAddress = QStringLiteral("feedAddress");
const QString kRefreshMinutes = QStringLiteral("refreshMinutes");
const QString kItemCount = QStringLiteral("itemCount");
const QString kScrollSpeed = QStringLiteral("scrollSpeed");
const QString kPosition = QStringLiteral("position");
const QString kFontName = QStringLiteral("fontName");
const QString kFontSize = QStringLiteral("fontSize");
const QString kColor = QStringLiteral("color");
const QString kBackground = QStringLiteral("backgroundColor");

const QString kSeparator = QStringLiteral("   \u2022   ");

// A headline picture wider than this would not fit a texture on every GL; it is cut short.
constexpr int kMaxHeadlineWidth = 8192;
// A frame that comes this much later than the last one (a pause, a stall) scrolls no further.
constexpr double kMaxFrameStep = 0.5;

} // namespace

const LVEffectDescriptor& NewsTicker::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("NewsTicker"),
        QStringLiteral("News Ticker"),
        LVEffectRole::Effect,
        [] { return std::make_unique<NewsTicker>(); },
        {
            LVTextParameter(kFeedAddress, QStringLiteral("Feed Address"), QString()),
            LVIntegerParameter(kRefreshMinutes, QStringLiteral("Refresh Minutes"), 15, 1, 1440),
            LVIntegerParameter(kItemCount, QStringLiteral("Items"), 10, 1, 50),
            LVIntegerParameter(kScrollSpeed, QStringLiteral("Scroll Speed"), 60, 0, 1000),
            LVChoiceParameter(kPosition, QStringLiteral("Position"), 0, {QStringLiteral("Bottom"), QStringLiteral("Top")},
                              {0, 1}),
            [] {
                LVParameter font = LVTextParameter(kFontName, QStringLiteral("Font"), QStringLiteral("DejaVu Sans"));
                font.editor = LVParameterEditor::Font;
                return font;
            }(),
            LVIntegerParameter(kFontSize, QStringLiteral("Font Size"), 24, 6, 256),
            LVColorParameter(kColor, QStringLiteral("Color"), QVariant::fromValue(QColor(Qt::white))),
            LVColorParameter(kBackground, QStringLiteral("Background"), QVariant::fromValue(QColor(0, 0, 0, 160))),
        },
    };
    return descriptor;
}

void LVRegisterTickerKinds()
{
    LVEffectClasses::registerClass(&NewsTicker::classDescriptor());
}

NewsTicker::NewsTicker() = default;

NewsTicker::~NewsTicker()
{
    destruct();
}

void NewsTicker::initEffectCommon(LVContext* context)
{
    LVEffect::initEffectCommon(context);
    reader_ = std::make_unique<LVFeedReader>();
    QObject::connect(reader_.get(), &LVFeedReader::fetched, reader_.get(), [this](const LVFeed& feed) { fetched(feed); });
    QObject::connect(reader_.get(), &LVFeedReader::failed, reader_.get(), [this](const QString& error) { failed(error); });
    refreshTimer_ = std::make_unique<QTimer>();
    QObject::connect(refreshTimer_.get(), &QTimer::timeout, refreshTimer_.get(), [this] { refresh(); });
}

bool NewsTicker::initWithCoder(LVKeyedUnarchiver& coder)
{
    if (!LVEffect::initWithCoder(coder)) return false;
    startFeed();
    return true;
}

void NewsTicker::destruct()
{
    refreshTimer_.reset();
    reader_.reset();
    overlay_.release(context());
}

LVTickerStyle NewsTicker::style() const
{
    return {parameterValue(kFontName).toString(), parameterValue(kFontSize).toInt(),
            parameterValue(kColor).value<QColor>(), parameterValue(kBackground).value<QColor>()};
}

void NewsTicker::parameterChanged(const QString& key)
{
    if (key == kFeedAddress) {
        // Another feed: nothing of the old one stays.
        allItems_.clear();
        items_.clear();
        lastError_.clear();
        startOverlay();
        startFeed();
    } else if (key == kRefreshMinutes) {
        startRefreshTimer();
    } else if (key == kItemCount) {
        items_ = allItems_.mid(0, parameterValue(kItemCount).toInt());
        startOverlay();
    } else if (key == kFontName || key == kFontSize || key == kColor || key == kBackground) {
        startOverlay();
    }
}

void NewsTicker::startFeed()
{
    startRefreshTimer();
    refresh();
}

void NewsTicker::startRefreshTimer()
{
    if (!refreshTimer_) return;
    refreshTimer_->stop();
    if (parameterValue(kFeedAddress).toString().trimmed().isEmpty()) return;
    refreshTimer_->start(parameterValue(kRefreshMinutes).toInt() * 60 * 1000);
}

void NewsTicker::refresh()
{
    const QString address = parameterValue(kFeedAddress).toString().trimmed();
    if (!reader_ || address.isEmpty()) return;
    reader_->fetch(QUrl::fromUserInput(address));
}

void NewsTicker::fetched(const LVFeed& feed)
{
    if (!lastError_.isEmpty()) LVLog("NewsTicker: %s: read again", qPrintable(parameterValue(kFeedAddress).toString()));
    lastError_.clear();
    allItems_ = feed.items;
    const QStringList items = allItems_.mid(0, parameterValue(kItemCount).toInt());
    if (items == items_) return;
    items_ = items;
    startOverlay();
}

void NewsTicker::failed(const QString& error)
{
    // Said once per run of failures: a feed that is down for a day gives one line, not 96.
    if (lastError_.isEmpty())
        LVLog("NewsTicker: %s%s", qPrintable(error), items_.isEmpty() ? "" : "; the last headlines stay");
    lastError_ = error;
}

void NewsTicker::startOverlay()
{
    if (items_.isEmpty()) {
        overlay_.render([] { return std::vector<QImage>(); });
        return;
    }
    overlay_.render([items = items_, style = style()] { return composeBand(items, style); });
}

std::vector<QImage> NewsTicker::composeBand(const QStringList& items, const LVTickerStyle& style)
{
    std::vector<QImage> images;
    QImage background(1, 1, QImage::Format_ARGB32);
    background.fill(style.background);
    images.push_back(background);
    QFont font(style.fontName);
    font.setPixelSize(style.fontSize);
    const QFontMetrics metrics(font);
    for (const QString& item : items) {
        KDCoreImageText text(metrics.elidedText(item, Qt::ElideRight, kMaxHeadlineWidth / 2) + kSeparator);
        text.setFontName(style.fontName);
        text.setSize(style.fontSize);
        text.setColor(style.color);
        // The band is the text's background; a shadow would only blur it.
        text.setShadowColor(Qt::transparent);
        images.push_back(text.image());
    }
    return images;
}

QRect NewsTicker::bandRect(int position, int textHeight, int fontSize, QSize frame)
{
    const int height = std::min(frame.height(), textHeight + std::max(2, fontSize / 2));
    return QRect(0, position == 1 ? frame.height() - height : 0, frame.width(), height);
}

double NewsTicker::firstCopyX(double scrolled, double totalLength, int frameWidth)
{
    if (totalLength <= 0) return 0;
    double x = std::fmod(frameWidth - scrolled, totalLength);
    if (x > 0) x -= totalLength;
    return x;
}

void NewsTicker::doit()
{
    LVContext* ctx = context();
    if (!ctx) return;
    overlay_.upload(*ctx);
    const double now = ctx->frameTime();
    if (lastFrameTime_) scrolled_ += std::clamp(now - *lastFrameTime_, 0.0, kMaxFrameStep) * parameterValue(kScrollSpeed).toInt();
    lastFrameTime_ = now;

    const std::vector<LVTexture>& textures = overlay_.textures();
    if (textures.size() < 2) return;
    int textHeight = 0;
    double total = 0;
    for (size_t i = 1; i < textures.size(); ++i) {
        textHeight = std::max(textHeight, textures[i].height);
        total += textures[i].width;
    }
    const QRect band = bandRect(parameterValue(kPosition).toInt(), textHeight, parameterValue(kFontSize).toInt(),
                                QSize(ctx->width(), ctx->height()));
    ctx->framebuffer();
    LVContext::drawTexture(textures.front(), QRectF(0, 0, 1, 1), QRectF(band), false, false);
    if (total <= 0) return;
    scrolled_ = std::fmod(scrolled_, total);
    double x = firstCopyX(scrolled_, total, band.width());
    while (x < band.width()) {
        for (size_t i = 1; i < textures.size() && x < band.width(); ++i) {
            const LVTexture& t = textures[i];
            if (x + t.width > 0) {
                const double y = band.y() + (band.height() - t.height) / 2;
                LVContext::drawTexture(t, QRectF(0, 0, t.width, t.height), QRectF(x, y, t.width, t.height), false, false);
            }
            x += t.width;
        }
    }
}

QString NewsTicker::statusNote() const
{
    if (parameterValue(kFeedAddress).toString().trimmed().isEmpty()) return QStringLiteral("No feed address");
    if (!lastError_.isEmpty())
        return items_.isEmpty() ? QStringLiteral("The feed cannot be read: %1").arg(lastError_)
                                : QStringLiteral("The feed cannot be read, the last headlines stay: %1").arg(lastError_);
    if (items_.isEmpty()) return reader_ && reader_->isBusy() ? QStringLiteral("Reading the feed") : QStringLiteral("The feed has no headlines");
    return {};
}
