#include "control/websocket/LVRemoteControlService.h"

#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "core/util/LVLog.h"

#include <QCoreApplication>
#include <QNetworkInterface>
#include <QRandomGenerator>
#include <QTimer>

namespace {

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

} // namespace

LVRemoteControlService::LVRemoteControlService(Lumaveil& app, LVStudio* studio, Options options)
    : app_(app), options_(std::move(options)), requests_(app, studio), server_(requests_, &app, options_.limits)
{
    app.defaults().registerDefaults({
        {key(enabledKey), false},
        {key(portKey), defaultPort},
        {key(passwordKey), QString()},
        {key(allInterfacesKey), false},
    });
    server_.setPagesFolder(options_.pagesFolder);
    requests_.setThumbnails(&thumbnails_);
    requests_.setEventSink([this](const QString& type, uint32_t intent, const QJsonObject& data) {
        server_.broadcast(type, intent, data);
    });
    connect(&app.defaults(), &LVDefaults::valueChanged, this, [this](const QString& changed) {
        if (changed.startsWith(QLatin1String("remoteControl"))) scheduleApply();
    });
    connect(&server_, &LVRemoteControlServer::clientCountChanged, this, &LVRemoteControlService::statusChanged);
    if (QCoreApplication::instance()) {
        connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this, [this] { server_.close(true); });
    }
    apply();
}

LVRemoteControlService::~LVRemoteControlService()
{
    server_.close();
}

QString LVRemoteControlService::accessLink()
{
    if (!server_.isListening() || !server_.servesPages()) return {};
    const QString token = server_.makeAccessToken();
    if (token.isEmpty()) return {};
    QString host = QStringLiteral("127.0.0.1");
    if (server_.address() != QHostAddress(QHostAddress::LocalHost)) {
        for (const QHostAddress& address : QNetworkInterface::allAddresses()) {
            if (!address.isLoopback() && address.protocol() == QAbstractSocket::IPv4Protocol) {
                host = address.toString();
                break;
            }
        }
    }
    return QStringLiteral("http://%1:%2/?token=%3").arg(host).arg(server_.port()).arg(token);
}

QString LVRemoteControlService::makePassword()
{
    static const char alphabet[] = "abcdefghijkmnopqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    QString password;
    for (int i = 0; i < 16; ++i) password.append(QLatin1Char(alphabet[QRandomGenerator::system()->bounded(int(sizeof alphabet - 1))]));
    return password;
}

QString LVRemoteControlService::status() const
{
    if (!problem_.isEmpty()) return QStringLiteral("Not serving: %1").arg(problem_);
    if (!server_.isListening()) return QStringLiteral("Off");
    const int clients = server_.identifiedClientCount();
    QString line = QStringLiteral("Serving ws://%1 to %2 %3").arg(listeningOn_).arg(clients).arg(clients == 1 ? "client" : "clients");
    if (server_.servesPages()) line += QStringLiteral(", and the web remote at http://%1/").arg(listeningOn_);
    return line;
}

void LVRemoteControlService::scheduleApply()
{
    // A window changing several keys at once restarts the server once.
    if (applyScheduled_) return;
    applyScheduled_ = true;
    QTimer::singleShot(0, this, [this] {
        applyScheduled_ = false;
        apply();
    });
}

void LVRemoteControlService::apply()
{
    LVDefaults& defaults = app_.defaults();
    const bool enabled = options_.forceEnabled || defaults.boolForKey(key(enabledKey));
    problem_.clear();
    if (!enabled) {
        if (server_.isListening()) LVLog("Remote control: stopped");
        server_.close();
        requested_.clear();
        listeningOn_.clear();
        emit statusChanged();
        return;
    }
    QString password = defaults.stringForKey(key(passwordKey));
    if (password.isEmpty()) {
        password = makePassword();
        defaults.setValue(key(passwordKey), password);
    }
    server_.setPassword(password);

    quint16 port = defaultPort;
    if (options_.port) {
        port = *options_.port;
    } else {
        const int stored = defaults.integerForKey(key(portKey));
        if (stored >= 1 && stored <= 65535) {
            port = quint16(stored);
        } else {
            LVLog("Remote control: preference \"%s\" holds %d, not a port; using %d", portKey, stored, defaultPort);
        }
    }
    const QHostAddress address = defaults.boolForKey(key(allInterfacesKey)) ? QHostAddress(QHostAddress::Any)
                                                                            : QHostAddress(QHostAddress::LocalHost);
    const QString where = QStringLiteral("%1:%2").arg(address.toString()).arg(port);
    if (server_.isListening() && where == requested_) {
        emit statusChanged();
        return;
    }
    QString error;
    if (server_.listen(address, port, &error)) {
        // Asking for port 0 gets a free one; the log names the real one.
        requested_ = where;
        listeningOn_ = QStringLiteral("%1:%2").arg(address.toString()).arg(server_.port());
        LVLog("Remote control: serving ws://%s (the password is the preference \"%s\")", qPrintable(listeningOn_), passwordKey);
        if (server_.servesPages()) {
            LVLog("Remote control: the web remote is at http://%s/ (its page from %s)", qPrintable(listeningOn_),
                  qPrintable(options_.pagesFolder));
        }
    } else {
        requested_.clear();
        listeningOn_.clear();
        problem_ = error;
        LVLog("Remote control: %s", qPrintable(error));
    }
    emit statusChanged();
}
