#pragma once
// A media player as MPRIS describes one, on its own connection to the session bus and on a
// thread of its own, so that it answers while the test blocks (on a child process's frames).
#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QThread>
#include <QVariantMap>

#include <memory>

class LVFakeMprisPlayerObject : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ playbackStatus)
    Q_PROPERTY(QVariantMap Metadata READ metadata)
public:
    QString playbackStatus() const { return status_; }
    QVariantMap metadata() const { return metadata_; }

    QString status_ = QStringLiteral("Stopped");
    QVariantMap metadata_;
};

class LVFakeMprisPlayer {
public:
    // Takes the bus name "org.mpris.MediaPlayer2.<shortName>".
    explicit LVFakeMprisPlayer(const QString& shortName)
        : connectionName_(QStringLiteral("lvtest-player-") + shortName),
          busName_(QStringLiteral("org.mpris.MediaPlayer2.") + shortName)
    {
        thread_.start();
        object_->moveToThread(&thread_);
        QDBusConnection bus = QDBusConnection::connectToBus(QDBusConnection::SessionBus, connectionName_);
        registered_ = bus.registerObject(path(), object_.get(), QDBusConnection::ExportAllProperties) &&
                      bus.registerService(busName_);
    }
    // Gives the name up, so watchers see the player leave.
    ~LVFakeMprisPlayer()
    {
        {
            QDBusConnection bus(connectionName_);
            bus.unregisterService(busName_);
            bus.unregisterObject(path());
        }
        QDBusConnection::disconnectFromBus(connectionName_);
        thread_.quit();
        thread_.wait();
    }
    LVFakeMprisPlayer(const LVFakeMprisPlayer&) = delete;
    LVFakeMprisPlayer& operator=(const LVFakeMprisPlayer&) = delete;

    bool isRegistered() const { return registered_; }

    // Changes what it plays and announces it with PropertiesChanged, as players do.
    void play(const QString& title, const QStringList& artists, const QString& album, const QString& artUrl = {})
    {
        QVariantMap track{{QStringLiteral("xesam:title"), title},
                          {QStringLiteral("xesam:artist"), artists},
                          {QStringLiteral("xesam:album"), album}};
        if (!artUrl.isEmpty()) track.insert(QStringLiteral("mpris:artUrl"), artUrl);
        QMetaObject::invokeMethod(
            object_.get(), [this, track] { object_->metadata_ = track; }, Qt::BlockingQueuedConnection);
        setStatus(QStringLiteral("Playing"), {{QStringLiteral("Metadata"), track}});
    }

    void setStatus(const QString& status, QVariantMap changed = {})
    {
        QMetaObject::invokeMethod(
            object_.get(), [this, status] { object_->status_ = status; }, Qt::BlockingQueuedConnection);
        changed.insert(QStringLiteral("PlaybackStatus"), status);
        QDBusMessage signal = QDBusMessage::createSignal(path(), QStringLiteral("org.freedesktop.DBus.Properties"),
                                                         QStringLiteral("PropertiesChanged"));
        signal << QStringLiteral("org.mpris.MediaPlayer2.Player") << changed << QStringList();
        QDBusConnection(connectionName_).send(signal);
    }

private:
    static QString path() { return QStringLiteral("/org/mpris/MediaPlayer2"); }

    QString connectionName_;
    QString busName_;
    QThread thread_;
    std::unique_ptr<LVFakeMprisPlayerObject> object_ = std::make_unique<LVFakeMprisPlayerObject>();
    bool registered_ = false;
};
