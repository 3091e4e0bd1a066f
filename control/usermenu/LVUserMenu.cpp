#include "control/usermenu/LVUserMenu.h"

#include "automation/LVTimeLineManager.h"
#include "core/LVDefaults.h"
#include "core/Lumaveil.h"
#include "core/util/LVLog.h"
#include "setups/model/LVSetupManager.h"
#include "studio/LVStudio.h"

#include <QJsonArray>

namespace {

// Qt's special keys (arrows, function keys, Home...) sit above the character range; they
// carry the Function bit as the recorder always stored it.
constexpr int firstSpecialKey = 0x01000000;

} // namespace

LVKeyCombo LVKeyComboFromQt(int key, int modifiers)
{
    uint64_t flags = 0;
    if (modifiers & Qt::ShiftModifier) flags |= LVKeyFlags::shift;
    if (modifiers & Qt::ControlModifier) flags |= LVKeyFlags::control;
    if (modifiers & Qt::AltModifier) flags |= LVKeyFlags::option;
    if (modifiers & Qt::MetaModifier) flags |= LVKeyFlags::command;
    if (key >= firstSpecialKey) flags |= LVKeyFlags::function;
    return {flags, key};
}

int LVQtModifiersFromFlags(uint64_t flags)
{
    int modifiers = 0;
    if (flags & LVKeyFlags::shift) modifiers |= Qt::ShiftModifier;
    if (flags & LVKeyFlags::control) modifiers |= Qt::ControlModifier;
    if (flags & LVKeyFlags::option) modifiers |= Qt::AltModifier;
    if (flags & LVKeyFlags::command) modifiers |= Qt::MetaModifier;
    return modifiers;
}

QKeySequence LVKeySequenceForCombo(const LVKeyCombo& combo)
{
    if (combo.code < 0 || combo.code > 0x7FFFFFFF) return {};
    return QKeySequence(QKeyCombination(Qt::KeyboardModifiers(LVQtModifiersFromFlags(combo.flags)), Qt::Key(combo.code)));
}

// MARK: entries

bool LVUserMenuItem::dispatchWithEvent(int key, int modifiers, const LVUserMenuTargets& targets)
{
    (void)modifiers; // read, never compared: only the stored word counts
    if (!exclusive_ || combo_.code != int64_t(key) || combo_.flags != LVKeyFlags::exclusiveRaw) return false;
    if (action_) action_->invoke(targets);
    return true;
}

void LVUserMenuItem::setCombo(const LVKeyCombo& combo)
{
    combo_ = combo;
    shortcutString_ = hasShortcut() ? LVKeySequenceForCombo(combo).toString(QKeySequence::NativeText) : QString();
}

std::optional<LVUserMenuItem::MenuItem> LVUserMenuItem::menuItem() const
{
    if (!action_) return std::nullopt;
    return MenuItem{action_->summary(), hasShortcut() ? LVKeySequenceForCombo(combo_) : QKeySequence()};
}

QJsonObject LVUserMenuItem::encode() const
{
    QJsonObject archive{{QStringLiteral("class"), QStringLiteral("LVUserMenuItem")},
                        {QStringLiteral("code"), qint64(int32_t(combo_.code))},
                        {QStringLiteral("flags"), qint64(int32_t(uint32_t(combo_.flags)))},
                        {QStringLiteral("exclusive"), exclusive_}};
    if (action_) archive.insert(QStringLiteral("action"), action_->encode());
    return archive;
}

std::unique_ptr<LVUserMenuItem> LVUserMenuItem::decode(const QJsonObject& archive)
{
    auto item = std::make_unique<LVUserMenuItem>();
    const LVKeyCombo combo{uint64_t(uint32_t(archive.value(QStringLiteral("flags")).toInteger(0))),
                           int64_t(int32_t(archive.value(QStringLiteral("code")).toInteger(-1)))};
    item->setCombo(combo);
    item->setExclusive(archive.value(QStringLiteral("exclusive")).toBool());
    const QJsonValue action = archive.value(QStringLiteral("action"));
    if (action.isObject()) item->setAction(LVUserMenuAction::decode(action.toObject()));
    return item;
}

// MARK: the menu

LVUserMenu::LVUserMenu(LVDefaults& defaults, LVUserMenuTargets targets, LVSetupManager* setups)
    : defaults_(defaults), targets_(targets), setups_(setups)
{
}

void LVUserMenu::awakeFromNib()
{
    entries_.clear();
    const QJsonValue stored = defaults_.valueForKey(QString::fromLatin1(defaultsKey));
    if (!stored.isUndefined() && !stored.isNull() && !stored.isArray()) {
        LVLog("User menu: the stored \"%s\" is not a list; starting empty", defaultsKey);
    }
    for (const QJsonValue& entry : stored.toArray()) entries_.push_back(LVUserMenuItem::decode(entry.toObject()));
    rebuildMenu();
}

void LVUserMenu::bootstrap()
{
    if (setups_) connect(setups_, &LVSetupManager::allSetupsChanged, this, &LVUserMenu::setupsRefreshed);
    if (targets_.timeLines) {
        connect(targets_.timeLines, &LVTimeLineManager::allTimeLinesChanged, this, &LVUserMenu::timeLinesRefreshed);
        connect(targets_.timeLines, &LVTimeLineManager::timeLineChanged, this, &LVUserMenu::timeLinesRefreshed);
    }
    emit setupsRefreshed();
    emit transitionsRefreshed();
    emit timeLinesRefreshed();
}

LVUserMenuItem* LVUserMenu::entryAt(int index) const
{
    return index >= 0 && size_t(index) < entries_.size() ? entries_[size_t(index)].get() : nullptr;
}

int LVUserMenu::addEntry()
{
    entries_.push_back(std::make_unique<LVUserMenuItem>());
    rebuildMenu();
    return int(entries_.size()) - 1;
}

void LVUserMenu::removeEntryAt(int index)
{
    if (!entryAt(index)) return;
    entries_.erase(entries_.begin() + index);
    rebuildMenu();
}

void LVUserMenu::rebuildMenu()
{
    QJsonArray list;
    for (const auto& entry : entries_) list.append(entry->encode());
    defaults_.setValue(QString::fromLatin1(defaultsKey), list);
    emit menuRebuilt();
}

void LVUserMenu::setCurrentAction(int index, std::unique_ptr<LVUserMenuAction> action)
{
    LVUserMenuItem* entry = entryAt(index);
    if (!entry) return;
    entry->setAction(std::move(action));
    rebuildMenu();
}

void LVUserMenu::shortcutRecorderKeyComboDidChange(int index, const LVKeyCombo& combo)
{
    LVUserMenuItem* entry = entryAt(index);
    if (!entry) return;
    entry->setCombo(combo);
    rebuildMenu();
}

void LVUserMenu::doSetExclusiveAccess(int index, bool exclusive)
{
    if (LVUserMenuItem* entry = entryAt(index)) entry->setExclusive(exclusive);
}

bool LVUserMenu::dispatchWithEvent(int key, int modifiers)
{
    for (const auto& entry : entries_) {
        if (entry->dispatchWithEvent(key, modifiers, targets_)) return true;
    }
    return false;
}

bool LVUserMenu::invokeEntry(int index)
{
    LVUserMenuItem* entry = entryAt(index);
    if (!entry || !entry->action()) return false;
    entry->action()->invoke(targets_);
    return true;
}

std::vector<LVUserMenu::Listing> LVUserMenu::listing() const
{
    std::vector<Listing> result;
    for (size_t i = 0; i < entries_.size(); ++i) {
        const LVUserMenuItem& entry = *entries_[i];
        result.push_back({int(i), entry.action() ? entry.action()->summary() : QString(), entry.shortcutString(),
                          entry.isExclusive()});
    }
    return result;
}

QStringList LVUserMenu::setupNames() const
{
    QStringList names;
    if (setups_) {
        for (const LVSavedSetupRef& setup : setups_->allSetups()) names.append(setup->name());
    }
    return names;
}

QStringList LVUserMenu::transitionChoices() const
{
    QStringList names{QString::fromLatin1(LVStudioTransitionMenuAction::defaultTransition)};
    if (targets_.app) {
        for (const auto& factory : targets_.app->transitions()) names.append(factory->name());
    }
    return names;
}

QStringList LVUserMenu::timeLineNames() const
{
    return targets_.timeLines ? targets_.timeLines->timeLineNames() : QStringList();
}
