#include "effects/song/LVMprisPlayers.h"

LVSongTrack LVSongTrackFromMetadata(const QVariantMap& metadata)
{
    LVSongTrack track;
    const auto text = [&](const char* key) {
        const QVariant value = metadata.value(QLatin1String(key));
        return value.typeId() == QMetaType::QString ? value.toString().trimmed() : QString();
    };
    track.title = text("xesam:title");
    track.album = text("xesam:album");
    track.artUrl = text("mpris:artUrl");
    // MPRIS sends artists as a list; some players send one string.
    const QVariant artists = metadata.value(QStringLiteral("xesam:artist"));
    if (artists.typeId() == QMetaType::QStringList) {
        QStringList names;
        for (const QString& name : artists.toStringList()) {
            if (!name.trimmed().isEmpty()) names.append(name.trimmed());
        }
        track.artist = names.join(QStringLiteral(", "));
    } else if (artists.typeId() == QMetaType::QString) {
        track.artist = artists.toString().trimmed();
    }
    return track;
}

QString LVMprisShortName(const QString& busName)
{
    const QLatin1String prefix(kLVMprisPrefix);
    return busName.startsWith(prefix) ? busName.mid(prefix.size()) : QString();
}

bool LVMprisPlayerMatches(const QString& busName, const QString& chosen)
{
    const QString shortName = LVMprisShortName(busName);
    if (shortName.isEmpty()) return false;
    const QString wanted = chosen.trimmed();
    if (wanted.isEmpty()) return true;
    return shortName.compare(wanted, Qt::CaseInsensitive) == 0 ||
           shortName.startsWith(wanted + QLatin1Char('.'), Qt::CaseInsensitive);
}

std::optional<LVSongTrack> LVChooseSong(const std::map<QString, LVMprisPlayer>& playersByBusName, const QString& chosen)
{
    for (const auto& [busName, player] : playersByBusName) {
        if (!player.isPlaying() || !LVMprisPlayerMatches(busName, chosen)) continue;
        if (player.track.isEmpty()) continue;
        return player.track;
    }
    return std::nullopt;
}
