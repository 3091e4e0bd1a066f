#pragma once
// The catalogue of saved setups (every file of "Saved Setups"), the named sets that group
// them and the per-set grid positions the studio places buttons by. Sets hold the same
// setup objects as the catalogue, never copies. Sets and hints live in the preferences
// under "setupSets" and "allSetPositionHints", saved 0.1 s after the last change.
#include "core/LVSetupCatalog.h"
#include "setups/model/LVSavedSetup.h"

#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QTimer>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class LVDefaults;
class LVSetupManager;

struct LVSetupPositionHint {
    int32_t row = 0;
    int32_t col = 0;
};

class LVSetupManagerSet : public QObject {
    Q_OBJECT
public:
    // A set without a name is the all-setups set.
    explicit LVSetupManagerSet(LVSetupManager* manager, QString name = {});

    const std::vector<LVSavedSetupRef>& setups() const { return setups_; }
    const QString& name() const { return name_; }
    void setName(const QString& name) { name_ = name; }

    bool hasSetup(const LVSavedSetup* setup) const;
    bool hasSetupWithName(const QString& name) const;
    // Replaces a member of the same name, then appends.
    void addSetup(const LVSavedSetupRef& setup);
    void removeSetup(const LVSavedSetup* setup);
    void removeSetupWithName(const QString& name);

    // Stores {"row", "col"} under the setup name and asks the manager to save.
    void setPositionHintForSetup(const QString& setupName, int32_t row, int32_t col);
    std::optional<LVSetupPositionHint> positionHintForSetup(const QString& setupName) const;
    void removePositionHintForSetup(const QString& setupName) { hints_.remove(setupName); }
    void clearHints() { hints_ = {}; }
    const QJsonObject& encodedHints() const { return hints_; }
    void setEncodedHints(const QJsonObject& hints) { hints_ = hints; }

    // {"setupNames": [...], "positionHints": {...}}
    QJsonObject serialize() const;
    // Members are looked up by exact name in the catalogue; unknown names are dropped.
    void deserialize(const QJsonObject& stored);

signals:
    // Membership changed.
    void setupsChanged();
    // Members were reordered.
    void setupOrderChanged();

private:
    LVSetupManager* manager_;
    QString name_;
    std::vector<LVSavedSetupRef> setups_;
    QJsonObject hints_;
};

class LVSetupManager : public QObject, public LVSetupCatalog {
    Q_OBJECT
public:
    // context is handed to the setups it reads; setupDir defaults to defaultSavedSetupDir().
    // defaults must outlive the manager, which writes a pending save when it goes.
    LVSetupManager(LVDefaults& defaults, LVContext* context, QString setupDir = {});
    // Writes a save that is still pending, so a quick quit loses no set change.
    ~LVSetupManager() override;

    // "<data folder>/Lumaveil/Saved Setups".
    static QString defaultSavedSetupDir();

    // Once at start: the folder scan, then the stored sets and hints.
    void startup();
    // Reads every file at the top of the folder (not hidden, not a folder), in
    // case-insensitive name order, into the all-setups set.
    void loadSetups();

    QString savedSetupDir() const { return setupDir_; }
    QString savedSetupPathForName(const QString& name) const;

    // Writes a new setup at once (replacing a file of that name; an unreadable one is kept
    // aside first) and registers it. An unusable file name gives nothing, with the reason
    // in error when given.
    LVSavedSetupRef newSavedSetupWithName(const QString& name, const std::vector<LVEffectRef>& effects,
                                          QString* error = nullptr);
    // Into the all-setups set, the current set and every set that has a member of that name.
    void addSavedSetup(const LVSavedSetupRef& setup);
    // Out of every set. The file and the position hints stay; the caller unlinks.
    void removeSavedSetup(const LVSavedSetup* setup);
    // The user's rename: refuses a name another setup has, renames the file, moves the
    // setup's position hints in every set and saves the sets, whose members are stored by name.
    bool renameSavedSetup(const LVSavedSetupRef& setup, const QString& name, QString* error = nullptr);
    bool hasSetupWithName(const QString& name) const { return allSet_->hasSetupWithName(name); }
    // The all-setups set's member of that exact name.
    LVSavedSetupRef setupWithName(const QString& name) const;

    const std::vector<LVSavedSetupRef>& allSetups() const { return allSet_->setups(); }
    const std::vector<std::unique_ptr<LVSetupManagerSet>>& allSets() const { return allSets_; }
    LVSetupManagerSet* allSet() const { return allSet_.get(); }
    LVSetupManagerSet* setWithName(const QString& name) const;
    // The set of that name, made when there is none.
    LVSetupManagerSet* addSet(const QString& name);
    void removeSet(const QString& name);
    // An empty name selects the all-setups set.
    void selectSetWithName(const QString& name);
    // The selected named set, else the all-setups set.
    LVSetupManagerSet* currentSet() const { return currentSet_ ? currentSet_ : allSet_.get(); }

    // Requests the deferred save of sets and hints.
    void persist();
    bool needsPersist() const { return bNeedsPersist_; }
    // Runs a pending save now.
    void flushPendingSave();

    // The icon snapshot's picture: the controller supplies the current frame.
    void setFrameGrabber(std::function<QImage()> grabber) { frameGrabber_ = std::move(grabber); }
    QImage currentFrame() const { return frameGrabber_ ? frameGrabber_() : QImage(); }

    std::optional<std::vector<LVEffectRef>> effectsOfNamedSetup(const QString& name, LVContext* context) override;
    std::optional<std::vector<LVEffectRef>> effectsOfSetupAtPath(const QString& path, LVContext* context) override;

signals:
    void allSetsChanged();
    void allSetupsChanged();
    void currentSetChanged();

private:
    void watchSet(LVSetupManagerSet* set);
    void doMembershipChanged();
    void doSetupOrderChanged() { persist(); }
    void _delayedPersist();

    LVDefaults& defaults_;
    LVContext* context_;
    QString setupDir_;
    std::vector<std::unique_ptr<LVSetupManagerSet>> allSets_;
    LVSetupManagerSet* currentSet_ = nullptr;
    std::unique_ptr<LVSetupManagerSet> allSet_;
    bool bNeedsPersist_ = false;
    QTimer persistTimer_;
    std::function<QImage()> frameGrabber_;
};
