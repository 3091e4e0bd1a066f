#include "effects/song/iTunesSong.h"

#include "core/util/KDCoreImageText.h"
#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"
#include "effects/song/LVMprisWatcher.h"

#include <QPainter>
#include <QUrl>

#include <algorithm>

namespace {

const QString kPlayer = QStringLiteral("player");
const QString kPosition = QStringLiteral("position");
const QString kFontName = QStringLiteral("fontName");
const QString kFontSize = QStringLiteral("fontSize");
const QString kColor = QStringLiteral("color");
const QString kShadowColor = QStringLiteral("shadowColor");
const QString kShowTitle = QStringLiteral("showTitle");
const QString kShowArtist = QStringLiteral("showArtist");
const QString kShowAlbum = QStringLiteral("showAlbum");
const QString kShowCover = QStringLiteral("showCover");

// The artist and album lines are this much smaller than the title.
constexpr double kSecondaryScale = 0.8;

// A cover is drawn no wider than this many times the text's height.
constexpr int kCoverAspectLimit = 2;

QImage readCover(const QString& artUrl)
{
    const QUrl url(artUrl);
    if (artUrl.isEmpty() || !url.isLocalFile()) return {};
    QString error;
    QImage cover = LVReadImageFile(url.toLocalFile(), &error);
    if (cover.isNull()) LVLog("iTunesSong: cover %s: %s", qPrintable(url.toLocalFile()), qPrintable(error));
    return cover;
}

} // namespace

const LVEffectDescriptor& iTunesSong::classDescriptor()
{
    static const LVEffectDescriptor descriptor{
        QStringLiteral("iTunesSong"),
        QStringLiteral("Song Text"),
        LVEffectRole::Effect,
        [] { return std::make_unique<iTunesSong>(); },
        {
            LVTextParameter(kPlayer, QStringLiteral("Player"), QString()),
            LVChoiceParameter(kPosition, QStringLiteral("Position"), 0,
                              {QStringLiteral("Bottom Left"), QStringLiteral("Bottom Right"), QStringLiteral("Top Left"),
                               QStringLiteral("Top Right")},
                              {0, 1, 2, 3}),
            [] {
                LVParameter font = LVTextParameter(kFontName, QStringLiteral("Font"), QStringLiteral("DejaVu Sans"));
                font.editor = LVParameterEditor::Font;
                return font;
            }(),
            LVIntegerParameter(kFontSize, QStringLiteral("Font Size"), 24, 6, 256),
            LVColorParameter(kColor, QStringLiteral("Color"), QVariant::fromValue(QColor(Qt::white))),
            LVColorParameter(kShadowColor, QStringLiteral("Shadow"), QVariant::fromValue(QColor(0, 0, 0, 200))),
            LVBoolParameter(kShowTitle, QStringLiteral("Title"), true),
            LVBoolParameter(kShowArtist, QStringLiteral("Artist"), true),
            LVBoolParameter(kShowAlbum, QStringLiteral("Album"), true),
            LVBoolParameter(kShowCover, QStringLiteral("Cover Art"), true),
        },
    };
    return descriptor;
}

void LVRegisterSongKinds()
{
    LVEffectClasses::registerClass(&iTunesSong::classDescriptor());
}

iTunesSong::iTunesSong() = default;

iTunesSong::~iTunesSong()
{
    destruct();
}

void iTunesSong::initEffectCommon(LVContext* context)
{
    LVEffect::initEffectCommon(context);
    watcher_ = std::make_unique<LVMprisWatcher>(QDBusConnection::sessionBus());
    QObject::connect(watcher_.get(), &LVMprisWatcher::changed, watcher_.get(), [this] { playersChanged(); });
    if (!watcher_->isConnected())
        LVLog("iTunesSong: session bus: %s", qPrintable(watcher_->connectionError()));
}

void iTunesSong::destruct()
{
    watcher_.reset();
    overlay_.release(context());
}

LVSongStyle iTunesSong::style() const
{
    LVSongStyle style;
    style.fontName = parameterValue(kFontName).toString();
    style.fontSize = parameterValue(kFontSize).toInt();
    style.color = parameterValue(kColor).value<QColor>();
    style.shadowColor = parameterValue(kShadowColor).value<QColor>();
    style.showTitle = parameterValue(kShowTitle).toBool();
    style.showArtist = parameterValue(kShowArtist).toBool();
    style.showAlbum = parameterValue(kShowAlbum).toBool();
    style.showCover = parameterValue(kShowCover).toBool();
    return style;
}

void iTunesSong::parameterChanged(const QString& key)
{
    if (key == kPlayer) {
        playersChanged();
    } else if (key != kPosition && shown_) {
        startOverlay();
    }
}

void iTunesSong::playersChanged()
{
    if (!watcher_) return;
    std::optional<LVSongTrack> track = LVChooseSong(watcher_->players(), parameterValue(kPlayer).toString());
    if (track == shown_) return;
    shown_ = std::move(track);
    if (shown_) startOverlay();
}

void iTunesSong::startOverlay()
{
    overlay_.render([track = *shown_, style = style()] {
        const QImage cover = style.showCover ? readCover(track.artUrl) : QImage();
        return std::vector<QImage>{composeOverlay(track, cover, style)};
    });
}

QImage iTunesSong::composeOverlay(const LVSongTrack& track, const QImage& cover, const LVSongStyle& style)
{
    struct Line {
        bool shown;
        const QString& text;
        double scale;
    };
    std::vector<QImage> lines;
    for (const Line& line : {Line{style.showTitle, track.title, 1.0}, Line{style.showArtist, track.artist, kSecondaryScale},
                             Line{style.showAlbum, track.album, kSecondaryScale}}) {
        if (!line.shown || line.text.isEmpty()) continue;
        KDCoreImageText text(line.text);
        text.setFontName(style.fontName);
        text.setColor(style.color);
        text.setShadowColor(style.shadowColor);
        text.setSize(std::max(1, int(style.fontSize * line.scale + 0.5)));
        lines.push_back(text.image());
    }
    if (lines.empty()) return {};

    int textWidth = 0, textHeight = 0;
    for (const QImage& line : lines) {
        textWidth = std::max(textWidth, line.width());
        textHeight += line.height();
    }
    QImage scaledCover;
    if (style.showCover && !cover.isNull())
        scaledCover = cover.scaled(QSize(textHeight * kCoverAspectLimit, textHeight), Qt::KeepAspectRatio,
                                   Qt::SmoothTransformation);
    const int gap = scaledCover.isNull() ? 0 : std::max(2, style.fontSize / 3);
    const int coverWidth = scaledCover.isNull() ? 0 : scaledCover.width();

    QImage overlay(coverWidth + gap + textWidth, textHeight, QImage::Format_ARGB32_Premultiplied);
    overlay.fill(Qt::transparent);
    {
        QPainter painter(&overlay);
        if (!scaledCover.isNull()) painter.drawImage(0, (textHeight - scaledCover.height()) / 2, scaledCover);
        int y = 0;
        for (const QImage& line : lines) {
            painter.drawImage(coverWidth + gap, y, line);
            y += line.height();
        }
    }
    return overlay.convertToFormat(QImage::Format_ARGB32);
}

QRect iTunesSong::placement(int position, QSize overlay, QSize frame)
{
    const int margin = std::max(2, frame.height() / 30);
    const bool right = position == 1 || position == 3;
    const bool top = position == 2 || position == 3;
    const int x = right ? frame.width() - margin - overlay.width() : margin;
    const int y = top ? frame.height() - margin - overlay.height() : margin;
    return QRect(QPoint(x, y), overlay);
}

void iTunesSong::doit()
{
    LVContext* ctx = context();
    if (!ctx) return;
    overlay_.upload(*ctx);
    if (!shown_ || overlay_.textures().empty()) return;
    const LVTexture& texture = overlay_.textures().front();
    if (!texture.name) return;
    ctx->framebuffer();
    const QRect where = placement(parameterValue(kPosition).toInt(), QSize(texture.width, texture.height),
                                  QSize(ctx->width(), ctx->height()));
    LVContext::drawTexture(texture, QRectF(0, 0, texture.width, texture.height), QRectF(where), false, false);
}

QString iTunesSong::statusNote() const
{
    if (!watcher_) return {};
    if (!watcher_->isConnected()) return QStringLiteral("No session bus: %1").arg(watcher_->connectionError());
    if (shown_) return {};
    const QString chosen = parameterValue(kPlayer).toString().trimmed();
    const bool found = std::any_of(watcher_->players().begin(), watcher_->players().end(),
                                   [&](const auto& entry) { return LVMprisPlayerMatches(entry.first, chosen); });
    if (!found) return chosen.isEmpty() ? QStringLiteral("No media player found") : QStringLiteral("No player named %1").arg(chosen);
    return QStringLiteral("Nothing is playing");
}

QStringList iTunesSong::inspectorNotes() const
{
    QStringList names;
    if (watcher_) {
        for (const auto& entry : watcher_->players()) names.append(LVMprisShortName(entry.first));
    }
    if (names.isEmpty()) return {QStringLiteral("Shows what a media player on the session bus plays.")};
    return {QStringLiteral("Players: %1. Leave Player empty for the first one playing.").arg(names.join(QStringLiteral(", ")))};
}
