#pragma once
// "Song Text": the track a media player on the session bus is playing (title, artist, album
// and cover art) drawn over the picture. Players are followed through D-Bus signals, never
// asked from the render loop; the text and cover are laid out on a worker thread. With no
// player, or nothing playing, it draws nothing.
#include "core/LVEffect.h"
#include "effects/overlay/LVOverlayImages.h"
#include "effects/song/LVMprisPlayers.h"

#include <QColor>
#include <QImage>
#include <QRect>

#include <memory>
#include <optional>

class LVMprisWatcher;

// How the song text looks.
struct LVSongStyle {
    QString fontName;
    int fontSize = 24;  // pixels, of the title; the other lines are smaller
    QColor color;
    QColor shadowColor;
    bool showTitle = true;
    bool showArtist = true;
    bool showAlbum = true;
    bool showCover = true;
};

class iTunesSong : public LVEffect {
public:
    iTunesSong();
    ~iTunesSong() override;

    static const LVEffectDescriptor& classDescriptor();
    const LVEffectDescriptor& descriptor() const override { return classDescriptor(); }

    void initEffectCommon(LVContext* context) override;
    void destruct() override;
    void doit() override;
    QString statusNote() const override;
    // The players found, so a user knows what to type as the player.
    QStringList inspectorNotes() const override;

    // The track drawn now; none when nothing plays.
    const std::optional<LVSongTrack>& shownTrack() const { return shown_; }
    LVSongStyle style() const;
    // Tests: blocks until the overlay for the shown track is laid out.
    void waitForOverlay() const { overlay_.waitUntilIdle(); }

    // The overlay picture: the cover (when shown and readable) beside the chosen lines, as
    // straight-alpha ARGB; a null image when no line has text.
    static QImage composeOverlay(const LVSongTrack& track, const QImage& cover, const LVSongStyle& style);
    // Where an overlay of that size sits in a frame, in GL coordinates (origin bottom-left).
    // position: 0 bottom left, 1 bottom right, 2 top left, 3 top right.
    static QRect placement(int position, QSize overlay, QSize frame);

protected:
    void parameterChanged(const QString& key) override;

private:
    void playersChanged();
    void startOverlay();

    std::unique_ptr<LVMprisWatcher> watcher_;
    std::optional<LVSongTrack> shown_;
    LVOverlayImages overlay_;
};

void LVRegisterSongKinds();
