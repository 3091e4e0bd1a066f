#include "control/usermenu/LVUserMenuActions.h"

#include "automation/LVTimeLineItems.h"
#include "automation/LVTimeLineManager.h"
#include "core/LVStrokeReceiver.h"
#include "core/Lumaveil.h"
#include "core/util/LVBoundedRead.h"
#include "core/util/LVLog.h"
#include "effects/script/LVScriptRunner.h"
#include "studio/LVMEBus.h"
#include "studio/LVStudio.h"
#include "studio/LVStudioButton.h"

#include <QFileInfo>
#include <QUrl>

namespace {

const QString kClass = QStringLiteral("class");
const QString kName = QStringLiteral("name");

LVStudio* studioOf(const LVUserMenuTargets& targets)
{
    return targets.app ? LVStudio::of(*targets.app) : nullptr;
}

} // namespace

QJsonObject LVUserMenuAction::encode() const
{
    QJsonObject archive{{kClass, className()}};
    encode(archive);
    return archive;
}

std::unique_ptr<LVUserMenuAction> LVUserMenuAction::decode(const QJsonObject& archive)
{
    const QString className = archive.value(kClass).toString();
    const QString name = archive.value(kName).toString();
    if (className == QLatin1String("LVSavedSetupMenuAction")) {
        return std::make_unique<LVSavedSetupMenuAction>(name, archive.value(QStringLiteral("merge")).toBool());
    }
    if (className == QLatin1String("LVStudioToggleMenuAction")) return std::make_unique<LVStudioToggleMenuAction>(name);
    if (className == QLatin1String("LVStudioTransitionMenuAction")) {
        return std::make_unique<LVStudioTransitionMenuAction>(name);
    }
    if (className == QLatin1String("LVTimeLineMenuAction")) return std::make_unique<LVTimeLineMenuAction>(name);
    if (className == QLatin1String("LVStopTimeLineMenuAction")) return std::make_unique<LVStopTimeLineMenuAction>(name);
    if (className == QLatin1String("LVStudioSelectorMenuAction")) {
        return std::make_unique<LVStudioSelectorMenuAction>(name, archive.value(QStringLiteral("action")).toString());
    }
    if (className == QLatin1String("LVAppleScriptMenuAction")) {
        return std::make_unique<LVAppleScriptMenuAction>(QUrl(archive.value(QStringLiteral("url")).toString()).toLocalFile());
    }
    if (className == QLatin1String("LVClearTelestratorMenuAction")) return std::make_unique<LVClearTelestratorMenuAction>();
    if (className == QLatin1String("LVRecordMenuAction")) {
        return std::make_unique<LVRecordMenuAction>(archive.value(QStringLiteral("start")).toBool());
    }
    if (className == QLatin1String("LVUserMenuAction")) return std::make_unique<LVUserMenuAction>();
    if (!className.isEmpty()) LVLog("User menu: unknown action \"%s\" dropped", qPrintable(className));
    return nullptr;
}

void LVRecordMenuAction::invoke(const LVUserMenuTargets&)
{
    QString error;
    if (!LVTimeLineRecord::setRecording(start_, &error)) LVLog("User menu \"%s\": %s", qPrintable(summary()), qPrintable(error));
}

void LVRecordMenuAction::encode(QJsonObject& archive) const
{
    archive.insert(QStringLiteral("start"), start_);
}

void LVSavedSetupMenuAction::invoke(const LVUserMenuTargets& targets)
{
    if (targets.app) targets.app->loadNamedSetup(name_, merge_);
}

QString LVSavedSetupMenuAction::summary() const
{
    return QStringLiteral("%1 setup \"%2\"").arg(merge_ ? QStringLiteral("Merge") : QStringLiteral("Load"), name_);
}

void LVSavedSetupMenuAction::encode(QJsonObject& archive) const
{
    archive.insert(kName, name_);
    archive.insert(QStringLiteral("merge"), merge_);
}

void LVStudioToggleMenuAction::invoke(const LVUserMenuTargets& targets)
{
    LVStudio* studio = studioOf(targets);
    if (!studio) return;
    if (const LVStudioButtonRef button = studio->buttonHavingName(name_)) button->doNormalToggle();
}

void LVStudioToggleMenuAction::encode(QJsonObject& archive) const
{
    archive.insert(kName, name_);
}

void LVStudioTransitionMenuAction::invoke(const LVUserMenuTargets& targets)
{
    LVStudio* studio = studioOf(targets);
    if (!studio) return;
    if (name_ != QLatin1String(defaultTransition)) studio->setNamedTransition(name_);
    studio->doTransition();
}

QString LVStudioTransitionMenuAction::summary() const
{
    if (name_ == QLatin1String(defaultTransition)) return QStringLiteral("Studio Transition");
    return QStringLiteral("Studio Transition \"%1\"").arg(name_);
}

void LVStudioTransitionMenuAction::encode(QJsonObject& archive) const
{
    archive.insert(kName, name_);
}

LVTimeLineMenuAction::LVTimeLineMenuAction(const LVTimeLine& timeLine) : name_(timeLine.name()) {}

LVTimeLine* LVTimeLineMenuAction::timeLine(const LVUserMenuTargets& targets) const
{
    return targets.timeLines ? targets.timeLines->timeLineWithName(name_) : nullptr;
}

void LVTimeLineMenuAction::invoke(const LVUserMenuTargets& targets)
{
    if (LVTimeLine* found = timeLine(targets)) found->setRunning(true);
}

void LVTimeLineMenuAction::encode(QJsonObject& archive) const
{
    archive.insert(kName, name_);
}

void LVStopTimeLineMenuAction::invoke(const LVUserMenuTargets& targets)
{
    if (LVTimeLine* found = timeLine(targets)) found->setRunning(false);
}

void LVStudioSelectorMenuAction::invoke(const LVUserMenuTargets& targets)
{
    LVStudio* studio = studioOf(targets);
    if (!studio) return;
    if (operation_ == QLatin1String(cutOperation)) {
        studio->doCut();
    } else if (operation_ == QLatin1String(clearOperation)) {
        studio->doClear();
    }
}

void LVStudioSelectorMenuAction::encode(QJsonObject& archive) const
{
    archive.insert(kName, name_);
    archive.insert(QStringLiteral("action"), operation_);
}

LVAppleScriptMenuAction::LVAppleScriptMenuAction(QString path) : path_(std::move(path))
{
    QByteArray bytes;
    QString error;
    if (!LVReadRegularFile(path_, maxScriptBytes, &bytes, &error)) {
        LVLog("User menu: script %s: %s", qPrintable(path_), qPrintable(error));
        return;
    }
    const QString interpreter = LVScriptRunner::interpreter();
    if (const auto refused = LVScriptRunner::checkSyntax(interpreter, QString::fromUtf8(bytes))) {
        LVLog("User menu: script %s: %s", qPrintable(path_), qPrintable(refused->fullMessage));
        return;
    }
    script_ = bytes;
}

void LVAppleScriptMenuAction::invoke(const LVUserMenuTargets&)
{
    // Errors of the script itself are its own business.
    if (script_) LVScriptRunner::shared().run(LVScriptRunner::interpreter(), *script_, {});
}

QString LVAppleScriptMenuAction::summary() const
{
    return QStringLiteral("AppleScript \"%1\"").arg(QFileInfo(path_).fileName());
}

void LVAppleScriptMenuAction::encode(QJsonObject& archive) const
{
    archive.insert(QStringLiteral("url"), QUrl::fromLocalFile(path_).toString());
}

void LVClearTelestratorMenuAction::invoke(const LVUserMenuTargets& targets)
{
    if (!targets.app) return;
    std::vector<LVEffectRef> effects = targets.app->liveEffects();
    if (LVStudio* studio = studioOf(targets)) {
        for (const LVStudioButtonRef& button : studio->mainBus().previewButtons()) {
            effects.insert(effects.end(), button->effects().begin(), button->effects().end());
        }
    }
    for (const LVEffectRef& effect : effects) {
        if (auto* strokes = dynamic_cast<LVStrokeReceiver*>(effect.get())) strokes->clearStrokes();
    }
}
