#pragma once
// One saved setup: a named, stored effect chain, one JSON file per setup whose file name
// is the setup's name. The setup holds each effect's archived bytes, never live effects,
// so the same setup can be instantiated any number of times, and an effect kind this
// build does not know survives load, save and rename byte for byte.
#include "core/LVProxy.h"

#include <QByteArray>
#include <QImage>
#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>

#include <cstdint>
#include <memory>
#include <vector>

class LVContext;
class LVSavedSetup;

using LVSavedSetupRef = std::shared_ptr<LVSavedSetup>;

class LVSavedSetup : public QObject {
    Q_OBJECT
public:
    // How the file looked when it was read.
    enum class FileForm {
        None,        // made from live effects, not read from a file
        Dictionary,  // {"encoded": [...], "midiKey": n, "icon": PNG}
        LegacyArray, // [...]: rewritten as a dictionary at the first persist
        Unreadable,  // damaged or not a setup: kept aside before it is ever overwritten
    };

    static constexpr int iconSize = 64;

    // Loads the setup file at path. Only blob 0's class is looked up, for hasVideoSource;
    // nothing is instantiated.
    LVSavedSetup(LVContext* context, const QString& path);
    // A new setup at path from live effects; nothing is written until persist().
    LVSavedSetup(const std::vector<LVEffectRef>& effects, const QString& path);

    // Archives the effects in chain order, replacing the stored ones. Does not persist.
    void setEffects(const std::vector<LVEffectRef>& effects);
    // New effect objects decoded from the stored bytes, each marked with this setup's
    // name; blobs that no longer decode are left out.
    std::vector<LVEffectRef> instantiateWithContext(LVContext* context) const;

    // Writes the file atomically in the dictionary form. An unreadable file found at the
    // path is first moved aside (see unreadableBackupPath). Answers false and logs on failure.
    bool persist();
    // Deletes the file.
    void unlink();

    // Renames: the file is written under the new name in the same folder, then the old
    // one is deleted. An unreadable file is moved as it is. Does not check whether another
    // setup has the name: an existing file of that name is replaced. When the file cannot
    // be written or moved, the setup keeps its old name and answers false.
    bool setName(const QString& name);
    // Stores and persists at once.
    void setMidiKey(uint32_t midiKey);
    // Stores only; the caller persists.
    void setIcon(const QImage& icon);
    // Stores the icon made from a rendered frame and persists.
    void snapshotIcon(const QImage& frame);
    // Copies the other setup's effects, icon and MIDI key (so both answer the same key)
    // and writes this setup's own file.
    void duplicateFrom(const LVSavedSetup& other);

    const QString& name() const { return name_; }
    const QString& path() const { return path_; }
    uint32_t midiKey() const { return midiKey_; }
    bool hasVideoSource() const { return hasVideoSource_; }
    int numEffects() const { return int(encoded_.size()); }
    const QList<QByteArray>& encoded() const { return encoded_; }
    // Decoded on first use, so scanning many setups does not decode every icon.
    QImage icon() const;
    // The icon's PNG bytes as stored; empty when the setup has no icon.
    const QByteArray& iconData() const { return iconPng_; }

    FileForm fileForm() const { return form_; }
    // Why the file could not be read; empty when it could.
    const QString& loadError() const { return loadError_; }
    // Where an unreadable file goes before it is overwritten: ".<name>.unreadable" beside
    // it, hidden from the folder scan, with a number added when that is taken.
    static QString unreadableBackupPath(const QString& path);

    // Why name cannot name a setup file, or empty when it can.
    static QString nameProblem(const QString& name);
    // The 64 by 64 icon of a frame: black, the frame fitted inside with its aspect kept.
    static QImage iconFromFrame(const QImage& frame);
    // Case-insensitive order, case-sensitive between names that differ only by case.
    static bool lessThan(const LVSavedSetup& a, const LVSavedSetup& b);
    static bool lessThan(const LVSavedSetupRef& a, const LVSavedSetupRef& b) { return lessThan(*a, *b); }

signals:
    void nameChanged();
    void iconChanged();
    void midiKeyChanged();
    void hasVideoSourceChanged();

private:
    void readFile(LVContext* context);
    bool readBlobs(const QJsonValue& value, QString* error);
    QByteArray fileBytes() const;
    void setHasVideoSource(bool hasVideoSource);

    QList<QByteArray> encoded_;
    uint32_t midiKey_ = 0;
    bool hasVideoSource_ = false;
    QString name_;
    QString path_;
    QByteArray iconPng_;
    mutable QImage iconCache_;
    mutable bool iconDecoded_ = false;
    // Top-level keys a newer build wrote; written back untouched.
    QJsonObject otherKeys_;
    FileForm form_ = FileForm::None;
    QString loadError_;
};
