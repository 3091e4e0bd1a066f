#include "app/LVRestart.h"

#include "core/LVEffect.h"
#include "core/Lumaveil.h"
#include "core/util/KDFileUtil.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>

#include <vector>

namespace {

// Far above any real chain (icons and images are stored by path, not inline).
constexpr qint64 kMaxChainBytes = 16 * 1024 * 1024;

} // namespace

QString LVRestartChainPath()
{
    return KDFileUtil::findApplicationSupportFor(QStringLiteral("Lumaveil")) + QStringLiteral("/restart-chain.json");
}

bool LVSaveChainForRestart(const Lumaveil& app, const QString& path, QString* error)
{
    QJsonArray chain;
    for (const LVEffectRef& effect : app.liveEffects()) {
        chain.append(QJsonDocument::fromJson(LVEffect::dataFromEffect(*effect)).object());
    }
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSaveFile file(path);
    const QByteArray bytes = QJsonDocument(chain).toJson(QJsonDocument::Compact);
    if (!file.open(QIODevice::WriteOnly) || !file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner) ||
        file.write(bytes) != bytes.size() || !file.commit()) {
        *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    return true;
}

bool LVRestoreChain(Lumaveil& app, const QString& path, QString* error)
{
    const QFileInfo info(path);
    if (info.isSymLink() || !info.isFile()) {
        *error = QStringLiteral("%1 is not a regular file").arg(path);
        return false;
    }
    if (info.size() > kMaxChainBytes) {
        *error = QStringLiteral("%1 is too large to be a chain (%2 bytes)").arg(path).arg(info.size());
        return false;
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("%1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(file.read(kMaxChainBytes), &parseError);
    file.close();
    if (!document.isArray()) {
        *error = QStringLiteral("%1 is not a saved chain (%2)").arg(path, parseError.errorString());
        return false;
    }
    std::vector<LVEffectRef> effects;
    for (const QJsonValue& archived : document.array()) {
        // An effect whose kind is gone since is left out; the others come back.
        if (LVEffectRef effect = LVEffect::effectFromData(QJsonDocument(archived.toObject()).toJson(), app.context()))
            effects.push_back(std::move(effect));
    }
    app.addEffectsFrom(effects, false, false);
    QFile::remove(path);
    return true;
}
