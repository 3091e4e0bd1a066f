#include "setups/model/LVSetupManager.h"

#include "core/LVDefaults.h"
#include "core/util/KDFileUtil.h"
#include "core/util/LVLog.h"

#include <dirent.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>

#include <algorithm>

namespace {

const QString kSetupSets = QStringLiteral("setupSets");
// The sets' order, which the "setupSets" dictionary cannot keep.
const QString kSetupSetOrder = QStringLiteral("setupSetOrder");
const QString kAllSetPositionHints = QStringLiteral("allSetPositionHints");
const QString kSetupNames = QStringLiteral("setupNames");
const QString kPositionHints = QStringLiteral("positionHints");
const QString kRow = QStringLiteral("row");
const QString kCol = QStringLiteral("col");

constexpr int kPersistDelayMs = 100;

} // namespace

LVSetupManagerSet::LVSetupManagerSet(LVSetupManager* manager, QString name) : manager_(manager), name_(std::move(name))
{
    setups_.reserve(10);
}

bool LVSetupManagerSet::hasSetup(const LVSavedSetup* setup) const
{
    return std::any_of(setups_.begin(), setups_.end(), [&](const auto& s) { return s.get() == setup; });
}

bool LVSetupManagerSet::hasSetupWithName(const QString& name) const
{
    return std::any_of(setups_.begin(), setups_.end(), [&](const auto& s) { return s->name() == name; });
}

void LVSetupManagerSet::addSetup(const LVSavedSetupRef& setup)
{
    if (!setup) return;
    removeSetupWithName(setup->name());
    setups_.push_back(setup);
    emit setupsChanged();
}

void LVSetupManagerSet::removeSetup(const LVSavedSetup* setup)
{
    const size_t before = setups_.size();
    std::erase_if(setups_, [&](const auto& s) { return s.get() == setup; });
    if (setups_.size() != before) emit setupsChanged();
}

void LVSetupManagerSet::removeSetupWithName(const QString& name)
{
    const auto it = std::find_if(setups_.begin(), setups_.end(), [&](const auto& s) { return s->name() == name; });
    if (it == setups_.end()) return;
    setups_.erase(it);
    emit setupsChanged();
}

void LVSetupManagerSet::setPositionHintForSetup(const QString& setupName, int32_t row, int32_t col)
{
    hints_.insert(setupName, QJsonObject{{kRow, row}, {kCol, col}});
    if (manager_) manager_->persist();
}

std::optional<LVSetupPositionHint> LVSetupManagerSet::positionHintForSetup(const QString& setupName) const
{
    const QJsonValue hint = hints_.value(setupName);
    if (!hint.isObject()) return std::nullopt;
    const QJsonObject object = hint.toObject();
    return LVSetupPositionHint{int32_t(object.value(kRow).toInt()), int32_t(object.value(kCol).toInt())};
}

QJsonObject LVSetupManagerSet::serialize() const
{
    QJsonArray names;
    for (const auto& setup : setups_) names.append(setup->name());
    return QJsonObject{{kSetupNames, names}, {kPositionHints, hints_}};
}

void LVSetupManagerSet::deserialize(const QJsonObject& stored)
{
    const QJsonArray names = stored.value(kSetupNames).toArray();
    for (const QJsonValue& name : names) {
        if (LVSavedSetupRef setup = manager_ ? manager_->setupWithName(name.toString()) : nullptr) addSetup(setup);
    }
    if (stored.value(kPositionHints).isObject()) setEncodedHints(stored.value(kPositionHints).toObject());
}

LVSetupManager::LVSetupManager(LVDefaults& defaults, LVContext* context, QString setupDir)
    : defaults_(defaults),
      context_(context),
      setupDir_(setupDir.isEmpty() ? defaultSavedSetupDir() : std::move(setupDir)),
      allSet_(std::make_unique<LVSetupManagerSet>(this))
{
    allSets_.reserve(5);
    persistTimer_.setSingleShot(true);
    persistTimer_.setInterval(kPersistDelayMs);
    connect(&persistTimer_, &QTimer::timeout, this, [this] { _delayedPersist(); });
}

LVSetupManager::~LVSetupManager()
{
    flushPendingSave();
}

QString LVSetupManager::defaultSavedSetupDir()
{
    return KDFileUtil::findApplicationSupportFor(QStringLiteral("Lumaveil")) + QStringLiteral("/Saved Setups");
}

void LVSetupManager::startup()
{
    loadSetups();
    const QJsonObject stored = defaults_.dictionaryForKey(kSetupSets);
    QStringList order;
    for (const QJsonValue& name : defaults_.valueForKey(kSetupSetOrder).toArray()) {
        if (stored.contains(name.toString()) && !order.contains(name.toString())) order.append(name.toString());
    }
    for (const QString& name : stored.keys()) {
        if (!order.contains(name)) order.append(name);
    }
    for (const QString& name : order) addSet(name)->deserialize(stored.value(name).toObject());
    const QJsonValue allHints = defaults_.valueForKey(kAllSetPositionHints);
    if (allHints.isObject()) allSet_->setEncodedHints(allHints.toObject());
    connect(allSet_.get(), &LVSetupManagerSet::setupOrderChanged, this, [this] { doSetupOrderChanged(); });
    emit currentSetChanged();
}

namespace {

// The folder's file names. Names that begin with "." (our own kept-aside files too) stay out;
// so do names that are not UTF-8, which no setup name can match, with a line saying so.
QStringList setupFileNames(const QString& folder)
{
    QStringList names;
    DIR* dir = opendir(QFile::encodeName(folder).constData());
    if (!dir) return names;
    while (const dirent* entry = readdir(dir)) {
        const QByteArray raw(entry->d_name);
        if (raw.startsWith('.')) continue;
        const QString name = QString::fromUtf8(raw);
        if (name.toUtf8() != raw) {
            LVLog("Saved setup file \"%s\" in %s skipped: its name is not UTF-8; rename it to use it",
                  raw.toPercentEncoding(" !#$&'()+,;=@[]^`{}~").constData(), qPrintable(folder));
            continue;
        }
        // Anything but a folder: what is not a setup file is refused with a word when read.
        if (!QFileInfo(folder + QLatin1Char('/') + name).isDir()) names.append(name);
    }
    closedir(dir);
    return names;
}

} // namespace

void LVSetupManager::loadSetups()
{
    const QDir folder(setupDir_);
    const QStringList names = setupFileNames(setupDir_);
    std::vector<LVSavedSetupRef> loaded;
    loaded.reserve(size_t(names.size()));
    for (const QString& name : names) {
        auto setup = std::make_shared<LVSavedSetup>(context_, folder.filePath(name));
        if (setup->fileForm() == LVSavedSetup::FileForm::Unreadable) {
            LVLog("Saved setup %s %s; left as it is", qPrintable(setup->path()), qPrintable(setup->loadError()));
        }
        loaded.push_back(std::move(setup));
    }
    std::sort(loaded.begin(), loaded.end(), [](const auto& a, const auto& b) { return LVSavedSetup::lessThan(a, b); });
    {
        const QSignalBlocker quiet(allSet_.get());
        for (const auto& setup : loaded) allSet_->addSetup(setup);
    }
    emit allSetupsChanged();
}

QString LVSetupManager::savedSetupPathForName(const QString& name) const
{
    return setupDir_ + QLatin1Char('/') + name;
}

LVSavedSetupRef LVSetupManager::newSavedSetupWithName(const QString& name, const std::vector<LVEffectRef>& effects,
                                                      QString* error)
{
    const QString problem = LVSavedSetup::nameProblem(name);
    if (!problem.isEmpty()) {
        LVLog("newSavedSetupWithName: %s", qPrintable(problem));
        if (error) *error = problem;
        return nullptr;
    }
    const QString path = savedSetupPathForName(name);
    // Saving over a file that never read as a setup keeps that file's bytes aside.
    if (const LVSavedSetupRef old = setupWithName(name);
        old && old->fileForm() == LVSavedSetup::FileForm::Unreadable && QFileInfo::exists(path)) {
        const QString aside = LVSavedSetup::unreadableBackupPath(path);
        if (!QFile::rename(path, aside)) {
            LVLog("newSavedSetupWithName: cannot move %s aside to %s", qPrintable(path), qPrintable(aside));
            if (error) *error = QStringLiteral("The unreadable file %1 could not be kept aside.").arg(path);
            return nullptr;
        }
    }
    auto setup = std::make_shared<LVSavedSetup>(effects, path);
    if (!setup->persist()) {
        if (error) *error = QStringLiteral("The setup \"%1\" could not be written to %2.").arg(name, setupDir_);
        return nullptr;
    }
    addSavedSetup(setup);
    return setup;
}

void LVSetupManager::addSavedSetup(const LVSavedSetupRef& setup)
{
    allSet_->addSetup(setup);
    emit allSetupsChanged();
    for (const auto& set : allSets_) {
        if (set.get() == currentSet_ || set->hasSetupWithName(setup->name())) set->addSetup(setup);
    }
    emit currentSetChanged();
}

void LVSetupManager::removeSavedSetup(const LVSavedSetup* setup)
{
    allSet_->removeSetup(setup);
    emit allSetupsChanged();
    for (const auto& set : allSets_) set->removeSetup(setup);
    emit currentSetChanged();
}

bool LVSetupManager::renameSavedSetup(const LVSavedSetupRef& setup, const QString& name, QString* error)
{
    if (name == setup->name()) return true;
    QString problem = LVSavedSetup::nameProblem(name);
    if (problem.isEmpty() && hasSetupWithName(name)) {
        problem = QStringLiteral("A setup named \"%1\" already exists.").arg(name);
    }
    if (!problem.isEmpty()) {
        if (error) *error = problem;
        return false;
    }
    const QString oldName = setup->name();
    if (!setup->setName(name)) {
        if (error) *error = QStringLiteral("The setup \"%1\" could not be renamed in %2.").arg(oldName, setupDir_);
        return false;
    }
    std::vector<LVSetupManagerSet*> sets{allSet_.get()};
    for (const auto& set : allSets_) sets.push_back(set.get());
    for (LVSetupManagerSet* set : sets) {
        if (const auto hint = set->positionHintForSetup(oldName)) {
            set->removePositionHintForSetup(oldName);
            set->setPositionHintForSetup(name, hint->row, hint->col);
        }
    }
    persist();
    emit currentSetChanged();
    return true;
}

LVSavedSetupRef LVSetupManager::setupWithName(const QString& name) const
{
    for (const auto& setup : allSet_->setups()) {
        if (setup->name() == name) return setup;
    }
    return nullptr;
}

LVSetupManagerSet* LVSetupManager::setWithName(const QString& name) const
{
    if (name.isEmpty()) return nullptr;
    for (const auto& set : allSets_) {
        if (set->name() == name) return set.get();
    }
    return nullptr;
}

LVSetupManagerSet* LVSetupManager::addSet(const QString& name)
{
    if (LVSetupManagerSet* existing = setWithName(name)) return existing;
    allSets_.push_back(std::make_unique<LVSetupManagerSet>(this, name));
    LVSetupManagerSet* set = allSets_.back().get();
    watchSet(set);
    emit allSetsChanged();
    return set;
}

void LVSetupManager::watchSet(LVSetupManagerSet* set)
{
    connect(set, &LVSetupManagerSet::setupsChanged, this, [this] { doMembershipChanged(); });
    connect(set, &LVSetupManagerSet::setupOrderChanged, this, [this] { doSetupOrderChanged(); });
}

void LVSetupManager::removeSet(const QString& name)
{
    const auto it = std::find_if(allSets_.begin(), allSets_.end(), [&](const auto& s) { return s->name() == name; });
    if (it == allSets_.end()) return;
    disconnect(it->get(), nullptr, this, nullptr);
    const bool wasCurrent = it->get() == currentSet_;
    if (wasCurrent) currentSet_ = nullptr;
    // Out of the list before it goes, so nobody reached by the signals sees it.
    std::unique_ptr<LVSetupManagerSet> removed = std::move(*it);
    allSets_.erase(it);
    if (wasCurrent) emit currentSetChanged();
    emit allSetsChanged();
}

void LVSetupManager::selectSetWithName(const QString& name)
{
    currentSet_ = setWithName(name);
    emit currentSetChanged();
}

void LVSetupManager::persist()
{
    if (bNeedsPersist_) return;
    bNeedsPersist_ = true;
    persistTimer_.start();
}

void LVSetupManager::flushPendingSave()
{
    if (!bNeedsPersist_) return;
    persistTimer_.stop();
    _delayedPersist();
}

void LVSetupManager::doMembershipChanged()
{
    persist();
    emit currentSetChanged();
}

void LVSetupManager::_delayedPersist()
{
    bNeedsPersist_ = false;
    QJsonObject sets;
    QJsonArray order;
    for (const auto& set : allSets_) {
        sets.insert(set->name(), set->serialize());
        order.append(set->name());
    }
    defaults_.setValue(kSetupSets, sets);
    defaults_.setValue(kSetupSetOrder, order);
    defaults_.setValue(kAllSetPositionHints, allSet_->encodedHints());
}

std::optional<std::vector<LVEffectRef>> LVSetupManager::effectsOfNamedSetup(const QString& name, LVContext* context)
{
    for (const auto& setup : currentSet()->setups()) {
        if (setup->name() != name) continue;
        // Refused as a setup file given by path is: an unreadable setup is no empty chain.
        if (setup->fileForm() == LVSavedSetup::FileForm::Unreadable) {
            LVLog("Saved setup %s %s; not loaded", qPrintable(setup->path()), qPrintable(setup->loadError()));
            return std::nullopt;
        }
        return setup->instantiateWithContext(context);
    }
    return std::nullopt;
}

std::optional<std::vector<LVEffectRef>> LVSetupManager::effectsOfSetupAtPath(const QString& path, LVContext* context)
{
    const LVSavedSetup setup(context, path);
    if (setup.fileForm() == LVSavedSetup::FileForm::Unreadable) {
        LVLog("Setup file %s %s", qPrintable(path), qPrintable(setup.loadError()));
        return std::nullopt;
    }
    return setup.instantiateWithContext(context);
}
