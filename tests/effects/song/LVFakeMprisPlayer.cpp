#include "LVFakeMprisPlayer.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QThread>

namespace {

const QString kPath = QStringLiteral("/org/mpris/MediaPlayer2");

} // namespace

LVFakeMprisPlayer::LVFakeMprisPlayer(const QString& shortName)
    : connectionName_(QStringLiteral("lvtest-player-") + shortName),
      busName_(QStringLiteral("org.mpris.MediaPlayer2.") + shortName),
      thread_(std::make_unique<QThread>()),
      object_(std::make_unique<LVFakeMprisPlayerObject>())
{
    thread_->start();
    object_->moveToThread(thread_.get());
    QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName_);
    registered_ = bus.registerObject(kPath, object_.get(), QDBusConnection::ExportAllProperties) &&
                  bus.registerService(busName_);
}

LVFakeMprisPlayer::~LVFakeMprisPlayer()
{
    {
        QDBusConnection bus(connectionName_);
        bus.unregisterService(busName_);
        bus.unregisterObject(kPath);
    }
    QDBusConnection::disconnectFromBus(connectionName_);
    thread_->quit();
    thread_->wait();
}

QVariantMap LVFakeMprisPlayer::metadata(const QString& title, const QStringList& artists, const QString& album,
                                        const QString& artUrl)
{
    QVariantMap metadata{{QStringLiteral("xesam:title"), title},
                         {QStringLiteral("xesam:artist"), artists},
                         {QStringLiteral("xesam:album"), album}};
    if (!artUrl.isEmpty()) metadata.insert(QStringLiteral("mpris:artUrl"), artUrl);
    return metadata;
}

void LVFakeMprisPlayer::play(const QString& title, const QStringList& artists, const QString& album, const QString& artUrl)
{
    const QVariantMap track = metadata(title, artists, album, artUrl);
    QMetaObject::invokeMethod(object_.get(), [this, track] {
        object_->metadata_ = track;
        object_->status_ = QStringLiteral("Playing");
    }, Qt::BlockingQueuedConnection);
    announce({{QStringLiteral("Metadata"), track}, {QStringLiteral("PlaybackStatus"), QStringLiteral("Playing")}});
}

void LVFakeMprisPlayer::setStatus(const QString& status)
{
    QMetaObject::invokeMethod(object_.get(), [this, status] { object_->status_ = status; }, Qt::BlockingQueuedConnection);
    announce({{QStringLiteral("PlaybackStatus"), status}});
}

void LVFakeMprisPlayer::announce(const QVariantMap& changed)
{
    QDBusMessage signal =
        QDBusMessage::createSignal(kPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("PropertiesChanged"));
    signal << QStringLiteral("org.mpris.MediaPlayer2.Player") << changed << QStringList();
    QDBusConnection(connectionName_).send(signal);
}
