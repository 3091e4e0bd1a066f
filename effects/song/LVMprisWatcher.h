#pragma once
// Follows the MPRIS media players of a D-Bus connection: which are there (NameOwnerChanged),
// what they play and whether they play (PropertiesChanged, GetAll once per new player). Every
// call is asynchronous, so a slow or hung player never holds up the thread that owns this.
#include "effects/song/LVMprisPlayers.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>

#include <functional>
#include <map>

class QDBusMessage;
class QDBusPendingCall;

class LVMprisWatcher : public QObject {
    Q_OBJECT
public:
    explicit LVMprisWatcher(const QDBusConnection& bus, QObject* parent = nullptr);

    bool isConnected() const { return bus_.isConnected(); }
    // Why there is no bus; empty when connected.
    QString connectionError() const;
    // Every player seen, by bus name, with what it last said.
    const std::map<QString, LVMprisPlayer>& players() const { return players_; }

signals:
    // A player came, went, or changed its track or playback status.
    void changed();

private slots:
    void nameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);
    void propertiesChanged(const QString& interface, const QVariantMap& changedProperties,
                           const QStringList& invalidated, const QDBusMessage& message);

private:
    void listPlayers();
    void addPlayer(const QString& busName, const QString& owner);
    void fetchPlayer(const QString& busName);
    // Applies the Player interface's properties; answers whether anything shown changed.
    bool applyProperties(const QString& busName, const QVariantMap& properties);
    void whenFinished(const QDBusPendingCall& call, std::function<void(const QDBusMessage& reply)> handler);

    QDBusConnection bus_;
    std::map<QString, LVMprisPlayer> players_;
    QHash<QString, QString> busNameByOwner_;  // unique name (":1.42") -> bus name
    // Signals applied per bus name. Qt may hand over a call's reply after a signal the player
    // sent later, so a reply that was overtaken is stale and asked for again.
    QHash<QString, quint64> signalsApplied_;
};
