#pragma once
// What the media players on the session bus are playing, as MPRIS describes it, and which of
// them the song text shows. Plain data: the D-Bus side (LVMprisWatcher) fills it.
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <map>
#include <optional>

inline constexpr const char* kLVMprisPrefix = "org.mpris.MediaPlayer2.";

struct LVSongTrack {
    QString title;
    QString artist;  // several artists joined with ", "
    QString album;
    QString artUrl;  // mpris:artUrl as sent; only file:// covers are drawn

    bool isEmpty() const { return title.isEmpty() && artist.isEmpty() && album.isEmpty(); }
    bool operator==(const LVSongTrack&) const = default;
};

struct LVMprisPlayer {
    QString playbackStatus;  // "Playing", "Paused", "Stopped"
    LVSongTrack track;

    bool isPlaying() const { return playbackStatus == QLatin1String("Playing"); }
};

// The track of an MPRIS Metadata map (xesam:title, xesam:artist, xesam:album, mpris:artUrl).
// Values that arrive with the wrong type are left empty.
LVSongTrack LVSongTrackFromMetadata(const QVariantMap& metadata);

// The player's short name: the bus name after "org.mpris.MediaPlayer2."; empty for other names.
QString LVMprisShortName(const QString& busName);

// Whether the player at busName is the one a user chose by short name ("vlc" also chooses
// "vlc.instance42"); an empty choice matches every player. Case does not matter.
bool LVMprisPlayerMatches(const QString& busName, const QString& chosen);

// The track to show: the first playing player (by bus name) that matches the choice, none
// when no such player plays or its track has no text.
std::optional<LVSongTrack> LVChooseSong(const std::map<QString, LVMprisPlayer>& playersByBusName,
                                        const QString& chosen);
