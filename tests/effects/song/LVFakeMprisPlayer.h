#pragma once
// A media player as MPRIS describes one, on its own connection to the session bus and on a
// thread of its own, so that it answers while the test blocks (on a child process's frames).
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>

class QThread;

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
    explicit LVFakeMprisPlayer(const QString& shortName);
    // Gives the name up, so watchers see the player leave.
    ~LVFakeMprisPlayer();
    LVFakeMprisPlayer(const LVFakeMprisPlayer&) = delete;
    LVFakeMprisPlayer& operator=(const LVFakeMprisPlayer&) = delete;

    bool isRegistered() const { return registered_; }
    // Changes what it plays and announces it with PropertiesChanged, as players do.
    void play(const QString& title, const QStringList& artists, const QString& album, const QString& artUrl = {});
    void setStatus(const QString& status);

    static QVariantMap metadata(const QString& title, const QStringList& artists, const QString& album,
                                const QString& artUrl);

private:
    void announce(const QVariantMap& changed);

    QString connectionName_;
    QString busName_;
    std::unique_ptr<QThread> thread_;
    std::unique_ptr<LVFakeMprisPlayerObject> object_;
    bool registered_ = false;
};
