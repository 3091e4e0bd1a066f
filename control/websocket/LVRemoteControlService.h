#pragma once
// The remote control as the application runs it: follows the preferences
// "remoteControlEnabled", "remoteControlPort" (4455), "remoteControlPassword" (made on
// first enable) and "remoteControlAllInterfaces" (off: 127.0.0.1 only), restarting the
// server when they change, and tells clients ExitStarted when the application quits.
#include "control/websocket/LVRemoteControlServer.h"
#include "control/websocket/LVRemoteRequests.h"
#include "control/websocket/LVRemoteThumbnails.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class LVDefaults;
class LVRemoteHotkeys;
class LVStudio;
class Lumaveil;

class LVRemoteControlService : public QObject {
    Q_OBJECT
public:
    static constexpr const char* enabledKey = "remoteControlEnabled";
    static constexpr const char* portKey = "remoteControlPort";
    static constexpr const char* passwordKey = "remoteControlPassword";
    static constexpr const char* allInterfacesKey = "remoteControlAllInterfaces";
    static constexpr int defaultPort = 4455;

    struct Options {
        // Serve whatever the preference says (the headless job's --remote-control).
        bool forceEnabled = false;
        // This run's port instead of the preference's.
        std::optional<quint16> port;
        // The web remote's page folder, served on the same port; empty: WebSocket only.
        QString pagesFolder;
        LVRemoteControlLimits limits;
    };

    // studio may be null. app, studio and app's preferences must outlive the service.
    LVRemoteControlService(Lumaveil& app, LVStudio* studio, Options options);
    ~LVRemoteControlService() override;

    // A new random password of letters and digits.
    static QString makePassword();

    void setHotkeys(LVRemoteHotkeys* hotkeys) { requests_.setHotkeys(hotkeys); }
    LVRemoteControlServer& server() { return server_; }
    LVRemoteRequests& requests() { return requests_; }
    bool isServing() const { return server_.isListening(); }
    // One line for the settings window: where it serves and to how many clients, why it
    // does not, or that it is off.
    QString status() const;
    // A link that opens the web remote already signed in, once, within ten minutes; empty
    // when the page is not served. The host is this machine's first network address when
    // other computers may connect, else 127.0.0.1.
    QString accessLink();

signals:
    void statusChanged();

private:
    void scheduleApply();
    void apply();

    Lumaveil& app_;
    Options options_;
    LVRemoteThumbnails thumbnails_;
    LVRemoteRequests requests_;
    LVRemoteControlServer server_;
    // The address and port asked for, and the ones really served (port 0 asks for any).
    QString requested_;
    QString listeningOn_;
    QString problem_;
    bool applyScheduled_ = false;
};
