#include "control/websocket/LVRemoteRequests.h"

#include "control/websocket/LVRemoteFields.h"
#include "control/websocket/LVRemoteHotkeys.h"
#include "core/Lumaveil.h"
#include "studio/LVStudio.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QStandardPaths>
#include <QStorageInfo>
#include <QSysInfo>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <cmath>
#include <sys/resource.h>
#include <unistd.h>

using LVRemote::Response;
using LVRemote::isBool;
using LVRemote::isNumber;
using LVRemote::isString;
using LVRemote::requireField;

namespace {

const QString kNoStudio = QStringLiteral("this Lumaveil runs without the studio (start it with --studio)");
constexpr int kMinDurationMs = 50;
constexpr int kMaxDurationMs = 20000;
// Names every transition uuid is made from, so a name always gives the same uuid.
const QUuid kTransitionNamespace(QStringLiteral("{5b0d6a3e-7c61-4f2e-9a55-0e4c1d8f2b17}"));

QString key(const char* name)
{
    return QString::fromLatin1(name);
}

QJsonValue nameOf(const LVStudioButton* button)
{
    return button ? QJsonValue(button->name()) : QJsonValue(QJsonValue::Null);
}

QJsonValue uidOf(const LVStudioButton* button)
{
    return button ? QJsonValue(button->uid()) : QJsonValue(QJsonValue::Null);
}

QJsonObject sceneObject(const LVStudioButton* button)
{
    return {{key("sceneName"), nameOf(button)}, {key("sceneUuid"), uidOf(button)}};
}

double processCpuSeconds()
{
    rusage usage {};
    if (::getrusage(RUSAGE_SELF, &usage) != 0) return 0;
    auto seconds = [](const timeval& t) { return double(t.tv_sec) + double(t.tv_usec) / 1e6; };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double residentMegabytes()
{
    QFile statm(QStringLiteral("/proc/self/statm"));
    if (!statm.open(QIODevice::ReadOnly)) return 0;
    const QList<QByteArray> fields = statm.read(256).split(' ');
    if (fields.size() < 2) return 0;
    return fields[1].toDouble() * double(::sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

double wallSeconds()
{
    static QElapsedTimer clock = [] {
        QElapsedTimer timer;
        timer.start();
        return timer;
    }();
    return double(clock.nsecsElapsed()) / 1e9;
}

} // namespace

LVRemoteRequests::LVRemoteRequests(Lumaveil& app, LVStudio* studio) : app_(app), studio_(studio)
{
    lastWallSeconds_ = wallSeconds();
    lastCpuSeconds_ = processCpuSeconds();
    if (!studio) return;
    for (const LVStudioButtonRef& button : studio->studioButtons()) follow(button.get());
    connect(studio, &LVStudio::studioButtonAdded, this, [this](LVStudioButton* button) {
        follow(button);
        emitEvent(key("SceneCreated"), LVRemote::SubscribeScenes,
                  {{key("sceneName"), button->name()}, {key("sceneUuid"), button->uid()}, {key("isGroup"), false}});
        sceneListChanged();
    });
    connect(studio, &LVStudio::studioButtonRemoved, this, [this](LVStudioButton* button) {
        const auto known = buttonNames_.find(button);
        const QString name = known != buttonNames_.end() ? known->second : button->name();
        buttonNames_.erase(button);
        button->disconnect(this);
        emitEvent(key("SceneRemoved"), LVRemote::SubscribeScenes,
                  {{key("sceneName"), name}, {key("sceneUuid"), button->uid()}, {key("isGroup"), false}});
        sceneListChanged();
    });
    connect(studio, &LVStudio::transitionStateChanged, this, &LVRemoteRequests::transitionStateChanged);
    connect(studio, &LVStudio::swapModeChanged, this, &LVRemoteRequests::scheduleCheck);
    if (LVStudioButton* program = programScene()) lastProgramUid_ = program->uid();
    if (LVStudioButton* preview = previewScene()) lastPreviewUid_ = preview->uid();
    lastTransitionName_ = studio->namedTransition();
    lastDurationMs_ = transitionDurationMs();
    lastStudioState_ = studioState();
}

LVRemoteRequests::~LVRemoteRequests() = default;

void LVRemoteRequests::follow(LVStudioButton* button)
{
    buttonNames_[button] = button->name();
    connect(button, &LVStudioButton::stateChanged, this, [this] { scheduleCheck(); });
    connect(button, &LVStudioButton::locationChanged, this, [this] { scheduleCheck(); });
    connect(button->setup().get(), &LVSavedSetup::iconChanged, this, [this] { scheduleCheck(); });
    connect(button, &LVStudioButton::nameChanged, this, [this](LVStudioButton* renamed) {
        QString& known = buttonNames_[renamed];
        const QString oldName = known;
        known = renamed->name();
        emitEvent(key("SceneNameChanged"), LVRemote::SubscribeScenes,
                  {{key("sceneUuid"), renamed->uid()}, {key("oldSceneName"), oldName}, {key("sceneName"), known}});
        sceneListChanged();
    });
}

void LVRemoteRequests::emitEvent(const QString& type, uint32_t intent, const QJsonObject& data)
{
    if (sink_) sink_(type, intent, data);
}

void LVRemoteRequests::sceneListChanged()
{
    emitEvent(key("SceneListChanged"), LVRemote::SubscribeScenes, {{key("scenes"), sceneList()}});
    scheduleCheck();
}

void LVRemoteRequests::scheduleCheck()
{
    // State changes may come from inside a frame (a transition's end); the check waits for it.
    if (checkScheduled_) return;
    checkScheduled_ = true;
    QTimer::singleShot(0, this, &LVRemoteRequests::checkChanges);
}

void LVRemoteRequests::checkChanges()
{
    checkScheduled_ = false;
    if (!studio_) return;
    LVStudioButton* program = programScene();
    const QString programUid = program ? program->uid() : QString();
    if (programUid != lastProgramUid_) {
        lastProgramUid_ = programUid;
        emitEvent(key("CurrentProgramSceneChanged"), LVRemote::SubscribeScenes, sceneObject(program));
    }
    LVStudioButton* preview = previewScene();
    const QString previewUid = preview ? preview->uid() : QString();
    if (previewUid != lastPreviewUid_) {
        lastPreviewUid_ = previewUid;
        emitEvent(key("CurrentPreviewSceneChanged"), LVRemote::SubscribeScenes, sceneObject(preview));
    }
    const QString transition = studio_->namedTransition();
    if (transition != lastTransitionName_) {
        lastTransitionName_ = transition;
        emitEvent(key("CurrentSceneTransitionChanged"), LVRemote::SubscribeTransitions,
                  {{key("transitionName"), transition}, {key("transitionUuid"), transitionUuid(transition)}});
    }
    const int duration = transitionDurationMs();
    if (duration != lastDurationMs_ && !restoreTransitionTime_) {
        lastDurationMs_ = duration;
        emitEvent(key("CurrentSceneTransitionDurationChanged"), LVRemote::SubscribeTransitions,
                  {{key("transitionDuration"), duration}});
    }
    QJsonObject state = studioState();
    if (state != lastStudioState_) {
        lastStudioState_ = state;
        emitEvent(key("VendorEvent"), LVRemote::SubscribeVendors,
                  {{key("vendorName"), key(vendorName)}, {key("eventType"), key("StudioStateChanged")}, {key("eventData"), state}});
    }
}

void LVRemoteRequests::transitionStateChanged()
{
    if (!studio_) return;
    const bool running = studio_->isTransitionRunning();
    if (running) {
        // A transition started again while one ran is still one transition to the clients.
        if (lastTransitionRunning_) return;
        lastTransitionRunning_ = true;
        if (runningTransitionName_.isEmpty()) runningTransitionName_ = studio_->namedTransition();
        emitEvent(key("SceneTransitionStarted"), LVRemote::SubscribeTransitions,
                  {{key("transitionName"), runningTransitionName_},
                   {key("transitionUuid"), transitionUuid(runningTransitionName_)}});
        return;
    }
    if (!lastTransitionRunning_) return;
    lastTransitionRunning_ = false;
    if (restoreTransitionTime_) {
        studio_->setTransitionTime(*restoreTransitionTime_);
        restoreTransitionTime_.reset();
    }
    const QString name = std::exchange(runningTransitionName_, QString());
    emitEvent(key("SceneTransitionEnded"), LVRemote::SubscribeTransitions,
              {{key("transitionName"), name}, {key("transitionUuid"), transitionUuid(name)}});
    scheduleCheck();
}

QString LVRemoteRequests::transitionUuid(const QString& name)
{
    return QUuid::createUuidV5(kTransitionNamespace, name).toString(QUuid::WithoutBraces);
}

const std::map<QString, LVRemoteRequests::Handler>& LVRemoteRequests::handlers()
{
    static const std::map<QString, Handler> table{
        {key("GetVersion"), &LVRemoteRequests::getVersion},
        {key("GetStats"), &LVRemoteRequests::getStats},
        {key("GetSceneList"), &LVRemoteRequests::getSceneList},
        {key("GetCurrentProgramScene"), &LVRemoteRequests::getCurrentProgramScene},
        {key("SetCurrentProgramScene"), &LVRemoteRequests::setCurrentProgramScene},
        {key("GetCurrentPreviewScene"), &LVRemoteRequests::getCurrentPreviewScene},
        {key("SetCurrentPreviewScene"), &LVRemoteRequests::setCurrentPreviewScene},
        {key("GetStudioModeEnabled"), &LVRemoteRequests::getStudioModeEnabled},
        {key("SetStudioModeEnabled"), &LVRemoteRequests::setStudioModeEnabled},
        {key("TriggerStudioModeTransition"), &LVRemoteRequests::triggerStudioModeTransition},
        {key("GetTransitionKindList"), &LVRemoteRequests::getTransitionKindList},
        {key("GetSceneTransitionList"), &LVRemoteRequests::getSceneTransitionList},
        {key("GetCurrentSceneTransition"), &LVRemoteRequests::getCurrentSceneTransition},
        {key("SetCurrentSceneTransition"), &LVRemoteRequests::setCurrentSceneTransition},
        {key("SetCurrentSceneTransitionDuration"), &LVRemoteRequests::setCurrentSceneTransitionDuration},
        {key("GetSceneItemList"), &LVRemoteRequests::getSceneItemList},
        {key("GetInputList"), &LVRemoteRequests::getInputList},
        {key("GetHotkeyList"), &LVRemoteRequests::getHotkeyList},
        {key("TriggerHotkeyByName"), &LVRemoteRequests::triggerHotkeyByName},
        {key("Sleep"), &LVRemoteRequests::sleepOutsideBatch},
        {key("GetSourceScreenshot"), &LVRemoteRequests::getSourceScreenshot},
        {key("CallVendorRequest"), &LVRemoteRequests::callVendorRequest},
    };
    return table;
}

QStringList LVRemoteRequests::requestTypes()
{
    QStringList types;
    for (const auto& [name, handler] : handlers()) types.append(name);
    return types;
}

Response LVRemoteRequests::handle(const QString& requestType, const QJsonObject& data)
{
    const auto found = handlers().find(requestType);
    if (const auto extra = extraRequests_.find(requestType); extra != extraRequests_.end()) return extra->second(data);
    if (found == handlers().end()) {
        return Response::failure(LVRemote::UnknownRequestType,
                                 QStringLiteral("Your request type is not valid: %1").arg(requestType));
    }
    static const QStringList withoutStudio{key("GetVersion"), key("GetStats"), key("GetStudioModeEnabled"),
                                           key("GetInputList"), key("GetHotkeyList"), key("TriggerHotkeyByName"),
                                           key("GetTransitionKindList"), key("Sleep")};
    if (!studio_ && !withoutStudio.contains(requestType)) return Response::failure(LVRemote::NotReady, kNoStudio);
    return (this->*(found->second))(data);
}

Response LVRemoteRequests::getVersion(const QJsonObject&)
{
    QStringList extraTypes;
    for (const auto& [name, handler] : extraRequests_) extraTypes.append(name);
    const QString version = QCoreApplication::applicationVersion();
    return Response::success({
        {key("obsVersion"), version.isEmpty() ? key("0.0.0") : version},
        {key("obsWebSocketVersion"), key(LVRemote::protocolVersion)},
        {key("rpcVersion"), LVRemote::rpcVersion},
        {key("availableRequests"), QJsonArray::fromStringList(requestTypes() + extraTypes)},
        {key("supportedImageFormats"), QJsonArray{key("jpeg"), key("jpg"), key("png")}},
        {key("platform"), key("linux")},
        {key("platformDescription"), QSysInfo::prettyProductName()},
    });
}

Response LVRemoteRequests::getStats(const QJsonObject&)
{
    const double now = wallSeconds();
    const double cpu = processCpuSeconds();
    const double cpuUsage = now > lastWallSeconds_ ? 100.0 * (cpu - lastCpuSeconds_) / (now - lastWallSeconds_) : 0;
    lastWallSeconds_ = now;
    lastCpuSeconds_ = cpu;
    const double period = 1000.0 / double(std::max(1, app_.frameRate()));
    // A frame that started more than a period late stands for at least one frame not rendered.
    const auto& lateness = app_.frameStartLateness();
    const auto skipped = std::count_if(lateness.begin(), lateness.end(), [&](float ms) { return ms > period; });
    const QStorageInfo storage(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
    return Response::success({
        {key("cpuUsage"), cpuUsage},
        {key("memoryUsage"), residentMegabytes()},
        {key("availableDiskSpace"), storage.isValid() ? double(storage.bytesAvailable()) / (1024.0 * 1024.0) : 0.0},
        {key("activeFps"), app_.measuredFps()},
        {key("averageFrameRenderTime"), app_.averageFrameRenderSeconds() * 1000.0},
        {key("renderSkippedFrames"), qint64(skipped)},
        {key("renderTotalFrames"), app_.framesRendered()},
        {key("outputSkippedFrames"), 0},
        {key("outputTotalFrames"), app_.framesRendered()},
    });
}

QJsonArray LVRemoteRequests::sceneList() const
{
    QJsonArray scenes;
    if (!studio_) return scenes;
    int index = 0;
    for (const LVStudioButton* button : studio_->buttonsInGridOrder()) {
        scenes.append(QJsonObject{{key("sceneIndex"), index++},
                                  {key("sceneName"), button->name()},
                                  {key("sceneUuid"), button->uid()}});
    }
    return scenes;
}

LVStudioButton* LVRemoteRequests::programScene() const
{
    const auto& buttons = studio_->mainBus().programButtons();
    return buttons.empty() ? nullptr : buttons.front().get();
}

LVStudioButton* LVRemoteRequests::previewScene() const
{
    const auto& buttons = studio_->mainBus().previewButtons();
    return buttons.empty() ? nullptr : buttons.front().get();
}

LVStudioButton* LVRemoteRequests::sceneNamed(const QJsonObject& data, Response* failure) const
{
    const QJsonValue uid = data.value(key("sceneUuid"));
    const QJsonValue name = data.value(key("sceneName"));
    if (uid.isString()) {
        if (LVStudioButtonRef button = studio_->buttonHavingUID(uid.toString())) return button.get();
        *failure = Response::failure(LVRemote::ResourceNotFound,
                                     QStringLiteral("No scene was found by the uuid `%1`.").arg(uid.toString()));
        return nullptr;
    }
    if (!requireField(data, "sceneName", isString, "a string", failure)) return nullptr;
    if (name.toString().isEmpty()) {
        *failure = Response::failure(LVRemote::RequestFieldEmpty, QStringLiteral("The field `sceneName` is empty."));
        return nullptr;
    }
    if (LVStudioButtonRef button = studio_->buttonHavingName(name.toString())) return button.get();
    *failure = Response::failure(LVRemote::ResourceNotFound,
                                 QStringLiteral("No scene was found by the name of `%1`.").arg(name.toString()));
    return nullptr;
}

Response LVRemoteRequests::getSceneList(const QJsonObject&)
{
    LVStudioButton* program = programScene();
    LVStudioButton* preview = previewScene();
    return Response::success({
        {key("currentProgramSceneName"), nameOf(program)},
        {key("currentProgramSceneUuid"), uidOf(program)},
        {key("currentPreviewSceneName"), nameOf(preview)},
        {key("currentPreviewSceneUuid"), uidOf(preview)},
        {key("scenes"), sceneList()},
    });
}

Response LVRemoteRequests::getCurrentProgramScene(const QJsonObject&)
{
    LVStudioButton* program = programScene();
    QJsonObject data = sceneObject(program);
    data.insert(key("currentProgramSceneName"), nameOf(program));
    data.insert(key("currentProgramSceneUuid"), uidOf(program));
    return Response::success(data);
}

Response LVRemoteRequests::setCurrentProgramScene(const QJsonObject& data)
{
    Response failure;
    LVStudioButton* scene = sceneNamed(data, &failure);
    if (!scene) return failure;
    // Program becomes this one scene: it goes on air and every other one leaves at once.
    scene->punchToAir();
    for (const LVStudioButtonRef& button : studio_->studioButtons()) {
        const uint32_t state = button->state();
        if (button.get() != scene && (state == LVButtonOnAir || state == LVButtonLeaving)) button->punchToOffAir();
    }
    return Response::success();
}

Response LVRemoteRequests::getCurrentPreviewScene(const QJsonObject&)
{
    LVStudioButton* preview = previewScene();
    QJsonObject data = sceneObject(preview);
    data.insert(key("currentPreviewSceneName"), nameOf(preview));
    data.insert(key("currentPreviewSceneUuid"), uidOf(preview));
    return Response::success(data);
}

Response LVRemoteRequests::setCurrentPreviewScene(const QJsonObject& data)
{
    Response failure;
    LVStudioButton* scene = sceneNamed(data, &failure);
    if (!scene) return failure;
    // Preview holds this one scene: the others selected there go back to idle first.
    for (const LVStudioButtonRef& button : studio_->studioButtons()) {
        if (button.get() != scene && button->state() == LVButtonPreview) button->selectForOffAir();
    }
    scene->selectForAir();
    return Response::success();
}

Response LVRemoteRequests::getStudioModeEnabled(const QJsonObject&)
{
    return Response::success({{key("studioModeEnabled"), !studio_.isNull()}});
}

Response LVRemoteRequests::setStudioModeEnabled(const QJsonObject& data)
{
    Response failure;
    if (!requireField(data, "studioModeEnabled", isBool, "a boolean", &failure)) return failure;
    if (!data.value(key("studioModeEnabled")).toBool()) {
        return Response::failure(LVRemote::CannotAct, QStringLiteral("Lumaveil's studio is always in studio mode."));
    }
    return Response::success();
}

Response LVRemoteRequests::triggerStudioModeTransition(const QJsonObject& data)
{
    if (studio_->isTransitionRunning()) {
        return Response::failure(LVRemote::InvalidResourceState, QStringLiteral("A transition is already running."));
    }
    LVEffectRef transition;
    QString transitionName = studio_->namedTransition();
    const QJsonValue nameValue = data.value(key("transitionName"));
    if (!nameValue.isUndefined()) {
        if (!nameValue.isString()) {
            return Response::failure(LVRemote::InvalidRequestFieldType, QStringLiteral("The field `transitionName` must be a string."));
        }
        const auto& factories = app_.transitions();
        const auto factory = std::find_if(factories.begin(), factories.end(),
                                          [&](const auto& f) { return f->name() == nameValue.toString(); });
        if (factory == factories.end()) {
            return Response::failure(LVRemote::ResourceNotFound,
                                     QStringLiteral("No transition was found by the name of `%1`.").arg(nameValue.toString()));
        }
        transition = (*factory)->instantiateWithContext(app_.context());
        if (!transition) {
            return Response::failure(LVRemote::ResourceCreationFailed,
                                     QStringLiteral("The transition `%1` could not be made.").arg(nameValue.toString()));
        }
        transitionName = nameValue.toString();
    }
    const QJsonValue durationValue = data.value(key("transitionDuration"));
    if (!durationValue.isUndefined()) {
        if (!durationValue.isDouble()) {
            return Response::failure(LVRemote::InvalidRequestFieldType, QStringLiteral("The field `transitionDuration` must be a number."));
        }
        const double ms = durationValue.toDouble();
        if (!(ms >= kMinDurationMs && ms <= kMaxDurationMs)) {
            return Response::failure(LVRemote::RequestFieldOutOfRange,
                                     QStringLiteral("The field `transitionDuration` must be from %1 to %2.").arg(kMinDurationMs).arg(kMaxDurationMs));
        }
        restoreTransitionTime_ = studio_->transitionTime();
        studio_->setTransitionTime(ms / 1000.0);
    }
    runningTransitionName_ = transitionName;
    if (nameValue.isUndefined()) {
        studio_->doTransition();
    } else {
        studio_->startTransition(transition);
    }
    return Response::success();
}

Response LVRemoteRequests::getTransitionKindList(const QJsonObject&)
{
    // Every catalogue transition is a kind of its own.
    QStringList kinds;
    for (const auto& factory : app_.transitions()) kinds.append(factory->name());
    kinds.sort(Qt::CaseInsensitive);
    return Response::success({{key("transitionKinds"), QJsonArray::fromStringList(kinds)}});
}

QJsonObject LVRemoteRequests::transitionObject(const QString& name) const
{
    return {
        {key("transitionName"), name},
        {key("transitionUuid"), transitionUuid(name)},
        {key("transitionKind"), name},
        {key("transitionFixed"), false},
        {key("transitionConfigurable"), false},
    };
}

int LVRemoteRequests::transitionDurationMs() const
{
    return studio_ ? int(std::lround(studio_->transitionTime() * 1000.0)) : 0;
}

Response LVRemoteRequests::getSceneTransitionList(const QJsonObject&)
{
    QJsonArray transitions;
    for (const QString& name : studio_->transitionNames()) transitions.append(transitionObject(name));
    const QString current = studio_->namedTransition();
    const bool none = current.isEmpty();
    return Response::success({
        {key("currentSceneTransitionName"), none ? QJsonValue(QJsonValue::Null) : QJsonValue(current)},
        {key("currentSceneTransitionUuid"), none ? QJsonValue(QJsonValue::Null) : QJsonValue(transitionUuid(current))},
        {key("currentSceneTransitionKind"), none ? QJsonValue(QJsonValue::Null) : QJsonValue(current)},
        {key("transitions"), transitions},
    });
}

Response LVRemoteRequests::getCurrentSceneTransition(const QJsonObject&)
{
    const QString current = studio_->namedTransition();
    if (current.isEmpty()) {
        return Response::failure(LVRemote::ResourceNotFound, QStringLiteral("No transitions are installed."));
    }
    QJsonObject data = transitionObject(current);
    data.insert(key("transitionDuration"), transitionDurationMs());
    data.insert(key("transitionSettings"), QJsonValue(QJsonValue::Null));
    return Response::success(data);
}

Response LVRemoteRequests::setCurrentSceneTransition(const QJsonObject& data)
{
    Response failure;
    if (!requireField(data, "transitionName", isString, "a string", &failure)) return failure;
    const QString name = data.value(key("transitionName")).toString();
    if (!studio_->setNamedTransition(name)) {
        return Response::failure(LVRemote::ResourceNotFound, QStringLiteral("No transition was found by the name of `%1`.").arg(name));
    }
    scheduleCheck();
    return Response::success();
}

Response LVRemoteRequests::setCurrentSceneTransitionDuration(const QJsonObject& data)
{
    Response failure;
    if (!requireField(data, "transitionDuration", isNumber, "a number", &failure)) return failure;
    const double ms = data.value(key("transitionDuration")).toDouble();
    if (!(ms >= kMinDurationMs && ms <= kMaxDurationMs)) {
        return Response::failure(LVRemote::RequestFieldOutOfRange,
                                 QStringLiteral("The field `transitionDuration` must be from %1 to %2.").arg(kMinDurationMs).arg(kMaxDurationMs));
    }
    // A running override would put its own time back at the end; the new time wins instead.
    if (restoreTransitionTime_) restoreTransitionTime_ = ms / 1000.0;
    studio_->setTransitionTime(ms / 1000.0);
    scheduleCheck();
    return Response::success();
}

Response LVRemoteRequests::getSceneItemList(const QJsonObject& data)
{
    Response failure;
    LVStudioButton* scene = sceneNamed(data, &failure);
    if (!scene) return failure;
    struct Item {
        QString name;
        QString className;
        bool enabled;
        bool source;
    };
    std::vector<Item> items;
    if (scene->effectsInstantiated()) {
        for (const LVEffectRef& effect : scene->effects()) {
            items.push_back({effect->displayName(), effect->descriptor().className, effect->isEnabled(), effect->isSource()});
        }
    } else {
        // Read from the setup as saved, so listing never builds effects (and their GL state).
        const bool firstIsSource = scene->hasVideoSource();
        for (const QByteArray& encoded : scene->setup()->encoded()) {
            const QJsonObject object = QJsonDocument::fromJson(encoded).object();
            const QString className = object.value(key("class")).toString();
            const QString name = object.value(key("name")).toString();
            items.push_back({name.isEmpty() ? className : name, className, object.value(key("enabled")).toBool(true),
                             items.empty() && firstIsSource});
        }
    }
    QJsonArray list;
    int index = 0;
    for (const Item& item : items) {
        list.append(QJsonObject{
            {key("sceneItemId"), index + 1},
            {key("sceneItemIndex"), index},
            {key("sourceName"), item.name},
            {key("sourceUuid"), QJsonValue(QJsonValue::Null)},
            {key("sourceType"), item.source ? key("OBS_SOURCE_TYPE_INPUT") : key("OBS_SOURCE_TYPE_FILTER")},
            {key("inputKind"), item.className},
            {key("isGroup"), false},
            {key("sceneItemEnabled"), item.enabled},
        });
        ++index;
    }
    return Response::success({{key("sceneItems"), list}});
}

Response LVRemoteRequests::getInputList(const QJsonObject& data)
{
    const QJsonValue kind = data.value(key("inputKind"));
    if (!kind.isUndefined() && !kind.isNull() && !kind.isString()) {
        return Response::failure(LVRemote::InvalidRequestFieldType, QStringLiteral("The field `inputKind` must be a string."));
    }
    QJsonArray inputs;
    for (const auto& factory : app_.sources()) {
        if (kind.isString() && factory->name() != kind.toString()) continue;
        inputs.append(QJsonObject{
            {key("inputName"), factory->name()},
            {key("inputUuid"), QJsonValue(QJsonValue::Null)},
            {key("inputKind"), factory->name()},
            {key("unversionedInputKind"), factory->name()},
        });
    }
    return Response::success({{key("inputs"), inputs}});
}

Response LVRemoteRequests::getHotkeyList(const QJsonObject&)
{
    const QStringList names = hotkeys_ ? hotkeys_->hotkeyNames() : QStringList();
    return Response::success({{key("hotkeys"), QJsonArray::fromStringList(names)}});
}

Response LVRemoteRequests::triggerHotkeyByName(const QJsonObject& data)
{
    Response failure;
    if (!requireField(data, "hotkeyName", isString, "a string", &failure)) return failure;
    const QString name = data.value(key("hotkeyName")).toString();
    if (!hotkeys_ || !hotkeys_->triggerHotkey(name)) {
        return Response::failure(LVRemote::ResourceNotFound, QStringLiteral("No hotkeys were found by the name of `%1`.").arg(name));
    }
    return Response::success();
}

Response LVRemoteRequests::sleepOutsideBatch(const QJsonObject&)
{
    return Response::failure(LVRemote::UnsupportedRequestBatchExecutionType,
                             QStringLiteral("Sleep works only inside a serial request batch."));
}
