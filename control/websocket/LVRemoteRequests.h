#pragma once
// The remote control's requests and events on the studio: scenes are the saved setups of
// the current set (sceneName = setup name, sceneUuid = the button's uid, index = grid
// order), Preview and Program are the buses, and studio mode is always on. Everything acts
// through the studio's and the controller's own operations, on the main thread.
#include "control/websocket/LVRemoteProtocol.h"

#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QStringList>

#include <functional>
#include <map>
#include <optional>

class LVRemoteHotkeys;
class LVRemoteThumbnails;
class LVStudio;
class LVStudioButton;
class Lumaveil;

class LVRemoteRequests : public QObject {
    Q_OBJECT
public:
    using EventSink = std::function<void(const QString& eventType, uint32_t intent, const QJsonObject& data)>;

    // studio may be null (a run without the studio): its requests then answer NotReady.
    // Both must outlive this object.
    LVRemoteRequests(Lumaveil& app, LVStudio* studio);
    ~LVRemoteRequests() override;

    // Every request type answered, Sleep included (it runs only inside batches).
    static QStringList requestTypes();

    // null means no hotkeys.
    void setHotkeys(LVRemoteHotkeys* hotkeys) { hotkeys_ = hotkeys; }
    // Where Program pictures come from; null: GetSourceScreenshot answers NotReady.
    void setThumbnails(LVRemoteThumbnails* thumbnails) { thumbnails_ = thumbnails; }
    // Where events go; each is sent once per change, after the burst that made it.
    void setEventSink(EventSink sink) { sink_ = std::move(sink); }

    LVRemote::Response handle(const QString& requestType, const QJsonObject& data);

    // A request another part of the application answers (recording, streaming); it needs no studio.
    using ExtraRequest = std::function<LVRemote::Response(const QJsonObject& data)>;
    void addRequest(const QString& requestType, ExtraRequest handler) { extraRequests_[requestType] = std::move(handler); }
    // An event from such a part, sent to clients like the studio's own.
    void sendEvent(const QString& type, uint32_t intent, const QJsonObject& data) { emitEvent(type, intent, data); }

    // A transition's stable uuid, made from its name.
    static QString transitionUuid(const QString& name);

    // The vendor name of Lumaveil's own requests and events (CallVendorRequest, VendorEvent).
    static constexpr const char* vendorName = "lumaveil";

private:
    using Handler = LVRemote::Response (LVRemoteRequests::*)(const QJsonObject&);
    static const std::map<QString, Handler>& handlers();

    LVRemote::Response getVersion(const QJsonObject&);
    LVRemote::Response getStats(const QJsonObject&);
    LVRemote::Response getSceneList(const QJsonObject&);
    LVRemote::Response getCurrentProgramScene(const QJsonObject&);
    LVRemote::Response setCurrentProgramScene(const QJsonObject&);
    LVRemote::Response getCurrentPreviewScene(const QJsonObject&);
    LVRemote::Response setCurrentPreviewScene(const QJsonObject&);
    LVRemote::Response getStudioModeEnabled(const QJsonObject&);
    LVRemote::Response setStudioModeEnabled(const QJsonObject&);
    LVRemote::Response triggerStudioModeTransition(const QJsonObject&);
    LVRemote::Response getTransitionKindList(const QJsonObject&);
    LVRemote::Response getSceneTransitionList(const QJsonObject&);
    LVRemote::Response getCurrentSceneTransition(const QJsonObject&);
    LVRemote::Response setCurrentSceneTransition(const QJsonObject&);
    LVRemote::Response setCurrentSceneTransitionDuration(const QJsonObject&);
    LVRemote::Response getSceneItemList(const QJsonObject&);
    LVRemote::Response getInputList(const QJsonObject&);
    LVRemote::Response getHotkeyList(const QJsonObject&);
    LVRemote::Response triggerHotkeyByName(const QJsonObject&);
    LVRemote::Response sleepOutsideBatch(const QJsonObject&);
    LVRemote::Response getSourceScreenshot(const QJsonObject&);
    LVRemote::Response callVendorRequest(const QJsonObject&);

    // The studio as a remote panel draws it: the buttons (with their colours), the buses' names
    // and the swap mode; sent whole in the vendor event "StudioStateChanged" when it changes.
    QJsonObject studioState() const;
    LVRemote::Response vendorButtonAction(const QJsonObject& data);
    LVRemote::Response vendorButtonIcon(const QJsonObject& data);

    // The scene a request names by sceneUuid or sceneName; a failure response otherwise.
    LVStudioButton* sceneNamed(const QJsonObject& data, LVRemote::Response* failure) const;
    QJsonArray sceneList() const;
    // The first button of a bus in grid order, or null.
    LVStudioButton* programScene() const;
    LVStudioButton* previewScene() const;
    QJsonObject transitionObject(const QString& name) const;
    int transitionDurationMs() const;

    void follow(LVStudioButton* button);
    void emitEvent(const QString& type, uint32_t intent, const QJsonObject& data);
    // Coalesces a burst of state changes into one check of the buses and transition.
    void scheduleCheck();
    void checkChanges();
    void sceneListChanged();
    void transitionStateChanged();

    Lumaveil& app_;
    QPointer<LVStudio> studio_;
    LVRemoteHotkeys* hotkeys_ = nullptr;
    LVRemoteThumbnails* thumbnails_ = nullptr;
    QJsonObject lastStudioState_;
    EventSink sink_;
    bool checkScheduled_ = false;
    QString lastProgramUid_;
    QString lastPreviewUid_;
    QString lastTransitionName_;
    int lastDurationMs_ = 0;
    bool lastTransitionRunning_ = false;
    QString runningTransitionName_;
    // The studio's own time, put back when a transition started with a duration override ends.
    std::optional<double> restoreTransitionTime_;
    std::map<const LVStudioButton*, QString> buttonNames_;
    std::map<QString, ExtraRequest> extraRequests_;
    // Cumulative process CPU seconds and wall time at the last GetStats, for its cpuUsage.
    double lastCpuSeconds_ = 0;
    double lastWallSeconds_ = 0;
};
