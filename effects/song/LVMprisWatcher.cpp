#include "effects/song/LVMprisWatcher.h"

#include "core/util/LVLog.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

namespace {

const QString kBusService = QStringLiteral("org.freedesktop.DBus");
const QString kBusPath = QStringLiteral("/org/freedesktop/DBus");
const QString kPlayerPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString kPlayerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
const QString kPropertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");

// Nested dictionaries arrive still marshalled.
QVariantMap toVariantMap(const QVariant& value)
{
    if (value.canConvert<QDBusArgument>()) {
        const QDBusArgument argument = value.value<QDBusArgument>();
        if (argument.currentType() == QDBusArgument::MapType) return qdbus_cast<QVariantMap>(argument);
        return {};
    }
    return value.toMap();
}

} // namespace

LVMprisWatcher::LVMprisWatcher(const QDBusConnection& bus, QObject* parent) : QObject(parent), bus_(bus)
{
    if (!bus_.isConnected()) return;
    bus_.connect(kBusService, kBusPath, kBusService, QStringLiteral("NameOwnerChanged"), this,
                 SLOT(nameOwnerChanged(QString, QString, QString)));
    // Any sender: the unique name tells which player it was.
    bus_.connect(QString(), kPlayerPath, kPropertiesInterface, QStringLiteral("PropertiesChanged"), this,
                 SLOT(propertiesChanged(QString, QVariantMap, QStringList, QDBusMessage)));
    listPlayers();
}

QString LVMprisWatcher::connectionError() const
{
    if (bus_.isConnected()) return {};
    const QString why = bus_.lastError().message();
    return why.isEmpty() ? QStringLiteral("no session bus") : why;
}

void LVMprisWatcher::whenFinished(const QDBusPendingCall& call, std::function<void(const QDBusMessage&)> handler)
{
    auto* watcher = new QDBusPendingCallWatcher(call, this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [handler = std::move(handler)](QDBusPendingCallWatcher* w) {
        w->deleteLater();
        handler(w->reply());
    });
}

void LVMprisWatcher::listPlayers()
{
    const QDBusMessage call = QDBusMessage::createMethodCall(kBusService, kBusPath, kBusService, QStringLiteral("ListNames"));
    whenFinished(bus_.asyncCall(call), [this](const QDBusMessage& reply) {
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
            LVLog("iTunesSong: ListNames: %s", qPrintable(reply.errorMessage()));
            return;
        }
        for (const QString& name : reply.arguments().constFirst().toStringList()) {
            if (LVMprisShortName(name).isEmpty()) continue;
            QDBusMessage owner =
                QDBusMessage::createMethodCall(kBusService, kBusPath, kBusService, QStringLiteral("GetNameOwner"));
            owner << name;
            whenFinished(bus_.asyncCall(owner), [this, name](const QDBusMessage& ownerReply) {
                if (ownerReply.type() == QDBusMessage::ReplyMessage && !ownerReply.arguments().isEmpty())
                    addPlayer(name, ownerReply.arguments().constFirst().toString());
            });
        }
    });
}

void LVMprisWatcher::nameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner)
{
    if (LVMprisShortName(name).isEmpty()) return;
    if (!oldOwner.isEmpty()) {
        busNameByOwner_.remove(oldOwner);
        signalsApplied_.remove(name);
        if (players_.erase(name)) emit changed();
    }
    if (!newOwner.isEmpty()) addPlayer(name, newOwner);
}

void LVMprisWatcher::addPlayer(const QString& busName, const QString& owner)
{
    busNameByOwner_.insert(owner, busName);
    fetchPlayer(busName);
}

void LVMprisWatcher::fetchPlayer(const QString& busName)
{
    QDBusMessage call = QDBusMessage::createMethodCall(busName, kPlayerPath, kPropertiesInterface, QStringLiteral("GetAll"));
    call << kPlayerInterface;
    whenFinished(bus_.asyncCall(call), [this, busName, seen = signalsApplied_.value(busName)](const QDBusMessage& reply) {
        if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
            LVLog("iTunesSong: GetAll of %s: %s", qPrintable(busName), qPrintable(reply.errorMessage()));
            return;
        }
        // The player may have left while the call was under way.
        if (busNameByOwner_.key(busName).isEmpty()) return;
        if (signalsApplied_.value(busName) != seen) {
            fetchPlayer(busName);
            return;
        }
        if (applyProperties(busName, toVariantMap(reply.arguments().constFirst()))) emit changed();
    });
}

void LVMprisWatcher::propertiesChanged(const QString& interface, const QVariantMap& changedProperties,
                                       const QStringList& invalidated, const QDBusMessage& message)
{
    if (interface != kPlayerInterface) return;
    const QString busName = busNameByOwner_.value(message.service());
    if (busName.isEmpty()) return;
    if (invalidated.contains(QStringLiteral("Metadata")) || invalidated.contains(QStringLiteral("PlaybackStatus"))) {
        fetchPlayer(busName);
        return;
    }
    ++signalsApplied_[busName];
    if (applyProperties(busName, changedProperties)) emit changed();
}

bool LVMprisWatcher::applyProperties(const QString& busName, const QVariantMap& properties)
{
    LVMprisPlayer& player = players_[busName];
    const LVMprisPlayer before = player;
    const auto status = properties.constFind(QStringLiteral("PlaybackStatus"));
    if (status != properties.constEnd()) player.playbackStatus = status->toString();
    const auto metadata = properties.constFind(QStringLiteral("Metadata"));
    if (metadata != properties.constEnd()) player.track = LVSongTrackFromMetadata(toVariantMap(*metadata));
    return player.playbackStatus != before.playbackStatus || !(player.track == before.track);
}
